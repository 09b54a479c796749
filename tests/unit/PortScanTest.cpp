// Port discovery: the per-device decision, the pick among the marks, and the Linux walk over a
// fake sysfs tree (an integration test cannot put a fake /sys under the library).
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "serial/PortScan.h"
#include "session/DeviceContext.h"
#include "support/Config.h"
#include "support/Log.h"

namespace fs = std::filesystem;

namespace {

using Marks = std::map<int, int>;  // table index -> bits; every other entry must stay 0

Marks MarksOf(const unsigned char* table)
{
    Marks marks;
    for (int i = 0; i < 256; ++i)
        if (table[i])
            marks[i] = table[i];
    return marks;
}

const char* const Wanted = "Terminal Port";

// The properties read of one device; a null text could not be read.
struct Device {
    const char* portName;
    const char* friendlyName;
    const char* service;
    const char* description;
};

CPortInfo InfoOf(const Device& device)
{
    CPortInfo info;
    const struct {
        const char* text;
        std::string* field;
        int32_t flag;
    } properties[] = {{device.portName, &info.strPortName, PortInfoPortName},
                      {device.friendlyName, &info.strFriendlyName, PortInfoFriendlyName},
                      {device.service, &info.strService, PortInfoService},
                      {device.description, &info.strDescription, PortInfoDescription}};
    for (const auto& property : properties) {
        if (property.text != nullptr) {
            *property.field = property.text;
            info.nFlags |= property.flag;
        }
    }
    return info;
}

struct MarkCase {
    const char* what;
    Device device;
    Marks expected;
};

const MarkCase MarkCases[] = {
    {"port from friendly name", {nullptr, "Bridge (COM12)", "usbser", Wanted}, {{12, 0x03}}},
    {"description ignores case", {"COM12", nullptr, "usbser", "TERMINAL port"}, {{12, 0x03}}},
    {"other description", {nullptr, "Bridge (COM12)", "usbser", "Modem"}, {{12, 0x02}}},
    {"built-in service", {"COM5", nullptr, "Serial", Wanted}, {}},
    {"built-in service, lower case", {"COM5", nullptr, "serial", Wanted}, {}},
    {"no service", {"COM5", nullptr, nullptr, Wanted}, {}},
    {"COM0", {"COM0", nullptr, "usbser", Wanted}, {}},
    {"no digits", {nullptr, "Bridge (COM)", "usbser", Wanted}, {}},
    {"low byte of the number", {"COM300", nullptr, "usbser", Wanted}, {{44, 0x03}}},
    {"PortName over friendly name", {"COM4", "Bridge (COM9)", "usbser", Wanted}, {{4, 0x03}}},
    {"first (COM in friendly name", {nullptr, "A (COM3) (COM8)", "usbser", Wanted}, {{3, 0x03}}},
    // Not COM ports: nPort stays -1, which lands on entry 255.
    {"LPT port", {"LPT1", nullptr, "Parport", Wanted}, {{255, 0x03}}},
    {"lower-case com", {"com5", nullptr, "usbser", Wanted}, {{255, 0x03}}},
    {"short name", {"CO", nullptr, "usbser", "Modem"}, {{255, 0x02}}},
    {"no closing bracket", {nullptr, "Bridge (COM7", "usbser", Wanted}, {{255, 0x03}}},
    {"friendly name not a string", {nullptr, "", "usbser", Wanted}, {{255, 0x03}}},
};

TEST(MarkPort, DecidesEachDevice)
{
    for (const MarkCase& test : MarkCases) {
        unsigned char table[256] = {};
        CPortInfo info = InfoOf(test.device);
        MarkPort(info, Wanted, table);
        EXPECT_EQ(MarksOf(table), test.expected) << test.what;
    }
}

// Several ports of one description: the lowest that matched the name wins.
TEST(LowestMatchingPort, TakesTheLowestNameMatch)
{
    const struct {
        Marks marks;
        int port;
    } rows[] = {
        {{}, -1},
        {{{9, 0x03}, {3, 0x03}}, 3},
        {{{3, 0x02}, {9, 0x03}, {200, 0x03}}, 9},  // a qualifying port alone is not enough
        {{{0, 0x01}, {1, 0x03}}, 0},
        {{{7, 0x02}, {255, 0x03}}, 255},
    };
    for (const auto& row : rows) {
        unsigned char table[256] = {};
        for (const auto& mark : row.marks)
            table[mark.first] = static_cast<unsigned char>(mark.second);
        EXPECT_EQ(LowestMatchingPort(table), row.port) << row.marks.size();
    }
}

// A small sysfs tree, with /dev and the config folder beside it:
//   ttyUSB0: FTDI port of USB device "Terminal Port", reached from COM7 through a by-id link
//   ttyS0:   built-in UART (serial8250), linked from COM1
//   ttyACM0: CDC port whose interface string is "Terminal Port" (product "Modem"), no link
//   ttyUSB1: no driver bound, linked from COM8
//   tty0:    virtual console, no device
class SysfsScan : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/portscan-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_root = pattern;
        m_config = m_root / "config";
        fs::create_directories(m_config);
        Build(m_root / "sys", m_root / "dev");
    }

    // The tree with its sysfs at `sys` and its /dev at `dev`.
    void Build(const fs::path& sys, const fs::path& dev)
    {
        m_sys = sys;
        m_dev = dev;
        fs::create_directories(m_dev / "serial/by-id");
        fs::create_directories(m_sys / "class/tty");

        Tty("ttyUSB0", UsbInterface("1-1", "Terminal Port") / "ttyUSB0", "ftdi_sio");
        Tty("ttyS0", m_sys / "devices/platform/serial8250", "serial8250");
        Tty("ttyACM0", UsbInterface("1-2", "Modem", "Terminal Port"), "cdc_acm");
        Tty("ttyUSB1", UsbInterface("1-3", "Terminal Port") / "ttyUSB1", nullptr);
        fs::create_directories(m_sys / "devices/virtual/tty/tty0");
        fs::create_directory_symlink(m_sys / "devices/virtual/tty/tty0", m_sys / "class/tty/tty0");

        fs::create_symlink("../../ttyUSB0", m_dev / "serial/by-id/usb-Terminal_Port");
        fs::create_symlink(m_dev / "serial/by-id/usb-Terminal_Port", m_config / "COM7");
        fs::create_symlink(m_dev / "ttyS0", m_config / "COM1");
        fs::create_symlink(m_dev / "ttyUSB1", m_config / "COM8");
    }

    void TearDown() override { fs::remove_all(m_root); }

    static void Attribute(const fs::path& path, const char* value)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << value << "\n";
    }

    // A USB device with its product string, and its interface 1.0 with an optional string.
    fs::path UsbInterface(const char* device, const char* product, const char* text = nullptr)
    {
        const fs::path folder = m_sys / "devices/pci0000:00/0000:00:14.0/usb1" / device;
        Attribute(folder / "idVendor", "0403");
        Attribute(folder / "product", product);
        const fs::path interface = folder / (std::string(device) + ":1.0");
        Attribute(interface / "bInterfaceNumber", "00");
        if (text != nullptr)
            Attribute(interface / "interface", text);
        return interface;
    }

    // The tty's device folder and its driver (if any), its class entry with the "device"
    // link, and its node in /dev.
    void Tty(const char* name, const fs::path& device, const char* driver)
    {
        fs::path tty = device / "tty" / name;
        fs::create_directories(tty);
        if (driver != nullptr)
            fs::create_directory_symlink(m_sys / "bus/drivers" / driver, device / "driver");
        fs::create_directory_symlink(device, tty / "device");
        fs::create_directory_symlink(tty, m_sys / "class/tty" / name);
        std::ofstream(m_dev / name).put('\0');
    }

    int Scan(const char* name, unsigned char* table)
    {
        return ScanSysfsPorts(name, table, m_sys.string(), m_config.string() + "/", m_dev.string());
    }

    fs::path m_root, m_sys, m_dev, m_config;
};

