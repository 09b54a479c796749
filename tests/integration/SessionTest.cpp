// The session exports against the simulator: probe, port check, cancel, version, the stubs,
// and the shared addresses of names that are one routine.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "Harness.h"

namespace {

using VoidCall = int();
using PortCall = int(int);
using TextCall = int(char*);

const Bytes Probe = {0x02, 0x34, 0x03, 0x34};
const Bytes VersionFrame = {0x02, 0x3B, 0x03, 0x3B};
constexpr int Port = 7;

struct Session : ::testing::Test {
    Workspace folder;
    void SetUp() override { folder.EnableLog(); }
};

TEST_F(Session, CheckPortProbesSavesThePortAndLogsTheExchange)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());

    EXPECT_EQ(library.Get<PortCall>("PosCheckPort")(Port), 0);

    EXPECT_EQ(terminal.Received(), Probe);
    EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":7}");
    std::string log = folder.LogText();
    for (const char* line : {"load config error : ", "check device port 7",
                             "Open Port  was Successful : 7", ">02:34:03:34", "<06",
                             "Close Device was Successful"})
        EXPECT_TRUE(Contains(log, line)) << line << "\n" << log;
}

TEST_F(Session, EverySelectNameProbesOnceAndCloses)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());

    for (const char* name : {"PosSelect", "PinSelect", "MsreSelect"})
        EXPECT_EQ(library.Get<VoidCall>(name)(), 0) << name;

    EXPECT_EQ(CountOf(terminal.Received(), Probe), 3u);
    std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "Port : 7"));
    EXPECT_EQ(CountOf(Bytes(log.begin(), log.end()), HexBytes("436C6F7365204465766963652077617320")), 3u)
        << "three \"Close Device was \" lines";
}

TEST_F(Session, CheckPortUnderEveryNameStoresThePort)
{
    Simulator terminal(folder.PortLink(4));
    for (const char* name : {"PosCheckPort", "PinCheckPort", "MsreCheckPort"}) {
        Library library(folder.LibraryPath());
        folder.WriteConfig("varnik.json", "{}");
        EXPECT_EQ(library.Get<PortCall>(name)(4), 0) << name;
        EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":4}") << name;
    }
}

TEST_F(Session, WithoutAPortEveryCallAnswers110AndLeavesTheBufferAlone)
{
    Library library(folder.LibraryPath());
    char out[16] = "untouched";

    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 110);
    EXPECT_EQ(library.Get<TextCall>("getVersion")(out), 110);
    EXPECT_STREQ(out, "untouched");
    EXPECT_TRUE(Contains(folder.LogText(), "3in1 port not found"));
}

TEST_F(Session, APortThatWillNotOpenGives110AndIsNotSaved)
{
    folder.WriteConfig("varnik.json", "{\"port\":-1}");
    Library library(folder.LibraryPath());

    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 110);
    EXPECT_EQ(library.Get<PortCall>("PosCheckPort")(9), 110);  // no COM9 link

    std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "Invalid Handle Value: "));
    EXPECT_TRUE(Contains(log, "Open Port Failed : -1"));
    EXPECT_TRUE(Contains(log, "Open Port Failed : 9"));
    EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":-1}");
}

TEST_F(Session, ASilentPortGives1538AfterTwoWindowsWithTwoProbes)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--silent"});
    Library library(folder.LibraryPath());

    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 1538);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    EXPECT_GT(seconds, 3.9);
    EXPECT_LT(seconds, 6.0);
    EXPECT_EQ(terminal.Received(), (Bytes{0x02, 0x34, 0x03, 0x34, 0x02, 0x34, 0x03, 0x34}));
    EXPECT_EQ(folder.ReadConfig("varnik.json"), "{\"port\":7}");
}

TEST_F(Session, BytesOtherThanAckAreIgnoredDuringTheProbe)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--garbage", "15:41:18"});
    Library library(folder.LibraryPath());

    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 0);
    EXPECT_EQ(CountOf(terminal.Received(), Probe), 1u);
}

TEST_F(Session, VersionReturnsTheTerminalsTextAndItsLength)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--version-text", "NEW6210 V2.31"});
    Library library(folder.LibraryPath());
    char out[64];
    std::memset(out, 'x', sizeof out);

    EXPECT_EQ(library.Get<TextCall>("getVersion")(out), 13);

    EXPECT_STREQ(out, "NEW6210 V2.31");
    EXPECT_EQ(terminal.Received(), VersionFrame);
    std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "\tNEW6210 V2.31\r\n"));
}

