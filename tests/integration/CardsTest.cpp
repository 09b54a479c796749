// The exports that talk to the terminal, against the simulator, and ThaiLen, which needs none.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using LenCall = int(const char*);

const Bytes PinPad = Frame("02 30 30", "pinpad.json", "03 34");
const Bytes Amount = Frame("02 30 30", "pinclear.json|Amount", "03 68");
const Bytes Swipe = Frame("02 33 52", "Swipe Card :", "03 37");
const Bytes Key = HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
const Bytes Emv = Frame("02 31", "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"type\":\"A\"}]}", "03 10");
const std::string EmvAnswer = "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"value\":\"DOE/JOHN\"}]}";
const std::string Sim = "NEW6210 SIM 1.0";
const std::string Thai = "3200=02:7F:80:A0:A1:DA:DB:DE:DF:E0:FB:FC:FF:03:00";
const Bytes ThaiUtf8 = HexBytes("7F E0B881 E0B8BA E0B8BF E0B980 E0B99B 00");

Bytes ThaiId(uint8_t mode, const std::string& check)
{
    return HexBytes("02 32 00") + Bytes{mode} + Frame("", "Insert Card :", "03 " + check);
}

// PinReadKey's 17 bytes: the decoded head, and out[16] always cleared.
Bytes PinOut(const Bytes& head)
{
    Bytes out = Filled(17, head);
    out[16] = 0;
    return out;
}

