#include "session/DeviceContext.h"

#include <algorithm>

#include "pcsc/Redirection.h"
#include "platform/Platform.h"
#include "session/Exports.h"
#include "support/Format.h"
#include "support/Log.h"

static_assert(std::atomic<uint32_t>::is_always_lock_free, "PosCancel runs in signal handlers");

DeviceContext g_context;

DeviceContext::DeviceContext()
    : cancelRequested(0),
      timeoutSeconds(0),
      port(0),
      cancelByte(0),
      cancelsSent(0),
      handshakeState(0),
      txBuffer{},
      txLength(0),
      rxBuffer{},
      rxLength(0),
      operationFlag(0)
{
}

DeviceContext::~DeviceContext()
{
    TeardownDeviceContext();
}

void EnterLibrary()
{
    // Runs once, on the first call into the library, and is thread-safe by the language's
    // rules for local statics.
    static const bool started = (InitialiseDeviceContext(), true);
    (void)started;
}

void InitialiseDeviceContext()
{
    DeviceContext& context = g_context;
    context.handshakeState = -1;
    context.text.clear();
    context.cancelRequested = 0;
    context.timeoutSeconds = DefaultTimeoutSeconds;
    context.port = 0;
    LoadConfiguration();
}

void TeardownDeviceContext()
{
    TeardownRedirection();
    // Closes the port without a log line and without touching cancelRequested.
    g_context.serial.Close();
}

int OpenDevice(DeviceContext& context)
{
    if (context.serial.m_bOpen != 0) {
        WriteLog("port is opened");
        return 0;
    }
    context.cancelRequested = 0;
    if (context.port == 0) {
        WriteLog("3in1 port not found");
        return ErrPortUnavailable;
    }
    if (context.serial.Open(context.port) == 0) {
        WriteLog(Format("Open Port Failed : %d", context.port));
        return ErrPortUnavailable;
    }
    WriteLog(Format("Open Port  was Successful : %d", context.port));

    // Whatever the terminal said before this call must not reach the coming reply.
    unsigned char stale[1024];
    while (context.serial.Read(stale, DrainChunk, sizeof stale) != 0) {
    }
    return 0;
}

void DropVanishedPort(DeviceContext& context)
{
    if (context.serial.m_bOpen == 0)
        return;
    WriteLog("Com port lost");
    context.serial.Close();
}

void CloseDevice(DeviceContext& context)
{
    context.cancelRequested = 0;
    context.serial.Close();
    WriteLog("Close Device was Successful");
}

int BeginOperation(DeviceContext& context)
{
    context.operationFlag = 0;
    int result = OpenDevice(context);
    if (result != 0)
        context.operationFlag = 0;
    return result;
}

void EndOperation(DeviceContext& context)
{
    CloseDevice(context);
    context.operationFlag = 0;
}

extern "C" int VARNIK_CALL PosSelect(void)
{
    EnterLibrary();
    DeviceContext& context = g_context;
    int result = OpenDevice(context);
    if (result != 0)
        return result;

    if (context.handshakeState >= 0) {
        result = context.handshakeState;
    } else {
        static const uint8_t probeFrame[] = {STX, 0x34, ETX, 0x34};
        result = ErrNoTerminal;
        for (int attempt = 0; attempt < ProbeTries && result != 0; ++attempt) {
            std::copy(probeFrame, probeFrame + sizeof probeFrame, context.txBuffer);
            context.txLength = sizeof probeFrame;
            context.serial.Write(context.txBuffer, context.txLength);

            uint32_t deadline = static_cast<uint32_t>(MillisecondClock()) + ProbeWindowMs;
            for (;;) {
                // Compared as a difference, so the counter may wrap.
                int32_t late = static_cast<int32_t>(static_cast<uint32_t>(MillisecondClock()) - deadline);
                if (late >= 0 && context.serial.m_nHold == 0)
                    break;  // this window is over
                PumpOneMessage();
                uint8_t answer = 0;
                if (context.serial.Read(&answer, 1) == 1 && answer == ACK) {
                    result = 0;
                    break;
                }
                // Asleep until a byte, a wake or the window's end. A cancel does not end the
                // probe: the flag stays for CloseDevice to wipe.
                PortWait woke = context.serial.WaitInput(late >= 0 ? WakelessWaitMs : -late);
                if (woke == PortWait::Gone) {
                    DropVanishedPort(context);
                    break;  // a second try finds the port closed and ends at once
                }
                if (woke == PortWait::Wake)
                    FlushDeferredLog();
            }
        }
    }
    CloseDevice(context);
    return result;
}

extern "C" int VARNIK_CALL PosCheckPort(int port)
{
    EnterLibrary();
    // A port left open under another number (PosExec, a two-field swipe) would take the probe
    // and have its answer saved as N's.
    if (g_context.serial.m_bOpen != 0 && g_context.port != port)
        CloseDevice(g_context);
    g_context.port = port;
    WriteLog(Format("check device port %d", port));
    int result = PosSelect();
    if (result == 0)
        SavePortNumber(port);
    return result;
}

// Safe in a POSIX signal handler: lock-free stores and one write to the wake-up, nothing
// else. Its line goes to the log through the next thread that logs, which is the waiting call
// itself when one waits, so that the line still stands before the CAN it causes.
extern "C" int VARNIK_CALL PosCancel(void)
{
    DeferLog("Pos Cancel ");
    g_context.cancelRequested = 1;
    RaiseCancelWake();
    return 0;
}
VARNIK_ALIAS(int, PinCancel, (void), PosCancel)
VARNIK_ALIAS(int, MsreCancel, (void), PosCancel)
