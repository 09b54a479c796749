// The terminal's COM port on Windows: one handle opened for overlapped I/O and used as if it
// were synchronous. A read takes what is queued and never waits for more; a write waits at
// most a second for each piece to leave; a wait watches EV_RXCHAR (or, where the driver cannot,
// a pending one-byte read), the cancel event and the thread's message queue at once.
#include "serial/CComPort.h"

#include <cstring>
#include <string>

#include "platform/Platform.h"
#include "support/Format.h"
#include "support/Log.h"

namespace {

constexpr DWORD ComAccess = GENERIC_READ | GENERIC_WRITE;                     // 0xC0000000
constexpr DWORD ComAttributes = FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL;  // 0x40000080
constexpr DWORD DcbLength = 28;
constexpr DWORD WriteTimeoutMs = PortWriteTimeoutMs;
constexpr DWORD AllocatedSystemText = 0x1300;  // allocate, from system, ignore inserts
constexpr DWORD SystemText = 0x1200;           // from system, ignore inserts
constexpr DWORD UserDefaultLanguage = 0x400;
constexpr int ReadErrorTextSize = 128;
// What a wait watches for the first byte. Some drivers end every EV_RXCHAR watch at once
// without an event (Wine's, on a pseudo-terminal, whose modem lines cannot be read): for them
// a read of one byte that stays pending until the byte comes is the watch. A driver whose
// one-byte read does not wait either is looked at every WatchlessLookMs instead. Each Open
// starts again from the event watch, unless it failed on that very device before: finding
// out costs the first wait of every call.
enum class Watch { CommEvent, ByteRead, None };
Watch g_watch = Watch::CommEvent;
std::string g_openDevice, g_eventlessDevice;
constexpr DWORD WatchlessLookMs = 1;

// Each kind of watch is logged the first time a wait of an Open uses it, where debug.json asks
// for it: the Wine tests run the event watch and the read watch and must see which one ran.
bool g_watchLogged[3];

void NoteWatch(Watch kind)
{
    static const char* const Names[] = {"event", "read", "look"};
    const int index = static_cast<int>(kind);
    if (g_nWaitTrace != 0 && !g_watchLogged[index]) {
        g_watchLogged[index] = true;
        WriteLog(Format("Wait watch: %s", Names[index]));
    }
}

void GiveUpWatch()
{
    if (g_watch == Watch::CommEvent) {
        g_eventlessDevice = g_openDevice;
    }
    g_watch = g_watch == Watch::CommEvent ? Watch::ByteRead : Watch::None;
}
// The longest port number whose "\\.\COM%d" name fits the 16-byte name buffer.
constexpr int LongestNamedPort = 99999999;

// An overlapped operation that has not finished must not outlive its OVERLAPPED or its
// buffer: after the wait has run out, cancel it and wait until the system lets go of both.
DWORD FinishPending(HANDLE port, OVERLAPPED& overlapped, DWORD waitResult)
{
    DWORD count = 0;
    if (waitResult != WAIT_OBJECT_0) {
        CancelIoEx(port, &overlapped);
        GetOverlappedResult(port, &overlapped, &count, TRUE);
        return count;
    }
    GetOverlappedResult(port, &overlapped, &count, FALSE);
    return count;
}

// One WriteFile with the port's write OVERLAPPED. A write that goes pending is waited for up
// to `waitMs`; if it completes in time its count is added to m_ovWrite.Offset. Failures are
// silent by design: the caller learns of lost bytes only from the missing answer.
void SendPiece(CComPort& com, const uint8_t* bytes, DWORD count, DWORD waitMs)
{
    DWORD written = 0;
    if (WriteFile(com.m_hPort, bytes, count, &written, &com.m_ovWrite)) {
        return;
    }
    if (GetLastError() != ERROR_IO_PENDING) {
        return;
    }
    DWORD waitResult = WaitForSingleObject(com.m_ovWrite.hEvent, waitMs);
    DWORD done = FinishPending(com.m_hPort, com.m_ovWrite, waitResult);
    if (waitResult == WAIT_OBJECT_0) {
        com.m_ovWrite.Offset += done;
    }
}

// A long piece goes out in slices that a working line takes well within the port's write
// time-out (4,096 bytes need 44 ms at 921600 baud), each waited for until it is done: a slow
// line gets all the time it needs. A slice that the line has not taken whole when the time-out
// ends means the line has stopped, and the write ends there. Either way the system holds
// neither the buffer nor the OVERLAPPED when this returns, so the caller may refill the buffer.
void SendWhole(CComPort& com, const uint8_t* bytes, DWORD count)
{
    constexpr DWORD SliceSize = 4096;
    // Past the line's own time-out the system has failed to end the request: cancel it.
    constexpr DWORD RequestWaitMs = WriteTimeoutMs + PortWriteWaitMs;
    while (count > 0) {
        const DWORD slice = count < SliceSize ? count : SliceSize;
        DWORD written = 0;
        if (!WriteFile(com.m_hPort, bytes, slice, &written, &com.m_ovWrite)) {
            if (GetLastError() != ERROR_IO_PENDING) {
                return;
            }
            DWORD waitResult = WaitForSingleObject(com.m_ovWrite.hEvent, RequestWaitMs);
            written = FinishPending(com.m_hPort, com.m_ovWrite, waitResult);
            com.m_ovWrite.Offset += written;
        }
        if (written != slice) {
            return;
        }
        bytes += slice;
        count -= slice;
    }
}

}  // namespace

