// The card and PIN exports against the simulated terminal: the frames on the wire, the
// results, and the caller's buffer byte for byte, cancels during a wait included. How replies
// decode is proven by the unit tests; here each path through an export is taken once.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
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
using Options = std::vector<std::string>;

constexpr int Port = 7;
constexpr uint8_t Can = 0x18;
constexpr uint8_t Unwritten = 0x55;

// A command frame built here, independently of the library's builder.
Bytes Frame(const Bytes& operation, const Bytes& payload)
{
    Bytes frame = {0x02};
    uint8_t check = 0;
    for (const Bytes* part : {&operation, &payload}) {
        for (uint8_t b : *part) {
            frame.push_back(b);
            check ^= b;
        }
    }
    frame.push_back(0x03);
    frame.push_back(check);
    return frame;
}

Bytes TextBytes(const std::string& text)  // with its NUL
{
    return Bytes(text.c_str(), text.c_str() + text.size() + 1);
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Bytes PinPadFrame = Frame({'0', '0'}, TextBytes("pinpad.json"));
const Bytes SwipeFrame = HexBytes("02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37");

Bytes ThaiIdFrame(uint8_t mode)
{
    return Frame({0x32, 0x00}, Bytes{mode} + TextBytes("Insert Card :"));
}

Bytes BufferBytes(const void* buffer, size_t count)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    return Bytes(bytes, bytes + count);
}

// `head`, then unwritten bytes up to `size`.
Bytes Filled(size_t size, const Bytes& head)
{
    Bytes bytes(size, Unwritten);
    std::copy(head.begin(), head.end(), bytes.begin());
    return bytes;
}

size_t CloseLines(const std::string& log)
{
    const std::string line = "Close Device was ";
    return CountOf(Bytes(log.begin(), log.end()), Bytes(line.begin(), line.end()));
}

const Workspace& Configured(const Workspace& folder)
{
    folder.EnableLog();
    folder.UsePort(Port);
    return folder;
}

// A fresh folder with the log on and port 7, the simulator there, and the library loaded.
struct Session {
    Workspace folder;
    Simulator terminal;
    Library library;
    explicit Session(Options options = {})
        : terminal(Configured(folder).PortLink(Port), std::move(options)),
          library(folder.LibraryPath())
    {
    }
    template <typename Call>
    Call* Get(const char* name) const { return library.Get<Call>(name); }
};

// Runs `call` on this thread and PosCancel on another once `frame` has reached the terminal;
// the terminal must then have received the frame and one CAN.
void CancelDuring(Session& s, const Bytes& frame, const std::function<void()>& call)
{
    std::thread canceller([&] {
        s.terminal.WaitReceived(frame.size());
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        s.Get<VoidCall>("PosCancel")();
    });
    call();
    canceller.join();
    EXPECT_EQ(Hex(s.terminal.Received()), Hex(frame + Bytes{Can}));
    EXPECT_EQ(CloseLines(s.folder.LogText()), 1u);
}

TEST(Cards, PinReadKeyDecodesTheReplyIntoTheCallersBuffer)
{
    const struct {
        Options options;
        Bytes head;  // out up to its NUL; out[16] is always 0
    } cases[] = {
        {{"--pin", "ABC"}, HexBytes("AB C0 00")},
        // 200 digits: the work buffer keeps 127 of them, which decode to 64 bytes and a NUL.
        {{"--pin", std::string(200, 'F')}, Bytes(63, 0xFF) + HexBytes("F0 00")},
        // A refused reply leaves the cleared work buffer: the NUL alone.
        {{"--reply", "3030=41:42:43"}, HexBytes("00")},
    };
    for (const auto& c : cases) {
        Session s(c.options);
        uint8_t out[100];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<BytesCall>("PinReadKey")(out), 0) << c.options[1];

        Bytes expected = Filled(sizeof out, c.head);
        expected[16] = 0;
        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected)) << c.options[1];
        EXPECT_EQ(s.terminal.Received(), PinPadFrame) << c.options[1];
    }
}

TEST(Cards, ACancelDuringPinEntrySendsOneCan)
{
    Session s({"--pin-wait"});
    uint8_t out[20];
    std::memset(out, Unwritten, sizeof out);
    int result = -99;

    CancelDuring(s, PinPadFrame, [&] { result = s.Get<BytesCall>("PinReadKey")(out); });

    EXPECT_EQ(result, 0);
    // The terminal's CAN comes back as one non-digit: a zero byte and the NUL.
    Bytes expected = Filled(sizeof out, HexBytes("00 00"));
    expected[16] = 0;
    EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(expected));
}

