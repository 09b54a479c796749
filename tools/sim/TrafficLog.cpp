#include "TrafficLog.h"

#include "Hex.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr size_t HexShown = 48;  // bytes of hex shown on a line before "..."

std::string SingleByteName(uint8_t byte) {
    switch (byte) {
    case ctl::ACK: return "ACK";
    case ctl::NAK: return "NAK (15)";
    case ctl::CAN: return "CAN";
    default: return "byte " + HexCompact({byte});
    }
}

bool IsEnvelope(const Bytes& sent, uint8_t open, uint8_t close) {
    return sent.size() >= 3 && sent.front() == open && sent[sent.size() - 2] == close;
}

// Control bytes other than line ends and tabs: shown as a count, the hex tells the rest.
bool LooksBinary(const std::string& payload) {
    for (unsigned char c : payload) {
        if (c < 0x20 && c != '\n' && c != '\r' && c != '\t') {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string Quoted(const std::string& text, size_t maxChars) {
    std::string out = "\"";
    size_t shown = 0;
    for (unsigned char c : text) {
        if (shown++ == maxChars) {
            return out + "\"... (" + std::to_string(text.size()) + " bytes)";
        }
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        }
    }
    return out + "\"";
}

std::string TrafficLog::Describe(const Request& request) {
    std::string line = request.code.Display();
    line += request.operation ? std::string(" ") + request.operation->name : " unknown operation";
    if (!request.fixed.empty()) {
        line += " " + HexSpaced(Bytes(request.fixed.begin(),
                                      request.fixed.begin() + std::min<size_t>(request.fixed.size(), 24)));
        line += request.fixed.size() > 24 ? " ..." : "";
    }
    if (request.hasText) {
        line += " " + Quoted(request.text);
    } else if (!request.operation && !request.payload.empty()) {
        line += " payload " + HexColon(request.payload, 24);
    }
    if (!request.checkOk) {
        char wrong[64];
        std::snprintf(wrong, sizeof wrong, "  WRONG CHECK BYTE %02X (expected %02X)",
                      request.checkByte, ExpectedCheck(request.code, request.payload));
        line += wrong;
    }
    return line;
}

Bytes TrafficLog::WireBytes(const Request& request) {
    Bytes wire;
    wire.reserve(request.payload.size() + request.text.size() + 6);
    wire.push_back(ctl::STX);
    for (uint8_t i = 0; i < request.code.length; ++i) {
        wire.push_back(request.code.bytes[i]);
    }
    wire.insert(wire.end(), request.payload.begin(), request.payload.end());
    wire.push_back(ctl::ETX);
    wire.push_back(request.checkByte);
    if (request.operation && request.operation->shape == PayloadShape::NameAfterCheck) {
        wire.insert(wire.end(), request.text.begin(), request.text.end());
        wire.push_back(0);
    }
    return wire;
}

std::string TrafficLog::DescribeReply(const Bytes& sent) {
    if (sent.size() == 1) {
        return SingleByteName(sent[0]);
    }
    bool framed = IsEnvelope(sent, ctl::STX, ctl::ETX);
    bool siso = IsEnvelope(sent, ctl::SI, ctl::SO);
    if (framed || siso) {
        std::string payload(sent.begin() + 1, sent.end() - 2);
        std::string form = siso ? "SI/SO frame " : "frame ";
        if (LooksBinary(payload)) {
            return form + "of " + std::to_string(payload.size()) + " bytes";
        }
        return form + Quoted(payload);
    }
    return "raw " + std::to_string(sent.size()) + " bytes";
}

void TrafficLog::In(const Request& request) {
    Line("in   " + Describe(request) + "   [" + HexColon(WireBytes(request), HexShown) + "]");
}

void TrafficLog::InLine(const std::string& what) {
    Line("in   " + what);
}

void TrafficLog::Out(const Bytes& sent) {
    Line("out  " + DescribeReply(sent) + "   [" + HexColon(sent, HexShown) + "]");
}

void TrafficLog::Note(const std::string& text) {
    Line("     " + text);
}

void TrafficLog::Warn(const std::string& text) {
    std::fprintf(stderr, "new6210-sim: warning: %s\n", text.c_str());
}

void TrafficLog::Line(const std::string& text) {
    if (!quiet_) {
        std::fprintf(stderr, "new6210-sim: %s\n", text.c_str());
    }
}
