// What a handler answers. The reply writer turns it into bytes on the line.
#pragma once

#include "Protocol.h"

#include <cstdint>
#include <string>
#include <utility>

struct Reply {
    enum class Kind {
        Nothing,         // no answer at all
        Frame,           // STX payload ETX check (or the SI/SO form)
        Byte,            // one byte: ACK, CAN, 0x15, ...
        Raw,             // these bytes exactly, no envelope (from --reply)
        HoldUntilCancel  // answer nothing now; a CAN from the host is answered with CAN
    };

    Kind kind = Kind::Nothing;
    Bytes bytes;               // the payload of a frame, the byte, or the raw bytes
    uint32_t streamLength = 0; // "9W": this many raw bytes follow unless the host was declined
    bool expectsStream = false;

    static Reply Nothing() { return Reply{}; }
    static Reply Hold() { return Reply{Kind::HoldUntilCancel, {}, 0, false}; }
    static Reply Single(uint8_t byte) { return Reply{Kind::Byte, {byte}, 0, false}; }
    static Reply Ack() { return Single(ctl::ACK); }
    static Reply Cancel() { return Single(ctl::CAN); }
    static Reply Frame(Bytes payload) { return Reply{Kind::Frame, std::move(payload), 0, false}; }
    static Reply FrameText(const std::string& text) { return Frame(Bytes(text.begin(), text.end())); }
    static Reply RawBytes(Bytes raw) { return Reply{Kind::Raw, std::move(raw), 0, false}; }

    Reply ThenStream(uint32_t length) const {
        Reply next = *this;
        next.expectsStream = true;
        next.streamLength = length;
        return next;
    }
};
