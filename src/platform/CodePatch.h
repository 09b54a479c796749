// The pieces behind PatchJump: the jump instruction itself, and writing code bytes into a
// loaded module. Used to put our PC/SC functions in place of the system's, and to put the
// system's own first bytes back when the library goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(_M_X64)
// jmp qword [rip+0], then the target: 14 bytes, and no register is touched.
constexpr size_t JumpLength = 14;
#elif defined(__i386__) || defined(_M_IX86)
// jmp rel32: 5 bytes.
constexpr size_t JumpLength = 5;
#else
constexpr size_t JumpLength = 0;  // no jump known for this processor: nothing gets patched
#endif
constexpr size_t JumpRoom = 14;  // room for the longest of them

// Puts into `code` the jump that, placed at `at`, continues at `to`. Returns its length,
// JumpLength, or 0 where no jump is known.
inline size_t EncodeJump(uint8_t (&code)[JumpRoom], const void* at, const void* to)
{
#if defined(__x86_64__) || defined(_M_X64)
    (void)at;
    const uint64_t target = reinterpret_cast<uintptr_t>(to);
    code[0] = 0xFF;
    code[1] = 0x25;
    code[2] = code[3] = code[4] = code[5] = 0x00;
    std::memcpy(code + 6, &target, sizeof(target));
    return JumpLength;
#elif defined(__i386__) || defined(_M_IX86)
    const uint32_t relative = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(to) -
                                                    (reinterpret_cast<uintptr_t>(at) + 5));
    code[0] = 0xE9;
    std::memcpy(code + 1, &relative, sizeof(relative));
    return JumpLength;
#else
    (void)code;
    (void)at;
    (void)to;
    return 0;
#endif
}

// Copies `count` bytes over code at `target`: the covering pages are made writable for the
// copy only, and the processor's instruction cache is told. False if the pages could not be
// made writable; then nothing was written.
bool WriteCode(void* target, const void* bytes, size_t count);
