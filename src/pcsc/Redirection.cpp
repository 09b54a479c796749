// ReaderSelect: once a terminal has answered, the six PC/SC functions of the process are
// hooked so that the host's own SCard... calls reach the terminal's card slot. There is no
// guard and no undo: each call does it all again, and a failure leaves what was done.
#include "pcsc/Redirection.h"

#include <cstdint>

#include "pcsc/HookLayer.h"
#include "pcsc/VirtualReader.h"
#include "platform/Platform.h"
#include "session/DeviceContext.h"
#include "support/Format.h"
#include "support/Log.h"
#include "varnik.h"

RedirectionRecord g_redirection;

#if defined(_WIN32)
const char* const PcscModuleName = "winscard.dll";
#define PCSC_NAME(windows, posix) windows
#else
const char* const PcscModuleName = "libpcsclite.so.1";
#define PCSC_NAME(windows, posix) posix
#endif

namespace {

bool g_hookLayerLoaded;

struct HookRow {
    void* RedirectionRecord::*real;
    void* replacement;
    const char* notice;   // shown when the function is missing
    const char* logText;  // logged then
};

void BringUpHookLayer()
{
    if (!g_hookLayerLoaded) {
        HookLayerSetRawData(nullptr, 0);
        g_hookLayerLoaded = true;
    }
    HookLayerInit();
}

}  // namespace

int InstallRedirection()
{
    BringUpHookLayer();

    uint32_t error = 0;
    ModuleHandle module = OpenModule(PcscModuleName, &error);
    if (module == nullptr) {
        WriteLog(Format("Cannot found module [%s] 0x%08X", PcscModuleName, error));
        return 0;
    }
    RedirectionRecord& record = g_redirection;
    record.winscardModule = module;

    record.realListReaders =
        ModuleFunction(module, PCSC_NAME("SCardListReadersA", "SCardListReaders"));
    record.realDisconnect = ModuleFunction(module, "SCardDisconnect");
    record.realConnect = ModuleFunction(module, PCSC_NAME("SCardConnectA", "SCardConnect"));
    record.realTransmit = ModuleFunction(module, "SCardTransmit");
    record.realStatus = ModuleFunction(module, PCSC_NAME("SCardStatusA", "SCardStatus"));
    record.realEstablishContext = ModuleFunction(module, "SCardEstablishContext");

    const HookRow rows[] = {
        {&RedirectionRecord::realEstablishContext,
         reinterpret_cast<void*>(&Pcsc::SCardEstablishContext), "Not Found SCardEstablishContext",
         "SCardEstablishContext"},
        {&RedirectionRecord::realStatus,
         reinterpret_cast<void*>(&Pcsc::PCSC_NAME(SCardStatusA, SCardStatus)),
         "Not Found SCardStatus", "Not Found SCardStatus"},
        {&RedirectionRecord::realListReaders,
         reinterpret_cast<void*>(&Pcsc::PCSC_NAME(SCardListReadersA, SCardListReaders)),
         "Not Found SCardListReader", "Not Found SCardListReader"},
        {&RedirectionRecord::realDisconnect, reinterpret_cast<void*>(&Pcsc::SCardDisconnect),
         "Not Found SCardDisconnect", "Not Found SCardDisconnect"},
        {&RedirectionRecord::realConnect,
         reinterpret_cast<void*>(&Pcsc::PCSC_NAME(SCardConnectA, SCardConnect)),
         "Not Found SCardConnectA", "Not Found SCardConnectA"},
        {&RedirectionRecord::realTransmit, reinterpret_cast<void*>(&Pcsc::SCardTransmit),
         "Not Found SCardTransmit", "Not Found SCardTransmit"},
    };
    for (const HookRow& row : rows) {
        void* real = record.*row.real;
        if (real == nullptr) {
            ShowUnloggedNotice(row.notice);
            WriteLog(row.logText);
            return 0;
        }
        HookLayerHookFunction(real, row.replacement, 1);
    }
    return 1;
}

void TeardownRedirection()
{
    if (g_redirection.winscardModule != nullptr) {
#if !defined(_WIN32)
        ReleaseModule(g_redirection.winscardModule);
#endif
        // On Windows the teardown runs under the loader lock, where FreeLibrary is not safe.
        // Nothing is lost by keeping the reference: the hook layer has pinned the module of
        // every hooked function for the life of the process anyway, so that its first bytes
        // can be put back below.
        g_redirection.winscardModule = nullptr;
    }
    HookLayerExit();
}

extern "C" int VARNIK_CALL ReaderSelect(void)
{
    EnterLibrary();
    const int result = PosSelect();
    if (result != 0)
        return result;
    if (InstallRedirection() != 1)
        return -1;
    WriteLog("Redirection WinCard completed");
    return 0;
}
