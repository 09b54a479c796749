// libifd_varnik.so: the terminal's card slot as a serial reader of the PC/SC daemon, version 3
// of its driver interface. One reader, one slot, T=0. The daemon calls these one at a time per
// reader, but the lock keeps a second reader thread honest all the same.
// The daemon's headers declare the interface without C linkage; the attribute tags live in
// reader.h beside it.
extern "C" {
#include <ifdhandler.h>
#include <reader.h>
}

#include <cstdio>
#include <cstring>
#include <mutex>

#include "ReaderChannel.h"
#include "support/Log.h"

namespace {

std::mutex g_lock;
Ifd::ReaderChannel g_channel(g_context);
DWORD g_lun = 0;
bool g_created = false;
UCHAR g_atr[Ifd::MaxAtrSize];
DWORD g_atrLength = 0;

RESPONSECODE ToResponse(Ifd::Outcome outcome)
{
    switch (outcome) {
    case Ifd::Outcome::Done:
        return IFD_SUCCESS;
    case Ifd::Outcome::NoCard:
        return IFD_ICC_NOT_PRESENT;
    case Ifd::Outcome::PortClosed:
    case Ifd::Outcome::NoAnswer:
    case Ifd::Outcome::TooLarge:
        // Never "no such device", not even for a port that is gone: the daemon would stop
        // polling the reader, and the port may come back.
        break;
    }
    return IFD_COMMUNICATION_ERROR;
}

RESPONSECODE CreateChannel(DWORD Lun, const std::string& device)
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_created && Lun != g_lun) {
        Ifd::ReportLine(Ifd::LogError, "one reader per driver: a second DEVICENAME is refused");
        return IFD_COMMUNICATION_ERROR;
    }
    // The daemon has checked that the device exists. One that won't open yet (a point-of-sale
    // program still holds it through the library) still makes a reader, whose slot stays empty
    // until the port opens.
    g_channel.Open(device);
    g_lun = Lun;
    g_created = true;
    g_atrLength = 0;
    return IFD_SUCCESS;
}

RESPONSECODE CopyOut(PDWORD Length, PUCHAR Value, const void* data, DWORD size)
{
    if (*Length < size)
        return IFD_ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(Value, data, size);
    *Length = size;
    return IFD_SUCCESS;
}

}  // namespace

extern "C" {

RESPONSECODE IFDHCreateChannelByName(DWORD Lun, LPSTR DeviceName)
{
    return CreateChannel(Lun, DeviceName);
}

RESPONSECODE IFDHCreateChannel(DWORD Lun, DWORD Channel)
{
    char name[32];
    std::snprintf(name, sizeof name, "/dev/pcsc/%lu", static_cast<unsigned long>(Channel));
    return CreateChannel(Lun, name);
}

RESPONSECODE IFDHCloseChannel(DWORD)
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_channel.IsOpen())
        g_channel.PowerDown();
    g_channel.Close();
    g_created = false;
    g_atrLength = 0;
    return IFD_SUCCESS;
}

RESPONSECODE IFDHGetCapabilities(DWORD, DWORD Tag, PDWORD Length, PUCHAR Value)
{
    std::lock_guard<std::mutex> hold(g_lock);
    const UCHAR one = 1;
    const UCHAR zero = 0;
    switch (Tag) {
    case TAG_IFD_ATR:
    case SCARD_ATTR_ATR_STRING:
        return CopyOut(Length, Value, g_atr, g_atrLength);
    case TAG_IFD_SLOTS_NUMBER:
    case TAG_IFD_SIMULTANEOUS_ACCESS:
        return CopyOut(Length, Value, &one, 1);
    case TAG_IFD_THREAD_SAFE:
    case TAG_IFD_SLOT_THREAD_SAFE:
        return CopyOut(Length, Value, &zero, 1);
    case SCARD_ATTR_DEVICE_FRIENDLY_NAME_A:
    case SCARD_ATTR_VENDOR_IFD_TYPE:
        return CopyOut(Length, Value, Ifd::FriendlyName, sizeof Ifd::FriendlyName);
    default:
        return IFD_ERROR_TAG;
    }
}

RESPONSECODE IFDHSetCapabilities(DWORD, DWORD, DWORD, PUCHAR)
{
    return IFD_ERROR_TAG;
}

RESPONSECODE IFDHSetProtocolParameters(DWORD, DWORD Protocol, UCHAR, UCHAR, UCHAR, UCHAR)
{
    // The terminal speaks T=0 to the card and negotiates nothing on our behalf.
    return Protocol == SCARD_PROTOCOL_T0 ? IFD_SUCCESS : IFD_PROTOCOL_NOT_SUPPORTED;
}

RESPONSECODE IFDHPowerICC(DWORD, DWORD Action, PUCHAR Atr, PDWORD AtrLength)
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (Action == IFD_POWER_DOWN) {
        g_atrLength = 0;
        *AtrLength = 0;
        return ToResponse(g_channel.PowerDown());
    }
    if (Action != IFD_POWER_UP && Action != IFD_RESET)
        return IFD_NOT_SUPPORTED;

    // A reset is a fresh open of the card channel: the terminal has no warm reset of its own.
    int length = 0;
    const Ifd::Outcome outcome = g_channel.PowerUp(g_atr, &length);
    g_atrLength = static_cast<DWORD>(length);
    if (outcome != Ifd::Outcome::Done) {
        g_atrLength = 0;
        *AtrLength = 0;
        return outcome == Ifd::Outcome::NoCard ? IFD_ERROR_POWER_ACTION : ToResponse(outcome);
    }
    std::memcpy(Atr, g_atr, g_atrLength);
    *AtrLength = g_atrLength;
    Ifd::ReportLine(Ifd::LogInfo, "ATR " + BytesToHex(g_atr, static_cast<int>(g_atrLength)));
    return IFD_SUCCESS;
}

RESPONSECODE IFDHTransmitToICC(DWORD, SCARD_IO_HEADER, PUCHAR TxBuffer, DWORD TxLength,
                               PUCHAR RxBuffer, PDWORD RxLength, PSCARD_IO_HEADER RecvPci)
{
    std::lock_guard<std::mutex> hold(g_lock);
    unsigned long received = 0;
    const Ifd::Outcome outcome = g_channel.Transmit(TxBuffer, TxLength, RxBuffer, *RxLength,
                                                    &received);
    *RxLength = static_cast<DWORD>(received);
    if (RecvPci != nullptr) {
        RecvPci->Protocol = SCARD_PROTOCOL_T0;
        RecvPci->Length = sizeof(SCARD_IO_HEADER);
    }
    return ToResponse(outcome);
}

RESPONSECODE IFDHICCPresence(DWORD)
{
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_channel.Presence() == Ifd::Outcome::Done)
        return IFD_ICC_PRESENT;
    // A terminal that is off or silent, or a port another program holds, is an empty slot, as
    // a reader without a card: an error would make the daemon drop the reader at its first check,
    // and mark it unavailable later, which card-reader programs take for a reader gone. The
    // channel's log lines say why the slot is empty; the card is back when the terminal answers.
    g_atrLength = 0;
    return IFD_ICC_NOT_PRESENT;
}

RESPONSECODE IFDHControl(DWORD, DWORD, PUCHAR, DWORD, PUCHAR, DWORD, LPDWORD pdwBytesReturned)
{
    if (pdwBytesReturned != nullptr)
        *pdwBytesReturned = 0;
    return IFD_NOT_SUPPORTED;
}

}  // extern "C"
