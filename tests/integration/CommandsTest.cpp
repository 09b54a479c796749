// PosExec and the "@" requests of PinReadKeyClear against the simulated terminal: per command
// the bytes on the wire, the result, the caller's text and the log; per upload what the
// terminal stored, checked there against the announced size and CRC-32.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

constexpr int Port = SessionPort;

// STX, payload, ETX and the XOR of the payload: built here, apart from the library's builder.
Bytes Frame(const Bytes& payload)
{
    uint8_t check = 0;
    for (uint8_t b : payload)
        check ^= b;
    return Bytes{0x02} + payload + Bytes{0x03, check};
}
Bytes Script(const std::string& text) { return Frame(Bytes{0x30, 0x33} + TextBytes(text)); }
const Bytes ListFrame = HexBytes("02 39 4C 03 75");
const Bytes DeleteA = HexBytes("02 39 44 03 7D") + TextBytes("a.bin");

// Log on, port 7, the simulator, the library; and the files that the commands below name.
struct CommandSession : Session {
    explicit CommandSession(const Options& options) : Session(options)
    {
        const std::pair<const char*, std::string> files[] = {
            {"libvarnik/json/}{", R"({"format":"BEEP"})"}, {"libvarnik/json/{", R"({"format":"BEEP"})"},
            {"libvarnik/json/}", R"({"format":"BEEP"})"}, {"libvarnik/json/pin.json", R"({"format":"PINPAD"})"},
            {"libvarnik/json/big.json", R"({"format":"FILE","cmd":"write","file":"b","image":")" +
                                            std::string(2000002, 'A') + "\"}"},
            {"list.json", R"({"format":"FILE","cmd":"list"})"}, {"huge.json", std::string(1000000, ' ')},
            {"tree/a.bin", std::string(1000, 'a')}, {"tree/sub/empty.bin", ""},
            {"tree/sub/deep/c.bin", std::string(204800, 'c')}, {"a\\b/c.bin", "abc"},
            {"big.bin", std::string(1 << 20, 'B')}};
        for (const auto& [path, content] : files) {
            std::string full = folder.Folder() + "/" + path;
            RunCommand("mkdir -p '" + full.substr(0, full.rfind('/')) + "'");
            std::ofstream(full, std::ios::binary) << content;
        }
        // Links back up the tree, a pipe, and a sparse file too large to announce.
        RunCommand("cd '" + folder.Folder() + "' && ln -s . tree/sub/self && ln -s ../.. tree/sub/deep/up && "
                   "mkfifo tree/sub/pipe && truncate -s 5G huge.bin");
    }
    // "$/" in a text stands for the session's folder, "$log" for today's log file.
    std::string At(std::string text) const
    {
        if (text.find("$log") != std::string::npos)
            text.replace(text.find("$log"), 4, folder.LogPath());
        const size_t at = text.find("$/");
        return at == std::string::npos ? text : text.replace(at, 1, folder.Folder());
    }
    // The outcome of each announced file in order; `stored` gets "name size" of those stored.
    std::string Outcomes(std::vector<std::string>* stored = nullptr) const
    {
        std::ifstream record(folder.PortLink(Port) + ".received.files");
        std::string outcome, name, size, rest, all;
        while (record >> outcome >> name >> size && std::getline(record, rest)) {
            all += (all.empty() ? "" : " ") + outcome;
            if (stored != nullptr && outcome == "stored")
                stored->push_back(name + " " + size);
        }
        return all;
    }
    Bytes Wire(size_t expected) const  // waits a little when nothing is expected
    {
        return terminal.WaitReceived(std::max<size_t>(expected, 1), expected == 0 ? 150 : 3000), terminal.Received();
    }
};

