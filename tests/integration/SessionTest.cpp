// The session exports against the simulator: probe and port check under all their names,
// cancels, and what needs no terminal at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "Harness.h"

namespace {

const std::string Probe = "02 34 03 34";

TEST(Session, ProbeAndPortCheckUnderEveryName)
{
    const struct {
        const char* call;  // the CheckPort names take `port`
        int port;
        std::string config;  // varnik.json before the call ("" for none)
        Options options;
        int result;
        std::string wire;
        std::string saved;  // varnik.json after the call
        std::vector<std::string> log;
    } rows[] = {
        {"PosCheckPort", 7, "", {}, 0, Probe, Port7,
         {"load config error : ", "check device port 7", "Open Port  was Successful : 7",
          ">02:34:03:34", "<06"}},
        {"PinCheckPort", 7, "{}", {}, 0, Probe, Port7, {}},
        // Two windows of two seconds, a probe each; nothing answered, nothing saved.
        {"PosCheckPort", 7, "{}", {"--silent"}, 1538, Probe + Probe, "{}", {}},
        {"PosCheckPort", 9, "{\"port\":-1}", {}, 110, "", "{\"port\":-1}", {"Open Port Failed : 9"}},
        {"PosSelect", 0, Port7, {}, 0, Probe, Port7, {"Port : 7"}},
        {"PinSelect", 0, Port7, {}, 0, Probe, Port7, {}},
        {"PosSelect", 0, Port7, {"--garbage", "15:41:18"}, 0, Probe, Port7, {"<15"}},
        {"PosSelect", 0, Port7, {"--reply", "34=15", "--reply", "34=15"}, 1538, Probe + Probe, Port7, {"<15"}},
        {"PosSelect", 0, "", {}, 110, "", "", {"3in1 port not found"}},
        {"PosSelect", 0, "{\"port\":-1}", {}, 110, "", "{\"port\":-1}",
         {"Invalid Handle Value: ", "Open Port Failed : -1"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + " " + row.config + " " + (row.options.empty() ? "" : row.options[0]));
        Session s(row.options, row.config);
        const auto start = std::chrono::steady_clock::now();
        const int result = Contains(row.call, "CheckPort") ? s.Get<PortCall>(row.call)(row.port)
                                                           : s.Get<VoidCall>(row.call)();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

        EXPECT_EQ(result, row.result);
        EXPECT_EQ(Hex(s.terminal.Received()), Hex(HexBytes(row.wire)));
        EXPECT_EQ(s.folder.ReadConfig("varnik.json"), row.saved);
        const std::string log = s.folder.LogText();
        for (const std::string& line : row.log)
            EXPECT_TRUE(Contains(log, line)) << line << "\n" << log;
        // A port that was opened is closed once, with its line.
        EXPECT_EQ(CountOf(log, "Close Device was Successful"), row.result == 110 ? 0u : 1u) << log;
        if (row.result == 1538) {
            EXPECT_GT(seconds, 3.9);
            EXPECT_LT(seconds, 6.0);
        }
    }
}

// A cancel while a call waits puts exactly one CAN on the line (a burst of them at most one each),
// and the terminal's answer ends the wait; one given between calls is wiped by the next open and
// never reaches the line. Every cancel logs its line, in its place.
TEST(Session, PosCancelDuringAWaitAndBetweenCalls)
{
    const struct {
        const char* call;
        Options options;
        Bytes frame;
        bool during;
        int result;
        Bytes head;
        int cancels = 1;
    } rows[] = {
        {"getVersion", {"--hold", "3B"}, VersionFrame, true, 1, HexBytes("18 00")},
        {"MsreRead", {"--swipe-wait"}, Frame("02 33 52", "Swipe Card :", "03 37"), true, 1,
         HexBytes("18 00")},  // no field
        {"MsreRead", {"--swipe-wait"}, Frame("02 33 52", "Swipe Card :", "03 37"), true, 1,
         HexBytes("18 00"), 10},
        // The terminal's CAN is one non-digit for the keypad: a zero byte, the NUL, out[16].
        {"PinReadKey", {"--pin-wait"}, Frame("02 30 30", "pinpad.json", "03 34"), true, 0,
         HexBytes("00 00 55 55 55 55 55 55 55 55 55 55 55 55 55 55 00")},
        {"getVersion", {}, VersionFrame, false, 15, TextBytes("NEW6210 SIM 1.0")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.call) + (row.during ? " during" : " before"));
        Session s(row.options);
        auto cancel = s.Get<VoidCall>(row.during ? "PinCancel" : "MsreCancel");
        Bytes out = Filled(32, {});
        out[1] = 0;  // a text for MsreRead to measure, which the terminal's CAN does not end

        std::thread canceller;
        if (row.during) {
            canceller = std::thread([&] {
                s.terminal.WaitReceived(row.frame.size());
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                for (int i = 0; i < row.cancels; ++i)
                    cancel();
            });
        } else {
            s.Get<int(const char*)>("ThaiLen")("");  // started: the start-up would wipe the cancel too
            EXPECT_EQ(cancel(), 0);
        }
        const int result = CallExport(s.library, row.call, out.data());
        if (canceller.joinable())
            canceller.join();

        EXPECT_EQ(result, row.result);
        EXPECT_EQ(Hex(out), Hex(Filled(32, row.head)));
        const std::string log = s.folder.LogText();
        EXPECT_EQ(CountOf(log, "\tPos Cancel \r\n"), static_cast<size_t>(row.cancels));
        EXPECT_EQ(std::min<size_t>(CountOf(log, ">18"), 1), row.during ? 1u : 0u) << log;
        EXPECT_LE(CountOf(log, ">18"), static_cast<size_t>(row.cancels)) << log;
        EXPECT_EQ(CountOf(log, "Close Device was "), 1u);
        if (row.during) {
            EXPECT_LT(log.find("Pos Cancel "), log.find(">18")) << log;
            if (row.cancels == 1) {
                EXPECT_EQ(Hex(s.terminal.Received()), Hex(row.frame + Bytes{0x18}));
            }
        }
    }
}

// A null buffer answers -1 before any port is looked for; without a port every export that
// fills a buffer answers 110 and leaves it alone, and the stripe write stub clears the first byte.
TEST(Session, NullBuffersAndNoPortLeaveTheTerminalAloneAndNamesOfOneRoutineShareOneAddress)
{
    Session s({}, "");
    const Library& library = s.library;
    for (const char* name : {"getVersion", "PinLoadMK", "PinReadKey", "PinReadKeyClear", "MsreRead",
                             "EMVRead", "ThaiIDRead", "MsreWrite"}) {
        EXPECT_EQ(CallExport(library, name, nullptr), -1) << name;
        const bool stub = std::string(name) == "MsreWrite";
        Bytes buffer = Filled(20, TextBytes("A"));
        EXPECT_EQ(CallExport(library, name, buffer.data()), stub ? 0 : 110) << name;
        EXPECT_EQ(Hex(buffer), Hex(Filled(20, stub ? HexBytes("00 00") : TextBytes("A")))) << name;
    }
    EXPECT_EQ(library.Get<int(char*, const char*)>("PosExec")(nullptr, "VERSION"), -1);
    EXPECT_EQ(library.Get<int(const char*)>("ThaiLen")(nullptr), 0);
    EXPECT_EQ(Hex(s.terminal.Received()), "");

    EXPECT_EQ(library.Symbol("PinSelect"), library.Symbol("MsreSelect"));
    EXPECT_EQ(library.Symbol("PinCheckPort"), library.Symbol("MsreCheckPort"));
    EXPECT_EQ(library.Symbol("PosCancel"), library.Symbol("PinCancel"));
    EXPECT_EQ(library.Symbol("PosCancel"), library.Symbol("MsreCancel"));
    void* copy = library.Symbol("_ZN8CBrelmataSERKS_");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy, library.Symbol("_ZN8CBrelmataSEOS_"));
    EXPECT_NE(library.Symbol("PosSelect"), library.Symbol("PinSelect"));
    EXPECT_EQ(library.Symbol("OpenDevice"), nullptr);  // internals stay inside
    EXPECT_EQ(library.Symbol("WriteLog"), nullptr);
}

}  // namespace
