#include "LibraryPlaces.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#ifndef _WIN32
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
