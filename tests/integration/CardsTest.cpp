// The card and PIN exports against the simulated terminal: per export the frame on the wire,
// the result, the caller's buffer byte for byte and the log, with the terminal's answers as rows.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

using BytesCall = int(unsigned char*);
using TextCall = int(char*);
using ThaiIdCall = int(char*, int);
using LenCall = int(const char*);

const Bytes PinPadFrame = Frame("02 30 30", "pinpad.json", "03 34");

// Keypad digits to bytes: pairs of hex digits, either case; anything else counts as 0.
TEST(Cards, PinReadKeyDecodesTheDigitsIntoTheCallersBuffer)
{
    const struct {
        std::string pin;  // what the keypad answers
        Bytes head;       // out up to its NUL; out[16] is always 0
    } rows[] = {
        {"ABC", HexBytes("AB C0 00")},
        {"7", HexBytes("70 00")},
        {"abcdef", HexBytes("AB CD EF 00")},
        {"0x12g9", HexBytes("00 12 09 00")},
        {"00112233445566778899AABBCCDDEEFF",
         HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF 00")},
        // Past sixteen bytes the decode goes on; out[16] is cleared over byte 16.
        {"0102030405060708090A0B0C0D0E0F1011121314",
         HexBytes("01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 00 12 13 14 00")},
        // 200 digits: the work buffer keeps 127 of them, which decode to 64 bytes and a NUL.
        {std::string(200, 'F'), Bytes(63, 0xFF) + HexBytes("F0 00")},
        // A refused reply (no frame) leaves the cleared work buffer: the NUL alone.
        {"", HexBytes("00")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pin.substr(0, 40));
        Session s(row.pin.empty() ? Options{"--reply", "3030=41:42:43"} : Options{"--pin", row.pin});
        uint8_t out[100];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<BytesCall>("PinReadKey")(out), 0);

        Bytes expected = Filled(sizeof out, row.head);
        expected[16] = 0;
        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected));
        EXPECT_EQ(Hex(s.terminal.Received()), Hex(PinPadFrame));
        EXPECT_EQ(CountOf(s.folder.LogText(), "Close Device was Successful"), 1u);
    }
}

TEST(Cards, PinReadKeyClearSendsThePromptAndReturnsEightBytes)
{
    const Bytes key = HexBytes("12 34 56 78 90 AB CD EF 00");
    const Bytes amount = Frame("02 30 30", "pinclear.json|Amount", "03 68");
    const struct {
        std::string prompt;
        Options options;
        Bytes frame;
        Bytes head;  // over the prompt; bytes behind keep what the prompt left there
    } rows[] = {
        {"Amount", {}, amount, key},
        {"", {}, Frame("02 30 30", "pinclear.json|INPUT", "03 12"), key},
        {" ", {}, Frame("02 30 30", "pinclear.json| ", "03 64"), key},
        {"Amount", {"--pin", "FfEeDdCcBbAa9988"}, amount, HexBytes("FF EE DD CC BB AA 99 88 00")},
        {"Amount", {"--pin", "123"}, amount, HexBytes("12 30 00 00 00 00 00 00 00")},
        {"Amount", {"--pin", std::string(300, '7')}, amount, Bytes(8, 0x77) + Bytes{0}},
        {"Amount", {"--reply", "3030=31:32"}, amount, Bytes(9, 0)},  // refused
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.prompt + (row.options.empty() ? "" : " " + row.options[1].substr(0, 20)));
        Session s(row.options);
        char inOut[32];
        std::memset(inOut, Unwritten, sizeof inOut);
        std::memcpy(inOut, row.prompt.c_str(), row.prompt.size() + 1);

        EXPECT_EQ(s.Get<TextCall>("PinReadKeyClear")(inOut), 0);

        EXPECT_EQ(Hex(s.terminal.Received()), Hex(row.frame));
        Bytes expected = Filled(sizeof inOut, TextBytes(row.prompt));
        std::copy(row.head.begin(), row.head.end(), expected.begin());
        EXPECT_EQ(Hex(BufferBytes(inOut, sizeof inOut)), Hex(expected));
    }
}

