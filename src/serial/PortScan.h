// Finding the COM port of the terminal by the device description of its port.
#pragma once

#include <cstdint>
#include <string>

// Marks in `table` (256 bytes, zeroed by the caller), per COM number: 0x02 for a qualifying
// port, 0x01 as well when its description equals `name` (ignoring case). Returns 1 when the
// whole device list was walked, 0 when it could not be had, broke off or memory ran out.
int ScanPorts(const char* name, unsigned char* table);

// The port a scan settles on: the lowest entry of `table` whose name matched, or -1 if none.
int LowestMatchingPort(const unsigned char* table);

// Bits of CPortInfo::nFlags: one for each property the device walk could read.
constexpr int32_t PortInfoPortName = 0x01;
constexpr int32_t PortInfoFriendlyName = 0x02;
constexpr int32_t PortInfoService = 0x04;
constexpr int32_t PortInfoManufacturer = 0x08;
constexpr int32_t PortInfoEnumerator = 0x10;
constexpr int32_t PortInfoDescription = 0x20;
constexpr int32_t PortInfoClass = 0x40;
constexpr int32_t PortInfoClassGuid = 0x80;

// Set on top of CPortInfo::nPort when the port may carry the terminal.
constexpr int32_t PortQualifies = 0x10000;

// Table entry bits.
constexpr unsigned char PortMarkNameMatch = 0x01;
constexpr unsigned char PortMarkQualifies = 0x02;

// What the device walk learnt about one device; lives for one pass of the walk.
class CPortInfo {
public:
    int32_t nFlags = 0;
    int32_t nPort = -1;
    std::string strPortName;
    std::string strFriendlyName;
    std::string strService;
    std::string strManufacturer;
    std::string strEnumerator;
    std::string strDescription;  // compared with the wanted name
    std::string strClass;        // class name, or the class GUID where that could be read
    std::string strSpare1;       // nothing fills these two
    std::string strSpare2;
};

// The decision for one device whose properties are read: works out the port number (from
// "PortName", else from "(COMn)" in the friendly name), whether the port qualifies, and marks
// `table` accordingly. Knows nothing of where the properties came from.
void MarkPort(CPortInfo& info, const char* name, unsigned char* table);

#if !defined(_WIN32)
// The Linux walk behind ScanPorts, with its folders as parameters so that a fake tree can
// stand in: `sysfsRoot` for "/sys", `linkFolder` for the folder of the "COM<n>" links that
// the serial driver opens, `devFolder` for "/dev".
int ScanSysfsPorts(const char* name, unsigned char* table, const std::string& sysfsRoot,
                   const std::string& linkFolder, const std::string& devFolder);
#endif
