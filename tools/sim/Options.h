// The command line of new6210-sim.
#pragma once

#include "ReplyWriter.h"
#include "SimState.h"
#include "Simulator.h"

#include <string>
#include <utility>
#include <vector>

struct SimOptions {
    std::string linkPath;    // --link
    std::string recordPath;  // --record
    std::string sentPath;    // --record-sent
    bool quiet = false;
    bool help = false;
    TerminalConfig terminal;
    FaultOptions faults;
    SessionOptions session;
    // The terminal's files at start: name and size. Empty sizes get a placeholder content.
    std::vector<std::pair<std::string, size_t>> files;
    bool defaultFiles = true;  // pinpad.json and pinclear.json, unless --files says otherwise
};

// False with a message in `error` for an unknown option or a bad value.
bool ParseOptions(const std::vector<std::string>& args, SimOptions& options, std::string& error);

std::string HelpText();
