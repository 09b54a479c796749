// varnik's file commands against the real library and the simulated terminal's file store: the
// folder the library uploads is the one the user named, and what the terminal holds after
// upload and rm is what `files` prints.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <sys/stat.h>

#include "Harness.h"

namespace {

std::string ReadWhole(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

TEST(CliFiles, UploadAFolderTreeListItAndRemoveAFile)
{
    Workspace till;
    till.UsePort(7);
    const std::string link = till.PortLink(7);
    // The second file of the folder is declined: skipped, and the upload goes on.
    Simulator terminal(link, {"--decline-upload=#2", "--files", ""});
    const std::string up = till.Folder() + "/up";
    mkdir(up.c_str(), 0755);
    mkdir((up + "/sub").c_str(), 0755);
    std::ofstream(up + "/sub/digits.txt") << "123456789";
    std::ofstream(up + "/abc.txt") << "abc";
    auto varnik = [&till](const std::string& args, std::string* output) {
        output->clear();
        return RunCommand("cd '" + till.Folder() + "' && timeout 30 '" BINARY_DIR "/varnik' --lib '" +
                              till.LibraryPath() + "' " + args,
                          output);
    };
    std::string output;
    ASSERT_EQ(varnik("upload up", &output), 0) << output;
    EXPECT_TRUE(Contains(output, "12 bytes in 2 files")) << output;
    std::string record = ReadWhole(link + ".received.files");
    // One file stored, the other declined, whichever order the folder gave.
    EXPECT_TRUE(Contains(record, "\tdigits.txt\t9\tCBF43926\t")) << record;
    EXPECT_TRUE(Contains(record, "\tabc.txt\t3\t352441C2\t")) << record;
    EXPECT_TRUE(Contains(record, "stored\t") && Contains(record, "declined\t")) << record;
    std::string stored = Contains(record, "stored\tabc.txt") ? "abc.txt" : "digits.txt";

    ASSERT_EQ(varnik("files", &output), 0);
    EXPECT_TRUE(Contains(output, stored + " ")) << output;
    ASSERT_EQ(varnik("rm " + stored, &output), 0) << output;
    ASSERT_EQ(varnik("files", &output), 0);
    EXPECT_EQ(output, "The terminal lists no files.\n");
}

} // namespace
