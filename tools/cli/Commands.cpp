#include "Commands.h"

#include "CommandLine.h"

#include <algorithm>
#include <cstring>
#include <ostream>

namespace {

// --- shared pieces of the commands -------------------------------------------------------

const LoadedLibrary* Load(CommandContext& context)
{
    return context.load ? context.load() : nullptr;
}

template <typename Function>
bool Have(CommandContext& context, const LoadedLibrary& library, Function function,
          const char* name)
{
    if (function)
        return true;
    context.err << "varnik: " << library.path << " has no function " << name << ".\n";
    return false;
}

// Runs one library call with Ctrl-C routed to PosCancel for its length.
template <typename Call>
int Waiting(CommandContext& context, const VarnikApi& api, Call call)
{
    if (context.beginWait)
        context.beginWait(api);
    int result = call();
    if (context.endWait && context.endWait())
        context.cancelled = true;
    return result;
}

// The failures that every terminal call shares.
int ReportFailure(CommandContext& context, int result)
{
    if (result == ResultPortUnavailable)
        context.out << "No port known or it would not open (110).\n";
    else if (result == ResultNoTerminal)
        context.out << "No terminal answered (1538).\n";
    else
        context.out << "The library answered with the unexpected result " << result << ".\n";
    return ExitTerminal;
}

int ConfiguredPort(CommandContext& context, const LoadedLibrary& library)
{
    std::string json;
    if (!context.readFile || !context.readFile(ConfigFolderOf(library.path) + "varnik.json", json))
        return 0;
    return PortFromConfigText(json);
}

// A buffer for a call that gives the length of a text, where 110 may also mean that the port
// would not open. The library leaves the buffer alone in that case, so its start is filled
// with 111 marks: untouched it reads as 111 long, and a real text of 110 ends in a NUL.
std::vector<char> TextReplyBuffer()
{
    std::vector<char> buffer(ReplyBufferSize, 0);
    std::memset(buffer.data(), '#', ResultPortUnavailable + 1);
    return buffer;
}

template <typename Reader>
int ReadText(CommandContext& context, const LoadedLibrary& library, Reader read,
             const char* nothingMessage)
{
    std::vector<char> buffer = TextReplyBuffer();
    int result = Waiting(context, library.api, [&] { return read(buffer.data()); });
    size_t length =
        static_cast<size_t>(std::find(buffer.begin(), buffer.end(), '\0') - buffer.begin());
    if ((result == ResultPortUnavailable && length != ResultPortUnavailable) || result < 0)
        return ReportFailure(context, result);
    if (length == 0) {
        context.out << nothingMessage << '\n';
        return ExitTerminal;
    }
    context.out.write(buffer.data(), static_cast<std::streamsize>(length));
    context.out << '\n';
    return ExitOk;
}

// --- the commands ------------------------------------------------------------------------

int RunProbe(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PosSelect, "PosSelect"))
        return ExitNoLibrary;
    int result = Waiting(context, library->api, [&] { return library->api.PosSelect(); });
    if (result != 0)
        return ReportFailure(context, result);
    int port = ConfiguredPort(context, *library);
    if (port > 0)
        context.out << "Terminal answered on port " << port << ".\n";
    else
        context.out << "Terminal answered.\n";
    return ExitOk;
}

int RunCheckPort(CommandContext& context)
{
    int port = 0;
    if (!ParseInt32(context.args[0], port)) {
        context.err << "varnik: checkport needs a port number, not '" << context.args[0]
                    << "'.\n";
        return ExitUsage;
    }
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PosCheckPort, "PosCheckPort"))
        return ExitNoLibrary;
    int result = Waiting(context, library->api, [&] { return library->api.PosCheckPort(port); });
    if (result != 0)
        return ReportFailure(context, result);
    context.out << "Terminal answered on port " << port << ".\n";
    return ExitOk;
}

int RunVersion(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.getVersion, "getVersion"))
        return ExitNoLibrary;
    return ReadText(context, *library, library->api.getVersion,
                    "The terminal gave no version text.");
}

