// Our in-process hook layer. From the moment HookLayerHookFunction returns, every call of the
// hooked address in the process, from any module and through pointers taken before, runs the
// replacement: a jump is written over the function's first bytes. The replacements never call
// what they replace, so the overwritten bytes are only kept to be put back at exit.
#pragma once

#include <cstddef>

// Kept for the shape of the layer's start-up; there is no image to bring in. Returns 1.
int HookLayerSetRawData(const void* data, size_t size);
// Readies the layer. Nothing can fail in it.
void HookLayerInit();
// Hooks `real` with `replacement` at once when `enable` is non-zero. Hooking an address again
// rewrites its jump. Returns 1 if the jump is in place, 0 if not (nothing was changed then).
int HookLayerHookFunction(void* real, void* replacement, int enable);
// Ends every hook: the original bytes go back, newest hook first. Nothing happens when
// nothing was hooked.
void HookLayerExit();
