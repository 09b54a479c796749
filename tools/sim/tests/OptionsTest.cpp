// The command line, hex notation, CRC-32 and the pacing of replies.
#include "Crc32.h"
#include "Options.h"
#include "TestSupport.h"

#include <chrono>

namespace {

bool Parse(const std::vector<std::string>& args, SimOptions& options, std::string& error) {
    return ParseOptions(args, options, error);
}

TEST(Hex, AcceptsTheCommandLineForms) {
    EXPECT_EQ(Hex("02:41:03:40"), (Bytes{0x02, 0x41, 0x03, 0x40}));
    EXPECT_EQ(Hex("024103 40"), (Bytes{0x02, 0x41, 0x03, 0x40}));
    EXPECT_EQ(Hex("ab-CD"), (Bytes{0xAB, 0xCD}));
    Bytes out;
    for (const char* bad : {"0", "0:2", "GG", "02;03"}) {
        EXPECT_FALSE(ParseHex(bad, out)) << bad;
    }
}

TEST(Crc32, StandardCheckValues) {
    const std::string digits = "123456789";
    EXPECT_EQ(Crc32(reinterpret_cast<const uint8_t*>(digits.data()), digits.size()), 0xCBF43926u);
    EXPECT_EQ(Crc32(nullptr, 0), 0u);
}

TEST(Options, TheHarnessContract) {
    SimOptions options;
    std::string error;
    ASSERT_TRUE(Parse({"--link", "/tmp/x", "--record=/tmp/r", "--quiet", "--version-text", "V 2",
                       "--silent", "--delay", "5", "--split", "3:50", "--bad-check", "--garbage",
                       "15:41:42", "--byte-pace", "2", "--siso", "--reply", "3B=02:41:03:40",
                       "--reply", "3B=", "--reply", "3801=6A82", "--hold", "3352", "--answer-can",
                       "--oversize", "300000", "--throttle", "--vanish-after", "3"},
                      options, error))
        << error;
    EXPECT_EQ(options.linkPath, "/tmp/x");
    EXPECT_EQ(options.recordPath, "/tmp/r");
    EXPECT_TRUE(options.quiet);
    EXPECT_EQ(options.terminal.versionText, "V 2");
    EXPECT_TRUE(options.faults.silent);
    EXPECT_EQ(options.faults.delayMs, 5);
    EXPECT_EQ(options.faults.splitBytes, 3u);
    EXPECT_EQ(options.faults.splitPauseMs, 50);
    EXPECT_TRUE(options.faults.badCheck);
    EXPECT_EQ(options.faults.probeGarbage, Hex("15 41 42"));
    EXPECT_EQ(options.faults.bytePaceMs, 2);
    EXPECT_TRUE(options.faults.siso);
    ASSERT_EQ(options.faults.replies[OpCode::One(0x3B)].size(), 2u);
    EXPECT_EQ(options.faults.replies[OpCode::One(0x3B)][1], Bytes{});
    EXPECT_EQ(options.faults.replies[OpCode::Two(0x38, 0x01)][0], Hex("6A 82"));
    EXPECT_EQ(options.faults.holds.count(OpCode::Two('3', 'R')), 1u);
    EXPECT_TRUE(options.session.answerCan);
    EXPECT_EQ(options.faults.oversize, 300000u);
    EXPECT_EQ(options.faults.throttleBaud, 921600u);
    EXPECT_EQ(options.session.vanishAfter, 3);
}

TEST(Options, TerminalSettings) {
    SimOptions options;
    std::string error;
    ASSERT_TRUE(Parse({"--throttle=9600", "--card", "out", "--atr", "3B00", "--files", "a.bin:10,b",
                       "--mk-reply", "4F4B", "--pin", "12"},
                      options, error))
        << error;
    EXPECT_EQ(options.faults.throttleBaud, 9600u);
    EXPECT_FALSE(options.terminal.cardIn);
    EXPECT_EQ(options.terminal.atr, Hex("3B 00"));
    EXPECT_FALSE(options.defaultFiles);
    ASSERT_EQ(options.files.size(), 2u);
    EXPECT_EQ(options.files[0], (std::pair<std::string, size_t>("a.bin", 10)));
    EXPECT_EQ(options.files[1], (std::pair<std::string, size_t>("b", 0)));
    EXPECT_TRUE(options.terminal.masterKeyFrame);
    EXPECT_EQ(options.terminal.pinReply, "12");
}

TEST(Options, MistakesAreNamed) {
    struct Case {
        std::vector<std::string> args;
        const char* mentions;
    } cases[] = {
        {{"--nope"}, "unknown option --nope"},
        {{"--link"}, "needs a value"},
        {{"--quiet=1"}, "takes no value"},
        {{"--delay", "-1"}, "--delay"},
        {{"--split", "3"}, "N:MS"},
        {{"--reply", "3B"}, "OP=HEX"},
        {{"--reply", "77=06"}, "known operation"},
        {{"--reply", "3B=0"}, "bad hex"},
        {{"--hold", "3B3B3B"}, "--hold"},
        {{"--card", "maybe"}, "in or out"},
        {{"--vanish-after", "0"}, "--vanish-after"},
        {{"plain"}, "unexpected argument"},
    };
    for (const Case& c : cases) {
        SimOptions options;
        std::string error;
        EXPECT_FALSE(Parse(c.args, options, error)) << c.args[0];
        EXPECT_NE(error.find(c.mentions), std::string::npos) << error;
    }
}

// The line's writes, with the time of each.
struct Line {
    std::vector<Bytes> writes;
    std::vector<std::chrono::steady_clock::time_point> times;
    ReplyWriter::RawWrite Writer() {
        return [this](const uint8_t* data, size_t length) {
            writes.emplace_back(data, data + length);
            times.push_back(std::chrono::steady_clock::now());
            return true;
        };
    }
};

long MsBetween(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b) {
    return long(std::chrono::duration_cast<std::chrono::milliseconds>(b - a).count());
}

TEST(ReplyPacing, SplitPausesAfterTheFirstBytes) {
    FaultOptions faults;
    faults.splitBytes = 2;
    faults.splitPauseMs = 40;
    Line line;
    ReplyWriter writer(faults, line.Writer());
    ASSERT_TRUE(writer.Send(Hex("02 41 03 40")));
    ASSERT_EQ(line.writes.size(), 2u);
    EXPECT_EQ(line.writes[0], Hex("02 41"));
    EXPECT_EQ(line.writes[1], Hex("03 40"));
    EXPECT_GE(MsBetween(line.times[0], line.times[1]), 40);
}

TEST(ReplyPacing, BytePaceSendsOneByteAtATime) {
    FaultOptions faults;
    faults.bytePaceMs = 15;
    Line line;
    ReplyWriter writer(faults, line.Writer());
    ASSERT_TRUE(writer.Send(Hex("02 41 03 40")));
    ASSERT_EQ(line.writes.size(), 4u);
    EXPECT_GE(MsBetween(line.times[0], line.times[3]), 45);
}

TEST(ReplyPacing, ThrottleTakesTheLineTime) {
    FaultOptions faults;
    faults.throttleBaud = 9600;  // 960 bytes a second
    Line line;
    ReplyWriter writer(faults, line.Writer());
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(writer.Send(Bytes(96, 0x41)));
    EXPECT_GE(MsBetween(start, std::chrono::steady_clock::now()), 100);
    EXPECT_GT(line.writes.size(), 1u);
}

}  // namespace
