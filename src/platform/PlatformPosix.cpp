// POSIX side of the platform layer. No window messages here: a cancel comes in from another
// thread or from a signal handler, and wakes the waiting call through an eventfd.
#include "platform/Platform.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include "support/Log.h"

void AlertableSleep(int ms)
{
    timespec wait{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&wait, nullptr);  // EINTR ends it early, which is what "alertable" asks for
}

void PumpOneMessage() {}

int32_t MillisecondClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    int64_t ms = static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    return static_cast<int32_t>(static_cast<uint32_t>(ms));
}

int64_t MicrosecondClock()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

// Made while the library loads, so that the first PosCancel, even one from a signal handler,
// finds it ready; closed when it unloads.
static const struct CancelWake {
    int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ~CancelWake()
    {
        if (fd >= 0)
            close(fd);
    }
} g_cancelWake;

void RaiseCancelWake()
{
    uint64_t one = 1;
    if (g_cancelWake.fd >= 0) {
        ssize_t ignored = write(g_cancelWake.fd, &one, sizeof one);  // async-signal-safe
        (void)ignored;
    }
}

void ClearCancelWake()
{
    uint64_t count = 0;
    if (g_cancelWake.fd >= 0) {
        ssize_t ignored = read(g_cancelWake.fd, &count, sizeof count);  // non-blocking
        (void)ignored;
    }
}

PortHandle CancelWakeHandle()
{
    return g_cancelWake.fd;
}

static std::string ResolveModulePath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ResolveModulePath), &info) == 0 || info.dli_fname == nullptr)
        return std::string();
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) != nullptr)
        return resolved;
    return info.dli_fname;
}

// dladdr gives the path the host handed to dlopen, relative ones included: resolved while the
// library loads, before the host can change its working folder. Nothing else of the start-up
// runs this early.
static const std::string g_modulePath = ResolveModulePath();

std::string ModuleFilePath()
{
    return g_modulePath;
}

char FolderSeparator() { return '/'; }

std::string ModuleFileStem(const std::string& fileName)
{
    // ".so" then nothing but ".<digits>" groups: the SONAME and the real name of an installed
    // library keep their log and data folders under the one stem.
    for (size_t at = fileName.find(".so"); at != std::string::npos; at = fileName.find(".so", at + 1)) {
        size_t i = at + 3;
        while (i < fileName.size() && fileName[i] == '.' && i + 1 < fileName.size() &&
               std::isdigit(static_cast<unsigned char>(fileName[i + 1]))) {
            ++i;
            while (i < fileName.size() && std::isdigit(static_cast<unsigned char>(fileName[i])))
                ++i;
        }
        if (at > 0 && i == fileName.size())
            return fileName.substr(0, at);
    }
    size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? fileName : fileName.substr(0, dot);
}

bool CreateFolder(const std::string& path) { return mkdir(path.c_str(), 0777) == 0; }

