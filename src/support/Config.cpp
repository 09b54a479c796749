#include "support/Config.h"

#include <cstring>

#include "platform/Platform.h"
#include "serial/PortScan.h"
#include "session/DeviceContext.h"
#include "support/Format.h"
#include "support/Log.h"

ScriptDocument::ScriptDocument() : reserved(0), loaded(0)
{
    json.Clear();
}

// JSON if the text holds a "{" anywhere and its first "}" is not its first character.
static bool LooksLikeJson(const std::string& text)
{
    size_t close = text.find('}');
    return text.find('{') != std::string::npos && close != std::string::npos && close > 0;
}

int LoadScriptDocument(ScriptDocument& document, const char* text)
{
    document.json.put_Utf8(true);  // command strings reach the terminal as the file's raw bytes
    std::string work = text != nullptr ? text : "";
    bool ok;
    std::string source;
    if (LooksLikeJson(work)) {
        source = work;
        ok = document.json.Load(work.c_str());
    } else {
        source = Format("%s/json/%s", g_strDataFolder.c_str(), work.c_str());
        ok = document.json.LoadFile(source.c_str());
    }
    if (ok)
        WriteLog(Format("load json file OK \n%s", work.c_str()));
    else
        WriteLog(Format("load json error [%s]: %s", document.json.lastErrorText(), source.c_str()));
    document.loaded = ok ? 1 : 0;
    return document.loaded;
}

void ReadLogSwitch()
{
    CkJsonObject json;
    std::string path = ConfigFilePath("debug.json");
    if (!json.LoadFile(path.c_str()))
        return;
    if (json.HasMember("mode"))
        g_nLogMode = json.IntOf("mode");
    if (json.HasMember("waits"))
        g_nWaitTrace = json.IntOf("waits");
}

void LoadConfiguration()
{
    DeviceContext& context = g_context;
    if (context.port != 0)
        return;
    LogInit();
    CkJsonObject json;
    std::string path = ConfigFilePath("varnik.json");
    if (!json.LoadFile(path.c_str())) {
        WriteLog(Format("load config error : %s", json.lastErrorText()));
        return;
    }
    context.port = json.IntOf("port");
    WriteLog(Format("Port : %d", context.port));

    if (json.HasMember("name")) {
        const char* value = json.StringOf("name");
        std::string name = value != nullptr ? value : "";
        if (context.port < 1) {
            unsigned char table[256];
            std::memset(table, 0, sizeof table);
            ScanPorts(name.c_str(), table);
            const int found = LowestMatchingPort(table);
            if (found >= 0) {
                context.port = found;
                WriteLog(Format("Scan Port [%s]: %d", name.c_str(), found));
            }
        }
    }
    if (json.HasMember("timeout"))
        context.timeoutSeconds = json.IntOf("timeout");
}

void SavePortNumber(int port)
{
    PrepareConfigFolder();
    std::string path = Format("%svarnik.json", g_strConfigFolder.c_str());
    std::string content = Format("{\"port\":%d}", port);
    ReplaceWholeFile(path, content.data(), content.size());
}
