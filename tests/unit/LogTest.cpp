// The log's line and file format, the "#TIME#" rule and BytesToHex.
#include <gtest/gtest.h>

#include "support/Log.h"

namespace {

const LocalTime Morning{2026, 11, 16, 9, 5, 7};

TEST(LogLine, StampTabTextAndCrLf)
{
    EXPECT_EQ(FormatLogLine(Morning, "Pos Cancel "), "16/11/2026 09:05:07\tPos Cancel \r\n");
    EXPECT_EQ(FormatLogLine(Morning, nullptr), "16/11/2026 09:05:07\t\r\n");
}

TEST(LogLine, TimeMarksAreReplacedOnlyWhenTheFirstIsNotAtTheStart)
{
    struct Case {
        const char* text;
        const char* expected;
    } cases[] = {
        {"at #TIME# and #TIME#", "at 16/11/2026 09:05:07 and 16/11/2026 09:05:07"},
        {"#TIME# first, then #TIME#", "#TIME# first, then #TIME#"},
        {"no mark", "no mark"},
        {"#TIM", "#TIM"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FormatLogLine(Morning, c.text), std::string("16/11/2026 09:05:07\t") + c.expected + "\r\n")
            << c.text;
}

TEST(LogFile, OneFilePerLocalDate)
{
    EXPECT_EQ(LogFileName("C:\\app\\Log/Varnik", Morning), "C:\\app\\Log/Varnik/20261116.log");
    EXPECT_EQ(LogFileName("/opt/pos/Log/libvarnik", LocalTime{2027, 1, 2, 23, 59, 59}),
              "/opt/pos/Log/libvarnik/20270102.log");
}

TEST(BytesToHex, UpperCaseColonSeparated)
{
    const unsigned char frame[] = {0x02, 0x34, 0x03, 0xAB, 0x00, 0xFF};
    EXPECT_EQ(BytesToHex(frame, 3), "02:34:03");
    EXPECT_EQ(BytesToHex(frame, 6), "02:34:03:AB:00:FF");
    EXPECT_EQ(BytesToHex(frame, 1), "02");
}

TEST(BytesToHex, ACountBelowOneGoesUpToTheFirstZeroByte)
{
    EXPECT_EQ(BytesToHex("AB", 0), "41:42");
    EXPECT_EQ(BytesToHex("AB", -5), "41:42");
    EXPECT_EQ(BytesToHex("", 0), "");
    const unsigned char zeroFirst[] = {0x00, 0x41};
    EXPECT_EQ(BytesToHex(zeroFirst, 0), "");
}

}  // namespace
