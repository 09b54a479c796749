// The library's files: config/debug.json (log switch), config/varnik.json (port, device
// name, timeout) and the command documents below <data folder>/json/.
#pragma once

#include <cstdint>

#include "support/CkJsonObject.h"

struct ScriptDocument {
    ScriptDocument();
    uint64_t reserved;  // stays 0
    CkJsonObject json;
    uint32_t loaded;  // 1 if the last load into this document succeeded
};

// `text` is JSON if it holds a "{" and its first "}" is past the first character; otherwise it
// names a file in the json folder. Returns 1 if loaded, else 0 (also stored in `loaded`).
int LoadScriptDocument(ScriptDocument& document, const char* text);

void ReadLogSwitch();
void LoadConfiguration();
void SavePortNumber(int port);
