#include "HostSupport.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void Say(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::printf("\n");
    std::fflush(stdout);
}

std::string Hex(const void* bytes, size_t count)
{
    std::string text;
    char piece[4];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(piece, sizeof piece, i == 0 ? "%02X" : " %02X",
                      static_cast<const unsigned char*>(bytes)[i]);
        text += piece;
    }
    return text;
}

// --- the host and its scenarios ------------------------------------------------------------

std::string Host::Setting(const char* name) const
{
    auto found = settings.find(name);
    return found == settings.end() ? std::string() : found->second;
}

void Host::CheckPort() const
{
    const int result = Get<PosCheckPortFn>("PosCheckPort")(port);
    Say("PosCheckPort(%d) = %d", port, result);
    Check(result == 0, "PosCheckPort did not give 0");
}

static int Usage(const char* program, const std::vector<NamedScenario>& all)
{
    std::fprintf(stderr, "usage: %s <Varnik.dll> <COM number> [name=value ...] <scenario>...\n"
                         "scenarios:", program);
    for (const NamedScenario& scenario : all)
        std::fprintf(stderr, " %s", scenario.name);
    std::fprintf(stderr, "\n");
    return 2;
}

int HostMain(int argc, char** argv, const char* program, const std::vector<NamedScenario>& all)
{
    Host host;
    char* end = nullptr;
    host.port = argc < 4 ? 0 : static_cast<int>(std::strtol(argv[2], &end, 10));
    if (argc < 4 || end == argv[2] || *end != '\0')
        return Usage(program, all);

    std::vector<const NamedScenario*> chosen;
    for (int i = 3; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t equals = argument.find('=');
        if (equals != std::string::npos) {
            host.settings[argument.substr(0, equals)] = argument.substr(equals + 1);
            continue;
        }
        auto found = std::find_if(all.begin(), all.end(), [&](const NamedScenario& scenario) {
            return argument == scenario.name;
        });
        if (found == all.end()) {
            std::fprintf(stderr, "unknown scenario: %s\n", argv[i]);
            return Usage(program, all);
        }
        chosen.push_back(&*found);
    }
    if (chosen.empty())
        return Usage(program, all);

    host.library = LoadLibraryA(argv[1]);
    if (host.library == nullptr) {
        std::fprintf(stderr, "LoadLibraryA(%s) failed: error %lu\n", argv[1], GetLastError());
        return 2;
    }
    int failures = 0;
    for (const NamedScenario* scenario : chosen) {
        Say("RUN %s", scenario->name);
        try {
            scenario->run(host);
            Say("PASS %s", scenario->name);
        } catch (const std::exception& failure) {
            Say("FAIL %s: %s", scenario->name, failure.what());
            ++failures;
        }
    }
    if (host.library != nullptr)
        FreeLibrary(host.library);
    return failures == 0 ? 0 : 1;
}

// --- cancel through a window message -------------------------------------------------------

int CancelWindow::calls = 0;
int CancelWindow::result = -1;
static PosCancelFn g_cancel = nullptr;

static LRESULT CALLBACK CancelWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message != WM_APP)
        return DefWindowProcA(window, message, wParam, lParam);
    ++CancelWindow::calls;
    CancelWindow::result = g_cancel();
    return 0;
}

CancelWindow::CancelWindow(PosCancelFn cancel)
{
    g_cancel = cancel;
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = CancelWindowProc;
    windowClass.hInstance = GetModuleHandleA(nullptr);
    windowClass.lpszClassName = "VarnikWineHostCancel";
    Check(RegisterClassA(&windowClass) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS,
          "RegisterClassA failed");
    // Not shown: the window exists only to receive the message.
    window_ = CreateWindowExA(0, windowClass.lpszClassName, "", WS_OVERLAPPED, 0, 0, 0, 0,
                              nullptr, nullptr, windowClass.hInstance, nullptr);
    Check(window_ != nullptr, "CreateWindowExA failed: error " + std::to_string(GetLastError()));
}

CancelWindow::~CancelWindow()
{
    DestroyWindow(window_);
}

void CancelWindow::Post()
{
    calls = 0;
    result = -1;
    Check(PostMessageA(window_, WM_APP, 0, 0) != 0, "PostMessageA failed");
}

void CancelWindow::CheckCalledOnce() const
{
    Check(calls == 1, "the posted message was not dispatched exactly once during the wait");
    Check(result == 0, "PosCancel did not give 0");
}

