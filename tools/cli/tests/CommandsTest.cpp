#include "Commands.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

namespace {

// A stand-in for the library: each export does what the test sets up.
struct Fake {
    int result = 0;
    int lastPort = 0;
    int calls = 0;
    std::string text;       // what a text reader writes
    bool writeText = true;  // false: leave the buffer alone, as on a port failure
    bool cancelOnCall = false;
};
Fake g_fake;

int VARNIK_CALL FakeSelect()
{
    ++g_fake.calls;
    return g_fake.result;
}
int VARNIK_CALL FakeCheckPort(int port)
{
    ++g_fake.calls;
    g_fake.lastPort = port;
    return g_fake.result;
}
int VARNIK_CALL FakeCancel()
{
    return 0;
}
int VARNIK_CALL FakeReadText(char* out)
{
    ++g_fake.calls;
    if (g_fake.writeText)
        std::memcpy(out, g_fake.text.c_str(), g_fake.text.size() + 1);
    return g_fake.result;
}
int VARNIK_CALL FakeThaiLen(const char* text)
{
    return static_cast<int>(std::strlen(text)) * 10;
}

class CommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_fake = Fake();
        library.path = "/opt/v/libvarnik.so";
        library.api.PosSelect = FakeSelect;
        library.api.PosCheckPort = FakeCheckPort;
        library.api.PosCancel = FakeCancel;
        library.api.getVersion = FakeReadText;
        library.api.MsreRead = FakeReadText;
        library.api.EMVRead = FakeReadText;
        library.api.ThaiLen = FakeThaiLen;
    }

    int Run(const std::string& name, std::vector<std::string> args = {})
    {
        CommandContext context(out, err);
        context.args = std::move(args);
        context.load = [this]() -> const LoadedLibrary* {
            ++loads;
            return loadable ? &library : nullptr;
        };
        context.beginWait = [this](const VarnikApi&) {
            ++waits;
            if (g_fake.cancelOnCall)
                cancelSent = true;
        };
        context.endWait = [this] { return cancelSent; };
        context.readFile = [this](const std::string& path, std::string& content) {
            readPath = path;
            content = configText;
            return !configText.empty();
        };
        const Command* command = FindCommand(name);
        EXPECT_NE(command, nullptr) << name;
        return command ? RunCommand(*command, context) : -1;
    }

    LoadedLibrary library;
    bool loadable = true;
    bool cancelSent = false;
    int loads = 0;
    int waits = 0;
    std::string configText;
    std::string readPath;
    std::ostringstream out, err;
};

