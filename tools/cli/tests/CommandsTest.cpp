#include "Commands.h"

#include "FakePcsc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>

namespace {

// A stand-in for the library: each export does what the test sets up.
struct Fake {
    int result = 0;
    int lastPort = 0;
    int calls = 0;
    std::string text;       // what a text reader writes
    bool writeText = true;  // false: leave the buffer alone, as on a port failure
    bool cancelOnCall = false;
    ByteString bytes;       // what a byte reader writes, or a binary block
    ByteString keyIn;       // the key buffer as PinLoadMK got it
    bool oneByteReply = true;   // PinLoadMK: one byte, or a text with a NUL
    std::string promptIn;   // the buffer as PinReadKeyClear got it
    int mode = -1;          // ThaiIDRead's mode
};
Fake g_fake;

int VARNIK_CALL FakeSelect()
{
    ++g_fake.calls;
    return g_fake.result;
}
int VARNIK_CALL FakeCheckPort(int port)
{
    ++g_fake.calls;
    g_fake.lastPort = port;
    return g_fake.result;
}
int VARNIK_CALL FakeCancel()
{
    return 0;
}
int VARNIK_CALL FakeReadText(char* out)
{
    ++g_fake.calls;
    if (g_fake.writeText)
        std::memcpy(out, g_fake.text.c_str(), g_fake.text.size() + 1);
    return g_fake.result;
}
int VARNIK_CALL FakeThaiLen(const char* text)
{
    return static_cast<int>(std::strlen(text)) * 10;
}
int VARNIK_CALL FakePinReadKey(unsigned char* out)
{
    ++g_fake.calls;
    if (g_fake.writeText) {
        std::copy(g_fake.bytes.begin(), g_fake.bytes.end(), out);
        out[16] = 0;
    }
    return g_fake.result;
}
int VARNIK_CALL FakePinReadKeyClear(char* inOut)
{
    ++g_fake.calls;
    g_fake.promptIn = inOut;
    if (g_fake.writeText) {
        std::copy(g_fake.bytes.begin(), g_fake.bytes.end(), inOut);
        inOut[8] = 0;
    }
    return g_fake.result;
}
int VARNIK_CALL FakePinLoadMK(unsigned char* key)
{
    ++g_fake.calls;
    g_fake.keyIn.assign(key, key + 16);
    if (g_fake.oneByteReply)
        key[0] = g_fake.bytes[0];
    else
        std::memcpy(key, g_fake.text.c_str(), g_fake.text.size() + 1);
    return g_fake.result;
}
int VARNIK_CALL FakeThaiIDRead(char* out, int mode)
{
    g_fake.mode = mode;
    if ((mode & 3) < 2)
        return FakeReadText(out);
    ++g_fake.calls;
    if (g_fake.writeText)
        std::copy(g_fake.bytes.begin(), g_fake.bytes.end(), out);
    return g_fake.result;
}
int VARNIK_CALL FakeReaderSelect()
{
    ++g_fake.calls;
    return g_fake.result;
}

class CommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_fake = Fake();
        library.path = "/opt/v/libvarnik.so";
        library.api.PosSelect = FakeSelect;
        library.api.PosCheckPort = FakeCheckPort;
        library.api.PosCancel = FakeCancel;
        library.api.getVersion = FakeReadText;
        library.api.MsreRead = FakeReadText;
        library.api.EMVRead = FakeReadText;
        library.api.ThaiLen = FakeThaiLen;
        library.api.PinReadKey = FakePinReadKey;
        library.api.PinReadKeyClear = FakePinReadKeyClear;
        library.api.PinLoadMK = FakePinLoadMK;
        library.api.ThaiIDRead = FakeThaiIDRead;
        library.api.ReaderSelect = FakeReaderSelect;
        g_pcsc = FakePcsc();
        g_pcsc.file = ThaiIdCardImage();
        pcsc = FakePcscApi();
    }

    int Run(const std::string& name, std::vector<std::string> args = {})
    {
        CommandContext context(out, err);
        context.args = std::move(args);
        context.load = [this]() -> const LoadedLibrary* {
            ++loads;
            return loadable ? &library : nullptr;
        };
        context.beginWait = [this](const VarnikApi&) {
            ++waits;
            if (g_fake.cancelOnCall)
                cancelSent = true;
        };
        context.endWait = [this] { return cancelSent; };
        context.readFile = [this](const std::string& path, std::string& content) {
            readPath = path;
            content = configText;
            return !configText.empty();
        };
        context.writeFile = [this](const std::string& path, const ByteString& content) {
            written[path] = content;
            return writable;
        };
        context.loadPcsc = [this]() -> const PcscApi* { return pcscLoadable ? &pcsc : nullptr; };
        const Command* command = FindCommand(name);
        EXPECT_NE(command, nullptr) << name;
        return command ? RunCommand(*command, context) : -1;
    }

    LoadedLibrary library;
    bool loadable = true;
    bool cancelSent = false;
    int loads = 0;
    int waits = 0;
    std::string configText;
    std::string readPath;
    std::ostringstream out, err;
    std::map<std::string, ByteString> written;
    bool writable = true;
    PcscApi pcsc;
    bool pcscLoadable = true;
};

