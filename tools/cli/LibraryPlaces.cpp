#include "LibraryPlaces.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#ifndef _WIN32
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string ReadText(const fs::path& path)
{
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return std::string();
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

struct Places {
    fs::path config;        // where varnik.json is written
    fs::path systemConfig;  // read where `config` lacks a file; empty if none
    fs::path log;           // the folder of the daily log
};

Places FindPlaces(const fs::path& library)
{
    std::error_code error;
    const fs::path folder = fs::weakly_canonical(library, error).parent_path();
    std::string stem = library.filename().string();
    std::smatch shared;
    if (std::regex_match(stem, shared, std::regex("(.+)\\.so(\\.[0-9]+)*")))
        stem = shared[1];
    else
        stem = library.stem().string();

    Places places{folder / "config", {}, folder / "Log" / stem};
#ifndef _WIN32
    if (!fs::is_directory(folder / "config", error)) {
        auto user = [](const char* variable, const char* fallback) {
            std::string base = Environment(variable);
            if (base.empty() || base[0] != '/')
                base = Environment("HOME") + "/" + fallback;
            return fs::path(base) / "varnik";
        };
        places.config = user("XDG_CONFIG_HOME", ".config");
        places.systemConfig = "/etc/varnik";
        const bool system = fs::is_directory("/var/log/varnik", error) &&
                            access("/var/log/varnik", W_OK | X_OK) == 0;
        places.log = system ? fs::path("/var/log/varnik") : user("XDG_STATE_HOME", ".local/state");
    }
#endif
    if (!Environment("VARNIK_CONFIG_DIR").empty()) {
        places.config = Environment("VARNIK_CONFIG_DIR");
        places.systemConfig.clear();
    }
    if (!Environment("VARNIK_LOG_DIR").empty())
        places.log = Environment("VARNIK_LOG_DIR");
    return places;
}

}  // namespace

void ReportUnwrittenFiles(const std::string& libraryPath, int savedPort, std::ostream& err)
{
    const Places places = FindPlaces(libraryPath);
    if (savedPort >= 0) {
        const fs::path file = places.config / "varnik.json";
        const std::regex saved("\"port\"\\s*:\\s*" + std::to_string(savedPort) + "\\b");
        if (!std::regex_search(ReadText(file), saved))
            err << "varnik: the port was found, but the library could not save it in "
                << file.string() << "\n";
    }
    fs::path debug = places.config / "debug.json";
    std::error_code error;
    if (!places.systemConfig.empty() && !fs::exists(debug, error))
        debug = places.systemConfig / "debug.json";
    std::smatch mode;
    const std::string switches = ReadText(debug);
    if (!std::regex_search(switches, mode, std::regex("\"mode\"\\s*:\\s*(-?[0-9]+)")) ||
        std::atoi(mode[1].str().c_str()) == 0)
        return;
    // With the log on the library writes a line at its start, so today's file must be there.
    std::time_t now = std::time(nullptr);
    char name[16];
    std::strftime(name, sizeof name, "%Y%m%d.log", std::localtime(&now));
    if (!fs::exists(places.log / name, error))
        err << "varnik: the library's log is switched on but could not be written in "
            << places.log.string() << "\n";
}

namespace {

#ifndef _WIN32
// Who has `device` open, from the tty's lock file or else the descriptors in /proc: "" if
// nobody that this user may see.
std::string Holder(const fs::path& device)
{
    const std::string lockName = "LCK.." + device.filename().string();
    for (const char* folder : {"/var/lock/", "/run/lock/"}) {
        std::string pid = ReadText(fs::path(folder) / lockName);
        pid.erase(0, pid.find_first_not_of(" \t"));
        pid.erase(pid.find_last_not_of(" \t\r\n") + 1);
        if (!pid.empty() && pid != std::to_string(getpid()))
            return pid;
    }
    DIR* processes = opendir("/proc");
    if (!processes)
        return std::string();
    std::string found;
    while (dirent* entry = readdir(processes)) {
        const std::string pid = entry->d_name;
        if (pid.find_first_not_of("0123456789") != std::string::npos ||
            pid == std::to_string(getpid()))
            continue;
        std::error_code error;
        for (fs::directory_iterator fd("/proc/" + pid + "/fd", error), end; !error && fd != end;
             fd.increment(error)) {
            std::error_code linkError;
            if (fs::read_symlink(fd->path(), linkError) == device) {
                found = pid;
                break;
            }
        }
        if (!found.empty())
            break;
    }
    closedir(processes);
    return found;
}
#endif

}  // namespace

std::string ExplainPortFailure(const std::string& libraryPath, int port)
{
#ifdef _WIN32
    (void)libraryPath;
    (void)port;
    return std::string();
#else
    const Places places = FindPlaces(libraryPath);
    std::error_code error;
    if (port <= 0) {
        fs::path file = places.config / "varnik.json";
        if (!places.systemConfig.empty() && !fs::exists(file, error))
            file = places.systemConfig / "varnik.json";
        const std::string json = ReadText(file);
        std::smatch number;
        if (std::regex_search(json, number, std::regex("\"port\"\\s*:\\s*([0-9]+)")))
            port = std::atoi(number[1].str().c_str());
        if (port <= 0) {
            if (json.empty())
                return file.string() + " is missing or empty: no port is set (try checkport N)";
            return file.string() + " sets no port" +
                   (json.find("\"name\"") != std::string::npos
                        ? ", and no port's device matched its \"name\""
                        : " (try checkport N)");
        }
    }
    const fs::path link = places.config / ("COM" + std::to_string(port));
    const std::string tried = "tried " + link.string() + ": ";
    struct stat info;
    if (lstat(link.c_str(), &info) != 0)
        return tried + "it does not exist (link it to the terminal's tty, e.g. ln -s "
                       "/dev/ttyUSB0 " + link.string() + ")";
    const fs::path target = fs::canonical(link, error);
    if (error)
        return tried + "it is a dangling link to " + fs::read_symlink(link, error).string();
    const std::string leads = target == link ? "" : " (" + target.string() + ")";
    if (access(target.c_str(), R_OK | W_OK) != 0)
        return tried + "no permission to read and write it" + leads +
               "; the user needs the device's group, e.g. dialout";
    const std::string pid = Holder(target);
    if (!pid.empty()) {
        std::string name = ReadText("/proc/" + pid + "/comm");
        name.erase(name.find_last_not_of("\n") + 1);
        if (name == "pcscd")
            return tried + "it" + leads + " is held by pcscd (process " + pid +
                   "), whose reader driver serves the terminal: use varnik pcsc, or stop pcscd";
        return tried + "it" + leads + " is held by process " + pid +
               (name.empty() ? "" : " (" + name + ")");
    }
    return tried + "it" + leads + " looks free; the library's log tells why it would not open";
#endif
}
