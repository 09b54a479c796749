#include "PcscSession.h"

#include "FakePcsc.h"

#include <gtest/gtest.h>

namespace {

class PcscSessionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_pcsc = FakePcsc();
        g_pcsc.file = ThaiIdCardImage();
        api = FakePcscApi();
    }

    // Connected to the first reader, as the pcsc command does it.
    void Open(PcscSession& session)
    {
        std::vector<std::string> readers;
        ASSERT_EQ(session.Establish(), 0);
        ASSERT_EQ(session.ListReaders(readers), 0);
        ASSERT_FALSE(readers.empty());
        ASSERT_EQ(session.Connect(readers[0]), 0);
    }

    PcscApi api;
};

TEST_F(PcscSessionTest, ReaderListIsAskedForItsSizeFirst)
{
    struct {
        std::string list;
        PcscDword sizeAnswer;
        std::vector<std::string> names;
    } cases[] = {
        // The library's answer: the name, one NUL, 19 for its length.
        {std::string("NEW6210 Reader Card") + '\0', 21, {"NEW6210 Reader Card"}},
        {std::string("A") + '\0' + "B" + '\0' + '\0', 5, {"A", "B"}},
        {std::string(1, '\0'), 1, {}},
        // A size query answered too small does not shorten the list.
        {std::string("NEW6210 Reader Card") + '\0' + '\0', 0, {"NEW6210 Reader Card"}},
    };
    for (const auto& c : cases) {
        g_pcsc = FakePcsc();
        g_pcsc.readerList = c.list;
        g_pcsc.sizeAnswer = c.sizeAnswer;
        PcscSession session(api);
        std::vector<std::string> names = {"stale"};
        ASSERT_EQ(session.Establish(), 0);
        EXPECT_EQ(session.ListReaders(names), 0);
        EXPECT_EQ(names, c.names);
        EXPECT_EQ(g_pcsc.sizeQueries, 1);
        EXPECT_EQ(g_pcsc.listCalls, 1);
    }
}

TEST_F(PcscSessionTest, SessionEndsWhatItStarted)
{
    {
        PcscSession session(api);
        Open(session);
    }
    EXPECT_EQ(g_pcsc.disconnects, 1);
    EXPECT_EQ(g_pcsc.releases, 1);

    g_pcsc = FakePcsc();
    { PcscSession session(api); }
    EXPECT_EQ(g_pcsc.disconnects, 0);
    EXPECT_EQ(g_pcsc.releases, 0);
}

TEST_F(PcscSessionTest, ResponsesSplitIntoDataAndStatusWord)
{
    ApduResponse split;
    ASSERT_TRUE(SplitResponse({0x01, 0x02, 0x90, 0x00}, split));
    EXPECT_EQ(split.data, ByteString({0x01, 0x02}));
    EXPECT_EQ(split.StatusWord(), 0x9000u);
    ASSERT_TRUE(SplitResponse({0x61, 0x0A}, split));
    EXPECT_TRUE(split.data.empty());
    EXPECT_EQ(split.sw1, 0x61);
    EXPECT_FALSE(SplitResponse({0x18}, split));
    EXPECT_EQ(GetResponseCommand(0x0A), ByteString({0x00, 0xC0, 0x00, 0x00, 0x0A}));
    EXPECT_EQ(GetResponseCommand(256, 1), ByteString({0x00, 0xC0, 0x00, 0x01, 0x00}));
}

TEST_F(PcscSessionTest, ThaiIdCardIsReadFieldByFieldWithItsPhoto)
{
    PcscSession session(api);
    Open(session);
    ThaiIdCard card;
    std::string error;
    ASSERT_TRUE(ReadThaiIdCard(session, g_pcsc.atr, card, error)) << error;
    EXPECT_EQ(card.fields.citizenId, "1234567890121");
    EXPECT_EQ(card.fields.thaiName, "นาย#สมชาย##ใจดี");
    EXPECT_EQ(card.fields.englishName, "Mr.#Somchai##Jaidee");
    EXPECT_EQ(card.fields.birthDate, "25300115");
    EXPECT_EQ(card.fields.sex, "1");
    EXPECT_EQ(card.fields.issuer, "กรุงเทพ");
    EXPECT_EQ(card.fields.issueDate, "25650301");
    EXPECT_EQ(card.fields.expiryDate, "99999999");
    EXPECT_EQ(card.fields.address, "99/9#Moo 5####Bang Kraso#Mueang#Nonthaburi");
    EXPECT_EQ(card.photo, FakePhoto());

    // SELECT; then each of 9 fields and 21 photo pieces is a READ and a GET RESPONSE.
    ASSERT_EQ(g_pcsc.commands.size(), 1u + 2 * (9 + 21));
    EXPECT_EQ(g_pcsc.commands[0], ByteString({0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00,
                                              0x00, 0x54, 0x48, 0x00, 0x01}));
    EXPECT_EQ(g_pcsc.commands[1], ByteString({0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D}));
    EXPECT_EQ(g_pcsc.commands[2], ByteString({0x00, 0xC0, 0x00, 0x00, 0x0D}));
    // The photo: 20 pieces of FF bytes from 017B, then the last 18 at 1567.
    EXPECT_EQ(g_pcsc.commands[19], ByteString({0x80, 0xB0, 0x01, 0x7B, 0x02, 0x00, 0xFF}));
    EXPECT_EQ(g_pcsc.commands[21], ByteString({0x80, 0xB0, 0x02, 0x7A, 0x02, 0x00, 0xFF}));
    EXPECT_EQ(g_pcsc.commands[59], ByteString({0x80, 0xB0, 0x15, 0x67, 0x02, 0x00, 0x12}));
    EXPECT_EQ(g_pcsc.commands[60], ByteString({0x00, 0xC0, 0x00, 0x00, 0x12}));
}

