// The command table of the command-line host. Each command is one entry: its word, the shape
// of its arguments, its help texts and the routine that runs it. A command added later is one
// more entry and one routine; the parser, the help and the dispatch need no change.
#pragma once

#include "CardText.h"
#include "PcscApi.h"
#include "VarnikApi.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

// Exit status of the program.
enum ExitStatus {
    ExitOk = 0,
    ExitUsage = 1,       // the command line is wrong
    ExitNoLibrary = 2,   // the library cannot be loaded or lacks a function the command needs
    ExitTerminal = 3,    // no port, no terminal, or the terminal's answer is not usable
    ExitCancelled = 4,   // Ctrl-C cancelled the wait
    ExitTimedOut = 5,    // the terminal did not answer within the time limit: cancelled
};

// The library's results that the messages name.
const int ResultPortUnavailable = 110;
const int ResultNoTerminal = 1538;

// Size of every buffer handed to the library. The library learns no size, and the largest
// reply it can copy comes from its 204800-byte receive buffer, three times over when the
// Thai card text is widened to UTF-8.
const size_t ReplyBufferSize = 4 * 1024 * 1024;

struct LoadedLibrary {
    std::string path;   // as loaded; its folder holds config/
    VarnikApi api;
};

struct CommandContext {
    CommandContext(std::ostream& out, std::ostream& err) : out(out), err(err) {}

    std::vector<std::string> args;
    std::ostream& out;   // what the command reports
    std::ostream& err;   // usage and library problems
    // Loads the library on first use; null after printing why it could not.
    std::function<const LoadedLibrary*()> load;
    // Around every call that may wait on the terminal: route Ctrl-C to PosCancel, and tell
    // afterwards whether a cancel went out.
    std::function<void(const VarnikApi&)> beginWait;
    std::function<bool()> endWait;
    // Reads a file whole; used for the port number in messages. Fails quietly.
    std::function<bool(const std::string& path, std::string& content)> readFile;
    // Writes a file whole (the Thai ID block and photo); false if it could not.
    std::function<bool(const std::string& path, const ByteString& content)> writeFile;
    // Loads the PC/SC library of the process on first use; null after printing why it
    // could not.
    std::function<const PcscApi*()> loadPcsc;
    // Whether `out` is a terminal: an upload draws a progress bar there, plain lines if not.
    bool outIsTerminal = false;
    // Runs `work` while another thread calls `tick` every `periodMs` (the progress bar, the
    // watchdog of the time limit);
    // null: `work` alone.
    std::function<int(int periodMs, const std::function<void()>& tick,
                      const std::function<int()>& work)>
        whileTicking;

    // --timeout in seconds: -1 not given, 0 no limit. RunCommand turns it into timeoutMs,
    // with a default for the commands that no customer answers.
    int timeoutSeconds = -1;
    long long timeoutMs = 0;
    // Called when the terminal answered neither within the limit nor the cancel after it: the
    // library would wait for ever, so the program ends here. Null: keep waiting.
    std::function<void(int seconds)> abandon;

    // Why no port would open (result 110) for the port a command names (`port`, 0: the
    // configured one); "" when it can't tell. May be null.
    std::function<std::string(int port)> explainPort;
    int port = 0;

    bool cancelled = false;
    bool timedOut = false;
};

// The limit of an unattended command when --timeout is not given.
const int DefaultTimeoutSeconds = 5;

struct Command {
    const char* name;
    const char* synopsis;   // "checkport N"
    const char* summary;    // one line for the overview
    const char* details;    // the text of "help COMMAND"
    size_t minArgs;
    size_t maxArgs;
    // Null for a command that is planned but not in this version of the program.
    int (*run)(CommandContext& context);
    // No customer answers it (no card, no PIN): the wait has a limit by default.
    bool unattended = false;
};

const std::vector<Command>& CommandTable();

// By word, ignoring case; null if there is none.
const Command* FindCommand(const std::string& name);

// Checks the argument count, runs the command and gives the exit status.
int RunCommand(const Command& command, CommandContext& context);

void PrintOverview(std::ostream& out);

// Help on one command; ExitUsage if there is no such command.
int PrintCommandHelp(const std::string& name, std::ostream& out, std::ostream& err);
