#include "CardText.h"

#include <gtest/gtest.h>

namespace {

TEST(CardTextTest, HexInputReadsWithOrWithoutSeparators)
{
    struct {
        std::vector<std::string> words;
        bool ok;
        ByteString bytes;
    } cases[] = {
        {{"00A40400"}, true, {0x00, 0xA4, 0x04, 0x00}},
        {{"00", "a4", "04", "00"}, true, {0x00, 0xA4, 0x04, 0x00}},
        {{"00 A4:0", "4"}, true, {0x00, 0xA4, 0x04}},   // digits pair across words
        {{"0"}, false, {}},
        {{"0G"}, false, {}},
        {{"0x12"}, false, {}},
        {{""}, false, {}},
        {{" : "}, false, {}},
        {{}, false, {}},
        {{"00112233445566778899AABBCCDDEEFF"},
         true,
         {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD,
          0xEE, 0xFF}},
    };
    for (const auto& c : cases) {
        ByteString bytes = {0x55};
        EXPECT_EQ(ParseHexBytes(c.words, bytes), c.ok) << ::testing::PrintToString(c.words);
        EXPECT_EQ(bytes, c.bytes) << ::testing::PrintToString(c.words);
    }
}

TEST(CardTextTest, HexDumpShowsOffsetBytesAndText)
{
    ByteString bytes;
    for (uint8_t b = 0x30; b < 0x41; ++b)   // "0123456789:;<=>?@", 17 bytes
        bytes.push_back(b);
    bytes[1] = 0x00;
    EXPECT_EQ(HexDump(bytes),
              "00000000  30 00 32 33 34 35 36 37  38 39 3A 3B 3C 3D 3E 3F  |0.23456789:;<=>?|\n"
              "00000010  40                                                |@|\n");
    EXPECT_EQ(HexDump(ByteString()), "");
}

TEST(CardTextTest, Tis620BecomesUtf8)
{
    struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"AZ 09#|", "AZ 09#|"},
        {"\xA1", "\xE0\xB8\x81"},                  // KO KAI, U+0E01
        {"\xFB", "\xE0\xB9\x9B"},                  // KHOMUT, U+0E5B
        {"\xB9\xD2\xC2", "\xE0\xB8\x99\xE0\xB8\xB2\xE0\xB8\xA2"},   // "นาย"
        {"\x80", "\xEF\xBF\xBD"},                  // no Thai character: U+FFFD
        {"\xA0\xFC\xFF", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Tis620ToUtf8(c.in), c.out) << ::testing::PrintToString(c.in);
}

TEST(CardTextTest, CardFieldsLoseTheirPaddingAndWhatFollowsANul)
{
    struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"Mr.#Somchai   ", "Mr.#Somchai"},
        {"  1  ", "1"},
        {std::string("AB\0CD", 5), "AB"},
        {std::string("\0\0", 2), ""},
        {"     ", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TrimCardField(c.in), c.out) << ::testing::PrintToString(c.in);
}

TEST(CardTextTest, TheTerminalsRecordIsRecognisedByItsLayout)
{
    ThaiIdFields fields;
    ASSERT_TRUE(ParseThaiIdText("1234567890121|T#A##B|Mr.#Somchai##Jaidee|25300115|1|Issuer|"
                                "25650301|25740114|99/9#Moo 5",
                                fields));
    EXPECT_EQ(fields.citizenId, "1234567890121");
    EXPECT_EQ(fields.thaiName, "T#A##B");
    EXPECT_EQ(fields.englishName, "Mr.#Somchai##Jaidee");
    EXPECT_EQ(fields.birthDate, "25300115");
    EXPECT_EQ(fields.sex, "1");
    EXPECT_EQ(fields.issuer, "Issuer");
    EXPECT_EQ(fields.issueDate, "25650301");
    EXPECT_EQ(fields.expiryDate, "25740114");
    EXPECT_EQ(fields.address, "99/9#Moo 5");

    for (const char* other : {
             "1234567890121|a|b|c|d|e|f|g",          // eight fields
             "1234567890121|a|b|c|d|e|f|g|h|i",      // ten
             "123456789012|a|b|c|d|e|f|g|h",         // twelve digits
             "12345678901AB|a|b|c|d|e|f|g|h",
             "READ ERROR",
             "",
         })
        EXPECT_FALSE(ParseThaiIdText(other, fields)) << other;
}

TEST(CardTextTest, NamesAndDatesReadAsWords)
{
    struct {
        std::string in;
        std::string out;
    } names[] = {
        {"Mr.#Somchai##Jaidee", "Mr. Somchai Jaidee"},
        {"#A#", "A"},
        {"A # B", "A B"},
        {"", ""},
        {"99/9#Moo 5####Tambon#Amphur#Province", "99/9 Moo 5 Tambon Amphur Province"},
    };
    for (const auto& c : names)
        EXPECT_EQ(JoinNameParts(c.in), c.out) << c.in;

    struct {
        std::string in;
        std::string out;
    } dates[] = {
        {"25300115", "2530-01-15 B.E. (1987-01-15)"},
        {"25740100", "2574-01-00 B.E. (2031-01-00)"},   // day unknown, as some cards have
        {"99999999", "lifelong"},
        {"2530011", "2530011"},
        {"2530O115", "2530O115"},
        {"", ""},
    };
    for (const auto& c : dates)
        EXPECT_EQ(FormatThaiDate(c.in), c.out) << c.in;
}

TEST(CardTextTest, RecordPrintsOneLabelledLinePerField)
{
    ThaiIdFields fields{"1234567890121", "T#A##B", "Mr.#Somchai##Jaidee", "25300115", "2",
                        "Issuer",        "25650301", "99999999", "1#2"};
    EXPECT_EQ(FormatThaiIdFields(fields),
              "Citizen ID:   1234567890121\n"
              "Thai name:    T A B\n"
              "English name: Mr. Somchai Jaidee\n"
              "Birth date:   2530-01-15 B.E. (1987-01-15)\n"
              "Sex:          female\n"
              "Issuer:       Issuer\n"
              "Issue date:   2565-03-01 B.E. (2022-03-01)\n"
              "Expiry date:  lifelong\n"
              "Address:      1 2\n");
}

TEST(CardTextTest, PhotoEndsAfterItsLastEndMarker)
{
    struct {
        ByteString in;
        ByteString out;
    } cases[] = {
        {{0xFF, 0xD8, 0x01, 0xFF, 0xD9, 0x00, 0x00}, {0xFF, 0xD8, 0x01, 0xFF, 0xD9}},
        // A thumbnail ends before the picture does.
        {{0xFF, 0xD8, 0xFF, 0xD9, 0x02, 0xFF, 0xD9, 0x00}, {0xFF, 0xD8, 0xFF, 0xD9, 0x02, 0xFF, 0xD9}},
        {{0xFF, 0xD8, 0x01, 0xFF, 0xD9}, {0xFF, 0xD8, 0x01, 0xFF, 0xD9}},
        {{0xFF, 0xD8, 0x01, 0x00}, {0xFF, 0xD8, 0x01, 0x00}},   // no marker: as it is
        {{0xD9, 0xFF}, {0xD9, 0xFF}},
        {{0xFF}, {0xFF}},
        {{}, {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TrimPhoto(c.in), c.out) << HexText(c.in);
}

} // namespace
