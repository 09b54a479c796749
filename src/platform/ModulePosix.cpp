#include "platform/Module.h"

#include <dlfcn.h>

#include <cerrno>

ModuleHandle OpenModule(const char* name, uint32_t* error)
{
    errno = 0;
    void* module = dlopen(name, RTLD_NOW);
    if (module == nullptr && error != nullptr)
        *error = static_cast<uint32_t>(errno);
    return module;
}

void* ModuleFunction(ModuleHandle module, const char* name)
{
    return dlsym(module, name);
}

void ReleaseModule(ModuleHandle module)
{
    dlclose(module);
}

bool PinModuleAt(const void* address)
{
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return false;
    // RTLD_NODELETE on a loaded object makes every later dlclose leave it mapped. The main
    // program can't be opened by its path and gives false, but it is never unloaded anyway.
    return dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
}
