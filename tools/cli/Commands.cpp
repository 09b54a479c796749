#include "Commands.h"

#include "CommandLine.h"
#include "CommandSupport.h"
#include "PcscSession.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ostream>

const LoadedLibrary* Load(CommandContext& context)
{
    return context.load ? context.load() : nullptr;
}

int ReportFailure(CommandContext& context, int result)
{
    if (result == ResultPortUnavailable) {
        context.out << "No port known or it would not open (110).\n";
        const std::string cause = context.explainPort ? context.explainPort(context.port) : "";
        if (!cause.empty())
            context.out << "Cause: " << cause << ".\n";
    } else if (result == ResultNoTerminal)
        context.out << "No terminal answered (1538).\n";
    else
        context.out << "The library answered with the unexpected result " << result << ".\n";
    return ExitTerminal;
}

// A cancel that lands while the library opens the port is wiped by the open, so the watchdog
// sends it again each second; a terminal that answers none of them is given up after a while,
// since the library itself would wait for it for ever.
const int WatchdogPeriodMs = 100;
const int CancelRepeatMs = 1000;
const int CancelGraceMs = 3000;

int WaitWithin(CommandContext& context, const VarnikApi& api, const std::function<int()>& call)
{
    if (context.beginWait)
        context.beginWait(api);
    int result = 0;
    if (context.timeoutMs <= 0 || !api.PosCancel || !context.whileTicking) {
        result = call();
    } else {
        // The ticks run on a thread of their own, one at a time.
        const auto start = std::chrono::steady_clock::now();
        long long nextCancelMs = context.timeoutMs;
        std::atomic<bool> expired{false};
        auto tick = [&] {
            const long long elapsedMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                            std::chrono::steady_clock::now() - start)
                                            .count();
            if (elapsedMs < nextCancelMs)
                return;
            expired = true;
            if (elapsedMs >= context.timeoutMs + CancelGraceMs && context.abandon)
                context.abandon(context.timeoutSeconds);
            api.PosCancel();
            nextCancelMs = elapsedMs + CancelRepeatMs;
        };
        result = context.whileTicking(WatchdogPeriodMs, tick, call);
        if (expired)
            context.timedOut = context.cancelled = true;
    }
    if (context.endWait && context.endWait())
        context.cancelled = true;
    return result;
}

