#include "LibraryLoader.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

const char* LibraryFileName()
{
    return "libvarnik.so";
}

std::string ExecutableFolder()
{
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return std::string();
    std::string folder(path, static_cast<size_t>(length));
    size_t slash = folder.rfind('/');
    return slash == std::string::npos ? std::string() : folder.substr(0, slash + 1);
}

LibraryHandle OpenLibraryFile(const std::string& path, std::string& usedPath,
                              std::string& error)
{
    // dlopen takes a name without a slash as a request to search the library path; "./"
    // keeps it a file in the current folder.
    usedPath = path.find('/') == std::string::npos ? "./" + path : path;
    dlerror();
    void* library = dlopen(usedPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* reason = dlerror();
        error = reason ? reason : "dlopen failed";
        // dlerror starts with the path, which the caller prints already.
        if (error.compare(0, usedPath.size() + 2, usedPath + ": ") == 0)
            error.erase(0, usedPath.size() + 2);
    }
    return library;
}

ExportAddress FindLibraryExport(LibraryHandle library, const char* name)
{
    return reinterpret_cast<ExportAddress>(dlsym(library, name));
}

void CloseLibraryFile(LibraryHandle library)
{
    if (library)
        dlclose(library);
}

std::string LibraryFileVersion(const std::string& path)
{
    char* real = realpath(path.c_str(), nullptr);
    if (!real)
        return std::string();
    std::string file(real);
    free(real);
    size_t at = file.rfind(".so.");
    return at == std::string::npos || file.find('/', at) != std::string::npos
               ? std::string()
               : file.substr(at + 4);
}
