// ReaderSelect in a real host process: Debian's pyscard (pcsc-lite in-process, no pcscd) reads
// the simulated Thai ID card through the virtual reader; ctypes calls through functions bound
// before the redirection; and the failure paths with a pcsc-lite that lacks SCardTransmit, one
// that will not load, and no terminal.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "Harness.h"

namespace {

using Values = std::map<std::string, std::string>;

struct ClientRun {
    int status;
    Values values;                      // the last "key=value" of each key
    std::vector<std::string> selects;  // every ReaderSelect result, in order
    std::string output;
    std::string errors;
};

// Runs the PC/SC host script with the system's Python (the one that has pyscard).
ClientRun RunClient(const Workspace& folder, const std::string& mode, const std::string& libraryPath)
{
    const std::string errors = folder.Folder() + "/client.err";
    std::string command = "timeout 45 /usr/bin/python3 '" SOURCE_DIR "/tests/integration/pcsc_client.py' " +
                          mode + " '" + folder.LibraryPath() + "' 2>'" + errors + "'";
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

const char* const Broken = "broken";  // a libpcsclite.so.1 that is no library

TEST(Pcsc, ReaderSelectRedirectsTheHostsPcscCalls)
{
    const std::string select = "02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21";
    const std::string virtualReader = "0 1234|0 21|0 1234 1";
    const struct {
        const char* what;
        const char* mode;
        std::string libraryPath;  // LD_LIBRARY_PATH of the host
        std::string config;       // varnik.json; "" for no terminal
        std::vector<std::string> selects;
        Values values;  // "establish|list|connect" joined, and single keys
        std::vector<std::string> wire;  // frames the terminal got once each
        std::vector<std::string> log, notInLog, errors;
    } rows[] = {
        {"pyscard", "library", "", "{\"port\":7}", {"0", "0"},
         {{"readers", "NEW6210 Reader Card"}, {"atr", "3B 68 00 00 54 48 20 4E 49 44 20 36"},
          {"connect", "0 protocol 1"}, {"citizen", "1234567890121"}, {"photo", "5118 FFD8 FFD9"}},
         {"02 38 02 03 3A", select, "02 38 03 03 3B"},
         {"SCardEstablishContext called", "SCardListReaders called",
          "-> Found readers: NEW6210 Reader Card", "Open APDU",
          "SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called",
          "SCardStatus(pcbAtrLen:", "SCardTransmit called", "port is opened"},
         {}, {}},
        {"bound before", "direct", "", "{\"port\":7}", {"0"},
         {{"pcsclite", "loaded"}, {"calls", virtualReader}, {"status", "0 40 3B 68 00 00 54 48 20 4E 49 44 20 36"},
          {"disconnect", "0"}},
         {"02 38 02 03 3A", "02 38 03 03 3B"},
         {"SCardConnect(no such reader,hCard:0x1234 status:[0x0]) called",
          "Redirection WinCard completed"},
         {}, {}},
        // The stand-in answers 0x7E00000n and handles of its own; these are the reader's.
        {"no SCardTransmit", "direct", FAKE_PCSCLITE_DIR, "{\"port\":7}", {"-1"},
         {{"transmit", "absent"}, {"calls", virtualReader}, {"disconnect", "0"}},
         {"02 38 02 03 3A"}, {"Not Found SCardTransmit"}, {"Redirection WinCard completed"},
         {"Not Found SCardTransmit"}},
        {"no pcsc-lite", "direct", Broken, "{\"port\":7}", {"-1"}, {{"pcsclite", "missing"}},
         {"02 34 03 34"},
         {"Cannot found module [libpcsclite.so.1] 0x"}, {}, {}},
        {"no terminal", "direct", "", "", {"110"}, {{"pcsclite", "loaded"}}, {}, {},
         {"SCardEstablishContext called"}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Session s({}, row.config);
        std::string libraryPath = row.libraryPath;
        if (libraryPath == Broken) {
            libraryPath = s.folder.Folder() + "/broken";
            RunCommand("mkdir -p '" + libraryPath + "' && echo junk > '" + libraryPath + "/libpcsclite.so.1'");
        }

        ClientRun run = RunClient(s.folder, row.mode, libraryPath);
        run.values["calls"] = run.values["establish"] + "|" + run.values["list"] + "|" + run.values["connect"];

        ASSERT_EQ(run.status, 0) << run.output << run.errors;
        EXPECT_EQ(run.selects, row.selects);
        for (const auto& value : row.values)
            EXPECT_EQ(run.values[value.first], value.second) << value.first;
        const Bytes sent = s.terminal.Received();
        for (const std::string& frame : row.wire)
            EXPECT_EQ(CountOf(sent, HexBytes(frame)), 1u) << frame;
        if (row.wire.empty()) {
            EXPECT_TRUE(sent.empty());
        }
        const std::string log = s.folder.LogText();
        for (const std::string& line : row.log)
            EXPECT_TRUE(Contains(log, line)) << line << "\n" << log;
        for (const std::string& line : row.notInLog)
            EXPECT_FALSE(Contains(log, line)) << line;
        const std::string notFound = "Not Found";  // one line each, the notice on stderr alone
        EXPECT_EQ(CountOf(Bytes(log.begin(), log.end()), Bytes(notFound.begin(), notFound.end())),
                  row.errors.size()) << log;
        for (const std::string& line : row.errors)
            EXPECT_TRUE(Contains(run.errors, line)) << line << "\n" << run.errors;
        if (row.errors.empty()) {
            EXPECT_FALSE(Contains(run.errors, "Not Found")) << run.errors;
        }
    }
}

}  // namespace
