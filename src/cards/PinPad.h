// PIN entry and key loading: the pieces behind PinReadKey, PinReadKeyClear and PinLoadMK that
// other files (the script requests, the tests) reach.
#pragma once

#include <cstdint>

#include "session/DeviceContext.h"

// Size of the local work buffers of the PIN calls. A reply is cut to PinWorkSize - 1 bytes
// and a NUL when it is copied into one: the terminal's PIN replies are 16 or 32 digits.
constexpr int PinWorkSize = 128;

constexpr const char* PinPadScript = "pinpad.json";
constexpr const char* PinClearScript = "pinclear.json";
constexpr const char* DefaultPinPrompt = "INPUT";
constexpr const char* PinFallbackDigits = "0000000000000000";

// PinReadKey's decoding: the hexadecimal text in `work` (NUL-terminated) goes by pairs into
// `out`, a NUL behind the bytes, and always a NUL at out[16].
void DecodePinKey(const char* work, uint8_t* out);

// PinReadKeyClear's decoding: exactly the first 16 characters of `work` (which holds at least
// 16 bytes) become 8 bytes in inOut[0..7], and inOut[8] gets a NUL.
void DecodeClearKey(const char* work, char* inOut);

// ReadReply with no caller buffer, then the payload (or the single byte) copied into `work`,
// at most capacity - 1 bytes and a NUL. A reply that ReadReply refused leaves `work` as it
// was. Callers clear `work` first, so a single-byte reply reads as a one-character text.
void ReadReplyInto(DeviceContext& context, char* work, int capacity);

// The request of PinReadKeyClear (`request` is the text in imageBuffer); `out` is its cleared
// work buffer of PinWorkSize bytes. The port is open. A plain prompt runs the PIN entry screen;
// a request beginning with "@" goes on to RunPinScriptRequest with the frame started.
int RunPinScript(char* out, const char* request);

// The "@" forms: scripts and file commands on the terminal. `out` is the same work buffer of
// PinWorkSize bytes; txBuffer holds STX and txLength is 1.
int RunPinScriptRequest(char* out, const char* request);
