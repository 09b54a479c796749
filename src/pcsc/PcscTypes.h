// The PC/SC types and values that the virtual reader needs, declared here so that no PC/SC
// header or package is needed to build. They follow the platform's own interface exactly:
// winscard.dll's on Windows (32-bit DWORD and LONG, handles as wide as a pointer, WINAPI
// calls), pcsc-lite's on Linux (DWORD and LONG are unsigned long and long, handles LONG).
// Everything stays inside namespace Pcsc, so that a translation unit that also sees the
// system's winscard.h gets no clash.
#pragma once

#if defined(_WIN32)
// windows.h brings winscard.h, whose macros carry some of the names below. Take it in first
// and drop those macros: the constants here have the same values.
#include <windows.h>
#undef SCARD_S_SUCCESS
#undef SCARD_E_INVALID_PARAMETER
#undef SCARD_E_INSUFFICIENT_BUFFER
#undef SCARD_E_NO_MEMORY
#undef SCARD_E_NO_SMARTCARD
#undef SCARD_AUTOALLOCATE
#undef SCARD_PROTOCOL_T0
#undef SCARD_SPECIFIC
#endif

namespace Pcsc {

using BYTE = unsigned char;
using DWORD = unsigned long;
using LONG = long;

#if defined(_WIN32)
#if defined(_WIN64)
using SCARDCONTEXT = unsigned long long;  // ULONG_PTR
#else
using SCARDCONTEXT = unsigned long;  // ULONG_PTR
#endif
#define PCSC_API __stdcall
#else
using SCARDCONTEXT = LONG;
#define PCSC_API
#endif
using SCARDHANDLE = SCARDCONTEXT;

struct SCARD_IO_REQUEST {
    DWORD dwProtocol;
    DWORD cbPciLength;
};

constexpr LONG SCARD_S_SUCCESS = 0;
constexpr LONG SCARD_E_INVALID_PARAMETER = static_cast<LONG>(0x80100004UL);
constexpr LONG SCARD_E_INSUFFICIENT_BUFFER = static_cast<LONG>(0x80100008UL);
constexpr LONG SCARD_E_NO_MEMORY = static_cast<LONG>(0x80100006UL);
constexpr LONG SCARD_E_NO_SMARTCARD = static_cast<LONG>(0x8010000CUL);

constexpr DWORD SCARD_AUTOALLOCATE = static_cast<DWORD>(-1);
constexpr DWORD SCARD_PROTOCOL_T0 = 1;
// "Ready for use with a protocol set": a count on Windows, a flag bit on pcsc-lite.
#if defined(_WIN32)
constexpr DWORD SCARD_SPECIFIC = 6;
#else
constexpr DWORD SCARD_SPECIFIC = 0x0040;
#endif

}  // namespace Pcsc
