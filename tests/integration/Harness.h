// What every integration test stands on: a fresh folder with its own copy of the library and
// config/, the library loaded by path, and the terminal simulator on a pseudo-terminal.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "varnik.h"

using Bytes = std::vector<uint8_t>;

Bytes HexBytes(const std::string& hex);  // "02 34:03" -> {0x02, 0x34, 0x03}
std::string Hex(const Bytes& bytes);     // {0x02, 0x34} -> "02 34"

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
    std::string PortLink(int port) const;

    void WriteConfig(const std::string& name, const std::string& content) const;
    std::string ReadConfig(const std::string& name) const;  // "" if missing
    void EnableLog() const { WriteConfig("debug.json", "{\"mode\":1}"); }
    void UsePort(int port) const;  // varnik.json {"port":N}
    // Today's log file, and whether any Log folder exists.
    std::string LogText() const;
    bool HasLogFolder() const;

private:
    std::string m_folder;
};

// The terminal simulator, started with extra options; its link goes where the library looks.
class Simulator {
public:
    Simulator(const std::string& link, std::vector<std::string> options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    const std::string& PtyPath() const { return m_pty; }
    // Everything the host sent so far.
    Bytes Received() const;
    // Waits until at least `count` bytes arrived (false after `ms`).
    bool WaitReceived(size_t count, int ms = 3000) const;

private:
    int m_pid = -1;
    std::string m_pty;
    std::string m_record;
    std::string m_link;
};

// The library, loaded by path with dlopen.
class Library {
public:
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void* Symbol(const char* name) const;
    template <typename Function>
    Function* Get(const char* name) const { return reinterpret_cast<Function*>(Symbol(name)); }

private:
    void* m_handle;
};

// Counts the (non-overlapping) occurrences of a byte sequence.
size_t CountOf(const Bytes& haystack, const Bytes& needle);
bool Contains(const std::string& text, const std::string& part);
// Runs a command line, returns its exit status and captures standard output.
int RunCommand(const std::string& command, std::string* output = nullptr);
