// Helpers shared by the exported functions.
#pragma once

#include "session/DeviceContext.h"
#include "varnik.h"

// Export names that are one routine share its address. On Windows the .def file maps the
// alias to the routine; on Linux the alias is a second symbol for the same code.
#if defined(_WIN32)
#define VARNIK_ALIAS(result, name, params, target)
#else
#define VARNIK_ALIAS(result, name, params, target) \
    extern "C" result name params __attribute__((alias(#target)));
#endif

// Asks the terminal for its version text and copies rxBuffer, up to its first zero byte, to
// `out` whether or not a reply came. Always 1.
int QueryVersion(char* out);
