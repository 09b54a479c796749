// The large static work area shared by the PIN-clear requests and the image upload: it holds
// the request of PinReadKeyClear for the length of the call, and a memory image on its way to
// the terminal. Static so that no call allocates; nothing is kept in it between calls.
#pragma once

#include <cstdint>

constexpr int ImageBufferSize = 1000000;

extern uint8_t imageBuffer[ImageBufferSize];
