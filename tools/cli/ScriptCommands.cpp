// exec, files, rm, upload and script: the command documents of PosExec and the PIN-pad
// script requests of PinReadKeyClear.
#include "CommandLine.h"
#include "CommandSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <vector>

namespace fs = std::filesystem;

namespace {

const int ResultPortClosed = -790;
const int ProgressPeriodMs = 200;
const size_t ProgressBarWidth = 30;

// The reply text of a call whose buffer started zeroed.
std::string TextOf(const std::vector<char>& buffer)
{
    return std::string(buffer.begin(), std::find(buffer.begin(), buffer.end(), '\0'));
}

// Runs a command document through PosExec; `reply` gets the reply text.
int Exec(CommandContext& context, const LoadedLibrary& library, const std::string& document,
         std::string& reply)
{
    std::vector<char> buffer(ReplyBufferSize, 0);
    int result = Waiting(context, library.api,
                         [&] { return library.api.PosExec(buffer.data(), document.c_str()); });
    reply = TextOf(buffer);
    return result;
}

const LoadedLibrary* LoadWith(CommandContext& context, PosExecFn VarnikApi::*function,
                              const char* name)
{
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.*function, name))
        return nullptr;
    return library;
}

// What a failed PosExec means, by its result.
int ReportExecFailure(CommandContext& context, int result)
{
    switch (result) {
    case ResultPortClosed:
        context.out << "The port was not open when the command began (-790).\n";
        break;
    case -1:
        context.out << "The command failed (-1): a \"cmd\" that is missing or not \"card\", a "
                       "script the terminal cancelled, or a file it refused.\n";
        break;
    case -2:
        context.out << "The command failed (-2): the document could not be loaded or has no "
                       "\"format\", or no card is in the slot.\n";
        break;
    default:
        if (result >= 0)
            return ReportFailure(context, result);
        context.out << "The command failed (" << result << ").\n";
    }
    return ExitTerminal;
}

struct UploadSource {
    bool folder = false;
    uint64_t bytes = 0;
    size_t files = 0;
    uint64_t namesBytes = 0;   // the files' paths below the folder, separators included
};

// The library announces a folder with the paths of all its files in one frame, which holds
// this many bytes; a longer list ends the upload before anything is sent.
const uint64_t FrameCapacity = 204800;

bool Measure(const std::string& path, UploadSource& source)
{
    std::error_code error;
    if (fs::is_regular_file(path, error)) {
        source.bytes = fs::file_size(path, error);
        source.files = 1;
        return !error;
    }
    if (!fs::is_directory(path, error))
        return false;
    source.folder = true;
    for (fs::recursive_directory_iterator it(path, error), end; !error && it != end;
         it.increment(error)) {
        std::error_code sizeError;
        if (it->is_regular_file(sizeError)) {
            source.bytes += it->file_size(sizeError);
            source.namesBytes += it->path().lexically_relative(path).string().size() + 1;
            ++source.files;
        }
    }
    return !error;
}

// The library uploads the folder named by "input" under its own folder, with no separator
// between them: the path from the library's folder to `folder`. Empty when there is none
// (another drive).
std::string FolderInputFor(const std::string& libraryPath, const std::string& folder)
{
    std::error_code error;
    fs::path base = fs::absolute(fs::path(libraryPath).parent_path(), error).lexically_normal();
    fs::path target = fs::absolute(folder, error).lexically_normal();
    if (error)
        return "";
    return target.lexically_relative(base).string();
}

// What the library makes of a text with braces: a JSON document, else a file name.
bool LooksLikeJsonText(const std::string& text)
{
    const size_t close = text.find('}');
    return text.find('{') != std::string::npos && close != 0;
}

// Why a document text was refused (-2), when the text itself says: "" when it does not.
std::string DocumentProblem(const std::string& text, const std::string& subject = "the text")
{
    std::map<std::string, std::string> members;
    size_t errorAt = 0;
    if (!ParseJsonObject(text, members, errorAt))
        return subject + " is not JSON (it goes wrong at byte " + std::to_string(errorAt) + ")";
    return "";
}