TEST(Cards, PinReadKeyClearScriptRequestsAreRefusedForNow)
{
    Session s;
    char inOut[64] = "@{\"format\":\"FILE\",\"cmd\":\"list\"}";

    EXPECT_EQ(s.Get<TextCall>("PinReadKeyClear")(inOut), -1);

    EXPECT_EQ(inOut[0], 0);  // the empty reply text
    EXPECT_TRUE(s.terminal.Received().empty());
    EXPECT_EQ(CountOf(s.folder.LogText(), "Close Device was "), 1u);
}

TEST(Cards, PinLoadMKSendsTheKeyAndTheReplyOverwritesIt)
{
    const Bytes key = HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    const struct {
        Options options;
        Bytes start;  // what the reply puts at the head of the buffer
    } rows[] = {
        {{}, HexBytes("06")},                                   // ACK: key[0] only
        {{"--mk-reply", "41:42:43"}, HexBytes("41 42 43 00")},  // a frame and its NUL
        {{"--reply", "3032=31:32"}, {}},                        // refused: nothing
    };
    for (const auto& row : rows) {
        Session s(row.options);
        uint8_t buffer[20];
        std::memset(buffer, Unwritten, sizeof buffer);
        std::memcpy(buffer, key.data(), key.size());

        EXPECT_EQ(s.Get<BytesCall>("PinLoadMK")(buffer), 0);

        EXPECT_EQ(Hex(s.terminal.Received()), Hex(HexBytes("02 30 32") + key + HexBytes("03 02")));
        Bytes expected = Filled(sizeof buffer, key);
        std::copy(row.start.begin(), row.start.end(), expected.begin());
        EXPECT_EQ(Hex(BufferBytes(buffer, sizeof buffer)), Hex(expected));
    }
}

// Each track becomes "B", the field with :;<=>? as A-F, "F" and the XOR of its hex digits;
// a third field stands for the second as it is.
TEST(Cards, MsreReadRendersTheTracksOrPassesTheAnswerOn)
{
    const struct {
        Options options;
        std::string text;
        std::vector<std::string> notices;  // in the log, one per character that is no digit
        size_t closes;
    } rows[] = {
        {{}, "B4111111111111111D2512101FC|B4111111111111111D2512FC", {}, 1},
        {{"--stripe", "1234=56|78|XYZ"}, "B1234D56FA|XYZ", {}, 1},
        {{"--stripe", "|78|"}, "|B78FF", {}, 1},
        {{"--stripe", "1234 |78  |"}, "B1234F4|B78FF", {}, 1},
        {{"--stripe", ":;<=>?|0|"}, "BABCDEFF1|B0F0", {}, 1},
        {{"--stripe", "ab|12 34|"}, "BabF1|B12 34F4", {"error [ ]"}, 1},
        {{"--stripe", "%B12^X|56|"}, "B%B12^XF8|B56F3", {"error [%]", "error [^]", "error [X]"}, 1},
        {{"--swipe-fail"}, "READ ERROR", {}, 1},        // no fields: passed on as it is
        {{"--reply", "3352=02:03:00"}, "", {}, 1},      // an empty answer
        // Two fields: the answer stays in the buffer and the port open.
        {{"--stripe", "1234=56|Z8"}, "1234=56|Z8", {"error [Z]"}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Session s(row.options);
        char out[128];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<TextCall>("MsreRead")(out), static_cast<int>(row.text.size()));

        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(Filled(sizeof out, TextBytes(row.text))));
        EXPECT_EQ(Hex(s.terminal.Received()), Hex(Frame("02 33 52", "Swipe Card :", "03 37")));
        const std::string log = s.folder.LogText();
        for (const std::string& notice : row.notices)
            EXPECT_EQ(CountOf(log, notice + "\r\n"), 1u) << notice;
        EXPECT_EQ(CountOf(log, "error ["), row.notices.size());
        EXPECT_EQ(CountOf(log, "Close Device was "), row.closes);
    }
}

