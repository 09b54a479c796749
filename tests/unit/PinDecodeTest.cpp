// The hexadecimal decoding of PIN replies: odd, short, long, lower-case and non-digit text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "cards/HexDigit.h"
#include "cards/PinPad.h"

namespace {

TEST(HexDigit, EveryByte)
{
    for (int c = 0; c < 256; ++c) {
        int expected = 0;
        if (c >= '0' && c <= '9')
            expected = c - '0';
        else if (c >= 'A' && c <= 'F')
            expected = c - 'A' + 10;
        else if (c >= 'a' && c <= 'f')
            expected = c - 'a' + 10;
        EXPECT_EQ(HexDigit(static_cast<unsigned char>(c)), expected) << "byte " << c;
    }
}

// A work buffer as PinReadKeyClear has it: cleared, then the reply copied in.
std::vector<char> WorkBuffer(const std::string& reply)
{
    std::vector<char> work(PinWorkSize, 0);
    std::memcpy(work.data(), reply.data(), reply.size());
    return work;
}

struct ClearCase {
    const char* reply;
    std::vector<uint8_t> bytes;  // the eight bytes of inOut
};

TEST(DecodeClearKey, EightBytesAndANul)
{
    const ClearCase cases[] = {
        {"1234567890ABCDEF", {0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF}},
        {"12", {0x12, 0, 0, 0, 0, 0, 0, 0}},
        {"", {0, 0, 0, 0, 0, 0, 0, 0}},
        {"abcdef", {0xAB, 0xCD, 0xEF, 0, 0, 0, 0, 0}},
        {"0x12", {0x00, 0x12, 0, 0, 0, 0, 0, 0}},
        {"123", {0x12, 0x30, 0, 0, 0, 0, 0, 0}},
        {"\x18", {0, 0, 0, 0, 0, 0, 0, 0}},  // the terminal's CAN
        {"1234567890ABCDEF1122334455667788", {0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF}},
        {"FfEeDdCcBbAa9988", {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA, 0x99, 0x88}},
    };
    for (const ClearCase& c : cases) {
        const std::vector<char> work = WorkBuffer(c.reply);
        char inOut[16];
        std::memset(inOut, 0x55, sizeof inOut);
        DecodeClearKey(work.data(), inOut);
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(static_cast<uint8_t>(inOut[i]), c.bytes[i]) << c.reply << " byte " << i;
        EXPECT_EQ(inOut[8], 0) << c.reply;
        EXPECT_EQ(static_cast<uint8_t>(inOut[9]), 0x55) << c.reply << ": written past inOut[8]";
    }
}

TEST(DecodeClearKey, EmbeddedNulDoesNotStopTheSixteenCharacters)
{
    std::vector<char> work = WorkBuffer("12");
    work[4] = '3';
    work[5] = '4';
    char inOut[9];
    DecodeClearKey(work.data(), inOut);
    EXPECT_EQ(static_cast<uint8_t>(inOut[0]), 0x12);
    EXPECT_EQ(static_cast<uint8_t>(inOut[1]), 0x00);
    EXPECT_EQ(static_cast<uint8_t>(inOut[2]), 0x34);
}

struct KeyCase {
    std::string reply;
    std::vector<uint8_t> bytes;  // what stands in out before the NUL
};

TEST(DecodePinKey, BytesThenNulAndAlwaysNulAtSixteen)
{
    const KeyCase cases[] = {
        {"ABC", {0xAB, 0xC0}},
        {"", {}},
        {"7", {0x70}},
        {"abcdef", {0xAB, 0xCD, 0xEF}},
        {"0x12", {0x00, 0x12}},
        {"1234567890ABCDEF", {0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF}},
        {"00112233445566778899AABBCCDDEEFF",
         {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD,
          0xEE, 0xFF}},
    };
    for (const KeyCase& c : cases) {
        const std::vector<char> work = WorkBuffer(c.reply);
        uint8_t out[40];
        std::memset(out, 0x55, sizeof out);
        DecodePinKey(work.data(), out);
        for (size_t i = 0; i < c.bytes.size(); ++i)
            EXPECT_EQ(out[i], c.bytes[i]) << c.reply << " byte " << i;
        EXPECT_EQ(out[c.bytes.size()], 0) << c.reply;
        EXPECT_EQ(out[16], 0) << c.reply;
        // Nothing else is written.
        for (size_t i = c.bytes.size() + 1; i < sizeof out; ++i) {
            if (i != 16) {
                EXPECT_EQ(out[i], 0x55) << c.reply << " byte " << i;
            }
        }
    }
}

TEST(DecodePinKey, LongReplyGoesOnPastSixteenWithTheNulAtSixteenOverIt)
{
    // 40 digits: 20 bytes, the NUL behind them, and the NUL at out[16] over byte 16.
    const std::string reply = "0102030405060708090A0B0C0D0E0F1011121314";
    const std::vector<char> work = WorkBuffer(reply);
    uint8_t out[64];
    std::memset(out, 0x55, sizeof out);
    DecodePinKey(work.data(), out);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(out[i], i == 16 ? 0 : i + 1) << "byte " << i;
    EXPECT_EQ(out[20], 0);
    EXPECT_EQ(out[21], 0x55);
}

TEST(DecodePinKey, FullWorkBufferStaysInBounds)
{
    // The longest reply a work buffer holds: 127 digits, decoded to 64 bytes and a NUL.
    const std::string reply(PinWorkSize - 1, 'F');
    const std::vector<char> work = WorkBuffer(reply);
    uint8_t out[70];
    std::memset(out, 0x55, sizeof out);
    DecodePinKey(work.data(), out);
    EXPECT_EQ(out[62], 0xFF);
    EXPECT_EQ(out[63], 0xF0);  // the odd last digit pairs with the NUL
    EXPECT_EQ(out[64], 0);
    EXPECT_EQ(out[65], 0x55);
}

}  // namespace
