// The waits for the terminal, against the simulator: a cancel from a signal handler, ports that
// vanish under a wait, and a terminal that never answers.
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

constexpr int Port = SessionPort;
const Bytes Can = {0x18};

VoidCall* g_signalCancel = nullptr;
std::atomic<int> g_signals{0};

void CancelOnSignal(int)
{
    g_signalCancel();
    g_signals.fetch_add(1);
}

// The host's Ctrl-C handler calling PosCancel while the interrupted thread logs: every probe
// still succeeds (a cancel does not end the probe) and every cancel gets its line.
TEST(Waits, PosCancelFromASignalHandlerNeitherDeadlocksNorLosesItsLine)
{
    Session s;
    auto select = s.Get<VoidCall>("PosSelect");
    g_signalCancel = s.Get<VoidCall>("PosCancel");
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
    EXPECT_EQ(CountOf(s.folder.LogText(), "\tPos Cancel \r\n"), static_cast<size_t>(g_signals.load()));
    EXPECT_EQ(CountOf(s.terminal.Received(), Can), 0u);
}

// The terminal's port vanishes on the first frame, of a wait or of an upload: the call ends as
// after silence with nothing read (an upload fails), and once the port is back the next call
// opens it again.
TEST(Waits, AVanishedPortEndsTheCallAndTheNextCallOpensItAgain)
{
    const struct {
        std::string name;
        int vanished, back;
    } rows[] = {{"getVersion", 0, 15}, {"PosSelect", 1538, 0}, {"PosExec", -1, 1}};
    for (const auto& row : rows) {
        Workspace fresh;
        fresh.EnableLog(), fresh.UsePort(Port);
        const std::string file = fresh.Folder() + "/big.bin";
        RunCommand("head -c 300000 /dev/urandom > '" + file + "'");
        const std::string write = "{\"format\":\"FILE\",\"cmd\":\"write\",\"file\":\"" + file + "\"}";
        Library library(fresh.LibraryPath());
        std::vector<char> out(204800);
        auto call = [&](const std::string& exec) {
            if (row.name == "PosExec")
                return library.Get<int(char*, const char*)>("PosExec")(out.data(), exec.c_str());
            return row.name == "getVersion" ? library.Get<TextCall>("getVersion")(out.data())
                                            : library.Get<VoidCall>(row.name.c_str())();
        };
        {
            Simulator gone(fresh.PortLink(Port), {"--vanish-after", "1"});
            EXPECT_EQ(call(write), row.vanished) << row.name;
        }
        EXPECT_EQ(CountOf(fresh.LogText(), "\tCom port lost\r\n"), 1u) << row.name;
        Simulator back(fresh.PortLink(Port));
        EXPECT_EQ(call("VERSION"), row.back) << row.name;
        EXPECT_STREQ(out.data(), row.name == "PosSelect" ? "" : "NEW6210 SIM 1.0") << row.name;
    }
}

// A terminal that never answers, not even a CAN: the wait goes on past the cancel, and only
// the end of the port (here the simulator's) ends it.
TEST(Waits, ASilentTerminalIsWaitedForPastACancelUntilItsPortGoes)
{
    Workspace folder;
    folder.EnableLog(), folder.UsePort(Port);
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