// Replies that must come out the same, however the line delivers them.
TEST_F(Session, VersionSurvivesEveryFormOfDelivery)
{
    const std::vector<std::vector<std::string>> deliveries = {
        {"--bad-check"},
        {"--siso"},
        {"--byte-pace", "1"},
        {"--throttle"},
        {"--delay", "300"},
    };
    folder.UsePort(Port);
    for (const auto& options : deliveries) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), options);
        Library library(fresh.LibraryPath());
        char out[64] = {};
        EXPECT_EQ(library.Get<TextCall>("getVersion")(out), 15) << options[0];
        EXPECT_STREQ(out, "NEW6210 SIM 1.0") << options[0];
    }
}

TEST_F(Session, AFrameSplitByAPauseIsDroppedAndItsTailDrainedByTheNextCall)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--split", "3:200"});
    Library library(folder.LibraryPath());
    char out[64];
    std::memset(out, 0, sizeof out);

    // The silence rule ends the reply after three bytes; it is not a frame, so nothing is
    // taken, and rxBuffer (still raw) is what the version copies out.
    EXPECT_EQ(library.Get<TextCall>("getVersion")(out), 3);
    EXPECT_EQ(Bytes(out, out + 3), (Bytes{0x02, 'N', 'E'}));
    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 0);
}

TEST_F(Session, ACancelFromAnotherThreadPutsExactlyOneCanOnTheLine)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--hold", "3B"});
    Library library(folder.LibraryPath());
    auto cancel = library.Get<VoidCall>("PinCancel");
    char out[64] = {};

    std::thread canceller([&] {
        terminal.WaitReceived(VersionFrame.size());
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cancel();
    });
    int length = library.Get<TextCall>("getVersion")(out);
    canceller.join();

    // The terminal answers CAN with CAN; that single byte is the reply.
    EXPECT_EQ(length, 1);
    EXPECT_EQ(static_cast<uint8_t>(out[0]), 0x18);
    EXPECT_EQ(terminal.Received(), (Bytes{0x02, 0x3B, 0x03, 0x3B, 0x18}));
    EXPECT_TRUE(Contains(folder.LogText(), "Pos Cancel "));
}

TEST_F(Session, ACancelBetweenCallsIsWipedByTheNextOpen)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    char out[64] = {};

    EXPECT_EQ(library.Get<VoidCall>("MsreCancel")(), 0);
    EXPECT_EQ(library.Get<TextCall>("getVersion")(out), 15);
    EXPECT_EQ(CountOf(terminal.Received(), {0x18}), 0u);
}

TEST_F(Session, AnOversizedReplyNeverRunsPastTheReceiveBuffer)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--oversize", "300000"});
    Library library(folder.LibraryPath());
    std::vector<char> out(1 << 20, 0);

    int length = library.Get<TextCall>("getVersion")(out.data());
    EXPECT_GT(length, 0);
    EXPECT_LT(length, 204800);
    // The rest of the reply is drained by the next call, which still works.
    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 0);
}

TEST_F(Session, MsreWriteClearsOnlyTheFirstByte)
{
    Library library(folder.LibraryPath());
    char buffer[4] = {'a', 'b', 'c', 0};

    EXPECT_EQ(library.Get<TextCall>("MsreWrite")(buffer), 0);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(std::string(buffer + 1), "bc");
}

TEST_F(Session, NamesOfOneRoutineShareOneAddress)
{
    Library library(folder.LibraryPath());
    EXPECT_EQ(library.Symbol("PinSelect"), library.Symbol("MsreSelect"));
    EXPECT_EQ(library.Symbol("PinCheckPort"), library.Symbol("MsreCheckPort"));
    EXPECT_EQ(library.Symbol("PosCancel"), library.Symbol("PinCancel"));
    EXPECT_EQ(library.Symbol("PosCancel"), library.Symbol("MsreCancel"));
    void* copy = library.Symbol("_ZN8CBrelmataSERKS_");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy, library.Symbol("_ZN8CBrelmataSEOS_"));
    EXPECT_NE(library.Symbol("PosSelect"), library.Symbol("PinSelect"));
    // Internals stay inside.
    EXPECT_EQ(library.Symbol("OpenDevice"), nullptr);
    EXPECT_EQ(library.Symbol("WriteLog"), nullptr);
}

TEST_F(Session, WithTheLogSwitchedOffNoLogFolderAppears)
{
    Workspace quiet;
    quiet.UsePort(Port);
    Simulator terminal(quiet.PortLink(Port));
    Library library(quiet.LibraryPath());

    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 0);
    EXPECT_FALSE(quiet.HasLogFolder());
}

}  // namespace
