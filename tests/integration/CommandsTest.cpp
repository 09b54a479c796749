// PosExec and the "@" requests of PinReadKeyClear against the simulated terminal: per command
// the bytes on the wire, the result, the caller's text and the log; per upload what the
// terminal stored, checked there against the announced size and CRC-32.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using ExecCall = int(char*, const char*);
using TextCall = int(char*);
using Options = std::vector<std::string>;
constexpr int Port = 7;

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
Bytes Text(const std::string& text) { return Bytes(text.c_str(), text.c_str() + text.size() + 1); }
// STX, payload, ETX and the XOR of the payload: built here, apart from the library's builder.
Bytes Frame(const Bytes& payload)
{
    uint8_t check = 0;
    for (uint8_t b : payload)
        check ^= b;
    return Bytes{0x02} + payload + Bytes{0x03, check};
}
Bytes Script(const std::string& text) { return Frame(Bytes{0x30, 0x33} + Text(text)); }
const Bytes ListFrame = HexBytes("02 39 4C 03 75");

// "$/" in a text stands for the session's folder.
std::string At(const std::string& folder, std::string text)
{
    for (size_t at; (at = text.find("$/")) != std::string::npos;)
        text.replace(at, 1, folder);
    return text;
}

// Log on, port 7, the simulator, the library; and the files the commands below name.
struct Session {
    Workspace folder;
    Simulator terminal;
    Library library;
    explicit Session(Options options)
        : terminal((folder.EnableLog(), folder.UsePort(Port), folder.PortLink(Port)), Resolve(options)),
          library(folder.LibraryPath())
    {
        Put("libvarnik/json/beep.json", R"({"format":"BEEP"})");
        Put("libvarnik/json/pin.json", R"({"format":"PINPAD"})");
        Put("libvarnik/json/big.json", R"({"format":"FILE","cmd":"write","file":"b","image":")" +
                                           std::string(2000002, 'A') + "\"}");
        Put("list.json", R"({"format":"FILE","cmd":"list"})");
        Put("huge.json", std::string(1000000, ' '));
        Put("tree/a.bin", std::string(1000, 'a'));
        Put("tree/sub/empty.bin", "");
        Put("tree/sub/deep/c.bin", std::string(204800, 'c'));
        Put("a\\b/c.bin", "abc");
        Put("big.bin", std::string(1 << 20, 'B'));
    }
    Options Resolve(Options options) const
    {
        for (auto& option : options)
            option = At(folder.Folder(), option);
        return options;
    }
    void Put(const std::string& path, const std::string& content) const
    {
        std::string full = folder.Folder() + "/" + path;
        RunCommand("mkdir -p '" + full.substr(0, full.rfind('/')) + "'");
        std::ofstream(full, std::ios::binary) << content;
    }
    // The outcome of each announced file in order, and "name size" of the stored ones, sorted.
    std::string Outcomes(std::string* stored = nullptr) const
    {
        std::ifstream record(folder.PortLink(Port) + ".received.files");
        std::string outcome, name, size, rest, all;
        std::vector<std::string> names;
        while (record >> outcome >> name >> size && std::getline(record, rest)) {
            all += (all.empty() ? "" : " ") + outcome;
            if (outcome == "stored")
                names.push_back(name + " " + size);
        }
        std::sort(names.begin(), names.end());
        for (size_t i = 0; stored != nullptr && i < names.size(); ++i)
            *stored += (i > 0 ? ", " : "") + names[i];
        return all;
    }
    Bytes Wire(size_t expected) const
    {
        terminal.WaitReceived(std::max<size_t>(expected, 1), expected == 0 ? 150 : 3000);
        return terminal.Received();
    }
};

size_t Lines(const std::string& log, const std::string& text)
{
    return CountOf(Bytes(log.begin(), log.end()), Bytes(text.begin(), text.end()));
}

