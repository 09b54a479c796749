// The words of the command line, and the small text helpers that commands share. Nothing
// here touches the library or the system, so all of it runs in the unit tests.
#pragma once

#include <map>
#include <string>
#include <vector>

struct Invocation {
    enum Action { Run, Help, Version, Error };
    Action action = Error;
    bool libraryGiven = false;   // --lib was on the line
    std::string libraryPath;     // its value
    int timeoutSeconds = -1;     // --timeout; -1 when not given, 0 for no limit
    std::string command;         // Run: the command word as typed
    std::vector<std::string> args;
    std::string helpTopic;       // Help: a command word, or empty for the overview
    std::string error;           // Error: what is wrong, one line
};

// `words` are the arguments without the program name:
//   [--lib PATH | --lib=PATH | --timeout S | --timeout=S | -h | --help]... COMMAND [ARGS...]
//   [--lib PATH] --version
//   help [COMMAND]          COMMAND --help          COMMAND -h
// Options count only before the command word; what follows belongs to the command.
Invocation ParseCommandLine(const std::vector<std::string>& words);

// Where to look for the library, in order: the --lib path alone if given; otherwise the file
// next to the executable (skipped when the folder is unknown), then the path in
// VARNIK_LIBRARY if that is set and not empty.
std::vector<std::string> LibraryCandidates(const Invocation& invocation,
                                           const std::string& executableFolder,
                                           const char* fileName, const char* environmentValue);

// A whole signed 32-bit decimal number, optional sign, nothing else around it.
bool ParseInt32(const std::string& text, int& value);

// The folder in which the library looks for its configuration: "config/" beside the file.
std::string ConfigFolderOf(const std::string& libraryPath);

// The "port" value of a varnik.json text, or 0 if it has none that reads as a number. Only
// for messages: the library's own reader decides what the port is.
int PortFromConfigText(const std::string& json);

// Case-insensitive ASCII comparison, as the library compares its command words.
bool SameWord(const std::string& a, const std::string& b);

// Whether `text` is one JSON object and nothing else (white space aside). Fills `members` with
// its top-level members whose values are strings; on failure `errorAt` is the offset of the
// first byte that does not fit. Strict, unlike the library's reader: only for messages after
// the library has refused a text.
bool ParseJsonObject(const std::string& text, std::map<std::string, std::string>& members,
                     size_t& errorAt);
