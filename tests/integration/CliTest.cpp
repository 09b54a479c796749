// The command-line host as a user runs it: the varnik program with --lib on a fresh copy of
// the library, against the simulated terminal. What is checked is what a user sees: the
// printed lines, the exit status and the files written. Frames are looked at only to see that
// an argument reached the terminal; the rest of them is the card tests' matter.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

constexpr int Port = 7;

struct CliRun {
    int status;
    std::string output;
};

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

Bytes FileBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

struct Cli : ::testing::Test {
    Workspace folder;

    void SetUp() override { folder.EnableLog(); }

    // varnik ARGS in the workspace folder, so that default output files land there. A hang
    // ends by the timeout, which fails the test with status 124.
    CliRun Varnik(const std::string& args, const std::string& prefix = "timeout 30")
    {
        CliRun run;
        run.status = RunCommand("cd " + Quoted(folder.Folder()) + " && " + prefix + " " +
                                    Quoted(BINARY_DIR "/varnik") + " --lib " +
                                    Quoted(folder.LibraryPath()) + " " + args,
                                &run.output);
        return run;
    }

    // varnik COMMAND in the background, interrupted as by a user's Ctrl-C once the terminal
    // holds `received` bytes: by then the command is surely in its wait.
    CliRun Interrupted(const Simulator& terminal, const char* command, size_t received)
    {
        int out[2];
        if (pipe(out) != 0)
            return CliRun{-1, ""};
        pid_t pid = fork();
        if (pid == 0) {
            dup2(out[1], STDOUT_FILENO);
            close(out[0]);
            close(out[1]);
            if (chdir(folder.Folder().c_str()) == 0)
                execl(BINARY_DIR "/varnik", "varnik", "--lib", folder.LibraryPath().c_str(), command,
                      static_cast<char*>(nullptr));
            _exit(127);
        }
        close(out[1]);
        EXPECT_TRUE(terminal.WaitReceived(received, 10000)) << command;
        kill(pid, SIGINT);
        CliRun run{-1, ""};
        char block[4096];
        ssize_t count;
        while ((count = read(out[0], block, sizeof block)) > 0)
            run.output.append(block, static_cast<size_t>(count));
        close(out[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return run;
    }

    // The redirection needs ReaderSelect in the library and the system's pcsc-lite to hook.
    bool PcscAvailable()
    {
        Library library(folder.LibraryPath());
        if (library.Symbol("ReaderSelect") == nullptr)
            return false;
        void* pcsc = dlopen("libpcsclite.so.1", RTLD_NOW | RTLD_LOCAL);
        if (pcsc == nullptr)
            return false;
        dlclose(pcsc);
        return true;
    }
};

} // namespace

TEST_F(Cli, SessionCommandsReportTheTerminalAndExitWithItsStatus)
{
    Simulator terminal(folder.PortLink(Port), {"--version-text", "NEW6210 TEST 2.4"});
    struct {
        std::string args;
        int status;
        std::string output;
    } steps[] = {
        {"probe", 3, "No port known or it would not open (110).\n"},
        {"checkport 3", 3, "No port known or it would not open (110).\n"},
        {"checkport 7", 0, "Terminal answered on port 7.\n"},
        // checkport remembered the port for later loads.
        {"probe", 0, "Terminal answered on port 7.\n"},
        {"version", 0, "NEW6210 TEST 2.4\n"},
        {"checkport seven", 1, ""},
        {"nosuchcommand", 1, ""},
    };
    for (const auto& step : steps) {
        CliRun run = Varnik(step.args + " 2>/dev/null");
        EXPECT_EQ(run.status, step.status) << step.args;
        EXPECT_EQ(run.output, step.output) << step.args;
    }
    EXPECT_TRUE(Contains(folder.ReadConfig("varnik.json"), "7"));
}

TEST_F(Cli, ASilentTerminalIsReportedAsNoTerminal)
{
    Simulator terminal(folder.PortLink(Port), {"--silent"});
    CliRun run = Varnik("checkport 7");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output, "No terminal answered (1538).\n");
}

TEST_F(Cli, SwipePrintsTheTracksAndEachOnItsOwn)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    CliRun run = Varnik("swipe");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "Swipe a card on the terminal.\n"
                          "B4111111111111111D2512101FC|B4111111111111111D2512FC\n"
                          "Track 1: B4111111111111111D2512101FC\n"
                          "Track 2: B4111111111111111D2512FC\n");
}

