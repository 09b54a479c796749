// The Linux walk. There is no device installation interface here, so the same question is
// put to sysfs: every tty with a device behind it is a device of the port class; its
// description is the USB interface string or else the USB product string, its service the
// kernel driver. COM numbers exist only as the "COM<n>" links in the config folder that the
// serial driver opens, so a tty has the number of the link that leads to its device node.
// The decision per device is MarkPort's.
#include "serial/PortScan.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <new>
#include <utility>
#include <vector>

#include "support/Log.h"

namespace {

class DirGuard {
public:
    explicit DirGuard(DIR* dir) : m_dir(dir) {}
    ~DirGuard()
    {
        if (m_dir)
            closedir(m_dir);
    }
    DirGuard(const DirGuard&) = delete;
    DirGuard& operator=(const DirGuard&) = delete;
    DIR* get() const { return m_dir; }

private:
    DIR* m_dir;
};

std::string Join(const std::string& folder, const std::string& name)
{
    if (folder.empty() || folder.back() == '/')
        return folder + name;
    return folder + "/" + name;
}

std::string BaseName(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool ResolvePath(const std::string& path, std::string& resolved)
{
    char* full = realpath(path.c_str(), nullptr);
    if (!full)
        return false;
    resolved = full;
    std::free(full);
    return true;
}

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// Where a symbolic link points, as written in the link.
bool LinkTarget(const std::string& path, std::string& target)
{
    char buffer[PATH_MAX];
    ssize_t length = readlink(path.c_str(), buffer, sizeof buffer);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof buffer)
        return false;
    target.assign(buffer, static_cast<size_t>(length));
    return true;
}

// A sysfs attribute: its first line without the line end. False if unreadable or blank.
bool ReadAttribute(const std::string& path, std::string& value)
{
    std::ifstream file(path);
    std::string line;
    if (!file || !std::getline(file, line))
        return false;
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r' || line.back() == '\t'))
        line.pop_back();
    if (line.empty())
        return false;
    value = line;
    return true;
}

// "COM<n>" exactly as the serial driver forms it for port n, so that the number found here
// is one that opens.
bool IsPortLinkName(const std::string& name)
{
    if (name.size() < 4 || name.compare(0, 3, "COM") != 0)
        return false;
    if (name[3] == '0' && name.size() > 4)
        return false;
    for (size_t i = 3; i < name.size(); ++i)
        if (name[i] < '0' || name[i] > '9')
            return false;
    return name.size() <= 3 + 9;  // stays within an int
}

struct PortLink {
    std::string name;    // "COM7"
    std::string target;  // the resolved device node it leads to
};

std::vector<PortLink> ReadPortLinks(const std::string& linkFolder)
{
    std::vector<PortLink> links;
    if (linkFolder.empty())
        return links;
    DirGuard dir(opendir(linkFolder.c_str()));
    if (!dir.get())
        return links;
    while (dirent* entry = readdir(dir.get())) {
        std::string name = entry->d_name;
        PortLink link;
        if (IsPortLinkName(name) && ResolvePath(Join(linkFolder, name), link.target)) {
            link.name = name;
            links.push_back(std::move(link));
        }
    }
    return links;
}

bool IsBuiltInDriver(const std::string& driver)
{
    return driver == "serial8250" || driver == "8250" || driver == "serial";
}

// Reads what sysfs tells of the device behind one tty. False if the tty has no device (the
// virtual consoles, pseudo-terminals and the like), which makes it no port at all.
// `sysfsRoot` is resolved already.
bool ReadTtyDevice(const std::string& ttyFolder, const std::string& sysfsRoot, CPortInfo& info)
{
    std::string device;
    if (!ResolvePath(Join(ttyFolder, "device"), device))
        return false;

    std::string driver;
    if (LinkTarget(Join(device, "driver"), driver)) {
        driver = BaseName(driver);
        // The built-in UART driver plays the part of Windows' "Serial" service.
        info.strService = IsBuiltInDriver(driver) ? "Serial" : driver;
        info.nFlags |= PortInfoService;
    }

    std::string bus;
    if (LinkTarget(Join(device, "subsystem"), bus)) {
        info.strEnumerator = BaseName(bus);
        info.nFlags |= PortInfoEnumerator;
    }
    info.strClass = "tty";
    info.nFlags |= PortInfoClass;

    // Up from the device to its USB device, taking the nearest USB interface's string on the
    // way; never above the sysfs root, for a tty with no USB device above it.
    std::string interfaceText;
    std::string product;
    std::string folder = device;
    size_t rootLength = sysfsRoot.size();
    while (folder.size() > rootLength && folder.compare(0, rootLength, sysfsRoot) == 0 &&
           folder[rootLength] == '/') {
        if (Exists(Join(folder, "idVendor"))) {
            ReadAttribute(Join(folder, "product"), product);
            if (ReadAttribute(Join(folder, "manufacturer"), info.strManufacturer))
                info.nFlags |= PortInfoManufacturer;
            break;
        }
        if (interfaceText.empty() && Exists(Join(folder, "bInterfaceNumber")))
            ReadAttribute(Join(folder, "interface"), interfaceText);
        folder.erase(folder.find_last_of('/'));
    }
    if (!interfaceText.empty() || !product.empty()) {
        info.strDescription = interfaceText.empty() ? product : interfaceText;
        info.nFlags |= PortInfoDescription;
    }
    return true;
}

}  // namespace

int ScanSysfsPorts(const char* name, unsigned char* table, const std::string& sysfsRoot,
                   const std::string& linkFolder, const std::string& devFolder)
{
    if (!name)
        name = "";
    try {
        std::string root = sysfsRoot;
        ResolvePath(sysfsRoot, root);
        std::string classFolder = Join(root, "class/tty");
        DirGuard dir(opendir(classFolder.c_str()));
        if (!dir.get())
            return 0;
        std::vector<PortLink> links = ReadPortLinks(linkFolder);
        for (;;) {
            errno = 0;
            dirent* entry = readdir(dir.get());
            if (!entry)
                return errno == 0 ? 1 : 0;
            std::string tty = entry->d_name;
            if (tty == "." || tty == "..")
                continue;
            CPortInfo device;
            if (!ReadTtyDevice(Join(classFolder, tty), root, device))
                continue;

            // sysfs writes a "/" in a device name as "!".
            std::string node = tty;
            for (char& c : node)
                if (c == '!')
                    c = '/';
            std::string nodePath;
            bool hasNode = ResolvePath(Join(devFolder, node), nodePath);

            // One record per link, as one port per name; without a link it is no COM port.
            bool linked = false;
            for (const PortLink& link : links) {
                if (!hasNode || link.target != nodePath)
                    continue;
                CPortInfo info = device;
                info.strPortName = link.name;
                info.nFlags |= PortInfoPortName;
                MarkPort(info, name, table);
                linked = true;
            }
            if (!linked)
                MarkPort(device, name, table);
        }
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int ScanPorts(const char* name, unsigned char* table)
{
    int walked = ScanSysfsPorts(name, table, "/sys", g_strConfigFolder, "/dev");
    // An installed library's COM<N> links may stand in the system's folder too.
    if (!g_strSystemConfigFolder.empty())
        walked = ScanSysfsPorts(name, table, "/sys", g_strSystemConfigFolder, "/dev") && walked;
    return walked;
}