// COM7 matches; COM1 is on the built-in driver and COM8 has none; ttyACM0, with no COM link,
// is no COM port and lands on 255 as on Windows. Its interface string stands before its
// product string, so "Modem" matches nothing. Every link is a port of its own.
TEST_F(SysfsScan, MarksPortsByDescriptionDriverAndLink)
{
    const struct {
        const char* name;
        const char* link;  // another link in the config folder, to the device beside it
        const char* device;
        Marks marks;
    } cases[] = {
        {"terminal port", nullptr, nullptr, {{7, 0x03}, {255, 0x03}}},
        {"Modem", nullptr, nullptr, {{7, 0x02}, {255, 0x02}}},
        {Wanted, "COM12", "ttyUSB0", {{7, 0x03}, {12, 0x03}, {255, 0x03}}},
        {Wanted, "COM07", "ttyUSB0", {{7, 0x03}, {255, 0x03}}},  // not a name the driver opens
        {Wanted, "COM3", "ttyACM0", {{3, 0x03}, {7, 0x03}}},
    };
    for (const auto& c : cases) {
        if (c.link != nullptr)
            fs::create_symlink(m_dev / c.device, m_config / c.link);
        unsigned char table[256] = {};
        EXPECT_EQ(Scan(c.name, table), 1) << c.name;
        EXPECT_EQ(MarksOf(table), c.marks) << c.name << " " << (c.link ? c.link : "");
        if (c.link != nullptr)
            fs::remove(m_config / c.link);
    }

    unsigned char table[256] = {};
    EXPECT_EQ(ScanSysfsPorts(Wanted, table, m_sys.string(), (m_root / "none").string(), m_dev.string()), 1);
    EXPECT_EQ(MarksOf(table), (Marks{{255, 0x03}})) << "without links no COM ports";
    fs::remove_all(m_sys / "class");
    unsigned char untouched[256] = {};
    EXPECT_EQ(Scan(Wanted, untouched), 0);
    EXPECT_EQ(MarksOf(untouched), Marks{}) << "without the tty class no list";
}