TEST_F(PcscSessionTest, OlderCardsTakeGetResponseWithP2One)
{
    struct {
        ByteString atr;
        uint8_t p2;
    } cases[] = {
        {{0x3B, 0x67, 0x00, 0x00}, 0x01},
        {{0x3B, 0x68, 0x00, 0x00}, 0x00},
        {{0x3B, 0x78, 0x67}, 0x00},
        {{0x3B}, 0x00},
        {{}, 0x00},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ThaiIdGetResponseP2(c.atr), c.p2) << HexText(c.atr);
        SetUp();
        PcscSession session(api);
        Open(session);
        ThaiIdCard card;
        std::string error;
        ASSERT_TRUE(ReadThaiIdCard(session, c.atr, card, error)) << error;
        EXPECT_EQ(g_pcsc.commands[2][3], c.p2) << HexText(c.atr);
        EXPECT_EQ(g_pcsc.commands.back()[3], c.p2) << HexText(c.atr);
    }
}

TEST_F(PcscSessionTest, AGetResponseWithTheWrongCountIsAskedAgain)
{
    // SELECT, READ, then a card that has fewer bytes than announced and says so with 6C.
    ByteString twelve = {'1', '2', '3', '4', '5', '6', '7', '8', '9', '0', '1', '2', 0x90, 0x00};
    g_pcsc.responses = {{0x90, 0x00}, {0x61, 0x0D}, {0x6C, 0x0C}, twelve};
    PcscSession session(api);
    Open(session);
    ThaiIdCard card;
    std::string error;
    // The card itself was never selected, so the next field fails.
    EXPECT_FALSE(ReadThaiIdCard(session, g_pcsc.atr, card, error));
    EXPECT_EQ(error, "Thai name: the card answered 69 86");
    ASSERT_GE(g_pcsc.commands.size(), 4u);
    EXPECT_EQ(g_pcsc.commands[2], ByteString({0x00, 0xC0, 0x00, 0x00, 0x0D}));
    EXPECT_EQ(g_pcsc.commands[3], ByteString({0x00, 0xC0, 0x00, 0x00, 0x0C}));
    EXPECT_EQ(card.fields.citizenId, "123456789012");
}

TEST_F(PcscSessionTest, RefusalsNameWhatFailed)
{
    struct {
        bool selectRefused;
        unsigned refusedOffset;
        std::vector<ByteString> responses;
        std::string error;
    } cases[] = {
        {true, ~0u, {}, "SELECT: no Thai ID application, the card answered 6A 82"},
        {false, 0x00D9, {}, "birth date: the card answered 6B 00"},
        {false, 0x017B + 0xFF * 3, {}, "photo at offset 765: the card answered 6B 00"},
        {false, ~0u, {{0x61, 0x0A}, {0x18}}, "citizen number: the response is too short: 18"},
        {false, ~0u, {{0x61, 0x0A}, {}}, "citizen number: the response is too short: nothing"},
    };
    for (const auto& c : cases) {
        SetUp();
        g_pcsc.selectRefused = c.selectRefused;
        g_pcsc.refusedOffset = c.refusedOffset;
        g_pcsc.responses = c.responses;
        PcscSession session(api);
        Open(session);
        ThaiIdCard card;
        std::string error;
        EXPECT_FALSE(ReadThaiIdCard(session, g_pcsc.atr, card, error));
        EXPECT_EQ(error, c.error);
    }
}

TEST_F(PcscSessionTest, MissingFunctionsAndResultCodesHaveNames)
{
    EXPECT_EQ(MissingPcscFunction(api), nullptr);
    PcscApi partial = api;
    partial.SCardTransmit = nullptr;
    EXPECT_STREQ(MissingPcscFunction(partial), "SCardTransmit");
    partial = api;
    partial.SCardReleaseContext = nullptr;
    EXPECT_STREQ(MissingPcscFunction(partial), "SCardReleaseContext");

    EXPECT_EQ(PcscResultText(static_cast<PcscLong>(0x8010000CUL)),
              "SCARD_E_NO_SMARTCARD (0x8010000C)");
    EXPECT_EQ(PcscResultText(0x1234), "0x00001234");
}

} // namespace
