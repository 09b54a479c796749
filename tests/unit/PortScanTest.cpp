// Port discovery: the per-device decision, and the Linux walk over a fake sysfs tree.
//
// An integration test that loads the library with config/varnik.json {"port":0,"name":...}
// cannot put a fake /sys under it, so the sysfs walk is tested here only, through
// ScanSysfsPorts with its folders pointed into a temporary directory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "serial/PortScan.h"

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

// The caller's choice: the lowest entry with a name match, or -1.
int FirstMatch(const unsigned char* table)
{
    for (int i = 0; i < 256; ++i)
        if (table[i] & PortMarkNameMatch)
            return i;
    return -1;
}

const char* const Wanted = "Terminal Port";

struct Device {
    int32_t flags;  // properties read, besides those implied by the texts below
    const char* portName;
    const char* friendlyName;
    const char* service;  // null: could not be read
    const char* description;
};

CPortInfo InfoOf(const Device& device)
{
    CPortInfo info;
    info.nFlags = device.flags;
    if (device.portName) {
        info.strPortName = device.portName;
        info.nFlags |= PortInfoPortName;
    }
    if (device.friendlyName) {
        info.strFriendlyName = device.friendlyName;
        info.nFlags |= PortInfoFriendlyName;
    }
    if (device.service) {
        info.strService = device.service;
        info.nFlags |= PortInfoService;
    }
    info.strDescription = device.description;
    info.nFlags |= PortInfoDescription;
    return info;
}

struct MarkCase {
    const char* what;
    Device device;
    Marks expected;
};

