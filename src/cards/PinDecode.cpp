#include <cstring>

#include "cards/HexDigit.h"
#include "cards/PinPad.h"

void DecodePinKey(const char* work, uint8_t* out)
{
    const size_t length = std::strlen(work);
    // An odd length takes the NUL as the last pair's second digit, which counts as 0.
    for (size_t i = 0; i < length; i += 2) {
        out[i / 2] = static_cast<uint8_t>(HexDigit(static_cast<unsigned char>(work[i])) * 16 +
                                          HexDigit(static_cast<unsigned char>(work[i + 1])));
    }
    out[(length + 1) / 2] = 0;
    out[16] = 0;
}

void DecodeClearKey(const char* work, char* inOut)
{
    for (int i = 0; i < 8; ++i) {
        inOut[i] = static_cast<char>(HexDigit(static_cast<unsigned char>(work[2 * i])) * 16 +
                                     HexDigit(static_cast<unsigned char>(work[2 * i + 1])));
    }
    inOut[8] = 0;
}
