#include "LibraryLoader.h"

#include <windows.h>

const char* LibraryFileName()
{
    return "Varnik.dll";
}

std::string ExecutableFolder()
{
    char path[MAX_PATH];
    DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        return std::string();
    std::string folder(path, length);
    size_t separator = folder.find_last_of("\\/");
    return separator == std::string::npos ? std::string() : folder.substr(0, separator + 1);
}

namespace {

std::string SystemErrorText(DWORD code)
{
    char* text = nullptr;
    DWORD length = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                      FORMAT_MESSAGE_IGNORE_INSERTS,
                                  nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string result;
    if (length && text) {
        result.assign(text, length);
        while (!result.empty() && (result.back() == '\r' || result.back() == '\n' ||
                                   result.back() == ' ' || result.back() == '.'))
            result.pop_back();
    }
    if (text)
        LocalFree(text);
    return result + " (error " + std::to_string(code) + ")";
}

} // namespace

LibraryHandle OpenLibraryFile(const std::string& path, std::string& usedPath,
                              std::string& error)
{
    // A full path with backslashes: LoadLibraryA searches the system folders for a bare name
    // and is not reliable with forward slashes.
    char full[MAX_PATH];
    DWORD length = GetFullPathNameA(path.c_str(), MAX_PATH, full, nullptr);
    usedPath = (length > 0 && length < MAX_PATH) ? std::string(full, length) : path;
    HMODULE library = LoadLibraryA(usedPath.c_str());
    if (!library)
        error = SystemErrorText(GetLastError());
    return reinterpret_cast<LibraryHandle>(library);
}

ExportAddress FindLibraryExport(LibraryHandle library, const char* name)
{
    // void(*)(void) is the generic function pointer type that FARPROC casts to quietly.
    return reinterpret_cast<ExportAddress>(GetProcAddress(static_cast<HMODULE>(library), name));
}

void CloseLibraryFile(LibraryHandle library)
{
    if (library)
        FreeLibrary(static_cast<HMODULE>(library));
}

std::string LibraryFileVersion(const std::string& path)
{
    DWORD ignored = 0;
    DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
    if (size == 0)
        return std::string();
    std::string record(size, '\0');
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoA(path.c_str(), 0, size, &record[0]) ||
        !VerQueryValueA(&record[0], "\\", reinterpret_cast<void**>(&info), &length) || !info)
        return std::string();
    return std::to_string(HIWORD(info->dwFileVersionMS)) + "." +
           std::to_string(LOWORD(info->dwFileVersionMS)) + "." +
           std::to_string(HIWORD(info->dwFileVersionLS)) + "." +
           std::to_string(LOWORD(info->dwFileVersionLS));
}
