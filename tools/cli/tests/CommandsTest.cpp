// The commands against a stand-in library whose exports write what a row gives into the
// caller's buffer: what the program prints, its exit status, what reached the library (a
// port, a mode, a key, the document of PosExec) and what it wrote, for answers the simulator
// can't be made to give (a text of exactly 110 bytes, a result that disagrees with the text, a
// port failure behind a result of 110). The real program against the simulator is run by the
// integration tests.
#include "CommandSupport.h"
#include "Console.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <unistd.h>

namespace {

// The stand-in library's folder, with an upload folder beside it holding up/sub/a.bin.
const std::string Till = (std::filesystem::temp_directory_path() /
                          ("varnik-cli-" + std::to_string(getpid()))).string();
const std::string UpFile = Till + "/up/sub/a.bin";

struct Fake {
    int result = 0;
    std::string reply;   // copied into the caller's buffer as it is; empty: the buffer is left
    std::string input;   // what the call got: port, mode, prompt or key
    int calls = 0;
    bool silent = false;   // the call ends only on a cancel
} g;
std::atomic<bool> g_cancelled{false};

int Answer(void* out, const std::string& input)
{
    ++g.calls;
    g.input = input;
    while (g.silent && !g_cancelled)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (out != nullptr)
        std::memcpy(out, g.reply.data(), g.reply.size());
    return g.result;
}
int VARNIK_CALL Select() { return Answer(nullptr, "select"); }
int VARNIK_CALL CheckPort(int port) { return Answer(nullptr, std::to_string(port)); }
int VARNIK_CALL Cancel() { return g_cancelled = true, 0; }
int VARNIK_CALL ReadText(char* out) { return Answer(out, ""); }
int VARNIK_CALL ReadBytes(unsigned char* out) { return Answer(out, ""); }
int VARNIK_CALL ReadKeyClear(char* inOut) { return Answer(inOut, inOut); }
int VARNIK_CALL Exec(char* out, const char* command) { return Answer(out, command); }
int VARNIK_CALL LoadKey(unsigned char* key) { return Answer(key, HexText(key, 16, "")); }
int VARNIK_CALL ThaiId(char* out, int mode) { return Answer(out, "mode " + std::to_string(mode)); }
int VARNIK_CALL ThaiLength(const char* text) { return static_cast<int>(std::strlen(text)) * 10; }

std::string Z(const std::string& text) { return text + '\0'; }

const std::string Pin = "Enter the PIN on the terminal.\n";
const std::string Swipe = "Swipe a card on the terminal.\n";
const std::string Insert = "Insert a Thai ID card in the terminal.\n";
const std::string NoPort = "No port known or it would not open (110).\n";

struct Row {
    const char* command;
    std::vector<std::string> args;
    int result;
    std::string reply;
    int status;
    std::string out;        // the whole output; "..." before it: a part of it
    std::string input = ""; // what the library got, when it matters
    std::string file = "";  // "name:hex" of the file written
    bool cancel = false;    // Ctrl-C during the wait
    std::string config = "{\"port\":7}";
    bool silent = false;    // the terminal answers only a cancel; --timeout 1
};

const std::string Key = "00112233445566778899AABBCCDDEEFF";

const Row Rows[] = {
    {"probe", {}, 0, "", ExitOk, "Terminal answered.\n", "", "", false, "{\"name\":\"X\"}"},
    {"PROBE", {}, 0, "", ExitOk, "Terminal answered on port 7.\n"},
    {"checkport", {"-1"}, -790, "", ExitTerminal,
     "The library answered with the unexpected result -790.\n", "-1"},
    // 110 is a text's length or the port failure; only the untouched buffer tells them apart.
    {"version", {}, 110, Z(std::string(110, 'V')), ExitOk, std::string(110, 'V') + "\n"},
    {"version", {}, 110, "", ExitTerminal, NoPort},
    {"version", {}, 0, Z(""), ExitTerminal, "The terminal gave no version text.\n"},
    {"version", {}, 3, Z("ABCDEF"), ExitOk, "ABCDEF\n"},
    {"version", {}, 1, Z("\x18"), ExitCancelled, "...Cancelled.", "", "", true},
    {"version", {}, 1, Z("\x18"), ExitTimedOut, "No answer from the terminal within 1 s: cancelled.\n",
     "", "", false, "{}", true},
    {"pin", {}, 0, "\x12\x34\x56\x78\x90\xAB\xCD\xEF", ExitOk,
     Pin + "1234567890ABCDEF0000000000000000\n"},
    {"pin", {}, 110, "", ExitTerminal, Pin + NoPort},
    {"pinclear", {}, 0, Z("\x12\x34\x56\x78\x90\xAB\xCD\xEF"), ExitOk, Pin + "1234567890ABCDEF\n",
     ""},
    {"loadkey", {"00112233445566778899aabbccddeeff"}, 0, "\x06", ExitOk,
     "The terminal replied 06 (ACK).\n", Key},
    {"loadkey", {Key}, 0, "\x15", ExitTerminal, "The terminal replied 15 (NAK).\n", Key},
    {"loadkey", {Key}, 0, Z("KEY LOADED"), ExitOk, "The terminal replied \"KEY LOADED\".\n"},
    {"loadkey", {Key}, 0, Z("\x01\x02"), ExitOk, "The terminal replied 01 02.\n"},
    {"swipe", {}, 6, Z("|B78FF"), ExitOk, Swipe + "|B78FF\nTrack 1: (empty)\nTrack 2: B78FF\n"},
    {"swipe", {}, 10, Z("READ ERROR"), ExitOk, Swipe + "READ ERROR\n"},
    {"swipe", {}, 1, Z("\x18"), ExitCancelled, Swipe + "Cancelled.\n", "", "", true},
    {"thaiid", {"--mode", "5"}, 12, Z("CARD ERROR|2"), ExitOk, Insert + "CARD ERROR|2\n",
     "mode 5"},
    {"thaiid", {"--mode", "2"}, 5, "ABC\xFF\xD8", ExitOk, "...00000000  41 42 43 FF D8",
     "mode 2", "thaiid.bin:414243FFD8"},
    {"thaiid", {"--out=card.bin", "--mode=-1"}, 2, "AB", ExitOk,
     "...Wrote 2 bytes to card.bin.", "mode -1", "card.bin:4142"},
    {"thaiid", {"--mode", "2"}, 110, std::string(110, 'A'), ExitOk, "...Wrote 110 bytes",
     "mode 2"},
    {"thaiid", {"--mode", "3"}, 110, "", ExitTerminal, Insert + NoPort, "mode 3"},
    {"exec", {"version"}, 1, Z("NEW6210 SIM"), ExitOk, "Result: 1\nReply: NEW6210 SIM\n", "version"},
    {"exec", {"{}"}, -2, Z(""), ExitTerminal, "...Result: -2\nThe command failed (-2)", "{}"},
    {"exec", {R"({"format":"BEEP",})"}, -2, Z(""), ExitTerminal, "...(-2): the text is not JSON (it goes wrong at byte 17)"},
    {"exec", {R"({"format":"BOOP"})"}, 0, Z(""), ExitOk, "...Warning: \"format\" \"BOOP\" is no command"},
    {"exec", {R"({"format":"file","cmd":"write","file":"/no/such"})"}, 0, Z(""), ExitOk,
     "...Warning: the host file /no/such cannot be opened"},
    {"exec", {"x"}, -790, Z(""), ExitTerminal, "...Result: -790\nThe port was not open", "x"},
    {"files", {}, 0, Z(""), ExitOk, "The terminal lists no files.\n"},
    {"rm", {"we\"ird\\x"}, 0, Z(""), ExitOk, "The terminal was told to delete we\"ird\\x.\n",
     R"({"format":"FILE","cmd":"del","file":"we\"ird\\x"})"},
    {"upload", {UpFile}, 0, Z(""), ExitOk, "...Uploading " + UpFile + ": 10 bytes, 0.0 s",
     R"({"format":"FILE","cmd":"write","file":)" + JsonString(UpFile) + "}"},
    {"upload", {UpFile}, -1, Z(""), ExitTerminal, "...Uploading"},
    {"upload", {Till + "/big"}, -1, Z(""), ExitTerminal, "...820 files takes about 2"},
    // The library prefixes "input" with its own folder.
    {"upload", {Till + "/up"}, 0, Z(""), ExitOk, "...Uploading " + Till + "/up: 10 bytes in 1 file,",
     R"({"format":"UPLOAD","input":"../up"})"},
    // A cancel after the last answer stops nothing; one between files lists what was stored.
    {"upload", {UpFile}, 0, Z(""), ExitOk, "...The cancel came too late: the file was sent.\nDone", "", "", true},
    {"upload", {Till + "/up"}, -1, Z(""), ExitCancelled, "...stored no file of the folder before the cancel.\nCancelled.",
     "", "", true},
    {"script", {R"({"format":"PINPAD"})"}, 0, Z("DONE"), ExitOk, "DONE\n", R"(@{"format":"PINPAD"})"},
    {"script", {"@/no/such"}, -2, Z(""), ExitTerminal, "...(-2): its file /no/such could not be read", "@/no/such"},
    {"script", {"{\"a\":[1,}"}, -2, Z(""), ExitTerminal, "...(-2): the text is not JSON (it goes wrong at byte 8)"},
    {"script", {"@@doc.json"}, -3, Z(""), ExitTerminal, "...The script failed (-3)", "@@doc.json"},
    {"script", {"{}"}, -1, Z(""), ExitTerminal, "...The script failed (-1)", "@{}"},
};

