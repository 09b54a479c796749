// The simulated Thai ID card and its record: check digit, TIS-620, the T=0 dialogue of the
// three kinds of client, and the photo.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <unistd.h>

#include "IdPhoto.h"
#include "SimCard.h"
#include "ThaiIdData.h"

namespace {

const Bytes SelectThaiId = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00,
                            0x00, 0x00, 0x54, 0x48, 0x00, 0x01};

Bytes ReadCommand(uint16_t offset, uint8_t length) {
    return {0x80, 0xB0, static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset), 0x02,
            0x00, length};
}

Bytes GetResponse(uint8_t le, uint8_t p2 = 0x00) { return {0x00, 0xC0, 0x00, p2, le}; }

Bytes Sw(uint8_t sw1, uint8_t sw2) { return {sw1, sw2}; }

Bytes Slice(const Bytes& bytes, size_t offset, size_t count) {
    return Bytes(bytes.begin() + offset, bytes.begin() + offset + count);
}

std::string Utf8(uint32_t cp) {
    std::string s;
    if (cp < 0x80) {
        s += static_cast<char>(cp);
    } else if (cp < 0x800) {
        s += static_cast<char>(0xC0 | (cp >> 6));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        s += static_cast<char>(0xE0 | (cp >> 12));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        s += static_cast<char>(0xF0 | (cp >> 18));
        s += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return s;
}

// ---- record --------------------------------------------------------------------------------

TEST(CitizenIdCheckDigit, Table) {
    const struct {
        const char* first12;
        char digit;
    } cases[] = {
        {"123456789012", '1'},  // sum 352, mod 11 = 0: (11 - 0) mod 10
        {"110170020345", '0'},  // sum 144, mod 11 = 1: 10 mod 10
        {"000000000001", '9'},  // sum 2
        {"000000000000", '1'},
        {"300000000000", '5'},  // sum 39, mod 11 = 6
        {"12345678901", '?'},   // too short
        {"1234567890123", '?'},
        {"12345678901a", '?'},
    };
    for (const auto& c : cases) EXPECT_EQ(CitizenIdCheckDigit(c.first12), c.digit) << c.first12;
}

TEST(ThaiIdRecord, DefaultIsConsistent) {
    const ThaiIdRecord& r = DefaultThaiIdRecord();
    ASSERT_EQ(r.citizenId.size(), 13u);
    EXPECT_EQ(r.citizenId.back(), CitizenIdCheckDigit(r.citizenId.substr(0, 12)));
    EXPECT_EQ(r.photo.size(), 5118u);
    for (const std::string* date : {&r.birthDate, &r.issueDate, &r.expiryDate}) {
        EXPECT_EQ(date->size(), 8u) << *date;
    }
    EXPECT_TRUE(r.sex == '1' || r.sex == '2');
    // Field counts of the '#' forms, and every Thai character representable.
    auto hashes = [](const std::string& s) { return std::count(s.begin(), s.end(), '#'); };
    EXPECT_EQ(hashes(r.thaiName), 3);
    EXPECT_EQ(hashes(r.englishName), 3);
    EXPECT_EQ(hashes(r.address), 7);
    for (const std::string* text : {&r.thaiName, &r.issuer, &r.address}) {
        const std::string tis = Utf8ToTis620(*text);
        EXPECT_EQ(tis.find('?'), std::string::npos) << *text;
    }
    EXPECT_LE(Utf8ToTis620(r.address).size(), size_t{ThaiIdFile::AddressLength});
    EXPECT_LE(Utf8ToTis620(r.thaiName).size(), size_t{ThaiIdFile::ThaiNameLength});
}

TEST(Utf8ToTis620, EveryThaiCodePoint) {
    std::string all;
    std::string expected;
    for (uint32_t cp = 0x0E01; cp <= 0x0E5B; ++cp) {
        const std::string one = Utf8ToTis620(Utf8(cp));
        ASSERT_EQ(one.size(), 1u) << std::hex << cp;
        EXPECT_EQ(static_cast<uint8_t>(one[0]), cp - 0x0D60) << std::hex << cp;
        all += Utf8(cp);
        expected += static_cast<char>(cp - 0x0D60);
    }
    EXPECT_EQ(Utf8ToTis620(all), expected);
    EXPECT_EQ(static_cast<uint8_t>(expected.front()), 0xA1);
    EXPECT_EQ(static_cast<uint8_t>(expected.back()), 0xFB);
}

TEST(Utf8ToTis620, AsciiAndOthers) {
    std::string ascii;
    for (int c = 1; c < 0x80; ++c) ascii += static_cast<char>(c);
    EXPECT_EQ(Utf8ToTis620(ascii), ascii);

    const struct {
        std::string in;
        std::string out;
    } cases[] = {
        {Utf8(0x0E00), "?"},
        {Utf8(0x0E5C), "?"},
        {"a" + Utf8(0x00E9) + "b", "a?b"},
        {Utf8(0x1F600), "?"},
        {"\x80" "A", "?A"},                     // stray continuation byte
        {"\xE0\xB8", "??"},                     // cut short
        {"\xE0\xB8" "A", "??A"},                // cut short by ASCII
        {"\xF0\x80\xB8\x81", "????"},           // overlong U+0E01
        {Utf8(0x0E01) + "\xFF" + Utf8(0x0E01), "\xA1?\xA1"},
    };
    for (const auto& c : cases) EXPECT_EQ(Utf8ToTis620(c.in), c.out);
}

TEST(ThaiIdTextRecord, Layout) {
    const ThaiIdRecord& r = DefaultThaiIdRecord();
    const std::string text = ThaiIdTextRecord(r);
    std::vector<std::string> fields;
    std::stringstream stream(text);
    for (std::string field; std::getline(stream, field, '|');) fields.push_back(field);
    ASSERT_EQ(fields.size(), 9u);
    EXPECT_EQ(fields[0], r.citizenId);
    EXPECT_EQ(fields[1], Utf8ToTis620(r.thaiName));
    EXPECT_EQ(fields[2], r.englishName);
    EXPECT_EQ(fields[3], r.birthDate);
    EXPECT_EQ(fields[4], std::string(1, r.sex));
    EXPECT_EQ(fields[5], Utf8ToTis620(r.issuer));
    EXPECT_EQ(fields[6], r.issueDate);
    EXPECT_EQ(fields[7], r.expiryDate);
    EXPECT_EQ(fields[8], Utf8ToTis620(r.address));
    // The library's text form stops at a NUL and drops bytes outside TIS-620's letters.
    for (char c : text) {
        const uint8_t b = static_cast<uint8_t>(c);
        EXPECT_TRUE((b >= 0x20 && b < 0x80) || (b >= 0xA1 && b <= 0xFB)) << int(b);
    }
}

TEST(ThaiIdFileImage, FieldsAtTheirOffsets) {
    using namespace ThaiIdFile;
    const ThaiIdRecord& r = DefaultThaiIdRecord();
    const Bytes image = ThaiIdFileImage(r);
    ASSERT_EQ(image.size(), 0x1619u);
    auto text = [&](uint16_t offset, uint16_t length) {
        return std::string(image.begin() + offset, image.begin() + offset + length);
    };
    auto padded = [](std::string s, size_t length) {
        s.resize(length, ' ');
        return s;
    };
    EXPECT_EQ(text(0x0004, 13), r.citizenId);
    EXPECT_EQ(text(0x0011, 100), padded(Utf8ToTis620(r.thaiName), 100));
    EXPECT_EQ(text(0x0075, 100), padded(r.englishName, 100));
    EXPECT_EQ(text(0x00D9, 8), r.birthDate);
    EXPECT_EQ(text(0x00E1, 1), std::string(1, r.sex));
    EXPECT_EQ(text(0x00F6, 100), padded(Utf8ToTis620(r.issuer), 100));
    EXPECT_EQ(text(0x0167, 8), r.issueDate);
    EXPECT_EQ(text(0x016F, 8), r.expiryDate);
    EXPECT_EQ(Slice(image, 0x017B, 5118), r.photo);
    EXPECT_EQ(text(0x1579, 160), padded(Utf8ToTis620(r.address), 160));
    // Between the fields: zeros.
    for (auto [from, to] : {std::pair{0x0000, 0x0004}, {0x00E2, 0x00F6}, {0x015A, 0x0167},
                            {0x0177, 0x017B}}) {
        for (int i = from; i < to; ++i) EXPECT_EQ(image[i], 0) << std::hex << i;
    }
}

TEST(ThaiIdFileImage, LongFieldsAreCutShortPhotoZeroFilled) {
    ThaiIdRecord r = DefaultThaiIdRecord();
    r.englishName = std::string(150, 'A');
    r.photo.assign(10, 0x55);
    const Bytes image = ThaiIdFileImage(r);
    ASSERT_EQ(image.size(), size_t{ThaiIdFile::Size});
    EXPECT_EQ(Slice(image, 0x0075, 100), Bytes(100, 'A'));
    EXPECT_EQ(image[0x00D9], static_cast<uint8_t>(r.birthDate[0]));  // not overrun
    EXPECT_EQ(Slice(image, 0x017B, 10), Bytes(10, 0x55));
    EXPECT_EQ(Slice(image, 0x017B + 10, 5108), Bytes(5108, 0x00));
}

// ---- card dialogue -------------------------------------------------------------------------

enum class Client {
    AlwaysGetResponse,  // GET RESPONSE after every command, with the length it wants
    AfterSixtyOne,      // GET RESPONSE only when the card answered 61xx, with that length
    OldAtrP2,           // as AfterSixtyOne, but 00 C0 00 01 Le (cards with ATR 3B 67 ...)
};

struct DialogueCase {
    Client client;
    bool selectAnswers61;
};

class CardDialogue : public testing::TestWithParam<DialogueCase> {
protected:
    void SetUp() override {
        ThaiIdCardOptions options;
        options.selectAnswers61 = GetParam().selectAnswers61;
        if (GetParam().client == Client::OldAtrP2) {
            options.atr = {0x3B, 0x67, 0x00, 0x00, 0x73, 0x20, 0x00, 0x6C, 0x68, 0x90, 0x00};
        }
        m_card = MakeThaiIdCard(options);
    }

    // One command and its follow-up as the client style does it; returns the data and the
    // final status word.
    Bytes Exchange(const Bytes& command, uint8_t wanted) {
        Bytes answer = m_card->Transmit(command);
        const Client client = GetParam().client;
        const bool sixtyOne = answer.size() == 2 && answer[0] == 0x61;
        if (client == Client::AlwaysGetResponse) return m_card->Transmit(GetResponse(wanted));
        if (!sixtyOne) return answer;
        return m_card->Transmit(GetResponse(answer[1], client == Client::OldAtrP2 ? 0x01 : 0x00));
    }

    Bytes ReadField(uint16_t offset, uint8_t length) {
        Bytes answer = Exchange(ReadCommand(offset, length), length);
        EXPECT_EQ(Slice(answer, answer.size() - 2, 2), Sw(0x90, 0x00)) << std::hex << offset;
        answer.resize(answer.size() - 2);
        return answer;
    }

    std::unique_ptr<SimCard> m_card;
};

TEST_P(CardDialogue, SelectThenEveryField) {
    const Bytes select = Exchange(SelectThaiId, 0x0A);
    if (GetParam().client == Client::AlwaysGetResponse || GetParam().selectAnswers61) {
        ASSERT_EQ(select.size(), 12u);  // FCI and 90 00
        EXPECT_EQ(select[0], 0x6F);
    } else {
        EXPECT_EQ(select, Sw(0x90, 0x00));
    }

    const Bytes image = ThaiIdFileImage(DefaultThaiIdRecord());
    const struct {
        uint16_t offset;
        uint8_t length;
    } fields[] = {{0x0004, 13},  {0x0011, 100}, {0x0075, 100}, {0x00D9, 8}, {0x00E1, 1},
                  {0x00F6, 100}, {0x0167, 8},   {0x016F, 8},   {0x1579, 100}, {0x1579, 160},
                  {0x0000, 255}, {0x1600, 0x19}};
    for (const auto& f : fields) {
        EXPECT_EQ(ReadField(f.offset, f.length), Slice(image, f.offset, f.length))
            << std::hex << f.offset;
    }
}

TEST_P(CardDialogue, PhotoInTwentyChunksAndTheRest) {
    Exchange(SelectThaiId, 0x0A);
    const Bytes& photo = DefaultThaiIdRecord().photo;
    Bytes read;
    for (int k = 0; k < 20; ++k) {
        const Bytes chunk = ReadField(static_cast<uint16_t>(0x017B + k * 0xFF), 0xFF);
        ASSERT_EQ(chunk.size(), 0xFFu);
        read.insert(read.end(), chunk.begin(), chunk.end());
    }
    // The 20 chunks hold the complete picture (it ends with EOI); the field's last 18 bytes
    // are fill and a second EOI, for readers that take the whole field.
    ASSERT_EQ(read.size(), 5100u);
    EXPECT_EQ(read, Slice(photo, 0, 5100));
    EXPECT_EQ(Slice(read, 0, 2), Sw(0xFF, 0xD8));
    EXPECT_EQ(Slice(read, 5098, 2), Sw(0xFF, 0xD9));
    const Bytes rest = ReadField(0x017B + 20 * 0xFF, 18);
    read.insert(read.end(), rest.begin(), rest.end());
    EXPECT_EQ(read, photo);
}

std::string DialogueName(const testing::TestParamInfo<DialogueCase>& info) {
    static const char* const names[] = {"Always", "After61", "OldAtrP2"};
    return std::string(names[static_cast<int>(info.param.client)]) +
           (info.param.selectAnswers61 ? "_Select61" : "_Select9000");
}

INSTANTIATE_TEST_SUITE_P(Clients, CardDialogue,
                         testing::Values(DialogueCase{Client::AlwaysGetResponse, true},
                                         DialogueCase{Client::AlwaysGetResponse, false},
                                         DialogueCase{Client::AfterSixtyOne, true},
                                         DialogueCase{Client::AfterSixtyOne, false},
                                         DialogueCase{Client::OldAtrP2, true}),
                         DialogueName);

class Card : public testing::Test {
protected:
    Bytes Tx(const Bytes& command) { return m_card->Transmit(command); }
    void Select() { ASSERT_EQ(Tx(SelectThaiId), Sw(0x61, 0x0A)); }

    std::unique_ptr<SimCard> m_card = MakeThaiIdCard({});
};

TEST_F(Card, Atr) {
    EXPECT_EQ(m_card->Atr(),
              (Bytes{0x3B, 0x68, 0x00, 0x00, 0x54, 0x48, 0x20, 0x4E, 0x49, 0x44, 0x20, 0x36}));
    ThaiIdCardOptions options;
    options.atr = {0x3B, 0x67, 0x00};
    EXPECT_EQ(MakeThaiIdCard(options)->Atr(), options.atr);
}

TEST_F(Card, WrongLeAnswers6CAndKeepsTheData) {
    Select();
    const Bytes id(DefaultThaiIdRecord().citizenId.begin(), DefaultThaiIdRecord().citizenId.end());
    ASSERT_EQ(Tx(ReadCommand(0x0004, 13)), Sw(0x61, 0x0D));
    EXPECT_EQ(Tx(GetResponse(0x20)), Sw(0x6C, 0x0D));
    EXPECT_EQ(Tx(GetResponse(0x05)), Sw(0x6C, 0x0D));
    EXPECT_EQ(Tx(GetResponse(0x00)), Sw(0x6C, 0x0D));           // P3 00 asks for 256
    EXPECT_EQ(Tx({0x00, 0xC0, 0x00, 0x00}), Sw(0x6C, 0x0D));     // no P3 at all
    Bytes expected = id;
    expected.insert(expected.end(), {0x90, 0x00});
    EXPECT_EQ(Tx(GetResponse(0x0D)), expected);
    EXPECT_EQ(Tx(GetResponse(0x0D)), Sw(0x69, 0x85));  // fetched once only
}

TEST_F(Card, SelectFciWaitsAlsoBehind9000) {
    ThaiIdCardOptions options;
    options.selectAnswers61 = false;
    m_card = MakeThaiIdCard(options);
    ASSERT_EQ(Tx(SelectThaiId), Sw(0x90, 0x00));
    EXPECT_EQ(Tx(GetResponse(0x0B)), Sw(0x6C, 0x0A));
    const Bytes fci = Tx(GetResponse(0x0A));
    ASSERT_EQ(fci.size(), 12u);
    EXPECT_EQ(Slice(fci, 10, 2), Sw(0x90, 0x00));
}

TEST_F(Card, ClientThatNeverFetches) {
    Select();
    // Each read answers 61 Le; an unfetched answer is replaced by the next command's.
    EXPECT_EQ(Tx(ReadCommand(0x00D9, 8)), Sw(0x61, 0x08));
    EXPECT_EQ(Tx(ReadCommand(0x00E1, 1)), Sw(0x61, 0x01));
    EXPECT_EQ(Tx(GetResponse(0x01)), (Bytes{'1', 0x90, 0x00}));
    // Anything in between drops the waiting data.
    EXPECT_EQ(Tx(ReadCommand(0x00D9, 8)), Sw(0x61, 0x08));
    EXPECT_EQ(Tx({0x00, 0x84, 0x00, 0x00, 0x08}), Sw(0x6D, 0x00));
    EXPECT_EQ(Tx(GetResponse(0x08)), Sw(0x69, 0x85));
}

TEST_F(Card, StatusWords) {
    EXPECT_EQ(Tx(ReadCommand(0x0004, 13)), Sw(0x69, 0x86));  // nothing selected yet
    EXPECT_EQ(Tx(GetResponse(0x0A)), Sw(0x69, 0x85));
    const struct {
        Bytes command;
        Bytes status;
    } cases[] = {
        {{0x90, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D}, Sw(0x6E, 0x00)},  // unknown class
        {{0x00, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D}, Sw(0x6E, 0x00)},  // READ needs CLA 80
        {{0x80, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01},
         Sw(0x6E, 0x00)},
        {{0x80, 0xC0, 0x00, 0x00, 0x0A}, Sw(0x6E, 0x00)},
        {{0x00, 0x84, 0x00, 0x00, 0x08}, Sw(0x6D, 0x00)},
        {{0x80, 0xCA, 0x00, 0x00, 0x00}, Sw(0x6D, 0x00)},
        {{0x00, 0xA4}, Sw(0x67, 0x00)},
        {{0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00}, Sw(0x67, 0x00)},  // data shorter than Lc
        {{0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x02},
         Sw(0x6A, 0x82)},  // another application
        {{0x00, 0xA4, 0x00, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01},
         Sw(0x6A, 0x86)},
        {{0x00, 0xC0, 0x01, 0x00, 0x0A}, Sw(0x6A, 0x86)},
        {{0x00, 0xC0, 0x00, 0x02, 0x0A}, Sw(0x6A, 0x86)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Tx(c.command), c.status) << testing::PrintToString(c.command);
    }

    Select();
    const struct {
        Bytes command;
        Bytes status;
    } reads[] = {
        {ReadCommand(0x1619, 1), Sw(0x6B, 0x00)},  // first byte past the file
        {ReadCommand(0xFFFF, 1), Sw(0x6B, 0x00)},
        {ReadCommand(0x1618, 1), Sw(0x61, 0x01)},  // last byte
        {ReadCommand(0x1610, 0x20), Sw(0x61, 0x09)},  // cut at the end
        {ReadCommand(0x0004, 0), Sw(0x67, 0x00)},
        {{0x80, 0xB0, 0x00, 0x04, 0x02, 0x01, 0x01}, Sw(0x67, 0x00)},  // 257 bytes
        {{0x80, 0xB0, 0x00, 0x04, 0x02, 0x01, 0x00}, Sw(0x61, 0x00)},  // 256 bytes
        {{0x80, 0xB0, 0x00, 0x04, 0x03, 0x00, 0x0D, 0x00}, Sw(0x67, 0x00)},
        {{0x80, 0xB0, 0x00, 0x04, 0x02, 0x00}, Sw(0x67, 0x00)},
        {{0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D, 0x0D}, Sw(0x61, 0x0D)},  // trailing Le
    };
    for (const auto& c : reads) {
        EXPECT_EQ(Tx(c.command), c.status) << testing::PrintToString(c.command);
    }

    // 256 bytes come back with P3 00.
    ASSERT_EQ(Tx({0x80, 0xB0, 0x00, 0x00, 0x02, 0x01, 0x00}), Sw(0x61, 0x00));
    EXPECT_EQ(Tx(GetResponse(0x00)).size(), 258u);
}

TEST_F(Card, ResetForgetsTheSelection) {
    Select();
    ASSERT_EQ(Tx(ReadCommand(0x0004, 13)), Sw(0x61, 0x0D));
    m_card->Reset();
    EXPECT_EQ(Tx(GetResponse(0x0D)), Sw(0x69, 0x85));
    EXPECT_EQ(Tx(ReadCommand(0x0004, 13)), Sw(0x69, 0x86));
    Select();
    EXPECT_EQ(Tx(ReadCommand(0x0004, 13)), Sw(0x61, 0x0D));
}

// ---- photo ---------------------------------------------------------------------------------

// Walks the segments of a baseline JPEG; gives the scan's end (offset of the EOI) or 0.
size_t WalkJpeg(const Bytes& jpeg, int& width, int& height) {
    if (jpeg.size() < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8) return 0;
    size_t i = 2;
    while (i + 4 <= jpeg.size()) {
        if (jpeg[i] != 0xFF) return 0;
        const uint8_t marker = jpeg[i + 1];
        const size_t length = size_t{jpeg[i + 2]} << 8 | jpeg[i + 3];
        if (length < 2 || i + 2 + length > jpeg.size()) return 0;
        if (marker == 0xC0) {
            height = jpeg[i + 5] << 8 | jpeg[i + 6];
            width = jpeg[i + 7] << 8 | jpeg[i + 8];
        }
        i += 2 + length;
        if (marker == 0xDA) {
            // Entropy-coded data: FF only as FF 00 until the marker that ends it.
            for (; i + 1 < jpeg.size(); ++i) {
                if (jpeg[i] == 0xFF && jpeg[i + 1] != 0x00) return jpeg[i + 1] == 0xD9 ? i : 0;
            }
            return 0;
        }
    }
    return 0;
}

TEST(IdPhoto, StructureOfTheField) {
    const Bytes& photo = SyntheticIdPhoto();
    ASSERT_EQ(photo.size(), IdPhotoSize);
    int width = 0, height = 0;
    EXPECT_EQ(WalkJpeg(photo, width, height), 5098u);  // the picture fills the 20 chunks
    EXPECT_EQ(width, 120);
    EXPECT_EQ(height, 150);
    EXPECT_EQ(Slice(photo, 0, 4), (Bytes{0xFF, 0xD8, 0xFF, 0xE0}));
    EXPECT_EQ(Slice(photo, 5100, 16), Bytes(16, 0xFF));
    EXPECT_EQ(Slice(photo, 5116, 2), Sw(0xFF, 0xD9));
    EXPECT_EQ(&photo, &SyntheticIdPhoto());  // built once
}

// A real decoder, where the machine has one (Debian: libjpeg-turbo-progs); djpeg exits
// non-zero on warnings as well as on errors.
class Djpeg : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/bin/djpeg", X_OK) != 0) GTEST_SKIP() << "djpeg not installed";
    }

    // Decodes to PGM; empty on any failure or warning.
    static Bytes Decode(const Bytes& jpeg, const std::string& name) {
        const std::string in = testing::TempDir() + name + ".jpg";
        const std::string out = testing::TempDir() + name + ".pgm";
        std::ofstream(in, std::ios::binary)
            .write(reinterpret_cast<const char*>(jpeg.data()), static_cast<long>(jpeg.size()));
        const std::string command = "/usr/bin/djpeg -pnm -outfile '" + out + "' '" + in + "'";
        if (std::system(command.c_str()) != 0) return {};
        std::ifstream file(out, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
};

TEST_F(Djpeg, OpensTheFieldAndTheTwentyChunks) {
    const Bytes& photo = SyntheticIdPhoto();
    const std::string header = "P5\n120 150\n255\n";
    for (size_t size : {IdPhotoSize, IdPhotoChunkedSize}) {
        const Bytes pgm = Decode(Slice(photo, 0, size), "simcard_photo_" + std::to_string(size));
        ASSERT_EQ(pgm.size(), header.size() + 120 * 150) << size;
        EXPECT_EQ(std::string(pgm.begin(), pgm.begin() + header.size()), header);
    }
}

TEST_F(Djpeg, EncoderRoundTripsOddSizes) {
    // Sizes that are no multiple of 8 exercise the edge blocks; a ramp and a step exercise
    // DC differences of both signs and long AC runs.
    for (auto [w, h] : {std::pair{13, 7}, {8, 8}, {1, 1}, {40, 17}}) {
        Bytes grey(static_cast<size_t>(w) * h);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                grey[y * w + x] = static_cast<uint8_t>(x < w / 2 ? 20 + 9 * y : 230 - 4 * x);
            }
        }
        const Bytes jpeg = EncodeGreyJpeg(w, h, grey, 95);
        const std::string name = std::to_string(w) + "x" + std::to_string(h);
        const Bytes pgm = Decode(jpeg, "simcard_enc_" + name);
        const std::string header = "P5\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n";
        ASSERT_EQ(pgm.size(), header.size() + grey.size()) << name;
        double error = 0;
        for (size_t i = 0; i < grey.size(); ++i) {
            error += std::abs(pgm[header.size() + i] - grey[i]);
        }
        EXPECT_LT(error / grey.size(), 6.0) << name;
    }
}

}  // namespace
