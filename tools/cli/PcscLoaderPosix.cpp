#include "PcscLoader.h"

#include <dlfcn.h>

namespace {

template <typename Pointer>
void Bind(void* library, Pointer& slot, const char* name)
{
    slot = reinterpret_cast<Pointer>(dlsym(library, name));
}

} // namespace

const char* PcscLibraryName()
{
    return "libpcsclite.so.1";
}

bool LoadPcscLibrary(PcscApi& api, std::string& error)
{
    // The same name the library hooks under, so both reach the one copy in the process.
    void* library = dlopen(PcscLibraryName(), RTLD_NOW | RTLD_GLOBAL);
    if (!library) {
        const char* reason = dlerror();
        error = reason ? reason : "dlopen failed";
        return false;
    }
    Bind(library, api.SCardEstablishContext, "SCardEstablishContext");
    Bind(library, api.SCardReleaseContext, "SCardReleaseContext");
    Bind(library, api.SCardListReaders, "SCardListReaders");
    Bind(library, api.SCardConnect, "SCardConnect");
    Bind(library, api.SCardStatus, "SCardStatus");
    Bind(library, api.SCardTransmit, "SCardTransmit");
    Bind(library, api.SCardDisconnect, "SCardDisconnect");
    Bind(library, api.SCardFreeMemory, "SCardFreeMemory");
    // pcsc-lite exports g_rgSCardT0Pci as well, but its transmit ignores the header; ours
    // has the same content.
    api.t0Pci = nullptr;
    return true;
}