// --- answering message boxes ---------------------------------------------------------------

std::vector<std::string> NoticeAnswerer::notices;
static HHOOK g_cbtHook = nullptr;

static LRESULT CALLBACK AnswerNotice(int code, WPARAM wParam, LPARAM lParam)
{
    HWND window = reinterpret_cast<HWND>(wParam);
    char windowClass[16] = {};
    // Message boxes are dialogs; anything else activated on this thread is left alone.
    if (code == HCBT_ACTIVATE && GetClassNameA(window, windowClass, sizeof windowClass) != 0 &&
        std::strcmp(windowClass, "#32770") == 0) {
        char text[256] = {};
        GetDlgItemTextA(window, 0xFFFF, text, sizeof text);  // 0xFFFF: a message box's text
        NoticeAnswerer::notices.push_back(text);
        Say("notice \"%s\" answered with OK", text);
        PostMessageA(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    }
    return CallNextHookEx(g_cbtHook, code, wParam, lParam);
}

NoticeAnswerer::NoticeAnswerer()
{
    notices.clear();
    g_cbtHook = SetWindowsHookExA(WH_CBT, AnswerNotice, nullptr, GetCurrentThreadId());
    Check(g_cbtHook != nullptr,
          "SetWindowsHookExA failed: error " + std::to_string(GetLastError()));
}

NoticeAnswerer::~NoticeAnswerer()
{
    UnhookWindowsHookEx(g_cbtHook);
}

// --- the reader calls ----------------------------------------------------------------------

ReaderAnswers CallReader(const ReaderFunctions& functions,
                         const std::function<void(const ReaderAnswers&)>& withCard)
{
    ReaderAnswers a;
    a.establish = functions.establish(SCARD_SCOPE_USER, nullptr, nullptr, &a.context);
    Say("  SCardEstablishContext = 0x%lX, context %lu", a.establish,
        static_cast<unsigned long>(a.context));
    std::memset(a.readers, 0x55, sizeof a.readers);
    a.readersCount = sizeof a.readers;
    a.list = functions.listReaders(a.context, nullptr, a.readers, &a.readersCount);
    a.readers[sizeof a.readers - 1] = '\0';
    Say("  SCardListReadersA = 0x%lX, %lu, \"%s\"", a.list, a.readersCount, a.readers);
    a.connect = functions.connect(a.context, "NEW6210 Reader Card", SCARD_SHARE_SHARED,
                                  SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &a.card,
                                  &a.connectProtocol);
    Say("  SCardConnectA = 0x%lX, card 0x%lX, protocol %lu", a.connect,
        static_cast<unsigned long>(a.card), a.connectProtocol);
    a.atrLength = sizeof a.atr;
    a.status = functions.status(a.card, nullptr, nullptr, &a.state, &a.statusProtocol, a.atr,
                                &a.atrLength);
    Say("  SCardStatusA = 0x%lX, state 0x%lX, protocol %lu, ATR %s", a.status, a.state,
        a.statusProtocol, Hex(a.atr, std::min<DWORD>(a.atrLength, sizeof a.atr)).c_str());
    if (withCard)
        withCard(a);
    a.disconnect = functions.disconnect(a.card, SCARD_LEAVE_CARD);
    Say("  SCardDisconnect = 0x%lX", a.disconnect);
    return a;
}

void CheckVirtualReader(const ReaderAnswers& a)
{
    Check(a.establish == SCARD_S_SUCCESS && a.context == 1234,
          "SCardEstablishContext is not the virtual reader's");
    // The one reader as a closed list: its name, NUL, NUL.
    Check(a.list == SCARD_S_SUCCESS && a.readersCount == 19 &&
              std::strcmp(a.readers, "NEW6210 Reader Card") == 0 && a.readers[20] == '\0',
          "SCardListReadersA is not the virtual reader's");
    Check(a.connect == SCARD_S_SUCCESS && a.card == 0x1234 &&
              a.connectProtocol == SCARD_PROTOCOL_T0,
          "SCardConnectA is not the virtual reader's");
    Check(a.status == SCARD_S_SUCCESS && a.state == SCARD_SPECIFIC &&
              a.statusProtocol == SCARD_PROTOCOL_T0 && a.atrLength != 0,
          "SCardStatusA is not the virtual reader's, or gave no ATR");
    Check(a.disconnect == SCARD_S_SUCCESS, "SCardDisconnect is not the virtual reader's");
}
