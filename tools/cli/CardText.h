// Text work on what the cards and the terminal give: hexadecimal in and out, the Thai
// character set, the Thai ID record and its photo. Pure functions, all unit-tested.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using ByteString = std::vector<uint8_t>;

// Hexadecimal digits to bytes. The words are joined, and blanks and ':' between them are
// ignored, so "00 A4 04 00", "00A40400" and "00:A4:04:00" read alike. False, with `bytes`
// left empty, for any other character, an odd number of digits or no digits at all.
bool ParseHexBytes(const std::vector<std::string>& words, ByteString& bytes);
bool ParseHexBytes(const std::string& text, ByteString& bytes);

// Upper-case hexadecimal, the bytes apart by `separator` ("" for none).
std::string HexText(const uint8_t* bytes, size_t count, const char* separator = " ");
std::string HexText(const ByteString& bytes, const char* separator = " ");

// The classic dump: offset, 16 bytes, their printable ASCII.
//   00000000  31 32 33 34 35 36 37 38  39 30 31 32 31 7C A1 A2  |1234567890121|..|
std::string HexDump(const ByteString& bytes);

// TIS-620 to UTF-8: ASCII stays, 0xA1..0xFB become U+0E01..U+0E5B (byte + 0x0D60), any
// other byte U+FFFD.
std::string Tis620ToUtf8(const std::string& text);

// The bytes that ThaiLen's conversion makes of `text` (each 0xE0 takes the two bytes behind it
// into one), against the 10240 bytes of its work area: a text that fills the area makes the
// library end the process, so the host must not pass it.
constexpr size_t ThaiLenLimit = 10240;
size_t ThaiLenWorkBytes(const std::string& text);

// Trims a field read from the card: cut at its first NUL, then blanks off both ends.
std::string TrimCardField(const std::string& field);

// The fields of a Thai national ID card, as text. Names and the address keep the card's '#'
// between their parts; dates are YYYYMMDD in the Buddhist era.
struct ThaiIdFields {
    std::string citizenId;
    std::string thaiName;
    std::string englishName;
    std::string birthDate;
    std::string sex;   // "1" male, "2" female
    std::string issuer;
    std::string issueDate;
    std::string expiryDate;
    std::string address;
};

// The terminal's text record: nine fields apart by '|' in the order of ThaiIdFields, the
// first a 13-digit citizen number. False if the text has another layout.
bool ParseThaiIdText(const std::string& text, ThaiIdFields& fields);

// One labelled line per field, ready to print.
std::string FormatThaiIdFields(const ThaiIdFields& fields);

// "title#first#middle#last" as words: empty parts dropped, the rest apart by one blank.
std::string JoinNameParts(const std::string& parts);

// "25300115" as "2530-01-15 B.E. (1987-01-15)", "99999999" as "lifelong"; anything that is
// not eight digits stays as it is.
std::string FormatThaiDate(const std::string& date);

// A photo as the card stores it, zero-filled to its full size: cut after the last JPEG end
// marker FF D9, or unchanged if it has none.
ByteString TrimPhoto(const ByteString& photo);