TEST_F(CommandsTest, SessionResultsBecomeMessagesAndExitStatus)
{
    struct {
        int result;
        int status;
        const char* message;
    } cases[] = {
        {0, ExitOk, "Terminal answered on port 7.\n"},
        {110, ExitTerminal, "No port known or it would not open (110).\n"},
        {1538, ExitTerminal, "No terminal answered (1538).\n"},
        {-790, ExitTerminal, "The library answered with the unexpected result -790.\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.result = c.result;
        configText = "{\"port\":7}";
        EXPECT_EQ(Run("probe"), c.status) << c.result;
        EXPECT_EQ(out.str(), c.message);
        EXPECT_EQ(readPath, c.result == 0 ? "/opt/v/config/varnik.json" : readPath);

        out.str("");
        EXPECT_EQ(Run("checkport", {"7"}), c.status) << c.result;
        EXPECT_EQ(out.str(), c.message);
        EXPECT_EQ(g_fake.lastPort, 7);
    }
}

TEST_F(CommandsTest, ProbeWithoutAKnownPortNumberSaysSoBriefly)
{
    configText = "{\"port\":0,\"name\":\"Terminal Port\"}";
    EXPECT_EQ(Run("probe"), ExitOk);
    EXPECT_EQ(out.str(), "Terminal answered.\n");
    out.str("");
    configText.clear();   // no file
    EXPECT_EQ(Run("probe"), ExitOk);
    EXPECT_EQ(out.str(), "Terminal answered.\n");
}

TEST_F(CommandsTest, TerminalCallsAreCancellable)
{
    Run("probe");
    Run("checkport", {"3"});
    Run("version");
    EXPECT_EQ(waits, 3);
    Run("thailen", {"abc"});   // no terminal, nothing to cancel
    EXPECT_EQ(waits, 3);
}

TEST_F(CommandsTest, CancelGivesItsOwnStatus)
{
    g_fake.cancelOnCall = true;
    g_fake.text = "\x18";
    g_fake.result = 1;
    EXPECT_EQ(Run("version"), ExitCancelled);
    EXPECT_NE(out.str().find("Cancelled."), std::string::npos);
}

TEST_F(CommandsTest, BadPortNumberIsUsageErrorBeforeLoading)
{
    for (const char* word : {"seven", "7x", "", "COM7", "99999999999"}) {
        EXPECT_EQ(Run("checkport", {word}), ExitUsage) << word;
    }
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(g_fake.calls, 0);
    EXPECT_EQ(Run("checkport", {"-1"}), ExitOk);   // the library judges the number itself
    EXPECT_EQ(g_fake.lastPort, -1);
}

TEST_F(CommandsTest, WrongArgumentCountIsUsageError)
{
    EXPECT_EQ(Run("probe", {"x"}), ExitUsage);
    EXPECT_EQ(Run("checkport"), ExitUsage);
    EXPECT_EQ(Run("checkport", {"1", "2"}), ExitUsage);
    EXPECT_EQ(Run("thailen"), ExitUsage);
    EXPECT_EQ(loads, 0);
    EXPECT_NE(err.str().find("varnik checkport N"), std::string::npos);
}

TEST_F(CommandsTest, LibraryProblemsGiveStatus2)
{
    loadable = false;
    EXPECT_EQ(Run("probe"), ExitNoLibrary);
    loadable = true;
    library.api.getVersion = nullptr;
    EXPECT_EQ(Run("version"), ExitNoLibrary);
    EXPECT_NE(err.str().find("has no function getVersion"), std::string::npos);
    EXPECT_EQ(g_fake.calls, 0);
}

// A text reader returns the text's length, and 110 also when the port would not open; only an
// untouched buffer tells the two apart.
TEST_F(CommandsTest, TextReadersTellPortFailureFromA110ByteText)
{
    const std::string text110(110, 'V');
    struct {
        int result;
        bool write;
        std::string text;
        int status;
        std::string output;
    } cases[] = {
        {14, true, "NEW6210 V1.2.3", ExitOk, "NEW6210 V1.2.3\n"},
        {110, true, text110, ExitOk, text110 + "\n"},
        {110, false, "", ExitTerminal, "No port known or it would not open (110).\n"},
        {0, true, "", ExitTerminal, "The terminal gave no version text.\n"},
        // The length is counted by us: a result that disagrees does not cut the text.
        {3, true, "ABCDEF", ExitOk, "ABCDEF\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.result = c.result;
        g_fake.writeText = c.write;
        g_fake.text = c.text;
        EXPECT_EQ(Run("version"), c.status) << c.result << " " << c.text;
        EXPECT_EQ(out.str(), c.output);
    }
}

TEST_F(CommandsTest, ThaiLenPrintsTheCount)
{
    EXPECT_EQ(Run("thailen", {"abcd"}), ExitOk);
    EXPECT_EQ(out.str(), "40\n");
}

TEST_F(CommandsTest, PlannedCommandsAreUsageErrorsWithoutLoading)
{
    for (const char* name : {"pin", "loadkey", "exec", "pcsc"}) {
        EXPECT_EQ(Run(name, {"x"}), ExitUsage) << name;
    }
    EXPECT_EQ(loads, 0);
}

TEST(CommandTableTest, EveryCommandIsFoundAndHasHelp)
{
    for (const Command& command : CommandTable()) {
        EXPECT_EQ(FindCommand(command.name), &command);
        EXPECT_LE(command.minArgs, command.maxArgs) << command.name;
        EXPECT_EQ(std::string(command.synopsis).find(command.name), 0u) << command.name;
        std::ostringstream out, err;
        EXPECT_EQ(PrintCommandHelp(command.name, out, err), ExitOk);
        EXPECT_NE(out.str().find(command.details), std::string::npos);
        EXPECT_TRUE(err.str().empty());
    }
    EXPECT_EQ(FindCommand("PROBE"), FindCommand("probe"));
    EXPECT_EQ(FindCommand("nope"), nullptr);
    std::ostringstream out, err;
    EXPECT_EQ(PrintCommandHelp("nope", out, err), ExitUsage);
}

TEST(CommandTableTest, OverviewNamesEveryCommandAndTheResultCodes)
{
    std::ostringstream out;
    PrintOverview(out);
    for (const Command& command : CommandTable())
        EXPECT_NE(out.str().find(command.synopsis), std::string::npos) << command.name;
    for (const char* word : {"110", "1538", "config/varnik.json", "config/debug.json",
                             "VARNIK_LIBRARY", "--lib"})
        EXPECT_NE(out.str().find(word), std::string::npos) << word;
}

} // namespace