namespace {

const size_t PinBlockSize = 16;          // what PinReadKey gives
const size_t PinClearBufferSize = 1024;  // the prompt in, the reply out
const size_t PinClearReplySize = 8;      // what PinReadKeyClear gives for a prompt
const size_t MasterKeySize = 16;

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

// Whether the library left a buffer of TextReplyBuffer untouched: its answer to a port that
// would not open.
bool Untouched(const std::vector<char>& buffer)
{
    return std::all_of(buffer.begin(), buffer.begin() + ResultPortUnavailable + 1,
                       [](char c) { return c == '#'; });
}

// Runs a reader of text and gives the text. Prints why when there is none; after a cancel
// the buffer holds the terminal's CAN and nothing worth showing.
template <typename Reader>
int ReadTextReply(CommandContext& context, const LoadedLibrary& library, Reader read,
                  const char* nothingMessage, std::string& text)
{
    std::vector<char> buffer = TextReplyBuffer();
    int result = Waiting(context, library.api, [&] { return read(buffer.data()); });
    if (context.cancelled)
        return ExitCancelled;
    size_t length =
        static_cast<size_t>(std::find(buffer.begin(), buffer.end(), '\0') - buffer.begin());
    if ((result == ResultPortUnavailable && length != ResultPortUnavailable) || result < 0)
        return ReportFailure(context, result);
    if (length == 0) {
        context.out << nothingMessage << '\n';
        return ExitTerminal;
    }
    text.assign(buffer.data(), length);
    return ExitOk;
}

template <typename Reader>
int ReadText(CommandContext& context, const LoadedLibrary& library, Reader read,
             const char* nothingMessage)
{
    std::string text;
    int status = ReadTextReply(context, library, read, nothingMessage, text);
    if (status == ExitOk)
        context.out << text << '\n';
    return status;
}

std::vector<std::string> SplitAt(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t start = 0, end;
    while ((end = text.find(separator, start)) != std::string::npos) {
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

// "--name VALUE" or "--name=VALUE" at args[i]; moves i past what it took.
bool TakeOption(const std::vector<std::string>& args, size_t& i, const std::string& name,
                std::string& value, bool& missingValue)
{
    const std::string& word = args[i];
    if (word == name) {
        if (i + 1 >= args.size()) {
            missingValue = true;
            return true;
        }
        value = args[++i];
        return true;
    }
    if (word.compare(0, name.size() + 1, name + "=") == 0) {
        value = word.substr(name.size() + 1);
        return true;
    }
    return false;
}

bool WriteOutput(CommandContext& context, const std::string& path, const ByteString& content)
{
    if (context.writeFile && context.writeFile(path, content))
        return true;
    context.err << "varnik: cannot write " << path << ".\n";
    return false;
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
    context.port = port;
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
    std::string text;
    int status =
        ReadTextReply(context, *library, library->api.MsreRead, "The terminal read no tracks.", text);
    if (status != ExitOk)
        return status;
    context.out << text << '\n';
    // The library gives "track1|track2"; a text without a bar is the terminal's own message.
    std::vector<std::string> tracks = SplitAt(text, '|');
    if (tracks.size() > 1) {
        for (size_t i = 0; i < tracks.size(); ++i)
            context.out << "Track " << i + 1 << ": "
                        << (tracks[i].empty() ? std::string("(empty)") : tracks[i]) << '\n';
    }
    return ExitOk;
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
    const std::string& text = context.args[0];
    // The library ends the process on such a text (its NUL must still fit behind it).
    if (ThaiLenWorkBytes(text) >= ThaiLenLimit) {
        context.err << "varnik: the text is too long for ThaiLen (at most " << ThaiLenLimit - 1
                    << " characters).\n";
        return ExitUsage;
    }
    context.out << library->api.ThaiLen(text.c_str()) << '\n';
    return ExitOk;
}

int RunPin(CommandContext& context)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PinReadKey, "PinReadKey"))
        return ExitNoLibrary;
    context.out << "Enter the PIN on the terminal.\n" << std::flush;
    // The library decodes the terminal's hexadecimal text into bytes and puts a NUL at
    // [16] whatever the reply; the whole reply may be longer than those 16 bytes.
    std::vector<unsigned char> buffer(ReplyBufferSize, 0);
    int result = Waiting(context, library->api,
                         [&] { return library->api.PinReadKey(buffer.data()); });
    if (context.cancelled)
        return ExitCancelled;
    if (result != 0)
        return ReportFailure(context, result);
    context.out << HexText(buffer.data(), PinBlockSize, "") << '\n';
    return ExitOk;
}

int RunPinClear(CommandContext& context)
{
    std::string prompt = context.args.empty() ? std::string() : context.args[0];
    // A leading '@' turns the call into a terminal script request with a reply of any
    // size; that is not a PIN entry.
    if (!prompt.empty() && prompt[0] == '@') {
        context.err << "varnik: a prompt may not begin with '@'.\n";
        return ExitUsage;
    }
    if (prompt.size() >= PinClearBufferSize) {
        context.err << "varnik: the prompt is longer than " << PinClearBufferSize - 1
                    << " bytes.\n";
        return ExitUsage;
    }
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PinReadKeyClear, "PinReadKeyClear"))
        return ExitNoLibrary;
    context.out << "Enter the PIN on the terminal.\n" << std::flush;
    std::vector<char> buffer(PinClearBufferSize, 0);
    std::copy(prompt.begin(), prompt.end(), buffer.begin());
    int result = Waiting(context, library->api,
                         [&] { return library->api.PinReadKeyClear(buffer.data()); });
    if (context.cancelled)
        return ExitCancelled;
    if (result != 0)
        return ReportFailure(context, result);
    context.out << HexText(reinterpret_cast<const uint8_t*>(buffer.data()), PinClearReplySize,
                           "")
                << '\n';
    return ExitOk;
}