TEST(Cards, PinReadKeyClearSendsThePromptAndReturnsEightBytes)
{
    const Bytes key = HexBytes("12 34 56 78 90 AB CD EF 00");
    const Bytes zeros(9, 0);
    const struct {
        std::string prompt;
        Options options;
        std::string sent;
        Bytes head;
    } cases[] = {
        {"Amount", {}, "Amount", key},
        {"", {}, "INPUT", key},
        {" ", {}, " ", key},
        {"Amount", {"--pin", std::string(300, '7')}, "Amount", Bytes(8, 0x77) + Bytes{0}},
        {"Amount", {"--reply", "3030=31:32"}, "Amount", zeros},  // refused
    };
    for (const auto& c : cases) {
        Session s(c.options);
        char inOut[32];
        std::memset(inOut, Unwritten, sizeof inOut);
        std::memcpy(inOut, c.prompt.c_str(), c.prompt.size() + 1);

        EXPECT_EQ(s.Get<TextCall>("PinReadKeyClear")(inOut), 0) << c.prompt;

        EXPECT_EQ(s.terminal.Received(), Frame({'0', '0'}, TextBytes("pinclear.json|" + c.sent)))
            << c.prompt;
        // Bytes behind the NUL keep what the prompt left there.
        Bytes expected = Filled(sizeof inOut, TextBytes(c.prompt));
        std::copy(c.head.begin(), c.head.end(), expected.begin());
        EXPECT_EQ(Hex(BufferBytes(inOut, sizeof inOut)), Hex(expected)) << c.prompt;
    }
}

TEST(Cards, PinLoadMKSendsTheKeyAndTheReplyOverwritesIt)
{
    const Bytes key = HexBytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    const struct {
        Options options;
        Bytes start;  // what the reply puts at the head of the buffer
    } cases[] = {
        {{}, HexBytes("06")},                                   // ACK: key[0] only
        {{"--mk-reply", "41:42:43"}, HexBytes("41 42 43 00")},  // a frame and its NUL
        {{"--reply", "3032=31:32"}, {}},                        // refused: nothing
    };
    for (const auto& c : cases) {
        Session s(c.options);
        uint8_t buffer[20];
        std::memset(buffer, Unwritten, sizeof buffer);
        std::memcpy(buffer, key.data(), key.size());

        EXPECT_EQ(s.Get<BytesCall>("PinLoadMK")(buffer), 0);

        EXPECT_EQ(s.terminal.Received(), Frame({'0', '2'}, key));
        Bytes expected = Filled(sizeof buffer, key);
        std::copy(c.start.begin(), c.start.end(), expected.begin());
        EXPECT_EQ(Hex(BufferBytes(buffer, sizeof buffer)), Hex(expected));
    }
}

TEST(Cards, MsreReadRendersOrPassesTheAnswerOn)
{
    const struct {
        Options options;
        std::string text;
        const char* notice;  // in the log, for a character that is no digit
    } cases[] = {
        {{"--stripe", "4111111111111111=2512101|4111111111111111=2512|"},
         "B4111111111111111D2512101FC|B4111111111111111D2512FC", nullptr},
        {{"--stripe", "%B12^X|56|"}, "B%B12^XF8|B56F3", "error [^]"},
        {{"--swipe-fail"}, "READ ERROR", nullptr},  // no fields: passed on as it is
        {{"--reply", "3352=02:03:00"}, "", nullptr},  // an empty answer
    };
    for (const auto& c : cases) {
        Session s(c.options);
        char out[128];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<TextCall>("MsreRead")(out), static_cast<int>(c.text.size())) << c.text;

        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(Filled(sizeof out, TextBytes(c.text))));
        EXPECT_EQ(s.terminal.Received(), SwipeFrame) << c.text;
        if (c.notice != nullptr) {
            EXPECT_TRUE(Contains(s.folder.LogText(), c.notice)) << c.notice;
        }
    }
}

TEST(Cards, MsreReadWithTwoFieldsLeavesTheTextAndThePortAsTheyAre)
{
    Session s({"--stripe", "1234=56|78"});
    char out[64];
    std::memset(out, Unwritten, sizeof out);

    EXPECT_EQ(s.Get<TextCall>("MsreRead")(out), 10);

    EXPECT_EQ(Hex(BufferBytes(out, 12)), "31 32 33 34 3D 35 36 7C 37 38 00 55");
    EXPECT_EQ(CloseLines(s.folder.LogText()), 0u) << "the port stays open";
    // The next call finds the port open and closes it.
    char version[64] = {};
    EXPECT_EQ(s.Get<TextCall>("getVersion")(version), 15);
    const std::string log = s.folder.LogText();
    EXPECT_TRUE(Contains(log, "port is opened"));
    EXPECT_EQ(CloseLines(log), 1u);
}

