// CRC-32 of IEEE 802.3 and zlib (reflected 0xEDB88320, all-ones start and final XOR), the
// checksum that a file announcement carries. Computed by table, one byte at a time.
#pragma once

#include <cstddef>
#include <cstdint>

// Running form: start with Crc32Begin(), feed blocks, finish with Crc32End().
constexpr uint32_t Crc32Begin() { return 0xFFFFFFFFu; }
uint32_t Crc32Update(uint32_t state, const void* data, size_t count);
constexpr uint32_t Crc32End(uint32_t state) { return state ^ 0xFFFFFFFFu; }

// Whole buffer at once; 0 for an empty one.
uint32_t Crc32(const void* data, size_t count);