TEST(Cards, EMVReadAsksForTheCardholderNameAndReturnsTheAnswer)
{
    Session s({"--emv-name", "DOE/JOHN"});
    char out[256];
    std::memset(out, Unwritten, sizeof out);

    const std::string answer = "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"value\":\"DOE/JOHN\"}]}";
    EXPECT_EQ(s.Get<TextCall>("EMVRead")(out), static_cast<int>(answer.size()));

    EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(Filled(sizeof out, TextBytes(answer))));
    const std::string request = "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"type\":\"A\"}]}";
    EXPECT_EQ(Hex(s.terminal.Received()), Hex(Frame("02 31", request, "03 10")));
    const std::string log = s.folder.LogText();
    EXPECT_TRUE(Contains(log, "\t" + request + "\r\n"));
    EXPECT_TRUE(Contains(log, "\t" + answer + "\r\n"));
}

// Text form (modes 0 and 1): TIS-620 Thai (A1-DA, DF-FB) to UTF-8, other high bytes dropped,
// up to a NUL or what arrived. Binary form (2 and 3): a little-endian length, then as many
// bytes as that says and arrived, no terminator.
TEST(Cards, ThaiIDReadSendsTheModeByteAndAnswersInTextOrBinaryForm)
{
    const std::string thai = "3200=02:7F:80:A0:A1:DA:DB:DE:DF:E0:FB:FC:FF:03:00";
    const Bytes thaiUtf8 = HexBytes("7F E0B881 E0B8BA E0B8BF E0B980 E0B99B 00");
    const struct {
        int mode;
        std::string reply;
        int result;
        Bytes head;
        std::string check;  // the frame's check byte
    } rows[] = {
        {0, thai, 16, thaiUtf8, "0B"},
        {1, thai, 16, thaiUtf8, "0A"},
        {0x105, thai, 16, thaiUtf8, "0E"},  // the low byte goes out
        {0, "3200=02:31:32:00:33:03:00", 2, TextBytes("12"), "0B"},
        {2, "3200=02:10:00:00:00:41:42:03:00", 2, HexBytes("41 42"), "09"},  // says 16
        {3, "3200=02:02:00:00:00:41:42:43:03:00", 2, HexBytes("41 42"), "08"},
        {2, "3200=02:FF:FF:FF:FF:41:03:00", 0, {}, "09"},  // says -1
        {2, "3200=02:03:00:00:03:00", 0, {}, "09"},        // not even a length
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.mode) + " " + row.reply);
        Session s({"--reply", row.reply});
        char out[32];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<ThaiIdCall>("ThaiIDRead")(out, row.mode), row.result);

        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(Filled(sizeof out, row.head)));
        EXPECT_EQ(Hex(s.terminal.Received()),
                  Hex(HexBytes("02 32 00") + Bytes{static_cast<uint8_t>(row.mode)} +
                      Frame("", "Insert Card :", "03 " + row.check)));
    }
}

TEST(Cards, ThaiIDReadOfTheSimulatedCardInBothForms)
{
    Session s;
    auto read = s.Get<ThaiIdCall>("ThaiIDRead");

    std::vector<char> text(64 * 1024, Unwritten);
    const int textLength = read(text.data(), 0);
    EXPECT_GT(textLength, 0);
    EXPECT_EQ(static_cast<int>(std::strlen(text.data())), textLength);

    std::vector<char> block(64 * 1024, Unwritten);
    const int blockLength = read(block.data(), 3);
    EXPECT_GT(blockLength, 5118);  // the text and the photo
    EXPECT_EQ(static_cast<uint8_t>(block[blockLength]), Unwritten) << "a terminator";
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
