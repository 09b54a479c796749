// The simulator's command line as the test harnesses use it, its mistakes, and the pieces of a
// reply that its options shape.
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

// The options whose effect the library's tests can't tell from their absence, and both forms
// of a value; every other option is seen at work through the library's tests.
TEST(Options, SettingsTheLibraryCannotSeeAreTakenInBothForms)
{
    SimOptions o;
    std::string error;
    ASSERT_TRUE(ParseOptions({"--record=/tmp/r", "--siso", "--bad-check", "--byte-pace", "2",
                              "--answer-can", "--oversize=300000", "--throttle", "--atr", "3B00",
                              "--reply", "3B=02:41:03:40", "--reply", "3B=", "--stream-give-up=2000",
                              "--empty-upload-pause", "100"},
                             o, error))
        << error;
    EXPECT_EQ(o.recordPath, "/tmp/r");
    EXPECT_TRUE(o.faults.siso && o.faults.badCheck && o.session.answerCan);
    EXPECT_EQ(o.faults.bytePaceMs, 2);
    EXPECT_EQ(o.session.streamGiveUpMs + o.session.emptyUploadPauseMs, 2100);
    EXPECT_EQ(o.faults.oversize, 300000u);
    EXPECT_EQ(o.faults.throttleBaud, 921600u);
    EXPECT_EQ(o.terminal.atr, Wire("3B 00"));
    const std::deque<Bytes> versionReplies{Wire("02 41 03 40"), {}};
    EXPECT_EQ(o.faults.replies[OpCode::One(0x3B)], versionReplies);
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
