// wine_host.exe's "portscan": COM port nodes registered through SetupAPI as a driver's
// installation leaves them, the marks that the library's walk gives for them, and Varnik.dll,
// told only a device description by config/varnik.json, finding the terminal's port with it.
#include <windows.h>
#include <setupapi.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "serial/PortScan.h"
#include "support/Format.h"
#include "varnik.h"

namespace {

const char* const Wanted = "NEW6210 USB Serial Port";  // as the run script's varnik.json has it

const GUID PortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
const GUID ComPortInterface = {
    0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};

void Check(bool condition, const std::string& why)
{
    if (!condition)
        throw std::runtime_error(why);
}

struct Node {
    const char *description, *friendlyName, *service, *portName;  // null: left out
};

void Register(HDEVINFO set, const Node& node)
{
    SP_DEVINFO_DATA device = {sizeof device, {}, 0, 0};
    SP_DEVICE_INTERFACE_DATA port = {sizeof port, {}, 0, 0};
    auto text = [](const char* value) { return reinterpret_cast<const BYTE*>(value); };
    auto size = [](const char* value) { return static_cast<DWORD>(std::strlen(value) + 1); };
    bool done =
        SetupDiCreateDeviceInfoA(set, "VARNIKTEST", &PortsClass, node.description, nullptr,
                                 DICD_GENERATE_ID, &device) &&
        SetupDiRegisterDeviceInfo(set, &device, 0, nullptr, nullptr, nullptr) &&
        SetupDiCreateDeviceInterfaceA(set, &device, &ComPortInterface, nullptr, 0, &port) &&
        SetupDiSetDeviceRegistryPropertyA(set, &device, SPDRP_SERVICE, text(node.service),
                                          size(node.service)) &&
        (!node.friendlyName ||
         SetupDiSetDeviceRegistryPropertyA(set, &device, SPDRP_FRIENDLYNAME,
                                           text(node.friendlyName), size(node.friendlyName)));
    if (done && node.portName) {
        HKEY key = SetupDiCreateDevRegKeyA(set, &device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, nullptr,
                                           nullptr);
        done = key != INVALID_HANDLE_VALUE &&
               RegSetValueExA(key, "PortName", 0, REG_SZ, text(node.portName),
                              size(node.portName)) == ERROR_SUCCESS;
        RegCloseKey(key);
    }
    Check(done, Format("registering \"%s\" failed: %lu", node.description, GetLastError()));
}

}  // namespace

// Marks per node: "PortName" before the friendly name; another description marks the port
// only as qualifying; a port of the built-in driver, nothing; a node with no port, entry 255.
// The library's first call scans (the lower of the two matches) and talks to the terminal.
void RunPortScan()
{
    const Node nodes[] = {{Wanted, "Terminal (COM8)", "usbser", "COM7"},
                          {"USB Modem", nullptr, "usbser", "COM5"},
                          {Wanted, nullptr, "Serial", "COM1"},
                          {Wanted, nullptr, "usbser", "COM9"},
                          {Wanted, "Terminal", "usbser", nullptr}};
    const HDEVINFO set = SetupDiCreateDeviceInfoList(&PortsClass, nullptr);
    for (const Node& node : nodes)
        Register(set, node);
    SetupDiDestroyDeviceInfoList(set);  // the nodes stay: each run has a prefix of its own
    const HMODULE library = GetModuleHandleA("Varnik.dll");

    unsigned char table[256] = {};
    std::string marks = Format("%d:", ScanPorts(Wanted, table));
    for (int index = 0; index < 256; ++index)
        marks += table[index] ? Format(" %d=%02X", index, table[index]) : "";
    Check(marks == "1: 5=02 7=03 9=03 255=03", "the walk gave " + marks);

    static char version[64 * 1024];
#define EXPORT(name) \
    reinterpret_cast<decltype(&::name)>(reinterpret_cast<void*>(GetProcAddress(library, #name)))
    const int selected = EXPORT(PosSelect)();
    const int length = EXPORT(getVersion)(version);
    Check(selected == 0 && length == 15 && std::strcmp(version, "NEW6210 SIM 1.0") == 0,
          Format("PosSelect gave %d, getVersion %d \"%.40s\"", selected, length, version));
}
