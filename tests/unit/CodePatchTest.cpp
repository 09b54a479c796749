// Entry patching and the hook layer on functions of this program: pointers taken before the
// patch must run the replacement, and the hook layer's exit must bring the original code back.
// The redirection of a real pcsc-lite is the integration tests' matter.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "pcsc/HookLayer.h"
#include "platform/CodePatch.h"
#include "platform/Platform.h"

namespace {

using Call = int (*)(int);

// noipa: no clone, no inlining, no constant folding, so every call really lands here.
__attribute__((noipa)) int PatchedTarget(int x)
{
    volatile int sum = x;
    for (int i = 0; i < 4; ++i)
        sum = sum * 3 + i;
    return sum;
}
__attribute__((noipa)) int PatchReplacement(int x) { return -x; }

__attribute__((noipa)) int HookedTarget(int x)
{
    volatile int sum = x;
    for (int i = 0; i < 4; ++i)
        sum = sum * 5 + i;
    return sum;
}
__attribute__((noipa)) int SecondTarget(int x)
{
    volatile int sum = x;
    for (int i = 0; i < 4; ++i)
        sum = sum * 7 + i;
    return sum;
}
__attribute__((noipa)) int HookReplacement(int x) { return 1000 + x; }
__attribute__((noipa)) int OtherReplacement(int x) { return 2000 + x; }

std::vector<uint8_t> FirstBytes(const void* code, size_t count = JumpLength)
{
    const uint8_t* bytes = static_cast<const uint8_t*>(code);
    return std::vector<uint8_t>(bytes, bytes + count);
}

}  // namespace

TEST(CodePatch, AJumpOverTheEntryCatchesCallsThroughEarlierPointers)
{
    Call volatile before = &PatchedTarget;
    const int original = before(2);
    ASSERT_NE(original, -2);

    ASSERT_TRUE(PatchJump(reinterpret_cast<void*>(&PatchedTarget),
                          reinterpret_cast<void*>(&PatchReplacement)));
    EXPECT_EQ(before(2), -2);
    EXPECT_EQ(PatchedTarget(7), -7);

#if defined(__x86_64__)
    std::vector<uint8_t> jump = {0xFF, 0x25, 0, 0, 0, 0};
    const uintptr_t to = reinterpret_cast<uintptr_t>(&PatchReplacement);
    for (int i = 0; i < 8; ++i)
        jump.push_back(static_cast<uint8_t>(to >> (8 * i)));
    EXPECT_EQ(FirstBytes(reinterpret_cast<void*>(&PatchedTarget)), jump);
#endif
}

TEST(HookLayer, ReHookingOneAddressKeepsOneEntryAndExitPutsTheOriginalsBack)
{
    void* target = reinterpret_cast<void*>(&HookedTarget);
    void* second = reinterpret_cast<void*>(&SecondTarget);
    Call volatile before = &HookedTarget;
    Call volatile secondBefore = &SecondTarget;
    const int original = before(3), secondOriginal = secondBefore(3);
    const std::vector<uint8_t> entry = FirstBytes(target), secondEntry = FirstBytes(second);

    HookLayerExit();  // nothing hooked: nothing happens
    EXPECT_EQ(FirstBytes(target), entry);
    EXPECT_EQ(HookLayerHookFunction(target, reinterpret_cast<void*>(&HookReplacement), 0), 0);
    EXPECT_EQ(before(3), original) << "a disabled hook changes nothing";

    HookLayerInit();
    // Many more hooks of one address than the layer has entries: every one must land.
    for (int i = 0; i < 40; ++i) {
        const bool other = i % 2 == 1;
        void* replacement = other ? reinterpret_cast<void*>(&OtherReplacement)
                                  : reinterpret_cast<void*>(&HookReplacement);
        ASSERT_EQ(HookLayerHookFunction(target, replacement, 1), 1) << i;
        EXPECT_EQ(before(3), other ? 2003 : 1003) << i;
    }
    ASSERT_EQ(HookLayerHookFunction(second, reinterpret_cast<void*>(&HookReplacement), 1), 1);
    EXPECT_EQ(secondBefore(4), 1004);

    HookLayerExit();
    EXPECT_EQ(FirstBytes(target), entry);
    EXPECT_EQ(FirstBytes(second), secondEntry);
    EXPECT_EQ(before(3), original);
    EXPECT_EQ(secondBefore(3), secondOriginal);
}
