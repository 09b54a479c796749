#include "FrameParser.h"

#include <algorithm>
#include <utility>

FrameParser::FrameParser(const std::vector<Operation>& table) : table_(table) {}

void FrameParser::Feed(const uint8_t* data, size_t length, const Sink& sink) {
    for (size_t i = 0; i < length; ++i) {
        Step(data[i], sink);
    }
    FlushStray(sink);
}

void FrameParser::ExpectStream(size_t length) {
    stream_.clear();
    streamNeeded_ = length;
    state_ = length > 0 ? State::Stream : State::Idle;
}

std::string FrameParser::Abandon() {
    std::string what;
    if (state_ == State::Stream) {
        what = "upload stream after " + std::to_string(stream_.size()) + " of " +
               std::to_string(streamNeeded_) + " bytes";
    } else if (state_ != State::Idle) {
        what = "partial frame " + (request_.code.length ? request_.code.Display() : "STX") +
               " with " + std::to_string(request_.payload.size()) +
               " payload bytes";
    }
    state_ = State::Idle;
    request_ = Request{};
    stream_.clear();
    return what;
}

void FrameParser::Step(uint8_t byte, const Sink& sink) {
    bool growing = state_ != State::Idle && state_ != State::Stream;
    if (growing && std::max(request_.payload.size(), request_.text.size()) >= MaxPayload) {
        EmitMalformed("payload longer than " + std::to_string(MaxPayload) + " bytes", sink);
        return;
    }
    switch (state_) {
    case State::Idle:
        StepIdle(byte, sink);
        break;
    case State::Code:
        StepCode(byte);
        break;
    case State::Fixed:
        TakePayloadByte(byte);
        request_.fixed.push_back(byte);
        if (request_.fixed.size() == fixedNeeded_) {
            AfterFixedPart();
        }
        break;
    case State::LengthByte:
        TakePayloadByte(byte);
        request_.lengthByte = byte;
        fixedNeeded_ = byte;
        state_ = byte == 0 ? State::Text : State::Fixed;  // LL 0: the command is a text
        break;
    case State::Text:
        TakePayloadByte(byte);
        if (byte == 0) {
            EndText();
        } else {
            request_.text += static_cast<char>(byte);
        }
        break;
    case State::ExpectEtx:
        StepExpectEtx(byte, sink);
        break;
    case State::Check:
        StepCheck(byte, sink);
        break;
    case State::NameAfterCheck:
        if (byte == 0) {
            request_.hasText = true;
            EmitFrame(sink);
        } else {
            request_.text += static_cast<char>(byte);
        }
        break;
    case State::UnknownBody:
        if (byte == ctl::ETX) {
            state_ = State::UnknownCheck;
        } else {
            TakePayloadByte(byte);
        }
        break;
    case State::UnknownCheck:
        request_.checkByte = byte;
        request_.checkOk = byte == ExpectedCheck(request_.code, request_.payload);
        EmitFrame(sink);
        break;
    case State::Stream:
        stream_.push_back(byte);
        if (stream_.size() == streamNeeded_) {
            ParserEvent event{ParserEvent::Kind::StreamEnd, {}, std::move(stream_), {}};
            stream_.clear();
            state_ = State::Idle;
            Emit(std::move(event), sink);
        }
        break;
    }
}

void FrameParser::StepIdle(uint8_t byte, const Sink& sink) {
    if (byte == ctl::STX) {
        request_ = Request{};
        state_ = State::Code;
    } else if (byte == ctl::CAN) {
        Emit(ParserEvent{ParserEvent::Kind::Cancel, {}, {}, {}}, sink);
    } else {
        stray_.push_back(byte);
    }
}