CComPort::CComPort() : m_nHold(0), m_hPort(NullPortHandle), m_bOpen(0)
{
    std::memset(&m_ovRead, 0, sizeof m_ovRead);
    std::memset(&m_ovWrite, 0, sizeof m_ovWrite);
}

CComPort::~CComPort()
{
    Close();
}

int CComPort::Open(int port)
{
    m_nHold = 0;
    if (m_bOpen) {
        return 1;
    }

    // Ports 1 to 9 take the long form too: the choice rests on the sign alone.
    char name[16];
    if (port > LongestNamedPort) {
        // Its name would not fit; no such port exists, so fail as the system would.
        m_hPort = INVALID_HANDLE_VALUE;
        SetLastError(ERROR_FILE_NOT_FOUND);
        LogLastError("Invalid Handle Value: %s");
        return 0;
    }
    wsprintfA(name, port >= 0 ? "\\\\.\\COM%d" : "COM%d", port);
    return OpenPath(name);
}

int CComPort::OpenPath(const char* device)
{
    m_nHold = 0;
    if (m_bOpen) {
        return 1;
    }
    m_hPort = CreateFileA(device, ComAccess, 0, nullptr, OPEN_EXISTING, ComAttributes, nullptr);
    if (m_hPort == INVALID_HANDLE_VALUE) {
        LogLastError("Invalid Handle Value: %s");
        return 0;
    }

    std::memset(&m_ovRead, 0, sizeof m_ovRead);
    std::memset(&m_ovWrite, 0, sizeof m_ovWrite);
    // A read returns at once with what is queued; a write may take up to 5 s.
    COMMTIMEOUTS timeouts;
    timeouts.ReadIntervalTimeout = MAXDWORD;
    timeouts.ReadTotalTimeoutMultiplier = 0;
    timeouts.ReadTotalTimeoutConstant = 0;
    timeouts.WriteTotalTimeoutMultiplier = 0;
    timeouts.WriteTotalTimeoutConstant = WriteTimeoutMs;
    if (!SetCommTimeouts(m_hPort, &timeouts)) {
        // The handle stays with us unreleased: m_bOpen is 0, so nothing will close it.
        LogLastError("Set Time Out Error : %s");
        return 0;
    }

    m_ovRead.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    m_ovWrite.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);

    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = DcbLength;
    if (!GetCommState(m_hPort, &dcb)) {
        LogLastError("Get DCB Error : %s");
    } else {
        // Built from zero, not from what the device reported: no flow control of any kind,
        // DTR and RTS control off, fBinary left at 0 as well.
        std::memset(&dcb, 0, sizeof dcb);
        dcb.DCBlength = DcbLength;
        dcb.BaudRate = PortBaudRate;
        dcb.ByteSize = 8;
        dcb.Parity = NOPARITY;
        dcb.StopBits = ONESTOPBIT;
        SetCommState(m_hPort, &dcb);  // a refusal leaves the line as it was; we go on

        if (SetupComm(m_hPort, PortQueueSize, PortQueueSize)) {
            SetCommMask(m_hPort, EV_RXCHAR);  // what WaitInput waits for
            g_openDevice = device;
            g_watch = g_openDevice == g_eventlessDevice ? Watch::ByteRead : Watch::CommEvent;
            m_hasWatchedByte = false;
            std::memset(g_watchLogged, 0, sizeof g_watchLogged);
            m_bOpen = 1;
            return 1;
        }
        LogLastError("Open Error: %s");
    }

    // The members keep their values; the next Open replaces them.
    if (m_ovRead.hEvent != nullptr) {
        CloseHandle(m_ovRead.hEvent);
    }
    if (m_ovWrite.hEvent != nullptr) {
        CloseHandle(m_ovWrite.hEvent);
    }
    CloseHandle(m_hPort);
    return 0;
}

