// The only interface to the operating system outside the serial driver. Everything above this
// header compiles unchanged on Windows and Linux.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/PortTypes.h"

// --- waiting -----------------------------------------------------------------------------

// Sleeps for about `ms` milliseconds in a way that lets a cancel request in: an alertable
// SleepEx on Windows, a nanosleep that a signal may cut short on POSIX.
void AlertableSleep(int ms);

// Dispatches at most one pending window message of the calling thread, so that a host's
// window procedure (which may call PosCancel) runs while we poll. Nothing on POSIX.
void PumpOneMessage();

// Monotonic wall-clock milliseconds, as a signed 32-bit count.
int32_t MillisecondClock();

// Monotonic microseconds, fine enough to time the 5 ms of silence that ends a reply.
int64_t MicrosecondClock();

// --- the cancel wake-up ------------------------------------------------------------------

// PosCancel raises it; a port wait watches it beside the port, so that a cancel is served at
// once and a wait needs no periodic look. Raising is async-signal-safe on POSIX (one write to
// an eventfd) and a SetEvent on Windows. Created when the library loads.
void RaiseCancelWake();
// Takes a raised wake-up back, so that the next wait sleeps again.
void ClearCancelWake();
// What a wait watches: an eventfd, or an auto-reset event. NullPortHandle if it could not be
// created; waits then look at the cancel flag every few milliseconds instead.
PortHandle CancelWakeHandle();

// --- where we are ------------------------------------------------------------------------

// Full path of the library file itself (not of the host executable).
std::string ModuleFilePath();

// The folder separator that ends a folder string on this platform.
char FolderSeparator();

// A library's file name without its extension: "Varnik.dll" gives "Varnik"; a versioned shared
// object loses its version too, so "libvarnik.so.1" and "libvarnik.so" both give "libvarnik".
std::string ModuleFileStem(const std::string& fileName);

// Where an installed library keeps its files when its own folder has no config/. Empty strings
// on Windows, where the library's folder is the only place. Folder strings end in a separator
// except `log`, as g_strLogFolder does not.
struct InstalledFolders {
    std::string userConfig;    // $XDG_CONFIG_HOME/varnik/ (~/.config/varnik/): read first, written
    std::string systemConfig;  // /etc/varnik/: read where the user's folder lacks a file
    std::string log;           // /var/log/varnik where it is a folder we may write, else
                               // $XDG_STATE_HOME/varnik (~/.local/state/varnik)
};
InstalledFolders FindInstalledFolders();

// The value of an environment variable; empty if it is unset.
std::string EnvironmentText(const char* name);

// --- files and folders -------------------------------------------------------------------

bool CreateFolder(const std::string& path);
// True for a folder (or a link to one), and for anything at all, links followed.
bool IsFolder(const std::string& path);
bool PathExists(const std::string& path);
bool ReadWholeFile(const std::string& path, std::string& content);
// Creates or truncates the file.
bool WriteWholeFile(const std::string& path, const void* data, size_t size);
// Writes a temporary file beside `path` and renames it over `path`, so that a crash or a full
// disk leaves the old file or the new one, never a part of either.
bool ReplaceWholeFile(const std::string& path, const void* data, size_t size);
// Opens with create-if-absent, keep contents and no sharing, writes at the end, closes.
bool AppendToFile(const std::string& path, const void* data, size_t size);
// Names (not paths) of the plain files in a folder, in the order the system gives them.
std::vector<std::string> ListFolderFiles(const std::string& folder);
// One search of a folder (FindFirstFileA over "<folder>\\*.*", or readdir): every entry in the
// order the system gives, "." and ".." left out. Empty if the folder can't be searched.
struct FolderEntry {
    std::string name;
    bool folder;  // a folder, or a link that leads to one
    bool link;    // a symbolic link or junction: a walk that enters it may meet itself again
};
std::vector<FolderEntry> SearchFolder(const std::string& folder);
// Opens a plain file for binary reading, and gives its length: null for anything else (a
// folder, a device, a pipe; a pipe is never waited on for a writer) or if it can't be opened.
std::FILE* OpenPlainFile(const std::string& path, uint64_t& size);

// --- text ------------------------------------------------------------------------------

// Between UTF-8 and the system's ANSI code page (CP_ACP on Windows). POSIX systems here run
// UTF-8, so there both are the identity.
std::string Utf8ToAnsi(const std::string& text);
std::string AnsiToUtf8(const std::string& text);

// --- time --------------------------------------------------------------------------------

struct LocalTime {
    int year, month, day, hour, minute, second;
};
LocalTime CurrentLocalTime();

// --- the user ----------------------------------------------------------------------------

// A blocking notice with an OK button where the platform has one; elsewhere the log and
// standard error.
void ShowNotice(const std::string& text);
// The same notice for a caller that logs a line of its own for it: the box on Windows,
// standard error alone elsewhere, so that the log holds one line either way.
void ShowUnloggedNotice(const std::string& text);

// --- a lock for objects that guard themselves --------------------------------------------

class PlatformLock {
public:
    PlatformLock();
    ~PlatformLock();
    PlatformLock(const PlatformLock&) = delete;
    PlatformLock& operator=(const PlatformLock&) = delete;
    void Enter();
    void Leave();

private:
    void* m_impl;
};

class LockScope {
public:
    explicit LockScope(PlatformLock& lock) : m_lock(lock) { m_lock.Enter(); }
    ~LockScope() { m_lock.Leave(); }
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;

private:
    PlatformLock& m_lock;
};

// --- code patching -----------------------------------------------------------------------

// Overwrites the entry of `target` with a jump to `replacement`, so that every later call of
// `target`, through any pointer, runs `replacement`. Returns false if the page could not be
// made writable.
bool PatchJump(void* target, void* replacement);
