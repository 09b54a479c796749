// The synthetic Thai national ID record that the simulated terminal and card hand out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct ThaiIdRecord {
    std::string citizenId;    // 13 ASCII digits, the last a check digit
    std::string thaiName;     // UTF-8, "title#first#middle#last"
    std::string englishName;  // "title#first#middle#last"
    std::string birthDate;    // YYYYMMDD, Buddhist era
    char sex;                 // '1' male, '2' female
    std::string issuer;       // UTF-8
    std::string issueDate;    // YYYYMMDD, Buddhist era
    std::string expiryDate;   // YYYYMMDD, or "99999999" for life
    std::string address;      // UTF-8, "house#moo#soi#road#(unused)#tambon#amphur#province"
    std::vector<uint8_t> photo;  // a JPEG of 5118 bytes
};

const ThaiIdRecord& DefaultThaiIdRecord();

// Thai characters U+0E01..U+0E5B to TIS-620 0xA1..0xFB; ASCII unchanged; anything else '?'.
// A malformed UTF-8 sequence gives one '?' for its first byte and goes on after it.
std::string Utf8ToTis620(const std::string& text);

// The check digit of the first 12 digits: (11 - sum(d[i] * (13 - i)) mod 11) mod 10.
// Anything but exactly 12 ASCII digits gives '?'.
char CitizenIdCheckDigit(const std::string& first12);

// The record as the terminal's identity-card read answers it in text form (TIS-620), with the
// fields joined by '#' groups separated by '|' -- the terminal's own layout:
//
//   citizenId|thaiName|englishName|birthDate|sex|issuer|issueDate|expiryDate|address
//
// Nine fields in this order, each as the record holds it (the names and the address keep
// their own '#' separators), Thai text in TIS-620, no padding, no photo, no NUL and no
// terminator. With the default record:
//   1234567890121|<TIS-620 of นาย#สมชาย##ใจดี>|Mr.#Somchai##Jaidee|25300115|1|...
std::string ThaiIdTextRecord(const ThaiIdRecord& record);

// The one file of the card as readers address it (offset of each field, and its length).
// Text fields are blank-padded (0x20) to their length and cut if longer; the bytes between
// fields are zero.
namespace ThaiIdFile {
constexpr uint16_t CitizenId = 0x0004, CitizenIdLength = 13;
constexpr uint16_t ThaiName = 0x0011, ThaiNameLength = 100;
constexpr uint16_t EnglishName = 0x0075, EnglishNameLength = 100;
constexpr uint16_t BirthDate = 0x00D9, DateLength = 8;
constexpr uint16_t Sex = 0x00E1, SexLength = 1;
constexpr uint16_t Issuer = 0x00F6, IssuerLength = 100;
constexpr uint16_t IssueDate = 0x0167;
constexpr uint16_t ExpiryDate = 0x016F;
constexpr uint16_t Photo = 0x017B, PhotoLength = 5118;  // zero-filled if the JPEG is shorter
constexpr uint16_t Address = 0x1579, AddressLength = 160;
constexpr uint16_t Size = Address + AddressLength;  // 0x1619: the file ends with the address
}  // namespace ThaiIdFile

// The whole file image of the card for a record, ThaiIdFile::Size bytes.
std::vector<uint8_t> ThaiIdFileImage(const ThaiIdRecord& record);
