// The reply reader, and the virtual reader's handling of what it hands on, against a line that
// sends anything in any pieces, with pauses and cancels. Every buffer of the caller is exactly
// as large as the rules say it needs to be, so a byte written past one is a sanitizer report.
// Input: a choice byte, a two-byte buffer size, then the line's script.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "FuzzPort.h"
#include "pcsc/VirtualReader.h"
#include "session/Frame.h"

using namespace Pcsc;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FuzzPort port;
    if (size < 3)
        return 0;
    const uint8_t choice = data[0];
    const DWORD room = data[1] | static_cast<DWORD>(data[2]) << 8;
    port.Play(std::string(reinterpret_cast<const char*>(data) + 3, size - 3), [&](size_t sent) {
        if (choice % 3 == 0) {  // payload and NUL of a reply of `sent` bytes
            std::vector<uint8_t> out(sent + 1);
            uint32_t length = 0xFFFFFFFFu;
            ReadReply(g_context, out.data(), &length);
            if ((length != 0xFFFFFFFFu && length > sent) || g_context.rxBuffer[TxRxCapacity - 1] != 0)
                std::abort();
        } else if (choice % 3 == 1) {
            SCARDHANDLE card = 0;
            DWORD protocol = 0, state = 0, atrLength = room % 80;
            SCardConnect(0, "r", 0, 0, &card, &protocol);
            std::vector<BYTE> atr(atrLength);
            SCardStatus(card, nullptr, nullptr, &state, &protocol, atr.empty() ? nullptr : atr.data(),
                        &atrLength);
        } else {
            const BYTE command[] = {0x00, 0xA4, 0x04, 0x00};
            std::vector<BYTE> answer(room);
            DWORD length = room;
            if (SCardTransmit(0, nullptr, command, choice & 8 ? sizeof command : 0, nullptr,
                              answer.empty() ? nullptr : answer.data(), &length) == 0 &&
                length > room)
                std::abort();
        }
    });
    return 0;
}