int RunSwipe(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.MsreRead, "MsreRead"))
        return ExitNoLibrary;
    context.out << "Swipe a card on the terminal.\n" << std::flush;
    return ReadText(context, *library, library->api.MsreRead, "The terminal read no tracks.");
}

int RunEmv(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.EMVRead, "EMVRead"))
        return ExitNoLibrary;
    context.out << "Insert a chip card in the terminal.\n" << std::flush;
    return ReadText(context, *library, library->api.EMVRead, "The terminal gave no card data.");
}

int RunThaiLen(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.ThaiLen, "ThaiLen"))
        return ExitNoLibrary;
    context.out << library->api.ThaiLen(context.args[0].c_str()) << '\n';
    return ExitOk;
}

#define SESSION_RESULTS                                                                    \
    "\nResults: 0 the terminal acknowledged; 110 no port is known or it would not open;\n"  \
    "1538 nothing on the port answered within two tries of two seconds.\n"
#define READ_RESULTS                                                                       \
    "\nResults: the length of the text; 110 with nothing written when no port is known or\n" \
    "it would not open.\n"

const std::vector<Command> g_commands = {
    {"probe", "probe", "Ask the terminal on the configured port to answer",
     "Opens the configured port, sends the probe frame and waits up to twice two seconds\n"
     "for the terminal's acknowledgement (PosSelect). The port comes from\n"
     "config/varnik.json beside the library, e.g. {\"port\":7}, or from an earlier\n"
     "checkport.\n" SESSION_RESULTS,
     0, 0, RunProbe},
    {"checkport", "checkport N", "Try port N and remember it if the terminal answers",
     "Probes the terminal on port N (PosCheckPort). When it answers, the library writes\n"
     "{\"port\":N} to config/varnik.json beside it (if that folder exists), and later loads\n"
     "start on that port. N is a whole number.\n" SESSION_RESULTS,
     1, 1, RunCheckPort},
    {"version", "version", "Print the terminal's version text",
     "Asks the terminal for its version (getVersion) and prints the text it sends. This is\n"
     "the terminal's version; the library's own is in its file properties.\n" READ_RESULTS,
     0, 0, RunVersion},
    {"swipe", "swipe", "Read a magnetic stripe",
     "Waits for a card to be swiped on the terminal (MsreRead) and prints the tracks as\n"
     "the library gives them. The wait has no time limit: Ctrl-C cancels it.\n" READ_RESULTS,
     0, 0, RunSwipe},
    {"emv", "emv", "Read the cardholder name from a chip card",
     "Asks the terminal for the EMV data of the card in its slot (EMVRead) and prints the\n"
     "answer. The wait has no time limit: Ctrl-C cancels it.\n" READ_RESULTS,
     0, 0, RunEmv},
    {"thailen", "thailen TEXT", "Count the display columns of a Thai text",
     "Prints how many character columns TEXT (UTF-8) takes on the display (ThaiLen). Needs\n"
     "the library but no terminal.\n",
     1, 1, RunThaiLen},
    {"pin", "pin", "Run the PIN entry on the terminal",
     "Runs the PIN entry screen stored on the terminal (PinReadKey) and prints the answer\n"
     "in hexadecimal.\n",
     0, 0, nullptr},
    {"pinclear", "pinclear [PROMPT]", "PIN entry with a prompt of your own",
     "Runs the second PIN entry screen with PROMPT, or the terminal's default prompt\n"
     "(PinReadKeyClear), and prints the 8 bytes of the answer in hexadecimal.\n",
     0, 1, nullptr},
    {"loadkey", "loadkey HEX32", "Load a master key into the terminal",
     "Sends the 16-byte master key given as 32 hexadecimal digits (PinLoadMK) and prints\n"
     "the terminal's reply.\n",
     1, 1, nullptr},
    {"thaiid", "thaiid [--mode N]", "Read a Thai national identity card",
     "Reads the identity card in the terminal's slot (ThaiIDRead). Modes 0 and 1 give the\n"
     "record as UTF-8 text; 2 and 3 give a binary block.\n",
     0, 2, nullptr},
    {"pcsc", "pcsc readers|atr|apdu HEX...|thaiid", "Use the card slot as a PC/SC reader",
     "Puts the terminal's slot in front of the PC/SC functions of this process\n"
     "(ReaderSelect) and lists the readers, prints the card's ATR, sends one APDU, or reads\n"
     "a Thai identity card through PC/SC.\n",
     1, 64, nullptr},
    {"exec", "exec JSON", "Run a command document",
     "Runs a command (PosExec): VERSION, a JSON document such as {\"format\":\"BEEP\"}, or\n"
     "the name of a document in the library's json folder.\n",
     1, 1, nullptr},
};

} // namespace

