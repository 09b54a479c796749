// A Windows host for the failure path of ReaderSelect: the winscard.dll beside it is the tests'
// stand-in without SCardTransmit (fake_winscard.c). Run under Wine against the terminal
// simulator by run-wine-tests.sh.
//
//   wine_notransmit_host.exe <path of Varnik.dll> <COM number>
//
// Checks, in this order: nothing has loaded winscard.dll yet (so neither this program nor the
// library imports it); LoadLibraryA finds the stand-in, whose five functions answer their own
// values; ReaderSelect shows the one notice "Not Found SCardTransmit" and gives -1; the five
// functions, called through the same pointers, now answer as the virtual reader; once the
// library is unloaded they answer as the stand-in again.
//
// The notice is a MessageBoxA, which waits for a person. A CBT hook on this thread presses its
// OK as soon as it is activated and keeps its text for the checks.
//
// Prints one line per step and "PASS notransmit" or "FAIL notransmit: why"; exits 0 on a pass,
// 1 on a failure and 2 on a usage or load error.
#include <windows.h>
#include <winscard.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "varnik.h"

namespace {

using PosCheckPortFn = decltype(&::PosCheckPort);
using ReaderSelectFn = decltype(&::ReaderSelect);

// Pointer types from winscard.h's declarations; taking their type imports nothing.
using EstablishFn = decltype(&::SCardEstablishContext);
using StatusFn = decltype(&::SCardStatusA);
using ListReadersFn = decltype(&::SCardListReadersA);
using DisconnectFn = decltype(&::SCardDisconnect);
using ConnectFn = decltype(&::SCardConnectA);

// The stand-in's answers: 0x1111 and up, in the order of its source, and 0x7777 as handle.
constexpr LONG FakeEstablish = 0x1111;
constexpr LONG FakeStatus = 0x1112;
constexpr LONG FakeListReaders = 0x1113;
constexpr LONG FakeDisconnect = 0x1114;
constexpr LONG FakeConnect = 0x1115;
constexpr ULONG_PTR FakeHandle = 0x7777;

void Say(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf("\n");
    std::fflush(stdout);
}

// --- answering the notice ---------------------------------------------------------------

HHOOK g_cbtHook;
std::vector<std::string> g_notices;

LRESULT CALLBACK AnswerNotice(int code, WPARAM wParam, LPARAM lParam)
{
    if (code == HCBT_ACTIVATE) {
        HWND window = reinterpret_cast<HWND>(wParam);
        char windowClass[16] = {};
        GetClassNameA(window, windowClass, sizeof windowClass);
        // Message boxes are dialogs; anything else activated on this thread is left alone.
        if (std::strcmp(windowClass, "#32770") == 0) {
            char text[256] = {};
            // 0xFFFF is the id of a message box's text.
            GetDlgItemTextA(window, 0xFFFF, text, sizeof text);
            g_notices.push_back(text);
            Say("notice \"%s\" answered with OK", text);
            PostMessageA(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
        }
    }
    return CallNextHookEx(g_cbtHook, code, wParam, lParam);
}

// --- the stand-in's functions -----------------------------------------------------------

struct Functions {
    EstablishFn establish;
    StatusFn status;
    ListReadersFn listReaders;
    DisconnectFn disconnect;
    ConnectFn connect;
};

template <typename Fn>
Fn Lookup(HMODULE module, const char* name, std::string& why)
{
    FARPROC address = GetProcAddress(module, name);
    if (address == nullptr && why.empty())
        why = std::string("the stand-in has no ") + name;
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(address));
}

// What the five calls answered, in the order establish, list, connect, status, disconnect.
struct Answers {
    LONG establish = -1;
    SCARDCONTEXT context = 0;
    LONG list = -1;
    char readers[64];
    DWORD readersCount = 0;
    LONG connect = -1;
    SCARDHANDLE card = 0;
    DWORD connectProtocol = 0;
    LONG status = -1;
    DWORD state = 0;
    DWORD statusProtocol = 0;
    DWORD atrLength = 0;
    LONG disconnect = -1;
};

Answers CallAll(const Functions& functions)
{
    Answers answers;
    answers.establish = functions.establish(SCARD_SCOPE_USER, nullptr, nullptr, &answers.context);
    std::memset(answers.readers, 0x55, sizeof answers.readers);
    answers.readersCount = sizeof answers.readers;
    answers.list =
        functions.listReaders(answers.context, nullptr, answers.readers, &answers.readersCount);
    answers.readers[sizeof answers.readers - 1] = '\0';
    answers.connect = functions.connect(answers.context, "NEW6210 Reader Card", SCARD_SHARE_SHARED,
                                        SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &answers.card,
                                        &answers.connectProtocol);
    BYTE atr[64];
    answers.atrLength = sizeof atr;
    answers.status = functions.status(answers.card, nullptr, nullptr, &answers.state,
                                      &answers.statusProtocol, atr, &answers.atrLength);
    answers.disconnect = functions.disconnect(answers.card, SCARD_LEAVE_CARD);

    Say("  SCardEstablishContext = 0x%lX, context %lu",
        static_cast<unsigned long>(answers.establish),
        static_cast<unsigned long>(answers.context));
    Say("  SCardListReadersA = 0x%lX, %lu, \"%s\"", static_cast<unsigned long>(answers.list),
        static_cast<unsigned long>(answers.readersCount), answers.readers);
    Say("  SCardConnectA = 0x%lX, card 0x%lX, protocol %lu",
        static_cast<unsigned long>(answers.connect), static_cast<unsigned long>(answers.card),
        static_cast<unsigned long>(answers.connectProtocol));
    Say("  SCardStatusA = 0x%lX, state 0x%lX, protocol %lu, ATR %lu bytes",
        static_cast<unsigned long>(answers.status), static_cast<unsigned long>(answers.state),
        static_cast<unsigned long>(answers.statusProtocol),
        static_cast<unsigned long>(answers.atrLength));
    Say("  SCardDisconnect = 0x%lX", static_cast<unsigned long>(answers.disconnect));
    return answers;
}

// Every one of the five reached the stand-in; empty on success.
std::string CheckStandIn(const Answers& answers)
{
    if (answers.establish != FakeEstablish || answers.context != FakeHandle)
        return "SCardEstablishContext is not the stand-in's";
    if (answers.list != FakeListReaders || answers.readersCount != 99 ||
        std::strcmp(answers.readers, "Fake") != 0)
        return "SCardListReadersA is not the stand-in's";
    if (answers.connect != FakeConnect || answers.card != FakeHandle)
        return "SCardConnectA is not the stand-in's";
    if (answers.status != FakeStatus || answers.state != 0x7777)
        return "SCardStatusA is not the stand-in's";
    if (answers.disconnect != FakeDisconnect)
        return "SCardDisconnect is not the stand-in's";
    return std::string();
}

// Every one of the five reached the virtual reader; empty on success.
std::string CheckVirtualReader(const Answers& answers)
{
    if (answers.establish != SCARD_S_SUCCESS || answers.context != 1234)
        return "SCardEstablishContext is not the virtual reader's";
    if (answers.list != SCARD_S_SUCCESS || answers.readersCount != 19 ||
        std::strcmp(answers.readers, "NEW6210 Reader Card") != 0 || answers.readers[20] != '\0')
        return "SCardListReadersA is not the virtual reader's";
    if (answers.connect != SCARD_S_SUCCESS || answers.card != 0x1234 ||
        answers.connectProtocol != SCARD_PROTOCOL_T0)
        return "SCardConnectA is not the virtual reader's";
    if (answers.status != SCARD_S_SUCCESS || answers.state != SCARD_SPECIFIC ||
        answers.statusProtocol != SCARD_PROTOCOL_T0)
        return "SCardStatusA is not the virtual reader's";
    if (answers.disconnect != SCARD_S_SUCCESS)
        return "SCardDisconnect is not the virtual reader's";
    return std::string();
}

std::string Run(const char* libraryPath, int port)
{
    HMODULE library = LoadLibraryA(libraryPath);
    if (library == nullptr)
        return "LoadLibraryA of the library failed: error " + std::to_string(GetLastError());
    auto checkPort = reinterpret_cast<PosCheckPortFn>(
        reinterpret_cast<void*>(GetProcAddress(library, "PosCheckPort")));
    auto readerSelect = reinterpret_cast<ReaderSelectFn>(
        reinterpret_cast<void*>(GetProcAddress(library, "ReaderSelect")));
    if (checkPort == nullptr || readerSelect == nullptr)
        return "the library lacks PosCheckPort or ReaderSelect";

    if (GetModuleHandleA("winscard.dll") != nullptr)
        return "winscard.dll was loaded before anyone asked for it";
    HMODULE winscard = LoadLibraryA("winscard.dll");
    if (winscard == nullptr)
        return "LoadLibraryA(winscard.dll) failed: error " + std::to_string(GetLastError());
    char path[MAX_PATH] = {};
    GetModuleFileNameA(winscard, path, sizeof path);
    Say("winscard.dll is %s", path);
    if (GetProcAddress(winscard, "SCardTransmit") != nullptr)
        return "this winscard.dll has SCardTransmit: it is not the stand-in";

    std::string why;
    Functions functions;
    functions.establish = Lookup<EstablishFn>(winscard, "SCardEstablishContext", why);
    functions.status = Lookup<StatusFn>(winscard, "SCardStatusA", why);
    functions.listReaders = Lookup<ListReadersFn>(winscard, "SCardListReadersA", why);
    functions.disconnect = Lookup<DisconnectFn>(winscard, "SCardDisconnect", why);
    functions.connect = Lookup<ConnectFn>(winscard, "SCardConnectA", why);
    if (!why.empty())
        return why;

    Say("before ReaderSelect:");
    why = CheckStandIn(CallAll(functions));
    if (!why.empty())
        return why;

    int result = checkPort(port);
    Say("PosCheckPort(%d) = %d", port, result);
    if (result != 0)
        return "PosCheckPort did not give 0";

    g_cbtHook = SetWindowsHookExA(WH_CBT, AnswerNotice, nullptr, GetCurrentThreadId());
    if (g_cbtHook == nullptr)
        return "SetWindowsHookExA failed: error " + std::to_string(GetLastError());
    result = readerSelect();
    UnhookWindowsHookEx(g_cbtHook);
    Say("ReaderSelect() = %d", result);
    if (result != -1)
        return "ReaderSelect did not give -1";
    if (g_notices.size() != 1 || g_notices[0] != "Not Found SCardTransmit")
        return "there was not the one notice \"Not Found SCardTransmit\"";
    if (GetModuleHandleA("winscard.dll") != winscard)
        return "the library hooked another winscard.dll";

    Say("after ReaderSelect:");
    why = CheckVirtualReader(CallAll(functions));
    if (!why.empty())
        return why;

    // Unloading the library puts the stand-in's own code back.
    FreeLibrary(library);
    Say("after FreeLibrary of the library:");
    return CheckStandIn(CallAll(functions));
}

}  // namespace

int main(int argc, char** argv)
{
    char* end = nullptr;
    const int port = argc == 3 ? static_cast<int>(std::strtol(argv[2], &end, 10)) : 0;
    if (argc != 3 || end == argv[2] || *end != '\0') {
        std::fprintf(stderr, "usage: wine_notransmit_host.exe <Varnik.dll> <COM number>\n");
        return 2;
    }
    Say("RUN notransmit");
    const std::string why = Run(argv[1], port);
    if (!why.empty()) {
        Say("FAIL notransmit: %s", why.c_str());
        return 1;
    }
    Say("PASS notransmit");
    return 0;
}
