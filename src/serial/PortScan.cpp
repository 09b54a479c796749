#include "serial/PortScan.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "support/Format.h"

namespace {

// As atoi reads it (leading blanks, a sign, digits, 0 when there are none), but saturating
// instead of undefined when the digits run past the range.
int32_t TextToInt(const char* text)
{
    long value = std::strtol(text, nullptr, 10);
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int32_t>(value);
}

}  // namespace

void MarkPort(CPortInfo& info, const char* name, unsigned char* table)
{
    // Without "PortName" the friendly name, "Some Device (COM7)", still tells the port.
    if ((info.nFlags & PortInfoFriendlyName) && !(info.nFlags & PortInfoPortName)) {
        size_t open = info.strFriendlyName.find("(COM");
        if (open != std::string::npos) {
            size_t close = info.strFriendlyName.find(')', open + 1);
            if (close != std::string::npos) {
                info.strPortName = info.strFriendlyName.substr(open + 1, close - open - 1);
                info.nFlags |= PortInfoPortName;
            }
        }
    }

    bool isComPort = (info.nFlags & PortInfoPortName) &&
                     std::strncmp(info.strPortName.c_str(), "COM", 3) == 0;
    if (isComPort) {
        info.nPort = TextToInt(info.strPortName.c_str() + 3);
        if (!(info.nFlags & PortInfoService)) {
            // No driver known: take it for the built-in one, which never carries the terminal.
            info.strService = "Serial";
        } else if (info.nPort != 0 && !EqualNoCase(info.strService, "Serial")) {
            info.nPort |= PortQualifies;
        }
    }
    // A device that is no COM port keeps -1, which has the qualifying bit too and so lands
    // on entry 255. Installations rely on that, so it stays.

    if (info.nPort & PortQualifies) {
        unsigned char& entry = table[info.nPort & 0xFF];
        entry |= PortMarkQualifies;
        if (EqualNoCase(info.strDescription, name ? name : ""))
            entry |= PortMarkNameMatch;
    }
}

int LowestMatchingPort(const unsigned char* table)
{
    for (int index = 0; index < 256; ++index) {
        if (table[index] & PortMarkNameMatch)
            return index;
    }
    return -1;
}