const char* SingleByteName(uint8_t byte)
{
    switch (byte) {
    case 0x06: return "ACK";
    case 0x15: return "NAK";
    case 0x18: return "CAN";
    default: return nullptr;
    }
}

int RunLoadKey(CommandContext& context)
{
    ByteString key;
    if (!ParseHexBytes(context.args[0], key) || key.size() != MasterKeySize) {
        context.err << "varnik: loadkey needs the key as 32 hexadecimal digits, not '"
                    << context.args[0] << "'.\n";
        return ExitUsage;
    }
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PinLoadMK, "PinLoadMK"))
        return ExitNoLibrary;
    // The reply lands in the key's own buffer: one byte replaces key[0] alone, a framed
    // reply overwrites the start and puts a NUL behind it.
    std::vector<unsigned char> buffer(ReplyBufferSize, 0);
    std::copy(key.begin(), key.end(), buffer.begin());
    int result = Waiting(context, library->api,
                         [&] { return library->api.PinLoadMK(buffer.data()); });
    if (context.cancelled)
        return ExitCancelled;
    if (result != 0)
        return ReportFailure(context, result);
    // A reply that left everything after the first byte as it was is one byte.
    bool oneByte = std::equal(key.begin() + 1, key.end(), buffer.begin() + 1) &&
                   buffer[MasterKeySize] == 0;
    if (oneByte) {
        const char* name = SingleByteName(buffer[0]);
        context.out << "The terminal replied " << HexText(buffer.data(), 1)
                    << (name ? std::string(" (") + name + ")" : std::string()) << ".\n";
        return buffer[0] == 0x06 ? ExitOk : ExitTerminal;
    }
    const char* text = reinterpret_cast<const char*>(buffer.data());
    size_t length = std::strlen(text);
    bool printable = std::all_of(text, text + length, [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F;
    });
    if (printable)
        context.out << "The terminal replied \"" << text << "\".\n";
    else
        context.out << "The terminal replied " << HexText(buffer.data(), length) << ".\n";
    return ExitOk;
}

// --- thaiid ----------------------------------------------------------------------------------

struct ThaiIdOptions {
    int mode = 0;
    std::string out = "thaiid.bin";
    bool outGiven = false;
};

bool ParseThaiIdOptions(CommandContext& context, ThaiIdOptions& options)
{
    const std::vector<std::string>& args = context.args;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string value;
        bool missing = false;
        if (TakeOption(args, i, "--mode", value, missing)) {
            if (missing || !ParseInt32(value, options.mode)) {
                context.err << "varnik: --mode needs a whole number.\n";
                return false;
            }
        } else if (TakeOption(args, i, "--out", value, missing)) {
            if (missing || value.empty()) {
                context.err << "varnik: --out needs a file name.\n";
                return false;
            }
            options.out = value;
            options.outGiven = true;
        } else {
            context.err << "varnik: usage: varnik thaiid [--mode N] [--out FILE]\n";
            return false;
        }
    }
    if (options.outGiven && (options.mode & 3) < 2) {
        context.err << "varnik: --out is for modes 2 and 3, which give a binary block.\n";
        return false;
    }
    return true;
}

int RunThaiId(CommandContext& context)
{
    ThaiIdOptions options;
    if (!ParseThaiIdOptions(context, options))
        return ExitUsage;
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.ThaiIDRead, "ThaiIDRead"))
        return ExitNoLibrary;
    context.out << "Insert a Thai ID card in the terminal.\n" << std::flush;
    ThaiIDReadFn read = library->api.ThaiIDRead;
    const int mode = options.mode;

    if ((mode & 3) < 2) {
        std::string text;
        int status = ReadTextReply(context, *library, [&](char* out) { return read(out, mode); },
                                   "The terminal gave no card data.", text);
        if (status != ExitOk)
            return status;
        ThaiIdFields fields;
        if (ParseThaiIdText(text, fields))
            context.out << FormatThaiIdFields(fields);
        else
            context.out << text << '\n';
        return ExitOk;
    }

    // The block carries no terminator, so a port failure is told by the untouched marks.
    std::vector<char> buffer = TextReplyBuffer();
    int result = Waiting(context, library->api, [&] { return read(buffer.data(), mode); });
    if (context.cancelled)
        return ExitCancelled;
    if (result < 0 || (result == ResultPortUnavailable && Untouched(buffer)))
        return ReportFailure(context, result);
    if (result == 0) {
        context.out << "The terminal gave no card data.\n";
        return ExitTerminal;
    }
    size_t length = std::min(static_cast<size_t>(result), buffer.size());
    ByteString block(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length));
    context.out << HexDump(block);
    if (!WriteOutput(context, options.out, block))
        return ExitUsage;
    context.out << "Wrote " << length << " bytes to " << options.out << ".\n";
    return ExitOk;
}

