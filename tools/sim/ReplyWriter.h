// Everything on the way out: the fault options turn a handler's reply into the bytes that go
// on the line, and pace them. This is the one place where faults are injected.
#pragma once

#include "Protocol.h"
#include "Reply.h"

#include <deque>
#include <functional>
#include <map>
#include <set>

struct FaultOptions {
    bool silent = false;          // answer nothing at all
    int delayMs = 0;              // before every reply
    size_t splitBytes = 0;        // send this many bytes, pause splitPauseMs, then the rest
    int splitPauseMs = 0;
    bool badCheck = false;        // framed replies carry a wrong check byte
    Bytes probeGarbage;           // sent before the ACK of the probe
    int bytePaceMs = 0;           // one byte at a time, this far apart
    bool siso = false;            // framed replies as SI payload SO check
    size_t oversize = 0;          // pad framed payloads to this many bytes
    unsigned throttleBaud = 0;    // pace as a line of this speed (10 bits a byte); 0: at once
    std::map<OpCode, std::deque<Bytes>> replies;  // --reply: raw answers, used in turn
    std::set<OpCode> holds;                       // --hold: answer only a CAN
};

// The padding byte of --oversize: printable, and never ETX, so it can't end a frame early.
constexpr uint8_t OversizeFill = 'X';

class ReplyWriter {
public:
    using RawWrite = std::function<bool(const uint8_t* data, size_t length)>;

    ReplyWriter(FaultOptions options, RawWrite write);

    // The reply that goes out for operation `code` (null: not an operation's answer, such as
    // the answer to a CAN or the closing reply of an upload): --silent, --reply, --hold.
    Reply Shape(const OpCode* code, const Reply& reply);

    // The bytes of a shaped reply: the frame envelope with --siso, --bad-check, --oversize,
    // and --garbage before the probe's ACK.
    Bytes Encode(const OpCode* code, const Reply& reply) const;

    // Puts the bytes on the line with --delay, --split, --byte-pace and --throttle.
    bool Send(const Bytes& bytes);

private:
    Bytes EncodeFrame(Bytes payload) const;
    bool SendPaced(const uint8_t* data, size_t length);

    FaultOptions options_;
    RawWrite write_;
};
