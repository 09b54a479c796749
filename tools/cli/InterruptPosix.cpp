#include "Interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <mutex>
#include <thread>

namespace {

// The handler only writes a byte into this pipe; a watcher thread of our own reads it and
// calls PosCancel there, where printing and the library's log may take their locks.
int g_pipe[2] = {-1, -1};
std::mutex g_lock;  // guards g_cancel and g_armed against the watcher
PosCancelFn g_cancel = nullptr;
volatile sig_atomic_t g_interrupts = 0;
bool g_armed = false;
struct sigaction g_previous;

void Say(const char* text)
{
    ssize_t ignored = write(STDERR_FILENO, text, strlen(text));
    (void)ignored;
}

void Watch()
{
    char byte;
    for (;;) {
        ssize_t count = read(g_pipe[0], &byte, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        std::lock_guard<std::mutex> hold(g_lock);
        if (g_armed && g_cancel) {
            Say("\nCancelling: waiting for the terminal to answer (Ctrl-C again to quit).\n");
            g_cancel();
        }
    }
}

// Only async-signal-safe steps here.
void OnInterrupt(int)
{
    if (g_interrupts == 0) {
        g_interrupts = 1;
        int saved = errno;
        ssize_t ignored = write(g_pipe[1], "i", 1);
        (void)ignored;
        errno = saved;
        return;
    }
    // Second Ctrl-C: die of SIGINT as an unhandled one would, so a calling shell sees it. The
    // signal is blocked inside its handler, so it lands as soon as the handler returns.
    signal(SIGINT, SIG_DFL);
    raise(SIGINT);
}

// The pipe and the watcher live as long as the program; made on the first wait.
bool StartWatcher()
{
    static const bool started = [] {
        if (pipe(g_pipe) != 0)
            return false;
        fcntl(g_pipe[0], F_SETFD, FD_CLOEXEC);
        fcntl(g_pipe[1], F_SETFD, FD_CLOEXEC);
        std::thread(Watch).detach();
        return true;
    }();
    return started;
}

} // namespace

void BeginCancellableWait(PosCancelFn cancel)
{
    if (g_armed || !cancel || !StartWatcher())
        return;
    {
        std::lock_guard<std::mutex> hold(g_lock);
        g_cancel = cancel;
        g_interrupts = 0;
    }
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;  // the library's wait wakes through PosCancel, not EINTR
    std::lock_guard<std::mutex> hold(g_lock);
    g_armed = sigaction(SIGINT, &action, &g_previous) == 0;
}

bool EndCancellableWait()
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (!g_armed)
        return false;
    sigaction(SIGINT, &g_previous, nullptr);
    g_armed = false;
    return g_interrupts != 0;
}
