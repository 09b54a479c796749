// A small Windows host for Varnik.dll, run under Wine against the terminal simulator. It loads
// the library by path as a point-of-sale application would, resolves the exports by name and
// runs the named scenarios in order.
//
//   wine_host.exe <path of Varnik.dll> <COM number> [name=value ...] <scenario> [<scenario> ...]
//
// Settings (name=value) may stand anywhere among the scenarios:
//   version=TEXT   the version text the simulator answers with; "version" checks it when given
//
// Prints one line per step and "PASS <scenario>" or "FAIL <scenario>: why"; the exit code is 0
// only if every scenario passed (2 for a usage or load error).
#include <windows.h>
#include <winscard.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "varnik.h"

namespace {

// The exports' own declarations give the pointer types, with the calling convention
// (__stdcall on x86) as the library was built with.
using PosSelectFn = decltype(&::PosSelect);
using PosCheckPortFn = decltype(&::PosCheckPort);
using PosCancelFn = decltype(&::PosCancel);
using GetVersionFn = decltype(&::getVersion);
using ReaderSelectFn = decltype(&::ReaderSelect);

struct Host {
    HMODULE library = nullptr;
    int port = 0;
    std::map<std::string, std::string> settings;

    // Looks up an export; a missing one is a failure of the scenario that needs it.
    template <typename Fn>
    Fn Resolve(const char* name, std::string& why) const
    {
        FARPROC address = GetProcAddress(library, name);
        if (address == nullptr) {
            why = std::string("export not found: ") + name;
            return nullptr;
        }
        return reinterpret_cast<Fn>(reinterpret_cast<void*>(address));
    }

    std::string Setting(const char* name) const
    {
        auto found = settings.find(name);
        return found == settings.end() ? std::string() : found->second;
    }
};

void Say(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf("\n");
    std::fflush(stdout);
}

std::string Hex(const char* bytes, size_t count)
{
    std::string text;
    char piece[4];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(piece, sizeof piece, i == 0 ? "%02X" : " %02X",
                      static_cast<unsigned char>(bytes[i]));
        text += piece;
    }
    return text;
}

// The library copies whole replies into caller buffers; make ours larger than its receive
// buffer so that no reply can overrun it.
char g_out[256 * 1024];

// Scenario results: an empty text is a pass.
using Scenario = std::string (*)(Host& host);

// Probe through PosCheckPort and PosSelect, then read the terminal's version text.
std::string RunVersion(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto select = host.Resolve<PosSelectFn>("PosSelect", why);
    auto version = host.Resolve<GetVersionFn>("getVersion", why);
    if (!why.empty()) {
        return why;
    }

    int result = checkPort(host.port);
    Say("PosCheckPort(%d) = %d", host.port, result);
    if (result != 0) {
        return "PosCheckPort did not give 0";
    }
    result = select();
    Say("PosSelect() = %d", result);
    if (result != 0) {
        return "PosSelect did not give 0";
    }

    std::memset(g_out, 0x55, sizeof g_out);
    result = version(g_out);
    size_t length = strnlen(g_out, sizeof g_out);
    Say("getVersion() = %d, out \"%s\" (%d bytes)", result, g_out, static_cast<int>(length));
    if (length == sizeof g_out) {
        return "getVersion left out unterminated";
    }
    if (result != static_cast<int>(length)) {
        return "getVersion's result is not the length of its text";
    }
    std::string expected = host.Setting("version");
    if (!expected.empty() && expected != g_out) {
        return "version text differs from \"" + expected + "\"";
    }
    if (length == 0) {
        return "empty version text";
    }
    return std::string();
}

// --- cancel through a window message ---------------------------------------------------

PosCancelFn g_posCancel = nullptr;
int g_cancelCalls = 0;
int g_cancelResult = -1;

LRESULT CALLBACK CancelWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_APP) {
        // As a host's button handler would: cancel from inside the library's own wait.
        ++g_cancelCalls;
        g_cancelResult = g_posCancel();
        return 0;
    }
    return DefWindowProcA(window, message, wParam, lParam);
}

