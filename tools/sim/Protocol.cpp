#include "Protocol.h"

#include "Hex.h"

#include <cctype>

std::string OpCode::Hex() const {
    return HexCompact(Bytes(bytes, bytes + length));
}

std::string OpCode::Display() const {
    bool prints = true;
    for (uint8_t i = 0; i < length; ++i) {
        prints = prints && std::isprint(bytes[i]) != 0;
    }
    if (prints) {
        return "\"" + std::string(bytes, bytes + length) + "\"";
    }
    return HexSpaced(Bytes(bytes, bytes + length));
}

uint8_t ExpectedCheck(const OpCode& code, const Bytes& payload) {
    uint8_t check = 0;
    for (uint8_t i = 0; i < code.length; ++i) {
        check ^= code.bytes[i];
    }
    for (uint8_t byte : payload) {
        check ^= byte;
    }
    return check;
}
