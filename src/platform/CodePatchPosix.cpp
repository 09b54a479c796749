// Code patching on POSIX: mprotect round the write, with each page's own protection put back
// as /proc/self/maps tells it.
#include "platform/CodePatch.h"
#include "platform/Platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

namespace {

// The protection of the mapping that holds `address`; read and execute if it is not found,
// which is what code pages have.
int PageProtection(uintptr_t address)
{
    int protection = PROT_READ | PROT_EXEC;
    FILE* maps = std::fopen("/proc/self/maps", "r");
    if (maps == nullptr)
        return protection;
    char line[512];
    while (std::fgets(line, sizeof(line), maps) != nullptr) {
        uintptr_t start = 0, end = 0;
        char perms[5] = {};
        if (std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %4s", &start, &end, perms) != 3)
            continue;
        if (address < start || address >= end)
            continue;
        protection = (perms[0] == 'r' ? PROT_READ : 0) | (perms[1] == 'w' ? PROT_WRITE : 0) |
                     (perms[2] == 'x' ? PROT_EXEC : 0);
        break;
    }
    std::fclose(maps);
    return protection;
}

}  // namespace

bool WriteCode(void* target, const void* bytes, size_t count)
{
    if (count == 0)
        return true;
    const uintptr_t pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t first = reinterpret_cast<uintptr_t>(target) & ~(pageSize - 1);
    const uintptr_t last = (reinterpret_cast<uintptr_t>(target) + count - 1) & ~(pageSize - 1);

    // At most two pages for one jump; they may belong to mappings of different protection.
    const int firstProtection = PageProtection(first);
    const int lastProtection = last != first ? PageProtection(last) : firstProtection;

    // Writable and still executable: the page may hold the code that is running this.
    const size_t span = last - first + pageSize;
    if (mprotect(reinterpret_cast<void*>(first), span, PROT_READ | PROT_WRITE | PROT_EXEC) != 0)
        return false;
    std::memcpy(target, bytes, count);
    __builtin___clear_cache(static_cast<char*>(target), static_cast<char*>(target) + count);
    mprotect(reinterpret_cast<void*>(first), pageSize, firstProtection);
    if (last != first)
        mprotect(reinterpret_cast<void*>(last), pageSize, lastProtection);
    return true;
}
