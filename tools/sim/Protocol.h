// The terminal's side of the frame protocol: control bytes, operation codes, payload shapes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

namespace ctl {
constexpr uint8_t STX = 0x02;
constexpr uint8_t ETX = 0x03;
constexpr uint8_t ACK = 0x06;
constexpr uint8_t SO = 0x0E;
constexpr uint8_t SI = 0x0F;
constexpr uint8_t NAK = 0x15;
constexpr uint8_t CAN = 0x18;
}  // namespace ctl

// One or two code bytes behind STX.
struct OpCode {
    uint8_t bytes[2] = {0, 0};
    uint8_t length = 0;

    static OpCode One(uint8_t a) { return OpCode{{a, 0}, 1}; }
    static OpCode Two(uint8_t a, uint8_t b) { return OpCode{{a, b}, 2}; }

    bool operator==(const OpCode& other) const {
        return length == other.length && bytes[0] == other.bytes[0] &&
               (length < 2 || bytes[1] == other.bytes[1]);
    }
    bool operator!=(const OpCode& other) const { return !(*this == other); }
    bool operator<(const OpCode& other) const { return Key() < other.Key(); }

    // "3B", "3352": the form used on the command line.
    std::string Hex() const;
    // ";" or "3R" when the code prints, else "38 01".
    std::string Display() const;

private:
    unsigned Key() const { return (length << 16) | (bytes[0] << 8) | bytes[1]; }
};

// What follows the code bytes up to ETX; the terminal knows it from the code alone, since a
// frame has no length field and no escaping.
enum class PayloadShape {
    None,            // ETX right after the code
    Text,            // a NUL-terminated text (the NUL is part of the frame)
    Fixed,           // exactly fixedLength bytes
    FixedThenText,   // fixedLength bytes, then a NUL-terminated text
    LengthPrefixed,  // one length byte LL, then LL bytes; LL 0: a NUL-terminated text
    NameAfterCheck,  // ETX right after the code; a NUL-terminated text follows the check byte
};

struct Request;
struct Reply;
struct SimState;
using Handler = Reply (*)(const Request& request, SimState& state);

// One row of the operation table: how to parse the operation and who answers it.
struct Operation {
    OpCode code;
    PayloadShape shape;
    size_t fixedLength;
    const char* name;
    Handler handler;
};

// A parsed command frame.
struct Request {
    const Operation* operation = nullptr;  // null: a code the terminal doesn't know
    OpCode code;
    Bytes payload;       // every byte between the code and ETX, as received
    Bytes fixed;         // the fixed part, or the counted bytes of a length-prefixed payload
    uint8_t lengthByte = 0;
    std::string text;    // the text part without its NUL (for "9D": the name behind the check)
    bool hasText = false;
    uint8_t checkByte = 0;
    bool checkOk = false;
};

// XOR of the code bytes and the payload: what the check byte of a command frame must be.
uint8_t ExpectedCheck(const OpCode& code, const Bytes& payload);
