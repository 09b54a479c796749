// PinLoadMK, PinReadKey and PinReadKeyClear: the terminal's keypad. The library carries what
// the terminal answers and does no cryptography of its own.
#include <cstring>

#include "cards/ImageBuffer.h"
#include "cards/PinPad.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"
#include "varnik.h"

void ReadReplyInto(DeviceContext& context, char* work, int capacity)
{
    // The length stays at this mark when ReadReply refuses the reply and writes nothing.
    constexpr uint32_t NotWritten = 0xFFFFFFFFu;
    uint32_t length = NotWritten;
    ReadReply(context, nullptr, &length);
    if (length == NotWritten || capacity < 1)
        return;
    size_t count = length;
    if (count > static_cast<size_t>(capacity - 1))
        count = static_cast<size_t>(capacity - 1);
    if (count > static_cast<size_t>(TxRxCapacity))
        count = static_cast<size_t>(TxRxCapacity);
    std::memcpy(work, context.rxBuffer, count);
    work[count] = 0;
}

int RunPinScript(char* out, const char* request)
{
    DeviceContext& context = g_context;
    BeginFrame(context, {});
    out[0] = 0;
    if (request[0] == '@')
        return RunPinScriptRequest(out, request);

    context.text = Format("%s|%s", PinClearScript, request);
    AppendBytes(context, "00", 2);
    AppendText(context, context.text.c_str());
    CloseFrame(context);
    const int written = SendFrame(context);
    if (written <= 0)
        return written;
    ReadReplyInto(context, out, PinWorkSize);
    return 0;
}

extern "C" int VARNIK_CALL PinLoadMK(unsigned char* key)
{
    EnterLibrary();
    DeviceContext& context = g_context;
    int result = BeginOperation(context);
    if (result != 0)
        return result;

    BeginFrame(context, {'0', '2'});
    AppendBytes(context, key, 16);
    CloseFrame(context);
    result = SendFrame(context);
    if (result > 0) {
        // The reply goes over the key: one byte replaces key[0], a frame the start and a NUL.
        ReadReply(context, key, nullptr);
        result = 0;
    }

    EndOperation(context);
    return result;
}

extern "C" int VARNIK_CALL PinReadKey(unsigned char* out)
{
    EnterLibrary();
    DeviceContext& context = g_context;
    int result = BeginOperation(context);
    if (result != 0)
        return result;

    // Cleared so that a refused or single-byte reply decodes to a defined key, not to what
    // the stack held.
    char work[PinWorkSize] = {};
    context.text = PinPadScript;
    BeginFrame(context, {'0', '0'});
    AppendText(context, context.text.c_str());
    CloseFrame(context);
    result = SendFrame(context);
    if (result > 0) {
        ReadReplyInto(context, work, PinWorkSize);
        result = 0;
    }
    // Neither the write nor the reader gives a negative value; the fall-back key is kept for
    // a transport that would.
    if (result < 0) {
        std::memcpy(work, PinFallbackDigits, std::strlen(PinFallbackDigits) + 1);
        result = 1;
    }
    DecodePinKey(work, out);

    EndOperation(context);
    return result;
}

extern "C" int VARNIK_CALL PinReadKeyClear(char* inOut)
{
    EnterLibrary();
    DeviceContext& context = g_context;
    context.operationFlag = 0;

    // The request lives in imageBuffer for the whole call; a script request may reuse it.
    char* request = reinterpret_cast<char*>(imageBuffer);
    bool requestCut = false;
    if (inOut[0] == 0) {
        std::memcpy(request, DefaultPinPrompt, std::strlen(DefaultPinPrompt) + 1);
    } else {
        size_t length = std::strlen(inOut);
        if (length > static_cast<size_t>(ImageBufferSize - 1)) {
            length = static_cast<size_t>(ImageBufferSize - 1);
            requestCut = true;
        }
        std::memcpy(request, inOut, length);
        request[length] = 0;
    }

    char work[PinWorkSize] = {};
    int result = OpenDevice(context);
    if (result != 0) {
        context.operationFlag = 0;
        return result;
    }

    if (requestCut && inOut[0] == '@') {
        // A cut script would run as something it is not: refuse it whole.
        WriteLog(Format("script request of %d bytes does not fit the %d-byte request buffer.",
                        static_cast<int>(std::strlen(inOut)), ImageBufferSize));
        result = -2;
    } else {
        result = RunPinScript(work, request);
    }
    if (inOut[0] == '@') {
        // The reply text, NUL included; never more than the work buffer holds.
        size_t length = 0;
        while (length < static_cast<size_t>(PinWorkSize - 1) && work[length] != 0)
            ++length;
        std::memcpy(inOut, work, length);
        inOut[length] = 0;
    } else {
        DecodeClearKey(work, inOut);
    }

    EndOperation(context);
    return result;
}
