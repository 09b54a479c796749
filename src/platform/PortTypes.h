// Handle types of the serial driver, which differ by platform.
#pragma once

#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
using PortHandle = HANDLE;
using PortOverlapped = OVERLAPPED;
constexpr PortHandle NullPortHandle = nullptr;
#else
// A file descriptor; -1 stands where Windows has a null handle.
using PortHandle = int;
constexpr PortHandle NullPortHandle = -1;
struct PortOverlapped {
    uint32_t Offset;  // running count of bytes written through the waiting path; never read
};
#endif