TEST_F(CommandsTest, SessionResultsBecomeMessagesAndExitStatus)
{
    struct {
        int result;
        int status;
        const char* message;
    } cases[] = {
        {0, ExitOk, "Terminal answered on port 7.\n"},
        {110, ExitTerminal, "No port known or it would not open (110).\n"},
        {1538, ExitTerminal, "No terminal answered (1538).\n"},
        {-790, ExitTerminal, "The library answered with the unexpected result -790.\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.result = c.result;
        configText = "{\"port\":7}";
        EXPECT_EQ(Run("probe"), c.status) << c.result;
        EXPECT_EQ(out.str(), c.message);
        EXPECT_EQ(readPath, c.result == 0 ? "/opt/v/config/varnik.json" : readPath);

        out.str("");
        EXPECT_EQ(Run("checkport", {"7"}), c.status) << c.result;
        EXPECT_EQ(out.str(), c.message);
        EXPECT_EQ(g_fake.lastPort, 7);
    }
}

TEST_F(CommandsTest, ProbeWithoutAKnownPortNumberSaysSoBriefly)
{
    configText = "{\"port\":0,\"name\":\"Terminal Port\"}";
    EXPECT_EQ(Run("probe"), ExitOk);
    EXPECT_EQ(out.str(), "Terminal answered.\n");
    out.str("");
    configText.clear();   // no file
    EXPECT_EQ(Run("probe"), ExitOk);
    EXPECT_EQ(out.str(), "Terminal answered.\n");
}

TEST_F(CommandsTest, TerminalCallsAreCancellable)
{
    Run("probe");
    Run("checkport", {"3"});
    Run("version");
    EXPECT_EQ(waits, 3);
    Run("thailen", {"abc"});   // no terminal, nothing to cancel
    EXPECT_EQ(waits, 3);
}

TEST_F(CommandsTest, CancelGivesItsOwnStatus)
{
    g_fake.cancelOnCall = true;
    g_fake.text = "\x18";
    g_fake.result = 1;
    EXPECT_EQ(Run("version"), ExitCancelled);
    EXPECT_NE(out.str().find("Cancelled."), std::string::npos);
}

TEST_F(CommandsTest, BadPortNumberIsUsageErrorBeforeLoading)
{
    for (const char* word : {"seven", "7x", "", "COM7", "99999999999"}) {
        EXPECT_EQ(Run("checkport", {word}), ExitUsage) << word;
    }
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(g_fake.calls, 0);
    EXPECT_EQ(Run("checkport", {"-1"}), ExitOk);   // the library judges the number itself
    EXPECT_EQ(g_fake.lastPort, -1);
}

TEST_F(CommandsTest, WrongArgumentCountIsUsageError)
{
    EXPECT_EQ(Run("probe", {"x"}), ExitUsage);
    EXPECT_EQ(Run("checkport"), ExitUsage);
    EXPECT_EQ(Run("checkport", {"1", "2"}), ExitUsage);
    EXPECT_EQ(Run("thailen"), ExitUsage);
    EXPECT_EQ(loads, 0);
    EXPECT_NE(err.str().find("varnik checkport N"), std::string::npos);
}

TEST_F(CommandsTest, LibraryProblemsGiveStatus2)
{
    loadable = false;
    EXPECT_EQ(Run("probe"), ExitNoLibrary);
    loadable = true;
    library.api.getVersion = nullptr;
    EXPECT_EQ(Run("version"), ExitNoLibrary);
    EXPECT_NE(err.str().find("has no function getVersion"), std::string::npos);
    EXPECT_EQ(g_fake.calls, 0);
}

// A text reader returns the text's length, and 110 also when the port would not open; only an
// untouched buffer tells the two apart.
TEST_F(CommandsTest, TextReadersTellPortFailureFromA110ByteText)
{
    const std::string text110(110, 'V');
    struct {
        int result;
        bool write;
        std::string text;
        int status;
        std::string output;
    } cases[] = {
        {14, true, "NEW6210 V1.2.3", ExitOk, "NEW6210 V1.2.3\n"},
        {110, true, text110, ExitOk, text110 + "\n"},
        {110, false, "", ExitTerminal, "No port known or it would not open (110).\n"},
        {0, true, "", ExitTerminal, "The terminal gave no version text.\n"},
        // The length is counted by us: a result that disagrees does not cut the text.
        {3, true, "ABCDEF", ExitOk, "ABCDEF\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.result = c.result;
        g_fake.writeText = c.write;
        g_fake.text = c.text;
        EXPECT_EQ(Run("version"), c.status) << c.result << " " << c.text;
        EXPECT_EQ(out.str(), c.output);
    }
}

TEST_F(CommandsTest, ThaiLenPrintsTheCount)
{
    EXPECT_EQ(Run("thailen", {"abcd"}), ExitOk);
    EXPECT_EQ(out.str(), "40\n");
}

TEST_F(CommandsTest, BadArgumentsAreUsageErrorsBeforeLoading)
{
    struct {
        const char* command;
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {"pin", {"x"}, "usage: varnik pin"},
        {"pinclear", {"@LIST"}, "may not begin with '@'"},
        {"pinclear", {std::string(1024, 'P')}, "longer than 1023 bytes"},
        {"loadkey", {"0011"}, "32 hexadecimal digits"},
        {"loadkey", {"00112233445566778899AABBCCDDEEFG"}, "32 hexadecimal digits"},
        {"loadkey", {"00112233445566778899AABBCCDDEEFF00"}, "32 hexadecimal digits"},
        {"thaiid", {"--mode"}, "--mode needs a whole number"},
        {"thaiid", {"--mode", "two"}, "--mode needs a whole number"},
        {"thaiid", {"--out"}, "--out needs a file name"},
        {"thaiid", {"--out", "x.bin"}, "--out is for modes 2 and 3"},
        {"thaiid", {"--mode=5", "--out=x.bin"}, "--out is for modes 2 and 3"},
        {"thaiid", {"-m", "2"}, "usage: varnik thaiid"},
        {"pcsc", {"list"}, "usage: varnik pcsc"},
        {"pcsc", {"readers", "x"}, "usage: varnik pcsc"},
        {"pcsc", {"apdu"}, "usage: varnik pcsc"},
        {"pcsc", {"apdu", "00", "A4", "0"}, "apdu needs a command"},
        {"pcsc", {"apdu", "00A404"}, "apdu needs a command"},
        {"pcsc", {"thaiid", "--photo"}, "usage: varnik pcsc thaiid"},
        {"pcsc", {"thaiid", "x.jpg"}, "usage: varnik pcsc thaiid"},
    };
    for (const auto& c : cases) {
        err.str("");
        EXPECT_EQ(Run(c.command, c.args), ExitUsage) << c.command << " " << c.message;
        EXPECT_NE(err.str().find(c.message), std::string::npos) << err.str();
    }
    EXPECT_EQ(loads, 0);
    EXPECT_EQ(g_fake.calls, 0);
}

TEST_F(CommandsTest, PinPrintsTheSixteenBytesInHex)
{
    g_fake.bytes = {0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF};
    EXPECT_EQ(Run("pin"), ExitOk);
    EXPECT_EQ(out.str(), "Enter the PIN on the terminal.\n1234567890ABCDEF0000000000000000\n");
    EXPECT_EQ(waits, 1);

    out.str("");
    g_fake.result = 110;
    g_fake.writeText = false;
    EXPECT_EQ(Run("pin"), ExitTerminal);
    EXPECT_NE(out.str().find("(110)"), std::string::npos);
}

TEST_F(CommandsTest, PinClearSendsThePromptAndPrintsEightBytes)
{
    g_fake.bytes = {0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF, 0x99};
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {""}, {"Amount 100.00"}, {" "}}) {
        out.str("");
        EXPECT_EQ(Run("pinclear", args), ExitOk);
        EXPECT_EQ(g_fake.promptIn, args.empty() ? "" : args[0]);
        EXPECT_EQ(out.str(), "Enter the PIN on the terminal.\n1234567890ABCDEF\n");
    }
}

