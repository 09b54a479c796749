// Faults injected through the simulator and hostile hosts: every call ends, nothing is written
// past a buffer of exactly the documented size, no descriptor leaks, a cancel is neither lost
// nor sent where it must not be, and odd states (a host that changes folder, a port left open
// under another number) end as they should.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "Harness.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Any = -99;  // the call only has to end, within its buffer
const Bytes Probe = HexBytes("02 34 03 34");

// The lowest free descriptor number: a descriptor left open takes it.
int FreeDescriptor()
{
    const int fd = dup(0);
    close(fd);
    return fd;
}

TEST(Faults, EveryInjectedFaultEndsTheCallInsideItsBuffer)
{
    std::string storm;
    for (int i = 0; i < 64; ++i)
        storm += i == 0 ? "18" : ":18";
    const struct {
        const char* name;
        Options options;
        const char* call;  // "probe" or "version"
        int result;
        int atLeastMs;
    } rows[] = {
        {"a reply of 300 KB", {"--oversize", "300000"}, "version", Any, 0},
        {"garbage before a frame", {"--reply", "3B=41:42:18:02:4F:4B:03:04"}, "version", Any, 0},
        {"a storm of CANs", {"--reply", "3B=" + storm}, "version", Any, 0},
        {"an answer after 10 s", {"--delay", "10000"}, "version", 15, 10000},
    };
    for (const auto& row : rows) {
        Session s(row.options);
        // Exactly the documented most: a byte more is an AddressSanitizer report.
        std::unique_ptr<char[]> out(new char[204800]);
        const Clock::time_point start = Clock::now();
        const int result = std::string(row.call) == "probe" ? s.Get<VoidCall>("PosSelect")()
                                                            : s.Get<TextCall>("getVersion")(out.get());
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        if (row.result != Any) {
            EXPECT_EQ(result, row.result) << row.name;
        }
        if (std::string(row.call) == "version") {
            EXPECT_EQ(result, static_cast<int>(strnlen(out.get(), 204800))) << row.name;
        }
        EXPECT_GE(ms.count(), row.atLeastMs) << row.name;
        if (row.atLeastMs == 0) {  // a slow terminal is slow to the probe too
            EXPECT_EQ(s.Get<VoidCall>("PosSelect")(), 0) << row.name << ": what was left is drained";
        }
    }
}

TEST(Faults, AThousandCallsLeaveNoDescriptorBehind)
{
    Session s;
    VoidCall* select = s.Get<VoidCall>("PosSelect");
    ASSERT_EQ(select(), 0);
    const int before = FreeDescriptor();
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(select(), 0) << i;
    EXPECT_EQ(FreeDescriptor(), before);
}

TEST(Faults, ACancelDuringTheProbeSendsNoCan)
{
    Session s({"--reply", "34="});
    std::thread canceller([&] {
        s.terminal.WaitReceived(Probe.size());
        s.Get<VoidCall>("PosCancel")();
    });
    EXPECT_EQ(s.Get<VoidCall>("PosSelect")(), 1538);
    canceller.join();
    char out[64];
    s.Get<TextCall>("getVersion")(out);  // the request is wiped: no CAN reaches the next call
    EXPECT_EQ(Hex(s.terminal.Received()), Hex(Probe + Probe + VersionFrame)) << "no CAN";
}

TEST(Faults, ACancelWaitingWhileThePortStaysOpenReachesTheNextWait)
{
    // A two-field swipe leaves the port open; the cancel comes in between two calls.
    Session s({"--stripe", "1234=56|78"});
    char out[64] = {};
    s.Get<TextCall>("MsreRead")(out);
    const size_t swipe = s.terminal.Received().size();
    s.Get<VoidCall>("PosCancel")();

    s.Get<TextCall>("getVersion")(out);

    s.terminal.WaitReceived(swipe + VersionFrame.size() + 1);
    const Bytes received = s.terminal.Received();
    EXPECT_EQ(Hex(Bytes(received.begin() + swipe, received.end())), Hex(VersionFrame + Bytes{0x18}));
    EXPECT_TRUE(Contains(s.folder.LogText(), "port is opened"));
}

TEST(Faults, AnyNonZeroLogModeSwitchesTheLogOn)
{
    const struct {
        const char* debug;
        bool logged;
    } rows[] = {{"{\"mode\":0}", false}, {"{\"mode\":-1}", true}, {"{\"mode\":2}", true}};
    for (const auto& row : rows) {
        Workspace fresh;
        fresh.WriteConfig("debug.json", row.debug);
        Library library(fresh.LibraryPath());
        library.Get<VoidCall>("PosSelect")();
        EXPECT_EQ(Contains(fresh.LogText(), "3in1 port not found"), row.logged) << row.debug;
        EXPECT_EQ(fresh.HasLogFolder(), row.logged) << row.debug;
    }
}

TEST(Hardening, TheLibraryKeepsItsFolderWhenTheHostChangesItsOwn)
{
    Workspace folder;
    folder.EnableLog(), folder.UsePort(SessionPort);
    Simulator terminal(folder.PortLink(SessionPort));
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
    EXPECT_TRUE(Contains(folder.LogText(), "Port : 7"));
}

TEST(Hardening, ThaiIdTextRunsToTheFirstNulOfTheReplyBuffer)
{
    // A framed "ABCDEF", then a one-byte answer, then two raw bytes that are no frame.
    Session s({"--reply", "3200=02:41:42:43:44:45:46:03:07", "--reply", "3200=58", "--reply", "3200=5A:5A"});
    for (const char* expected : {"ABCDEF", "XBCDEF", "ZZCDEF"}) {
        char out[32];
        std::memset(out, 0x55, sizeof out);
        EXPECT_EQ(s.Get<int(char*, int)>("ThaiIDRead")(out, 0), 6) << expected;
        EXPECT_EQ(std::string(out), expected);
    }
}

TEST(Hardening, CheckPortClosesAPortLeftOpenUnderAnotherNumber)
{
    // A two-field swipe leaves the port of 7 open; 8 has no terminal.
    Session s({"--stripe", "1234=56|78"});
    char out[64] = {};
    s.Get<TextCall>("MsreRead")(out);

    EXPECT_EQ(s.Get<PortCall>("PosCheckPort")(8), 110);

    EXPECT_EQ(s.folder.ReadConfig("varnik.json"), Port7);
    EXPECT_TRUE(Contains(s.folder.LogText(), "Open Port Failed : 8"));
}

TEST(Hardening, TheSavedPortReplacesTheConfigFileWhole)
{
    // A second name for the old file keeps the old bytes only if the new file is a new one;
    // a longer temporary file left by a crash must not lend the new one its tail.
    Session s;
    const std::string config = s.folder.ConfigFolder() + "varnik.json";
    const std::string keep = s.folder.Folder() + "/old.json";
    ASSERT_EQ(link(config.c_str(), keep.c_str()), 0);
    std::ofstream(config + ".tmp") << "{\"port\":6,\"name\":\"left by a crash\"}";
    Simulator terminal(s.folder.PortLink(6));

    EXPECT_EQ(s.Get<PortCall>("PosCheckPort")(6), 0);

    EXPECT_EQ(s.folder.ReadConfig("varnik.json"), "{\"port\":6}");
    EXPECT_EQ(ReadFile(keep), Port7);
    struct stat info {};
    EXPECT_NE(stat((config + ".tmp").c_str(), &info), 0) << "no temporary file left";
}

}  // namespace
