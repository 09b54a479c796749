// exec, files, rm, upload and script against a stand-in library: the document or request
// each one hands over, its exit status and what it prints.
#include "CommandSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct Fake {
    int result = 0;
    std::string reply;
    std::string received;  // the document of PosExec or the request of PinReadKeyClear
    int calls = 0;
};
Fake g_fake;

int VARNIK_CALL FakeExec(char* out, const char* command)
{
    ++g_fake.calls;
    g_fake.received = command;
    std::strcpy(out, g_fake.reply.c_str());
    return g_fake.result;
}

int VARNIK_CALL FakeClear(char* inOut)
{
    return FakeExec(inOut, inOut);  // the request is copied before the reply overwrites it
}

class ScriptCommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_fake = Fake();
        till = fs::temp_directory_path() / ("varnik-cli-" + std::to_string(getpid()));
        fs::create_directories(till / "lib");
        fs::create_directories(till / "up" / "sub");
        std::ofstream(till / "up" / "sub" / "a.bin") << "0123456789";
        library.path = (till / "lib" / "libvarnik.so").string();
        library.api.PosExec = FakeExec;
        library.api.PinReadKeyClear = FakeClear;
    }
    void TearDown() override { fs::remove_all(till); }

    // `files` takes no argument, the others one.
    int Run(const std::string& name, const std::string& arg)
    {
        out.str("");
        CommandContext context(out, err);
        if (name != "files")
            context.args = {arg};
        context.load = [this] { return &library; };
        context.outIsTerminal = terminal;
        context.whileTicking = [](int, const std::function<void()>& tick,
                                  const std::function<int()>& work) {
            tick();
            return work();
        };
        return RunCommand(*FindCommand(name), context);
    }

    fs::path till;
    LoadedLibrary library;
    bool terminal = false;
    std::ostringstream out, err;
};

TEST_F(ScriptCommandsTest, EachCommandHandsOverItsDocumentAndReportsTheResult)
{
    const std::string file = (till / "up" / "sub" / "a.bin").string();
    struct {
        const char* command;
        std::string arg;
        int result;
        const char* reply;
        std::string sent;
        int status;
        std::string output;  // the start of what is printed
    } cases[] = {
        {"exec", "version", 1, "NEW6210 SIM", "version", ExitOk, "Result: 1\nReply: NEW6210 SIM\n"},
        {"exec", "{}", -2, "", "{}", ExitTerminal, "Result: -2\nThe command failed (-2)"},
        {"exec", "x", -790, "", "x", ExitTerminal, "Result: -790\nThe port was not open"},
        {"files", "", 0, "a 1\nb 2", R"({"format":"FILE","cmd":"list"})", ExitOk, "a 1\nb 2\n"},
        {"files", "", 0, "", R"({"format":"FILE","cmd":"list"})", ExitOk, "The terminal lists no"},
        {"rm", "we\"ird\\x", 0, "", R"({"format":"FILE","cmd":"del","file":"we\"ird\\x"})",
         ExitOk, "The terminal was told to delete we\"ird\\x."},
        {"upload", file, 0, "", R"({"format":"FILE","cmd":"write","file":)" + JsonString(file) + "}",
         ExitOk, "Uploading " + file + ": 10 bytes, 0.0 s"},
        {"upload", file, -1, "", R"({"format":"FILE","cmd":"write","file":)" + JsonString(file) + "}",
         ExitTerminal, "Uploading"},
        // The library prefixes "input" with its own folder.
        {"upload", (till / "up").string(), 0, "", R"({"format":"UPLOAD","input":"../up"})", ExitOk,
         "Uploading " + (till / "up").string() + ": 10 bytes in 1 file,"},
        {"script", R"({"format":"PINPAD"})", 0, "DONE", R"(@{"format":"PINPAD"})", ExitOk, "DONE\n"},
        {"script", "@/no/such", -2, "", "@/no/such", ExitTerminal, "The script failed (-2)"},
        {"script", "@@doc.json", -3, "", "@@doc.json", ExitTerminal, "The script failed (-3)"},
        {"script", "{}", -1, "", "@{}", ExitTerminal, "The script failed (-1)"},
    };
    for (const auto& c : cases) {
        g_fake = Fake();
        g_fake.result = c.result;
        g_fake.reply = c.reply;
        std::string row = std::string(c.command) + " " + c.arg;
        EXPECT_EQ(Run(c.command, c.arg), c.status) << row;
        EXPECT_EQ(g_fake.received, c.sent) << row;
        EXPECT_EQ(out.str().compare(0, c.output.size(), c.output), 0) << row << "\n" << out.str();
    }
}

TEST_F(ScriptCommandsTest, BadArgumentsStopBeforeTheLibrary)
{
    EXPECT_EQ(Run("upload", (till / "nothing").string()), ExitUsage);
    EXPECT_EQ(Run("rm", ""), ExitUsage);
    EXPECT_EQ(g_fake.calls, 0);
}

TEST_F(ScriptCommandsTest, UploadDrawsABarOnATerminalThatEndsOnTheAnswer)
{
    terminal = true;
    for (int result : {0, -1}) {
        g_fake.result = result;
        Run("upload", (till / "up").string());
        std::string text = out.str();
        EXPECT_NE(text.find("\r["), std::string::npos) << text;
        EXPECT_EQ(text.find("100%") != std::string::npos, result == 0) << text;
    }
}

TEST(UploadProgressLine, CountsAtTheLineRateAndWaitsForTheAnswer)
{
    struct {
        uint64_t total, elapsedMs;
        bool done;
        const char* line;
    } cases[] = {
        {921600, 5000, false, "[###############...............]  50%  460800 / 921600 bytes"},
        {1000, 60000, false, "[#############################.]  99%  999 / 1000 bytes"},
        {0, 10, true, "[##############################] 100%  0 / 0 bytes"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(UploadProgressLine(c.total, c.elapsedMs, c.done), c.line) << c.elapsedMs;
}

} // namespace