// A cancel posted to a hidden window before getVersion: the library's wait dispatches it,
// one CAN goes out, the simulator (run with --hold 3B) answers CAN and the call returns.
std::string RunCancel(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto version = host.Resolve<GetVersionFn>("getVersion", why);
    g_posCancel = host.Resolve<PosCancelFn>("PosCancel", why);
    if (!why.empty()) {
        return why;
    }

    WNDCLASSA windowClass;
    std::memset(&windowClass, 0, sizeof windowClass);
    windowClass.lpfnWndProc = CancelWindowProc;
    windowClass.hInstance = GetModuleHandleA(nullptr);
    windowClass.lpszClassName = "VarnikWineHostCancel";
    if (RegisterClassA(&windowClass) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
        return "RegisterClassA failed";
    }
    // Not shown: the window exists only to receive the message.
    HWND window = CreateWindowExA(0, windowClass.lpszClassName, "", WS_OVERLAPPED, 0, 0, 0, 0,
                                  nullptr, nullptr, windowClass.hInstance, nullptr);
    if (window == nullptr) {
        return "CreateWindowExA failed: error " + std::to_string(GetLastError());
    }

    // The probe's own loop pumps messages too, so post only once the port is checked.
    int result = checkPort(host.port);
    Say("PosCheckPort(%d) = %d", host.port, result);
    if (result != 0) {
        DestroyWindow(window);
        return "PosCheckPort did not give 0";
    }

    g_cancelCalls = 0;
    g_cancelResult = -1;
    if (!PostMessageA(window, WM_APP, 0, 0)) {
        DestroyWindow(window);
        return "PostMessageA failed";
    }
    std::memset(g_out, 0, sizeof g_out);
    result = version(g_out);
    size_t length = strnlen(g_out, sizeof g_out);
    Say("getVersion() = %d, out %s; PosCancel ran %d time(s) and gave %d", result,
        Hex(g_out, length).c_str(), g_cancelCalls, g_cancelResult);
    DestroyWindow(window);

    if (g_cancelCalls != 1) {
        return "the posted message was not dispatched exactly once during the wait";
    }
    if (g_cancelResult != 0) {
        return "PosCancel did not give 0";
    }
    // The terminal's CAN is the reply that ended the wait.
    if (length < 1 || static_cast<unsigned char>(g_out[0]) != 0x18) {
        return "the reply was not the terminal's CAN";
    }
    return std::string();
}

// --- the card slot as the PC/SC reader --------------------------------------------------

// One APDU through `transmit`; a T=0 "61 xx" is followed by GET RESPONSE through the import.
std::string Exchange(decltype(&::SCardTransmit) transmit, SCARDHANDLE card,
                     const std::vector<BYTE>& command, std::vector<BYTE>& answer)
{
    BYTE reply[300];
    DWORD length = sizeof reply;
    LONG result = transmit(card, SCARD_PCI_T0, command.data(), static_cast<DWORD>(command.size()),
                           nullptr, reply, &length);
    Say("SCardTransmit(%s) = 0x%lX, %s", Hex(reinterpret_cast<const char*>(command.data()),
                                             command.size()).c_str(),
        static_cast<unsigned long>(result), Hex(reinterpret_cast<char*>(reply), length).c_str());
    if (result != SCARD_S_SUCCESS || length < 2)
        return "SCardTransmit failed";
    if (reply[length - 2] == 0x61) {
        const std::vector<BYTE> getResponse = {0x00, 0xC0, 0x00, 0x00, reply[length - 1]};
        return Exchange(::SCardTransmit, card, getResponse, answer);
    }
    answer.assign(reply, reply + length);
    return std::string();
}

