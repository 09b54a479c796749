// The reader driver's handling of the terminal's answers: what the ATR is, and that nothing goes
// past the room of the ATR buffer or of the daemon's receive buffer.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "PtyPort.h"
#include "ReaderChannel.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint8_t Untouched = 0xEE;

TEST(ReaderAnswer, AtrComesFromTheOpenAnswerAndNeverExceedsThirtyThreeBytes)
{
    Bytes tooLong{40};
    for (uint8_t i = 0; i < 40; ++i)
        tooLong.push_back(static_cast<uint8_t>(0x3B + i));
    const Bytes first33(tooLong.begin() + 1, tooLong.begin() + 34);
    const struct { const char* what; Bytes answer; bool card; Bytes atr; } rows[] = {
        {"length byte and ATR", {0x02, 0x3B, 0x00}, true, {0x3B, 0x00}},
        {"length byte beyond what came", {0x05, 0x3B, 0x00}, true, {0x3B, 0x00}},
        {"longer than an ATR may be", tooLong, true, first33},
        {"status 0: a card without ATR", {0x00}, true, {}},
        {"status 06: no card", {0x06}, false, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bytes atr(Ifd::MaxAtrSize + 1, Untouched);
        int length = -1;
        const int size = static_cast<int>(row.answer.size());
        EXPECT_EQ(Ifd::TakeAtr(row.answer.data(), size, atr.data(), &length), row.card);
        EXPECT_EQ(Bytes(atr.begin(), atr.begin() + std::max(length, 0)), row.atr);
        EXPECT_EQ(atr.back(), Untouched);
    }
}

TEST(ReaderAnswer, TransmitHandsUpTheCardsWholeAnswerOnlyWithinTheDaemonsRoom)
{
    // The terminal on a pseudo-terminal answers in pieces, each once the driver took the last.
    PtyPort line;
    Ifd::ReaderChannel channel(g_context);
    ASSERT_TRUE(channel.Open(g_strConfigFolder + "COM" + std::to_string(PtyPort::Number)));
    const Bytes read4{0x00, 0xB0, 0x00, 0x00, 0x04};
    using Ifd::Outcome;
    const struct { const char* what; Bytes command; std::vector<Bytes> pieces; unsigned long room;
                   Outcome outcome; Bytes answer; } rows[] = {
        {"the longest command; 61xx goes up as it is", Bytes(255, 0x00),
         {{0x02, 0x61, 0x0A, 0x03, 0x6B}}, 258, Outcome::Done, {0x61, 0x0A}},
        {"a command past the length byte", Bytes(256, 0x00), {}, 258, Outcome::TooLarge, {}},
        {"the terminal's CAN is no answer of the card", read4, {{0x18}}, 258, Outcome::NoCard, {}},
        {"a piece ending like a whole frame", read4, {{0x02, 0x01, 0x02, 0x03, 0x03},
         {0x90, 0x00, 0x03, 0x93}}, 6, Outcome::Done, {1, 2, 3, 3, 0x90, 0}},
        {"an answer past the daemon's room", read4, {{0x02, 1, 2, 3, 3, 0x90, 0, 0x03, 0x93}},
         5, Outcome::TooLarge, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::thread terminal([&] {
            for (int n = 0; !row.pieces.empty() && line.Receive().empty() && n < 50; ++n) {
            }  // the request first: the driver empties the line before it sends
            for (const Bytes& piece : row.pieces) {
                line.Send(piece);
                for (int n = 1, i = 0; i < 20000 && ioctl(line.Slave(), FIONREAD, &n) == 0 && n; ++i)
                    usleep(50);
            }
        });
        Bytes out(row.room + 1, Untouched);
        unsigned long length = 99;
        EXPECT_EQ(channel.Transmit(row.command.data(), row.command.size(), out.data(), row.room,
                                   &length), row.outcome);
        terminal.join();
        EXPECT_EQ(out[row.room], Untouched);
        out.resize(length);
        EXPECT_EQ(out, row.answer);
    }
    channel.Close();
}

}  // namespace
