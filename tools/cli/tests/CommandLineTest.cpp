#include "CommandLine.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

struct ParseCase {
    std::vector<std::string> words;
    Invocation::Action action;
    std::string library;   // expected --lib value, "" if none
    std::string command;
    std::vector<std::string> args;
    std::string helpTopic;
};

void PrintTo(const ParseCase& c, std::ostream* os)
{
    *os << "{";
    for (const std::string& word : c.words)
        *os << " '" << word << "'";
    *os << " }";
}

class ParseCommandLineTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseCommandLineTest, Parses)
{
    const ParseCase& c = GetParam();
    Invocation invocation = ParseCommandLine(c.words);
    ASSERT_EQ(invocation.action, c.action) << invocation.error;
    if (c.action == Invocation::Error) {
        EXPECT_FALSE(invocation.error.empty());
        return;
    }
    EXPECT_EQ(invocation.libraryGiven, !c.library.empty());
    EXPECT_EQ(invocation.libraryPath, c.library);
    EXPECT_EQ(invocation.command, c.command);
    EXPECT_EQ(invocation.args, c.args);
    EXPECT_EQ(invocation.helpTopic, c.helpTopic);
}

using A = Invocation::Action;

INSTANTIATE_TEST_SUITE_P(
    Words, ParseCommandLineTest,
    ::testing::Values(
        ParseCase{{"probe"}, A::Run, "", "probe", {}, ""},
        ParseCase{{"checkport", "7"}, A::Run, "", "checkport", {"7"}, ""},
        ParseCase{{"--lib", "/x/libvarnik.so", "version"}, A::Run, "/x/libvarnik.so", "version",
                  {}, ""},
        ParseCase{{"--lib=a.so", "probe"}, A::Run, "a.so", "probe", {}, ""},
        ParseCase{{"--lib", "a.so", "--lib", "b.so", "probe"}, A::Run, "b.so", "probe", {}, ""},
        // After the command word everything is the command's, options included.
        ParseCase{{"thaiid", "--mode", "2"}, A::Run, "", "thaiid", {"--mode", "2"}, ""},
        ParseCase{{"thailen", "-x"}, A::Run, "", "thailen", {"-x"}, ""},
        ParseCase{{"probe", "--lib", "a.so"}, A::Run, "", "probe", {"--lib", "a.so"}, ""},
        ParseCase{{"--help"}, A::Help, "", "", {}, ""},
        ParseCase{{"-h", "checkport"}, A::Help, "", "", {}, "checkport"},
        ParseCase{{"help"}, A::Help, "", "", {}, ""},
        ParseCase{{"HELP", "probe"}, A::Help, "", "", {}, "probe"},
        ParseCase{{"checkport", "--help"}, A::Help, "", "", {}, "checkport"},
        ParseCase{{"--lib", "a.so", "version", "-h"}, A::Help, "a.so", "", {}, "version"},
        ParseCase{{}, A::Error, "", "", {}, ""},
        ParseCase{{"--lib"}, A::Error, "", "", {}, ""},
        ParseCase{{"--lib="}, A::Error, "", "", {}, ""},
        ParseCase{{"--lib", "a.so"}, A::Error, "", "", {}, ""},
        ParseCase{{"--verbose", "probe"}, A::Error, "", "", {}, ""},
        ParseCase{{"help", "probe", "version"}, A::Error, "", "", {}, ""}));

TEST(LibraryCandidatesTest, LibOptionIsTheOnlyCandidate)
{
    Invocation invocation = ParseCommandLine({"--lib", "/opt/v.so", "probe"});
    EXPECT_EQ(LibraryCandidates(invocation, "/bin/", "libvarnik.so", "/env/v.so"),
              std::vector<std::string>{"/opt/v.so"});
}

TEST(LibraryCandidatesTest, NextToExecutableThenEnvironment)
{
    Invocation invocation = ParseCommandLine({"probe"});
    EXPECT_EQ(LibraryCandidates(invocation, "/bin/", "libvarnik.so", "/env/v.so"),
              (std::vector<std::string>{"/bin/libvarnik.so", "/env/v.so"}));
    EXPECT_EQ(LibraryCandidates(invocation, "C:\\app\\", "Varnik.dll", nullptr),
              std::vector<std::string>{"C:\\app\\Varnik.dll"});
    EXPECT_EQ(LibraryCandidates(invocation, "/bin/", "libvarnik.so", ""),
              std::vector<std::string>{"/bin/libvarnik.so"});
    EXPECT_EQ(LibraryCandidates(invocation, "", "libvarnik.so", "/env/v.so"),
              std::vector<std::string>{"/env/v.so"});
    EXPECT_TRUE(LibraryCandidates(invocation, "", "libvarnik.so", nullptr).empty());
}

TEST(ParseInt32Test, AcceptsWholeNumbersOnly)
{
    struct {
        const char* text;
        bool ok;
        int value;
    } cases[] = {
        {"7", true, 7},          {"0", true, 0},
        {"-1", true, -1},        {"+12", true, 12},
        {"2147483647", true, INT_MAX}, {"-2147483648", true, INT_MIN},
        {"2147483648", false, 0}, {"-2147483649", false, 0},
        {"99999999999999999999", false, 0},
        {"", false, 0},          {"-", false, 0},
        {"7x", false, 0},        {" 7", false, 0},
        {"COM7", false, 0},      {"0x10", false, 0},
    };
    for (const auto& c : cases) {
        int value = 12345;
        EXPECT_EQ(ParseInt32(c.text, value), c.ok) << c.text;
        EXPECT_EQ(value, c.ok ? c.value : 12345) << c.text;
    }
}

TEST(ConfigTest, ConfigFolderIsBesideTheLibrary)
{
    EXPECT_EQ(ConfigFolderOf("/opt/varnik/libvarnik.so"), "/opt/varnik/config/");
    EXPECT_EQ(ConfigFolderOf("C:\\app\\Varnik.dll"), "C:\\app\\config/");
    EXPECT_EQ(ConfigFolderOf("./libvarnik.so"), "./config/");
}

TEST(ConfigTest, PortFromConfigText)
{
    struct {
        const char* json;
        int port;
    } cases[] = {
        {"{\"port\":7}", 7},
        {"{ \"port\" : 12 , \"name\":\"Terminal Port\"}", 12},
        {"{\"port\":\"9\"}", 9},
        {"{\"port\":0,\"name\":\"Terminal Port\",\"timeout\":30}", 0},
        {"{\"port\":-1}", -1},
        {"{\"name\":\"Terminal Port\"}", 0},
        {"{\"port\":}", 0},
        {"{\"port\"", 0},
        {"", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(PortFromConfigText(c.json), c.port) << c.json;
}

} // namespace
