#include "support/Log.h"

#include <atomic>

#include "support/Config.h"
#include "support/Format.h"

std::string g_strModuleName;
std::string g_strModuleFolder;
std::string g_strConfigFolder;
std::string g_strSystemConfigFolder;
std::string g_strDataFolder;
std::string g_strLogFolder;
int g_nLogMode = 0;
int g_nWaitTrace = 0;

std::string GetModuleFolder(std::string& stem)
{
    std::string path = ModuleFilePath();
    size_t nameStart = path.find_last_of(FolderSeparator() == '\\' ? "\\/" : "/");
    nameStart = nameStart == std::string::npos ? 0 : nameStart + 1;
    std::string folder = path.substr(0, nameStart);
    std::string name = ModuleFileStem(path.substr(nameStart));

    g_strModuleName = name;
    stem = name;
    if (folder.empty() || folder.back() != FolderSeparator())
        folder += FolderSeparator();
    return folder;
}

static std::string WithSeparator(std::string folder)
{
    if (!folder.empty() && folder.back() != '/' && folder.back() != FolderSeparator())
        folder += FolderSeparator();
    return folder;
}

// The folder and the ones above it that are missing.
static void CreateFolders(const std::string& path)
{
    for (size_t at = path.find_first_of("/\\", 1); at != std::string::npos;
         at = path.find_first_of("/\\", at + 1))
        CreateFolder(path.substr(0, at));
    CreateFolder(path);
}

void LogInit()
{
    if (!g_strLogFolder.empty())
        return;
    std::string stem;
    g_strModuleFolder = GetModuleFolder(stem);
    g_strDataFolder = Format("%s%s", g_strModuleFolder.c_str(), g_strModuleName.c_str());
    // Beside the library is the rule wherever it has a config folder (and always on Windows);
    // an installed library without one uses the system's and the user's folders.
    InstalledFolders installed;
    if (!IsFolder(g_strModuleFolder + "config"))
        installed = FindInstalledFolders();
    const std::string configFolder = EnvironmentText("VARNIK_CONFIG_DIR");
    const std::string logFolder = EnvironmentText("VARNIK_LOG_DIR");
    g_strSystemConfigFolder.clear();
    if (!configFolder.empty()) {
        g_strConfigFolder = WithSeparator(configFolder);
    } else if (!installed.userConfig.empty()) {
        g_strConfigFolder = installed.userConfig;
        g_strSystemConfigFolder = installed.systemConfig;
    } else {
        g_strConfigFolder = Format("%sconfig/", g_strModuleFolder.c_str());
    }
    ReadLogSwitch();
    std::string log = !logFolder.empty() ? logFolder : installed.log;
    if (!log.empty()) {
        while (log.size() > 1 && (log.back() == '/' || log.back() == FolderSeparator()))
            log.pop_back();
        g_strLogFolder = log;
        if (g_nLogMode != 0)
            CreateFolders(g_strLogFolder);
        return;
    }
    g_strLogFolder = Format("%sLog", g_strModuleFolder.c_str());
    if (g_nLogMode != 0)
        CreateFolder(g_strLogFolder);
    g_strLogFolder = Format("%sLog/%s", g_strModuleFolder.c_str(), g_strModuleName.c_str());
    if (g_nLogMode != 0)
        CreateFolder(g_strLogFolder);
}

std::string ConfigFilePath(const char* name)
{
    std::string path = g_strConfigFolder + name;
    if (!g_strSystemConfigFolder.empty() && !PathExists(path) &&
        PathExists(g_strSystemConfigFolder + name))
        return g_strSystemConfigFolder + name;
    return path;
}

void PrepareConfigFolder()
{
    // Only the user's folder of an installed library is made; a missing config/ beside the
    // library stays missing, as it always has.
    if (!g_strSystemConfigFolder.empty() && !IsFolder(g_strConfigFolder))
        CreateFolders(g_strConfigFolder.substr(0, g_strConfigFolder.size() - 1));
}

static std::string TimeStamp(const LocalTime& time)
{
    return Format("%02i/%02i/%04i %02i:%02i:%02i", time.day, time.month, time.year, time.hour,
                  time.minute, time.second);
}

std::string FormatLogLine(const LocalTime& time, const char* text)
{
    std::string message = text != nullptr ? text : "";
    std::string stamp = TimeStamp(time);
    // A mark at the very start is left alone; one further in replaces every mark.
    static const std::string mark = "#TIME#";
    size_t found = message.find(mark);
    if (found != std::string::npos && found > 0) {
        for (size_t at = found; at != std::string::npos; at = message.find(mark, at + stamp.size()))
            message.replace(at, mark.size(), stamp);
    }
    return stamp + "\t" + message + "\r\n";
}

std::string LogFileName(const std::string& logFolder, const LocalTime& time)
{
    return Format("%s/%04i%02i%02i.log", logFolder.c_str(), time.year, time.month, time.day);
}

namespace {

// A signal handler may run DeferLog: nothing here may hide a lock.
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<const char*>::is_always_lock_free,
              "deferred log lines need lock-free atomics");
std::atomic<const char*> g_deferredText{nullptr};
std::atomic<int> g_deferredCount{0};

void WriteLogNow(const char* text)
{
    LocalTime now = CurrentLocalTime();  // one reading: stamp and file name share the date
    LogInit();
    if (g_nLogMode == 0)
        return;
    std::string line = FormatLogLine(now, text);
    AppendToFile(LogFileName(g_strLogFolder, now), line.data(), line.size());
}

}  // namespace

void DeferLog(const char* text)
{
    g_deferredText.store(text);
    g_deferredCount.fetch_add(1);
}

void FlushDeferredLog()
{
    if (g_deferredCount.load() == 0)
        return;
    for (int count = g_deferredCount.exchange(0); count > 0; --count)
        WriteLogNow(g_deferredText.load());
}

void WriteLog(const char* text)
{
    FlushDeferredLog();
    WriteLogNow(text);
}

std::string BytesToHex(const void* bytes, int count)
{
    const unsigned char* data = static_cast<const unsigned char*>(bytes);
    size_t length = count < 1 ? std::char_traits<char>::length(static_cast<const char*>(bytes))
                              : static_cast<size_t>(count);
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(length * 3);
    for (size_t i = 0; i < length; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0F];
        text += ':';
    }
    if (!text.empty())
        text.pop_back();
    return text;
}
