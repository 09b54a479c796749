// CRC-32 against published check values, whole and carried across blocks.
#include <gtest/gtest.h>

#include <string>

#include "commands/Crc32.h"

namespace {

TEST(Crc32, PublishedCheckValuesWholeAndInTwoBlocks)
{
    const std::pair<std::string, uint32_t> rows[] = {
        {"", 0}, {"a", 0xE8B7BE43u}, {"123456789", 0xCBF43926u}, {"The quick brown fox jumps over the lazy dog", 0x414FA339u}};
    for (const auto& [text, crc] : rows) {
        EXPECT_EQ(Crc32(text.data(), text.size()), crc) << text;
        const size_t half = text.size() / 2;
        EXPECT_EQ(Crc32End(Crc32Update(Crc32Update(Crc32Begin(), text.data(), half), text.data() + half,
                                       text.size() - half)), crc) << text;
    }
}

}  // namespace
