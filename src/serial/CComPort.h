// The serial port of the terminal: 921600 baud, 8N1, no flow control. A thin, polled wrapper
// used as if it were synchronous: Read never waits, Write always reports the bytes as sent.
// Every byte that moves is logged.
#pragma once

#include <climits>
#include <cstdint>

#include "platform/PortTypes.h"

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

    bool HasHandle() const { return m_bOpen != 0 && m_hPort != NullPortHandle; }

    int32_t m_nHold;  // nothing sets it, but the probe's wait honours it
    PortHandle m_hPort;
    PortOverlapped m_ovRead;
    PortOverlapped m_ovWrite;
    int32_t m_bOpen;

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
