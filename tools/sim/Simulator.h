// The simulated terminal: takes the host's bytes, runs the operation's handler, and sends the
// answer through the reply writer. Single-threaded; waits for keys are states, not loops.
#pragma once

#include "FrameParser.h"
#include "ReplyWriter.h"
#include "SimState.h"
#include "TrafficLog.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

class Pty;

struct SessionOptions {
    bool answerCan = false;  // a CAN with nothing held is answered with CAN
    int vanishAfter = 0;     // close the port for good when this frame comes in (0: never)
    int resyncMs = 2000;     // a frame left incomplete this long is dropped
    int overrunMs = 500;     // a reply the host takes nothing of for this long is cut
    // A real terminal waits for the rest of a stream for ever, and may send the closing reply
    // of an empty file right behind its ACK. Both can be made friendlier (0: as a terminal).
    int streamGiveUpMs = 0;      // a stream silent this long before its end is answered CAN
    int emptyUploadPauseMs = 0;  // pause between the ACK and the closing reply of an empty file
    Bytes closingReply;          // --closing-reply: these bytes close every upload instead
};

class Simulator {
public:
    using VanishAction = std::function<void()>;

    Simulator(SimState& state, ReplyWriter& writer, TrafficLog& log, SessionOptions options,
              VanishAction vanish);

    // Bytes as they came from the host.
    void OnBytes(const uint8_t* data, size_t length);
    // Nothing came for SilenceLimitMs while a frame or stream was incomplete.
    void OnSilence();
    // The card is taken out of the slot, or a fresh one put in (a new insertion).
    void OnCardSignal(bool in);

    bool Busy() const { return parser_.Busy(); }
    bool Holding() const { return holding_; }
    bool Vanished() const { return vanished_; }
    // How long the line may stay quiet before OnSilence; -1: no limit.
    int SilenceLimitMs() const
    {
        if (parser_.InStream())
            return options_.streamGiveUpMs > 0 ? options_.streamGiveUpMs : -1;
        return parser_.Busy() ? options_.resyncMs : -1;
    }

private:
    void OnEvent(const ParserEvent& event);
    void OnFrame(const Request& request);
    void OnCancel();
    void OnStreamEnd(const Bytes& content);
    void Deliver(const OpCode* code, const Reply& reply);
    void BeginStream(uint32_t length);

    SimState& state_;
    ReplyWriter& writer_;
    TrafficLog& log_;
    SessionOptions options_;
    VanishAction vanish_;
    FrameParser parser_;
    bool holding_ = false;
    bool vanished_ = false;
    int framesReceived_ = 0;
};

// With --throttle the host's bytes are taken no faster than a line of `baud` carries them:
// small reads, each followed by a sleep until the line would have delivered them. The pty's
// queue fills up behind, and the host's writes wait as they would on a real port.
class InputPace {
public:
    explicit InputPace(unsigned baud) : baud_(baud) {}

    // How much one read may take.
    size_t ReadLimit(size_t size) const { return baud_ != 0 && size > Piece ? Piece : size; }
    // `count` bytes were taken: sleeps until the line has carried them. False on a stop signal.
    bool Took(size_t count);

private:
    static constexpr size_t Piece = 256;  // 2.8 ms at 921600 baud
    // A line quiet for longer than this starts a new run: no credit for the idle time.
    static constexpr std::chrono::milliseconds IdleSlack{20};

    unsigned baud_;
    std::chrono::steady_clock::time_point runStart_;
    uint64_t runBytes_ = 0;
};

// Reads the pty until a stop signal: every byte goes to `record` (if open) and the simulator.
void RunSession(Pty& pty, Simulator& simulator, std::FILE* record, TrafficLog& log,
                InputPace pace);
