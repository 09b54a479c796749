// The stripe answer to track text: field splitting, mapping, check digits and notices.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cards/Tracks.h"

namespace {

std::vector<std::string> g_notices;

void RecordNotice(const std::string& text)
{
    g_notices.push_back(text);
}

struct TrackCase {
    const char* answer;
    TrackAnswer outcome;
    const char* text;  // the caller's text when rendered
    std::vector<std::string> notices;
};

TEST(FormatTracks, AnswersToCallerText)
{
    const TrackCase cases[] = {
        {"1234=56|78|", TrackAnswer::Rendered, "B1234D56FA|B78FF", {}},
        {"1234=56|78|XYZ", TrackAnswer::Rendered, "B1234D56FA|XYZ", {}},
        {"|78|", TrackAnswer::Rendered, "|B78FF", {}},
        {"||", TrackAnswer::Rendered, "|", {}},
        {"1234 |78  |", TrackAnswer::Rendered, "B1234F4|B78FF", {}},
        {"1234=56|78|XYZ|more|fields", TrackAnswer::Rendered, "B1234D56FA|XYZ", {}},
        {"12|| ", TrackAnswer::Rendered, "B12F3|", {}},
        // Every sentinel character maps, and the mapped letters are in the check.
        {":;<=>?||", TrackAnswer::Rendered, "BABCDEFF1|", {}},
        {"0|0|", TrackAnswer::Rendered, "B0F0|B0F0", {}},
        {"4111111111111111=2512101|;4111=25?|", TrackAnswer::Rendered,
         "B4111111111111111D2512101FC|BB4111D25FFB", {}},
        // Blanks inside a field stay, and each raises a notice and counts as 0.
        {"12 34|56|", TrackAnswer::Rendered, "B12 34F4|B56F3", {"error [ ]"}},
        {"%B1234^DOE|78|", TrackAnswer::Rendered, "B%B1234^DOEFC|B78FF",
         {"error [%]", "error [^]", "error [O]"}},
        {"", TrackAnswer::PassedThrough, "", {}},
        {"E2 no card", TrackAnswer::PassedThrough, "", {}},
        // Exactly two fields: both tracks are looked at (notices and all) before the missing
        // third field is found.
        {"1234=56|78", TrackAnswer::TwoFields, "", {}},
        {"Z|Y", TrackAnswer::TwoFields, "", {"error [Z]", "error [Y]"}},
        {"|", TrackAnswer::TwoFields, "", {}},
    };
    for (const TrackCase& c : cases) {
        g_notices.clear();
        std::string text = "untouched";
        EXPECT_EQ(FormatTracks(c.answer, text, RecordNotice), c.outcome) << c.answer;
        if (c.outcome == TrackAnswer::Rendered)
            EXPECT_EQ(text, c.text) << c.answer;
        else
            EXPECT_EQ(text, "untouched") << c.answer;
        EXPECT_EQ(g_notices, c.notices) << c.answer;
    }
}

TEST(SplitFields, TrailingSpaceAndEmptyFields)
{
    const struct {
        const char* text;
        std::vector<std::string> fields;
    } cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"a|", {"a", ""}},
        {"a|b|", {"a", "b", ""}},
        {"|", {"", ""}},
        {" a \t|\r\n b\v\f|", {" a", "\r\n b", ""}},  // leading space stays
        {"  ", {""}},
    };
    std::vector<std::string> fields = {"stale"};
    for (const auto& c : cases) {
        SplitFields(c.text, fields);
        EXPECT_EQ(fields, c.fields) << c.text;
    }
}

TEST(XorHexDigits, ValuesOfEveryCharacter)
{
    for (int c = 1; c < 256; ++c) {
        g_notices.clear();
        const std::string text(1, static_cast<char>(c));
        const int value = XorHexDigits(text, RecordNotice);
        const bool digit = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
        if (digit) {
            EXPECT_EQ(value, c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10) << c;
            EXPECT_TRUE(g_notices.empty()) << c;
        } else {
            EXPECT_EQ(value, 0) << c;
            ASSERT_EQ(g_notices.size(), 1u) << c;
            EXPECT_EQ(g_notices[0], "error [" + text + "]");
        }
    }
    g_notices.clear();
    EXPECT_EQ(XorHexDigits("", RecordNotice), 0);
    EXPECT_EQ(XorHexDigits("fF", RecordNotice), 0);
    EXPECT_EQ(XorHexDigits("123", RecordNotice), 0);
    EXPECT_EQ(XorHexDigits("8421", RecordNotice), 15);
    EXPECT_TRUE(g_notices.empty());
}

TEST(MapTrackField, OnlyTheSixSentinelsChange)
{
    EXPECT_EQ(MapTrackField(":;<=>?"), "ABCDEF");
    EXPECT_EQ(MapTrackField("09@[9"), "09@[9");
    EXPECT_EQ(MapTrackField(""), "");
}

}  // namespace