// A document the library runs with result 0 may still have done nothing: a "format" or FILE
// "cmd" it does not know, or a host file to write that cannot be opened.
void WarnAboutDocument(CommandContext& context, const std::string& text)
{
    std::map<std::string, std::string> members;
    size_t errorAt = 0;
    if (!LooksLikeJsonText(text) || !ParseJsonObject(text, members, errorAt) ||
        !members.count("format"))
        return;
    const std::string& format = members["format"];
    bool known = false;
    for (const char* word : {"BEEP", "SCREEN", "APDU", "FILE", "UPLOAD", "PINPAD"})
        known = known || SameWord(format, word);
    if (!known) {
        context.out << "Warning: \"format\" " << JsonString(format)
                    << " is no command of the library: nothing was sent.\n";
        return;
    }
    if (!SameWord(format, "FILE") || !members.count("cmd"))
        return;
    const std::string& cmd = members["cmd"];
    bool knownCmd = cmd.empty();
    for (const char* word : {"list", "del", "write", "UPLOAD", "PINPAD"})
        knownCmd = knownCmd || SameWord(cmd, word);
    if (!knownCmd) {
        context.out << "Warning: \"cmd\" " << JsonString(cmd)
                    << " is no FILE command of the library: nothing was sent.\n";
    } else if (SameWord(cmd, "write") && members.count("file")) {
        std::ifstream file(members["file"], std::ios::binary);
        if (!file)
            context.out << "Warning: the host file " << members["file"]
                        << " cannot be opened: nothing was sent.\n";
    }
}

void ReportStoredBeforeCancel(CommandContext& context, const std::string& stored)
{
    const size_t count = static_cast<size_t>(std::count(stored.begin(), stored.end(), '\n'));
    if (count == 0) {
        context.out << "The terminal stored no file of the folder before the cancel.\n";
        return;
    }
    context.out << "The terminal stored " << count << (count == 1 ? " file" : " files")
                << " before the cancel:\n";
    for (size_t start = 0, end; (end = stored.find('\n', start)) != std::string::npos; start = end + 1)
        context.out << "  " << stored.substr(start, end - start) << '\n';
    context.out << "The other files were not sent.\n";
}

std::string Seconds(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

} // namespace

std::string JsonString(const std::string& text)
{
    std::string json = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            json += escaped;
        } else {
            json += static_cast<char>(c);
        }
    }
    return json + "\"";
}

std::string UploadProgressLine(uint64_t total, uint64_t elapsedMs, bool done)
{
    uint64_t carried = elapsedMs * LineBytesPerSecond / 1000;
    uint64_t shown = done ? total : std::min(carried, total > 0 ? total - 1 : 0);
    unsigned percent = total == 0 ? (done ? 100 : 0) : static_cast<unsigned>(shown * 100 / total);
    size_t filled = ProgressBarWidth * percent / 100;
    char numbers[64];
    std::snprintf(numbers, sizeof numbers, "] %3u%%  %llu / %llu bytes", percent,
                  static_cast<unsigned long long>(shown), static_cast<unsigned long long>(total));
    return "[" + std::string(filled, '#') + std::string(ProgressBarWidth - filled, '.') + numbers;
}

int RunExec(CommandContext& context)
{
    const LoadedLibrary* library = LoadWith(context, &VarnikApi::PosExec, "PosExec");
    if (!library)
        return ExitNoLibrary;
    std::string reply;
    int result = Exec(context, *library, context.args[0], reply);
    if (context.cancelled)
        return ExitCancelled;
    if (result == ResultPortUnavailable)
        return ReportFailure(context, result);
    const std::string& text = context.args[0];
    context.out << "Result: " << result << '\n';
    if (!reply.empty())
        context.out << "Reply: " << reply << '\n';
    if (result == 0)
        WarnAboutDocument(context, text);
    if (result == -2 && LooksLikeJsonText(text)) {
        std::string problem = DocumentProblem(text);
        if (!problem.empty()) {
            context.out << "The command failed (-2): " << problem << ".\n";
            return ExitTerminal;
        }
    }
    return result < 0 ? ReportExecFailure(context, result) : ExitOk;
}