// --- pcsc ------------------------------------------------------------------------------------

struct PcscOptions {
    enum Action { Readers, Atr, Apdu, ThaiId } action = Readers;
    ByteString apdu;
    std::string photo = "thaiid.jpg";
};

bool ParsePcscOptions(CommandContext& context, PcscOptions& options)
{
    const std::vector<std::string>& args = context.args;
    const std::string& word = args[0];
    if (SameWord(word, "readers") && args.size() == 1) {
        options.action = PcscOptions::Readers;
    } else if (SameWord(word, "atr") && args.size() == 1) {
        options.action = PcscOptions::Atr;
    } else if (SameWord(word, "apdu") && args.size() > 1) {
        options.action = PcscOptions::Apdu;
        if (!ParseHexBytes(std::vector<std::string>(args.begin() + 1, args.end()),
                           options.apdu) ||
            options.apdu.size() < 4) {
            context.err << "varnik: apdu needs a command of at least 4 bytes in hexadecimal, "
                           "e.g. 00 A4 04 00 08 A0 00 00 00 54 48 00 01.\n";
            return false;
        }
    } else if (SameWord(word, "thaiid")) {
        options.action = PcscOptions::ThaiId;
        for (size_t i = 1; i < args.size(); ++i) {
            std::string value;
            bool missing = false;
            if (!TakeOption(args, i, "--photo", value, missing) || missing || value.empty()) {
                context.err << "varnik: usage: varnik pcsc thaiid [--photo FILE]\n";
                return false;
            }
            options.photo = value;
        }
    } else {
        context.err << "varnik: usage: varnik pcsc readers|atr|apdu HEX...|thaiid "
                       "[--photo FILE]\nTry 'varnik help pcsc'.\n";
        return false;
    }
    return true;
}

// Context, the first reader and a connection to its card; prints what failed.
bool ConnectFirstReader(CommandContext& context, PcscSession& session, std::string& reader)
{
    std::vector<std::string> readers;
    PcscLong result = session.Establish();
    if (result == 0)
        result = session.ListReaders(readers);
    if (result != 0) {
        context.out << "PC/SC failed: " << PcscResultText(result) << ".\n";
        return false;
    }
    if (readers.empty()) {
        context.out << "No reader.\n";
        return false;
    }
    reader = readers[0];
    result = session.Connect(reader);
    if (result != 0) {
        context.out << "No card in " << reader << ": " << PcscResultText(result) << ".\n";
        return false;
    }
    return true;
}

void PrintResponse(CommandContext& context, const ByteString& response)
{
    ApduResponse split;
    if (!SplitResponse(response, split)) {
        context.out << "< " << (response.empty() ? "(nothing)" : HexText(response))
                    << "  (no status word)\n";
        return;
    }
    context.out << "< " << (split.data.empty() ? "" : HexText(split.data) + "  ") << "SW "
                << HexText(response.data() + split.data.size(), 2) << '\n';
}

