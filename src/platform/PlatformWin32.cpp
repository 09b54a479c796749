// Windows side of the platform interface. Narrow (ANSI) Win32 calls throughout: every string
// the library handles is a narrow zero-terminated one.
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include "platform/Platform.h"

// --- waiting -----------------------------------------------------------------------------

void AlertableSleep(int ms)
{
    // Alertable, so that a host's queued APC (which may call PosCancel) runs during the sleep.
    SleepEx(ms > 0 ? static_cast<DWORD>(ms) : 0, TRUE);
}

void PumpOneMessage()
{
    MSG message;
    if (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageA(&message);
    }
}

int32_t MillisecondClock()
{
    // Monotonic, unlike the wall clock; clock() would count process CPU time on some runtimes.
    return static_cast<int32_t>(static_cast<uint32_t>(GetTickCount64()));
}

int64_t MicrosecondClock()
{
    static const int64_t frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return static_cast<int64_t>(value.QuadPart);
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    int64_t ticks = static_cast<int64_t>(now.QuadPart);
    return ticks / frequency * 1000000 + ticks % frequency * 1000000 / frequency;
}

// Auto-reset: the wait that it ends takes it back by ending. Creating an event is allowed
// while the library loads; it is closed when the library unloads.
static const struct CancelWake {
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    ~CancelWake()
    {
        if (event != nullptr) {
            CloseHandle(event);
        }
    }
} g_cancelWake;

void RaiseCancelWake()
{
    if (g_cancelWake.event != nullptr) {
        SetEvent(g_cancelWake.event);
    }
}

void ClearCancelWake()
{
    if (g_cancelWake.event != nullptr) {
        ResetEvent(g_cancelWake.event);
    }
}

PortHandle CancelWakeHandle()
{
    return g_cancelWake.event;
}

// --- where we are ------------------------------------------------------------------------

std::string ModuleFilePath()
{
    // The module that holds this very function: the library, not the host's executable.
    HMODULE module = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCSTR>(&ModuleFilePath), &module)) {
        module = nullptr;
    }
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(module, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        // Failed, or cut short without a terminator: say nothing rather than a wrong path.
        return std::string();
    }
    return std::string(path, length);
}

char FolderSeparator()
{
    return '\\';
}

std::string ModuleFileStem(const std::string& fileName)
{
    size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? fileName : fileName.substr(0, dot);
}

// --- files and folders -------------------------------------------------------------------

bool CreateFolder(const std::string& path)
{
    return CreateDirectoryA(path.c_str(), nullptr) != 0;
}

bool IsFolder(const std::string& path)
{
    DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool PathExists(const std::string& path)
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string EnvironmentText(const char* name)
{
    char value[4096];
    DWORD length = GetEnvironmentVariableA(name, value, sizeof value);
    return length > 0 && length < sizeof value ? std::string(value, length) : std::string();
}

// The library's folder is the only place on Windows, as its hosts expect.
InstalledFolders FindInstalledFolders()
{
    return InstalledFolders();
}

namespace {

// Writes all of `size` bytes, in pieces a DWORD can count.
bool WriteAll(HANDLE file, const void* data, size_t size)
{
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        DWORD piece = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!WriteFile(file, bytes, piece, &written, nullptr) || written == 0) {
            return false;
        }
        bytes += written;
        size -= written;
    }
    return true;
}

}  // namespace

bool ReadWholeFile(const std::string& path, std::string& content)
{
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    std::string data;
    bool ok = true;
    char chunk[4096];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(file, chunk, sizeof chunk, &got, nullptr)) {
            ok = false;
            break;
        }
        if (got == 0) {
            break;
        }
        data.append(chunk, got);
    }
    CloseHandle(file);
    if (ok) {
        content.swap(data);
    }
    return ok;
}

bool WriteWholeFile(const std::string& path, const void* data, size_t size)
{
    HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    bool ok = WriteAll(file, data, size);
    CloseHandle(file);
    return ok;
}