TEST(Cards, ACancelDuringASwipeSendsOneCan)
{
    Session s({"--swipe-wait"});
    char out[16] = {};
    int result = -99;

    CancelDuring(s, SwipeFrame, [&] { result = s.Get<TextCall>("MsreRead")(out); });

    // The terminal's CAN is a one-byte answer: it stands in out[0], without a field or a NUL.
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Hex(BufferBytes(out, 2)), "18 00");
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
    ASSERT_EQ(request.size(), 53u);
    const Bytes frame = s.terminal.Received();
    EXPECT_EQ(frame, Frame({'1'}, TextBytes(request)));
    EXPECT_EQ(frame.back(), 0x10);
    const std::string log = s.folder.LogText();
    EXPECT_TRUE(Contains(log, "\t" + request + "\r\n"));
    EXPECT_TRUE(Contains(log, "\t" + answer + "\r\n"));
}

TEST(Cards, ThaiIDReadSendsTheModeByteAndAnswersInTextOrBinaryForm)
{
    const std::string text = "3200=02:41:A1:80:42:FF:03:00";
    const struct {
        int mode;
        std::string reply;
        int result;
        Bytes head;
    } cases[] = {
        // Text form: TIS-620 to UTF-8, 0x80 and 0xFF dropped, a NUL.
        {0, text, 5, HexBytes("41 E0 B8 81 42 00")},
        {0x105, text, 5, HexBytes("41 E0 B8 81 42 00")},  // the low byte goes out
        // Binary form: the block says 16 bytes, two came; no terminator.
        {2, "3200=02:10:00:00:00:41:42:03:00", 2, HexBytes("41 42")},
    };
    for (const auto& c : cases) {
        Session s({"--reply", c.reply});
        char out[32];
        std::memset(out, Unwritten, sizeof out);

        EXPECT_EQ(s.Get<ThaiIdCall>("ThaiIDRead")(out, c.mode), c.result) << c.mode;

        EXPECT_EQ(Hex(BufferBytes(out, sizeof out)), Hex(Filled(sizeof out, c.head))) << c.mode;
        EXPECT_EQ(s.terminal.Received(), ThaiIdFrame(static_cast<uint8_t>(c.mode))) << c.mode;
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
    EXPECT_EQ(s.terminal.Received(), ThaiIdFrame(0x00) + ThaiIdFrame(0x03));
}

TEST(Cards, ThaiLenCountsColumnsWithoutATerminal)
{
    Workspace folder;
    Library library(Configured(folder).LibraryPath());

    // NO NU, MAI THO, SARA AM: the mark stacks, the vowel takes a column.
    EXPECT_EQ(library.Get<LenCall>("ThaiLen")("\xE0\xB8\x99\xE0\xB9\x89\xE0\xB8\xB3"), 2);
    EXPECT_FALSE(Contains(folder.LogText(), "Open Port"));
}

TEST(Cards, WithoutAPortEveryCardCallAnswers110AndWritesNothing)
{
    Workspace unconfigured;
    Library library(unconfigured.LibraryPath());
    const auto bytesCall = [&](const char* name) -> std::function<int(char*)> {
        auto call = library.Get<BytesCall>(name);
        return [call](char* b) { return call(reinterpret_cast<unsigned char*>(b)); };
    };
    auto thaiId = library.Get<ThaiIdCall>("ThaiIDRead");
    const std::pair<const char*, std::function<int(char*)>> calls[] = {
        {"PinLoadMK", bytesCall("PinLoadMK")},
        {"PinReadKey", bytesCall("PinReadKey")},
        {"PinReadKeyClear", library.Get<TextCall>("PinReadKeyClear")},
        {"MsreRead", library.Get<TextCall>("MsreRead")},
        {"EMVRead", library.Get<TextCall>("EMVRead")},
        {"ThaiIDRead", [thaiId](char* b) { return thaiId(b, 0); }},
    };
    for (const auto& call : calls) {
        char buffer[20];
        const Bytes untouched = Filled(sizeof buffer, TextBytes("A"));
        std::memcpy(buffer, untouched.data(), sizeof buffer);
        EXPECT_EQ(call.second(buffer), 110) << call.first;
        EXPECT_EQ(BufferBytes(buffer, sizeof buffer), untouched) << call.first;
    }
}

}  // namespace
