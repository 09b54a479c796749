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

// The raw stream announced by "9W" is complete, or the host fell silent before it was: check
// size and CRC-32, keep the file, and give the closing reply (CAN for a failure).
Reply FinishUpload(const Bytes& content, SimState& state);

// One line for the announced file in the upload record, if there is one:
// outcome TAB name TAB announced size TAB announced CRC TAB received size TAB received CRC.
// `received` null: nothing arrived ("-" for both).
void RecordUpload(SimState& state, const char* outcome, const Bytes* received);

// The cardholder data a "1" request can ask for, by EMV tag; unknown tags answer "".
std::string EmvTagValue(const std::string& tag, const TerminalConfig& config);

// The string values of every member called `key`, in order of appearance. Enough JSON for
// the terminal's requests, which are flat lists of string members.
std::vector<std::string> StringMembers(const std::string& json, const std::string& key);