int PcscApdu(CommandContext& context, PcscSession& session, const ByteString& command)
{
    ByteString response;
    context.out << "> " << HexText(command) << '\n';
    PcscLong result = session.Transmit(command, response);
    if (result != 0) {
        context.out << "Transmit failed: " << PcscResultText(result) << ".\n";
        return ExitTerminal;
    }
    PrintResponse(context, response);
    ApduResponse split;
    if (SplitResponse(response, split) && split.sw1 == 0x61) {
        ByteString getResponse = GetResponseCommand(split.sw2 ? split.sw2 : 256);
        context.out << "> " << HexText(getResponse) << '\n';
        result = session.Transmit(getResponse, response);
        if (result != 0) {
            context.out << "Transmit failed: " << PcscResultText(result) << ".\n";
            return ExitTerminal;
        }
        PrintResponse(context, response);
    }
    return ExitOk;
}

int PcscThaiId(CommandContext& context, PcscSession& session, const std::string& photoPath)
{
    ByteString atr;
    PcscLong result = session.Status(atr);
    if (result != 0) {
        context.out << "SCardStatus failed: " << PcscResultText(result) << ".\n";
        return ExitTerminal;
    }
    context.out << "ATR:          " << (atr.empty() ? "(none)" : HexText(atr)) << '\n';
    ThaiIdCard card;
    std::string error;
    if (!ReadThaiIdCard(session, atr, card, error)) {
        context.out << "Reading the Thai ID card failed: " << error << ".\n";
        return ExitTerminal;
    }
    context.out << FormatThaiIdFields(card.fields);
    ByteString photo = TrimPhoto(card.photo);
    if (!WriteOutput(context, photoPath, photo))
        return ExitUsage;
    bool jpeg = photo.size() >= 2 && photo[0] == 0xFF && photo[1] == 0xD8;
    context.out << "Photo:        " << photo.size() << " bytes" << (jpeg ? " (JPEG)" : "")
                << " written to " << photoPath << ".\n";
    return ExitOk;
}

int PcscRun(CommandContext& context, const LoadedLibrary& library, const PcscOptions& options)
{
    int result = library.api.ReaderSelect();
    if (result == -1) {
        context.out << "ReaderSelect could not put the terminal in front of PC/SC (-1); the "
                       "library's log says why.\n";
        return ExitNoLibrary;
    }
    if (result != 0)
        return ReportFailure(context, result);
    const PcscApi* api = context.loadPcsc ? context.loadPcsc() : nullptr;
    if (!api)
        return ExitNoLibrary;
    if (const char* missing = MissingPcscFunction(*api)) {
        context.err << "varnik: the PC/SC library has no function " << missing << ".\n";
        return ExitNoLibrary;
    }
    PcscSession session(*api);
    if (options.action == PcscOptions::Readers) {
        std::vector<std::string> readers;
        PcscLong status = session.Establish();
        if (status == 0)
            status = session.ListReaders(readers);
        if (status != 0) {
            context.out << "PC/SC failed: " << PcscResultText(status) << ".\n";
            return ExitTerminal;
        }
        if (readers.empty()) {
            context.out << "No reader.\n";
            return ExitTerminal;
        }
        for (const std::string& reader : readers)
            context.out << reader << '\n';
        return ExitOk;
    }
    std::string reader;
    if (!ConnectFirstReader(context, session, reader))
        return ExitTerminal;
    context.out << "Reader:       " << reader << '\n';
    if (options.action == PcscOptions::Atr) {
        ByteString atr;
        PcscLong status = session.Status(atr);
        if (status != 0) {
            context.out << "SCardStatus failed: " << PcscResultText(status) << ".\n";
            return ExitTerminal;
        }
        context.out << "ATR:          " << (atr.empty() ? "(none)" : HexText(atr)) << '\n';
        return ExitOk;
    }
    if (options.action == PcscOptions::Apdu)
        return PcscApdu(context, session, options.apdu);
    return PcscThaiId(context, session, options.photo);
}

int RunPcsc(CommandContext& context)
{
    PcscOptions options;
    if (!ParsePcscOptions(context, options))
        return ExitUsage;
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.ReaderSelect, "ReaderSelect"))
        return ExitNoLibrary;
    // Every PC/SC call that reaches the terminal waits in the library, as the exports do:
    // one cancellable wait covers the whole session.
    return Waiting(context, library->api, [&] { return PcscRun(context, *library, options); });
}