int CComPort::Write(const void* data, int length)
{
    if (!m_bOpen || m_hPort == NullPortHandle) {
        WriteLog("Com port not open");
        return 0;
    }
    // Logged before anything leaves, so that a hanging write still shows what it was.
    WriteLog(">" + BytesToHex(data, length < ByteByByteLimit ? length : ByteByByteLimit));

    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (length <= ByteByByteLimit) {
        // Short frames go out one byte per write; the terminal is paced by it.
        for (int i = 0; i < length; ++i) {
            SendPiece(*this, bytes + i, 1, PortWriteWaitMs);
        }
        return length > 0 ? length : 0;
    }
    // A long piece needs its time on the line (a whole transmit buffer takes 2.2 s at 921600
    // baud, longer on a slower line), and the caller refills the buffer as soon as this
    // returns: it returns only when every byte has gone or the line has stopped taking any.
    SendWhole(*this, bytes, static_cast<DWORD>(length));
    return 1;
}

int CComPort::Read(void* buffer, int limit, int room)
{
    if (!m_bOpen || m_hPort == NullPortHandle) {
        return -1;
    }
    DWORD errors = 0;
    COMSTAT status;
    std::memset(&status, 0, sizeof status);
    ClearCommError(m_hPort, &errors, &status);
    // A byte the wait's read watch took counts as queued, ahead of the rest.
    const DWORD held = m_hasWatchedByte ? 1 : 0;
    const long long queued = static_cast<long long>(status.cbInQue) + held;
    if (queued == 0) {
        return 0;
    }

    // A limit of 256 or more is no limit: the whole queue is asked for.
    long long request = queued;
    if (limit < UnlimitedReadFrom && limit < request) {
        WriteLog(Format("in que %d", static_cast<int>(queued)));
        request = limit;
    }
    // Never past the caller's room, whatever is queued.
    if (request > room) {
        request = room;
    }
    if (request < 1) {
        return 0;
    }

    uint8_t* bytes = static_cast<uint8_t*>(buffer);
    if (held != 0) {
        bytes[0] = m_watchedByte;
        m_hasWatchedByte = false;
    }
    DWORD count = static_cast<DWORD>(request) - held;
    if (count == 0 || ReadFile(m_hPort, bytes + held, count, &count, &m_ovRead)) {
        count += held;
        if (count > 0) {
            WriteLog("<" + BytesToHex(buffer, static_cast<int>(count)));
        }
        return static_cast<int>(count);
    }

    DWORD code = GetLastError();
    char text[ReadErrorTextSize];
    text[0] = '\0';
    FormatMessageA(SystemText, nullptr, code, UserDefaultLanguage, text, ReadErrorTextSize,
                   nullptr);
    text[ReadErrorTextSize - 1] = '\0';
    WriteLog(text);
    // The code taken before the log call: the log's own file work may have replaced the last
    // error, and a pending read must not be left running into the caller's buffer.
    if (code != ERROR_IO_PENDING) {
        return static_cast<int>(held);
    }
    DWORD waitResult = WaitForSingleObject(m_ovRead.hEvent, PortWriteWaitMs);
    return static_cast<int>(held + FinishPending(m_hPort, m_ovRead, waitResult));
}

