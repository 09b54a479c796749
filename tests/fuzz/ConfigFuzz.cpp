// The configuration files and the command documents: whatever debug.json and varnik.json
// hold, the start-up reads them without a fault, and a document given as text or as a file
// name loads or fails cleanly. The input is split at its first NUL bytes into the three texts.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzInput.h"
#include "platform/Platform.h"
#include "session/DeviceContext.h"
#include "support/Config.h"
#include "support/Log.h"

namespace {

std::string NextText(std::string& rest)
{
    const size_t end = rest.find('\0');
    std::string text = rest.substr(0, end);
    rest = end == std::string::npos ? std::string() : rest.substr(end + 1);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string folder = [] {
        LogInit();
        char name[] = "/tmp/varnik-fuzz-XXXXXX";
        if (mkdtemp(name) == nullptr)
            std::abort();
        CreateFolder(std::string(name) + "/json");
        return std::string(name) + "/";
    }();
    g_strConfigFolder = folder;
    g_strDataFolder = folder;
    g_strLogFolder = folder;

    FuzzInput input(data, size);
    std::string rest = input.Rest();
    const std::string debug = NextText(rest);
    const std::string config = NextText(rest);
    WriteWholeFile(folder + "debug.json", debug.data(), debug.size());
    WriteWholeFile(folder + "varnik.json", config.data(), config.size());
    WriteWholeFile(folder + "json/doc", rest.data(), rest.size());

    ReadLogSwitch();
    g_nLogMode = 0;  // no log files from a fuzzed switch
    g_context.port = 0;
    LoadConfiguration();
    LoadScriptDocument(g_context.scriptDocument, rest.c_str());
    LoadScriptDocument(g_context.scriptDocument, "doc");
    LoadScriptDocument(g_context.scriptDocument, nullptr);
    return 0;
}
