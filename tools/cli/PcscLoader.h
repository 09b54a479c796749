// Loading the PC/SC library of the process at run time: libpcsclite.so.1 on Linux
// (PcscLoaderPosix.cpp), winscard.dll on Windows (PcscLoaderWin32.cpp). The functions are
// looked up by name after ReaderSelect has run, so what they reach is whatever sits at those
// addresses now: the terminal's card slot.
#pragma once

#include "PcscApi.h"

#include <string>

// The library's file name on this platform, for messages.
const char* PcscLibraryName();

// Loads the library (it stays loaded for the life of the process) and fills every pointer of
// `api` it finds; the others stay null. False, with the system's reason in `error`, if the
// library will not load.
bool LoadPcscLibrary(PcscApi& api, std::string& error);
