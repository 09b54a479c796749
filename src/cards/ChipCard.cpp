// EMVRead, ThaiIDRead and ThaiLen: the terminal reads the chip card by itself and answers
// with text (or, for the identity card, optionally a binary block); nothing here parses it.
#include <cstring>
#include <string>

#include "cards/ThaiText.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"
#include "varnik.h"

namespace {

// Bytes of rxBuffer that the last reply left there, never more than the buffer holds.
int ArrivedInRxBuffer(const DeviceContext& context)
{
    int length = context.rxLength;
    if (length < 0)
        length = 0;
    if (length > TxRxCapacity)
        length = TxRxCapacity;
    return length;
}

}  // namespace

extern "C" int VARNIK_CALL EMVRead(char* out)
{
    EnterLibrary();
    if (out == nullptr)
        return ErrNoBuffer;
    DeviceContext& context = g_context;
    if (const int opened = BeginOperation(context))
        return opened;

    // The tag list is fixed at the cardholder name.
    context.text = "{\"EMVTAG\":[";
    context.text += Format("{\"tag\":\"%s\",\"cmd\":\"%s\",\"type\":\"%s\"}", "NAME-1", "5F20", "A");
    context.text += "]}";
    WriteLog(context.text);

    BeginFrame(context, {'1'});
    AppendText(context, context.text.c_str());
    CloseFrame(context);
    if (SendFrame(context) > 0)
        ReadReply(context, reinterpret_cast<uint8_t*>(out), nullptr);
    WriteLog(out);

    EndOperation(context);
    const int length = static_cast<int>(std::strlen(out));
    return length;
}

extern "C" int VARNIK_CALL ThaiIDRead(char* out, int mode)
{
    EnterLibrary();
    if (out == nullptr)
        return ErrNoBuffer;
    DeviceContext& context = g_context;
    if (const int opened = BeginOperation(context))
        return opened;

    // The whole low byte of the mode goes to the terminal; only its low two bits matter here.
    const uint8_t modeByte = static_cast<uint8_t>(mode & 0xFF);
    context.text = "Insert Card :";
    BeginFrame(context, {0x32, 0x00});
    AppendBytes(context, &modeByte, 1);
    AppendText(context, context.text.c_str());
    CloseFrame(context);
    if (SendFrame(context) > 0)
        ReadReply(context, nullptr, nullptr);

    // The text runs to rxBuffer's first NUL, not to rxLength: after a one-byte answer the rest
    // of the earlier reply follows it, and after a dropped reply the raw bytes are taken. The
    // reader never writes the buffer's last byte, so a NUL always ends the walk.
    int count;
    if ((mode & 3) <= 1)
        count = ThaiAnswerAsText(context.rxBuffer, TxRxCapacity, out);
    else
        count = ThaiAnswerAsBinary(context.rxBuffer, ArrivedInRxBuffer(context), out);

    EndOperation(context);
    return count;
}

extern "C" int VARNIK_CALL ThaiLen(const char* text)
{
    EnterLibrary();
    if (text == nullptr)
        return 0;
    return CountThaiColumns(text);
}
