// The entry patch itself is the same everywhere; only writing code bytes differs by system.
#include "platform/CodePatch.h"

#include "platform/Platform.h"

bool PatchJump(void* target, void* replacement)
{
    uint8_t jump[JumpRoom];
    const size_t length = EncodeJump(jump, target, replacement);
    if (length == 0)
        return false;
    return WriteCode(target, jump, length);
}
