// The card and PIN exports against the simulated terminal: the frames on the wire, the
// results, and the caller's buffer byte for byte, cancels during a wait included.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Harness.h"

namespace {

using VoidCall = int();
using BytesCall = int(unsigned char*);
using TextCall = int(char*);
using ThaiIdCall = int(char*, int);
using LenCall = int(const char*);

constexpr int Port = 7;
constexpr uint8_t Can = 0x18;

// A command frame built here, independently of the library's builder.
Bytes Frame(const Bytes& operation, const Bytes& payload)
{
    Bytes frame = {0x02};
    uint8_t check = 0;
    for (uint8_t b : operation) {
        frame.push_back(b);
        check ^= b;
    }
    for (uint8_t b : payload) {
        frame.push_back(b);
        check ^= b;
    }
    frame.push_back(0x03);
    frame.push_back(check);
    return frame;
}

Bytes TextBytes(const std::string& text)  // with its NUL
{
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

const Bytes PinPadFrame = Frame({'0', '0'}, TextBytes("pinpad.json"));
const Bytes SwipeFrame =
    HexBytes("02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37");

Bytes PinClearFrame(const std::string& prompt)
{
    return Frame({'0', '0'}, TextBytes("pinclear.json|" + prompt));
}

Bytes ThaiIdFrame(uint8_t mode, uint8_t check)
{
    Bytes frame = {0x02, 0x32, 0x00, mode};
    const Bytes text = TextBytes("Insert Card :");
    frame.insert(frame.end(), text.begin(), text.end());
    frame.push_back(0x03);
    frame.push_back(check);
    return frame;
}

Bytes BufferBytes(const void* buffer, size_t count)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    return Bytes(bytes, bytes + count);
}

size_t CloseLines(const std::string& log)
{
    return CountOf(Bytes(log.begin(), log.end()), HexBytes("436C6F7365204465766963652077617320"));
}

struct Cards : ::testing::Test {
    Workspace folder;
    void SetUp() override
    {
        folder.EnableLog();
        folder.UsePort(Port);
    }
};

// Runs `call` on a thread, sends PosCancel once `frame` has reached the terminal, and waits.
template <typename Call>
void CancelDuring(Library& library, Simulator& terminal, size_t frameSize, Call call)
{
    auto cancel = library.Get<VoidCall>("PosCancel");
    std::thread canceller([&] {
        terminal.WaitReceived(frameSize);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cancel();
    });
    call();
    canceller.join();
}

// --- PinReadKey ------------------------------------------------------------------------------

TEST_F(Cards, PinReadKeyDecodesTheReplyIntoTheCallersBuffer)
{
    const struct {
        std::string pin;
        Bytes bytes;  // out up to and with its NUL
    } cases[] = {
        {"1234567890ABCDEF", HexBytes("12 34 56 78 90 AB CD EF 00")},
        {"ABC", HexBytes("AB C0 00")},
        {"00112233445566778899AABBCCDDEEFF",
         HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF 00")},
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--pin", c.pin});
        Library library(fresh.LibraryPath());
        uint8_t out[32];
        std::memset(out, 0x55, sizeof out);

        EXPECT_EQ(library.Get<BytesCall>("PinReadKey")(out), 0) << c.pin;

        Bytes expected(sizeof out, 0x55);
        std::copy(c.bytes.begin(), c.bytes.end(), expected.begin());
        expected[16] = 0;
        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected)) << c.pin;
        EXPECT_EQ(terminal.Received(), PinPadFrame) << c.pin;
    }
}

TEST_F(Cards, PinReadKeyCutsALongReplyToItsWorkBuffer)
{
    // 200 digits: the work buffer keeps 127 of them, which decode to 64 bytes and a NUL.
    Simulator terminal(folder.PortLink(Port), {"--pin", std::string(200, 'F')});
    Library library(folder.LibraryPath());
    uint8_t out[100];
    std::memset(out, 0x55, sizeof out);

    EXPECT_EQ(library.Get<BytesCall>("PinReadKey")(out), 0);

    Bytes expected(sizeof out, 0x55);
    std::fill(expected.begin(), expected.begin() + 63, 0xFF);
    expected[16] = 0;
    expected[63] = 0xF0;
    expected[64] = 0;
    EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected));
    // The call ended normally and the next one works.
    EXPECT_EQ(library.Get<VoidCall>("PosSelect")(), 0);
}

