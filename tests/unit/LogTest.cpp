// The log's line and file format, the "#TIME#" rule and BytesToHex.
#include <gtest/gtest.h>

#include "support/Log.h"

namespace {

const LocalTime Morning{2026, 11, 16, 9, 5, 7};

TEST(Log, LinesFileNamesAndTrafficBytesAsTheyAreWritten)
{
    const struct {
        const char* text;
        const char* line;
    } cases[] = {
        {"Pos Cancel ", "16/11/2026 09:05:07\tPos Cancel \r\n"},
        {nullptr, "16/11/2026 09:05:07\t\r\n"},
        {"at #TIME# and #TIME#", "16/11/2026 09:05:07\tat 16/11/2026 09:05:07 and 16/11/2026 09:05:07\r\n"},
        {"#TIME# first, then #TIME#", "16/11/2026 09:05:07\t#TIME# first, then #TIME#\r\n"},
        {"#TIM", "16/11/2026 09:05:07\t#TIM\r\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FormatLogLine(Morning, c.text), c.line) << (c.text ? c.text : "null");
    EXPECT_EQ(LogFileName("/opt/pos/Log/libvarnik", LocalTime{2027, 1, 2, 23, 59, 59}),
              "/opt/pos/Log/libvarnik/20270102.log");
    // Every name of an installed library logs under one stem; other dots stay.
    for (const char* name : {"libvarnik.so", "libvarnik.so.1", "libvarnik.so.1.0.2.0"})
        EXPECT_EQ(ModuleFileStem(name), "libvarnik") << name;
    EXPECT_EQ(ModuleFileStem("lib.solid.so.x"), "lib.solid.so");

    // Traffic bytes: upper case, colon-separated; a count below one stops at a zero byte.
    const unsigned char frame[] = {0x02, 0x34, 0x03, 0xAB, 0x00, 0xFF};
    EXPECT_EQ(BytesToHex(frame, 6), "02:34:03:AB:00:FF");
    EXPECT_EQ(BytesToHex(frame, 1), "02");
    EXPECT_EQ(BytesToHex("AB", 0), "41:42");
    EXPECT_EQ(BytesToHex("AB", -5), "41:42");
    EXPECT_EQ(BytesToHex(frame + 4, 0), "");
}

}  // namespace
