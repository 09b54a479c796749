// The terminal's card slot as a reader driver sees it: the open, close and APDU frames of the
// card channel and the presence query, built with the library's frame and serial code. Unlike
// the library's reply reader, every exchange here has a deadline: a daemon's reader thread must
// never hang on a terminal that went quiet.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "session/DeviceContext.h"

namespace Ifd {

constexpr char FriendlyName[] = "NEW6210 Reader Card";
constexpr int MaxAtrSize = 33;         // the longest ATR that ISO 7816-3 allows
constexpr int MaxCommandLength = 255;  // the APDU frame has one length byte

// The daemon asks for presence every 400 ms; a quiet terminal must not hold it up for long.
constexpr int PresenceDeadlineMs = 200;
constexpr int PowerDeadlineMs = 3000;
constexpr int TransmitDeadlineMs = 5000;

enum class Outcome {
    Done,
    NoCard,     // the terminal says the slot is empty
    NoAnswer,   // nothing, or nothing usable, before the deadline; the port is closed again
    TooLarge,   // a command the frame can't carry, or an answer larger than the caller's room
    PortClosed  // the device can't be opened
};

// --- answer handling: pure functions over a stripped payload --------------------------------

// The answer to the open request, taken as the library's virtual reader takes it: a length byte
// and the ATR behind it (the length believed only as far as bytes arrived, and never beyond
// MaxAtrSize); a one-byte answer is a status, 0 a card without ATR, anything else no card.
// False: no card. `atr` has room for MaxAtrSize bytes.
bool TakeAtr(const uint8_t* payload, int length, uint8_t* atr, int* atrLength);

// Copies the card's answer unchanged when it fits `capacity`; otherwise nothing is written,
// *outLength is 0 and the result is false.
bool TakeResponse(const uint8_t* payload, int length, uint8_t* out, unsigned long capacity,
                  unsigned long* outLength);

// True once `raw` holds a whole STX frame: ETX and the check byte (the XOR of the payload) at
// its end, and a payload as long as the request says its answer is. A partial arrival ends in
// ETX and a matching check byte at one read boundary in 65,536, so those alone prove nothing.
// The open answer carries its own length; an APDU's answer is the Le bytes its command asks
// for and the status word. Any other reply (a length the request doesn't settle, another check
// byte, an SI frame, a single byte) ends only when the line falls quiet.
bool FrameComplete(const uint8_t* raw, int total, uint8_t operation, const uint8_t* command,
                   int commandLength);

// True while `raw` opens a frame (STX or SI) but has no closing byte before its last byte yet.
bool FrameUnfinished(const uint8_t* raw, int total);

// Strips STX/ETX or SI/SO and the check byte in place, as ReadReply does. The payload's length,
// 1 for a single byte, or -1 for bytes that are no reply.
int StripReply(uint8_t* raw, int total);

// --- the channel ----------------------------------------------------------------------------

class ReaderChannel {
public:
    explicit ReaderChannel(DeviceContext& context) : m_context(context) {}

    // Remembers the device and opens it; later exchanges reopen it if it was lost.
    bool Open(const std::string& device);
    void Close();
    bool IsOpen() const { return m_context.serial.m_bOpen != 0; }

    Outcome PowerUp(uint8_t* atr, int* atrLength);
    Outcome PowerDown();
    Outcome Presence();  // Done: a card is in; NoCard: the slot is empty
    Outcome Transmit(const uint8_t* command, unsigned long length, uint8_t* out,
                     unsigned long capacity, unsigned long* outLength);

private:
    // Sends 0x38 `operation` with `payload` and waits at most `deadlineMs` for the reply. The
    // stripped payload is left in rxBuffer; its length, or -1 with `failure` set.
    int Exchange(uint8_t operation, const uint8_t* payload, int length, int deadlineMs,
                 Outcome& failure);
    int ReadWithin(int deadlineMs, uint8_t operation, const uint8_t* command, int commandLength);

    DeviceContext& m_context;
    std::string m_device;
    // Set by a lost answer or a port that won't open, cleared by the next answer: the daemon
    // polls several times a second, and one line says as much as a thousand.
    bool m_failing = false;
};

// One line to the daemon's log (when the driver runs inside it) and to the library's log.
void ReportLine(int priority, const std::string& text);
constexpr int LogInfo = 1;   // the daemon's priorities
constexpr int LogError = 2;

}  // namespace Ifd