TEST_F(Cards, PinReadKeyWithASingleByteOrARefusedReplyGivesAnEmptyKey)
{
    for (const char* reply : {"18", "41:42:43"}) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--reply", std::string("3030=") + reply});
        Library library(fresh.LibraryPath());
        uint8_t out[20];
        std::memset(out, 0x55, sizeof out);

        EXPECT_EQ(library.Get<BytesCall>("PinReadKey")(out), 0) << reply;

        // CAN is one character that is no digit: 0x00 and the NUL; a refused reply leaves
        // the cleared work buffer: the NUL alone.
        const Bytes head = std::string(reply) == "18" ? HexBytes("00 00") : HexBytes("00 55");
        EXPECT_EQ(Hex(BufferBytes(out, 2)), Hex(head)) << reply;
        EXPECT_EQ(out[16], 0) << reply;
        EXPECT_EQ(out[17], 0x55) << reply;
    }
}

TEST_F(Cards, ACancelDuringPinEntrySendsOneCan)
{
    Simulator terminal(folder.PortLink(Port), {"--pin-wait"});
    Library library(folder.LibraryPath());
    uint8_t out[20];
    std::memset(out, 0x55, sizeof out);
    int result = -99;

    CancelDuring(library, terminal, PinPadFrame.size(),
                 [&] { result = library.Get<BytesCall>("PinReadKey")(out); });

    EXPECT_EQ(result, 0);
    Bytes expected = PinPadFrame;
    expected.push_back(Can);
    EXPECT_EQ(terminal.Received(), expected);
    // The terminal's CAN comes back as one non-digit: a zero byte and the NUL.
    EXPECT_EQ(Hex(BufferBytes(out, 3)), "00 00 55");
    EXPECT_EQ(out[16], 0);
    EXPECT_EQ(CloseLines(folder.LogText()), 1u);
}

// --- PinReadKeyClear ---------------------------------------------------------------------

TEST_F(Cards, PinReadKeyClearSendsThePromptAndReturnsEightBytes)
{
    const struct {
        std::string prompt;
        std::string sent;
    } cases[] = {
        {"Amount", "Amount"},
        {"", "INPUT"},
        {" ", " "},
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port));
        Library library(fresh.LibraryPath());
        char inOut[32];
        std::memset(inOut, 0x55, sizeof inOut);
        std::memcpy(inOut, c.prompt.c_str(), c.prompt.size() + 1);

        EXPECT_EQ(library.Get<TextCall>("PinReadKeyClear")(inOut), 0) << c.prompt;

        EXPECT_EQ(terminal.Received(), PinClearFrame(c.sent)) << c.prompt;
        Bytes expected = HexBytes("12 34 56 78 90 AB CD EF 00");
        Bytes after = BufferBytes(inOut, sizeof inOut);
        EXPECT_EQ(Hex(Bytes(after.begin(), after.begin() + 9)), Hex(expected)) << c.prompt;
        // Bytes behind the NUL keep what the prompt left there.
        for (size_t i = std::max<size_t>(9, c.prompt.size() + 1); i < sizeof inOut; ++i)
            EXPECT_EQ(after[i], 0x55) << c.prompt << " byte " << i;
    }
}

