// What the routines of the command table share, and the routines that live outside
// Commands.cpp. Internal to the command-line host.
#pragma once

#include "Commands.h"

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

const LoadedLibrary* Load(CommandContext& context);

template <typename Function>
bool Have(CommandContext& context, const LoadedLibrary& library, Function function,
          const char* name)
{
    if (function)
        return true;
    context.err << "varnik: " << library.path << " has no function " << name << ".\n";
    return false;
}

// Runs one library call with Ctrl-C routed to PosCancel for its length, and with PosCancel
// from a watchdog thread when context.timeoutMs passes first.
int WaitWithin(CommandContext& context, const VarnikApi& api, const std::function<int()>& call);

template <typename Call>
int Waiting(CommandContext& context, const VarnikApi& api, Call call)
{
    return WaitWithin(context, api, std::function<int()>(call));
}

// The failures that every terminal call shares.
int ReportFailure(CommandContext& context, int result);

// The command documents and the PIN-pad script (ScriptCommands.cpp).
int RunExec(CommandContext& context);
int RunFiles(CommandContext& context);
int RunRemove(CommandContext& context);
int RunUpload(CommandContext& context);
int RunScript(CommandContext& context);

// A JSON string literal of `text`, quotes included.
std::string JsonString(const std::string& text);

// The line's rate: 921600 baud, 10 bits a byte.
const uint64_t LineBytesPerSecond = 92160;

// One line of an upload's progress bar after `elapsedMs`: the bytes the line can have
// carried by then, held just short of `total` until the terminal's closing answer (`done`).
std::string UploadProgressLine(uint64_t total, uint64_t elapsedMs, bool done);
