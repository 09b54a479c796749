// The command interpreter behind PosExec, and what the PIN-clear script requests share with it.
#pragma once

#include <string>

#include "support/CkJsonObject.h"

constexpr int ErrPortClosed = -790;
constexpr const char* DefaultUploadFolder = "maxchar";

// The string of a member; empty when it is missing or has no string.
std::string MemberText(CkJsonObject& json, const char* key);

// `command` is "VERSION", JSON text, or a file name in the json folder. The port is open.
int RunCommand(char* out, const char* command);

// Sends `text` under op "03" and waits for the reply text in `out`. -1 when the reply begins
// with CAN. `capacity` bounds what is copied into `out` (with its NUL); a caller's buffer of
// unknown size takes the whole reply (capacity 0).
int SendPinpadScript(char* out, const char* text, int capacity = 0);
