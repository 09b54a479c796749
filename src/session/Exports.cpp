// The exports that are whole in themselves: the Pin and Msre names of the session calls, the
// terminal's version, the stripe-write stub and the empty exported class.
#include "session/Exports.h"

#include <cstring>

#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

extern "C" int VARNIK_CALL PinSelect(void)
{
    EnterLibrary();
    return PosSelect();
}
VARNIK_ALIAS(int, MsreSelect, (void), PinSelect)

extern "C" int VARNIK_CALL PinCheckPort(int port)
{
    EnterLibrary();
    return PosCheckPort(port);
}
VARNIK_ALIAS(int, MsreCheckPort, (int), PinCheckPort)

int QueryVersion(char* out)
{
    DeviceContext& context = g_context;
    BeginFrame(context, {0x3B});
    CloseFrame(context);
    if (SendFrame(context) > 0)
        ReadReply(context, nullptr, nullptr);
    // After a one-byte reply rxBuffer is not terminated behind it, so the rest of the earlier
    // reply comes along; the buffer's end bounds the copy.
    const char* text = reinterpret_cast<const char*>(context.rxBuffer);
    size_t length = strnlen(text, TxRxCapacity);
    std::memcpy(out, text, length);
    out[length] = '\0';
    WriteLog(std::string(text, length));
    return 1;
}

extern "C" int VARNIK_CALL getVersion(char* out)
{
    EnterLibrary();
    if (out == nullptr)
        return ErrNoBuffer;
    DeviceContext& context = g_context;
    if (const int opened = BeginOperation(context))
        return opened;
    QueryVersion(out);
    EndOperation(context);
    return static_cast<int>(std::strlen(out));
}

extern "C" int VARNIK_CALL MsreWrite(char* buffer)
{
    EnterLibrary();
    if (buffer == nullptr)
        return ErrNoBuffer;
    buffer[0] = '\0';
    return 0;
}

CBrelmat& CBrelmat::operator=(const CBrelmat&)
{
    return *this;
}

#if defined(_WIN32)
// The .def file exports this name at the address of the copy assignment.
CBrelmat& CBrelmat::operator=(CBrelmat&& other)
{
    return operator=(static_cast<const CBrelmat&>(other));
}
#else
// The move assignment is a second name of the copy assignment's code.
__asm__(".globl _ZN8CBrelmataSEOS_\n"
        ".set _ZN8CBrelmataSEOS_, _ZN8CBrelmataSERKS_");
#endif
