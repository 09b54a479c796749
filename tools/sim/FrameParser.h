// Incremental parser of what the host sends: command frames, the lone CAN byte, and the raw
// stream of a file upload. Bytes may arrive in any split; events come out as soon as they are
// complete, one byte at a time, so a handler can switch the parser to a stream before the
// next byte is looked at.
#pragma once

#include "Protocol.h"

#include <functional>
#include <string>
#include <vector>

struct ParserEvent {
    enum class Kind {
        Frame,      // a complete command frame: request
        Cancel,     // a lone CAN outside a frame
        StrayBytes, // other bytes outside a frame, a run of them per arrival: stream
        StreamEnd,  // the awaited raw stream is complete: stream
        Malformed   // a frame broke off (no ETX where one belongs): request so far, reason
    };
    Kind kind;
    Request request;
    Bytes stream;
    std::string reason;
};

class FrameParser {
public:
    using Sink = std::function<void(const ParserEvent&)>;

    // A payload longer than this without its end is taken as garbage.
    static constexpr size_t MaxPayload = 1u << 20;

    explicit FrameParser(const std::vector<Operation>& table);

    void Feed(const uint8_t* data, size_t length, const Sink& sink);
    void Feed(const Bytes& data, const Sink& sink) { Feed(data.data(), data.size(), sink); }

    // The next `length` bytes are file content, not frames (after a "9W" the terminal accepted).
    void ExpectStream(size_t length);

    // True while a frame or a stream is only partly in.
    bool Busy() const { return state_ != State::Idle; }
    // True while an announced stream is only partly in; what came so far.
    bool InStream() const { return state_ == State::Stream; }
    const Bytes& PartialStream() const { return stream_; }
    // Forget a partial frame or stream; gives a short description of what was dropped.
    std::string Abandon();

private:
    enum class State {
        Idle, Code, Fixed, LengthByte, Text, ExpectEtx, Check, NameAfterCheck, UnknownBody,
        UnknownCheck, Stream
    };

    void Step(uint8_t byte, const Sink& sink);
    void StepIdle(uint8_t byte, const Sink& sink);
    void StepCode(uint8_t byte);
    void StepExpectEtx(uint8_t byte, const Sink& sink);
    void StepCheck(uint8_t byte, const Sink& sink);
    void AfterFixedPart();
    void StartPayload();
    void EndText();
    void TakePayloadByte(uint8_t byte);
    void EmitFrame(const Sink& sink);
    void EmitMalformed(const std::string& reason, const Sink& sink);
    void Emit(ParserEvent event, const Sink& sink);
    void FlushStray(const Sink& sink);
    bool IsCodePrefix(uint8_t first) const;
    const Operation* Find(const OpCode& code) const;

    const std::vector<Operation>& table_;
    State state_ = State::Idle;
    Request request_;
    PayloadShape shape_ = PayloadShape::None;
    size_t fixedNeeded_ = 0;
    bool textDone_ = false;
    Bytes stream_;
    size_t streamNeeded_ = 0;
    Bytes stray_;  // bytes outside a frame, reported as one run
};
