// What every integration test stands on: a fresh folder with its own copy of the library and
// config/, the library loaded by path, and the terminal simulator on a pseudo-terminal.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Hex.h"
#include "varnik.h"

using Bytes = std::vector<uint8_t>;
using Options = std::vector<std::string>;

constexpr uint8_t Unwritten = 0x55;  // what a caller's buffer holds where nothing was written

// "02 34:03" -> {0x02, 0x34, 0x03}, by the simulator's own reading of hex.
inline Bytes HexBytes(const std::string& hex)
{
    Bytes bytes;
    if (!ParseHex(hex, bytes))
        throw std::invalid_argument("not hex: " + hex);
    return bytes;
}
inline std::string Hex(const Bytes& bytes) { return HexSpaced(bytes); }  // "02 34"
inline Bytes TextBytes(const std::string& text) { return Bytes(text.c_str(), text.c_str() + text.size() + 1); }
inline Bytes operator+(Bytes left, const Bytes& right) { return left.insert(left.end(), right.begin(), right.end()), left; }
// A frame written out by hand: hex head, a text with its NUL, hex tail (ETX and check byte).
inline Bytes Frame(const std::string& head, const std::string& text, const std::string& tail)
{
    return HexBytes(head) + TextBytes(text) + HexBytes(tail);
}
// `head`, then unwritten bytes up to `size` (if it is longer).
Bytes Filled(size_t size, const Bytes& head);
size_t CountOf(const Bytes& haystack, const Bytes& needle);  // non-overlapping
inline size_t CountOf(const std::string& text, const std::string& part) { return CountOf(Bytes(text.begin(), text.end()), Bytes(part.begin(), part.end())); }
inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
// Runs a command line, returns its exit status and captures standard output.
int RunCommand(const std::string& command, std::string* output = nullptr);
std::string ReadFile(const std::string& path);  // "" if missing

// A temporary folder holding a copy of the library and a config/ folder; removed at the end.
class Workspace {
public:
    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    const std::string& Folder() const { return m_folder; }
    std::string ConfigFolder() const { return m_folder + "/config/"; }
    std::string LibraryPath() const { return m_folder + "/libvarnik.so"; }
    // The COM<N> link the library opens for port N.
    std::string PortLink(int port) const { return ConfigFolder() + "COM" + std::to_string(port); }
    void WriteConfig(const std::string& name, const std::string& content) const
    {
        std::ofstream(ConfigFolder() + name, std::ios::binary) << content;
    }
    std::string ReadConfig(const std::string& name) const { return ReadFile(ConfigFolder() + name); }
    void EnableLog() const { WriteConfig("debug.json", "{\"mode\":1}"); }
    void UsePort(int port) const { WriteConfig("varnik.json", "{\"port\":" + std::to_string(port) + "}"); }
    std::string LogPath() const;   // today's log file
    std::string LogText() const { return ReadFile(LogPath()); }
    bool HasLogFolder() const;

private:
    std::string m_folder;
};

// The terminal simulator, started with extra options; its link goes where the library looks.
class Simulator {
public:
    Simulator(const std::string& link, Options options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    Bytes Received() const;  // everything the host sent so far
    // Waits until at least `count` bytes arrived (false after `ms`).
    bool WaitReceived(size_t count, int ms = 3000) const;

private:
    int m_pid = -1;
    FILE* m_output = nullptr;
    std::string m_record;
};

// The library, loaded by path with dlopen.
class Library {
public:
    explicit Library(const std::string& path);
    ~Library() { dlclose(m_handle); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void* Symbol(const char* name) const { return dlsym(m_handle, name); }
    template <typename Function>
    Function* Get(const char* name) const { return reinterpret_cast<Function*>(Symbol(name)); }

private:
    void* m_handle;
};

// Calls the export `name` that fills a caller's buffer; `mode` is ThaiIDRead's.
int CallExport(const Library& library, const std::string& name, uint8_t* buffer, int mode = 0);

constexpr int SessionPort = 7;
const std::string Port7 = "{\"port\":7}";
const Bytes VersionFrame = {0x02, 0x3B, 0x03, 0x3B};  // getVersion's request

using VoidCall = int();
using PortCall = int(int);
using TextCall = int(char*);

// A fresh folder with the log on and `config` as varnik.json ("" for none), the simulator on
// COM7 and the library loaded.
struct Session {
    Workspace folder;
    Simulator terminal;
    Library library;
    explicit Session(Options options = {}, const std::string& config = "{\"port\":7}");
    template <typename Call>
    Call* Get(const char* name) const { return library.Get<Call>(name); }
};