int RunFiles(CommandContext& context)
{
    const LoadedLibrary* library = LoadWith(context, &VarnikApi::PosExec, "PosExec");
    if (!library)
        return ExitNoLibrary;
    std::string list;
    int result = Exec(context, *library, R"({"format":"FILE","cmd":"list"})", list);
    if (context.cancelled)
        return ExitCancelled;
    if (result != 0)
        return ReportExecFailure(context, result);
    if (list.empty())
        context.out << "The terminal lists no files.\n";
    else
        context.out << list << (list.back() == '\n' ? "" : "\n");
    return ExitOk;
}

int RunRemove(CommandContext& context)
{
    const std::string& name = context.args[0];
    if (name.empty()) {
        context.err << "varnik: rm needs the name of a file on the terminal.\n";
        return ExitUsage;
    }
    const LoadedLibrary* library = LoadWith(context, &VarnikApi::PosExec, "PosExec");
    if (!library)
        return ExitNoLibrary;
    std::string reply;
    int result = Exec(context, *library,
                      R"({"format":"FILE","cmd":"del","file":)" + JsonString(name) + "}", reply);
    if (context.cancelled)
        return ExitCancelled;
    if (result != 0)
        return ReportExecFailure(context, result);
    context.out << "The terminal was told to delete " << name << ".\n";
    return ExitOk;
}

int RunUpload(CommandContext& context)
{
    const std::string& path = context.args[0];
    UploadSource source;
    if (!Measure(path, source)) {
        context.err << "varnik: " << path << " is no readable file or folder.\n";
        return ExitUsage;
    }
    const LoadedLibrary* library = LoadWith(context, &VarnikApi::PosExec, "PosExec");
    if (!library)
        return ExitNoLibrary;
    std::string document = R"({"format":"FILE","cmd":"write","file":)" + JsonString(path) + "}";
    if (source.folder) {
        std::string input = FolderInputFor(library->path, path);
        if (input.empty()) {
            context.err << "varnik: " << path << " has no path from the library's folder; "
                        << "put it on the library's drive.\n";
            return ExitUsage;
        }
        document = R"({"format":"UPLOAD","input":)" + JsonString(input) + "}";
    }

    const double wireSeconds = double(source.bytes) / LineBytesPerSecond;
    context.out << "Uploading " << path << ": " << source.bytes << " bytes"
                << (source.folder ? " in " + std::to_string(source.files) +
                                        (source.files == 1 ? " file" : " files")
                                  : "")
                << ", " << Seconds(wireSeconds) << " on the line at 921600 baud.\n"
                << std::flush;
    // The limit is for a terminal that stops answering, so the line's own time comes on top.
    if (context.timeoutMs > 0)
        context.timeoutMs += static_cast<long long>(wireSeconds * 1000);
    const auto start = std::chrono::steady_clock::now();
    auto elapsedMs = [&start] {
        return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                         std::chrono::steady_clock::now() - start)
                                         .count());
    };
    auto tick = [&] {
        context.out << '\r' << UploadProgressLine(source.bytes, elapsedMs(), false) << std::flush;
    };
    std::vector<char> reply(ReplyBufferSize, 0);
    std::function<int()> work = [&] { return library->api.PosExec(reply.data(), document.c_str()); };
    bool bar = context.outIsTerminal && context.whileTicking;
    // The wait is set up (and the output flushed) before the ticks start writing.
    int result = Waiting(context, library->api, [&] {
        return bar ? context.whileTicking(ProgressPeriodMs, tick, work) : work();
    });
    uint64_t tookMs = elapsedMs();
    if (bar)
        context.out << '\r' << UploadProgressLine(source.bytes, tookMs, result == 0) << '\n';
    if (context.cancelled && result == 0) {
        // The cancel came after the last answer it could have stopped.
        context.cancelled = context.timedOut = false;
        context.out << "The cancel came too late: "
                    << (source.folder ? "every file was sent.\n" : "the file was sent.\n");
    }
    if (context.cancelled) {
        // A folder stops between files and names in the reply those the terminal took.
        if (source.folder && result == -1)
            ReportStoredBeforeCancel(context, TextOf(reply));
        return ExitCancelled;
    }
    if (result == -1 && source.folder) {
        // The paths as the library makes them (its resolved folder, "input", each file below)
        // with a separator or the closing NUL behind each.
        std::error_code error;
        const fs::path folder = fs::weakly_canonical(library->path, error).parent_path();
        const uint64_t frame = 1 + 2 + 8 + source.namesBytes +
                               source.files * (folder.string().size() + 1 +
                                               FolderInputFor(library->path, path).size() + 1) +
                               2;
        if (!error && frame > FrameCapacity) {
            context.out << "The folder's list of " << source.files << " files takes about "
                        << frame << " bytes, more than one frame holds (" << FrameCapacity
                        << "): no file was sent.\n";
            return ExitTerminal;
        }
    }
    if (result == -1) {
        context.out << "The terminal refused "
                    << (source.folder ? "a file of the folder (its closing answer was CAN); "
                                        "the files after it were not sent.\n"
                                      : "the file: its closing answer was CAN.\n");
        return ExitTerminal;
    }
    if (result != 0)
        return ReportExecFailure(context, result);
    context.out << "Done: the terminal answered the upload after " << Seconds(tookMs / 1000.0)
                << ".\n";
    return ExitOk;
}

