// Faults injected through the simulator, and the review's open questions: every call ends,
// nothing is written past a buffer of exactly the documented size, no descriptor leaks, and a
// cancel is neither lost nor sent where it must not be.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "Harness.h"

namespace {

using VoidCall = int();
using TextCall = int(char*);
using Clock = std::chrono::steady_clock;

constexpr int Port = 3;
constexpr int Any = -99;  // the call only has to end, within its buffer
const Bytes Probe = HexBytes("02 34 03 34");
const Bytes VersionFrame = HexBytes("02 3B 03 3B");

// The lowest free descriptor number: a descriptor left open takes it.
int FreeDescriptor()
{
    const int fd = dup(0);
    close(fd);
    return fd;
}

struct Faults : ::testing::Test {
    Workspace folder;
    void SetUp() override
    {
        folder.EnableLog();
        folder.UsePort(Port);
    }
};

TEST_F(Faults, EveryInjectedFaultEndsTheCallInsideItsBuffer)
{
    std::string storm;
    for (int i = 0; i < 64; ++i)
        storm += i == 0 ? "18" : ":18";
    const struct {
        const char* name;
        std::vector<std::string> options;
        const char* call;  // "probe" or "version"
        int result;
        int atLeastMs;
    } rows[] = {
        {"a reply of 300 KB", {"--oversize", "300000"}, "version", Any, 0},
        {"garbage before the probe's ACK", {"--garbage", "15:41:42"}, "probe", 0, 0},
        {"garbage before a frame", {"--reply", "3B=41:42:18:02:4F:4B:03:04"}, "version", Any, 0},
        {"a storm of CANs", {"--reply", "3B=" + storm}, "version", Any, 0},
        {"a frame split in two", {"--split", "3:40"}, "version", Any, 0},
        {"a wrong check byte", {"--bad-check"}, "version", 15, 0},
        {"an answer after 10 s", {"--delay", "10000"}, "version", 15, 10000},
    };
    for (const auto& row : rows) {
        Simulator terminal(folder.PortLink(Port), row.options);
        Library library(folder.LibraryPath());
        // Exactly the documented most: a byte more is an AddressSanitizer report.
        std::unique_ptr<char[]> out(new char[204800]);
        const Clock::time_point start = Clock::now();
        const int result = std::string(row.call) == "probe"
                               ? library.Get<VoidCall>("PosSelect")()
                               : library.Get<TextCall>("getVersion")(out.get());
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        if (row.result != Any)
            EXPECT_EQ(result, row.result) << row.name;
        if (std::string(row.call) == "version")
            EXPECT_EQ(result, static_cast<int>(strnlen(out.get(), 204800))) << row.name;
        EXPECT_GE(ms.count(), row.atLeastMs) << row.name;
    }
}

TEST_F(Faults, AThousandCallsLeaveNoDescriptorBehind)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    VoidCall* select = library.Get<VoidCall>("PosSelect");
    ASSERT_EQ(select(), 0);
    const int before = FreeDescriptor();
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(select(), 0) << i;
    EXPECT_EQ(FreeDescriptor(), before);
}

TEST_F(Faults, ACancelDuringTheProbeSendsNoCan)
{
    Simulator terminal(folder.PortLink(Port), {"--reply", "34="});
    Library library(folder.LibraryPath());
    std::thread canceller([&] {
        terminal.WaitReceived(Probe.size());
        library.Get<VoidCall>("PosCancel")();
    });
    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 1538);
    canceller.join();
    Bytes twoProbes = Probe;
    twoProbes.insert(twoProbes.end(), Probe.begin(), Probe.end());
    EXPECT_EQ(Hex(terminal.Received()), Hex(twoProbes)) << "no CAN";
}

TEST_F(Faults, ACancelWaitingWhileThePortStaysOpenReachesTheNextWait)
{
    // A two-field swipe leaves the port open; the cancel comes in between two calls.
    Simulator terminal(folder.PortLink(Port), {"--stripe", "1234=56|78"});
    Library library(folder.LibraryPath());
    char out[64] = {};
    library.Get<TextCall>("MsreRead")(out);
    const size_t swipe = terminal.Received().size();
    library.Get<VoidCall>("PosCancel")();

    library.Get<TextCall>("getVersion")(out);

    terminal.WaitReceived(swipe + VersionFrame.size() + 1);
    const Bytes received = terminal.Received();
    Bytes expected = VersionFrame;
    expected.push_back(0x18);
    EXPECT_EQ(Hex(Bytes(received.begin() + swipe, received.end())), Hex(expected));
    EXPECT_TRUE(Contains(folder.LogText(), "port is opened"));
}

TEST_F(Faults, APortThatVanishesDuringAnUploadEndsItAndComesBackForTheNextCall)
{
    using ExecCall = int(char*, const char*);
    const std::string file = folder.Folder() + "/big.bin";
    RunCommand("head -c 300000 /dev/urandom > '" + file + "'");
    const std::string write = "{\"format\":\"FILE\",\"cmd\":\"write\",\"file\":\"" + file + "\"}";
    Library library(folder.LibraryPath());
    std::unique_ptr<char[]> out(new char[204800]);
    {
        // The announcement is the first frame: the port goes with it, the stream finds none.
        Simulator gone(folder.PortLink(Port), {"--vanish-after", "1"});
        library.Get<ExecCall>("PosExec")(out.get(), write.c_str());
    }
    EXPECT_TRUE(Contains(folder.LogText(), "Com port lost"));
    Simulator back(folder.PortLink(Port));
    EXPECT_EQ(library.Get<ExecCall>("PosExec")(out.get(), "VERSION"), 1);
    EXPECT_STREQ(out.get(), "NEW6210 SIM 1.0");
}

TEST_F(Faults, AnyNonZeroLogModeSwitchesTheLogOn)
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

}  // namespace
