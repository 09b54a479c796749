// TIS-620 <-> UTF-8 over every byte, ThaiLen's column count, and the identity card's answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "cards/ThaiText.h"

namespace {

// Independent of the code under test: the Thai block sits at U+0E01 for TIS-620 0xA1.
std::string Utf8Of(unsigned codePoint)
{
    std::string s;
    s += static_cast<char>(0xE0 | (codePoint >> 12));
    s += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    s += static_cast<char>(0x80 | (codePoint & 0x3F));
    return s;
}

bool MapsToThai(int b)
{
    return (b >= 0xA1 && b <= 0xDA) || (b >= 0xDF && b <= 0xFB);
}

std::string ToUtf8(const std::vector<uint8_t>& tis)
{
    std::vector<char> out(tis.size() * 3 + 1, '\x55');
    const int n = Tis620ToUtf8(tis.data(), tis.size(), out.data());
    EXPECT_LE(n, static_cast<int>(tis.size() * 3));
    EXPECT_EQ(out[n], '\x55') << "Tis620ToUtf8 wrote a terminator";
    return std::string(out.data(), n);
}

std::vector<uint8_t> ToTis620(const std::string& utf8)
{
    std::vector<uint8_t> area(utf8.size() + 2, 0x55);
    const int n = Utf8ToTis620(utf8.c_str(), area.data(), static_cast<int>(area.size()));
    EXPECT_GE(n, 0);
    return std::vector<uint8_t>(area.begin(), area.begin() + (n < 0 ? 0 : n));
}

TEST(Tis620ToUtf8, EveryByte)
{
    for (int b = 1; b < 256; ++b) {
        std::string expected;
        if (b < 0x80)
            expected = std::string(1, static_cast<char>(b));
        else if (MapsToThai(b))
            expected = Utf8Of(0x0E01 + (b - 0xA1));
        EXPECT_EQ(ToUtf8({static_cast<uint8_t>(b)}), expected) << "byte " << b;
    }
    EXPECT_EQ(ToUtf8({0xA1}), "\xE0\xB8\x81");
    EXPECT_EQ(ToUtf8({0xFB}), "\xE0\xB9\x9B");
}

TEST(Utf8ToTis620, ReversesEveryConvertedByte)
{
    for (int b = 1; b < 256; ++b) {
        if (b >= 0x80 && !MapsToThai(b))
            continue;
        const std::vector<uint8_t> tis = {static_cast<uint8_t>(b)};
        EXPECT_EQ(ToTis620(ToUtf8(tis)), tis) << "byte " << b;
    }
    // Whole texts, with ASCII between.
    const std::vector<uint8_t> text = {0xBB, 0xC3, 0xD0, 0xE0, 0xB7, 0xC8, ' ', '1', 0xE4, 0xB7, 0xC2};
    EXPECT_EQ(ToTis620(ToUtf8(text)), text);
}

TEST(Utf8ToTis620, OtherSequencesCountByteByByte)
{
    EXPECT_EQ(ToTis620("\xC3\xA9"), (std::vector<uint8_t>{0xC3, 0xA9}));
    // A lone E0 at the end takes the NUL and nothing beyond it as its two bytes.
    EXPECT_EQ(ToTis620("A\xE0"), (std::vector<uint8_t>{'A', 0xA0}));
    EXPECT_EQ(ToTis620("\xE0\xB8"), (std::vector<uint8_t>{0xA0}));
}

TEST(Utf8ToTis620, StopsBeforeTheLastByteOfTheArea)
{
    uint8_t area[8];
    std::memset(area, 0x55, sizeof area);
    EXPECT_EQ(Utf8ToTis620("abc", area, 4), 3);
    EXPECT_EQ(Utf8ToTis620("abcd", area, 4), -1);
    EXPECT_EQ(area[3], 0x55);
    EXPECT_EQ(Utf8ToTis620((Utf8Of(0x0E01) + Utf8Of(0x0E02) + Utf8Of(0x0E03) + "x").c_str(), area, 4), -1);
    EXPECT_EQ(area[3], 0x55);
}

std::string Thai(std::initializer_list<unsigned> codePoints)
{
    std::string s;
    for (unsigned c : codePoints)
        s += Utf8Of(c);
    return s;
}

TEST(ThaiLen, ColumnsWithStackedMarks)
{
    const struct {
        std::string text;
        int columns;
    } cases[] = {
        {"", 0},
        {"ABC", 3},
        {Thai({0x0E01, 0x0E34, 0x0E48}), 1},          // KO KAI, SARA I, MAI EK
        {Thai({0x0E19, 0x0E49, 0x0E33}), 2},          // NO NU, MAI THO, SARA AM
        {Thai({0x0E01, 0x0E38}), 1},                  // SARA U below
        {Thai({0x0E01, 0x0E31, 0x0E49, 0x0E07}), 2},  // MAI HAN-AKAT and a tone mark
        {Thai({0x0E40, 0x0E01, 0x0E47}), 2},          // SARA E leads, MAITAIKHU stacks
        {Thai({0x0E2A, 0x0E21, 0x0E0A, 0x0E32, 0x0E22}) + " " + Thai({0x0E43, 0x0E08, 0x0E14, 0x0E35}), 9},
        {"Name: " + Thai({0x0E1E, 0x0E23, 0x0E30, 0x0E18, 0x0E34, 0x0E14, 0x0E32}), 12},
        {"\xC3\xA9", 2},
    };
    for (const auto& c : cases)
        EXPECT_EQ(CountThaiColumns(c.text.c_str()), c.columns) << c.text;
}

TEST(ThaiLen, EveryThaiCharacterAlone)
{
    const std::vector<int> marks = {0xD1, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA,
                                    0xE7, 0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED};
    for (int b = 0xA1; b <= 0xFB; ++b) {
        const bool mark = std::find(marks.begin(), marks.end(), b) != marks.end();
        EXPECT_EQ(IsStackedThaiMark(static_cast<uint8_t>(b)), mark) << "byte " << b;
        if (MapsToThai(b)) {
            EXPECT_EQ(CountThaiColumns(Utf8Of(0x0E01 + (b - 0xA1)).c_str()), mark ? 0 : 1) << b;
        }
    }
}

TEST(ThaiLen, LargestTextThatFits)
{
    EXPECT_EQ(CountThaiColumns(std::string(ThaiLenAreaSize - 1, 'a').c_str()), ThaiLenAreaSize - 1);
    // Thai characters shrink from three bytes to one in the area.
    std::string thai;
    for (int i = 0; i < ThaiLenAreaSize - 1; ++i)
        thai += Utf8Of(0x0E01);
    EXPECT_EQ(CountThaiColumns(thai.c_str()), ThaiLenAreaSize - 1);
}

TEST(ThaiLenDeathTest, TextThatFillsTheAreaEndsTheProcess)
{
    const std::string text(ThaiLenAreaSize, 'a');
    EXPECT_DEATH(CountThaiColumns(text.c_str()), "");
}

TEST(ThaiAnswerAsText, ConvertsUpToNulOrWhatArrived)
{
    const struct {
        std::vector<uint8_t> answer;
        int available;
        std::string text;
    } cases[] = {
        {{'A', 0xA1, 'B', 0}, 3, "A\xE0\xB8\x81" "B"},
        {{0x80, 'x', 0xFF, 0xDB, 0xA0, 0}, 5, "x"},
        {{'1', '2', 0, '3', '4'}, 5, "12"},
        {{'1', '2', '3', '4'}, 2, "12"},  // no NUL: stops at what arrived
        {{'Z', 'B', 'C', 0}, 4, "ZBC"},    // one byte over an earlier reply: its rest follows
        {{'Z'}, 0, ""},
    };
    for (const auto& c : cases) {
        char out[32];
        std::memset(out, 0x55, sizeof out);
        const int n = ThaiAnswerAsText(c.answer.data(), c.available, out);
        EXPECT_EQ(n, static_cast<int>(c.text.size()));
        EXPECT_EQ(std::string(out, n), c.text);
        EXPECT_EQ(out[n], 0);
        EXPECT_EQ(out[n + 1], 0x55);
    }
}

TEST(ThaiAnswerAsBinary, CopiesNoMoreThanArrived)
{
    const struct {
        std::vector<uint8_t> answer;
        int result;
    } cases[] = {
        {{3, 0, 0, 0, 0x41, 0x42, 0x43}, 3},
        {{2, 0, 0, 0, 0x41, 0x42, 0x43}, 2},
        {{0, 0, 0, 0, 0x41}, 0},
        {{0x10, 0, 0, 0, 0x41, 0x42}, 2},    // says 16, two arrived
        {{0, 0, 1, 0, 0x41, 0x42, 0x43}, 3},  // says 65536
        {{0xFF, 0xFF, 0xFF, 0xFF, 0x41}, 0},  // says -1
        {{0, 0, 0, 0x80, 0x41}, 0},           // most negative
        {{3, 0, 0}, 0},                       // not even a length arrived
        {{}, 0},
    };
    for (const auto& c : cases) {
        char out[16];
        std::memset(out, 0x55, sizeof out);
        const int n = ThaiAnswerAsBinary(c.answer.data(), static_cast<int>(c.answer.size()), out);
        ASSERT_EQ(n, c.result);
        for (int i = 0; i < n; ++i)
            EXPECT_EQ(static_cast<uint8_t>(out[i]), c.answer[4 + i]);
        EXPECT_EQ(out[n], 0x55) << "no terminator in binary form";
    }
}

}  // namespace
