#include "session/Frame.h"

#include <cstring>

#include "platform/Platform.h"
#include "support/Log.h"

// --- building ------------------------------------------------------------------------------

// Set when a byte of the frame being built found txBuffer full. Such a frame is never sent:
// cut short it would lack its ETX, and the terminal would never answer it.
static bool g_frameTooLong = false;

static void PutByte(DeviceContext& context, uint8_t value)
{
    if (context.txLength >= 0 && context.txLength < TxRxCapacity)
        context.txBuffer[context.txLength++] = value;
    else
        g_frameTooLong = true;
}

void BeginFrame(DeviceContext& context, std::initializer_list<uint8_t> operation)
{
    context.txLength = 0;
    g_frameTooLong = false;
    PutByte(context, STX);
    for (uint8_t code : operation)
        PutByte(context, code);
}

void AppendBytes(DeviceContext& context, const void* data, int count)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    for (int i = 0; i < count; ++i)
        PutByte(context, bytes[i]);
}

void AppendText(DeviceContext& context, const char* text)
{
    AppendBytes(context, text, static_cast<int>(std::strlen(text)) + 1);
}

void CloseFrame(DeviceContext& context)
{
    uint8_t check = 0;
    for (int i = 1; i < context.txLength; ++i)
        check ^= context.txBuffer[i];
    PutByte(context, ETX);
    PutByte(context, check);
}

int SendFrame(DeviceContext& context)
{
    if (g_frameTooLong) {
        WriteLog("frame longer than the send buffer: not sent");
        return 0;  // as a write that sent nothing
    }
    return context.serial.Write(context.txBuffer, context.txLength);
}

// --- reading -------------------------------------------------------------------------------

int WaitReply(DeviceContext& context)
{
    uint8_t* buffer = context.rxBuffer;
    // One byte stays free for the NUL that ReadReply puts behind a payload.
    const int room = TxRxCapacity - 1;
    int total = 0;
    int64_t lastByteAt = 0;
    for (;;) {
        // Every round follows one wake, and dispatches one message at most.
        PumpOneMessage();
        int n = context.serial.Read(buffer + total, ReadChunk, room - total);
        if (n > 0) {
            total += n;
            lastByteAt = MicrosecondClock();
        }

        // One CAN per request: taking the flag and clearing it is one step.
        uint32_t requested = 1;
        if (context.cancelRequested.compare_exchange_strong(requested, 0)) {
            context.cancelByte = CAN;
            context.serial.Write(&context.cancelByte, 1);
            ++context.cancelsSent;
        }

        if (buffer[0] == STX && total >= 4 && buffer[total - 2] == ETX) {
            context.rxLength = total;
            return total;
        }
        if (total >= room)
            return total;  // a reply larger than the buffer ends where the buffer does

        // Nothing yet: sleep until something happens. Something: sleep until the line has
        // been silent for the silence time, counted from the last byte.
        int waitMs = -1;
        if (total > 0) {
            int64_t left = lastByteAt + int64_t{SilenceMs} * 1000 - MicrosecondClock();
            if (left <= 0)
                return total;  // silence after something arrived ends the reply
            waitMs = static_cast<int>((left + 999) / 1000);
        }
        PortWait woke = context.serial.WaitInput(waitMs);
        if (woke == PortWait::Gone) {
            DropVanishedPort(context);
            return total;  // as after silence; with nothing read, ReadReply takes nothing
        }
        if (woke == PortWait::Wake)
            FlushDeferredLog();
    }
}

int ReadReply(DeviceContext& context, uint8_t* out, uint32_t* outLength)
{
    TakeReply(context, WaitReply(context), out, outLength);
    return 0;
}

void TakeReply(DeviceContext& context, int n, uint8_t* out, uint32_t* outLength)
{
    if (n < 1)
        return;
    uint8_t* buffer = context.rxBuffer;
    if (n == 1) {
        context.rxLength = 1;
        if (out != nullptr)
            out[0] = buffer[0];
        if (outLength != nullptr)
            *outLength = 1;
        return;
    }

    bool framed = (buffer[0] == STX && buffer[n - 2] == ETX) || (buffer[0] == SI && buffer[n - 2] == SO);
    if (!framed)
        return;  // dropped: rxBuffer keeps the raw bytes, rxLength its old value

    int payload = n - 3;
    std::memmove(buffer, buffer + 1, static_cast<size_t>(payload));
    context.rxLength = payload;
    buffer[payload] = 0;
    if (out != nullptr) {
        std::memcpy(out, buffer, static_cast<size_t>(payload));
        out[payload] = 0;
    }
    if (outLength != nullptr)
        *outLength = static_cast<uint32_t>(payload);
}

int ExchangeFrame(DeviceContext& context, uint8_t* out, uint32_t* outLength)
{
    int written = SendFrame(context);
    if (written <= 0)
        return written;
    return ReadReply(context, out, outLength);
}
