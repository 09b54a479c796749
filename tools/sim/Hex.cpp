#include "Hex.h"

#include <cstdio>

namespace {

const char kDigits[] = "0123456789ABCDEF";

std::string Joined(const Bytes& bytes, size_t count, const char* separator) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) {
            text += separator;
        }
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool IsSeparator(char c) {
    return c == ':' || c == ' ' || c == '-' || c == ',';
}

}  // namespace

std::string HexCompact(const Bytes& bytes) {
    return Joined(bytes, bytes.size(), "");
}

std::string HexSpaced(const Bytes& bytes) {
    return Joined(bytes, bytes.size(), " ");
}

std::string HexColon(const Bytes& bytes, size_t maxBytes) {
    if (bytes.size() <= maxBytes) {
        return Joined(bytes, bytes.size(), ":");
    }
    return Joined(bytes, maxBytes, ":") + "... (" + std::to_string(bytes.size()) + " bytes)";
}

bool ParseHex(const std::string& text, Bytes& out) {
    out.clear();
    int high = -1;  // the first digit of a pair, while the second is awaited
    for (char c : text) {
        if (IsSeparator(c)) {
            if (high >= 0) return false;  // a separator inside a pair
            continue;
        }
        int value = DigitValue(c);
        if (value < 0) return false;
        if (high < 0) {
            high = value;
        } else {
            out.push_back(static_cast<uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    return high < 0;
}