TEST_F(Cards, PinReadKeyClearRepliesOfEveryLength)
{
    const struct {
        std::vector<std::string> options;
        Bytes bytes;
    } cases[] = {
        {{"--pin", "12"}, HexBytes("12 00 00 00 00 00 00 00 00")},
        {{"--pin", std::string(300, '7')}, HexBytes("77 77 77 77 77 77 77 77 00")},
        {{"--reply", "3030=02:03:00"}, HexBytes("00 00 00 00 00 00 00 00 00")},  // empty frame
        {{"--reply", "3030=18"}, HexBytes("00 00 00 00 00 00 00 00 00")},        // CAN
        {{"--reply", "3030=31:32"}, HexBytes("00 00 00 00 00 00 00 00 00")},     // refused
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), c.options);
        Library library(fresh.LibraryPath());
        char inOut[16] = "Amount";

        EXPECT_EQ(library.Get<TextCall>("PinReadKeyClear")(inOut), 0) << c.options[1];
        EXPECT_EQ(Hex(BufferBytes(inOut, 9)), Hex(c.bytes)) << c.options[1];
    }
}

TEST_F(Cards, PinReadKeyClearScriptRequestsAreRefusedForNow)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    char inOut[64] = "@{\"format\":\"FILE\",\"cmd\":\"list\"}";

    EXPECT_EQ(library.Get<TextCall>("PinReadKeyClear")(inOut), -1);

    EXPECT_EQ(inOut[0], 0);  // the empty reply text
    EXPECT_TRUE(terminal.Received().empty());
    EXPECT_EQ(CloseLines(folder.LogText()), 1u);
}

// --- PinLoadMK ---------------------------------------------------------------------------

TEST_F(Cards, PinLoadMKSendsTheKeyAndTheReplyOverwritesIt)
{
    const Bytes key = HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    const struct {
        std::vector<std::string> options;
        Bytes start;  // what the reply puts at the head of the buffer
    } cases[] = {
        {{}, HexBytes("06")},                               // ACK: key[0] only
        {{"--mk-reply", "41:42:43"}, HexBytes("41 42 43 00")},  // a frame and its NUL
        {{"--reply", "3032=31:32"}, {}},                        // refused: nothing
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), c.options);
        Library library(fresh.LibraryPath());
        uint8_t buffer[20];
        std::memset(buffer, 0x55, sizeof buffer);
        std::memcpy(buffer, key.data(), key.size());

        EXPECT_EQ(library.Get<BytesCall>("PinLoadMK")(buffer), 0);

        const Bytes frame = terminal.Received();
        EXPECT_EQ(frame.size(), 21u);
        EXPECT_EQ(frame, Frame({'0', '2'}, key));
        Bytes expected(key);
        expected.resize(sizeof buffer, 0x55);
        std::copy(c.start.begin(), c.start.end(), expected.begin());
        EXPECT_EQ(Hex(BufferBytes(buffer, sizeof buffer)), Hex(expected));
    }
}

// --- MsreRead ----------------------------------------------------------------------------

TEST_F(Cards, MsreReadRendersTheTracks)
{
    const struct {
        std::string stripe;
        std::string text;
    } cases[] = {
        {"4111111111111111=2512101|4111111111111111=2512|",
         "B4111111111111111D2512101FC|B4111111111111111D2512FC"},
        {"1234=56|78|XYZ", "B1234D56FA|XYZ"},
        {"|78|", "|B78FF"},
        {"no separator", "no separator"},
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--stripe", c.stripe});
        Library library(fresh.LibraryPath());
        char out[128];
        std::memset(out, 0x55, sizeof out);

        EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), static_cast<int>(c.text.size())) << c.stripe;

        EXPECT_EQ(std::string(out), c.text);
        EXPECT_EQ(terminal.Received(), SwipeFrame) << c.stripe;
    }
}

TEST_F(Cards, MsreReadShowsANoticeForEachCharacterThatIsNoDigit)
{
    Simulator terminal(folder.PortLink(Port), {"--stripe", "%B12^X|56|"});
    Library library(folder.LibraryPath());
    char out[64] = {};

    EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), 15);

    EXPECT_STREQ(out, "B%B12^XF8|B56F3");
    const std::string log = folder.LogText();
    for (const char* notice : {"error [%]", "error [^]", "error [X]"})
        EXPECT_TRUE(Contains(log, notice)) << notice;
    EXPECT_FALSE(Contains(log, "error [B]"));
}