// ReaderSelect hooks winscard.dll in this process. SCardTransmit is bound twice before it:
// through the import table and by GetProcAddress; both must reach the terminal afterwards.
std::string RunPcsc(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto readerSelect = host.Resolve<ReaderSelectFn>("ReaderSelect", why);
    if (!why.empty())
        return why;
    auto transmitEarly = reinterpret_cast<decltype(&::SCardTransmit)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("winscard.dll"), "SCardTransmit")));
    if (transmitEarly == nullptr)
        return "winscard.dll has no SCardTransmit";

    int result = checkPort(host.port);
    Say("PosCheckPort(%d) = %d", host.port, result);
    if (result != 0)
        return "PosCheckPort did not give 0";
    for (int i = 0; i < 2; ++i) {
        result = readerSelect();
        Say("ReaderSelect() = %d", result);
        if (result != 0)
            return "ReaderSelect did not give 0";
    }

    SCARDCONTEXT context = 0;
    LONG status = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context);
    Say("SCardEstablishContext = 0x%lX, context %lu", static_cast<unsigned long>(status),
        static_cast<unsigned long>(context));
    if (status != SCARD_S_SUCCESS || context != 1234)
        return "SCardEstablishContext is not the virtual reader's";

    char readers[64];
    std::memset(readers, 0x55, sizeof readers);
    DWORD count = sizeof readers;
    status = SCardListReadersA(context, nullptr, readers, &count);
    Say("SCardListReadersA = 0x%lX, %lu, \"%s\"", static_cast<unsigned long>(status),
        static_cast<unsigned long>(count), readers);
    if (status != SCARD_S_SUCCESS || count != 19 || std::strcmp(readers, "NEW6210 Reader Card") ||
        readers[20] != 0)
        return "SCardListReadersA did not give the one reader as a closed list";
    LPSTR allocated = nullptr;
    count = SCARD_AUTOALLOCATE;
    status = SCardListReadersA(context, nullptr, reinterpret_cast<LPSTR>(&allocated), &count);
    Say("SCardListReadersA(SCARD_AUTOALLOCATE) = 0x%lX", static_cast<unsigned long>(status));
    if (status != static_cast<LONG>(SCARD_E_INVALID_PARAMETER) || allocated != nullptr)
        return "SCARD_AUTOALLOCATE was not refused";

    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    status = SCardConnectA(context, readers, SCARD_SHARE_SHARED,
                           SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol);
    Say("SCardConnectA = 0x%lX, card 0x%lX, protocol %lu", static_cast<unsigned long>(status),
        static_cast<unsigned long>(card), static_cast<unsigned long>(protocol));
    if (status != SCARD_S_SUCCESS || card != 0x1234 || protocol != SCARD_PROTOCOL_T0)
        return "SCardConnectA failed";

    DWORD state = 0, atrLength = sizeof g_out;
    status = SCardStatusA(card, nullptr, nullptr, &state, &protocol,
                          reinterpret_cast<BYTE*>(g_out), &atrLength);
    Say("SCardStatusA = 0x%lX, state %lu, ATR %s", static_cast<unsigned long>(status),
        static_cast<unsigned long>(state), Hex(g_out, atrLength).c_str());
    if (status != SCARD_S_SUCCESS || state != SCARD_SPECIFIC || atrLength == 0)
        return "SCardStatusA gave no ATR";

    std::vector<BYTE> answer;
    why = Exchange(transmitEarly, card,
                   {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01},
                   answer);
    if (!why.empty())
        return why;
    why = Exchange(transmitEarly, card, {0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D}, answer);
    if (!why.empty())
        return why;
    const std::string citizen(answer.begin(), answer.end() - 2);
    Say("citizen number \"%s\"", citizen.c_str());
    if (citizen != "1234567890121" || answer[answer.size() - 2] != 0x90)
        return "the citizen number did not come back";

    status = SCardDisconnect(card, SCARD_LEAVE_CARD);
    Say("SCardDisconnect = 0x%lX", static_cast<unsigned long>(status));
    if (status != SCARD_S_SUCCESS)
        return "SCardDisconnect failed";
    return std::string();
}

struct NamedScenario {
    const char* name;
    Scenario run;
};

const NamedScenario g_scenarios[] = {
    {"version", RunVersion},
    {"cancel", RunCancel},
    {"pcsc", RunPcsc},
};

const NamedScenario* FindScenario(const std::string& name)
{
    for (const NamedScenario& scenario : g_scenarios) {
        if (name == scenario.name) {
            return &scenario;
        }
    }
    return nullptr;
}

int Usage()
{
    std::fprintf(stderr,
                 "usage: wine_host.exe <Varnik.dll> <COM number> [name=value ...] <scenario>...\n"
                 "scenarios:");
    for (const NamedScenario& scenario : g_scenarios) {
        std::fprintf(stderr, " %s", scenario.name);
    }
    std::fprintf(stderr, "\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        return Usage();
    }
    Host host;
    char* end = nullptr;
    host.port = static_cast<int>(std::strtol(argv[2], &end, 10));
    if (end == argv[2] || *end != '\0') {
        return Usage();
    }

    std::vector<const NamedScenario*> chosen;
    for (int i = 3; i < argc; ++i) {
        std::string argument = argv[i];
        size_t equals = argument.find('=');
        if (equals != std::string::npos) {
            host.settings[argument.substr(0, equals)] = argument.substr(equals + 1);
            continue;
        }
        const NamedScenario* scenario = FindScenario(argument);
        if (scenario == nullptr) {
            std::fprintf(stderr, "unknown scenario: %s\n", argument.c_str());
            return Usage();
        }
        chosen.push_back(scenario);
    }
    if (chosen.empty()) {
        return Usage();
    }

    host.library = LoadLibraryA(argv[1]);
    if (host.library == nullptr) {
        std::fprintf(stderr, "LoadLibraryA(%s) failed: error %lu\n", argv[1], GetLastError());
        return 2;
    }

    int failures = 0;
    for (const NamedScenario* scenario : chosen) {
        Say("RUN %s", scenario->name);
        std::string why = scenario->run(host);
        if (why.empty()) {
            Say("PASS %s", scenario->name);
        } else {
            Say("FAIL %s: %s", scenario->name, why.c_str());
            ++failures;
        }
    }
    FreeLibrary(host.library);
    return failures == 0 ? 0 : 1;
}
