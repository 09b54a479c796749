// The terminal's answers, one handler per operation, and the table that binds them to codes.
#pragma once

#include "Protocol.h"
#include "Reply.h"
#include "SimState.h"

#include <vector>

// Every operation the terminal knows: code, payload shape, name, handler.
const std::vector<Operation>& OperationTable();

// The probe, "4": the reply writer puts the --garbage bytes before its ACK.
const OpCode ProbeCode = OpCode::One('4');

// The raw stream announced by "9W" is complete: check its CRC-32 and keep the file.
Reply FinishUpload(const Bytes& content, SimState& state);

// The cardholder data a "1" request can ask for, by EMV tag; unknown tags answer "".
std::string EmvTagValue(const std::string& tag, const TerminalConfig& config);

// The string values of every member called `key`, in order of appearance. Enough JSON for
// the terminal's requests, which are flat lists of string members.
std::vector<std::string> StringMembers(const std::string& json, const std::string& key);
