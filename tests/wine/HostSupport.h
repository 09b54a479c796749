// What the Wine hosts share: loading the library by path, checks that end a scenario, the
// "RUN"/"PASS"/"FAIL" report, a hidden window that cancels from inside the library's wait, a
// hook that answers the library's message boxes, and the five reader calls before SCardTransmit.
// Nothing here calls winscard.dll: the reader calls go through pointers the host supplies.
#pragma once

#include <windows.h>
#include <winscard.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "varnik.h"

// The exports' own declarations give the pointer types, with the calling convention
// (__stdcall on x86) as the library was built with.
using PosCheckPortFn = decltype(&::PosCheckPort);
using PosCancelFn = decltype(&::PosCancel);
using ReaderSelectFn = decltype(&::ReaderSelect);

void Say(const char* format, ...);
std::string Hex(const void* bytes, size_t count);

// A failed check: the scenario ends and reports `what()` as its reason.
inline void Check(bool condition, const std::string& why)
{
    if (!condition)
        throw std::runtime_error(why);
}

// Looks up a function of `module`; a missing one fails the scenario that needs it.
template <typename Fn>
Fn Resolve(HMODULE module, const char* name)
{
    FARPROC address = GetProcAddress(module, name);
    Check(address != nullptr, std::string("export not found: ") + name);
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(address));
}

struct Host {
    HMODULE library = nullptr;  // Varnik.dll, loaded by path; a scenario may free it early
    int port = 0;
    std::map<std::string, std::string> settings;

    template <typename Fn>
    Fn Get(const char* name) const { return Resolve<Fn>(library, name); }
    std::string Setting(const char* name) const;
    // PosCheckPort on the host's port, as every session starts.
    void CheckPort() const;
};

struct NamedScenario {
    const char* name;
    void (*run)(Host& host);
};

// Parses "<Varnik.dll> <COM number> [name=value ...] <scenario>...", loads the library and runs
// the scenarios in order, each between "RUN <name>" and "PASS <name>" or "FAIL <name>: why".
// Gives 0 if all passed, 1 if one failed, 2 for a usage or load error.
int HostMain(int argc, char** argv, const char* program, const std::vector<NamedScenario>& all);

// A hidden window whose WM_APP runs `cancel`, as a host's button handler would: from inside
// the library's own wait, which dispatches it.
class CancelWindow {
public:
    explicit CancelWindow(PosCancelFn cancel);
    ~CancelWindow();
    CancelWindow(const CancelWindow&) = delete;
    CancelWindow& operator=(const CancelWindow&) = delete;
    void Post();  // the cancel that the next wait of the library is to dispatch
    // What a cancelled wait must show: the message dispatched once, the cancel giving 0.
    void CheckCalledOnce() const;
    static int calls;
    static int result;

private:
    HWND window_ = nullptr;
};

// Presses OK on every message box this thread shows while it lives; their texts are kept.
class NoticeAnswerer {
public:
    NoticeAnswerer();
    ~NoticeAnswerer();
    NoticeAnswerer(const NoticeAnswerer&) = delete;
    NoticeAnswerer& operator=(const NoticeAnswerer&) = delete;
    static std::vector<std::string> notices;
};

// The reader functions before SCardTransmit in winscard.dll's order, however they were bound.
struct ReaderFunctions {
    decltype(&::SCardEstablishContext) establish;
    decltype(&::SCardStatusA) status;
    decltype(&::SCardListReadersA) listReaders;
    decltype(&::SCardDisconnect) disconnect;
    decltype(&::SCardConnectA) connect;
};

// What the five calls answered, in the order establish, list, connect, status, disconnect.
struct ReaderAnswers {
    LONG establish = -1, list = -1, connect = -1, status = -1, disconnect = -1;
    SCARDCONTEXT context = 0;
    char readers[64];
    DWORD readersCount = 0;
    SCARDHANDLE card = 0;
    DWORD connectProtocol = 0, state = 0, statusProtocol = 0, atrLength = 0;
    BYTE atr[64];
};

// Connects to "NEW6210 Reader Card" and asks its status; `withCard` runs before the disconnect.
ReaderAnswers CallReader(const ReaderFunctions& functions,
                         const std::function<void(const ReaderAnswers&)>& withCard = nullptr);
// Every one of the five reached the virtual reader that ReaderSelect puts in place.
void CheckVirtualReader(const ReaderAnswers& answers);