#define SESSION_RESULTS                                                                    \
    "\nResults: 0 the terminal acknowledged; 110 no port is known or it would not open;\n"  \
    "1538 nothing on the port answered within two tries of two seconds.\n"
#define READ_RESULTS                                                                       \
    "\nResults: the length of the text; 110 with nothing written when no port is known or\n" \
    "it would not open.\n"

#define EXEC_RESULTS                                                                        \
    "\nResults: 0 done; -1 the terminal refused; -2 the command could not be run; -790 the\n" \
    "port was closed; 110 no port is known or it would not open.\n"

const std::vector<Command> g_commands = {
    {"probe", "probe", "Ask the terminal on the configured port to answer",
     "Opens the configured port, sends the probe frame and waits up to twice two seconds\n"
     "for the terminal's acknowledgement (PosSelect). The port comes from\n"
     "config/varnik.json beside the library, e.g. {\"port\":7}, or from an earlier\n"
     "checkport.\n" SESSION_RESULTS,
     0, 0, RunProbe, true},
    {"checkport", "checkport N", "Try port N and remember it if the terminal answers",
     "Probes the terminal on port N (PosCheckPort). When it answers, the library writes\n"
     "{\"port\":N} to config/varnik.json beside it (if that folder exists), and later loads\n"
     "start on that port. N is a whole number.\n" SESSION_RESULTS,
     1, 1, RunCheckPort, true},
    {"version", "version", "Print the terminal's version text",
     "Asks the terminal for its version (getVersion) and prints the text it sends. This is\n"
     "the terminal's version; the library's own is in its file properties.\n" READ_RESULTS,
     0, 0, RunVersion, true},
    {"swipe", "swipe", "Read a magnetic stripe",
     "Waits for a card to be swiped on the terminal (MsreRead) and prints the tracks as\n"
     "the library gives them, then each track on a line of its own. Without --timeout the\n"
     "wait has no limit; Ctrl-C cancels it.\n" READ_RESULTS,
     0, 0, RunSwipe},
    {"emv", "emv", "Read the cardholder name from a chip card",
     "Asks the terminal for the EMV data of the card in its slot (EMVRead) and prints the\n"
     "answer. Without --timeout the wait has no limit; Ctrl-C cancels it.\n" READ_RESULTS,
     0, 0, RunEmv},
    {"thailen", "thailen TEXT", "Count the display columns of a Thai text",
     "Prints how many character columns TEXT (UTF-8) takes on the display (ThaiLen). Needs\n"
     "the library but no terminal.\n",
     1, 1, RunThaiLen},
    {"pin", "pin", "Run the PIN entry on the terminal",
     "Runs the PIN entry screen stored on the terminal (PinReadKey) and prints the 16 bytes\n"
     "of the answer in hexadecimal. Without --timeout the wait has no limit; Ctrl-C cancels it.\n"
     "\nResults: 0 the terminal answered; 110 no port is known or it would not open.\n",
     0, 0, RunPin},
    {"pinclear", "pinclear [PROMPT]", "PIN entry with a prompt of your own",
     "Runs the second PIN entry screen with PROMPT (PinReadKeyClear) and prints the 8 bytes\n"
     "of the answer in hexadecimal. Without PROMPT, or with \"\", the terminal shows its\n"
     "own prompt, INPUT. A prompt may not begin with '@', which would make it a terminal\n"
     "script request. Without --timeout the wait has no limit; Ctrl-C cancels it.\n"
     "\nResults: 0 the terminal answered; 110 no port is known or it would not open.\n",
     0, 1, RunPinClear},
    {"loadkey", "loadkey HEX32", "Load a master key into the terminal",
     "Sends the 16-byte master key given as 32 hexadecimal digits (PinLoadMK), e.g.\n"
     "00112233445566778899AABBCCDDEEFF, and prints the terminal's reply: one byte (06 ACK\n"
     "when it took the key) or a text. A reply other than ACK or a text gives status 3.\n"
     "\nResults: 0 the terminal answered; 110 no port is known or it would not open.\n",
     1, 1, RunLoadKey, true},
    {"thaiid", "thaiid [--mode N] [--out FILE]", "Read a Thai national identity card",
     "Reads the identity card in the terminal's slot (ThaiIDRead) in mode N (default 0;\n"
     "the terminal gets its low byte). Modes whose low two bits are 0 or 1 give the record\n"
     "as UTF-8 text, printed field by field when it has the usual nine fields, else as it\n"
     "came. Modes 2 and 3 give a binary block (the record and the photo): varnik prints a\n"
     "hex dump of it and writes it to FILE (default thaiid.bin); a FILE that cannot be\n"
     "written gives status 1. Without --timeout the wait has no limit; Ctrl-C cancels it.\n"
     "\nResults: the number of bytes given; 110 with nothing written when no port is known\n"
     "or it would not open.\n",
     0, 4, RunThaiId},
    {"pcsc", "pcsc readers|atr|apdu HEX...|thaiid [--photo FILE]",
     "Use the card slot as a PC/SC reader",
     "Puts the terminal's slot in front of the PC/SC functions of this process\n"
     "(ReaderSelect), then works through the system's own PC/SC library (libpcsclite.so.1,\n"
     "winscard.dll on Windows) as any PC/SC program does; no PC/SC service needs to run.\n"
     "  readers          list the readers\n"
     "  atr              connect to the card of the first reader and print its ATR\n"
     "  apdu HEX...      send one command APDU, e.g. apdu 00 A4 04 00 08 A0 00 00 00 54 48\n"
     "                   00 01, and print the response and its status word; after 61 xx\n"
     "                   varnik fetches the data with GET RESPONSE and prints that too\n"
     "  thaiid           read a Thai national identity card with the card's own commands,\n"
     "                   print the record and write the photo to FILE (default thaiid.jpg;\n"
     "                   a FILE that cannot be written gives status 1)\n"
     "\nResults of ReaderSelect: 0 redirected; -1 the PC/SC library or one of its functions\n"
     "is missing; 110 and 1538 as for probe.\n",
     1, 64, RunPcsc},
    {"exec", "exec TEXT", "Run a command document",
     "Runs one command of the terminal (PosExec) and prints its result and reply text.\n"
     "TEXT is VERSION (any case), a JSON document such as {\"format\":\"BEEP\"}, or the\n"
     "name of a document in the library's json folder. The words of \"format\": BEEP,\n"
     "SCREEN (with \"slide\"), APDU (\"cmd\":\"card\" tests for a card), FILE (\"cmd\" list,\n"
     "del with \"file\", write with a host path in \"file\"), UPLOAD (the folder \"input\"\n"
     "under the library's folder) and PINPAD (the whole TEXT goes to the terminal as a\n"
     "script). A negative result gives status 3. No answer within the time limit\n"
     "(--timeout) cancels it, as Ctrl-C does.\n"
     "A result of 0 comes with a warning when the document did nothing: a \"format\" or\n"
     "FILE \"cmd\" the library does not know, or a host file to write that cannot be opened.\n"
     "\nResults: VERSION 1; SCREEN without a slide 5; otherwise 0; -1 and -2 failures of\n"
     "the command; -790 the port was closed; 110 no port is known or it would not open.\n",
     1, 1, RunExec, true},
    {"files", "files", "List the files on the terminal",
     "Asks the terminal for its file list (PosExec with FILE list) and prints it as the\n"
     "terminal gives it.\n" EXEC_RESULTS,
     0, 0, RunFiles, true},
    {"rm", "rm NAME", "Delete a file on the terminal",
     "Tells the terminal to delete its file NAME (PosExec with FILE del). The terminal's\n"
     "answer says nothing about whether the file was there.\n" EXEC_RESULTS,
     1, 1, RunRemove, true},
    {"upload", "upload PATH", "Put a file or a folder tree on the terminal",
     "Sends the file PATH, or every file in the folder PATH and its subfolders, to the\n"
     "terminal (PosExec with FILE write, or UPLOAD). Each file goes under its base name,\n"
     "announced with its size and CRC-32; the terminal checks them. On a terminal a\n"
     "progress bar shows the bytes the line carries at 921600 baud and ends on the\n"
     "terminal's closing answer; otherwise a line before and a line after. A folder must\n"
     "be on the library's drive. A file the terminal declines counts as done; a closing\n"
     "CAN stops a folder there and gives status 3. Ctrl-C stops a folder before its next\n"
     "file and lists the files the terminal stored; the file on its way is sent whole.\n"
     "Only plain files go: a pipe, a device or a file over 4 GiB is skipped, and links to\n"
     "folders are not followed.\n" EXEC_RESULTS,
     1, 1, RunUpload, true},
    {"script", "script TEXT|@FILE", "Run a PIN-pad script request",
     "Hands a script request to the terminal through PinReadKeyClear and prints the reply\n"
     "text. TEXT is a JSON document: {\"format\":\"PINPAD\",...} goes to the terminal as a\n"
     "script; {\"format\":\"FILE\",\"cmd\":\"list\"|\"del\"|\"write\",\"file\":NAME,\n"
     "\"image\":HEX} lists, deletes or writes a file from the hexadecimal image. @FILE reads\n"
     "the document from the host file FILE; @@NAME hands NAME to the library's document\n"
     "loader (a document in its json folder). Without --timeout the wait has no limit;\n"
     "Ctrl-C cancels it.\n"
     "\nResults: 0 done; -1 unknown \"format\" or \"cmd\", cancelled or refused; -2 FILE\n"
     "unreadable or too large, or \"write\" without \"file\"; -3 \"write\" without\n"
     "\"image\"; 110 no port is known or it would not open.\n",
     1, 1, RunScript},
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
    context.cancelled = context.timedOut = false;
    if (context.timeoutSeconds < 0)
        context.timeoutSeconds = command.unattended ? DefaultTimeoutSeconds : 0;
    context.timeoutMs = context.timeoutSeconds * 1000LL;
    int status = command.run(context);
    if (context.timedOut) {
        context.out << "No answer from the terminal within " << context.timeoutSeconds
                    << " s: cancelled.\n";
        return ExitTimedOut;
    }
    if (context.cancelled) {
        context.out << "Cancelled.\n";
        return ExitCancelled;
    }
    return status;
}

