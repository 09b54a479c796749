#include "ThaiIdData.h"

#include <algorithm>
#include <iterator>

#include "IdPhoto.h"

namespace {

// TIS-620 puts U+0E01..U+0E5B at 0xA1..0xFB, one fixed distance apart.
constexpr uint32_t ThaiFirst = 0x0E01;
constexpr uint32_t ThaiLast = 0x0E5B;
constexpr uint32_t Tis620Offset = 0x0D60;

// Length of the UTF-8 sequence that `lead` opens, 0 for a byte that opens none.
size_t SequenceLength(uint8_t lead) {
    if ((lead & 0xE0) == 0xC0) return 2;
    if ((lead & 0xF0) == 0xE0) return 3;
    if ((lead & 0xF8) == 0xF0) return 4;
    return 0;
}

ThaiIdRecord BuildDefaultRecord() {
    ThaiIdRecord record;
    const std::string first12 = "123456789012";
    record.citizenId = first12 + CitizenIdCheckDigit(first12);
    record.thaiName = "นาย#สมชาย##ใจดี";
    record.englishName = "Mr.#Somchai##Jaidee";
    record.birthDate = "25300115";
    record.sex = '1';
    record.issuer = "ท้องถิ่นเขตตัวอย่าง/กรุงเทพมหานคร";
    record.issueDate = "25650301";
    record.expiryDate = "25740114";
    record.address =
        "99/9#หมู่ที่ 5#ซอยสุขใจ#ถนนทดสอบ##ตำบลบางตัวอย่าง#อำเภอเมืองตัวอย่าง#จังหวัดนนทบุรี";
    record.photo = SyntheticIdPhoto();
    return record;
}

// Copies `bytes` to the field at `offset`, cut to `length` and padded with `fill`.
void PutField(std::vector<uint8_t>& image, uint16_t offset, uint16_t length,
              const std::string& bytes, uint8_t fill = ' ') {
    const size_t count = std::min<size_t>(bytes.size(), length);
    std::copy_n(bytes.begin(), count, image.begin() + offset);
    std::fill(image.begin() + offset + count, image.begin() + offset + length, fill);
}

}  // namespace

std::string Utf8ToTis620(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const uint8_t lead = static_cast<uint8_t>(text[i]);
        if (lead < 0x80) {
            out += static_cast<char>(lead);
            ++i;
            continue;
        }
        const size_t length = SequenceLength(lead);
        bool valid = length != 0 && i + length <= text.size();
        uint32_t codePoint = length == 2 ? lead & 0x1Fu : length == 3 ? lead & 0x0Fu : lead & 0x07u;
        for (size_t k = 1; valid && k < length; ++k) {
            const uint8_t next = static_cast<uint8_t>(text[i + k]);
            valid = (next & 0xC0) == 0x80;
            codePoint = (codePoint << 6) | (next & 0x3Fu);
        }
        // Overlong forms would let other byte strings pass for Thai letters.
        static const uint32_t shortest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (!valid || codePoint < shortest[length]) {
            out += '?';
            ++i;
            continue;
        }
        out += codePoint >= ThaiFirst && codePoint <= ThaiLast
                   ? static_cast<char>(codePoint - Tis620Offset)
                   : '?';
        i += length;
    }
    return out;
}

char CitizenIdCheckDigit(const std::string& first12) {
    if (first12.size() != 12 ||
        !std::all_of(first12.begin(), first12.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return '?';
    }
    int sum = 0;
    for (int i = 0; i < 12; ++i) sum += (first12[i] - '0') * (13 - i);
    return static_cast<char>('0' + (11 - sum % 11) % 10);
}

const ThaiIdRecord& DefaultThaiIdRecord() {
    static const ThaiIdRecord record = BuildDefaultRecord();
    return record;
}

std::string ThaiIdTextRecord(const ThaiIdRecord& record) {
    const std::string fields[] = {
        record.citizenId,
        Utf8ToTis620(record.thaiName),
        Utf8ToTis620(record.englishName),
        record.birthDate,
        std::string(1, record.sex),
        Utf8ToTis620(record.issuer),
        record.issueDate,
        record.expiryDate,
        Utf8ToTis620(record.address),
    };
    std::string text = fields[0];
    for (size_t i = 1; i < std::size(fields); ++i) text += '|' + fields[i];
    return text;
}

std::vector<uint8_t> ThaiIdFileImage(const ThaiIdRecord& record) {
    using namespace ThaiIdFile;
    std::vector<uint8_t> image(Size, 0x00);
    PutField(image, CitizenId, CitizenIdLength, record.citizenId);
    PutField(image, ThaiName, ThaiNameLength, Utf8ToTis620(record.thaiName));
    PutField(image, EnglishName, EnglishNameLength, Utf8ToTis620(record.englishName));
    PutField(image, BirthDate, DateLength, record.birthDate);
    PutField(image, Sex, SexLength, std::string(1, record.sex));
    PutField(image, Issuer, IssuerLength, Utf8ToTis620(record.issuer));
    PutField(image, IssueDate, DateLength, record.issueDate);
    PutField(image, ExpiryDate, DateLength, record.expiryDate);
    PutField(image, Photo, PhotoLength, std::string(record.photo.begin(), record.photo.end()),
             0x00);
    PutField(image, Address, AddressLength, Utf8ToTis620(record.address));
    return image;
}
