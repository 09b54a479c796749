// Helpers shared by the simulator's tests.
#pragma once

#include "Hex.h"
#include "Protocol.h"

#include <gtest/gtest.h>

#include <string>

inline Bytes Hex(const std::string& hex) {
    Bytes bytes;
    EXPECT_TRUE(ParseHex(hex, bytes)) << hex;
    return bytes;
}

inline Bytes TextBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// A command frame with a correct check byte; `text` payloads carry their NUL.
inline Bytes CommandFrame(const Bytes& code, const Bytes& payload) {
    Bytes frame{ctl::STX};
    uint8_t check = 0;
    for (const Bytes* part : {&code, &payload}) {
        for (uint8_t byte : *part) {
            frame.push_back(byte);
            check ^= byte;
        }
    }
    frame.push_back(ctl::ETX);
    frame.push_back(check);
    return frame;
}

inline Bytes TextFrame(const std::string& code, const std::string& text) {
    return CommandFrame(TextBytes(code), TextBytes(text + std::string(1, '\0')));
}

// A reply frame as the simulator sends it: STX payload ETX, check = XOR of the payload.
inline Bytes ReplyFrame(const Bytes& payload) {
    Bytes frame{ctl::STX};
    uint8_t check = 0;
    for (uint8_t byte : payload) {
        frame.push_back(byte);
        check ^= byte;
    }
    frame.push_back(ctl::ETX);
    frame.push_back(check);
    return frame;
}

inline Bytes ReplyFrame(const std::string& text) {
    return ReplyFrame(TextBytes(text));
}

inline Bytes Concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
