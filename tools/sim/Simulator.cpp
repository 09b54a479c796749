#include "Simulator.h"

#include "Crc32.h"
#include "Handlers.h"
#include "Hex.h"
#include "Pty.h"
#include "Signals.h"

#include <cerrno>
#include <cstdio>

namespace {

std::string Crc32Text(uint32_t crc) {
    char text[16];
    std::snprintf(text, sizeof text, "%08X", crc);
    return text;
}

}  // namespace

Simulator::Simulator(SimState& state, ReplyWriter& writer, TrafficLog& log,
                     SessionOptions options, VanishAction vanish)
    : state_(state),
      writer_(writer),
      log_(log),
      options_(options),
      vanish_(std::move(vanish)),
      parser_(OperationTable()) {}

void Simulator::OnBytes(const uint8_t* data, size_t length) {
    parser_.Feed(data, length, [this](const ParserEvent& event) { OnEvent(event); });
}

void Simulator::OnSilence() {
    if (parser_.InStream()) {
        // --stream-give-up: the host waits for the closing reply of a stream that came
        // short, and is told.
        Bytes partial = parser_.PartialStream();
        log_.Warn("the upload of \"" + state_.upload.name + "\" stopped after " +
                  std::to_string(partial.size()) + " of " + std::to_string(state_.upload.size) +
                  " bytes for " + std::to_string(options_.streamGiveUpMs) + " ms: answering CAN");
        parser_.Abandon();
        OnStreamEnd(partial);
        return;
    }
    std::string dropped = parser_.Abandon();
    if (!dropped.empty()) {
        log_.Warn("dropped an incomplete " + dropped + " after " +
                  std::to_string(options_.resyncMs) + " ms of silence");
    }
}

void Simulator::OnCardSignal(bool in) {
    if (in && !state_.card && state_.newCard) {
        state_.card = state_.newCard();
        log_.Note("card inserted");
    } else if (!in && state_.card) {
        state_.card.reset();
        log_.Note("card removed");
    }
}

void Simulator::OnEvent(const ParserEvent& event) {
    if (vanished_) {
        return;
    }
    switch (event.kind) {
    case ParserEvent::Kind::Frame:
        OnFrame(event.request);
        break;
    case ParserEvent::Kind::Cancel:
        OnCancel();
        break;
    case ParserEvent::Kind::StreamEnd:
        OnStreamEnd(event.stream);
        break;
    case ParserEvent::Kind::StrayBytes:
        log_.InLine("bytes outside a frame, ignored: " + HexColon(event.stream, 48));
        break;
    case ParserEvent::Kind::Malformed:
        log_.Warn("broken frame " + TrafficLog::Describe(event.request) + ": " + event.reason +
                  "; dropped");
        break;
    }
}

void Simulator::OnFrame(const Request& request) {
    log_.In(request);
    if (options_.vanishAfter > 0 && ++framesReceived_ >= options_.vanishAfter) {
        log_.Note("the port vanishes (--vanish-after " + std::to_string(options_.vanishAfter) + ")");
        vanished_ = true;
        vanish_();
        return;
    }
    if (holding_) {
        log_.Note("the held operation is abandoned for the new frame");
        holding_ = false;
    }
    if (request.operation == nullptr) {
        log_.Note("unknown operation: no answer");
        return;
    }
    Deliver(&request.code, request.operation->handler(request, state_));
}

void Simulator::OnCancel() {
    log_.InLine("CAN");
    if (holding_) {
        holding_ = false;
        Deliver(nullptr, Reply::Cancel());
    } else if (options_.answerCan) {
        Deliver(nullptr, Reply::Cancel());
    } else {
        log_.Note("nothing held: CAN not answered");
    }
}

void Simulator::OnStreamEnd(const Bytes& content) {
    uint32_t crc = Crc32(content.data(), content.size());
    const PendingUpload& upload = state_.upload;
    bool whole = content.size() == upload.size;
    log_.InLine("file \"" + upload.name + "\": " + std::to_string(content.size()) +
                (whole ? "" : " of " + std::to_string(upload.size)) + " bytes, CRC-32 " +
                Crc32Text(crc) +
                (crc == upload.crc ? " (good)"
                                   : " (announced " + Crc32Text(upload.crc) + ": MISMATCH)"));
    const Reply closing = FinishUpload(content, state_);
    Deliver(nullptr, options_.closingReply.empty() ? closing : Reply::RawBytes(options_.closingReply));
}

void Simulator::Deliver(const OpCode* code, const Reply& reply) {
    Reply shaped = writer_.Shape(code, reply);
    if (shaped.kind == Reply::Kind::HoldUntilCancel) {
        holding_ = true;
        log_.Note("waiting: only a CAN from the host ends this");
    }
    Bytes out = writer_.Encode(code, shaped);
    if (!out.empty()) {
        log_.Out(out);
        if (!writer_.Send(out)) {
            return;
        }
    }
    // The host declines the stream only on a lone CAN; anything else means the bytes follow.
    if (reply.expectsStream && out != Bytes{ctl::CAN}) {
        BeginStream(reply.streamLength);
    }
}

void Simulator::BeginStream(uint32_t length) {
    if (length > 0) {
        parser_.ExpectStream(length);
        return;
    }
    if (SleepMs(options_.emptyUploadPauseMs)) {
        OnStreamEnd({});
    }
}

bool InputPace::Took(size_t count) {
    if (baud_ == 0 || count == 0) {
        return true;
    }
    // Line time is counted from the start of the run, so rounding never adds up.
    auto now = std::chrono::steady_clock::now();
    auto lineFree = runStart_ + std::chrono::microseconds(runBytes_ * 10 * 1000000 / baud_);
    if (runBytes_ == 0 || now > lineFree + IdleSlack) {
        runStart_ = now;
        runBytes_ = 0;
    }
    runBytes_ += count;
    return SleepUntil(runStart_ + std::chrono::microseconds(runBytes_ * 10 * 1000000 / baud_));
}

void RunSession(Pty& pty, Simulator& simulator, std::FILE* record, TrafficLog& log,
                InputPace pace) {
    bool warnedLine = false;
    uint8_t buffer[65536];
    while (!StopRequested()) {
        CardSignal card = TakeCardSignal();
        if (card != CardSignal::None) {
            simulator.OnCardSignal(card == CardSignal::In);
        }
        if (!pty.IsOpen()) {  // vanished: nothing left to do but wait for the signal
            WaitForEvents(nullptr, 0, -1);
            continue;
        }
        pollfd input{pty.MasterFd(), POLLIN, 0};
        int ready = WaitForEvents(&input, 1, simulator.SilenceLimitMs());
        if (ready == 0) {
            simulator.OnSilence();
            continue;
        }
        if (ready < 0) {
            if (errno != EINTR) log.Warn("waiting for input failed");
            continue;
        }
        ssize_t count = pty.Read(buffer, pace.ReadLimit(sizeof buffer));
        if (count < 0) {
            log.Warn("reading the pseudo-terminal failed; waiting for a stop signal");
            pty.Close();
            continue;
        }
        if (count == 0) {
            continue;
        }
        if (record != nullptr) {
            std::fwrite(buffer, 1, static_cast<size_t>(count), record);
            std::fflush(record);
        }
        if (!warnedLine && !pty.LineIsRaw()) {
            log.Warn("the host left the line in a non-raw mode (echo or translation): bytes may be altered");
            warnedLine = true;
        }
        simulator.OnBytes(buffer, static_cast<size_t>(count));
        pace.Took(static_cast<size_t>(count));
    }
}