// Every export that talks to the terminal, with the terminal's answers as rows: the frame on
// the wire, the result, the caller's buffer byte for byte, the log, and a line left clean.
// Keypad digits decode in pairs, either case, other characters as 0. Tracks become "B", the
// field with :;<=>? as A-F, "F" and the XOR of its hex digits; a third field stands for the
// second as it is. Thai text turns TIS-620 (A1-DA, DF-FB) into UTF-8 and drops other high
// bytes; the binary form is a little-endian length and what arrived of it.
TEST(Cards, EveryTerminalCallAgainstTheTerminalsAnswers)
{
    const struct {
        const char* call;
        Options options;
        Bytes before;  // the caller's buffer; Unwritten behind
        int result;
        Bytes wire;
        Bytes after;  // written over `before`
        std::vector<std::string> log = {};  // each once; "error [" notices all of them
        int mode = 0;
        size_t closes = 1;
    } rows[] = {
        {"getVersion", {"--version-text", "NEW6210 V2.31"}, {}, 13, VersionFrame,
         TextBytes("NEW6210 V2.31"), {"\tNEW6210 V2.31\r\n"}},
        {"getVersion", {"--bad-check"}, {}, 15, VersionFrame, TextBytes(Sim)},
        {"getVersion", {"--siso", "--byte-pace", "2"}, {}, 15, VersionFrame, TextBytes(Sim)},  // quiet alone ends it
        {"getVersion", {"--split", "3:2"}, {}, 15, VersionFrame, TextBytes(Sim)},  // a pause shorter than the quiet
        {"getVersion", {"--reply", "3B=06"}, {}, 1, VersionFrame, HexBytes("06 00")},  // a lone ACK
        // Silence ends the reply after three bytes; being no frame it is not taken, and the
        // raw bytes are what the version copies. The next call drains the tail.
        {"getVersion", {"--split", "3:200"}, {}, 3, VersionFrame, HexBytes("02 4E 45 00"), {"\t\x02NE\r\n"}},
        {"PinReadKey", {"--pin", "ABC"}, {}, 0, PinPad, PinOut(HexBytes("AB C0 00"))},
        {"PinReadKey", {"--pin", "abcdef"}, {}, 0, PinPad, PinOut(HexBytes("AB CD EF 00"))},
        {"PinReadKey", {"--pin", "0x12g9"}, {}, 0, PinPad, PinOut(HexBytes("00 12 09 00"))},
        {"PinReadKey", {"--pin", "00112233445566778899AABBCCDDEEFF"}, {}, 0, PinPad, PinOut(Key + Bytes{0})},
        // Past sixteen bytes the decode goes on, under the cleared out[16].
        {"PinReadKey", {"--pin", "0102030405060708090A0B0C0D0E0F1011121314"}, {}, 0, PinPad,
         HexBytes("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 00 12 13 14 00")},
        // 200 digits: the work buffer keeps 127 of them, which decode to 64 bytes and a NUL.
        {"PinReadKey", {"--pin", std::string(200, 'F')}, {}, 0, PinPad,
         PinOut(Bytes(63, 0xFF) + HexBytes("F0 00"))},
        {"PinReadKey", {"--reply", "3030=41:42:43"}, {}, 0, PinPad, PinOut({0})},  // refused
        {"PinReadKeyClear", {}, TextBytes("Amount"), 0, Amount, HexBytes("12 34 56 78 90 AB CD EF 00")},
        {"PinReadKeyClear", {}, TextBytes(""), 0, Frame("02 30 30", "pinclear.json|INPUT", "03 12"),
         HexBytes("12 34 56 78 90 AB CD EF 00")},
        {"PinReadKeyClear", {}, TextBytes(" "), 0, Frame("02 30 30", "pinclear.json| ", "03 64"),
         HexBytes("12 34 56 78 90 AB CD EF 00")},
        {"PinReadKeyClear", {"--pin", "FfEeDdCcBbAa9988"}, TextBytes("Amount"), 0, Amount,
         HexBytes("FF EE DD CC BB AA 99 88 00")},
        {"PinReadKeyClear", {"--pin", "123"}, TextBytes("Amount"), 0, Amount, HexBytes("12 30 00 00 00 00 00 00 00")},
        {"PinReadKeyClear", {"--pin", std::string(300, '7')}, TextBytes("Amount"), 0, Amount,
         Bytes(8, 0x77) + Bytes{0}},
        {"PinReadKeyClear", {"--reply", "3030=31:32"}, TextBytes("Amount"), 0, Amount, Bytes(9, 0)},
        // A prompt too long for txBuffer: no frame cut short of its ETX goes out.
        {"PinReadKeyClear", {}, TextBytes(std::string(204800, 'P')), 0, {}, Bytes(9, 0)},
        // The master key goes out; the reply comes back over it: an ACK over key[0], a frame
        // and its NUL over the start, a refused reply nowhere.
        {"PinLoadMK", {}, Key, 0, HexBytes("02 30 32") + Key + HexBytes("03 02"), HexBytes("06")},
        {"PinLoadMK", {"--mk-reply", "41:42:43"}, Key, 0, HexBytes("02 30 32") + Key + HexBytes("03 02"),
         HexBytes("41 42 43 00")},
        {"PinLoadMK", {"--reply", "3032=31:32"}, Key, 0, HexBytes("02 30 32") + Key + HexBytes("03 02"), {}},
        {"MsreRead", {}, {}, 52, Swipe, TextBytes("B4111111111111111D2512101FC|B4111111111111111D2512FC")},
        {"MsreRead", {"--stripe", "1234=56|78|XYZ"}, {}, 14, Swipe, TextBytes("B1234D56FA|XYZ")},
        {"MsreRead", {"--stripe", "|78|"}, {}, 6, Swipe, TextBytes("|B78FF")},
        {"MsreRead", {"--stripe", "1234 |78  |"}, {}, 13, Swipe, TextBytes("B1234F4|B78FF")},
        {"MsreRead", {"--stripe", ":;<=>?|0|"}, {}, 14, Swipe, TextBytes("BABCDEFF1|B0F0")},
        {"MsreRead", {"--stripe", "ab|12 34|"}, {}, 14, Swipe, TextBytes("BabF1|B12 34F4"), {"error [ ]"}},
        {"MsreRead", {"--stripe", "%B12^X|56|"}, {}, 15, Swipe, TextBytes("B%B12^XF8|B56F3"),
         {"error [%]", "error [^]", "error [X]"}},
        {"MsreRead", {"--swipe-fail"}, {}, 10, Swipe, TextBytes("READ ERROR")},  // passed on
        {"MsreRead", {"--reply", "3352=02:03:00"}, {}, 0, Swipe, TextBytes("")},
        // Two fields: the answer stays as it came, and so does the open port.
        {"MsreRead", {"--stripe", "1234=56|Z8"}, {}, 10, Swipe, TextBytes("1234=56|Z8"), {"error [Z]"}, 0, 0},
        {"EMVRead", {"--emv-name", "DOE/JOHN"}, {}, 61, Emv, TextBytes(EmvAnswer),
         {"\t" + std::string(Emv.begin() + 2, Emv.end() - 3) + "\r\n", "\t" + EmvAnswer + "\r\n"}},
        // Envelopes: a frame (STX ... ETX check, or SI ... SO check, the check byte unheeded)
        // gives its payload and a NUL; one byte is handed on as it is; anything else is dropped.
        {"EMVRead", {"--reply", "31=02:41:03:40"}, {0, 0}, 1, Emv, TextBytes("A")},
        {"EMVRead", {"--reply", "31=02:41:03:FF"}, {0, 0}, 1, Emv, TextBytes("A")},
        {"EMVRead", {"--reply", "31=02:03:01"}, {0, 0}, 0, Emv, TextBytes("")},
        {"EMVRead", {"--reply", "31=0F:41:42:0E:0D"}, {0, 0}, 2, Emv, TextBytes("AB")},
        {"EMVRead", {"--reply", "31=06"}, {0, 0}, 1, Emv, HexBytes("06")},
        {"EMVRead", {"--reply", "31=0F:41:03:00"}, {0, 0}, 0, Emv, {}},
        {"EMVRead", {"--reply", "31=02:03"}, {0, 0}, 0, Emv, {}},
        {"EMVRead", {"--reply", "31=41:42:43"}, {0, 0}, 0, Emv, {}},
        {"ThaiIDRead", {"--reply", Thai}, {}, 16, ThaiId(0, "0B"), ThaiUtf8, {}, 0},
        {"ThaiIDRead", {"--reply", Thai}, {}, 16, ThaiId(1, "0A"), ThaiUtf8, {}, 1},
        {"ThaiIDRead", {"--reply", Thai}, {}, 16, ThaiId(5, "0E"), ThaiUtf8, {}, 0x105},  // low byte
        {"ThaiIDRead", {"--reply", "3200=02:31:32:00:33:03:00"}, {}, 2, ThaiId(0, "0B"), TextBytes("12")},
        {"ThaiIDRead", {"--reply", "3200=02:10:00:00:00:41:42:03:00"}, {}, 2, ThaiId(2, "09"),
         HexBytes("41 42"), {}, 2},  // says 16
        {"ThaiIDRead", {"--reply", "3200=02:02:00:00:00:41:42:43:03:00"}, {}, 2, ThaiId(3, "08"),
         HexBytes("41 42"), {}, 3},
        {"ThaiIDRead", {"--reply", "3200=02:FF:FF:FF:FF:41:03:00"}, {}, 0, ThaiId(2, "09"), {}, {}, 2},
        {"ThaiIDRead", {"--reply", "3200=02:03:00:00:03:00"}, {}, 0, ThaiId(2, "09"), {}, {}, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + " " + (row.options.empty() ? "" : row.options.back().substr(0, 40)));
        Session s(row.options);
        Bytes buffer = Filled(128, row.before);

        EXPECT_EQ(CallExport(s.library, row.call, buffer.data(), row.mode), row.result);

        Bytes expected = Filled(128, row.before);
        std::copy(row.after.begin(), row.after.end(), expected.begin());
        EXPECT_EQ(Hex(buffer), Hex(expected));
        EXPECT_EQ(Hex(s.terminal.Received()), Hex(row.wire));
        const std::string log = s.folder.LogText();
        for (const std::string& line : row.log)
            EXPECT_EQ(CountOf(log, line), 1u) << line;
        const auto notices = std::count_if(row.log.begin(), row.log.end(), [](const std::string& line) {
            return line.rfind("error [", 0) == 0;
        });
        EXPECT_EQ(CountOf(log, "error ["), static_cast<size_t>(notices));
        EXPECT_EQ(CountOf(log, "Close Device was "), row.closes);
        EXPECT_EQ(s.Get<int()>("PosSelect")(), 0);
    }
}

