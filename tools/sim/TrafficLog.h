// One readable line on stderr per frame in and reply out, unless --quiet. Warnings always.
#pragma once

#include "Protocol.h"

#include <string>

class TrafficLog {
public:
    explicit TrafficLog(bool quiet) : quiet_(quiet) {}

    void In(const Request& request);
    void InLine(const std::string& what);  // CAN, stray bytes, streams
    void Out(const Bytes& sent);
    void Note(const std::string& text);
    void Warn(const std::string& text);

    // How a request is shown: name, code, text or fixed bytes, and a wrong check byte.
    static std::string Describe(const Request& request);
    // How bytes on the way out are shown: ACK, CAN, frame "text", raw bytes.
    static std::string DescribeReply(const Bytes& sent);
    // The request again as the bytes that came in.
    static Bytes WireBytes(const Request& request);

private:
    void Line(const std::string& text);

    bool quiet_;
};

// Text in quotes, bytes outside printable ASCII as \xNN, cut after maxChars with "...".
std::string Quoted(const std::string& text, size_t maxChars = 80);
