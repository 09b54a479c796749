#include "commands/Crc32.h"

#include <array>

namespace {

std::array<uint32_t, 256> MakeTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t index = 0; index < 256; ++index) {
        uint32_t value = index;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1u) != 0 ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        table[index] = value;
    }
    return table;
}

}  // namespace

uint32_t Crc32Update(uint32_t state, const void* data, size_t count)
{
    static const std::array<uint32_t, 256> table = MakeTable();
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < count; ++i)
        state = table[(state ^ bytes[i]) & 0xFFu] ^ (state >> 8);
    return state;
}

uint32_t Crc32(const void* data, size_t count)
{
    return Crc32End(Crc32Update(Crc32Begin(), data, count));
}
