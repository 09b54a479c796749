// The library's exports as the command-line host sees them: function pointers found by name
// in a library loaded at run time. Any of them may be missing from an older or partial build;
// each command checks for what it needs.
#pragma once

#include "varnik.h"

#include <functional>

using PosSelectFn = int(VARNIK_CALL*)(void);
using PosCheckPortFn = int(VARNIK_CALL*)(int port);
using PosCancelFn = int(VARNIK_CALL*)(void);
using GetVersionFn = int(VARNIK_CALL*)(char* out);
using PosExecFn = int(VARNIK_CALL*)(char* out, const char* command);
using PinLoadMKFn = int(VARNIK_CALL*)(unsigned char* key);
using PinReadKeyFn = int(VARNIK_CALL*)(unsigned char* out);
using PinReadKeyClearFn = int(VARNIK_CALL*)(char* inOut);
using MsreReadFn = int(VARNIK_CALL*)(char* out);
using EMVReadFn = int(VARNIK_CALL*)(char* out);
using ThaiIDReadFn = int(VARNIK_CALL*)(char* out, int mode);
using ThaiLenFn = int(VARNIK_CALL*)(const char* text);
using ReaderSelectFn = int(VARNIK_CALL*)(void);

struct VarnikApi {
    PosSelectFn PosSelect = nullptr;
    PosCheckPortFn PosCheckPort = nullptr;
    PosCancelFn PosCancel = nullptr;
    GetVersionFn getVersion = nullptr;
    PosExecFn PosExec = nullptr;
    PinLoadMKFn PinLoadMK = nullptr;
    PinReadKeyFn PinReadKey = nullptr;
    PinReadKeyClearFn PinReadKeyClear = nullptr;
    MsreReadFn MsreRead = nullptr;
    EMVReadFn EMVRead = nullptr;
    ThaiIDReadFn ThaiIDRead = nullptr;
    ThaiLenFn ThaiLen = nullptr;
    ReaderSelectFn ReaderSelect = nullptr;
};

// What a loader hands back for a name: the address as a plain function pointer, or null.
using ExportAddress = void (*)(void);
using ExportLookup = std::function<ExportAddress(const char* name)>;

// Fills every pointer of `api` that `lookup` can find; the others stay null.
void BindExports(VarnikApi& api, const ExportLookup& lookup);
