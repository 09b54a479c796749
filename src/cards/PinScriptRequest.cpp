#include "cards/PinPad.h"

// The script and file forms of PinReadKeyClear are not wired up yet: every "@" request is
// refused as an unknown format, and nothing goes to the terminal.
int RunPinScriptRequest(char* out, const char* request)
{
    (void)out;
    (void)request;
    return -1;
}