TEST_F(CommandsTest, LoadKeySendsRawBytesAndPrintsTheReply)
{
    const ByteString key = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                            0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    struct {
        bool oneByte;
        uint8_t byte;
        std::string text;
        int status;
        std::string output;
    } cases[] = {
        {true, 0x06, "", ExitOk, "The terminal replied 06 (ACK).\n"},
        {true, 0x15, "", ExitTerminal, "The terminal replied 15 (NAK).\n"},
        {true, 0x18, "", ExitTerminal, "The terminal replied 18 (CAN).\n"},
        {true, 0x00, "", ExitTerminal, "The terminal replied 00.\n"},
        {false, 0, "OK", ExitOk, "The terminal replied \"OK\".\n"},
        {false, 0, "KEY LOADED", ExitOk, "The terminal replied \"KEY LOADED\".\n"},
        {false, 0, "\x01\x02", ExitOk, "The terminal replied 01 02.\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.oneByteReply = c.oneByte;
        g_fake.bytes = {c.byte};
        g_fake.text = c.text;
        EXPECT_EQ(Run("loadkey", {"00112233445566778899aabbccddeeff"}), c.status) << c.output;
        EXPECT_EQ(g_fake.keyIn, key);
        EXPECT_EQ(out.str(), c.output);
    }
}

TEST_F(CommandsTest, SwipeLabelsTheTracks)
{
    struct {
        std::string text;
        std::string output;
    } cases[] = {
        {"B4111D25FC|B4111D2FC", "B4111D25FC|B4111D2FC\nTrack 1: B4111D25FC\nTrack 2: B4111D2FC\n"},
        {"|B78FF", "|B78FF\nTrack 1: (empty)\nTrack 2: B78FF\n"},
        {"READ ERROR", "READ ERROR\n"},
    };
    for (const auto& c : cases) {
        out.str("");
        g_fake.text = c.text;
        g_fake.result = static_cast<int>(c.text.size());
        EXPECT_EQ(Run("swipe"), ExitOk);
        EXPECT_EQ(out.str(), "Swipe a card on the terminal.\n" + c.output);
    }
}

TEST_F(CommandsTest, CancelledReadsShowNoData)
{
    g_fake.cancelOnCall = true;
    g_fake.text = "\x18";
    g_fake.bytes = {0x18};
    for (const char* name : {"swipe", "pin", "thaiid"}) {
        out.str("");
        EXPECT_EQ(Run(name), ExitCancelled) << name;
        EXPECT_EQ(out.str().find('\x18'), std::string::npos) << name;
        EXPECT_NE(out.str().find("Cancelled."), std::string::npos) << name;
    }
}

TEST_F(CommandsTest, ThaiIdTextIsLabelledWhenItHasTheUsualLayout)
{
    g_fake.text = "1234567890121|T#A##B|Mr.#Somchai##Jaidee|25300115|1|I|25650301|25740114|A#B";
    g_fake.result = static_cast<int>(g_fake.text.size());
    EXPECT_EQ(Run("thaiid"), ExitOk);
    EXPECT_EQ(g_fake.mode, 0);
    EXPECT_NE(out.str().find("Citizen ID:   1234567890121\n"), std::string::npos);
    EXPECT_NE(out.str().find("English name: Mr. Somchai Jaidee\n"), std::string::npos);

    out.str("");
    g_fake.text = "CARD ERROR|2";
    EXPECT_EQ(Run("thaiid", {"--mode", "5"}), ExitOk);
    EXPECT_EQ(g_fake.mode, 5);
    EXPECT_EQ(out.str(), "Insert a Thai ID card in the terminal.\nCARD ERROR|2\n");
    EXPECT_TRUE(written.empty());
}

TEST_F(CommandsTest, ThaiIdBlockIsDumpedAndWritten)
{
    g_fake.bytes = {'A', 'B', 'C', 0xFF, 0xD8};
    g_fake.result = 5;
    EXPECT_EQ(Run("thaiid", {"--mode", "2"}), ExitOk);
    EXPECT_EQ(g_fake.mode, 2);
    EXPECT_EQ(written["thaiid.bin"], g_fake.bytes);
    EXPECT_NE(out.str().find("00000000  41 42 43 FF D8"), std::string::npos);
    EXPECT_NE(out.str().find("Wrote 5 bytes to thaiid.bin."), std::string::npos);

    EXPECT_EQ(Run("thaiid", {"--out=card.bin", "--mode=-1"}), ExitOk);
    EXPECT_EQ(g_fake.mode, -1);   // -1 & 3 is 3: the block
    EXPECT_EQ(written["card.bin"], g_fake.bytes);

    writable = false;
    EXPECT_EQ(Run("thaiid", {"--mode", "3"}), ExitUsage);
    EXPECT_NE(err.str().find("cannot write thaiid.bin"), std::string::npos);
}

// A block of 110 bytes and the port failure give the same number; only the buffer differs.
TEST_F(CommandsTest, ThaiIdBlockTellsPortFailureFromA110ByteBlock)
{
    g_fake.result = 110;
    g_fake.bytes = ByteString(110, 0x41);
    EXPECT_EQ(Run("thaiid", {"--mode", "2"}), ExitOk);
    EXPECT_EQ(written["thaiid.bin"].size(), 110u);

    written.clear();
    out.str("");
    g_fake.writeText = false;
    EXPECT_EQ(Run("thaiid", {"--mode", "2"}), ExitTerminal);
    EXPECT_NE(out.str().find("(110)"), std::string::npos);
    EXPECT_TRUE(written.empty());

    g_fake.result = 0;
    EXPECT_EQ(Run("thaiid", {"--mode", "2"}), ExitTerminal);
    EXPECT_NE(out.str().find("no card data"), std::string::npos);
}

TEST_F(CommandsTest, PcscListsReadersAndPrintsTheAtr)
{
    EXPECT_EQ(Run("pcsc", {"readers"}), ExitOk);
    EXPECT_EQ(out.str(), "NEW6210 Reader Card\n");
    EXPECT_EQ(g_fake.calls, 1);   // ReaderSelect
    EXPECT_EQ(waits, 1);

    out.str("");
    EXPECT_EQ(Run("pcsc", {"ATR"}), ExitOk);
    EXPECT_EQ(out.str(), "Reader:       NEW6210 Reader Card\n"
                         "ATR:          3B 68 00 00 54 48 20 4E 49 44 20 36\n");
    EXPECT_EQ(g_pcsc.connectedReader, "NEW6210 Reader Card");
    EXPECT_EQ(g_pcsc.disconnects, 1);
}

TEST_F(CommandsTest, PcscApduFetchesWaitingData)
{
    EXPECT_EQ(Run("pcsc", {"apdu", "00 A4 04 00 08", "A0000000544800 01"}), ExitOk);
    EXPECT_EQ(out.str(), "Reader:       NEW6210 Reader Card\n"
                         "> 00 A4 04 00 08 A0 00 00 00 54 48 00 01\n"
                         "< SW 61 0A\n"
                         "> 00 C0 00 00 0A\n"
                         "< 6F 08 84 06 A0 00 00 00 54 48  SW 90 00\n");

    out.str("");
    g_pcsc.responses = {{0x18}};
    EXPECT_EQ(Run("pcsc", {"apdu", "80B0000402000D"}), ExitOk);
    EXPECT_EQ(out.str(), "Reader:       NEW6210 Reader Card\n"
                         "> 80 B0 00 04 02 00 0D\n"
                         "< 18  (no status word)\n");
}

TEST_F(CommandsTest, PcscThaiIdPrintsTheRecordAndWritesThePhoto)
{
    EXPECT_EQ(Run("pcsc", {"thaiid", "--photo", "me.jpg"}), ExitOk);
    EXPECT_NE(out.str().find("Citizen ID:   1234567890121\n"), std::string::npos);
    EXPECT_NE(out.str().find("Thai name:    นาย สมชาย ใจดี\n"), std::string::npos);
    EXPECT_NE(out.str().find("Expiry date:  lifelong\n"), std::string::npos);
    const ByteString photo = FakePhoto();
    const ByteString& saved = written["me.jpg"];
    ASSERT_EQ(saved.size(), 602u);   // up to FF D9, the zero fill cut off
    EXPECT_TRUE(std::equal(saved.begin(), saved.end(), photo.begin()));
    EXPECT_NE(out.str().find("Photo:        602 bytes (JPEG) written to me.jpg.\n"),
              std::string::npos);

    out.str("");
    g_pcsc.refusedOffset = 0x0011;
    EXPECT_EQ(Run("pcsc", {"thaiid"}), ExitTerminal);
    EXPECT_NE(out.str().find("Thai name: the card answered 6B 00"), std::string::npos);
}

TEST_F(CommandsTest, PcscFailuresGiveTheirStatus)
{
    struct {
        int readerSelect;
        bool pcscLoadable;
        PcscLong connect;
        int status;
        const char* message;
    } cases[] = {
        {110, true, 0, ExitTerminal, "No port known or it would not open (110)."},
        {1538, true, 0, ExitTerminal, "No terminal answered (1538)."},
        {-1, true, 0, ExitNoLibrary, "ReaderSelect could not put the terminal"},
        {0, false, 0, ExitNoLibrary, ""},
        {0, true, static_cast<PcscLong>(0x8010000CUL), ExitTerminal,
         "No card in NEW6210 Reader Card: SCARD_E_NO_SMARTCARD (0x8010000C)."},
    };
    for (const auto& c : cases) {
        SetUp();
        out.str("");
        g_fake.result = c.readerSelect;
        pcscLoadable = c.pcscLoadable;
        g_pcsc.connectResult = c.connect;
        EXPECT_EQ(Run("pcsc", {"atr"}), c.status) << c.message;
        EXPECT_NE(out.str().find(c.message), std::string::npos) << out.str();
    }
    pcscLoadable = true;
    library.api.ReaderSelect = nullptr;
    EXPECT_EQ(Run("pcsc", {"readers"}), ExitNoLibrary);
    EXPECT_NE(err.str().find("has no function ReaderSelect"), std::string::npos);
    library.api.ReaderSelect = FakeReaderSelect;
    pcsc.SCardStatus = nullptr;
    g_fake.result = 0;
    EXPECT_EQ(Run("pcsc", {"readers"}), ExitNoLibrary);
    EXPECT_NE(err.str().find("no function SCardStatus"), std::string::npos);
}

TEST(CommandTableTest, EveryCommandIsFoundAndHasHelp)
{
    for (const Command& command : CommandTable()) {
        EXPECT_EQ(FindCommand(command.name), &command);
        EXPECT_LE(command.minArgs, command.maxArgs) << command.name;
        EXPECT_EQ(std::string(command.synopsis).find(command.name), 0u) << command.name;
        std::ostringstream out, err;
        EXPECT_EQ(PrintCommandHelp(command.name, out, err), ExitOk);
        EXPECT_NE(out.str().find(command.details), std::string::npos);
        EXPECT_TRUE(err.str().empty());
    }
    EXPECT_EQ(FindCommand("PROBE"), FindCommand("probe"));
    EXPECT_EQ(FindCommand("nope"), nullptr);
    std::ostringstream out, err;
    EXPECT_EQ(PrintCommandHelp("nope", out, err), ExitUsage);
}

TEST(CommandTableTest, OverviewNamesEveryCommandAndTheResultCodes)
{
    std::ostringstream out;
    PrintOverview(out);
    for (const Command& command : CommandTable())
        EXPECT_NE(out.str().find(command.synopsis), std::string::npos) << command.name;
    for (const char* word : {"110", "1538", "config/varnik.json", "config/debug.json",
                             "VARNIK_LIBRARY", "--lib"})
        EXPECT_NE(out.str().find(word), std::string::npos) << word;
}

} // namespace
