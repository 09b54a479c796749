// Code patching on Windows: VirtualProtect round the write, FlushInstructionCache behind it.
#include "platform/CodePatch.h"
#include "platform/Platform.h"

#include <windows.h>

bool WriteCode(void* target, const void* bytes, size_t count)
{
    if (count == 0)
        return true;
    DWORD oldProtection = 0;
    if (!VirtualProtect(target, count, PAGE_EXECUTE_READWRITE, &oldProtection))
        return false;
    std::memcpy(target, bytes, count);
    // The old protection is that of the first page; a jump over a page end lies within one
    // code section, whose pages share it.
    DWORD ignored = 0;
    VirtualProtect(target, count, oldProtection, &ignored);
    FlushInstructionCache(GetCurrentProcess(), target, count);
    return true;
}
