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
std::string Utf8ToTis620(const std::string& text);

// The check digit of the first 12 digits: (11 - sum(d[i] * (13 - i)) mod 11) mod 10.
char CitizenIdCheckDigit(const std::string& first12);

// The record as the terminal's identity-card read answers it in text form (TIS-620), with the
// fields joined by '#' groups separated by '|' -- the terminal's own layout.
std::string ThaiIdTextRecord(const ThaiIdRecord& record);
