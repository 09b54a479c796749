// varnik: the command-line host of the Varnik library. It loads the library by path at run
// time, as a point-of-sale application does, and calls one export per command.
#include "CommandLine.h"
#include "Console.h"
#include "Commands.h"
#include "Interrupt.h"
#include "LibraryLoader.h"
#include "LibraryPlaces.h"
#include "PcscLoader.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Holds the loaded library for the life of the program and unloads it at the end, so the
// library's teardown closes the port.
class LibraryHolder {
public:
    explicit LibraryHolder(std::vector<std::string> candidates)
        : m_candidates(std::move(candidates))
    {
    }
    ~LibraryHolder() { CloseLibraryFile(m_handle); }
    LibraryHolder(const LibraryHolder&) = delete;
    LibraryHolder& operator=(const LibraryHolder&) = delete;

    const LoadedLibrary* Load(std::ostream& err)
    {
        if (m_handle)
            return &m_library;
        if (m_tried)
            return nullptr;
        m_tried = true;
        std::ostringstream reasons;
        for (const std::string& candidate : m_candidates) {
            std::string usedPath, error;
            LibraryHandle handle = OpenLibraryFile(candidate, usedPath, error);
            if (handle) {
                m_handle = handle;
                m_library.path = usedPath;
                BindExports(m_library.api,
                            [handle](const char* name) { return FindLibraryExport(handle, name); });
                return &m_library;
            }
            reasons << "  " << usedPath << ": " << error << '\n';
        }
        err << "varnik: cannot load the Varnik library.\n" << reasons.str();
        if (m_candidates.empty())
            err << "  (no place to look: give --lib PATH or set VARNIK_LIBRARY)\n";
        return nullptr;
    }

    const LoadedLibrary* Loaded() const { return m_handle ? &m_library : nullptr; }

private:
    std::vector<std::string> m_candidates;
    LibraryHandle m_handle = nullptr;
    LoadedLibrary m_library;
    bool m_tried = false;
};

bool ReadFile(const std::string& path, std::string& content)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    content.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return true;
}

bool WriteFile(const std::string& path, const ByteString& content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
    return static_cast<bool>(file.flush());
}

// The PC/SC library of the process, loaded once when a command first needs it.
const PcscApi* LoadPcsc()
{
    static PcscApi api;
    static bool loaded = false;
    if (!loaded) {
        std::string error;
        if (!LoadPcscLibrary(api, error)) {
            std::cerr << "varnik: cannot load " << PcscLibraryName() << ": " << error << "\n";
            return nullptr;
        }
        loaded = true;
    }
    return &api;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    Invocation invocation = ParseCommandLine(words);

    if (invocation.action == Invocation::Error) {
        std::cerr << "varnik: " << invocation.error << "\nTry 'varnik --help'.\n";
        return ExitUsage;
    }
    if (invocation.action == Invocation::Help) {
        if (invocation.helpTopic.empty()) {
            PrintOverview(std::cout);
            return ExitOk;
        }
        return PrintCommandHelp(invocation.helpTopic, std::cout, std::cerr);
    }

    std::vector<std::string> candidates = LibraryCandidates(
        invocation, ExecutableFolder(), LibraryFileName(), std::getenv("VARNIK_LIBRARY"));
#ifdef VARNIK_INSTALLED_LIBRARY
    // Installed in the GNU layout, the library is in <prefix>/lib under its SONAME.
    if (!invocation.libraryGiven && !ExecutableFolder().empty())
        candidates.push_back(ExecutableFolder() + VARNIK_INSTALLED_LIBRARY);
#endif
    LibraryHolder library(std::move(candidates));

    if (invocation.action == Invocation::Version) {
        std::cout << "varnik " VARNIK_VERSION "\n";
        const LoadedLibrary* loaded = library.Load(std::cerr);
        if (!loaded)
            return ExitNoLibrary;
        std::string version = LibraryFileVersion(loaded->path);
        std::cout << "library " << (version.empty() ? "(no version)" : version) << " "
                  << loaded->path << "\n";
        return ExitOk;
    }

    const Command* command = FindCommand(invocation.command);
    if (!command) {
        std::cerr << "varnik: no command '" << invocation.command << "'.\nTry 'varnik --help'.\n";
        return ExitUsage;
    }

    CommandContext context(std::cout, std::cerr);
    context.args = invocation.args;
    context.timeoutSeconds = invocation.timeoutSeconds;
    // The library's call is still blocked on the port: end without unloading it.
    context.abandon = [](int seconds) {
        std::cout << "\nNo answer from the terminal within " << seconds
                  << " s: cancelled (it did not answer the cancel either).\n";
        std::cout.flush();
        std::_Exit(ExitTimedOut);
    };
    context.load = [&library] { return library.Load(std::cerr); };
    context.explainPort = [&library](int port) {
        const LoadedLibrary* loaded = library.Loaded();
        return loaded ? ExplainPortFailure(loaded->path, port) : std::string();
    };
    context.beginWait = [](const VarnikApi& api) {
        std::cout.flush();
        BeginCancellableWait(api.PosCancel);
    };
    context.endWait = [] { return EndCancellableWait(); };
    context.readFile = ReadFile;
    context.writeFile = WriteFile;
    context.loadPcsc = LoadPcsc;
    context.outIsTerminal = OutputIsTerminal();
    context.whileTicking = RunWhileTicking;
    int status = RunCommand(*command, context);
    std::cout.flush();
    if (const LoadedLibrary* loaded = library.Loaded()) {
        int port = -1;
        if (std::string(command->name) == "checkport" && status == ExitOk)
            ParseInt32(invocation.args[0], port);
        ReportUnwrittenFiles(loaded->path, port, std::cerr);
    }
    return status;
}