int RunScript(CommandContext& context)
{
    const std::string& text = context.args[0];
    // "@FILE" and "@@NAME" go to the library as they are; anything else is the script itself.
    std::string request = !text.empty() && text[0] == '@' ? text : "@" + text;
    const LoadedLibrary* library = Load(context);
    if (!library || !Have(context, *library, library->api.PinReadKeyClear, "PinReadKeyClear"))
        return ExitNoLibrary;
    std::vector<char> buffer(std::max(ReplyBufferSize, request.size() + 1), 0);
    std::copy(request.begin(), request.end(), buffer.begin());
    int result = Waiting(context, library->api,
                         [&] { return library->api.PinReadKeyClear(buffer.data()); });
    if (context.cancelled)
        return ExitCancelled;
    std::string reply = TextOf(buffer);
    switch (result) {
    case 0:
        context.out << (reply.empty() ? "Done: the terminal gave no reply text." : reply) << '\n';
        return ExitOk;
    case -1:
        context.out << "The script failed (-1): \"format\" is neither PINPAD nor FILE, \"cmd\" "
                       "is unknown, the terminal cancelled, or it refused the file.\n";
        return ExitTerminal;
    case -2: {
        // The library read "@FILE" from the host; the text itself, or that file, may not be JSON.
        std::string script = request.substr(1), problem;
        const bool named = script.compare(0, 1, "@") != 0 && !LooksLikeJsonText(script);
        const std::string subject = named ? "its file " + script : "the text";
        if (named && (!context.readFile || !context.readFile(subject.substr(9), script)))
            problem = subject + " could not be read";
        else if (script.compare(0, 1, "@") != 0)
            problem = DocumentProblem(script, subject);
        context.out << "The script failed (-2): "
                    << (problem.empty() ? "its file could not be read or is too large, or a "
                                          "\"write\" has no \"file\""
                                        : problem)
                    << ".\n";
        return ExitTerminal;
    }
    case -3:
        context.out << "The script failed (-3): a \"write\" has no \"image\", or the image is "
                       "too large.\n";
        return ExitTerminal;
    default:
        return ReportFailure(context, result);
    }
}
