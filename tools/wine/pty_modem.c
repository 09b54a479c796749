/* pty_modem.so: preloaded into Wine's processes so that a pseudo-terminal behaves as a UART in
 * the two ways a serial port driver can tell. With it, a Windows POS application under Wine
 * talks to the simulator (or any pty) through COMn as it would through a real port:
 *
 *   cc -shared -fPIC -O2 -o DIR/lib/x86_64-linux-gnu/pty_modem.so pty_modem.c -ldl
 *   cc -m32 -shared -fPIC -O2 -o DIR/lib/i386-linux-gnu/pty_modem.so pty_modem.c -ldl
 *   LD_PRELOAD='DIR/$LIB/pty_modem.so' wine app.exe
 *
 * ($LIB picks the build of each process's word size: Wine's 32-bit processes need their own.)
 *
 * - Modem lines. Wine's serial wait (WaitCommEvent) reads the modem lines and the interrupt
 *   counters on every wake and ends the wait as cancelled when it cannot: on a pty both requests
 *   fail, so without this the event wait never runs under Wine. TIOCMGET gives CTS, DSR and CD
 *   up, with DTR and RTS as last set; TIOCMSET, TIOCMBIS and TIOCMBIC set them; TIOCGICOUNT gives
 *   counters that never move. A hung-up pty (its far end closed) fails them, as a vanished UART
 *   does. PTY_MODEM_LINES=0 leaves these requests to the pty, so that the same run can test the
 *   wait's fall-back.
 * - Line settings. A pty forces 8 data bits and no parity whatever it is asked for; here it
 *   keeps the character size and parity last set, so that GetCommState shows what the port was
 *   opened with.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <linux/serial.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <stdlib.h>
#include <termios.h>

/* The pty majors of Linux: 136 to 143 for /dev/pts slaves, 128 to 135 for ptmx masters. */
static int is_pty(int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISCHR(st.st_mode))
        return 0;
    return major(st.st_rdev) >= 128 && major(st.st_rdev) <= 143;
}

static int g_lines = TIOCM_DTR | TIOCM_RTS;

static void *real(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

/* The character size and parity last asked for, per pty device. */
#define KEPT_BITS (CSIZE | PARENB | PARODD)
static struct {
    dev_t device;
    tcflag_t bits;
} g_kept[16];

static dev_t pty_device(int fd)
{
    struct stat st;
    return fstat(fd, &st) == 0 ? st.st_rdev : 0;
}

int tcsetattr(int fd, int action, const struct termios *settings)
{
    static int (*real_tcsetattr)(int, int, const struct termios *);
    if (real_tcsetattr == NULL)
        real_tcsetattr = (int (*)(int, int, const struct termios *))real("tcsetattr");
    const int result = real_tcsetattr(fd, action, settings);
    if (result == 0 && settings != NULL && is_pty(fd)) {
        const dev_t device = pty_device(fd);
        size_t slot = 0;
        while (slot + 1 < sizeof g_kept / sizeof g_kept[0] && g_kept[slot].device != 0 &&
               g_kept[slot].device != device)
            ++slot;
        g_kept[slot].device = device;
        g_kept[slot].bits = settings->c_cflag & KEPT_BITS;
    }
    return result;
}

int tcgetattr(int fd, struct termios *settings)
{
    static int (*real_tcgetattr)(int, struct termios *);
    if (real_tcgetattr == NULL)
        real_tcgetattr = (int (*)(int, struct termios *))real("tcgetattr");
    const int result = real_tcgetattr(fd, settings);
    if (result == 0 && is_pty(fd)) {
        const dev_t device = pty_device(fd);
        for (size_t slot = 0; slot < sizeof g_kept / sizeof g_kept[0]; ++slot) {
            if (g_kept[slot].device == device && device != 0)
                settings->c_cflag = (settings->c_cflag & ~KEPT_BITS) | g_kept[slot].bits;
        }
    }
    return result;
}

typedef int (*ioctl_fn)(int, unsigned long, ...);

static int modem_ioctl(ioctl_fn real_ioctl, int fd, unsigned long request, void *argument)
{
    const char *lines = getenv("PTY_MODEM_LINES");
    const int modem = request == TIOCMGET || request == TIOCMSET || request == TIOCMBIS ||
                      request == TIOCMBIC || request == TIOCGICOUNT;
    if (!modem || argument == NULL || !is_pty(fd) || (lines != NULL && lines[0] == '0'))
        return real_ioctl(fd, request, argument);
    /* A pty fails these with ENOTTY while its far end is there, with EIO once it has hung up. */
    const int answer = real_ioctl(fd, request, argument);
    if (answer == 0 || errno != ENOTTY)
        return answer;

    if (request == TIOCGICOUNT) {
        memset(argument, 0, sizeof(struct serial_icounter_struct));
        return 0;
    }
    const int bits = *(int *)argument & (TIOCM_DTR | TIOCM_RTS);
    switch (request) {
    case TIOCMGET:
        *(int *)argument = g_lines | TIOCM_CTS | TIOCM_DSR | TIOCM_CD;
        break;
    case TIOCMSET:
        g_lines = bits;
        break;
    case TIOCMBIS:
        g_lines |= bits;
        break;
    default:
        g_lines &= ~bits;
        break;
    }
    return 0;
}

/* Both entry points pass the one pointer argument that the modem-line requests carry. */
#define MODEM_IOCTL_ENTRY(name)                                 \
    int name(int fd, unsigned long request, ...)                \
    {                                                           \
        static ioctl_fn real_ioctl;                             \
        va_list args;                                           \
        va_start(args, request);                                \
        void *argument = va_arg(args, void *);                  \
        va_end(args);                                           \
        if (real_ioctl == NULL)                                 \
            real_ioctl = (ioctl_fn)real(#name);                 \
        return modem_ioctl(real_ioctl, fd, request, argument);  \
    }

MODEM_IOCTL_ENTRY(ioctl)
#if defined(__i386__)
/* Programs built with a 64-bit time_t (Wine's 32-bit side among them) call this name. */
MODEM_IOCTL_ENTRY(__ioctl_time64)
#endif
