// CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320, all-ones start and final XOR): the
// check the terminal makes over an uploaded file.
#pragma once

#include <cstddef>
#include <cstdint>

uint32_t Crc32(const uint8_t* data, size_t length);
