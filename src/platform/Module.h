// Loading another library of the process and finding functions in it: LoadLibraryA,
// GetProcAddress and FreeLibrary on Windows, dlopen, dlsym and dlclose on POSIX.
#pragma once

#include <cstdint>

using ModuleHandle = void*;

// Null on failure, with the system's reason in `error` (GetLastError, or errno; 0 if none).
ModuleHandle OpenModule(const char* name, uint32_t* error);
// Null if the module has no such function.
void* ModuleFunction(ModuleHandle module, const char* name);
// Gives back one reference taken by OpenModule.
void ReleaseModule(ModuleHandle module);
// Keeps the module that holds `address` loaded until the process ends, whatever releases
// follow. False if no loaded module holds it.
bool PinModuleAt(const void* address);