// The start-up's scan through the real walk: a child process mounts the tree over /sys and
// /dev in a mount namespace of its own (root only). With COM3 linked to ttyACM0 too, two ports
// match: the lowest wins and is logged; a port the file gives scans nothing.
TEST_F(SysfsScan, TheStartUpTakesTheLowestMatchingPortUnlessTheFileGivesOne)
{
    const std::pair<const char*, int> rows[] = {{R"({"name":"terminal port"})", 3},
                                                {R"({"port":-1,"name":"terminal port"})", 3},
                                                {R"({"port":9,"name":"terminal port"})", 9},
                                                {R"({"name":"Modem"})", 0}};
    const std::string log = (m_root / "Log").string();
    for (const auto& [config, port] : rows) {
        fs::remove_all(log);
        std::ofstream(m_config / "varnik.json") << config;
        const pid_t child = fork();
        if (child == 0) {
            if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                mount("none", "/sys", "tmpfs", 0, nullptr) != 0 || mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
                _exit(77);
            try {
                for (const char* link : {"COM1", "COM7", "COM8"})
                    fs::remove(m_config / link);
                Build("/sys", "/dev");
                fs::create_symlink("/dev/ttyACM0", m_config / "COM3");
                LogInit();
                g_strConfigFolder = m_config.string() + "/";
                g_strLogFolder = log;
                g_nLogMode = fs::create_directories(log);
                LoadConfiguration();
                _exit(g_context.port);
            } catch (...) {
                _exit(99);
            }
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WEXITSTATUS(status) == 77)
            GTEST_SKIP() << "no mount namespace here";
        EXPECT_EQ(WEXITSTATUS(status), port) << config;
        fs::remove(m_config / "COM3");
        std::string text;
        ReadWholeFile(LogFileName(log, CurrentLocalTime()), text);
        EXPECT_EQ(text.find("\tScan Port ["),
                  port == 3 ? text.find("\tScan Port [terminal port]: 3\r\n") : std::string::npos) << text;
    }
}

}  // namespace
