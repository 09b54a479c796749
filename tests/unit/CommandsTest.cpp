// CRC-32 against published check values, the announced name of a host path, and which texts
// the command loader takes for JSON and which for a file of the json folder.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "commands/Commands.h"
#include "commands/Crc32.h"
#include "commands/FileTransfer.h"
#include "support/Config.h"
#include "support/Log.h"

namespace {

TEST(Crc32, PublishedCheckValuesWholeAndInTwoBlocks)
{
    const struct {
        std::string text;
        uint32_t crc;
    } rows[] = {{"", 0}, {"a", 0xE8B7BE43u}, {"123456789", 0xCBF43926u},
                {"The quick brown fox jumps over the lazy dog", 0x414FA339u}};
    for (const auto& row : rows) {
        EXPECT_EQ(Crc32(row.text.data(), row.text.size()), row.crc) << row.text;
        size_t half = row.text.size() / 2;
        uint32_t state = Crc32Update(Crc32Begin(), row.text.data(), half);
        state = Crc32Update(state, row.text.data() + half, row.text.size() - half);
        EXPECT_EQ(Crc32End(state), row.crc) << row.text;
    }
}

TEST(Crc32, FileAcrossReadBlocksAndMissingFile)
{
    // 250,000 bytes span three read blocks; the value is zlib's for the same bytes.
    std::string path = testing::TempDir() + "crc-blocks.bin";
    std::string data(250000, '\0');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>((i * 7 + i / 256) % 256);
    std::ofstream(path, std::ios::binary) << data;
    EXPECT_EQ(FileCrc32(path.c_str()), 0x3BE7A336u);
    EXPECT_EQ(FileCrc32((path + ".missing").c_str()), 0u);
    std::remove(path.c_str());
}

TEST(Upload, AnnouncedNameIsWhatFollowsTheLastSlashOrBackslash)
{
    EXPECT_EQ(UploadName("a\\b/c.bin"), "c.bin");
    EXPECT_EQ(UploadName("C:\\fw\\main.img"), "main.img");
    EXPECT_EQ(UploadName("plain.bin"), "plain.bin");
    EXPECT_EQ(UploadName("folder/"), "");
}

TEST(LoadScriptDocument, JsonWhenABraceOpensAndTheFirstCloseIsNotFirst)
{
    LogInit();
    char folder[] = "/tmp/varnik-json-XXXXXX";
    std::string saved = g_strDataFolder;
    g_strDataFolder = mkdtemp(folder);
    std::system(("mkdir -p '" + g_strDataFolder + "/json'").c_str());
    const struct {
        const char* text;
        const char* format;  // "from file" when the text names a file
    } rows[] = {{"x}{", ""}, {"}{", "from file"}, {"{", "from file"}, {"}", "from file"},
                {R"({"format":"inline"})", "inline"}};
    for (const auto& row : rows) {
        std::ofstream(g_strDataFolder + "/json/" + row.text) << R"({"format":"from file"})";
        ScriptDocument document;
        EXPECT_EQ(LoadScriptDocument(document, row.text), 1) << row.text;
        EXPECT_EQ(MemberText(document.json, "format"), row.format) << row.text;
    }
    ScriptDocument missing;
    EXPECT_EQ(LoadScriptDocument(missing, "absent.json"), 0);
    std::system(("rm -rf '" + g_strDataFolder + "'").c_str());
    g_strDataFolder = saved;
}

}  // namespace
