#include "ReplyWriter.h"

#include "Handlers.h"
#include "Signals.h"

#include <algorithm>
#include <chrono>

ReplyWriter::ReplyWriter(FaultOptions options, RawWrite write)
    : options_(std::move(options)), write_(std::move(write)) {}

Reply ReplyWriter::Shape(const OpCode* code, const Reply& reply) {
    if (options_.silent) {
        return Reply::Nothing();
    }
    if (code == nullptr) {
        return reply;
    }
    auto scripted = options_.replies.find(*code);
    if (scripted != options_.replies.end() && !scripted->second.empty()) {
        std::deque<Bytes>& queue = scripted->second;
        Reply raw = Reply::RawBytes(queue.front());
        if (queue.size() > 1) {
            queue.pop_front();  // the last one sticks
        }
        return raw;
    }
    if (options_.holds.count(*code) != 0) {
        return Reply::Hold();
    }
    return reply;
}

Bytes ReplyWriter::Encode(const OpCode* code, const Reply& reply) const {
    switch (reply.kind) {
    case Reply::Kind::Frame:
        return EncodeFrame(reply.bytes);
    case Reply::Kind::Byte: {
        bool probeAck = code != nullptr && *code == ProbeCode && reply.bytes[0] == ctl::ACK;
        Bytes out = probeAck ? options_.probeGarbage : Bytes{};
        out.push_back(reply.bytes[0]);
        return out;
    }
    case Reply::Kind::Raw:
        return reply.bytes;
    case Reply::Kind::Nothing:
    case Reply::Kind::HoldUntilCancel:
        break;
    }
    return {};
}

// A reply frame carries no operation code; its check byte is the XOR of the payload (the host
// never verifies it).
Bytes ReplyWriter::EncodeFrame(Bytes payload) const {
    if (payload.size() < options_.oversize) {
        payload.resize(options_.oversize, OversizeFill);
    }
    uint8_t check = 0;
    for (uint8_t byte : payload) {
        check ^= byte;
    }
    if (options_.badCheck) {
        check ^= 0xFF;
    }
    Bytes frame;
    frame.reserve(payload.size() + 3);
    frame.push_back(options_.siso ? ctl::SI : ctl::STX);
    frame.insert(frame.end(), payload.begin(), payload.end());
    frame.push_back(options_.siso ? ctl::SO : ctl::ETX);
    frame.push_back(check);
    return frame;
}

bool ReplyWriter::Send(const Bytes& bytes) {
    if (bytes.empty()) {
        return true;
    }
    if (options_.delayMs > 0 && !SleepMs(options_.delayMs)) {
        return false;
    }
    if (options_.bytePaceMs > 0) {
        for (size_t i = 0; i < bytes.size(); ++i) {
            if ((i > 0 && !SleepMs(options_.bytePaceMs)) || !SendPaced(&bytes[i], 1)) {
                return false;
            }
        }
        return true;
    }
    if (options_.splitBytes > 0 && options_.splitBytes < bytes.size()) {
        return SendPaced(bytes.data(), options_.splitBytes) && SleepMs(options_.splitPauseMs) &&
               SendPaced(bytes.data() + options_.splitBytes, bytes.size() - options_.splitBytes);
    }
    return SendPaced(bytes.data(), bytes.size());
}

// With --throttle the bytes leave in small pieces, each when a real line would have sent it.
bool ReplyWriter::SendPaced(const uint8_t* data, size_t length) {
    if (options_.throttleBaud == 0) {
        return write_(data, length);
    }
    constexpr size_t Piece = 32;
    const auto start = std::chrono::steady_clock::now();
    for (size_t sent = 0; sent < length;) {
        size_t piece = std::min(Piece, length - sent);
        if (!write_(data + sent, piece)) {
            return false;
        }
        sent += piece;
        auto lineTime = std::chrono::microseconds(sent * 10 * 1000000 / options_.throttleBaud);
        if (!SleepUntil(start + lineTime)) {
            return false;
        }
    }
    return true;
}
