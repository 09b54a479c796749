// The daily log: one line per event, "DD/MM/YYYY hh:mm:ss<TAB>text<CR><LF>", appended to
// Log/<module name>/YYYYMMDD.log beside the library while debug.json switches it on.
#pragma once

#include <string>

#include "platform/Platform.h"

extern std::string g_strModuleName;    // file name of the library without folder or extension
extern std::string g_strModuleFolder;  // folder of the library, with its trailing separator
// Where the configuration and the log are (LogInit decides, in this order):
//   VARNIK_CONFIG_DIR, VARNIK_LOG_DIR   the environment names either folder;
//   <library folder>/config/            the rule where it exists, and always on Windows, with
//                                       the log in <library folder>/Log/<module name>;
//   an installed library                (no config/ beside it) reads the user's folder, then
//                                       the system's (see InstalledFolders), and logs to
//                                       /var/log/varnik or the user's state folder.
extern std::string g_strConfigFolder;        // g_strModuleFolder + "config/", as above
extern std::string g_strSystemConfigFolder;  // "/etc/varnik/" for an installed library, else empty
extern std::string g_strDataFolder;          // g_strModuleFolder + g_strModuleName
extern std::string g_strLogFolder;           // g_strModuleFolder + "Log/" + g_strModuleName
extern int g_nLogMode;                 // 0: off, anything else: on
// debug.json's "waits": when non-zero (and the log is on) the port logs which kind of watch its
// waits use, so that a test can tell the event wait from its fall-backs. Off for users.
extern int g_nWaitTrace;

// Sets the folder strings and reads the log switch, once per process.
void LogInit();
// A configuration file (or COM<N> link) by name: in g_strConfigFolder, or else in
// g_strSystemConfigFolder where only that one has it.
std::string ConfigFilePath(const char* name);
// Creates the user's configuration folder of an installed library (and what is missing above
// it) before a file is written there; does nothing for any other folder.
void PrepareConfigFolder();
std::string GetModuleFolder(std::string& stem);

// Writes any deferred lines first, so that each stands where it was asked for.
void WriteLog(const char* text);
inline void WriteLog(const std::string& text) { WriteLog(text.c_str()); }

// For a caller that must not take locks (a signal handler): asks for `text`, a string with
// static storage, to be logged by the next thread that logs or flushes. Lock-free and
// async-signal-safe. One such text in the library: the cancel's line.
void DeferLog(const char* text);
// Writes the lines that DeferLog asked for; a waiting call runs it when a cancel wakes it.
void FlushDeferredLog();

// "02:34:03" for the bytes 02 34 03. A count below 1 goes up to the first zero byte.
std::string BytesToHex(const void* bytes, int count);

// The pieces of WriteLog, apart so that they can be checked without a clock.
std::string FormatLogLine(const LocalTime& time, const char* text);
std::string LogFileName(const std::string& logFolder, const LocalTime& time);