bool ReplaceWholeFile(const std::string& path, const void* data, size_t size)
{
    const std::string temporary = path + ".tmp";
    HANDLE file = CreateFileA(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    bool ok = WriteAll(file, data, size) && FlushFileBuffers(file) != 0;
    ok = CloseHandle(file) != 0 && ok;
    if (ok && MoveFileExA(temporary.c_str(), path.c_str(),
                          MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0) {
        return true;
    }
    DeleteFileA(temporary.c_str());
    return false;
}

bool AppendToFile(const std::string& path, const void* data, size_t size)
{
    // No sharing: a second writer at the same instant fails its open and drops its text.
    HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    LARGE_INTEGER zero;
    zero.QuadPart = 0;
    bool ok = SetFilePointerEx(file, zero, nullptr, FILE_END) != 0 && WriteAll(file, data, size);
    CloseHandle(file);
    return ok;
}

std::vector<std::string> ListFolderFiles(const std::string& folder)
{
    std::vector<std::string> names;
    std::string pattern = folder;
    if (!pattern.empty() && pattern.back() != '\\' && pattern.back() != '/') {
        pattern += '\\';
    }
    pattern += '*';
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            names.emplace_back(found.cFileName);
        }
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return names;
}

std::vector<FolderEntry> SearchFolder(const std::string& folder)
{
    std::vector<FolderEntry> entries;
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((folder + "\\*.*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return entries;
    }
    do {
        std::string name = found.cFileName;
        // dwReserved0 holds the reparse tag; other reparse points (a cloud placeholder, say)
        // are the folders or files they stand for.
        const bool link = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                          (found.dwReserved0 == IO_REPARSE_TAG_SYMLINK ||
                           found.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
        if (name != "." && name != "..") {
            entries.push_back(
                FolderEntry{name, (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, link});
        }
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return entries;
}

std::FILE* OpenPlainFile(const std::string& path, uint64_t& size)
{
    // Shared for writing as fopen shares, so that a file being written (the log) can be sent.
    HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    BY_HANDLE_FILE_INFORMATION info;
    LARGE_INTEGER length;
    int fd = -1;
    if (GetFileType(handle) == FILE_TYPE_DISK && GetFileInformationByHandle(handle, &info) &&
        (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && GetFileSizeEx(handle, &length)) {
        fd = _open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_RDONLY | _O_BINARY);
    }
    if (fd < 0) {
        CloseHandle(handle);
        return nullptr;
    }
    std::FILE* file = _fdopen(fd, "rb");
    if (file == nullptr) {
        _close(fd);  // closes the handle too
        return nullptr;
    }
    size = static_cast<uint64_t>(length.QuadPart);
    return file;
}

// --- text ------------------------------------------------------------------------------

namespace {

std::string Recode(const std::string& text, UINT from, UINT to)
{
    if (text.empty()) {
        return std::string();
    }
    // Explicit lengths, so that an embedded NUL survives like any other character.
    int length = static_cast<int>(text.size());
    int wideLength = MultiByteToWideChar(from, 0, text.data(), length, nullptr, 0);
    if (wideLength <= 0) {
        return std::string();
    }
    std::wstring wide(static_cast<size_t>(wideLength), L'\0');
    MultiByteToWideChar(from, 0, text.data(), length, &wide[0], wideLength);
    int narrowLength = WideCharToMultiByte(to, 0, wide.data(), wideLength, nullptr, 0, nullptr,
                                           nullptr);
    if (narrowLength <= 0) {
        return std::string();
    }
    std::string narrow(static_cast<size_t>(narrowLength), '\0');
    WideCharToMultiByte(to, 0, wide.data(), wideLength, &narrow[0], narrowLength, nullptr,
                        nullptr);
    return narrow;
}

}  // namespace

std::string Utf8ToAnsi(const std::string& text)
{
    return Recode(text, CP_UTF8, CP_ACP);
}

std::string AnsiToUtf8(const std::string& text)
{
    return Recode(text, CP_ACP, CP_UTF8);
}

// --- time --------------------------------------------------------------------------------

LocalTime CurrentLocalTime()
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    LocalTime time;
    time.year = now.wYear;
    time.month = now.wMonth;
    time.day = now.wDay;
    time.hour = now.wHour;
    time.minute = now.wMinute;
    time.second = now.wSecond;
    return time;
}

// --- the user ----------------------------------------------------------------------------

void ShowNotice(const std::string& text)
{
    MessageBoxA(nullptr, text.c_str(), "", MB_OK);
}

void ShowUnloggedNotice(const std::string& text)
{
    ShowNotice(text);
}

// --- lock --------------------------------------------------------------------------------

PlatformLock::PlatformLock() : m_impl(new CRITICAL_SECTION)
{
    InitializeCriticalSection(static_cast<CRITICAL_SECTION*>(m_impl));
}

PlatformLock::~PlatformLock()
{
    DeleteCriticalSection(static_cast<CRITICAL_SECTION*>(m_impl));
    delete static_cast<CRITICAL_SECTION*>(m_impl);
}

void PlatformLock::Enter()
{
    EnterCriticalSection(static_cast<CRITICAL_SECTION*>(m_impl));
}

void PlatformLock::Leave()
{
    LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(m_impl));
}
