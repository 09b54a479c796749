// The reader driver's handling of the terminal's answers: what the ATR is, and that nothing goes
// past the room of the ATR buffer or of the daemon's receive buffer.
#include <gtest/gtest.h>

#include <vector>

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

TEST(ReaderAnswer, CardAnswerPassesUnchangedOnlyWithinTheDaemonsRoom)
{
    // 61xx and 6Cxx go up as they are: the client does the T=0 follow-up.
    const struct { Bytes answer; unsigned long room; bool passed; } rows[] = {
        {{0x61, 0x0A}, 258, true},
        {{0x01, 0x02, 0x90, 0x00}, 4, true},
        {{0x01, 0x02, 0x90, 0x00}, 3, false},
    };
    for (const auto& row : rows) {
        Bytes out(row.room + 1, Untouched);
        unsigned long length = 99;
        const int size = static_cast<int>(row.answer.size());
        EXPECT_EQ(Ifd::TakeResponse(row.answer.data(), size, out.data(), row.room, &length),
                  row.passed);
        EXPECT_EQ(out[row.room], Untouched);
        out.resize(length);
        EXPECT_EQ(out, row.passed ? row.answer : Bytes{});
    }
}

}  // namespace