TEST_F(Cli, PinAndPinClearPrintTheKeypadsAnswer)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--pin", "A1B2C3D4E5F60718"});
    CliRun run = Varnik("pin");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "Enter the PIN on the terminal.\nA1B2C3D4E5F607180000000000000000\n");
    run = Varnik("pinclear 'Amount 100'");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "Enter the PIN on the terminal.\nA1B2C3D4E5F60718\n");
    EXPECT_EQ(CountOf(terminal.Received(), HexBytes("7069 6E63 6C65 6172 2E6A 736F 6E7C"
                                                    "416D 6F75 6E74 2031 3030 00")),
              1u) << "pinclear.json|Amount 100";
}

TEST_F(Cli, ThaiIdPrintsTheRecordFieldByField)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    CliRun run = Varnik("thaiid");
    EXPECT_EQ(run.status, 0);
    for (const char* line : {"Citizen ID:   1234567890121\n", "Thai name:    นาย สมชาย ใจดี\n",
                             "English name: Mr. Somchai Jaidee\n",
                             "Birth date:   2530-01-15 B.E. (1987-01-15)\n", "Sex:          male\n"})
        EXPECT_TRUE(Contains(run.output, line)) << line << run.output;
}

TEST_F(Cli, ThaiIdBlockIsDumpedAndWrittenToAFile)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    CliRun run = Varnik("thaiid --mode 2 --out card.bin");
    EXPECT_EQ(run.status, 0);
    const Bytes block = FileBytes(folder.Folder() + "/card.bin");
    ASSERT_GT(block.size(), 5118u);   // the record and the photo
    const std::string start = "1234567890121|";
    EXPECT_EQ(std::string(block.begin(), block.begin() + start.size()), start);
    EXPECT_TRUE(Contains(run.output, "00000000  31 32 33 34 35 36 37 38  39 30 31 32 31 7C"));
    EXPECT_TRUE(Contains(run.output, "Wrote " + std::to_string(block.size()) + " bytes to card.bin."));
}

TEST_F(Cli, CtrlCCancelsAWaitAndTheTerminalIsToldSo)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--swipe-wait", "--pin-wait"});
    // The swipe frame is 18 bytes and the PIN entry's 17; each wait adds one CAN.
    struct Step {
        const char* command;
        size_t receivedWhenWaiting;
    } steps[] = {{"swipe", 18}, {"pin", 18 + 1 + 17}};
    for (const Step& step : steps) {
        CliRun run = Interrupted(terminal, step.command, step.receivedWhenWaiting);
        EXPECT_EQ(run.status, 4) << step.command;
        EXPECT_TRUE(Contains(run.output, "Cancelled.\n")) << step.command << run.output;
    }
    EXPECT_EQ(CountOf(terminal.Received(), {0x18}), 2u);
}

TEST_F(Cli, PcscListsTheReaderAndReadsTheThaiIdCard)
{
    if (!PcscAvailable())
        GTEST_SKIP() << "no ReaderSelect in the library, or no libpcsclite.so.1";
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));

    CliRun run = Varnik("pcsc readers");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "NEW6210 Reader Card\n");

    run = Varnik("pcsc atr");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "Reader:       NEW6210 Reader Card\n"
                          "ATR:          3B 68 00 00 54 48 20 4E 49 44 20 36\n");

    run = Varnik("pcsc apdu 00A4040008A000000054480001");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(Contains(run.output, "< SW 61 0A\n> 00 C0 00 00 0A\n< ")) << run.output;

    run = Varnik("pcsc thaiid");
    EXPECT_EQ(run.status, 0);
    for (const char* line : {"Citizen ID:   1234567890121\n", "Thai name:    นาย สมชาย ใจดี\n",
                             "Issuer:       ท้องถิ่นเขตตัวอย่าง/กรุงเทพมหานคร\n",
                             "(JPEG) written to thaiid.jpg.\n"})
        EXPECT_TRUE(Contains(run.output, line)) << line << run.output;
    const Bytes photo = FileBytes(folder.Folder() + "/thaiid.jpg");
    ASSERT_GE(photo.size(), 4u);
    EXPECT_EQ(Bytes(photo.begin(), photo.begin() + 2), HexBytes("FF D8"));
    EXPECT_EQ(Bytes(photo.end() - 2, photo.end()), HexBytes("FF D9"));
    EXPECT_TRUE(Contains(folder.LogText(), "Redirection WinCard completed"));
}

TEST_F(Cli, PcscWithoutACardOrATerminalSaysWhich)
{
    if (!PcscAvailable())
        GTEST_SKIP() << "no ReaderSelect in the library, or no libpcsclite.so.1";
    CliRun run = Varnik("pcsc readers");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output, "No port known or it would not open (110).\n");

    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--card", "out"});
    run = Varnik("pcsc thaiid --photo none.jpg");
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output,
              "No card in NEW6210 Reader Card: SCARD_E_NO_SMARTCARD (0x8010000C).\n");
    EXPECT_TRUE(FileBytes(folder.Folder() + "/none.jpg").empty());
}
