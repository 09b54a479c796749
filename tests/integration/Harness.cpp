#include "Harness.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

Bytes Filled(size_t size, const Bytes& head)
{
    Bytes bytes(std::max(size, head.size()), Unwritten);
    std::copy(head.begin(), head.end(), bytes.begin());
    return bytes;
}

size_t CountOf(const Bytes& haystack, const Bytes& needle)
{
    size_t count = 0;
    auto at = haystack.begin();
    while (!needle.empty() &&
           (at = std::search(at, haystack.end(), needle.begin(), needle.end())) != haystack.end()) {
        ++count;
        at += static_cast<long>(needle.size());
    }
    return count;
}

int RunCommand(const std::string& command, std::string* output)
{
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return -1;
    char block[4096];
    size_t count;
    while ((count = fread(block, 1, sizeof block, pipe)) > 0) {
        if (output != nullptr)
            output->append(block, count);
    }
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

// --- Workspace -----------------------------------------------------------------------------

Workspace::Workspace()
{
    char pattern[] = "/tmp/varnik-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    m_folder = pattern;
    mkdir(ConfigFolder().c_str(), 0777);
    std::ifstream source(VARNIK_LIBRARY_PATH, std::ios::binary);
    std::ofstream(LibraryPath(), std::ios::binary) << source.rdbuf();
}

Workspace::~Workspace()
{
    RunCommand("rm -rf '" + m_folder + "'");
}

std::string Workspace::LogPath() const
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char name[32];
    std::strftime(name, sizeof name, "/%Y%m%d.log", &local);
    return m_folder + "/Log/libvarnik" + name;
}

bool Workspace::HasLogFolder() const
{
    struct stat info{};
    return stat((m_folder + "/Log").c_str(), &info) == 0;
}

// --- Simulator -----------------------------------------------------------------------------

Simulator::Simulator(const std::string& link, Options options) : m_record(link + ".received")
{
    std::string command = "echo $$; exec '" SIMULATOR_PATH "' --quiet --link '" + link + "' --record '" +
                          m_record + "'";
    for (const std::string& option : options)
        command += " '" + option + "'";
    m_output = popen(command.c_str(), "r");
    // The shell's number, which exec hands on, then the pseudo-terminal: the link exists by then.
    char line[256];
    if (m_output == nullptr || std::fscanf(m_output, "%d", &m_pid) != 1 ||
        std::fgets(line, sizeof line, m_output) == nullptr || std::fgets(line, sizeof line, m_output) == nullptr)
        throw std::runtime_error("simulator did not start");
}

Simulator::~Simulator()
{
    kill(m_pid, SIGTERM);
    pclose(m_output);
    unlink(m_record.c_str());
}

Bytes Simulator::Received() const
{
    const std::string data = ReadFile(m_record);
    return Bytes(data.begin(), data.end());
}

bool Simulator::WaitReceived(size_t count, int ms) const
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (Received().size() < count) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// --- Library and Session -------------------------------------------------------------------

Library::Library(const std::string& path) : m_handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (m_handle == nullptr)
        throw std::runtime_error(std::string("dlopen failed: ") + dlerror());
}

int CallExport(const Library& library, const std::string& name, uint8_t* buffer, int mode)
{
    if (name == "ThaiIDRead")
        return library.Get<int(char*, int)>("ThaiIDRead")(reinterpret_cast<char*>(buffer), mode);
    if (name == "PinLoadMK" || name == "PinReadKey")
        return library.Get<int(unsigned char*)>(name.c_str())(buffer);
    return library.Get<int(char*)>(name.c_str())(reinterpret_cast<char*>(buffer));
}

// The folder is ready before the simulator starts and the library loads.
static std::string Prepared(const Workspace& folder, const std::string& config)
{
    folder.EnableLog();
    if (!config.empty())
        folder.WriteConfig("varnik.json", config);
    return folder.PortLink(SessionPort);
}

Session::Session(Options options, const std::string& config)
    : terminal(Prepared(folder, config), std::move(options)), library(folder.LibraryPath())
{
}