TEST_F(Cards, MsreReadPassesAFailedSwipeThrough)
{
    Simulator terminal(folder.PortLink(Port), {"--swipe-fail"});
    Library library(folder.LibraryPath());
    char out[64] = {};

    EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), 10);
    EXPECT_STREQ(out, "READ ERROR");
    EXPECT_EQ(CloseLines(folder.LogText()), 1u);
}

TEST_F(Cards, MsreReadWithTwoFieldsLeavesTheTextAndThePortAsTheyAre)
{
    Simulator terminal(folder.PortLink(Port), {"--stripe", "1234=56|78"});
    Library library(folder.LibraryPath());
    char out[64];
    std::memset(out, 0x55, sizeof out);

    EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), 10);

    EXPECT_EQ(Hex(BufferBytes(out, 12)), Hex(HexBytes("31 32 33 34 3D 35 36 7C 37 38 00 55")));
    EXPECT_EQ(CloseLines(folder.LogText()), 0u) << "the port stays open";
    // The next call finds the port open and closes it.
    char version[64] = {};
    EXPECT_EQ(library.Get<TextCall>("getVersion")(version), 15);
    const std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "port is opened"));
    EXPECT_EQ(CloseLines(log), 1u);
}

TEST_F(Cards, MsreReadOfAnEmptyAnswerGivesAnEmptyText)
{
    Simulator terminal(folder.PortLink(Port), {"--reply", "3352=02:03:00"});
    Library library(folder.LibraryPath());
    char out[16] = "stale";

    EXPECT_EQ(library.Get<TextCall>("MsreRead")(out), 0);
    EXPECT_EQ(out[0], 0);
}

TEST_F(Cards, ACancelDuringASwipeSendsOneCan)
{
    Simulator terminal(folder.PortLink(Port), {"--swipe-wait"});
    Library library(folder.LibraryPath());
    char out[16] = {};
    int result = -99;

    CancelDuring(library, terminal, SwipeFrame.size(),
                 [&] { result = library.Get<TextCall>("MsreRead")(out); });

    Bytes expected = SwipeFrame;
    expected.push_back(Can);
    EXPECT_EQ(terminal.Received(), expected);
    // The terminal's CAN is a one-byte answer: it stands in out[0], without a field.
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Hex(BufferBytes(out, 2)), "18 00");
    EXPECT_EQ(CloseLines(folder.LogText()), 1u);
}

// --- EMVRead -----------------------------------------------------------------------------

TEST_F(Cards, EMVReadAsksForTheCardholderNameAndReturnsTheAnswer)
{
    Simulator terminal(folder.PortLink(Port), {"--emv-name", "DOE/JOHN"});
    Library library(folder.LibraryPath());
    char out[256];
    std::memset(out, 0x55, sizeof out);

    const std::string answer = "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"value\":\"DOE/JOHN\"}]}";
    EXPECT_EQ(library.Get<TextCall>("EMVRead")(out), static_cast<int>(answer.size()));

    EXPECT_EQ(std::string(out), answer);
    EXPECT_EQ(static_cast<uint8_t>(out[answer.size() + 1]), 0x55);
    const std::string request = "{\"EMVTAG\":[{\"tag\":\"NAME-1\",\"cmd\":\"5F20\",\"type\":\"A\"}]}";
    ASSERT_EQ(request.size(), 53u);
    const Bytes frame = terminal.Received();
    EXPECT_EQ(frame.size(), 58u);
    EXPECT_EQ(frame.back(), 0x10);
    EXPECT_EQ(frame, Frame({'1'}, TextBytes(request)));
    const std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "\t" + request + "\r\n"));
    EXPECT_TRUE(Contains(log, "\t" + answer + "\r\n"));
}

