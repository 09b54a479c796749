// The virtual reader's handling of the terminal's answers to the open and transmit frames,
// with the host's buffers exactly as large as it says they are.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "FuzzPort.h"
#include "pcsc/VirtualReader.h"

using namespace Pcsc;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FuzzPort port;
    FuzzInput script(data, size);
    const uint8_t choice = script.Byte();
    const DWORD room = script.Byte() | static_cast<DWORD>(script.Byte()) << 8;
    port.Play(script, [&](size_t) {
        if (choice & 1) {
            SCARDHANDLE card = 0;
            DWORD protocol = 0, state = 0, atrLength = room % 80;
            SCardConnect(0, "r", 0, 0, &card, &protocol);
            std::vector<BYTE> atr(atrLength);
            if (SCardStatus(card, nullptr, nullptr, &state, &protocol,
                            atr.empty() ? nullptr : atr.data(), &atrLength) == SCARD_S_SUCCESS &&
                atrLength > sizeof(g_reader.atr))
                std::abort();
        } else {
            const BYTE command[] = {0x00, 0xA4, 0x04, 0x00};
            std::vector<BYTE> answer(room);
            DWORD length = room;
            const LONG status = SCardTransmit(0, nullptr, command, choice & 2 ? sizeof command : 0,
                                              nullptr, answer.empty() ? nullptr : answer.data(),
                                              &length);
            if (status == SCARD_S_SUCCESS && length > room)
                std::abort();
        }
    });
    return 0;
}
