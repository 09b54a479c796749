// The waits for the terminal, against the simulator: where a reply ends, what a cancel does to
// a wait (from a thread, in bursts, from a signal handler), and ports that vanish under a wait.
#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "Harness.h"

namespace {

using VoidCall = int();
using TextCall = int(char*);

constexpr int Port = 7;
const Bytes VersionFrame = {0x02, 0x3B, 0x03, 0x3B};
const Bytes Can = {0x18};

size_t LogLines(const std::string& log, const std::string& text)
{
    std::string line = "\t" + text + "\r\n";
    return CountOf(Bytes(log.begin(), log.end()), Bytes(line.begin(), line.end()));
}

struct Waits : ::testing::Test {
    Workspace folder;
    void SetUp() override { folder.EnableLog(), folder.UsePort(Port); }
};

TEST_F(Waits, AReplyEndsWithItsFrameOrAfterFiveMillisecondsOfQuiet)
{
    struct Row {
        std::vector<std::string> options;
        Bytes text;  // what getVersion hands out
    };
    const Bytes whole = HexBytes("4E 45 57 36 32 31 30 20 53 49 4D 20 31 2E 30");
    const Row rows[] = {
        {{}, whole},                                  // the frame in one read
        {{"--split", "3:2"}, whole},                  // a pause shorter than the quiet
        {{"--siso", "--byte-pace", "2"}, whole},      // no frame rule for SI..SO: quiet alone
        {{"--split", "3:60"}, HexBytes("02 4E 45")},  // a longer pause ends it; dropped raw
        {{"--reply", "3B=06"}, {0x06}},               // a lone ACK: quiet ends it
    };
    for (const Row& row : rows) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), row.options);
        Library library(fresh.LibraryPath());
        char out[64] = {};
        int length = library.Get<TextCall>("getVersion")(out);
        EXPECT_EQ(Bytes(out, out + length), row.text) << row.options.size();
        EXPECT_EQ(terminal.Received(), VersionFrame);
    }
}

// A swipe that nobody makes, cancelled from another thread once its frame is out.
TEST_F(Waits, CancelsFromAnotherThreadWakeTheWaitAndPutOneCanOutPerServedRequest)
{
    for (int cancels : {1, 10}) {
        Workspace fresh;
        fresh.EnableLog(), fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--swipe-wait"});
        Library library(fresh.LibraryPath());
        auto cancel = library.Get<VoidCall>("MsreCancel");
        std::thread canceller([&] {
            terminal.WaitReceived(18);
            for (int i = 0; i < cancels; ++i)
                cancel();
        });
        char out[64] = {};
        EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), 1);
        canceller.join();

        size_t sent = CountOf(terminal.Received(), Can);
        EXPECT_GE(sent, 1u) << cancels;
        EXPECT_LE(sent, static_cast<size_t>(cancels));
        EXPECT_EQ(out[0], 0x18) << "the terminal's answer to the CAN ends the wait";
        std::string log = fresh.LogText();
        EXPECT_EQ(LogLines(log, "Pos Cancel "), static_cast<size_t>(cancels));
        EXPECT_LT(log.find("\tPos Cancel \r\n"), log.find("\t>18\r\n")) << log;
    }
}

VoidCall* g_signalCancel = nullptr;
std::atomic<int> g_signals{0};

void CancelOnSignal(int)
{
    g_signalCancel();
    g_signals.fetch_add(1);
}

// The host's Ctrl-C handler calling PosCancel while the interrupted thread logs: every probe
// still succeeds (a cancel does not end the probe) and every cancel gets its line.
TEST_F(Waits, PosCancelFromASignalHandlerNeitherDeadlocksNorLosesItsLine)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    auto select = library.Get<VoidCall>("PosSelect");
    g_signalCancel = library.Get<VoidCall>("PosCancel");
    g_signals = 0;
    struct sigaction action {}, previous{};
    action.sa_handler = CancelOnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, &previous);

    std::atomic<bool> stop{false};
    pthread_t caller = pthread_self();
    std::thread signaller([&] {
        while (!stop) {
            pthread_kill(caller, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    int failures = 0;
    for (int i = 0; i < 150; ++i)
        failures += select() != 0;
    stop = true;
    signaller.join();
    sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(select(), 0);  // logs, so the last deferred lines are written

    EXPECT_EQ(failures, 0);
    EXPECT_GT(g_signals.load(), 0);
    EXPECT_EQ(LogLines(folder.LogText(), "Pos Cancel "), static_cast<size_t>(g_signals.load()));
    EXPECT_EQ(CountOf(terminal.Received(), Can), 0u);
}

// The terminal's port vanishes on the first frame: the call ends as after silence with nothing
// read, and once the port is back the next call opens it again.
TEST_F(Waits, AVanishedPortEndsTheWaitAndTheNextCallOpensItAgain)
{
    struct Row {
        const char* name;
        int vanished, back;
    };
    for (const Row& row : {Row{"getVersion", 0, 15}, Row{"PosSelect", 1538, 0}}) {
        Workspace fresh;
        fresh.EnableLog(), fresh.UsePort(Port);
        Library library(fresh.LibraryPath());
        char out[64] = {};
        auto call = [&] { return row.name[0] == 'g' ? library.Get<TextCall>(row.name)(out)
                                                    : library.Get<VoidCall>(row.name)(); };
        {
            Simulator gone(fresh.PortLink(Port), {"--vanish-after", "1"});
            EXPECT_EQ(call(), row.vanished) << row.name;
        }
        EXPECT_EQ(LogLines(fresh.LogText(), "Com port lost"), 1u) << row.name;
        Simulator back(fresh.PortLink(Port));
        EXPECT_EQ(call(), row.back) << row.name;
    }
}

// A terminal that never answers, not even a CAN: the wait goes on past the cancel, and only
// the end of the port (here the simulator's) ends it.
TEST_F(Waits, ASilentTerminalIsWaitedForPastACancelUntilItsPortGoes)
{
    auto terminal = std::make_unique<Simulator>(folder.PortLink(Port), std::vector<std::string>{"--silent"});
    Library library(folder.LibraryPath());
    std::atomic<bool> returned{false};
    char out[64] = {};
    std::thread caller([&] {
        library.Get<TextCall>("getVersion")(out);
        returned = true;
    });
    ASSERT_TRUE(terminal->WaitReceived(VersionFrame.size()));
    library.Get<VoidCall>("PosCancel")();
    ASSERT_TRUE(terminal->WaitReceived(VersionFrame.size() + 1));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(returned);
    EXPECT_EQ(terminal->Received(), (Bytes{0x02, 0x3B, 0x03, 0x3B, 0x18}));

    terminal.reset();
    caller.join();
    EXPECT_STREQ(out, "");
    EXPECT_TRUE(Contains(folder.LogText(), "\tCom port lost\r\n"));
}

}  // namespace