namespace {

// A wait's time-out runs on the system tick (15.6 ms by default), three times the 5 ms of
// quiet that end a reply: short ones run on a high-resolution timer where the system has one.
constexpr DWORD FineTimeoutBelowMs = 50;
#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

// The event of the wait's OVERLAPPED and that timer. One call runs at a time, so one of each
// serves every wait; made when the library loads, closed when it unloads.
const struct WaitHandles {
    HANDLE watch = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE timer = CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                          TIMER_ALL_ACCESS);
    ~WaitHandles()
    {
        if (watch != nullptr) {
            CloseHandle(watch);
        }
        if (timer != nullptr) {
            CloseHandle(timer);
        }
    }
} g_waitHandles;

bool DeviceRemoved(DWORD code)
{
    return code == ERROR_DEVICE_REMOVED || code == ERROR_BAD_COMMAND ||
           code == ERROR_ACCESS_DENIED || code == ERROR_GEN_FAILURE ||
           code == ERROR_DEVICE_NOT_CONNECTED || code == ERROR_INVALID_HANDLE;
}

bool HasQueuedInput(HANDLE port, bool& gone)
{
    DWORD errors = 0;
    COMSTAT status;
    std::memset(&status, 0, sizeof status);
    gone = !ClearCommError(port, &errors, &status);
    return !gone && status.cbInQue > 0;
}

}  // namespace

