#include "PcscLoader.h"

// Without winscard.h, whose macros would rename the members of PcscApi to their "A" forms.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace {

template <typename Pointer>
void Bind(HMODULE library, Pointer& slot, const char* name)
{
    // Through void(*)(void), the function pointer type that FARPROC casts to quietly.
    slot = reinterpret_cast<Pointer>(reinterpret_cast<void (*)(void)>(GetProcAddress(library, name)));
}

} // namespace

const char* PcscLibraryName()
{
    return "winscard.dll";
}

bool LoadPcscLibrary(PcscApi& api, std::string& error)
{
    HMODULE library = LoadLibraryA(PcscLibraryName());
    if (!library) {
        error = "LoadLibrary failed (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    Bind(library, api.SCardEstablishContext, "SCardEstablishContext");
    Bind(library, api.SCardReleaseContext, "SCardReleaseContext");
    Bind(library, api.SCardListReaders, "SCardListReadersA");
    Bind(library, api.SCardConnect, "SCardConnectA");
    Bind(library, api.SCardStatus, "SCardStatusA");
    Bind(library, api.SCardTransmit, "SCardTransmit");
    Bind(library, api.SCardDisconnect, "SCardDisconnect");
    Bind(library, api.SCardFreeMemory, "SCardFreeMemory");
    api.t0Pci = reinterpret_cast<const PcscIoRequest*>(
        reinterpret_cast<void*>(GetProcAddress(library, "g_rgSCardT0Pci")));
    return true;
}
