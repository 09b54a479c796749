// The simulator's command line as the test harnesses use it, its mistakes, and the pieces of a
// reply that its options shape.
#include "Crc32.h"
#include "Hex.h"
#include "Options.h"

#include <gtest/gtest.h>

namespace {

Bytes Wire(const std::string& hex)
{
    Bytes bytes;
    EXPECT_TRUE(ParseHex(hex, bytes)) << hex;
    return bytes;
}

TEST(Options, EveryOptionReachesItsSetting)
{
    SimOptions o;
    std::string error;
    ASSERT_TRUE(ParseOptions(
        {"--link", "/tmp/x", "--record=/tmp/r", "--quiet", "--version-text", "V 2", "--silent",
         "--delay", "5", "--split", "3:50", "--bad-check", "--garbage", "15:41:42", "--byte-pace",
         "2", "--siso", "--reply", "3B=02:41:03:40", "--reply", "3B=", "--reply", "3801=6A82",
         "--hold", "3352", "--answer-can", "--oversize", "300000", "--throttle", "--vanish-after",
         "3", "--card", "out", "--atr", "3B00", "--files", "a.bin:10,b", "--mk-reply", "4F4B",
         "--pin", "12"},
        o, error))
        << error;
    EXPECT_EQ(o.linkPath + " " + o.recordPath + " " + o.terminal.versionText, "/tmp/x /tmp/r V 2");
    EXPECT_TRUE(o.quiet && o.faults.silent && o.faults.badCheck && o.faults.siso &&
                o.session.answerCan && !o.terminal.cardIn && o.terminal.masterKeyFrame &&
                !o.defaultFiles);
    EXPECT_EQ(o.faults.delayMs, 5);
    EXPECT_EQ(o.faults.splitBytes, 3u);
    EXPECT_EQ(o.faults.splitPauseMs, 50);
    EXPECT_EQ(o.faults.probeGarbage, Wire("15 41 42"));
    EXPECT_EQ(o.faults.bytePaceMs, 2);
    const std::deque<Bytes> versionReplies{Wire("02 41 03 40"), {}};
    EXPECT_EQ(o.faults.replies[OpCode::One(0x3B)], versionReplies);
    EXPECT_EQ(o.faults.replies[OpCode::Two(0x38, 0x01)].front(), Wire("6A 82"));
    EXPECT_EQ(o.faults.holds, std::set<OpCode>{OpCode::Two('3', 'R')});
    EXPECT_EQ(o.faults.oversize, 300000u);
    EXPECT_EQ(o.faults.throttleBaud, 921600u);
    EXPECT_EQ(o.session.vanishAfter, 3);
    EXPECT_EQ(o.terminal.atr, Wire("3B 00"));
    const std::vector<std::pair<std::string, size_t>> files{{"a.bin", 10}, {"b", 0}};
    EXPECT_EQ(o.files, files);
    EXPECT_EQ(o.terminal.pinReply, "12");

    ASSERT_TRUE(ParseOptions({"--throttle=9600", "--vanish-after", "1"}, o, error)) << error;
    EXPECT_EQ(o.faults.throttleBaud, 9600u);
    EXPECT_EQ(o.session.vanishAfter, 1);
}

TEST(Options, MistakesAreRefusedAndNamed)
{
    struct {
        std::vector<std::string> args;
        const char* mentions;
    } rows[] = {
        {{"--nope"}, "unknown option --nope"},
        {{"--link"}, "needs a value"},
        {{"--quiet=1"}, "takes no value"},
        {{"--delay", "-1"}, "--delay"},
        {{"--split", "3"}, "N:MS"},
        {{"--split", "0:5"}, "N:MS"},
        {{"--reply", "3B"}, "OP=HEX"},
        {{"--reply", "77=06"}, "known operation"},
        {{"--reply", "3B=0"}, "bad hex"},
        {{"--reply", "3B=0:2"}, "bad hex"},
        {{"--reply", "3B=GG"}, "bad hex"},
        {{"--hold", "3B3B3B"}, "--hold"},
        {{"--card", "maybe"}, "in or out"},
        {{"--throttle=0"}, "baud"},
        {{"--vanish-after", "0"}, "--vanish-after"},
        {{"plain"}, "unexpected argument"},
    };
    for (const auto& row : rows) {
        SimOptions options;
        std::string error;
        EXPECT_FALSE(ParseOptions(row.args, options, error)) << row.args[0];
        EXPECT_NE(error.find(row.mentions), std::string::npos) << error;
    }
}

// An upload's content is checked against this CRC-32 before the terminal keeps it.
TEST(Options, UploadCheckIsTheStandardCrc32)
{
    const std::string digits = "123456789";
    EXPECT_EQ(Crc32(reinterpret_cast<const uint8_t*>(digits.data()), digits.size()), 0xCBF43926u);
}

// Split and byte pacing cut a reply into the writes the line sees.
TEST(Options, PacedRepliesReachTheLineInPieces)
{
    struct {
        size_t splitBytes;
        int bytePaceMs;
        std::vector<Bytes> writes;
    } rows[] = {
        {2, 0, {Wire("02 41"), Wire("03 40")}},
        {0, 1, {{0x02}, {0x41}, {0x03}, {0x40}}},
        {9, 0, {Wire("02 41 03 40")}},
    };
    for (const auto& row : rows) {
        FaultOptions faults;
        faults.splitBytes = row.splitBytes;
        faults.bytePaceMs = row.bytePaceMs;
        std::vector<Bytes> writes;
        ReplyWriter writer(faults, [&](const uint8_t* data, size_t length) {
            writes.emplace_back(data, data + length);
            return true;
        });
        ASSERT_TRUE(writer.Send(Wire("02 41 03 40")));
        EXPECT_EQ(writes, row.writes) << row.splitBytes << " " << row.bytePaceMs;
    }
}

}  // namespace
