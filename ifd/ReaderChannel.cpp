#include "ReaderChannel.h"

#include <algorithm>
#include <cstring>

#include "platform/Platform.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

// The daemon's log call. Weak: outside the daemon (the unit tests) it is simply absent.
extern "C" void log_msg(int priority, const char* format, ...) __attribute__((weak));

namespace Ifd {

namespace {

constexpr uint8_t CardIsIn = 0x06;

uint8_t CheckOf(const uint8_t* bytes, int count)
{
    uint8_t check = 0;
    for (int i = 0; i < count; ++i)
        check ^= bytes[i];
    return check;
}

}  // namespace

void ReportLine(int priority, const std::string& text)
{
    WriteLog(text);
    if (log_msg != nullptr)
        log_msg(priority, "varnik: %s", text.c_str());
}

// --- answer handling --------------------------------------------------------------------------

bool TakeAtr(const uint8_t* payload, int length, uint8_t* atr, int* atrLength)
{
    *atrLength = 0;
    if (length > 1) {
        const int count = std::min({static_cast<int>(payload[0]), length - 1, MaxAtrSize});
        std::memcpy(atr, payload + 1, static_cast<size_t>(count));
        *atrLength = count;
        return true;
    }
    if (length == 1)
        return payload[0] == 0;
    return true;  // an empty answer: a card, but no ATR came with it
}

bool TakeResponse(const uint8_t* payload, int length, uint8_t* out, unsigned long capacity,
                  unsigned long* outLength)
{
    *outLength = 0;
    if (length < 0 || static_cast<unsigned long>(length) > capacity)
        return false;
    std::memcpy(out, payload, static_cast<size_t>(length));
    *outLength = static_cast<unsigned long>(length);
    return true;
}

bool FrameComplete(const uint8_t* raw, int total, uint8_t operation, const uint8_t* command,
                   int commandLength)
{
    if (total < 4 || raw[0] != STX || raw[total - 2] != ETX ||
        raw[total - 1] != CheckOf(raw + 1, total - 3))
        return false;
    const int length = total - 3;
    if (operation == OpCardOpen)
        return length == raw[1] + 1;
    if (operation != OpCardTransmit)
        return false;
    // Short APDUs: CLA INS P1 P2 (case 1), then Le (2), Lc and data (3), or Lc, data and Le (4).
    // Without Le the card answers with its status word alone, with it Le bytes come first; a
    // status word alone in answer to an Le (an error, 61xx, 6Cxx) is told by the silence.
    const int lc = commandLength > 5 ? command[4] : 0;
    if (commandLength == 4 || (lc != 0 && commandLength == 5 + lc))
        return length == 2;
    if (commandLength == 5 || (lc != 0 && commandLength == 6 + lc)) {
        const int le = command[commandLength - 1];
        return length == (le == 0 ? 256 : le) + 2;
    }
    return false;  // an extended or malformed command: the silence tells
}

bool FrameUnfinished(const uint8_t* raw, int total)
{
    if (raw[0] != STX && raw[0] != SI)
        return false;
    return total < 3 || raw[total - 2] != (raw[0] == STX ? ETX : SO);
}

int StripReply(uint8_t* raw, int total)
{
    if (total == 1)
        return 1;
    if (total < 3)
        return -1;
    const bool framed = (raw[0] == STX && raw[total - 2] == ETX) ||
                        (raw[0] == SI && raw[total - 2] == SO);
    if (!framed)
        return -1;
    std::memmove(raw, raw + 1, static_cast<size_t>(total - 3));
    return total - 3;
}

// --- the channel ----------------------------------------------------------------------------

bool ReaderChannel::Open(const std::string& device)
{
    m_device = device;
    if (m_context.serial.OpenPath(m_device.c_str()) == 0) {
        if (!m_failing)
            ReportLine(LogError, Format("cannot open %s", m_device.c_str()));
        m_failing = true;
        return false;
    }
    if (!m_failing)
        ReportLine(LogInfo, Format("%s opened", m_device.c_str()));
    return true;
}

void ReaderChannel::Close()
{
    m_context.serial.Close();
}

int ReaderChannel::ReadWithin(int deadlineMs, uint8_t operation, const uint8_t* command,
                              int commandLength)
{
    uint8_t* buffer = m_context.rxBuffer;
    const int room = TxRxCapacity - 1;
    const int64_t deadline = MicrosecondClock() + int64_t{deadlineMs} * 1000;
    int64_t lastByteAt = 0;
    int total = 0;
    for (;;) {
        const int n = m_context.serial.Read(buffer + total, ReadChunk, room - total);
        if (n < 0)
            return -1;
        const int64_t now = MicrosecondClock();
        if (n > 0) {
            total += n;
            lastByteAt = now;
            if (FrameComplete(buffer, total, operation, command, commandLength) || total >= room)
                return total;
        }
        // A quiet line ends a reply, unless it is a frame whose end hasn't come: a pause
        // inside a frame (a USB adapter's latency) waits for the rest until the deadline.
        int64_t until = deadline;
        if (total > 0 && !FrameUnfinished(buffer, total))
            until = std::min(deadline, lastByteAt + int64_t{SilenceMs} * 1000);
        if (now >= until)
            return total;  // 0: nothing came in time
        const int waitMs = static_cast<int>((until - now + 999) / 1000);
        if (m_context.serial.WaitInput(waitMs) == PortWait::Gone)
            return -1;
    }
}

int ReaderChannel::Exchange(uint8_t operation, const uint8_t* payload, int length,
                            int deadlineMs, Outcome& failure)
{
    DeviceContext& context = m_context;
    if (!IsOpen() && !Open(m_device)) {
        failure = Outcome::PortClosed;
        return -1;
    }
    // A reply that came after an earlier deadline must not pass for this one's.
    uint8_t stale[1024];
    while (context.serial.Read(stale, DrainChunk, sizeof stale) > 0) {
    }

    BeginFrame(context, {OpCardChannel, operation});
    if (operation == OpCardTransmit) {
        const uint8_t lengthByte = static_cast<uint8_t>(length);
        AppendBytes(context, &lengthByte, 1);
    }
    AppendBytes(context, payload, length);
    CloseFrame(context);

    const int raw = SendFrame(context) > 0 ? ReadWithin(deadlineMs, operation, payload, length) : -1;
    const int stripped = raw > 0 ? StripReply(context.rxBuffer, raw) : -1;
    if (stripped < 0) {
        const char* device = m_device.c_str();
        if (!m_failing && raw > 0)
            ReportLine(LogError, Format("unreadable answer to 38:%02X from %s", operation, device));
        else if (!m_failing && raw == 0)
            ReportLine(LogError, Format("no answer to 38:%02X from %s within %d ms", operation,
                                        device, deadlineMs));
        else if (!m_failing)
            ReportLine(LogError, Format("%s is gone", device));
        // Reopened by the next call: the device may have gone and come back meanwhile.
        m_failing = true;
        Close();
        failure = Outcome::NoAnswer;
        return -1;
    }
    if (m_failing)
        ReportLine(LogInfo, Format("%s answers again", m_device.c_str()));
    m_failing = false;
    context.rxLength = stripped;
    return stripped;
}

Outcome ReaderChannel::PowerUp(uint8_t* atr, int* atrLength)
{
    *atrLength = 0;
    Outcome failure = Outcome::Done;
    const int length = Exchange(OpCardOpen, nullptr, 0, PowerDeadlineMs, failure);
    if (length < 0)
        return failure;
    return TakeAtr(m_context.rxBuffer, length, atr, atrLength) ? Outcome::Done : Outcome::NoCard;
}

Outcome ReaderChannel::PowerDown()
{
    Outcome failure = Outcome::Done;
    return Exchange(OpCardClose, nullptr, 0, PowerDeadlineMs, failure) < 0 ? failure : Outcome::Done;
}

Outcome ReaderChannel::Presence()
{
    Outcome failure = Outcome::Done;
    const int length = Exchange(OpCardPresence, nullptr, 0, PresenceDeadlineMs, failure);
    if (length < 0)
        return failure;
    return length == 1 && m_context.rxBuffer[0] == CardIsIn ? Outcome::Done : Outcome::NoCard;
}

Outcome ReaderChannel::Transmit(const uint8_t* command, unsigned long length, uint8_t* out,
                                unsigned long capacity, unsigned long* outLength)
{
    *outLength = 0;
    if (length == 0 || length > static_cast<unsigned long>(MaxCommandLength)) {
        ReportLine(LogError, Format("a command of %lu bytes does not fit the APDU frame", length));
        return Outcome::TooLarge;
    }
    Outcome failure = Outcome::Done;
    const int answer =
        Exchange(OpCardTransmit, command, static_cast<int>(length), TransmitDeadlineMs, failure);
    if (answer < 0)
        return failure;
    if (answer < 2) {
        // No status word: not the card's answer but the terminal's refusal (CAN: no card).
        ReportLine(LogError, Format("the terminal declined the command (%d byte answer)", answer));
        return Outcome::NoCard;
    }
    if (!TakeResponse(m_context.rxBuffer, answer, out, capacity, outLength)) {
        ReportLine(LogError, Format("an answer of %d bytes exceeds the %lu the daemon gave",
                                    answer, capacity));
        return Outcome::TooLarge;
    }
    return Outcome::Done;
}

}  // namespace Ifd