// Usage mistakes end before the library is loaded.
const std::pair<std::vector<std::string>, const char*> Mistakes[] = {
    {{"checkport", "seven"}, "needs a port number, not 'seven'"},
    {{"checkport", "99999999999"}, "needs a port number"},
    {{"checkport"}, "varnik checkport N"},
    {{"probe", "x"}, "usage: varnik probe"},
    {{"pinclear", "@LIST"}, "may not begin with '@'"},
    {{"pinclear", std::string(1024, 'P')}, "longer than 1023 bytes"},
    {{"loadkey", Key.substr(2)}, "32 hexadecimal digits"},
    {{"loadkey", Key.substr(1) + "G"}, "32 hexadecimal digits"},
    {{"thaiid", "--mode", "two"}, "--mode needs a whole number"},
    {{"thaiid", "--mode=5", "--out=x.bin"}, "--out is for modes 2 and 3"},
    {{"pcsc", "apdu", "00A404"}, "apdu needs a command"},
    {{"pcsc", "list"}, "usage: varnik pcsc"},
    {{"upload", Till + "/nothing"}, "is no readable file or folder"},
    {{"rm", ""}, "rm needs the name of a file"},
};

struct Result {
    int status = -1, loads = 0;
    std::ostringstream out, err;
    std::map<std::string, ByteString> written;
};