TEST_F(Cards, EMVReadHandsBackWhatComesAsItComes)
{
    Simulator terminal(folder.PortLink(Port), {"--reply", "31=02:6E:6F:20:63:61:72:64:03:00"});
    Library library(folder.LibraryPath());
    char out[32] = {};

    EXPECT_EQ(library.Get<TextCall>("EMVRead")(out), 7);
    EXPECT_STREQ(out, "no card");
}

// --- ThaiIDRead --------------------------------------------------------------------------

TEST_F(Cards, ThaiIDReadSendsTheModeByteWithItsCheck)
{
    const struct {
        int mode;
        uint8_t byte;
        uint8_t check;
    } cases[] = {{0, 0x00, 0x0B}, {1, 0x01, 0x0A}, {4, 0x04, 0x0F}, {0x105, 0x05, 0x0E}};
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--reply", "3200=02:41:A1:80:42:FF:03:00"});
        Library library(fresh.LibraryPath());
        char out[32];
        std::memset(out, 0x55, sizeof out);

        // Text form for every one of these modes: TIS-620 to UTF-8, 0x80 and 0xFF dropped.
        EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(out, c.mode), 5) << c.mode;

        EXPECT_EQ(Hex(BufferBytes(out, 7)), "41 E0 B8 81 42 00 55") << c.mode;
        EXPECT_EQ(terminal.Received(), ThaiIdFrame(c.byte, c.check)) << c.mode;
    }
}

TEST_F(Cards, ThaiIDReadTextStopsAtTheFirstNul)
{
    Simulator terminal(folder.PortLink(Port), {"--reply", "3200=02:31:32:00:33:34:03:00"});
    Library library(folder.LibraryPath());
    char out[16];
    std::memset(out, 0x55, sizeof out);

    EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(out, 0), 2);
    EXPECT_EQ(Hex(BufferBytes(out, 4)), "31 32 00 55");
}

TEST_F(Cards, ThaiIDReadBinaryFormCopiesNoMoreThanArrived)
{
    const struct {
        const char* reply;
        int result;
    } cases[] = {
        {"3200=02:03:00:00:00:41:42:43:03:00", 3},
        {"3200=02:10:00:00:00:41:42:03:00", 2},  // says 16, two came
        {"3200=02:FF:FF:FF:FF:41:03:00", 0},     // says -1
        {"3200=02:41:03:00", 0},                 // no length at all
    };
    for (const auto& c : cases) {
        Workspace fresh;
        fresh.UsePort(Port);
        Simulator terminal(fresh.PortLink(Port), {"--reply", c.reply});
        Library library(fresh.LibraryPath());
        char out[16];
        std::memset(out, 0x55, sizeof out);

        EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(out, 2), c.result) << c.reply;

        Bytes expected(sizeof out, 0x55);
        const Bytes payload = HexBytes(std::string(c.reply).substr(8));
        for (int i = 0; i < c.result; ++i)
            expected[i] = payload[4 + i];
        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected)) << c.reply;
        EXPECT_EQ(terminal.Received(), ThaiIdFrame(0x02, 0x09)) << c.reply;
    }
}

TEST_F(Cards, ThaiIDReadOfTheSimulatedCardInBothForms)
{
    Simulator terminal(folder.PortLink(Port));
    Library library(folder.LibraryPath());
    auto read = library.Get<ThaiIdCall>("ThaiIDRead");

    std::vector<char> text(64 * 1024, 0x55);
    const int textLength = read(text.data(), 0);
    ASSERT_GT(textLength, 0);
    EXPECT_EQ(static_cast<int>(std::strlen(text.data())), textLength);
    // Every byte above ASCII belongs to a three-byte Thai character.
    for (int i = 0; i < textLength; ++i) {
        const uint8_t b = static_cast<uint8_t>(text[i]);
        if (b < 0x80)
            continue;
        ASSERT_EQ(b, 0xE0) << "at " << i;
        ASSERT_LT(i + 2, textLength);
        const uint8_t second = static_cast<uint8_t>(text[i + 1]);
        EXPECT_TRUE(second == 0xB8 || second == 0xB9) << "at " << i;
        i += 2;
    }
    // ThaiLen takes the text back: one column per character at most, marks none.
    const int columns = library.Get<LenCall>("ThaiLen")(text.data());
    EXPECT_GT(columns, 0);
    EXPECT_LE(columns, textLength);

    std::vector<char> block(64 * 1024, 0x55);
    const int blockLength = read(block.data(), 3);
    EXPECT_GT(blockLength, 5118);  // the text and the photo
    EXPECT_EQ(static_cast<uint8_t>(block[blockLength]), 0x55) << "no terminator in binary form";
    EXPECT_EQ(terminal.Received(), [] {
        Bytes both = ThaiIdFrame(0x00, 0x0B);
        const Bytes second = ThaiIdFrame(0x03, 0x08);
        both.insert(both.end(), second.begin(), second.end());
        return both;
    }());
}