bool IsFolder(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool PathExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string EnvironmentText(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// $XDG_<kind>_HOME/varnik, or ~/<fallback>/varnik; empty without either (no home to write).
static std::string UserFolder(const char* variable, const char* fallback)
{
    std::string base = EnvironmentText(variable);
    // XDG base folders must be absolute; a relative one counts as unset.
    if (base.empty() || base[0] != '/') {
        std::string home = EnvironmentText("HOME");
        if (home.empty())
            return std::string();
        base = home + "/" + fallback;
    }
    return base + "/varnik";
}

InstalledFolders FindInstalledFolders()
{
    InstalledFolders folders;
    std::string user = UserFolder("XDG_CONFIG_HOME", ".config");
    folders.userConfig = user.empty() ? std::string() : user + "/";
    folders.systemConfig = "/etc/varnik/";
    // /var/log/varnik is made by whoever installs for the whole machine; we never create it.
    if (IsFolder("/var/log/varnik") && access("/var/log/varnik", W_OK | X_OK) == 0)
        folders.log = "/var/log/varnik";
    else
        folders.log = UserFolder("XDG_STATE_HOME", ".local/state");
    return folders;
}

bool ReadWholeFile(const std::string& path, std::string& content)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return false;
    std::string data;
    char block[65536];
    size_t count;
    bool ok = true;
    try {
        while ((count = std::fread(block, 1, sizeof block, file)) > 0)
            data.append(block, count);
    } catch (const std::bad_alloc&) {
        ok = false;
    }
    if (std::ferror(file))
        ok = false;
    std::fclose(file);
    if (ok)
        content.swap(data);
    return ok;
}

static bool WriteAll(int fd, const void* data, size_t size)
{
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t written = write(fd, bytes, size);
        if (written < 0)
            return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool WriteWholeFile(const std::string& path, const void* data, size_t size)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    bool ok = WriteAll(fd, data, size);
    close(fd);
    return ok;
}

bool ReplaceWholeFile(const std::string& path, const void* data, size_t size)
{
    const std::string temporary = path + ".tmp";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    bool ok = WriteAll(fd, data, size) && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (ok && rename(temporary.c_str(), path.c_str()) == 0)
        return true;
    unlink(temporary.c_str());
    return false;
}

bool AppendToFile(const std::string& path, const void* data, size_t size)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    // No sharing, as on Windows: a writer that finds the file taken drops its line.
    bool ok = flock(fd, LOCK_EX | LOCK_NB) == 0 && lseek(fd, 0, SEEK_END) >= 0 && WriteAll(fd, data, size);
    close(fd);
    return ok;
}

std::vector<std::string> ListFolderFiles(const std::string& folder)
{
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr)
        return names;
    while (dirent* entry = readdir(dir)) {
        std::string path = folder + "/" + entry->d_name;
        struct stat info{};
        if (stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode))
            names.push_back(entry->d_name);
    }
    closedir(dir);
    return names;
}

std::vector<FolderEntry> SearchFolder(const std::string& folder)
{
    std::vector<FolderEntry> entries;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr)
        return entries;
    while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string path = folder + "/" + name;
        bool isFolder = entry->d_type == DT_DIR;
        bool isLink = entry->d_type == DT_LNK;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat info{};
            isLink = lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
        }
        if (entry->d_type == DT_UNKNOWN || isLink) {
            // As FindFirstFileA does, a link counts as what it leads to.
            struct stat info{};
            isFolder = stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
        }
        entries.push_back(FolderEntry{name, isFolder, isLink});
    }
    closedir(dir);
    return entries;
}

std::FILE* OpenPlainFile(const std::string& path, uint64_t& size)
{
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat info{};
    int flags = fcntl(fd, F_GETFL);
    std::FILE* file = nullptr;
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && flags >= 0 &&
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0)
        file = fdopen(fd, "rb");
    if (file == nullptr) {
        close(fd);
        return nullptr;
    }
    size = static_cast<uint64_t>(info.st_size);
    return file;
}

std::string Utf8ToAnsi(const std::string& text) { return text; }
std::string AnsiToUtf8(const std::string& text) { return text; }

LocalTime CurrentLocalTime()
{
    time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return LocalTime{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min, local.tm_sec};
}

void ShowNotice(const std::string& text)
{
    WriteLog(text);
    ShowUnloggedNotice(text);
}

void ShowUnloggedNotice(const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
}

PlatformLock::PlatformLock() : m_impl(new pthread_mutex_t)
{
    pthread_mutex_init(static_cast<pthread_mutex_t*>(m_impl), nullptr);
}

PlatformLock::~PlatformLock()
{
    pthread_mutex_destroy(static_cast<pthread_mutex_t*>(m_impl));
    delete static_cast<pthread_mutex_t*>(m_impl);
}

void PlatformLock::Enter() { pthread_mutex_lock(static_cast<pthread_mutex_t*>(m_impl)); }
void PlatformLock::Leave() { pthread_mutex_unlock(static_cast<pthread_mutex_t*>(m_impl)); }