void PrintOverview(std::ostream& out)
{
    out << "Usage: varnik [--lib PATH] [--timeout SECONDS] COMMAND [ARGUMENTS]\n"
           "       varnik help [COMMAND]\n"
           "       varnik [--lib PATH] --version\n"
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
           "  --timeout SECONDS\n"
           "               Cancel the wait (PosCancel) when the terminal has not answered\n"
           "               within SECONDS; 0 waits for ever. The default is 5 for the\n"
           "               commands that no customer answers (probe, checkport, version,\n"
           "               loadkey, exec, files, rm, upload, which also gets the line's\n"
           "               time for its bytes) and no limit for those awaiting a card or a PIN.\n"
           "               A terminal that answers not even the cancel is given up 3 s later.\n"
           "  --version    The versions of varnik and of the library file it loads.\n"
           "  -h, --help   This text. 'varnik help COMMAND' explains one command.\n"
           "\n"
           "Results of the library:\n"
           "  0      success\n"
           "  110    no port is known, or the port would not open\n"
           "         (varnik then names the config/COM<N> it tried and what is wrong with it)\n"
           "  1538   no terminal answered on the port\n"
           "\n"
           "Exit status: 0 success, 1 usage error, 2 library not loadable or lacking a\n"
           "function, 3 no port, no terminal or no usable answer, 4 cancelled with Ctrl-C,\n"
           "5 no answer within the time limit (--timeout).\n"
           "\n"
           "Configuration: the library reads config/varnik.json (its port, e.g. {\"port\":7})\n"
           "and config/debug.json ({\"mode\":1} turns its daily log on) in the folder of the\n"
           "library file, once when it is loaded. On Linux, VARNIK_CONFIG_DIR names another\n"
           "folder, and an installed library without config/ beside it reads\n"
           "~/.config/varnik/ and then /etc/varnik/.\n"
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
           "no terminal or no usable answer, 4 cancelled with Ctrl-C, 5 no answer within the\n"
           "time limit.\n";
    return ExitOk;
}
