#include "pcsc/HookLayer.h"

#include <cstdint>
#include <cstring>

#include "platform/CodePatch.h"
#include "platform/Module.h"
#include "platform/Platform.h"

namespace {

struct HookRecord {
    void* target;
    uint8_t original[JumpRoom];
    size_t length;
};

// Six PC/SC functions need six records; the rest is headroom.
constexpr int MaxHooks = 16;
HookRecord g_hooks[MaxHooks];
int g_hookCount;

HookRecord* FindHook(void* target)
{
    for (int i = 0; i < g_hookCount; ++i) {
        if (g_hooks[i].target == target)
            return &g_hooks[i];
    }
    return nullptr;
}

}  // namespace

int HookLayerSetRawData(const void*, size_t)
{
    return 1;
}

void HookLayerInit() {}

int HookLayerHookFunction(void* real, void* replacement, int enable)
{
    if (real == nullptr || replacement == nullptr || enable == 0 || JumpLength == 0)
        return 0;

    // A second hook of one address keeps the bytes saved by the first: they are the
    // function's own, what is there now is our jump.
    HookRecord* record = FindHook(real);
    if (record == nullptr) {
        if (g_hookCount == MaxHooks)
            return 0;
        record = &g_hooks[g_hookCount];
        record->target = real;
        record->length = JumpLength;
        std::memcpy(record->original, real, JumpLength);
        // The module must outlive the hook, or a later release would leave us restoring bytes
        // into memory that is gone.
        PinModuleAt(real);
        if (!PatchJump(real, replacement))
            return 0;
        ++g_hookCount;
        return 1;
    }
    return PatchJump(real, replacement) ? 1 : 0;
}

void HookLayerExit()
{
    while (g_hookCount > 0) {
        HookRecord& record = g_hooks[--g_hookCount];
        WriteCode(record.target, record.original, record.length);
        record.target = nullptr;
    }
}
