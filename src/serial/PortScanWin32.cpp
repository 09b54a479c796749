// The Windows walk: every present device of the COM port interface class, read through
// SetupAPI. The decision per device is MarkPort's.
#include "serial/PortScan.h"

#include <windows.h>
#include <setupapi.h>

#include <algorithm>
#include <new>

#include "support/Format.h"

namespace {

// {86E0D1E0-8089-11D0-9CE4-08003E301F73}: the interface class of COM ports.
const GUID ComPortInterfaceClass = {
    0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};

constexpr DWORD PresentInterfaces = 18;  // DIGCF_PRESENT | DIGCF_DEVICEINTERFACE
constexpr DWORD PropertyBufferSize = 1024;

class DeviceListGuard {
public:
    explicit DeviceListGuard(HDEVINFO list) : m_list(list) {}
    ~DeviceListGuard() { SetupDiDestroyDeviceInfoList(m_list); }
    DeviceListGuard(const DeviceListGuard&) = delete;
    DeviceListGuard& operator=(const DeviceListGuard&) = delete;

private:
    HDEVINFO m_list;
};

// SetupAPI errors carry all three top bits and belong to their own facility; the rest are
// plain Win32 codes.
DWORD ResultOfError(DWORD error)
{
    if ((error & 0xE0000000u) == 0xE0000000u)
        return (error & 0xFFFFu) | 0x800F0000u;
    if (static_cast<LONG>(error) > 0)
        return (error & 0xFFFFu) | 0x80070000u;
    return error;
}

// The text a failed property read would report. A missing property is normal for many
// devices, so the scan keeps quiet and the text is only there for a debugger to look at.
std::string PropertyErrorText(const std::string& what, DWORD error)
{
    char* message = nullptr;
    FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                       FORMAT_MESSAGE_IGNORE_INSERTS,
                   nullptr, ResultOfError(error), 0, reinterpret_cast<LPSTR>(&message), 0,
                   nullptr);
    std::string text = what;
    if (message) {
        text += ": ";
        text += message;
        LocalFree(message);
    }
    return text;
}

// Only a plain string fills the field; the size reported bounds what is taken, since a
// registry string need not end in a zero.
void TakeString(const BYTE* buffer, DWORD size, DWORD type, std::string& target)
{
    if (type != REG_SZ)
        return;
    const char* text = reinterpret_cast<const char*>(buffer);
    size = std::min(size, PropertyBufferSize);
    target.assign(text, std::find(text, text + size, '\0'));
}

void ReadRegistryProperty(HDEVINFO list, SP_DEVINFO_DATA& device, DWORD code, int32_t bit,
                          std::string& target, CPortInfo& info)
{
    BYTE buffer[PropertyBufferSize];
    DWORD type = 0;
    DWORD size = 0;
    if (!SetupDiGetDeviceRegistryPropertyA(list, &device, code, &type, buffer, sizeof buffer,
                                           &size)) {
        DWORD error = GetLastError();
        (void)PropertyErrorText(Format("SetupDiGetDeviceRegistryProperty(%d)",
                                       static_cast<int>(code)),
                                error);
        return;
    }
    info.nFlags |= bit;
    TakeString(buffer, size, type, target);
}

using CustomPropertyReader = decltype(&SetupDiGetCustomDevicePropertyA);

// Reads a custom property where Windows keeps it, in the device's parameters key.
BOOL WINAPI ReadDeviceKeyValue(HDEVINFO list, PSP_DEVINFO_DATA device, PCSTR name, DWORD,
                               PDWORD type, PBYTE buffer, DWORD size, PDWORD required)
{
    HKEY key = SetupDiOpenDevRegKey(list, device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ);
    if (key == INVALID_HANDLE_VALUE)
        return FALSE;
    const LONG result = RegQueryValueExA(key, name, nullptr, type, buffer, &size);
    RegCloseKey(key);
    if (required)
        *required = size;
    SetLastError(static_cast<DWORD>(result));
    return result == ERROR_SUCCESS;
}

// Some SetupAPI builds (Wine's among them) lack SetupDiGetCustomDevicePropertyA, and a call
// bound at load time would abort the host; such a system gets the same value from the key.
CustomPropertyReader CustomPropertyFunction()
{
    static const auto found = reinterpret_cast<CustomPropertyReader>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleA("setupapi.dll"), "SetupDiGetCustomDevicePropertyA")));
    return found ? found : ReadDeviceKeyValue;
}

void ReadCustomProperty(HDEVINFO list, SP_DEVINFO_DATA& device, const char* property,
                        int32_t bit, std::string& target, CPortInfo& info)
{
    BYTE buffer[PropertyBufferSize];
    DWORD type = 0;
    DWORD size = 0;
    if (!CustomPropertyFunction()(list, &device, property, 0, &type, buffer, sizeof buffer,
                                  &size)) {
        DWORD error = GetLastError();
        (void)PropertyErrorText(Format("SetupDiGetCustomDeviceProperty(%s)", property), error);
        return;
    }
    info.nFlags |= bit;
    TakeString(buffer, size, type, target);
}

void ReadDeviceProperties(HDEVINFO list, SP_DEVINFO_DATA& device, CPortInfo& info)
{
    ReadRegistryProperty(list, device, SPDRP_FRIENDLYNAME, PortInfoFriendlyName,
                         info.strFriendlyName, info);
    ReadRegistryProperty(list, device, SPDRP_SERVICE, PortInfoService, info.strService, info);
    ReadRegistryProperty(list, device, SPDRP_MFG, PortInfoManufacturer, info.strManufacturer,
                         info);
    ReadRegistryProperty(list, device, SPDRP_DEVICEDESC, PortInfoDescription,
                         info.strDescription, info);
    ReadRegistryProperty(list, device, SPDRP_CLASS, PortInfoClass, info.strClass, info);
    ReadRegistryProperty(list, device, SPDRP_CLASSGUID, PortInfoClassGuid, info.strClass, info);
    ReadRegistryProperty(list, device, SPDRP_ENUMERATOR_NAME, PortInfoEnumerator,
                         info.strEnumerator, info);
    ReadCustomProperty(list, device, "PortName", PortInfoPortName, info.strPortName, info);
}

static_assert(SPDRP_FRIENDLYNAME == 12 && SPDRP_SERVICE == 4 && SPDRP_MFG == 11 &&
                  SPDRP_DEVICEDESC == 0 && SPDRP_CLASS == 7 && SPDRP_CLASSGUID == 8 &&
                  SPDRP_ENUMERATOR_NAME == 22 && ERROR_NO_MORE_ITEMS == 259,
              "SetupAPI codes");

}  // namespace

int ScanPorts(const char* name, unsigned char* table)
{
    if (!name)
        name = "";
    HDEVINFO list =
        SetupDiGetClassDevsA(&ComPortInterfaceClass, nullptr, nullptr, PresentInterfaces);
    if (list == INVALID_HANDLE_VALUE)
        return 0;
    DeviceListGuard guard(list);
    try {
        for (DWORD index = 0;; ++index) {
            SP_DEVINFO_DATA device = {};
            device.cbSize = sizeof device;
            if (!SetupDiEnumDeviceInfo(list, index, &device))
                return GetLastError() == ERROR_NO_MORE_ITEMS ? 1 : 0;
            CPortInfo info;
            ReadDeviceProperties(list, device, info);
            MarkPort(info, name, table);
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
}
