// The reader driver's handling of the terminal's answers: where a reply ends, what the ATR is,
// and that nothing goes past the room the daemon or the ATR buffer has.
#include <gtest/gtest.h>

#include <vector>

#include "ReaderChannel.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint8_t Untouched = 0xEE;

struct ReplyRow {
    const char* what;
    Bytes raw;
    bool completeOnArrival;  // without waiting for the line to fall quiet
    int payloadLength;       // -1: not a reply
    Bytes payload;
};

TEST(ReaderAnswer, WhereAReplyEndsAndWhatItCarries)
{
    const ReplyRow rows[] = {
        {"frame with its check byte", {0x02, 0x41, 0x03, 0x41}, true, 1, {0x41}},
        {"other check byte: only silence ends it", {0x02, 0x41, 0x03, 0x40}, false, 1, {0x41}},
        {"ETX inside a partial arrival", {0x02, 0x6F, 0x03, 0x10}, false, 1, {0x6F}},
        {"card answer 90 00", {0x02, 0x90, 0x00, 0x03, 0x90}, true, 2, {0x90, 0x00}},
        {"second form", {0x0F, 0x41, 0x42, 0x0E, 0x03}, false, 2, {0x41, 0x42}},
        {"single byte", {0x06}, false, 1, {0x06}},
        {"two bytes", {0x02, 0x03}, false, -1, {}},
        {"no envelope", {0x41, 0x42, 0x43, 0x44}, false, -1, {}},
    };
    for (const ReplyRow& row : rows) {
        SCOPED_TRACE(row.what);
        Bytes raw = row.raw;
        EXPECT_EQ(Ifd::FrameComplete(raw.data(), static_cast<int>(raw.size())),
                  row.completeOnArrival);
        const int length = Ifd::StripReply(raw.data(), static_cast<int>(raw.size()));
        ASSERT_EQ(length, row.payloadLength);
        if (length > 0) {
            EXPECT_EQ(Bytes(raw.begin(), raw.begin() + length), row.payload);
        }
    }
}

struct AtrRow {
    const char* what;
    Bytes answer;  // stripped payload of the open request's reply
    bool card;
    Bytes atr;
};

// `count` bytes from 3B upwards, as a long ATR.
Bytes LongAtr(int count)
{
    Bytes bytes;
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<uint8_t>(0x3B + i));
    return bytes;
}

Bytes WithLengthByte(Bytes atr)
{
    atr.insert(atr.begin(), static_cast<uint8_t>(atr.size()));
    return atr;
}

TEST(ReaderAnswer, AtrIsTakenFromTheOpenAnswerAndNeverBeyondThirtyThreeBytes)
{
    const AtrRow rows[] = {
        {"length byte and ATR", {0x02, 0x3B, 0x00}, true, {0x3B, 0x00}},
        {"length byte beyond what came", {0x05, 0x3B, 0x00}, true, {0x3B, 0x00}},
        {"longer than an ATR may be", WithLengthByte(LongAtr(40)), true, LongAtr(33)},
        {"status 0: a card without ATR", {0x00}, true, {}},
        {"status 06: no card", {0x06}, false, {}},
        {"status 01: no card", {0x01}, false, {}},
    };
    for (const AtrRow& row : rows) {
        SCOPED_TRACE(row.what);
        Bytes atr(Ifd::MaxAtrSize + 8, Untouched);
        int length = -1;
        EXPECT_EQ(Ifd::TakeAtr(row.answer.data(), static_cast<int>(row.answer.size()),
                               atr.data(), &length),
                  row.card);
        ASSERT_EQ(length, static_cast<int>(row.atr.size()));
        EXPECT_EQ(Bytes(atr.begin(), atr.begin() + length), row.atr);
        EXPECT_EQ(atr[Ifd::MaxAtrSize], Untouched);
    }
}

TEST(ReaderAnswer, CardAnswerPassesUnchangedOnlyWithinTheDaemonsRoom)
{
    const struct {
        const char* what;
        Bytes answer;
        unsigned long capacity;
        bool passed;
    } rows[] = {
        {"61xx for the client's GET RESPONSE", {0x61, 0x0A}, 258, true},
        {"6Cxx for the client's retry", {0x6C, 0x0D}, 258, true},
        {"exactly the room", {0x01, 0x02, 0x90, 0x00}, 4, true},
        {"one byte more than the room", {0x01, 0x02, 0x90, 0x00}, 3, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bytes out(row.answer.size() + 2, Untouched);
        unsigned long length = 99;
        EXPECT_EQ(Ifd::TakeResponse(row.answer.data(), static_cast<int>(row.answer.size()),
                                    out.data(), row.capacity, &length),
                  row.passed);
        if (row.passed) {
            EXPECT_EQ(Bytes(out.begin(), out.begin() + length), row.answer);
        } else {
            EXPECT_EQ(length, 0u);
        }
        EXPECT_EQ(out[row.answer.size()], Untouched);
        if (!row.passed) {
            EXPECT_EQ(out[0], Untouched);
        }
    }
}

}  // namespace
