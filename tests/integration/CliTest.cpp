// The command-line host as a user runs it: the varnik program with --lib on a fresh copy of
// the library, against the simulated terminal, one row per command: the printed text, the exit
// status, the files written, and that an argument reached the terminal.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>

#include "Harness.h"

namespace {

const std::string NoPort = "No port known or it would not open (110).\n";
const std::string Answered = "Terminal answered on port 7.\n";

std::string FileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// varnik ARGS in the workspace folder, so that default output files land there. A hang ends
// by the timeout, which fails the test with status 124.
int Varnik(const Workspace& folder, const std::string& args, std::string* output)
{
    return RunCommand("cd '" + folder.Folder() + "' && timeout 30 '" BINARY_DIR "/varnik' --lib '" +
                          folder.LibraryPath() + "' " + args + " 2>/dev/null",
                      output);
}

// The redirection needs the system's pcsc-lite to hook.
bool PcscAvailable()
{
    void* pcsc = dlopen("libpcsclite.so.1", RTLD_NOW | RTLD_LOCAL);
    if (pcsc != nullptr)
        dlclose(pcsc);
    return pcsc != nullptr;
}

TEST(Cli, EachCommandAgainstTheSimulator)
{
    std::string kokai;  // KO KAI 10240 times: one byte too many for the library's work area
    for (int i = 0; i < 10240; ++i)
        kokai += "\xE0\xB8\x81";
    const struct {
        std::string args;
        std::string config;
        Options options;
        int status;
        std::vector<std::string> output;  // one item: the whole text; more: parts of it
        std::string sent = "";               // a text the terminal must have received
        std::string file = "", fileStart = "";  // a file written, and how it starts
    } rows[] = {
        {"probe", "", {}, 3, {NoPort, "varnik.json is missing or empty: no port is set"}},
        {"checkport 9", Port7, {}, 3, {NoPort, "config/COM9: it does not exist"}},
        {"--help", "", {}, 0, {"110", "1538   no terminal answered", "config/varnik.json", "VARNIK_LIBRARY", "--lib"}},
        {"--version", "", {}, 0, {"varnik 1.", "\nlibrary (no version) /"}},  // a copy without the .so.N name
        // The library would wait for ever; varnik gives up 3 s after its cancel.
        {"--timeout 1 version", Port7, {"--silent"}, 5, {"within 1 s: cancelled", "the cancel either"}},
        {"checkport 7", "", {}, 0, {Answered}, "", "config/varnik.json", Port7},
        {"version", Port7, {"--version-text", "NEW6210 TEST 2.4"}, 0, {"NEW6210 TEST 2.4\n"}},
        {"swipe", Port7, {}, 0,
         {"Swipe a card on the terminal.\nB4111111111111111D2512101FC|B4111111111111111D2512FC\n"
          "Track 1: B4111111111111111D2512101FC\nTrack 2: B4111111111111111D2512FC\n"}},
        {"pinclear 'Amount 100'", Port7, {"--pin", "A1B2C3D4E5F60718"}, 0,
         {"Enter the PIN on the terminal.\nA1B2C3D4E5F60718\n"}, "pinclear.json|Amount 100"},
        {"thaiid", Port7, {}, 0,
         {"Citizen ID:   1234567890121\n", "Thai name:    นาย สมชาย ใจดี\n",
          "English name: Mr. Somchai Jaidee\n", "Birth date:   2530-01-15 B.E. (1987-01-15)\n",
          "Sex:          male\n"}},
        {"thaiid --mode 2 --out card.bin", Port7, {}, 0,
         {"00000000  31 32 33 34 35 36 37 38  39 30 31 32 31 7C", " bytes to card.bin.\n"}, "",
         "card.bin", "1234567890121|"},
        // A text the library would end the process for is refused; the largest it holds is not.
        {"thailen " + std::string(10239, 'a'), "", {}, 0, {"10239\n"}},
        {"thailen " + kokai, "", {}, 1, {""}},
        // The file commands reach the terminal's store: a folder named relative to the till.
        {"upload up", Port7, {"--files", ""}, 0, {"9 bytes in 1 file", "Done: the terminal answered"}, "/up/sub/digits.txt"},
        {"files", Port7, {"--files", "a.bin:3"}, 0, {"a.bin 3\n"}},
        {"rm a.bin", Port7, {"--files", "a.bin:3"}, 0, {}, "a.bin"},
        {"pcsc apdu 00A4040008A000000054480001", Port7, {}, 0, {"Reader:       NEW6210 Reader Card\n", "< SW 61 0A\n> 00 C0 00 00 0A\n< "}},
        {"pcsc thaiid", Port7, {}, 0,
         {"Citizen ID:   1234567890121\n", "Issuer:       ท้องถิ่นเขตตัวอย่าง/กรุงเทพมหานคร\n",
          "(JPEG) written to thaiid.jpg.\n"}, "", "thaiid.jpg", "\xFF\xD8"},
        {"pcsc thaiid --photo none.jpg", Port7, {"--card", "out"}, 3,
         {"No card in NEW6210 Reader Card: SCARD_E_NO_SMARTCARD (0x8010000C).\n"}, "", "none.jpg", ""},
    };
    for (const auto& row : rows) {
        if (row.args.rfind("pcsc", 0) == 0 && !PcscAvailable())
            continue;
        SCOPED_TRACE(row.args.substr(0, 40));
        Session s(row.options, row.config);
        RunCommand("mkdir -p '" + s.folder.Folder() + "/up/sub' && printf 123456789 > '" + s.folder.Folder() +
                   "/up/sub/digits.txt'");
        std::string output;

        EXPECT_EQ(Varnik(s.folder, row.args, &output), row.status);

        if (row.output.size() == 1) {
            EXPECT_EQ(output, row.output[0]);
        }
        for (const std::string& part : row.output)
            EXPECT_TRUE(Contains(output, part)) << part << "\n" << output;
        const Bytes sent = s.terminal.Received();
        EXPECT_TRUE(Contains(std::string(sent.begin(), sent.end()), row.sent));
        if (!row.file.empty()) {
            const std::string text = FileText(s.folder.Folder() + "/" + row.file);
            EXPECT_EQ(row.fileStart.empty() ? text : text.substr(0, row.fileStart.size()), row.fileStart);
        }
    }
}

// Ctrl-C during a wait: the terminal gets its CAN, the program says so and exits with 4. A
// folder upload stops after the file on its way, and the program names what was stored.
TEST(Cli, CtrlCCancelsAWait)
{
    const struct {
        const char* command;
        size_t waiting;  // bytes the terminal holds once the command waits
        const char* said;
    } rows[] = {{"swipe", 18, ""}, {"pin", 17, ""},
                {"upload pair", 83 + 19 + 1000, "stored 1 file before the cancel:\n  "}};  // "9S", "9W", a part
    for (const auto& row : rows) {
        Session s({"--swipe-wait", "--pin-wait", "--throttle"});
        RunCommand("cd '" + s.folder.Folder() + "' && mkdir pair && head -c 100000 /dev/zero | tr '\\0' p > pair/p.bin && "
                   "cp pair/p.bin pair/q.bin");
        // The shell's number, which exec hands on to the program.
        FILE* program = popen(("echo $$; cd '" + s.folder.Folder() + "' && exec '" BINARY_DIR "/varnik' --lib '" +
                               s.folder.LibraryPath() + "' " + row.command).c_str(), "r");
        int pid = 0;
        ASSERT_EQ(std::fscanf(program, "%d", &pid), 1);
        EXPECT_TRUE(s.terminal.WaitReceived(row.waiting, 10000)) << row.command;
        kill(pid, SIGINT);
        std::string output;
        for (int c; (c = std::fgetc(program)) != EOF;)
            output += static_cast<char>(c);
        const int status = pclose(program);

        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 4) << row.command;
        EXPECT_TRUE(Contains(output, "Cancelled.\n") && Contains(output, row.said)) << row.command << output;
        EXPECT_TRUE(s.terminal.WaitReceived(row.waiting + 1)) << row.command;
        EXPECT_EQ(CountOf(s.terminal.Received(), Bytes{0x18}), 1u) << row.command;
    }
}

}  // namespace
