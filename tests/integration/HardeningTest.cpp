// Hostile hosts and odd states: null buffers, a host that changes folder after loading, a
// prompt too long for the send buffer, a port left open under another number, and a config
// file that must be replaced whole.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "Harness.h"

namespace {

using VoidCall = int();
using PortCall = int(int);
using BufferCall = int(void*);
using ThaiIdCall = int(char*, int);
using LenCall = int(const char*);

constexpr int Port = 5;

struct Hardening : ::testing::Test {
    Workspace folder;
    void SetUp() override
    {
        folder.EnableLog();
        folder.UsePort(Port);
    }
};

TEST_F(Hardening, NullOutputBuffersAnswerMinusOneAndLeaveTheTerminalAlone)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    for (const char* name : {"getVersion", "PinLoadMK", "PinReadKey", "PinReadKeyClear",
                             "MsreRead", "MsreWrite", "EMVRead"})
        EXPECT_EQ(library.Get<BufferCall>(name)(nullptr), -1) << name;
    EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(nullptr, 0), -1);
    EXPECT_EQ(library.Get<int(char*, const char*)>("PosExec")(nullptr, "VERSION"), -1);
    EXPECT_EQ(library.Get<LenCall>("ThaiLen")(nullptr), 0);
    EXPECT_EQ(Hex(terminal.Received()), "");
    EXPECT_FALSE(Contains(folder.LogText(), "Open Port")) << "the port was never opened";
}

TEST_F(Hardening, TheLibraryKeepsItsFolderWhenTheHostChangesItsOwn)
{
    Simulator terminal(folder.PortLink(Port));
    char saved[4096];
    ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
    ASSERT_EQ(chdir(folder.Folder().c_str()), 0);
    void* handle = dlopen("./libvarnik.so", RTLD_NOW | RTLD_LOCAL);
    ASSERT_EQ(chdir("/"), 0);
    ASSERT_NE(handle, nullptr) << dlerror();

    const int result = reinterpret_cast<VoidCall*>(dlsym(handle, "PosSelect"))();
    dlclose(handle);
    ASSERT_EQ(chdir(saved), 0);

    EXPECT_EQ(result, 0) << "config/ and the port found beside the library";
    EXPECT_TRUE(Contains(folder.LogText(), "Port : 5"));
}

TEST_F(Hardening, ThaiIdTextRunsToTheFirstNulOfTheReplyBuffer)
{
    // A framed "ABCDEF", then a one-byte answer, then two raw bytes that are no frame.
    Simulator terminal(folder.PortLink(Port), {"--reply", "3200=02:41:42:43:44:45:46:03:07",
                                               "--reply", "3200=58", "--reply", "3200=5A:5A"});
    Library library(folder.LibraryPath());
    for (const char* expected : {"ABCDEF", "XBCDEF", "ZZCDEF"}) {
        char out[32];
        std::memset(out, 0x55, sizeof out);
        EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(out, 0), 6) << expected;
        EXPECT_EQ(std::string(out), expected);
    }
}

TEST_F(Hardening, APromptTooLongForTheSendBufferIsNotSent)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    std::string prompt(204800, 'P');

    EXPECT_EQ(library.Get<BufferCall>("PinReadKeyClear")(&prompt[0]), 0);

    EXPECT_EQ(Hex(terminal.Received()), "") << "no frame cut short of its ETX";
    EXPECT_TRUE(Contains(folder.LogText(), "Close Device was Successful"));
}

TEST_F(Hardening, CheckPortClosesAPortLeftOpenUnderAnotherNumber)
{
    // A two-field swipe leaves the port of 5 open; 8 has no terminal.
    Simulator terminal(folder.PortLink(Port), {"--stripe", "1234=56|78"});
    Library library(folder.LibraryPath());
    char out[64] = {};
    library.Get<BufferCall>("MsreRead")(out);

    EXPECT_EQ(library.Get<PortCall>("PosCheckPort")(8), 110);

    EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":5}");
    EXPECT_TRUE(Contains(folder.LogText(), "Open Port Failed : 8"));
}

TEST_F(Hardening, TheSavedPortReplacesTheConfigFileWhole)
{
    // A second name for the old file keeps the old bytes only if the new file is a new one.
    const std::string config = folder.ConfigFolder() + "varnik.json";
    const std::string keep = folder.Folder() + "/old.json";
    ASSERT_EQ(link(config.c_str(), keep.c_str()), 0);
    Simulator terminal(folder.PortLink(6));
    Library library(folder.LibraryPath());

    EXPECT_EQ(library.Get<PortCall>("PosCheckPort")(6), 0);

    EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":6}");
    std::string old;
    RunCommand("cat '" + keep + "'", &old);
    EXPECT_EQ(old, "{\"port\":5}");
    struct stat info {};
    EXPECT_NE(stat((config + ".tmp").c_str(), &info), 0) << "no temporary file left";
}

TEST_F(Hardening, TheCliRefusesAThaiLenTextThatWouldEndTheProcess)
{
    std::string thai;  // 10240 characters of three bytes, one byte each in TIS-620
    for (int i = 0; i < 10240; ++i)
        thai += "\xE0\xB8\x81";
    const struct {
        std::string text;
        int status;
        std::string output;
    } rows[] = {{std::string(10239, 'a'), 0, "10239\n"}, {thai, 1, ""}};
    for (const auto& row : rows) {
        std::string output;
        const int status = RunCommand(std::string("'" BINARY_DIR "/varnik' --lib '") +
                                      folder.LibraryPath() + "' thailen '" + row.text + "' 2>/dev/null",
                                      &output);
        EXPECT_EQ(status, row.status) << row.text.size();
        EXPECT_EQ(output, row.output) << row.text.size();
    }
}

}  // namespace