PortWait CComPort::WaitInput(int timeoutMs)
{
    if (!m_bOpen || m_hPort == NullPortHandle) {
        return PortWait::Gone;
    }
    if (m_hasWatchedByte) {
        return PortWait::Input;
    }
    // The OVERLAPPED and the mask are this frame's, the read watch's byte is the port's: the
    // watch is finished or cancelled below, on every path, before they go.
    OVERLAPPED watch;
    std::memset(&watch, 0, sizeof watch);
    watch.hEvent = g_waitHandles.watch;
    DWORD events = 0;
    DWORD taken = 0;
    bool pending = false;
    const Watch kind = g_watch;  // this wait's, whatever it teaches the next one
    // The short waits inside a reply come once per byte, and a read watch costs such a driver
    // several calls into the system where a look at the queue costs one: they look instead.
    const bool lookInstead = kind == Watch::ByteRead && timeoutMs >= 0 &&
                             timeoutMs < static_cast<int>(FineTimeoutBelowMs);
    if (watch.hEvent != nullptr && kind != Watch::None && !lookInstead) {
        NoteWatch(kind);
        ResetEvent(watch.hEvent);
        const bool done = kind == Watch::CommEvent
                              ? WaitCommEvent(m_hPort, &events, &watch) != FALSE
                              : ReadFile(m_hPort, &m_watchedByte, 1, &taken, &watch) != FALSE;
        if (done && kind == Watch::CommEvent && (events & EV_RXCHAR) != 0) {
            return PortWait::Input;
        } else if (done && kind == Watch::ByteRead) {
            if (taken == 1) {
                m_hasWatchedByte = true;
                return PortWait::Input;
            }
            GiveUpWatch();  // a read that does not wait for its byte is no watch
        } else if (!done && GetLastError() == ERROR_IO_PENDING) {
            pending = true;
        } else if (!done && DeviceRemoved(GetLastError())) {
            return PortWait::Gone;
        } else if (!done) {
            GiveUpWatch();
        }
    }

    // Started first and looked at the queue second, so that no byte slips between the two.
    PortWait result = PortWait::Timeout;
    bool gone = false;
    if (HasQueuedInput(m_hPort, gone)) {
        result = PortWait::Input;
    } else if (gone) {
        result = PortWait::Gone;
    } else {
        HANDLE watched[3];
        DWORD count = 0;
        if (pending) {
            watched[count++] = watch.hEvent;
        }
        HANDLE wake = CancelWakeHandle();
        if (wake != nullptr) {
            watched[count++] = wake;
        }
        DWORD waitMs = timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs);
        if (kind == Watch::None) {
            NoteWatch(kind);
        }
        if (!pending && waitMs > WatchlessLookMs) {
            waitMs = WatchlessLookMs;
        } else if (wake == nullptr && waitMs > WakelessWaitMs) {
            waitMs = WakelessWaitMs;  // a cancel cannot wake us: look at the flag this often
        }
        HANDLE timer = g_waitHandles.timer;
        DWORD timerIndex = MAXDWORD;
        if (pending && timer != nullptr && waitMs > 0 && waitMs < FineTimeoutBelowMs) {
            LARGE_INTEGER due;
            due.QuadPart = -static_cast<LONGLONG>(waitMs) * 10000;  // relative, in 100 ns
            if (SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE)) {
                timerIndex = count;
                watched[count++] = timer;
                waitMs += FineTimeoutBelowMs;  // the tick is only a fall-back now
            }
        }
        // Alertable, and awake for any message in the queue, old or new: the caller
        // dispatches one of them per wake.
        DWORD woke = MsgWaitForMultipleObjectsEx(count, watched, waitMs, QS_ALLINPUT,
                                                 MWMO_ALERTABLE | MWMO_INPUTAVAILABLE);
        if (timerIndex != MAXDWORD) {
            CancelWaitableTimer(timer);
        }
        if (pending && woke == WAIT_OBJECT_0) {
            pending = false;
            const bool ok = GetOverlappedResult(m_hPort, &watch, &taken, FALSE) != FALSE;
            if (ok && kind == Watch::ByteRead && taken == 1) {
                m_hasWatchedByte = true;
                result = PortWait::Input;
            } else if (ok && kind == Watch::CommEvent && (events & EV_RXCHAR) != 0) {
                result = PortWait::Input;
            } else if (!ok && DeviceRemoved(GetLastError())) {
                result = PortWait::Gone;
            } else if (HasQueuedInput(m_hPort, gone)) {
                result = PortWait::Input;
            } else {
                // Ended with no byte and no reason: this driver's watch of this kind is of no
                // use, and the next wait tries the next kind.
                GiveUpWatch();
                result = gone ? PortWait::Gone : PortWait::Wake;
            }
        } else if (woke == WAIT_TIMEOUT ||
                   (timerIndex != MAXDWORD && woke == WAIT_OBJECT_0 + timerIndex)) {
            result = PortWait::Timeout;
        } else if (woke == WAIT_FAILED) {
            result = PortWait::Gone;
        } else {
            result = PortWait::Wake;  // the cancel event (taken back by the wait), a message, an APC
        }
    }
    if (pending) {
        // A new mask ends a pending event watch; CancelIoEx ends either kind, where the driver
        // honours it. A read watch may have taken its byte all the same: then it is held.
        if (kind == Watch::CommEvent) {
            SetCommMask(m_hPort, EV_RXCHAR);
        }
        CancelIoEx(m_hPort, &watch);
        if (GetOverlappedResult(m_hPort, &watch, &taken, TRUE) && kind == Watch::ByteRead &&
            taken == 1) {
            m_hasWatchedByte = true;
            if (result == PortWait::Timeout) {
                result = PortWait::Input;
            }
        }
    }
    return result;
}

void CComPort::Close()
{
    if (!m_bOpen || m_hPort == NullPortHandle) {
        return;
    }
    if (m_ovRead.hEvent != nullptr) {
        CloseHandle(m_ovRead.hEvent);
    }
    if (m_ovWrite.hEvent != nullptr) {
        CloseHandle(m_ovWrite.hEvent);
    }
    CloseHandle(m_hPort);
    m_bOpen = 0;
    m_hPort = NullPortHandle;
    m_hasWatchedByte = false;
}

void CComPort::LogLastError(const char* format)
{
    DWORD code = GetLastError();
    char* text = nullptr;
    FormatMessageA(AllocatedSystemText, nullptr, code, 0, reinterpret_cast<LPSTR>(&text), 0,
                   nullptr);
    WriteLog(Format(format, text != nullptr ? text : ""));
    if (text != nullptr) {
        LocalFree(text);
    }
}