void Execute(const std::vector<std::string>& words, const std::string& config, bool cancel,
                Result& run, bool loadable = true, bool silent = false)
{
    static LoadedLibrary library;
    library.path = Till + "/lib/libvarnik.so";
    library.api = VarnikApi{Select, CheckPort, Cancel, ReadText, Exec, LoadKey, ReadBytes,
                            ReadKeyClear, ReadText, ReadText, ThaiId, ThaiLength, nullptr};
    CommandContext context(run.out, run.err);
    context.args.assign(words.begin() + 1, words.end());
    context.timeoutSeconds = silent ? 1 : -1;
    context.whileTicking = RunWhileTicking;
    context.load = [&]() -> const LoadedLibrary* {
        ++run.loads;
        return loadable ? &library : nullptr;
    };
    bool cancelled = false;
    context.beginWait = [&](const VarnikApi&) { cancelled = cancel; };
    context.endWait = [&] { return cancelled; };
    context.readFile = [&](const std::string& path, std::string& content) {
        content = config;
        return path == Till + "/lib/config/varnik.json";
    };
    context.writeFile = [&](const std::string& path, const ByteString& content) {
        run.written[path] = content;
        return true;
    };
    const Command* command = FindCommand(words[0]);
    ASSERT_NE(command, nullptr) << words[0];
    run.status = RunCommand(*command, context);
}

TEST(Commands, EveryCommandAgainstTheLibrarysAnswers)
{
    std::filesystem::create_directories(Till + "/up/sub");
    std::ofstream(UpFile) << "0123456789";
    std::filesystem::create_directories(Till + "/big");  // a list longer than a frame
    for (int i = 0; i < 820; ++i)
        std::ofstream(Till + "/big/" + std::to_string(i) + std::string(240, 'n'));
    for (const Row& row : Rows) {
        g = Fake();
        g.result = row.result;
        g.silent = row.silent;
        g_cancelled = false;
        g.reply = row.reply;
        std::vector<std::string> words{row.command};
        words.insert(words.end(), row.args.begin(), row.args.end());
        Result run;
        Execute(words, row.config, row.cancel, run, true, row.silent);
        const std::string what = std::string(row.command) + " -> " + row.out;
        EXPECT_EQ(run.status, row.status) << what;
        if (row.out.compare(0, 3, "...") == 0) {
            EXPECT_NE(run.out.str().find(row.out.substr(3)), std::string::npos) << run.out.str();
        } else {
            EXPECT_EQ(run.out.str(), row.out) << what;
        }
        if (!row.input.empty()) {
            EXPECT_EQ(g.input, row.input) << what;
        }
        std::string files;
        for (const auto& file : run.written)
            files += file.first + ":" + HexText(file.second, "");
        if (row.result != 110) {
            EXPECT_EQ(files, row.file) << what;
        }
    }
    std::filesystem::remove_all(Till);
}

TEST(Commands, UsageMistakesAndAMissingLibraryStopBeforeTheTerminal)
{
    for (const auto& mistake : Mistakes) {
        g = Fake();
        Result run;
        Execute(mistake.first, "", false, run);
        EXPECT_EQ(run.status, ExitUsage) << mistake.second;
        EXPECT_NE(run.err.str().find(mistake.second), std::string::npos) << run.err.str();
        EXPECT_EQ(run.loads + g.calls, 0) << mistake.second;
    }
    Result run;
    Execute({"probe"}, "", false, run, false);
    EXPECT_EQ(run.status, ExitNoLibrary);
}

}  // namespace