void FrameParser::StepCode(uint8_t byte) {
    OpCode& code = request_.code;
    if (code.length == 0) {
        code = OpCode::One(byte);
        if ((request_.operation = Find(code)) != nullptr) {
            StartPayload();
        } else if (!IsCodePrefix(byte)) {
            state_ = byte == ctl::ETX ? State::UnknownCheck : State::UnknownBody;
        }
        return;  // else the second code byte decides
    }
    // The second byte may be 0x03 itself: "38 03" is the close of the card channel.
    request_.operation = Find(OpCode::Two(code.bytes[0], byte));
    if (request_.operation != nullptr) {
        code = OpCode::Two(code.bytes[0], byte);
        StartPayload();
    } else if (byte == ctl::ETX) {  // a lone first byte that only begins two-byte codes
        state_ = State::UnknownCheck;
    } else {
        code = OpCode::Two(code.bytes[0], byte);
        state_ = State::UnknownBody;
    }
}

void FrameParser::StartPayload() {
    const Operation& op = *request_.operation;
    shape_ = op.shape;
    fixedNeeded_ = op.fixedLength;
    switch (shape_) {
    case PayloadShape::None:
    case PayloadShape::NameAfterCheck:
        state_ = State::ExpectEtx;
        break;
    case PayloadShape::Text:
        state_ = State::Text;
        break;
    case PayloadShape::Fixed:
    case PayloadShape::FixedThenText:
        if (fixedNeeded_ == 0) {
            AfterFixedPart();
        } else {
            state_ = State::Fixed;
        }
        break;
    case PayloadShape::LengthPrefixed:
        state_ = State::LengthByte;
        break;
    }
}

void FrameParser::AfterFixedPart() {
    state_ = shape_ == PayloadShape::FixedThenText ? State::Text : State::ExpectEtx;
}

void FrameParser::EndText() {
    request_.hasText = true;
    state_ = State::ExpectEtx;
}

void FrameParser::StepExpectEtx(uint8_t byte, const Sink& sink) {
    if (byte == ctl::ETX) {
        state_ = State::Check;
        return;
    }
    if (shape_ == PayloadShape::LengthPrefixed && request_.lengthByte != 0) {
        // The host sends only the low 8 bits of a longer command's length: the command goes
        // on for another 256 bytes.
        fixedNeeded_ += 256;
        TakePayloadByte(byte);
        request_.fixed.push_back(byte);
        state_ = State::Fixed;
        return;
    }
    EmitMalformed("no ETX behind the payload", sink);
    StepIdle(byte, sink);  // the byte may open the next frame
}

void FrameParser::StepCheck(uint8_t byte, const Sink& sink) {
    request_.checkByte = byte;
    request_.checkOk = byte == ExpectedCheck(request_.code, request_.payload);
    if (shape_ == PayloadShape::NameAfterCheck) {
        state_ = State::NameAfterCheck;
    } else {
        EmitFrame(sink);
    }
}

void FrameParser::TakePayloadByte(uint8_t byte) {
    request_.payload.push_back(byte);
}

void FrameParser::EmitFrame(const Sink& sink) {
    ParserEvent event{ParserEvent::Kind::Frame, std::move(request_), {}, {}};
    request_ = Request{};
    state_ = State::Idle;
    Emit(std::move(event), sink);
}

void FrameParser::EmitMalformed(const std::string& reason, const Sink& sink) {
    ParserEvent event{ParserEvent::Kind::Malformed, std::move(request_), {}, reason};
    request_ = Request{};
    state_ = State::Idle;
    Emit(std::move(event), sink);
}

// Stray bytes are reported before whatever follows them, so events keep the line's order.
void FrameParser::Emit(ParserEvent event, const Sink& sink) {
    FlushStray(sink);
    sink(event);
}

void FrameParser::FlushStray(const Sink& sink) {
    if (!stray_.empty()) {
        ParserEvent event{ParserEvent::Kind::StrayBytes, {}, std::move(stray_), {}};
        stray_.clear();
        sink(event);
    }
}

bool FrameParser::IsCodePrefix(uint8_t first) const {
    for (const Operation& op : table_) {
        if (op.code.length == 2 && op.code.bytes[0] == first) {
            return true;
        }
    }
    return false;
}

const Operation* FrameParser::Find(const OpCode& code) const {
    for (const Operation& op : table_) {
        if (op.code == code) {
            return &op;
        }
    }
    return nullptr;
}