TEST_F(Cards, ACancelDuringAThaiIdReadSendsOneCan)
{
    Simulator terminal(folder.PortLink(Port), {"--thaiid-wait"});
    Library library(folder.LibraryPath());
    char out[16];
    std::memset(out, 0x55, sizeof out);
    int result = -99;

    CancelDuring(library, terminal, ThaiIdFrame(0, 0x0B).size(),
                 [&] { result = library.Get<ThaiIdCall>("ThaiIDRead")(out, 0); });

    Bytes expected = ThaiIdFrame(0, 0x0B);
    expected.push_back(Can);
    EXPECT_EQ(terminal.Received(), expected);
    // The single byte that came back is all that is read: CAN is ASCII and stays.
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Hex(BufferBytes(out, 3)), "18 00 55");
}

// --- ThaiLen and the calls without a port ------------------------------------------------

TEST_F(Cards, ThaiLenCountsColumnsWithoutATerminal)
{
    Library library(folder.LibraryPath());
    auto len = library.Get<LenCall>("ThaiLen");

    EXPECT_EQ(len(""), 0);
    EXPECT_EQ(len("ABC"), 3);
    EXPECT_EQ(len("\xE0\xB8\x81\xE0\xB8\xB4\xE0\xB9\x88"), 1);  // KO KAI, SARA I, MAI EK
    EXPECT_EQ(len("\xE0\xB8\x99\xE0\xB9\x89\xE0\xB8\xB3"), 2);  // NO NU, MAI THO, SARA AM
    EXPECT_FALSE(Contains(folder.LogText(), "Open Port"));
}

TEST_F(Cards, WithoutAPortEveryCardCallAnswers110AndWritesNothing)
{
    Workspace unconfigured;
    Library library(unconfigured.LibraryPath());
    uint8_t bytes[20];
    char text[20];
    const auto reset = [&] {
        std::memset(bytes, 0x55, sizeof bytes);
        std::memset(text, 0x55, sizeof text);
        text[0] = 'A';
        text[1] = 0;
    };
    const Bytes untouchedBytes(sizeof bytes, 0x55);
    Bytes untouchedText(sizeof text, 0x55);
    untouchedText[0] = 'A';
    untouchedText[1] = 0;

    reset();
    EXPECT_EQ(library.Get<BytesCall>("PinLoadMK")(bytes), 110);
    EXPECT_EQ(BufferBytes(bytes, sizeof bytes), untouchedBytes);
    reset();
    EXPECT_EQ(library.Get<BytesCall>("PinReadKey")(bytes), 110);
    EXPECT_EQ(BufferBytes(bytes, sizeof bytes), untouchedBytes);
    for (const char* name : {"PinReadKeyClear", "MsreRead", "EMVRead"}) {
        reset();
        EXPECT_EQ(library.Get<TextCall>(name)(text), 110) << name;
        EXPECT_EQ(BufferBytes(text, sizeof text), untouchedText) << name;
    }
    reset();
    EXPECT_EQ(library.Get<ThaiIdCall>("ThaiIDRead")(text, 0), 110);
    EXPECT_EQ(BufferBytes(text, sizeof text), untouchedText);
}

}  // namespace
