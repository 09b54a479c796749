// The program's own words before a command runs: the command line, the library it loads, the
// numbers it takes and the port its configuration names.
#include "CommandLine.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

// Each row: the words, then what they come to as "action lib=... cmd=... args=... help=...".
std::string Outcome(const std::vector<std::string>& words)
{
    const Invocation i = ParseCommandLine(words);
    if (i.action == Invocation::Error)
        return i.error.empty() ? "error without a reason" : "error";
    std::string text = i.action == Invocation::Help      ? "help"
                       : i.action == Invocation::Version ? "version"
                                                         : "run";
    if (i.timeoutSeconds >= 0)
        text += " timeout=" + std::to_string(i.timeoutSeconds);
    if (i.libraryGiven)
        text += " lib=" + i.libraryPath;
    if (!i.command.empty())
        text += " cmd=" + i.command;
    for (const std::string& arg : i.args)
        text += " [" + arg + "]";
    if (!i.helpTopic.empty())
        text += " help=" + i.helpTopic;
    return text;
}

TEST(CommandLine, WordsBecomeAnInvocation)
{
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"probe"}, "run cmd=probe"},
        {{"checkport", "7"}, "run cmd=checkport [7]"},
        {{"--lib", "/x/libvarnik.so", "version"}, "run lib=/x/libvarnik.so cmd=version"},
        {{"--lib=a.so", "probe"}, "run lib=a.so cmd=probe"},
        {{"--timeout", "0", "--timeout=9", "pin"}, "run timeout=9 cmd=pin"},
        {{"--lib", "a.so", "--version"}, "version lib=a.so"},
        {{"--lib", "a.so", "--lib", "b.so", "probe"}, "run lib=b.so cmd=probe"},
        // After the command word everything is the command's, options included.
        {{"thaiid", "--mode", "2"}, "run cmd=thaiid [--mode] [2]"},
        {{"probe", "--lib", "a.so"}, "run cmd=probe [--lib] [a.so]"},
        {{"--help"}, "help"},
        {{"-h", "checkport"}, "help help=checkport"},
        {{"HELP", "probe"}, "help help=probe"},
        {{"checkport", "--help"}, "help help=checkport"},
        {{"--lib", "a.so", "version", "-h"}, "help lib=a.so help=version"},
        {{}, "error"},
        {{"--lib"}, "error"},
        {{"--lib=", "probe"}, "error"},
        {{"--lib", "a.so"}, "error"},
        {{"--verbose", "probe"}, "error"},
        {{"--timeout", "-1", "probe"}, "error"},
        {{"--timeout"}, "error"},
        {{"--version", "probe"}, "error"},
        {{"help", "probe", "version"}, "error"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Outcome(row.first), row.second) << ::testing::PrintToString(row.first);
}

TEST(CommandLine, LibraryIsLookedForBesideTheProgramThenInTheEnvironment)
{
    using Paths = std::vector<std::string>;
    const Invocation plain = ParseCommandLine({"probe"});
    EXPECT_EQ(LibraryCandidates(ParseCommandLine({"--lib", "/o/v.so", "probe"}), "/bin/",
                                "libvarnik.so", "/env/v.so"),
              Paths{"/o/v.so"});
    EXPECT_EQ(LibraryCandidates(plain, "/bin/", "libvarnik.so", "/env/v.so"),
              (Paths{"/bin/libvarnik.so", "/env/v.so"}));
    EXPECT_EQ(LibraryCandidates(plain, "C:\\app\\", "Varnik.dll", ""), Paths{"C:\\app\\Varnik.dll"});
    EXPECT_EQ(LibraryCandidates(plain, "", "libvarnik.so", nullptr), Paths{});
    EXPECT_EQ(ConfigFolderOf("/opt/varnik/libvarnik.so"), "/opt/varnik/config/");
    EXPECT_EQ(ConfigFolderOf("C:\\app\\Varnik.dll"), "C:\\app\\config/");
}

TEST(CommandLine, WholeNumbersAndThePortOfTheConfiguration)
{
    const std::pair<const char*, int> numbers[] = {
        {"7", 7}, {"-1", -1}, {"+12", 12}, {"2147483647", INT_MAX}, {"-2147483648", INT_MIN},
    };
    for (const auto& row : numbers) {
        int value = 12345;
        EXPECT_TRUE(ParseInt32(row.first, value) && value == row.second) << row.first;
    }
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999", "", "-", "7x",
                             " 7", "COM7", "0x10"}) {
        int value = 12345;
        EXPECT_FALSE(ParseInt32(text, value)) << text;
        EXPECT_EQ(value, 12345) << text;
    }
    const std::pair<const char*, int> configs[] = {
        {"{\"port\":7}", 7},
        {"{ \"port\" : 12 , \"name\":\"Terminal Port\"}", 12},
        {"{\"port\":\"9\"}", 9},
        {"{\"port\":-1}", -1},
        {"{\"name\":\"Terminal Port\"}", 0},
        {"{\"port\":}", 0},
        {"{\"port\"", 0},
    };
    for (const auto& row : configs)
        EXPECT_EQ(PortFromConfigText(row.first), row.second) << row.first;
}

}  // namespace