TEST(Commands, EachCommandWordSendsItsFrameAndGivesItsResult)
{
    const std::string pinpad = R"({"format":"PINPAD","n":1})", filePinpad = R"({"format":"FILE","cmd":"pinpad"})";
    const struct {
        std::string command;
        Options options;
        int result;
        Bytes wire;
        std::string out, logged;
    } rows[] = {
        {"version", {}, 1, HexBytes("02 3B 03 3B"), "NEW6210 SIM 1.0", ""},
        {"VerSion", {}, 1, HexBytes("02 3B 03 3B"), "NEW6210 SIM 1.0", ""},
        {R"({"format":"beep"})", {}, 0, Frame({0x3C, 0x30}), "", "load json file OK"},
        {"beep.json", {}, 0, Frame({0x3C, 0x30}), "", ""},
        {R"({"format":"Screen"})", {}, 5, HexBytes("02 36 00 03 36"), "", ""},
        {R"({"format":"SCREEN","slide":"x"})", {}, 0, HexBytes("02 3A 78 00 03 42"), "", ""},
        {R"({"format":"APDU","cmd":"CARD"})", {}, 0, Frame({0x38, 0x04}), "card inserted", "apduCard called"},
        {R"({"format":"apdu","cmd":"card"})", {"--card", "out"}, -2, Frame({0x38, 0x04}), "card not insert", ""},
        {R"({"format":"APDU"})", {}, -1, {}, "card not insert", ""},
        {R"({"format":"APDU","cmd":"tap"})", {}, -1, {}, "card not insert", ""},
        {R"({"format":"FILE","cmd":"LIST"})", {"--files", "a.bin:3"}, 0, ListFrame, "a.bin 3\n", ""},
        {R"({"format":"file","cmd":"Del","file":"a.bin"})", {}, 0, HexBytes("02 39 44 03 7D") + Text("a.bin"), "", ""},
        {R"({"format":"FILE","cmd":"del"})", {}, 0, HexBytes("02 39 44 03 7D 00"), "", ""},
        {R"({"format":"FILE"})", {}, 0, {}, "", ""},
        {R"({"format":"FILE","cmd":"beep"})", {}, 0, {}, "", ""},
        {R"({"format":"nothing"})", {}, 0, {}, "", ""},
        {R"({"format":{}})", {}, 0, {}, "", ""},
        {"{}", {}, -2, {}, "", ""},
        {"", {}, -2, {}, "", "load file json error :\r\n"},
        {"missing.json", {}, -2, {}, "", "load file json error :missing.json"},
        {pinpad, {}, 0, Script(pinpad), "OK", ""},
        {filePinpad, {}, 0, Script(filePinpad), "OK", ""},
        {"pin.json", {}, 0, Script("pin.json"), "OK", ""},
        {R"({"format":"pinpad"})", {"--reply", "3033=18"}, -1, Script(R"({"format":"pinpad"})"), "", ""},
        {R"({"format":"FILE","cmd":"UPLOAD"})", {}, 0, Frame(HexBytes("39 53 00 00 00 00 00 00 00 00 00")), "", ""},
        {R"({"format":"FILE","cmd":"write","file":"/no/x.bin"})", {}, 0, {}, "", "[upload] open file [/no/x.bin] failed."},
    };
    for (const auto& row : rows) {
        Session s(row.options);
        char out[256];
        std::fill(out, out + sizeof out, 'U');
        EXPECT_EQ(s.library.Get<ExecCall>("PosExec")(out, row.command.c_str()), row.result) << row.command;
        EXPECT_EQ(Hex(s.Wire(row.wire.size())), Hex(row.wire)) << row.command;
        EXPECT_EQ(std::string(out), row.out) << row.command;
        std::string log = s.folder.LogText();
        EXPECT_TRUE(Contains(log, row.logged)) << row.command;
        // "load file json error" only where loading failed, and the port stays open.
        EXPECT_EQ(Lines(log, "load file json error"), row.logged.find("json error") != std::string::npos ? 1u : 0u);
        EXPECT_EQ(Lines(log, "Close Device"), 0u) << row.command;
    }
}

TEST(Commands, UploadsArriveWholeOrStopAsTheTerminalAnswers)
{
    const std::string tree = R"({"format":"UPLOAD","input":"tree"})";
    const struct {
        std::string command;
        Options options;
        int result;
        std::string outcomes, stored;
    } rows[] = {
        {tree, {}, 0, "stored stored stored", "a.bin 1000, c.bin 204800, empty.bin 0"},
        {tree, {"--decline-upload=#2"}, 0, "stored declined stored", ""},
        {tree, {"--fail-upload=#2"}, -1, "stored failed", ""},
        {R"({"format":"FILE","cmd":"write","file":"$/a\\b/c.bin"})", {}, 0, "stored", "c.bin 3"},
        {R"({"format":"FILE","cmd":"write","file":"$/big.bin"})", {"--throttle"}, 0, "stored", "big.bin 1048576"},
    };
    for (const auto& row : rows) {
        Session s(row.options);
        std::string command = At(s.folder.Folder(), row.command), stored;
        char out[16];
        EXPECT_EQ(s.library.Get<ExecCall>("PosExec")(out, command.c_str()), row.result) << command;
        EXPECT_EQ(s.Outcomes(&stored), row.outcomes) << command;
        if (!row.stored.empty()) {
            EXPECT_EQ(stored, row.stored) << command;
        }
        const std::string log = s.folder.LogText();
        EXPECT_EQ(Lines(log, "update completed"), Lines(row.outcomes, "stored") + Lines(row.outcomes, "failed"));
        if (command == tree) {
            // One announcement of the three full paths, then each file under its base name.
            Bytes wire = s.terminal.Received();
            EXPECT_EQ(CountOf(wire, HexBytes("39 53 03 00 00 00 00 00 00 00")), 1u);
            for (const char* path : {"/tree/a.bin", "/tree/sub/empty.bin", "/tree/sub/deep/c.bin"})
                EXPECT_TRUE(Contains(std::string(wire.begin(), wire.end()), s.folder.Folder() + path));
        }
    }
}

