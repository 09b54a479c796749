// The reply reader against a line that sends anything, in any pieces, with pauses and cancels
// between them. The caller's buffer is exactly as large as a reply of that many bytes can need
// (payload and NUL), so a byte written past it is a sanitizer report.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "FuzzPort.h"
#include "session/Frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static FuzzPort port;
    FuzzInput script(data, size);
    port.Play(script, [](size_t written) {
        std::vector<uint8_t> out(written + 1);
        uint32_t length = 0xFFFFFFFFu;
        if (ReadReply(g_context, out.data(), &length) != 0)
            std::abort();
        if (length != 0xFFFFFFFFu && (length > written || g_context.rxLength != static_cast<int>(length)))
            std::abort();
        if (g_context.rxBuffer[TxRxCapacity - 1] != 0)
            std::abort();  // the reader never writes the buffer's last byte
    });
    return 0;
}
