// Loading the library by path at run time. The host never links to it, so one varnik
// executable can drive any build of the library, and a missing library is a message rather
// than a loader error before main. One implementation per platform: LibraryLoaderPosix.cpp
// (dlopen) and LibraryLoaderWin32.cpp (LoadLibraryA).
#pragma once

#include "VarnikApi.h"

#include <string>

using LibraryHandle = void*;

// The library's file name on this platform: "libvarnik.so" or "Varnik.dll".
const char* LibraryFileName();

// Folder of the running executable with its separator at the end, or "" if unknown.
std::string ExecutableFolder();

// Loads the library at `path`, always as a path and never through the system's search for a
// bare name. `usedPath` receives the path as actually loaded (made explicit or absolute).
// On failure returns null and puts the system's reason in `error`.
LibraryHandle OpenLibraryFile(const std::string& path, std::string& usedPath,
                              std::string& error);

// Address of an exported name, or null.
ExportAddress FindLibraryExport(LibraryHandle library, const char* name);

// The version of the library file at `path`, or "" if it carries none: on Windows its
// version record, elsewhere the number after ".so." of the file that its links lead to.
std::string LibraryFileVersion(const std::string& path);

// Unloads; the library's teardown runs here and closes a port it left open.
void CloseLibraryFile(LibraryHandle library);
