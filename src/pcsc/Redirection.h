// Puts the virtual reader in front of the process's PC/SC library (ReaderSelect in
// include/varnik.h is the export that does it).
#pragma once

#include "platform/Module.h"

struct RedirectionRecord {
    ModuleHandle winscardModule;  // the PC/SC library as we loaded it; released at unload
    // Addresses of the real functions: hook targets only, never called.
    void* realListReaders;
    void* realDisconnect;
    void* realConnect;
    void* realTransmit;
    void* realStatus;
    void* realEstablishContext;
};

extern RedirectionRecord g_redirection;

// The file name of the platform's PC/SC library.
extern const char* const PcscModuleName;

// Loads the PC/SC library and hooks its six functions. 1 on success, 0 on failure; a failure
// undoes nothing, so the functions hooked before it stay hooked.
int InstallRedirection();

// At unload, before the port closes: releases the PC/SC library and ends the hooks.
void TeardownRedirection();
