#include "platform/Module.h"

#include <windows.h>

ModuleHandle OpenModule(const char* name, uint32_t* error)
{
    HMODULE module = LoadLibraryA(name);
    if (module == nullptr && error != nullptr)
        *error = GetLastError();
    return module;
}

void* ModuleFunction(ModuleHandle module, const char* name)
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void ReleaseModule(ModuleHandle module)
{
    FreeLibrary(static_cast<HMODULE>(module));
}

bool PinModuleAt(const void* address)
{
    HMODULE module = nullptr;
    const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN;
    return GetModuleHandleExA(flags, static_cast<LPCSTR>(address), &module) != 0;
}
