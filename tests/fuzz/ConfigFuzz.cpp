// debug.json, varnik.json and a command document, cut from the input at its first two NULs:
// whatever they hold, the start-up and the document loader read them without a fault.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Platform.h"
#include "session/DeviceContext.h"
#include "support/Config.h"
#include "support/Log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string folder = [] {
        LogInit();
        char name[] = "/tmp/varnik-fuzz-XXXXXX";
        if (mkdtemp(name) == nullptr || !CreateFolder(std::string(name) + "/json"))
            std::abort();
        return std::string(name) + "/";
    }();
    g_strConfigFolder = g_strDataFolder = g_strLogFolder = folder;

    std::string rest(reinterpret_cast<const char*>(data), size);
    for (const char* name : {"debug.json", "varnik.json"}) {
        const size_t end = std::min(rest.find('\0'), rest.size());
        WriteWholeFile(folder + name, rest.data(), end);
        rest.erase(0, end + 1);
    }
    WriteWholeFile(folder + "json/doc", rest.data(), rest.size());

    ReadLogSwitch();
    g_nLogMode = 0;  // no log files from a fuzzed switch
    g_context.port = 0;
    LoadConfiguration();
    for (const char* text : {rest.c_str(), "doc", static_cast<const char*>(nullptr)})
        LoadScriptDocument(g_context.scriptDocument, text);
    return 0;
}