// A text beginning with "@" goes to PinReadKeyClear, any other to PosExec.
TEST(Commands, EachCommandAndRequestSendsItsFrameAndGivesItsResult)
{
    const std::string pinpad = R"({"format":"PINPAD","n":1})", viaFile = R"({"format":"FILE","cmd":"pinpad"})";
    const std::string json = R"({"format":"PINPAD"})", tooLong = "does not fit the 1000000-byte";
    const Bytes writeAbc = Frame(HexBytes("39 57 02 00 00 00 6D B5 4E 97") + TextBytes("x.bin")) + HexBytes("AB C0");
    const Bytes write4097 = Frame(HexBytes("39 57 01 10 00 00 18 84 C9 1E") + TextBytes("y")) + Bytes(4096, 0) + Bytes{0xA5};
    struct Row { std::string text; Options options; int result; Bytes wire; std::string out, logged; };
    const Row rows[] = {
        {"VerSion", {}, 1, HexBytes("02 3B 03 3B"), "NEW6210 SIM 1.0", ""},
        {R"({"format":"beep"})", {}, 0, Frame({0x3C, 0x30}), "", "load json file OK"},
        // Text with a "{" whose first "}" is not its first character is JSON; else a file name.
        {"x}{", {}, -2, {}, "", "load json file OK"},
        {"}{", {}, 0, Frame({0x3C, 0x30}), "", ""},
        {"{", {}, 0, Frame({0x3C, 0x30}), "", ""},
        {"}", {}, 0, Frame({0x3C, 0x30}), "", ""},
        {R"({"format":"Screen"})", {}, 5, HexBytes("02 36 00 03 36"), "", ""},
        {R"({"format":"SCREEN","slide":"x"})", {}, 0, HexBytes("02 3A 78 00 03 42"), "", ""},
        {R"({"format":"APDU","cmd":"CARD"})", {}, 0, Frame({0x38, 0x04}), "card inserted", "apduCard called"},
        {R"({"format":"apdu","cmd":"card"})", {"--card", "out"}, -2, Frame({0x38, 0x04}), "card not insert", ""},
        {R"({"format":"APDU","cmd":"tap"})", {}, -1, {}, "card not insert", ""},
        {R"({"format":"FILE","cmd":"LIST"})", {"--files", "a.bin:3"}, 0, ListFrame, "a.bin 3\n", ""},
        {R"({"format":"file","cmd":"Del","file":"a.bin"})", {}, 0, DeleteA, "", ""},
        {R"({"format":"FILE","cmd":"del"})", {}, 0, HexBytes("02 39 44 03 7D 00"), "", ""},
        {R"({"format":"FILE"})", {}, 0, {}, "", ""},
        {R"({"format":"FILE","cmd":"beep"})", {}, 0, {}, "", ""},
        {"{}", {}, -2, {}, "", ""},
        {"", {}, -2, {}, "", "load file json error :\r\n"},
        {pinpad, {}, 0, Script(pinpad), "OK", ""},
        {viaFile, {}, 0, Script(viaFile), "OK", ""},
        {"pin.json", {}, 0, Script("pin.json"), "OK", ""},
        {R"({"format":"pinpad"})", {"--reply", "3033=18"}, -1, Script(R"({"format":"pinpad"})"), "", ""},
        {R"({"format":"FILE","cmd":"UPLOAD"})", {}, 0, Frame(HexBytes("39 53 00 00 00 00 00 00 00 00 00")), "", ""},
        {R"({"format":"FILE","cmd":"write","file":"/no/x"})", {}, 0, {}, "", "[upload] open file [/no/x] failed."},
        // Only plain files go: a folder, a device or a pipe is a file that can't be opened.
        {R"({"format":"FILE","cmd":"write","file":"$/tree"})", {}, 0, {}, "", "[upload] open file [$/tree] failed."},
        {R"({"format":"FILE","cmd":"write","file":"/dev/zero"})", {}, 0, {}, "", "open file [/dev/zero] failed."},
        {R"({"format":"FILE","cmd":"write","file":"$/tree/sub/pipe"})", {}, 0, {}, "", "open file [$/tree/sub/pipe] failed."},
        {R"({"format":"FILE","cmd":"write","file":"$/huge.bin"})", {}, 0, {}, "", "[upload] file [$/huge.bin] of 5368709120 bytes"},
        {"@$/tree/sub/pipe", {}, -2, {}, "", ""},
        {"@" + json, {}, 0, Script(json), "OK", ""},
        {"@@pin.json", {}, 0, Script("pin.json"), "OK", ""},
        {"@$/list.json", {"--files", "a.bin:3"}, 0, ListFrame, "a.bin 3\n", ""},
        {"@$/missing.json", {}, -2, {}, "", ""},
        {"@}{", {}, -1, {}, "", ""},  // text without a format, not a file name, whatever the brace order
        {"@" + json, {"--reply", "3033=18"}, -1, Script(json), "", ""},
        {"@" + json, {"--oversize", "200"}, 0, Script(json), "OK" + std::string(125, 'X'), ""},  // cut to the work buffer
        {R"(@{"format":"FILE"})", {}, 0, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"format"})", {}, -1, {}, "", ""},
        {R"(@{"format":"BEEP"})", {}, -1, {}, "", ""},
        {R"(@{"format":"File","cmd":"DEL","file":"a.bin"})", {}, 0, DeleteA, "", ""},
        {R"(@{"format":"FILE","cmd":"write","file":"x.bin"})", {}, -3, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"write","image":"AB"})", {}, -2, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"write","file":"x.bin","image":"ABC"})", {}, 0, writeAbc, "", "[upload] open file [x.bin] failed."},
        // 4,097 bytes go out as 4,096 and then the last byte alone.
        {R"(@{"format":"FILE","cmd":"write","file":"y","image":")" + std::string(8192, '0') + "A5\"}", {}, 0, write4097, "", "\t>A5\r\n"},
        {"@@big.json", {}, -3, {}, "", tooLong + " image buffer"},
        {"@$/huge.json", {}, -2, {}, "", tooLong + " request buffer"},
        {R"(@{"format":"FILE","cmd":"write","image":"AB","file":")" + std::string(204800, 'n') + "\"}", {}, -1, {}, "", "frame longer than the send buffer: not sent"},
        {"@" + std::string(1000000, '{'), {}, -2, {}, "", tooLong + " request buffer"},
    };
    for (const auto& row : rows) {
        CommandSession s(row.options);
        const std::string text = s.At(row.text), label = text.substr(0, 80);
        std::vector<char> out(text.c_str(), text.c_str() + text.size() + 1);
        out.resize(std::max<size_t>(out.size(), 256), 'U');
        const bool pin = text[0] == '@';
        const int result = pin ? s.library.Get<int(char*)>("PinReadKeyClear")(out.data())
                               : s.library.Get<int(char*, const char*)>("PosExec")(out.data(), text.c_str());
        EXPECT_EQ(result, row.result) << label;
        EXPECT_EQ(Hex(s.Wire(row.wire.size())), Hex(row.wire)) << label;
        EXPECT_EQ(std::string(out.data()), row.out) << label;
        const std::string log = s.folder.LogText();
        EXPECT_TRUE(Contains(log, s.At(row.logged))) << label;
        EXPECT_EQ(CountOf(log, "json error :"), CountOf(row.logged, "json error :")) << label;
        EXPECT_EQ(CountOf(log, "Close Device"), pin ? 1u : 0u) << label;  // PosExec leaves the port open
    }
}

