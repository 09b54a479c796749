// ReaderSelect in a real host process: Debian's pyscard (loading pcsc-lite in-process, with no
// pcscd running) lists, connects and reads the simulated Thai ID card through the virtual
// reader; ctypes calls through functions bound before the redirection; and the failure paths
// with a pcsc-lite that lacks SCardTransmit, one that will not load, and no terminal.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "Harness.h"

namespace {

constexpr int Port = 6;
const Bytes OpenApdu = {0x02, 0x38, 0x02, 0x03, 0x3A};
const Bytes CloseApdu = {0x02, 0x38, 0x03, 0x03, 0x3B};
const char* const AtrOption = "3B:68:00:00:54:48:20:4E:49:44:20:36";
const char* const Atr = "3B 68 00 00 54 48 20 4E 49 44 20 36";

struct ClientRun {
    int status;
    std::map<std::string, std::string> values;  // the last "key=value" of each key
    std::vector<std::string> selects;           // every ReaderSelect result, in order
    std::string output;
    std::string errors;
};

// Runs the PC/SC host script with the system's Python (the one that has pyscard).
ClientRun RunClient(const Workspace& folder, const std::string& mode,
                    const std::string& libraryPath = "")
{
    const std::string errors = folder.Folder() + "/client.err";
    std::string command = "timeout 45 /usr/bin/python3 '" SOURCE_DIR
                          "/tests/integration/pcsc_client.py' " + mode + " '" +
                          folder.LibraryPath() + "' 2>'" + errors + "'";
    if (!libraryPath.empty())
        command = "LD_LIBRARY_PATH='" + libraryPath + "' " + command;
    if (*SANITIZER_PRELOAD != '\0')  // Python's own leaks are not ours to report
        command = "LD_PRELOAD=" SANITIZER_PRELOAD " ASAN_OPTIONS=detect_leaks=0 " + command;
    ClientRun run;
    run.status = RunCommand(command, &run.output);
    RunCommand("cat '" + errors + "'", &run.errors);
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = line.substr(0, equals);
        run.values[key] = line.substr(equals + 1);
        if (key == "ReaderSelect")
            run.selects.push_back(run.values[key]);
    }
    return run;
}

size_t Occurrences(const std::string& text, const std::string& part)
{
    return CountOf(Bytes(text.begin(), text.end()), Bytes(part.begin(), part.end()));
}

struct Pcsc : ::testing::Test {
    Workspace folder;
    void SetUp() override { folder.EnableLog(); }
};

}  // namespace

TEST_F(Pcsc, PyscardReadsTheThaiIdCardThroughTheVirtualReader)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--atr", AtrOption});

    ClientRun run = RunClient(folder, "pyscard");

    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.selects, (std::vector<std::string>{"0", "0"}));
    EXPECT_EQ(run.values["readers"], "NEW6210 Reader Card");
    EXPECT_EQ(run.values["atr"], Atr);
    EXPECT_EQ(run.values["select"], "9000");
    EXPECT_EQ(run.values["read"], "9000");
    EXPECT_EQ(run.values["citizen"], "1234567890121");
    EXPECT_EQ(run.values["done"], "1");

    const Bytes sent = terminal.Received();
    EXPECT_EQ(CountOf(sent, OpenApdu), 1u);
    EXPECT_EQ(CountOf(sent, HexBytes("02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21")),
              1u) << "the SELECT as the terminal gets it";
    EXPECT_EQ(CountOf(sent, CloseApdu), 1u);

    const std::string log = folder.LogText();
    EXPECT_EQ(Occurrences(log, "Redirection WinCard completed"), 2u) << log;
    for (const char* line : {"SCardEstablishContext called", "SCardListReaders called",
                             "-> Found readers: NEW6210 Reader Card", "Open APDU",
                             "SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called",
                             "SCardStatus(pcbAtrLen:", "SCardTransmit called", "port is opened"})
        EXPECT_TRUE(Contains(log, line)) << line << "\n" << log;
}

TEST_F(Pcsc, FunctionsBoundBeforeReaderSelectReachTheVirtualReader)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port), {"--atr", "3B:00"});

    ClientRun run = RunClient(folder, "direct");

    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.values["pcsclite"], "loaded");
    EXPECT_EQ(run.selects, std::vector<std::string>{"0"});
    EXPECT_EQ(run.values["establish"], "0 1234");
    EXPECT_EQ(run.values["list"], "0 21");
    EXPECT_EQ(run.values["connect"], "0 1234 1");
    EXPECT_EQ(run.values["status"], "0 40 3B 00") << "SCARD_SPECIFIC and the connect's ATR";
    EXPECT_EQ(run.values["disconnect"], "0");
    EXPECT_TRUE(Contains(folder.LogText(),
                         "SCardConnect(no such reader,hCard:0x1234 status:[0x0]) called"));
}

TEST_F(Pcsc, APcscLibraryWithoutTransmitLeavesTheOtherFiveHooked)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));

    ClientRun run = RunClient(folder, "direct", FAKE_PCSCLITE_DIR);

    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.values["transmit"], "absent") << "the stand-in library was loaded";
    EXPECT_EQ(run.selects, std::vector<std::string>{"-1"});
    // The stand-in answers 0x7E00000n and its own handles; these are the virtual reader's.
    EXPECT_EQ(run.values["establish"], "0 1234");
    EXPECT_EQ(run.values["list"], "0 21");
    EXPECT_EQ(run.values["connect"], "0 1234 1");
    EXPECT_EQ(run.values["status"].substr(0, 5), "0 40 ");
    EXPECT_EQ(run.values["disconnect"], "0");
    EXPECT_EQ(CountOf(terminal.Received(), OpenApdu), 1u);

    EXPECT_TRUE(Contains(run.errors, "Not Found SCardTransmit")) << run.errors;
    const std::string log = folder.LogText();
    EXPECT_EQ(Occurrences(log, "Not Found SCardTransmit"), 1u) << log;
    EXPECT_FALSE(Contains(log, "Redirection WinCard completed")) << log;
}

TEST_F(Pcsc, APcscLibraryThatWillNotLoadIsNamedInTheLog)
{
    folder.UsePort(Port);
    Simulator terminal(folder.PortLink(Port));
    const std::string broken = folder.Folder() + "/broken";
    RunCommand("mkdir -p '" + broken + "' && echo junk > '" + broken + "/libpcsclite.so.1'");

    ClientRun run = RunClient(folder, "direct", broken);

    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.values["pcsclite"], "missing");
    EXPECT_EQ(run.selects, std::vector<std::string>{"-1"});
    const std::string log = folder.LogText();
    EXPECT_TRUE(Contains(log, "Cannot found module [libpcsclite.so.1] 0x")) << log;
    EXPECT_FALSE(Contains(run.errors, "Not Found")) << "no notice: nothing was looked up";
}

TEST_F(Pcsc, WithoutATerminalNothingIsHooked)
{
    ClientRun run = RunClient(folder, "direct");

    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(run.selects, std::vector<std::string>{"110"});
    ASSERT_TRUE(run.values.count("establish")) << run.output;
    EXPECT_NE(run.values["establish"], "0 1234") << "pcsc-lite answered for itself";
    EXPECT_FALSE(Contains(folder.LogText(), "SCardEstablishContext called"));
}
