#include "CardText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace {

int HexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

void AppendUtf8(std::string& out, unsigned codePoint)
{
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xC0 | (codePoint >> 6));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (codePoint >> 12));
        out += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos)
            return parts;
        start = end + 1;
    }
}

bool AllDigits(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
}

std::string TrimBlanks(const std::string& text)
{
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace

bool ParseHexBytes(const std::vector<std::string>& words, ByteString& bytes)
{
    bytes.clear();
    std::string digits;
    for (const std::string& word : words) {
        for (char c : word) {
            if (c == ' ' || c == '\t' || c == ':')
                continue;
            if (HexValue(c) < 0)
                return false;
            digits += c;
        }
    }
    if (digits.empty() || digits.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(HexValue(digits[i]) * 16 + HexValue(digits[i + 1])));
    return true;
}

bool ParseHexBytes(const std::string& text, ByteString& bytes)
{
    return ParseHexBytes(std::vector<std::string>{text}, bytes);
}

std::string HexText(const uint8_t* bytes, size_t count, const char* separator)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0)
            text += separator;
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

std::string HexText(const ByteString& bytes, const char* separator)
{
    return HexText(bytes.data(), bytes.size(), separator);
}

std::string HexDump(const ByteString& bytes)
{
    std::string dump;
    for (size_t offset = 0; offset < bytes.size(); offset += 16) {
        char line[96];
        int length = std::snprintf(line, sizeof line, "%08zX ", offset);
        std::string text(line, static_cast<size_t>(length));
        std::string ascii;
        for (size_t i = 0; i < 16; ++i) {
            if (i == 8)
                text += ' ';
            if (offset + i < bytes.size()) {
                uint8_t b = bytes[offset + i];
                text += ' ' + HexText(&b, 1);
                ascii += (b >= 0x20 && b < 0x7F) ? static_cast<char>(b) : '.';
            } else {
                text += "   ";
            }
        }
        dump += text + "  |" + ascii + "|\n";
    }
    return dump;
}

std::string Tis620ToUtf8(const std::string& text)
{
    std::string out;
    for (char c : text) {
        unsigned byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            out += c;
        else if (byte >= 0xA1 && byte <= 0xFB)
            AppendUtf8(out, byte + 0x0D60);
        else
            AppendUtf8(out, 0xFFFD);
    }
    return out;
}

size_t ThaiLenWorkBytes(const std::string& text)
{
    size_t bytes = 0;
    for (size_t i = 0; i < text.size(); i += static_cast<uint8_t>(text[i]) == 0xE0 ? 3 : 1)
        ++bytes;
    return bytes;
}

std::string TrimCardField(const std::string& field)
{
    return TrimBlanks(field.substr(0, field.find('\0')));
}

bool ParseThaiIdText(const std::string& text, ThaiIdFields& fields)
{
    std::vector<std::string> parts = Split(text, '|');
    if (parts.size() != 9)
        return false;
    for (std::string& part : parts)
        part = TrimBlanks(part);
    if (parts[0].size() != 13 || !AllDigits(parts[0]))
        return false;
    fields = ThaiIdFields{parts[0], parts[1], parts[2], parts[3], parts[4],
                          parts[5], parts[6], parts[7], parts[8]};
    return true;
}

std::string JoinNameParts(const std::string& parts)
{
    std::string words;
    for (const std::string& part : Split(parts, '#')) {
        std::string word = TrimBlanks(part);
        if (word.empty())
            continue;
        if (!words.empty())
            words += ' ';
        words += word;
    }
    return words;
}

std::string FormatThaiDate(const std::string& date)
{
    if (date == "99999999")
        return "lifelong";
    if (date.size() != 8 || !AllDigits(date))
        return date;
    std::string month = date.substr(4, 2), day = date.substr(6, 2);
    int year = std::stoi(date.substr(0, 4));
    std::string text = date.substr(0, 4) + "-" + month + "-" + day + " B.E.";
    if (year > 543)
        text += " (" + std::to_string(year - 543) + "-" + month + "-" + day + ")";
    return text;
}

std::string FormatThaiIdFields(const ThaiIdFields& fields)
{
    std::string sex = fields.sex == "1" ? "male" : fields.sex == "2" ? "female" : fields.sex;
    const std::pair<const char*, std::string> lines[] = {
        {"Citizen ID", fields.citizenId},
        {"Thai name", JoinNameParts(fields.thaiName)},
        {"English name", JoinNameParts(fields.englishName)},
        {"Birth date", FormatThaiDate(fields.birthDate)},
        {"Sex", sex},
        {"Issuer", fields.issuer},
        {"Issue date", FormatThaiDate(fields.issueDate)},
        {"Expiry date", FormatThaiDate(fields.expiryDate)},
        {"Address", JoinNameParts(fields.address)},
    };
    std::string text;
    for (const auto& line : lines) {
        std::string label = std::string(line.first) + ":";
        text += label + std::string(14 - label.size(), ' ') + line.second + "\n";
    }
    return text;
}

ByteString TrimPhoto(const ByteString& photo)
{
    for (size_t i = photo.size(); i >= 2; --i) {
        if (photo[i - 2] == 0xFF && photo[i - 1] == 0xD9)
            return ByteString(photo.begin(), photo.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return photo;
}
