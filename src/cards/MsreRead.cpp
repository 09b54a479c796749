// MsreRead: one swipe, the tracks handed back in nibble notation.
#include <cstring>
#include <string>

#include "cards/Tracks.h"
#include "platform/Platform.h"
#include "session/Frame.h"
#include "varnik.h"

extern "C" int VARNIK_CALL MsreRead(char* out)
{
    EnterLibrary();
    if (out == nullptr)
        return ErrNoBuffer;
    DeviceContext& context = g_context;
    if (const int opened = BeginOperation(context))
        return opened;

    context.text = "Swipe Card :";
    BeginFrame(context, {'3', 'R'});
    AppendText(context, context.text.c_str());
    CloseFrame(context);
    // The wait for the swipe has no time limit; a cancel makes the reader send CAN and the
    // terminal's answer to it ends the wait like any other.
    if (SendFrame(context) > 0)
        ReadReply(context, reinterpret_cast<uint8_t*>(out), nullptr);

    std::string text;
    switch (FormatTracks(out, text, ShowNotice)) {
    case TrackAnswer::PassedThrough:
        break;
    case TrackAnswer::Rendered:
        std::memcpy(out, text.c_str(), text.size() + 1);
        break;
    case TrackAnswer::TwoFields:
        // The one deliberate difference from the reader this replaces: an answer of exactly
        // two fields used to leave MsreRead through an invalid-argument exception (the third
        // field is missing), with `out` unchanged and the port left open. No exception may
        // cross into the host, so the same state is kept and the length returned instead:
        // `out` untouched, no CloseDevice, operationFlag left as it was set on entry.
        return static_cast<int>(std::strlen(out));
    }

    EndOperation(context);
    const int length = static_cast<int>(std::strlen(out));
    return length;
}
