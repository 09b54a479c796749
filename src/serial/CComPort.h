// The serial port of the terminal: 921600 baud, 8N1, no flow control. A thin wrapper used as
// if it were synchronous: Read never waits, Write always reports the bytes as sent, and
// WaitInput sleeps until there is something to read or to do. Every byte that moves is logged.
#pragma once

#include <climits>
#include <cstdint>

#include "platform/PortTypes.h"

// Why WaitInput came back.
enum class PortWait {
    Input,    // bytes are queued (or may be: a read tells)
    Wake,     // the cancel wake-up was raised, or (Windows) a message or an APC is due
    Timeout,  // the time given passed first
    Gone,     // the port is not open, or the system reports the device gone
};

class CComPort {
public:
    CComPort();
    ~CComPort();
    CComPort(const CComPort&) = delete;
    CComPort& operator=(const CComPort&) = delete;

    // 1 if the port is open on return (also if it was open already), 0 on any failure.
    int Open(int port);
    // Open by the device's own name (a tty, a COM<N> link, "\\.\COM3"), for callers that are
    // given a device rather than a port number. Same settings and results as Open.
    int OpenPath(const char* device);
    // 0 if not open or nothing to send; `length` for 1..100 bytes (sent one by one); 1 above.
    int Write(const void* data, int length);
    // -1 if not open, 0 if nothing is queued or the read failed, else the count read.
    // A `limit` of 256 or more takes the whole queue. `room` is the space left in `buffer`:
    // it is never written past, whatever is queued.
    int Read(void* buffer, int limit, int room = INT_MAX);
    void Close();
    // Sleeps until bytes are queued, the cancel wake-up is raised, (Windows) a window message
    // or an APC is due, or `timeoutMs` passes (below 0: no limit). No periodic wake-ups. A
    // raised wake-up is taken back before Wake is returned; nothing is read or dispatched.
    PortWait WaitInput(int timeoutMs);

    bool HasHandle() const { return m_bOpen != 0 && m_hPort != NullPortHandle; }

    int32_t m_nHold;  // nothing sets it, but the probe's wait honours it
    PortHandle m_hPort;
    PortOverlapped m_ovRead;
    PortOverlapped m_ovWrite;
    int32_t m_bOpen;
#if defined(_WIN32)
    // A byte that WaitInput's one-byte read watch took off the line; Read hands it on first.
    uint8_t m_watchedByte = 0;
    bool m_hasWatchedByte = false;
#endif

private:
    void LogLastError(const char* format);
};

// Line settings shared by both implementations.
constexpr int PortBaudRate = 921600;
constexpr int PortQueueSize = 1024;
constexpr int PortWriteWaitMs = 1000;
// The line's own write time-out: a long write gives up only when no byte moved for this long.
constexpr int PortWriteTimeoutMs = 5000;
constexpr int ByteByByteLimit = 100;  // writes up to this many bytes go out one by one
constexpr int UnlimitedReadFrom = 256;
// The longest sleep of a wait that has no cancel wake-up to watch.
constexpr int WakelessWaitMs = 5;
