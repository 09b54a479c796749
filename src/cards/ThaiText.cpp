#include "cards/ThaiText.h"

#include <cstdlib>
#include <cstring>

#include "support/Log.h"

namespace {

bool IsThaiCharacter(uint8_t b)
{
    return (b >= 0xA1 && b <= 0xDA) || (b >= 0xDF && b <= 0xFB);
}

uint8_t thaiLenArea[ThaiLenAreaSize];

}  // namespace

int Tis620ToUtf8(const uint8_t* text, size_t length, char* out)
{
    int written = 0;
    for (size_t i = 0; i < length; ++i) {
        const uint8_t b = text[i];
        if (b < 0x80) {
            out[written++] = static_cast<char>(b);
        } else if (IsThaiCharacter(b)) {
            const unsigned codePoint = b + 0x0D60u;
            out[written++] = static_cast<char>(0xE0);
            out[written++] = static_cast<char>((codePoint >> 6) | 0x80);
            out[written++] = static_cast<char>((codePoint & 0x3F) | 0x80);
        }
    }
    return written;
}

int Utf8ToTis620(const char* text, uint8_t* area, int capacity)
{
    const size_t length = std::strlen(text);
    const auto byteAt = [&](size_t i) -> uint8_t {
        return i < length ? static_cast<uint8_t>(text[i]) : 0;
    };
    int written = 0;
    size_t i = 0;
    while (i < length) {
        if (written >= capacity - 1)
            return -1;
        const uint8_t b = byteAt(i);
        if (b == 0xE0) {
            // Only the Thai block's E0 xx xx sequences are known; the low two bits of the
            // second byte and six of the third make the TIS-620 byte.
            area[written++] = static_cast<uint8_t>(((byteAt(i + 1) << 6) | (byteAt(i + 2) & 0x3F)) - 0x60);
            i += 3;
        } else {
            area[written++] = b;
            i += 1;
        }
    }
    return written;
}

bool IsStackedThaiMark(uint8_t b)
{
    return b == 0xD1 || (b >= 0xD4 && b <= 0xDA) || b == 0xE7 || (b >= 0xE8 && b <= 0xED);
}

int CountThaiColumns(const char* text)
{
    const int written = Utf8ToTis620(text, thaiLenArea, ThaiLenAreaSize);
    if (written < 0) {
        WriteLog("ThaiLen: text too long for the work area");
        std::abort();
    }
    thaiLenArea[written] = 0;
    int columns = 0;
    for (const uint8_t* p = thaiLenArea; *p != 0; ++p) {
        if (!IsStackedThaiMark(*p))
            ++columns;
    }
    return columns;
}

int ThaiAnswerAsText(const uint8_t* answer, int available, char* out)
{
    size_t length = 0;
    while (static_cast<int>(length) < available && answer[length] != 0)
        ++length;
    const int written = Tis620ToUtf8(answer, length, out);
    out[written] = 0;
    return written;
}

int ThaiAnswerAsBinary(const uint8_t* answer, int available, char* out)
{
    if (available < 4)
        return 0;
    int32_t declared = static_cast<int32_t>(static_cast<uint32_t>(answer[0]) |
                                            static_cast<uint32_t>(answer[1]) << 8 |
                                            static_cast<uint32_t>(answer[2]) << 16 |
                                            static_cast<uint32_t>(answer[3]) << 24);
    if (declared > available - 4)
        declared = available - 4;
    if (declared < 0)
        declared = 0;
    std::memcpy(out, answer + 4, static_cast<size_t>(declared));
    return declared;
}