TEST(Commands, AFolderListLongerThanOneFrameSendsNothing)
{
    Session s({});
    s.Put("many/first", "");
    for (int i = 0; i < 900; ++i)
        std::ofstream(s.folder.Folder() + "/many/" + std::to_string(i) + std::string(240, 'n'));
    char out[16];
    EXPECT_EQ(s.library.Get<ExecCall>("PosExec")(out, R"({"format":"UPLOAD","input":"many"})"), -1);
    EXPECT_TRUE(s.Wire(0).empty());
    EXPECT_TRUE(Contains(s.folder.LogText(), "more than one frame holds"));
}

TEST(Commands, PinReadKeyClearRunsTheThreeRequestForms)
{
    const std::string json = R"({"format":"PINPAD"})", image = std::string(8192, '0') + "A5";
    const Bytes announceAbc = Frame(HexBytes("39 57 02 00 00 00 6D B5 4E 97") + Text("x.bin")) + HexBytes("AB C0");
    const struct {
        std::string request;
        Options options;
        int result;
        Bytes wire;
        std::string inOut, logged;
    } rows[] = {
        {"@" + json, {}, 0, Script(json), "OK", ""},
        {"@@pin.json", {}, 0, Script("pin.json"), "OK", ""},
        {"@$/list.json", {"--files", "a.bin:3"}, 0, ListFrame, "a.bin 3\n", ""},
        {"@$/missing.json", {}, -2, {}, "", ""},
        {"@" + json, {"--reply", "3033=18"}, -1, Script(json), "", ""},
        {R"(@{"format":"FILE"})", {}, 0, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"format"})", {}, -1, {}, "", ""},
        {R"(@{"format":"BEEP"})", {}, -1, {}, "", ""},
        {R"(@{"format":"File","cmd":"DEL","file":"a.bin"})", {}, 0, HexBytes("02 39 44 03 7D") + Text("a.bin"), "", ""},
        {R"(@{"format":"FILE","cmd":"write","file":"x.bin"})", {}, -3, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"write","image":"AB"})", {}, -2, {}, "", ""},
        {R"(@{"format":"FILE","cmd":"write","file":"x.bin","image":"ABC"})", {}, 0, announceAbc, "", "[upload] open file [x.bin] failed."},
        // 4,097 bytes go out as 4,096 and then the last byte alone.
        {R"(@{"format":"FILE","cmd":"write","file":"y.bin","image":")" + image + "\"}", {}, 0, {}, "", "\t>A5\r\n"},
        {"@@big.json", {}, -3, {}, "", "does not fit the 1000000-byte image buffer"},
        {"@$/huge.json", {}, -2, {}, "", "does not fit the 1000000-byte request buffer"},
        {"@" + std::string(1000000, '{'), {}, -2, {}, "", "does not fit the 1000000-byte request buffer"},
    };
    for (const auto& row : rows) {
        Session s(row.options);
        std::string request = At(s.folder.Folder(), row.request);
        std::vector<char> inOut(request.begin(), request.end());
        inOut.resize(std::max<size_t>(inOut.size() + 1, 256), 0);
        EXPECT_EQ(s.library.Get<TextCall>("PinReadKeyClear")(inOut.data()), row.result) << request.substr(0, 80);
        if (row.wire.empty() && row.result == 0) {
            EXPECT_EQ(s.Outcomes(), row.logged.empty() ? "" : "stored") << request.substr(0, 80);
        } else {
            EXPECT_EQ(Hex(s.Wire(row.wire.size())), Hex(row.wire)) << request.substr(0, 80);
        }
        EXPECT_EQ(std::string(inOut.data()), row.inOut) << request.substr(0, 80);
        EXPECT_TRUE(Contains(s.folder.LogText(), row.logged)) << request.substr(0, 80);
    }
}

}  // namespace
