#include "Crc32.h"

#include <array>

namespace {

std::array<uint32_t, 256> MakeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t n = 0; n < 256; ++n) {
        uint32_t value = n;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        }
        table[n] = value;
    }
    return table;
}

}  // namespace

uint32_t Crc32(const uint8_t* data, size_t length) {
    static const std::array<uint32_t, 256> table = MakeTable();
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < length; ++i) {
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    }
    return crc ^ 0xFFFFFFFFu;
}