const MarkCase MarkCases[] = {
    {"port from friendly name", {0, nullptr, "Bridge (COM12)", "usbser", Wanted}, {{12, 0x03}}},
    {"description ignores case", {0, "COM12", nullptr, "usbser", "TERMINAL port"}, {{12, 0x03}}},
    {"other description", {0, nullptr, "Bridge (COM12)", "usbser", "Modem"}, {{12, 0x02}}},
    {"built-in service", {0, "COM5", nullptr, "Serial", Wanted}, {}},
    {"built-in service, lower case", {0, "COM5", nullptr, "serial", Wanted}, {}},
    {"no service", {0, "COM5", nullptr, nullptr, Wanted}, {}},
    {"COM0", {0, "COM0", nullptr, "usbser", Wanted}, {}},
    {"no digits", {0, nullptr, "Bridge (COM)", "usbser", Wanted}, {}},
    {"low byte of the number", {0, "COM300", nullptr, "usbser", Wanted}, {{44, 0x03}}},
    {"PortName over friendly name", {0, "COM4", "Bridge (COM9)", "usbser", Wanted}, {{4, 0x03}}},
    {"first (COM in friendly name", {0, nullptr, "A (COM3) (COM8)", "usbser", Wanted}, {{3, 0x03}}},
    // Not COM ports: nPort stays -1, which lands on entry 255.
    {"LPT port", {0, "LPT1", nullptr, "Parport", Wanted}, {{255, 0x03}}},
    {"lower-case com", {0, "com5", nullptr, "usbser", Wanted}, {{255, 0x03}}},
    {"short name", {0, "CO", nullptr, "usbser", "Modem"}, {{255, 0x02}}},
    {"no closing bracket", {0, nullptr, "Bridge (COM7", "usbser", Wanted}, {{255, 0x03}}},
    {"friendly name not a string", {0, nullptr, "", "usbser", Wanted}, {{255, 0x03}}},
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

TEST(MarkPort, RecordsWhatItDecided)
{
    unsigned char table[256] = {};
    CPortInfo unclosed = InfoOf({0, nullptr, "Bridge (COM7", "usbser", Wanted});
    MarkPort(unclosed, Wanted, table);
    EXPECT_EQ(unclosed.nFlags & PortInfoPortName, 0);
    EXPECT_EQ(unclosed.strPortName, "");
    EXPECT_EQ(unclosed.nPort, -1);

    CPortInfo derived = InfoOf({0, nullptr, "Bridge (COM12)", "usbser", Wanted});
    MarkPort(derived, Wanted, table);
    EXPECT_EQ(derived.strPortName, "COM12");
    EXPECT_EQ(derived.nPort, 12 | PortQualifies);

    CPortInfo serviceless = InfoOf({0, "COM5", nullptr, nullptr, Wanted});
    MarkPort(serviceless, Wanted, table);
    EXPECT_EQ(serviceless.strService, "Serial");
    EXPECT_EQ(serviceless.nPort, 5);
}

TEST(MarkPort, LowestMatchWinsWhateverTheOrder)
{
    const Device com9 = {0, "COM9", nullptr, "usbser", Wanted};
    const Device com3 = {0, "COM3", nullptr, "usbser", Wanted};
    for (const auto& order : {std::vector<Device>{com9, com3}, std::vector<Device>{com3, com9}}) {
        unsigned char table[256] = {};
        for (const Device& device : order) {
            CPortInfo info = InfoOf(device);
            MarkPort(info, Wanted, table);
        }
        EXPECT_EQ(MarksOf(table), (Marks{{3, 0x03}, {9, 0x03}}));
        EXPECT_EQ(FirstMatch(table), 3);
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
        m_sys = m_root / "sys";
        m_dev = m_root / "dev";
        m_config = m_root / "config";
        fs::create_directories(m_dev / "serial/by-id");
        fs::create_directories(m_config);
        fs::create_directories(m_sys / "class/tty");
        for (const char* driver : {"usb-serial/drivers/ftdi_sio", "platform/drivers/serial8250",
                                   "usb/drivers/cdc_acm"})
            fs::create_directories(m_sys / "bus" / driver);

        fs::path usb = m_sys / "devices/pci0000:00/0000:00:14.0/usb1";
        fs::path ftdi = UsbDevice(usb / "1-1", "Terminal Port");
        Attribute(ftdi / "1-1:1.0/bInterfaceNumber", "00");
        fs::path port = ftdi / "1-1:1.0/ttyUSB0";
        fs::create_directories(port);
        fs::create_directory_symlink(m_sys / "bus/usb-serial/drivers/ftdi_sio", port / "driver");
        Tty("ttyUSB0", port);

        fs::path uart = m_sys / "devices/platform/serial8250";
        fs::create_directories(uart);
        fs::create_directory_symlink(m_sys / "bus/platform/drivers/serial8250", uart / "driver");
        Tty("ttyS0", uart);

        fs::path acm = UsbDevice(usb / "1-2", "Modem");
        fs::path acmInterface = acm / "1-2:1.0";
        Attribute(acmInterface / "bInterfaceNumber", "00");
        Attribute(acmInterface / "interface", "Terminal Port");
        fs::create_directory_symlink(m_sys / "bus/usb/drivers/cdc_acm", acmInterface / "driver");
        Tty("ttyACM0", acmInterface);

        fs::path unbound = UsbDevice(usb / "1-3", "Terminal Port");
        Attribute(unbound / "1-3:1.0/bInterfaceNumber", "00");
        fs::create_directories(unbound / "1-3:1.0/ttyUSB1");
        Tty("ttyUSB1", unbound / "1-3:1.0/ttyUSB1");

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

    static fs::path UsbDevice(const fs::path& folder, const char* product)
    {
        Attribute(folder / "idVendor", "0403");
        Attribute(folder / "product", product);
        Attribute(folder / "manufacturer", "Maker");
        return folder;
    }

    // The tty's class entry, its "device" link, and its node in /dev.
    void Tty(const char* name, const fs::path& device)
    {
        fs::path tty = device / "tty" / name;
        fs::create_directories(tty);
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

TEST_F(SysfsScan, MarksPortsByDescriptionAndDriver)
{
    unsigned char table[256] = {};
    EXPECT_EQ(Scan("terminal port", table), 1);
    // COM7 matches; COM1 is on the built-in driver and COM8 has none; ttyACM0, with no COM
    // link, is no COM port and lands on 255 as on Windows.
    EXPECT_EQ(MarksOf(table), (Marks{{7, 0x03}, {255, 0x03}}));
    EXPECT_EQ(FirstMatch(table), 7);
}

TEST_F(SysfsScan, OtherNameOnlyQualifies)
{
    unsigned char table[256] = {};
    EXPECT_EQ(Scan("Modem", table), 1);
    // The interface string of ttyACM0 stands before its product string.
    EXPECT_EQ(MarksOf(table), (Marks{{7, 0x02}, {255, 0x02}}));
}

TEST_F(SysfsScan, EachLinkIsAPort)
{
    fs::create_symlink(m_dev / "ttyUSB0", m_config / "COM12");
    fs::create_symlink(m_dev / "ttyUSB0", m_config / "COM07");  // not a name the driver opens
    fs::create_symlink(m_dev / "ttyACM0", m_config / "COM3");
    unsigned char table[256] = {};
    EXPECT_EQ(Scan(Wanted, table), 1);
    EXPECT_EQ(MarksOf(table), (Marks{{3, 0x03}, {7, 0x03}, {12, 0x03}}));
}

TEST_F(SysfsScan, NoTtyClassMeansNoList)
{
    fs::remove_all(m_sys / "class");
    unsigned char table[256] = {};
    EXPECT_EQ(Scan(Wanted, table), 0);
    EXPECT_EQ(MarksOf(table), Marks{});
}

TEST_F(SysfsScan, MissingLinkFolderLeavesNoComPorts)
{
    unsigned char table[256] = {};
    EXPECT_EQ(ScanSysfsPorts(Wanted, table, m_sys.string(), (m_root / "none").string(),
                             m_dev.string()),
              1);
    EXPECT_EQ(MarksOf(table), (Marks{{255, 0x03}}));
}

}  // namespace
