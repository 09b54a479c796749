// Entry patching on functions of this program, and the redirection of the real pcsc-lite
// in this process: pointers taken before the patch must run the replacement, and the hook
// layer's exit must bring the original code back.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <vector>

#include "pcsc/HookLayer.h"
#include "pcsc/Redirection.h"
#include "pcsc/VirtualReader.h"
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

TEST(Redirection, InstallHooksTheProcessPcscLibraryAndTeardownUndoesIt)
{
    void* pcsc = dlopen("libpcsclite.so.1", RTLD_NOW);
    if (pcsc == nullptr)
        GTEST_SKIP() << "libpcsclite.so.1 is not installed";
    using Establish = Pcsc::LONG (*)(Pcsc::DWORD, const void*, const void*, Pcsc::SCARDCONTEXT*);
    using List = Pcsc::LONG (*)(Pcsc::SCARDCONTEXT, const char*, char*, Pcsc::DWORD*);
    // Bound before the redirection, as a host that loaded pcsc-lite early would have them.
    auto establish = reinterpret_cast<Establish>(dlsym(pcsc, "SCardEstablishContext"));
    auto list = reinterpret_cast<List>(dlsym(pcsc, "SCardListReaders"));
    ASSERT_NE(establish, nullptr);
    ASSERT_NE(list, nullptr);
    const std::vector<uint8_t> entry = FirstBytes(reinterpret_cast<void*>(establish));

    ASSERT_EQ(InstallRedirection(), 1);
    EXPECT_NE(g_redirection.winscardModule, nullptr);
    EXPECT_EQ(g_redirection.realEstablishContext, reinterpret_cast<void*>(establish));
    for (void* real : {g_redirection.realListReaders, g_redirection.realDisconnect,
                       g_redirection.realConnect, g_redirection.realTransmit,
                       g_redirection.realStatus})
        EXPECT_NE(real, nullptr);

    for (int installation = 0; installation < 2; ++installation) {
        if (installation == 1) {
            ASSERT_EQ(InstallRedirection(), 1) << "a second installation does it all again";
        }
        Pcsc::SCARDCONTEXT context = 0;
        Pcsc::DWORD size = 0;
        EXPECT_EQ(establish(0, nullptr, nullptr, &context), 0);
        EXPECT_EQ(context, 1234);
        EXPECT_EQ(list(context, nullptr, nullptr, &size), 0);
        EXPECT_EQ(size, 21u);
    }

    TeardownRedirection();
    EXPECT_EQ(g_redirection.winscardModule, nullptr);
    EXPECT_EQ(FirstBytes(reinterpret_cast<void*>(establish)), entry)
        << "pcsc-lite's own code is back";
    dlclose(pcsc);
}