// Columns of a UTF-8 text: Thai marks above and below stack on their base, everything else
// takes a column; other multi-byte sequences count byte by byte. No terminal is involved.
TEST(Cards, ThaiLenCountsColumns)
{
    Workspace folder;
    folder.EnableLog();
    Library library(folder.LibraryPath());
    auto thaiLen = library.Get<LenCall>("ThaiLen");
    std::string kokai;  // KO KAI, 10239 times: three bytes each, one in the work area
    for (int i = 0; i < 10239; ++i)
        kokai += "\xE0\xB8\x81";
    const struct {
        std::string text;
        int columns;
    } rows[] = {
        {"", 0},
        {"ABC", 3},
        {"\xE0\xB8\x81\xE0\xB8\xB4\xE0\xB9\x88", 1},              // KO KAI, SARA I, MAI EK
        {"\xE0\xB8\x99\xE0\xB9\x89\xE0\xB8\xB3", 2},              // NO NU, MAI THO, SARA AM
        {"\xE0\xB8\x81\xE0\xB8\xB8\xE0\xB8\xB9\xE0\xB8\xBA", 1},  // SARA U, UU, PHINTHU below
        {"\xE0\xB8\x81\xE0\xB8\xB1\xE0\xB9\x8B\xE0\xB9\x8C\xE0\xB9\x8D", 1},  // HAN-AKAT...
        {"\xE0\xB9\x80\xE0\xB8\x81\xE0\xB9\x87", 2},  // SARA E leads, MAITAIKHU stacks
        {"\xE0\xB8\x81\xE0\xB8\xB5\xE0\xB9\x8A\xE0\xB8\xB6\xE0\xB8\xB7", 1},  // SARA II, MAI TRI...
        {"\xE0\xB8\xBF\xE0\xB9\x9B", 2},  // BAHT, KHOMUT
        {"\xC3\xA9", 2},
        {"A\xE0", 2},
        {std::string(10239, 'a'), 10239},  // the largest text the work area holds
        {kokai, 10239},
    };
    for (const auto& row : rows)
        EXPECT_EQ(thaiLen(row.text.c_str()), row.columns) << row.text.substr(0, 30);
    EXPECT_FALSE(Contains(folder.LogText(), "Open Port"));
    // One more byte would not fit: the process ends rather than writing past the area.
    EXPECT_DEATH(thaiLen(std::string(10240, 'a').c_str()), "");
}

}  // namespace
