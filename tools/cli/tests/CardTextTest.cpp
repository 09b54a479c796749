// Text work on what the cards give, the pieces of a PC/SC exchange and the upload's progress
// line, against values worked out by hand (the Thai letters from the TIS-620 and Unicode tables).
#include "CardText.h"
#include "CommandSupport.h"
#include "PcscSession.h"

#include <gtest/gtest.h>

namespace {

// Hex input as bytes, or "refused" (with the bytes emptied).
std::string Parsed(const std::vector<std::string>& words)
{
    ByteString bytes = {0x55};
    return ParseHexBytes(words, bytes) ? HexText(bytes) : bytes.empty() ? "refused" : "kept";
}

TEST(CardText, TextFunctionsAgainstWorkedValues)
{
    const std::pair<std::string, std::string> rows[] = {
        {Parsed({"00A40400"}), "00 A4 04 00"},
        {Parsed({"00 a4:0", "4"}), "00 A4 04"},  // digits pair across words
        {Parsed({"0"}), "refused"},
        {Parsed({"0x12"}), "refused"},
        {Parsed({" : "}), "refused"},
        {Tis620ToUtf8("AZ 09#|"), "AZ 09#|"},
        {Tis620ToUtf8("\xA1\xFB"), "\xE0\xB8\x81\xE0\xB9\x9B"},           // KO KAI, KHOMUT
        {Tis620ToUtf8("\xB9\xD2\xC2"), "\xE0\xB8\x99\xE0\xB8\xB2\xE0\xB8\xA2"},  // NAI
        {Tis620ToUtf8("\x80\xA0\xFC"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {TrimCardField(std::string("  AB  \0CD", 9)), "AB"},
        {JoinNameParts("Mr.#Somchai##Jaidee"), "Mr. Somchai Jaidee"},
        {JoinNameParts("#A # B#"), "A B"},
        {FormatThaiDate("25300115"), "2530-01-15 B.E. (1987-01-15)"},
        {FormatThaiDate("99999999"), "lifelong"},
        {FormatThaiDate("2530O115"), "2530O115"},
        {HexDump({0x30, 0x00, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x3C,
                  0x3D, 0x3E, 0x3F, 0x40}),
         "00000000  30 00 32 33 34 35 36 37  38 39 3A 3B 3C 3D 3E 3F  |0.23456789:;<=>?|\n"
         "00000010  40                                                |@|\n"},
        {HexText(TrimPhoto({0xFF, 0xD8, 0xFF, 0xD9, 0x02, 0xFF, 0xD9, 0x00})),
         "FF D8 FF D9 02 FF D9"},
        {HexText(TrimPhoto({0xFF, 0xD8, 0x01, 0x00})), "FF D8 01 00"},
        {HexText(GetResponseCommand(0x0A)), "00 C0 00 00 0A"},
        {HexText(GetResponseCommand(0x12, ThaiIdGetResponseP2({0x3B, 0x67, 0x00, 0x00}))),
         "00 C0 00 01 12"},
        {HexText(GetResponseCommand(0x12, ThaiIdGetResponseP2({0x3B, 0x68, 0x00, 0x00}))),
         "00 C0 00 00 12"},
        {PcscResultText(static_cast<PcscLong>(0x8010000CUL)), "SCARD_E_NO_SMARTCARD (0x8010000C)"},
        {PcscResultText(0x1234), "0x00001234"},
        // An upload's progress counts at the line rate until the terminal answers.
        {UploadProgressLine(921600, 5000, false), "[###############...............]  50%  460800 / 921600 bytes"},
        {UploadProgressLine(1000, 60000, false), "[#############################.]  99%  999 / 1000 bytes"},
        {UploadProgressLine(0, 10, true), "[##############################] 100%  0 / 0 bytes"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.first, row.second);
}

TEST(CardText, TheTerminalsRecordIsRecognisedByItsLayout)
{
    ThaiIdFields f;
    ASSERT_TRUE(ParseThaiIdText("1234567890121|T#A##B|Mr.#Somchai##Jaidee|25300115|2|Issuer|"
                                "25650301|99999999|1#2",
                                f));
    EXPECT_EQ(FormatThaiIdFields(f),
              "Citizen ID:   1234567890121\n"
              "Thai name:    T A B\n"
              "English name: Mr. Somchai Jaidee\n"
              "Birth date:   2530-01-15 B.E. (1987-01-15)\n"
              "Sex:          female\n"
              "Issuer:       Issuer\n"
              "Issue date:   2565-03-01 B.E. (2022-03-01)\n"
              "Expiry date:  lifelong\n"
              "Address:      1 2\n");
    for (const char* other : {"1234567890121|a|b|c|d|e|f|g", "1234567890121|a|b|c|d|e|f|g|h|i",
                              "123456789012|a|b|c|d|e|f|g|h", "12345678901AB|a|b|c|d|e|f|g|h",
                              "READ ERROR"})
        EXPECT_FALSE(ParseThaiIdText(other, f)) << other;
}

}  // namespace