TEST(Commands, UploadsArriveWholeOrStopAsTheTerminalAnswers)
{
    const std::string tree = R"({"format":"UPLOAD","input":"tree"})";
    struct Row { std::string command; Options options; int result; std::string outcomes; std::vector<std::string> stored; };
    const Row rows[] = {
        {tree, {}, 0, "stored stored stored", {"a.bin 1000", "c.bin 204800", "empty.bin 0"}},
        {tree, {"--decline-upload=#2"}, 0, "stored declined stored", {}},
        {tree, {"--fail-upload=#2"}, -1, "stored failed", {}},
        {tree, {"--vanish-after", "3"}, -1, "stored", {}},
        // Only the closing reply's first byte counts: a frame holding a CAN stores, a CAN and more fails.
        {tree, {"--closing-reply", "02:18:03:1B"}, 0, "stored stored stored", {}},
        {tree, {"--closing-reply", "18:4F:4B"}, -1, "stored", {}},
        // Exactly the announced count goes, and a file that grew or shrank meanwhile fails.
        {R"({"format":"FILE","cmd":"write","file":"$log"})", {}, -1, "stored", {}},
        {R"({"format":"FILE","cmd":"write","file":"/sys/devices/system/cpu/online"})", {}, -1, "stored", {"online 4096"}},
        {R"({"format":"FILE","cmd":"write","file":"$/a\\b/c.bin"})", {}, 0, "stored", {"c.bin 3"}},
        {R"({"format":"FILE","cmd":"write","file":"$/big.bin"})", {"--throttle"}, 0, "stored", {"big.bin 1048576"}},
        {R"({"format":"UPLOAD","input":"none"})", {}, 0, "", {}},
    };
    for (const auto& row : rows) {
        CommandSession s(row.options);
        const std::string command = s.At(row.command);
        char out[16];
        EXPECT_EQ(s.library.Get<int(char*, const char*)>("PosExec")(out, command.c_str()), row.result) << command;
        std::vector<std::string> stored;
        EXPECT_EQ(s.Outcomes(&stored), row.outcomes) << command;
        std::sort(stored.begin(), stored.end());
        EXPECT_TRUE(row.stored.empty() || stored == row.stored) << command;
        EXPECT_EQ(CountOf(s.folder.LogText(), "update completed"), CountOf(row.outcomes, "stored") + CountOf(row.outcomes, "failed"));
        const Bytes wire = s.terminal.Received();  // one announcement of all three full paths
        for (const char* part : {"9S\x04", "/tree/a.bin", "/tree/sub/empty.bin", "/tree/sub/deep/c.bin"})
            EXPECT_TRUE(command != tree || Contains(std::string(wire.begin(), wire.end()), part)) << part;
    }
    CommandSession s({});  // a list that does not fit one frame: nothing goes out
    for (int i = 0; i < 900; ++i)
        std::ofstream(s.folder.Folder() + "/tree/" + std::to_string(i) + std::string(240, 'n'));
    char out[16];
    EXPECT_EQ(s.library.Get<int(char*, const char*)>("PosExec")(out, tree.c_str()), -1);
    EXPECT_TRUE(s.Wire(0).empty());
    EXPECT_TRUE(Contains(s.folder.LogText(), "more than one frame holds"));
}

}  // namespace
