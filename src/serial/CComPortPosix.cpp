// The serial driver on POSIX: COM<N> is a link in the config folder to the terminal's tty, as
// Wine's dosdevices are. Same results, limits and log lines as on Windows.
#include "serial/CComPort.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

CComPort::CComPort() : m_nHold(0), m_hPort(NullPortHandle), m_ovRead{}, m_ovWrite{}, m_bOpen(0) {}

CComPort::~CComPort()
{
    Close();
}

void CComPort::LogLastError(const char* format)
{
    WriteLog(Format(format, std::strerror(errno)));
}

int CComPort::Open(int port)
{
    m_nHold = 0;
    if (m_bOpen != 0)
        return 1;

    return OpenPath(ConfigFilePath(Format("COM%d", port).c_str()).c_str());
}

int CComPort::OpenPath(const char* device)
{
    m_nHold = 0;
    if (m_bOpen != 0)
        return 1;
    m_hPort = open(device, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_hPort < 0) {
        LogLastError("Invalid Handle Value: %s");
        return 0;
    }
    m_ovRead = PortOverlapped{};
    m_ovWrite = PortOverlapped{};
    // Exclusive access, as a COM handle opened with no sharing has.
    if (flock(m_hPort, LOCK_EX | LOCK_NB) != 0) {
        LogLastError("Invalid Handle Value: %s");
        close(m_hPort);
        return 0;
    }

    termios settings{};
    if (tcgetattr(m_hPort, &settings) != 0) {
        LogLastError("Get DCB Error : %s");
        close(m_hPort);
        return 0;
    }
    // Raw 8N1 at 921600 with no flow control; a refusal leaves the line as it was.
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS | CSIZE);
    settings.c_cflag |= CS8 | CLOCAL | CREAD;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    cfsetispeed(&settings, B921600);
    cfsetospeed(&settings, B921600);
    tcsetattr(m_hPort, TCSANOW, &settings);
    ioctl(m_hPort, TIOCEXCL);

    m_bOpen = 1;
    return 1;
}

// Waits up to `waitMs` for the line to take more bytes. A signal (a host's Ctrl-C) cuts the
// poll short; the wait goes on for what is left, or the bytes of a stream would be lost.
static bool WaitWritable(int fd, int waitMs)
{
    const int64_t end = MicrosecondClock() + int64_t{waitMs} * 1000;
    for (;;) {
        pollfd ready{fd, POLLOUT, 0};
        const int64_t left = (end - MicrosecondClock() + 999) / 1000;
        const int woke = poll(&ready, 1, static_cast<int>(left > 0 ? left : 0));
        if (woke >= 0 || errno != EINTR)
            return woke == 1 && (ready.revents & POLLOUT) != 0;
    }
}

// Sends `count` bytes, waiting at most `waitMs` each time the line is full, so a write lasts
// as long as the line keeps taking bytes; returns the bytes that went out through the waiting
// path.
static uint32_t SendBytes(int fd, const uint8_t* bytes, int count, int waitMs)
{
    uint32_t waited = 0;
    bool pending = false;
    while (count > 0) {
        ssize_t written = write(fd, bytes, static_cast<size_t>(count));
        if (written > 0) {
            if (pending)
                waited += static_cast<uint32_t>(written);
            bytes += written;
            count -= static_cast<int>(written);
            continue;
        }
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno != EAGAIN)
            break;  // lost in silence; the caller sees only the missing answer
        if (!WaitWritable(fd, waitMs))
            break;
        pending = true;
    }
    return waited;
}

int CComPort::Write(const void* data, int length)
{
    if (m_bOpen == 0 || m_hPort == NullPortHandle) {
        WriteLog("Com port not open");
        return 0;
    }
    WriteLog(">" + BytesToHex(data, std::min(length, ByteByByteLimit)));

    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (length <= ByteByByteLimit) {
        for (int i = 0; i < length; ++i)
            m_ovWrite.Offset += SendBytes(m_hPort, bytes + i, 1, PortWriteWaitMs);
        return length > 0 ? length : 0;
    }
    m_ovWrite.Offset += SendBytes(m_hPort, bytes, length, PortWriteTimeoutMs);
    return 1;
}

int CComPort::Read(void* buffer, int limit, int room)
{
    if (m_bOpen == 0 || m_hPort == NullPortHandle)
        return -1;
    int queued = 0;
    if (ioctl(m_hPort, FIONREAD, &queued) != 0 || queued <= 0)
        return 0;

    int request = queued;
    if (limit < UnlimitedReadFrom && limit < queued) {
        WriteLog(Format("in que %d", queued));
        request = limit;
    }
    request = std::min(request, room);
    if (request < 1)
        return 0;

    ssize_t count = read(m_hPort, buffer, static_cast<size_t>(request));
    if (count > 0) {
        WriteLog("<" + BytesToHex(buffer, static_cast<int>(count)));
        return static_cast<int>(count);
    }
    if (count < 0 && errno != EAGAIN)
        WriteLog(std::strerror(errno));
    return 0;
}

PortWait CComPort::WaitInput(int timeoutMs)
{
    if (m_bOpen == 0 || m_hPort == NullPortHandle)
        return PortWait::Gone;
    PortHandle wake = CancelWakeHandle();
    pollfd watched[2] = {{m_hPort, POLLIN, 0}, {wake, POLLIN, 0}};
    nfds_t count = wake != NullPortHandle ? 2 : 1;
    if (count == 1 && (timeoutMs < 0 || timeoutMs > WakelessWaitMs))
        timeoutMs = WakelessWaitMs;  // no wake-up to watch: look at the cancel flag this often

    int ready = poll(watched, count, timeoutMs < 0 ? -1 : timeoutMs);
    if (ready < 0)
        return errno == EINTR ? PortWait::Wake : PortWait::Gone;  // a signal is harmless
    if (ready == 0)
        return PortWait::Timeout;
    // A hung-up tty reads as readable for ever and gives nothing: an unplugged adapter, or a
    // pseudo-terminal whose other side closed. Bytes that came before it were read already.
    if ((watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)
        return PortWait::Gone;
    if ((watched[0].revents & POLLIN) != 0)
        return PortWait::Input;
    ClearCancelWake();
    return PortWait::Wake;
}

void CComPort::Close()
{
    if (m_bOpen == 0 || m_hPort == NullPortHandle)
        return;
    ioctl(m_hPort, TIOCNXCL);  // exclusive mode outlives the descriptor while others hold the tty
    close(m_hPort);
    m_bOpen = 0;
    m_hPort = NullPortHandle;
}