const std::vector<Command>& CommandTable()
{
    return g_commands;
}

const Command* FindCommand(const std::string& name)
{
    for (const Command& command : g_commands) {
        if (SameWord(name, command.name))
            return &command;
    }
    return nullptr;
}

int RunCommand(const Command& command, CommandContext& context)
{
    if (!command.run) {
        context.err << "varnik: " << command.name << " is not in this version of varnik yet.\n";
        return ExitUsage;
    }
    if (context.args.size() < command.minArgs || context.args.size() > command.maxArgs) {
        context.err << "varnik: usage: varnik " << command.synopsis << "\n"
                    << "Try 'varnik help " << command.name << "'.\n";
        return ExitUsage;
    }
    context.cancelled = false;
    int status = command.run(context);
    if (context.cancelled) {
        context.out << "Cancelled.\n";
        return ExitCancelled;
    }
    return status;
}

void PrintOverview(std::ostream& out)
{
    out << "Usage: varnik [--lib PATH] COMMAND [ARGUMENTS]\n"
           "       varnik help [COMMAND]\n"
           "\n"
           "Drives a NEW6210 terminal through the Varnik library, loaded at run time.\n"
           "\n"
           "Commands:\n";
    // A synopsis wider than the column puts its summary on a line of its own.
    const size_t column = 20;
    bool planned = false;
    for (const Command& command : g_commands) {
        if (!command.run && !planned) {
            out << "\nPlanned, not in this version yet:\n";
            planned = true;
        }
        size_t length = std::strlen(command.synopsis);
        out << "  " << command.synopsis;
        if (length + 2 > column)
            out << '\n' << std::string(column + 2, ' ');
        else
            out << std::string(column - length, ' ');
        out << command.summary << '\n';
    }
    out << "\n"
           "Options:\n"
           "  --lib PATH   Load the library from PATH. Without it varnik loads "
           "the library file\n"
           "               next to itself (libvarnik.so, Varnik.dll on Windows), or else the "
           "one\n"
           "               that the environment variable VARNIK_LIBRARY names.\n"
           "  -h, --help   This text. 'varnik help COMMAND' explains one command.\n"
           "\n"
           "Results of the library:\n"
           "  0      success\n"
           "  110    no port is known, or the port would not open\n"
           "  1538   no terminal answered on the port\n"
           "\n"
           "Exit status: 0 success, 1 usage error, 2 library not loadable or lacking a\n"
           "function, 3 no port, no terminal or no usable answer, 4 cancelled with Ctrl-C.\n"
           "\n"
           "Configuration: the library reads config/varnik.json (its port, e.g. {\"port\":7})\n"
           "and config/debug.json ({\"mode\":1} turns its daily log on) in the folder of the\n"
           "library file, once when it is loaded.\n"
           "\n"
           "Ctrl-C while the terminal is awaited asks the terminal to cancel; a second\n"
           "Ctrl-C ends varnik at once (status 130).\n";
}

int PrintCommandHelp(const std::string& name, std::ostream& out, std::ostream& err)
{
    const Command* command = FindCommand(name);
    if (!command) {
        err << "varnik: no command '" << name << "'. Try 'varnik --help'.\n";
        return ExitUsage;
    }
    out << "Usage: varnik [--lib PATH] " << command->synopsis << "\n\n" << command->details;
    if (!command->run)
        out << "\nNot in this version of varnik yet.\n";
    out << "\nExit status: 0 success, 1 usage error, 2 library not loadable, 3 no port,\n"
           "no terminal or no usable answer, 4 cancelled with Ctrl-C.\n";
    return ExitOk;
}
