// Ctrl-C while a library call waits on the terminal. The first Ctrl-C of a wait calls
// PosCancel, which only raises the library's cancel flag; the wait then sends CAN to the
// terminal and ends when the terminal answers. A second Ctrl-C in the same wait ends the
// program, for a terminal that never answers. Outside a wait Ctrl-C keeps its usual effect.
// One implementation per platform: InterruptPosix.cpp (SIGINT, whose handler only wakes a
// watcher thread that calls PosCancel), InterruptWin32.cpp (console control handler, which
// the system runs on a thread of its own).
#pragma once

#include "VarnikApi.h"

// Routes Ctrl-C to `cancel` until EndCancellableWait. Waits do not nest.
void BeginCancellableWait(PosCancelFn cancel);

// Gives Ctrl-C its usual effect again. True if a cancel was sent during the wait. Harmless
// without a matching begin.
bool EndCancellableWait();
