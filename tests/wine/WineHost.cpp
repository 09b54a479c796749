// A small Windows host for Varnik.dll, run under Wine against the terminal simulator. It loads
// the library by path as a point-of-sale application would, resolves the exports by name and
// runs the named scenarios in order.
//
//   wine_host.exe <path of Varnik.dll> <COM number> [name=value ...] <scenario> [<scenario> ...]
//
// Settings (name=value) may stand anywhere among the scenarios:
//   version=TEXT   the version text the simulator answers with; "version" checks it when given
//   stripe=TEXT    the simulator's --stripe; "swipe" works out the track text it must give
//   photo=N        the size of the simulator's ID card photo; "thaiid" needs it for mode 2
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
using MsreReadFn = decltype(&::MsreRead);
using ThaiIDReadFn = decltype(&::ThaiIDRead);

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

// A hidden window whose WM_APP runs PosCancel; empty `why` on success.
HWND CreateCancelWindow(std::string& why)
{
    WNDCLASSA windowClass;
    std::memset(&windowClass, 0, sizeof windowClass);
    windowClass.lpfnWndProc = CancelWindowProc;
    windowClass.hInstance = GetModuleHandleA(nullptr);
    windowClass.lpszClassName = "VarnikWineHostCancel";
    if (RegisterClassA(&windowClass) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
        why = "RegisterClassA failed";
        return nullptr;
    }
    // Not shown: the window exists only to receive the message.
    HWND window = CreateWindowExA(0, windowClass.lpszClassName, "", WS_OVERLAPPED, 0, 0, 0, 0,
                                  nullptr, nullptr, windowClass.hInstance, nullptr);
    if (window == nullptr) {
        why = "CreateWindowExA failed: error " + std::to_string(GetLastError());
    }
    return window;
}

// Posts the cancel that the next wait of the library is to dispatch.
std::string PostCancel(HWND window)
{
    g_cancelCalls = 0;
    g_cancelResult = -1;
    return PostMessageA(window, WM_APP, 0, 0) ? std::string() : "PostMessageA failed";
}

// What a cancelled wait must show: the message dispatched once, PosCancel giving 0.
std::string CheckCancelCall()
{
    if (g_cancelCalls != 1) {
        return "the posted message was not dispatched exactly once during the wait";
    }
    if (g_cancelResult != 0) {
        return "PosCancel did not give 0";
    }
    return std::string();
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
    HWND window = CreateCancelWindow(why);
    if (window == nullptr) {
        return why;
    }

    // The probe's own loop pumps messages too, so post only once the port is checked.
    int result = checkPort(host.port);
    Say("PosCheckPort(%d) = %d", host.port, result);
    if (result != 0) {
        DestroyWindow(window);
        return "PosCheckPort did not give 0";
    }

    why = PostCancel(window);
    if (!why.empty()) {
        DestroyWindow(window);
        return why;
    }
    std::memset(g_out, 0, sizeof g_out);
    result = version(g_out);
    size_t length = strnlen(g_out, sizeof g_out);
    Say("getVersion() = %d, out %s; PosCancel ran %d time(s) and gave %d", result,
        Hex(g_out, length).c_str(), g_cancelCalls, g_cancelResult);
    DestroyWindow(window);

    why = CheckCancelCall();
    if (!why.empty()) {
        return why;
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

// --- the stripe reader ------------------------------------------------------------------

// One field of the terminal's answer in track notation: B, the field with ':'..'?' as 'A'..'F',
// F, and the XOR of its hex digits as one upper-case hex digit. Worked out apart from the
// library's code. Any other character would stop the library at a message box, so a stripe
// with one is refused.
std::string TrackNotation(const std::string& field, std::string& why)
{
    std::string track = "B";
    int check = 0;
    for (char c : field) {
        if (c >= ':' && c <= '?') {
            c = static_cast<char>('A' + (c - ':'));
        }
        if (c >= '0' && c <= '9') {
            check ^= c - '0';
        } else if (c >= 'A' && c <= 'F') {
            check ^= c - 'A' + 10;
        } else {
            why = "stripe field \"" + field + "\" is not all hex digits and ':'..'?'";
            return std::string();
        }
        track += c;
    }
    return track + "F" + "0123456789ABCDEF"[check];
}

// MsreRead's text for the answer "track1|track2|text": the two tracks in track notation (an
// empty one stays empty), a non-empty third field in place of the second, joined by '|'.
std::string ExpectedTracks(const std::string& stripe, std::string& why)
{
    std::vector<std::string> fields;
    for (size_t start = 0;;) {
        size_t bar = stripe.find('|', start);
        fields.push_back(stripe.substr(start, bar == std::string::npos ? bar : bar - start));
        if (bar == std::string::npos) {
            break;
        }
        start = bar + 1;
    }
    if (fields.size() < 3) {
        why = "stripe=" + stripe + " has not the three fields track1|track2|text";
        return std::string();
    }
    std::string first = fields[0].empty() ? std::string() : TrackNotation(fields[0], why);
    std::string second = fields[1].empty() ? std::string() : TrackNotation(fields[1], why);
    if (!fields[2].empty()) {
        second = fields[2];
    }
    return first + "|" + second;
}

// PosCheckPort on the host's port, as every session starts.
std::string CheckPort(Host& host, PosCheckPortFn checkPort)
{
    int result = checkPort(host.port);
    Say("PosCheckPort(%d) = %d", host.port, result);
    return result == 0 ? std::string() : "PosCheckPort did not give 0";
}

// True if `count` bytes of g_out from `from` on still hold `fill`.
bool Untouched(size_t from, size_t count, char fill)
{
    for (size_t i = from; i < from + count; ++i) {
        if (g_out[i] != fill) {
            return false;
        }
    }
    return true;
}

// One swipe of the simulator's stripe (the stripe= setting): the caller's buffer gets the
// track text and its NUL, nothing past what the raw answer and the text cover.
std::string RunSwipe(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto msreRead = host.Resolve<MsreReadFn>("MsreRead", why);
    if (!why.empty()) {
        return why;
    }
    const std::string stripe = host.Setting("stripe");
    const std::string expected = ExpectedTracks(stripe, why);
    if (!why.empty()) {
        return why;
    }
    why = CheckPort(host, checkPort);
    if (!why.empty()) {
        return why;
    }

    const char fill = 0x55;
    std::memset(g_out, fill, sizeof g_out);
    int result = msreRead(g_out);
    size_t length = strnlen(g_out, sizeof g_out);
    Say("MsreRead() = %d, out \"%s\"; expected \"%s\"", result, g_out, expected.c_str());
    if (result != static_cast<int>(expected.size())) {
        return "MsreRead's result is not the length of the track text";
    }
    if (length != expected.size() || std::memcmp(g_out, expected.c_str(), expected.size() + 1)) {
        return "out is not the track text with its NUL";
    }
    // The answer went in first with its own NUL; past that and the track text nothing changes.
    size_t written = (stripe.size() > expected.size() ? stripe.size() : expected.size()) + 1;
    if (!Untouched(written, 64, fill)) {
        return "MsreRead wrote past the answer and the track text";
    }
    return std::string();
}

// A swipe that nobody makes (the simulator runs with --swipe-wait), cancelled from a window
// message: one CAN goes out, the terminal's CAN ends the wait and comes back as the text.
std::string RunSwipeCancel(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto msreRead = host.Resolve<MsreReadFn>("MsreRead", why);
    g_posCancel = host.Resolve<PosCancelFn>("MsreCancel", why);
    if (!why.empty()) {
        return why;
    }
    HWND window = CreateCancelWindow(why);
    if (window == nullptr) {
        return why;
    }
    // Posted only once the probe, which pumps messages too, is over.
    why = CheckPort(host, checkPort);
    if (why.empty()) {
        why = PostCancel(window);
    }
    if (!why.empty()) {
        DestroyWindow(window);
        return why;
    }

    std::memset(g_out, 0, sizeof g_out);
    int result = msreRead(g_out);
    Say("MsreRead() = %d, out %s; MsreCancel ran %d time(s) and gave %d", result,
        Hex(g_out, strnlen(g_out, sizeof g_out)).c_str(), g_cancelCalls, g_cancelResult);
    DestroyWindow(window);

    why = CheckCancelCall();
    if (!why.empty()) {
        return why;
    }
    // A one-byte answer has no fields to render and reaches the caller as it came.
    if (result != 1 || g_out[0] != 0x18 || g_out[1] != 0) {
        return "the terminal's CAN did not come back as a one-byte text";
    }
    return std::string();
}

// --- the Thai ID card ---------------------------------------------------------------------

// The simulator's default card: its citizen number and, in UTF-8, the first name สมชาย.
const char g_citizenNumber[] = "1234567890121";
const char g_thaiFirstName[] = "\xE0\xB8\xAA\xE0\xB8\xA1\xE0\xB8\x8A\xE0\xB8\xB2\xE0\xB8\xA2";

// The text form back in TIS-620, or why it is not well-formed UTF-8 of ASCII and Thai letters
// (U+0E01..U+0E5B, the only characters the conversion makes).
std::string Utf8ThaiToTis620(const std::string& text, std::string& why)
{
    std::string tis620;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            tis620 += static_cast<char>(lead);
            continue;
        }
        // E0 leads the three-byte forms of U+0800..U+0FFF; its own four bits are 0.
        unsigned codePoint = 0;
        if (lead == 0xE0 && i + 2 < text.size() && (text[i + 1] & 0xC0) == 0x80 &&
            (text[i + 2] & 0xC0) == 0x80) {
            codePoint = (static_cast<unsigned>(text[i + 1] & 0x3F) << 6) |
                        static_cast<unsigned>(text[i + 2] & 0x3F);
        }
        if (codePoint < 0x0E01 || codePoint > 0x0E5B) {
            why = "byte " + std::to_string(i) + " of the text is not a Thai letter in UTF-8";
            return std::string();
        }
        tis620 += static_cast<char>(codePoint - 0x0D60);
        i += 2;
    }
    return tis620;
}

// The card read in text form (mode 0) and as the binary block (mode 2). The block is the
// TIS-620 record that mode 0 gives as UTF-8, then the photo (photo= bytes, a JPEG).
std::string RunThaiId(Host& host)
{
    std::string why;
    auto checkPort = host.Resolve<PosCheckPortFn>("PosCheckPort", why);
    auto thaiIdRead = host.Resolve<ThaiIDReadFn>("ThaiIDRead", why);
    if (!why.empty()) {
        return why;
    }
    const int photo = std::atoi(host.Setting("photo").c_str());
    if (photo < 4) {
        return "photo= must give the size of the simulator's photo";
    }
    why = CheckPort(host, checkPort);
    if (!why.empty()) {
        return why;
    }

    const char fill = 0x55;
    std::memset(g_out, fill, sizeof g_out);
    int result = thaiIdRead(g_out, 0);
    size_t length = strnlen(g_out, sizeof g_out);
    Say("ThaiIDRead(out, 0) = %d, out %d bytes, begins \"%.14s\"", result,
        static_cast<int>(length), g_out);
    if (length == sizeof g_out) {
        return "ThaiIDRead left the text unterminated";
    }
    if (result != static_cast<int>(length) || length == 0) {
        return "ThaiIDRead's result is not the length of its text";
    }
    const std::string text(g_out, length);
    if (text.compare(0, sizeof g_citizenNumber, std::string(g_citizenNumber) + "|") != 0) {
        return std::string("the text does not begin with ") + g_citizenNumber + "|";
    }
    if (text.find(g_thaiFirstName) == std::string::npos) {
        return "the text has no UTF-8 of the Thai first name";
    }
    const std::string record = Utf8ThaiToTis620(text, why);
    if (!why.empty()) {
        return why;
    }

    std::memset(g_out, fill, sizeof g_out);
    result = thaiIdRead(g_out, 2);
    Say("ThaiIDRead(out, 2) = %d, the record %d bytes and the photo %d", result,
        static_cast<int>(record.size()), photo);
    if (result != static_cast<int>(record.size()) + photo) {
        return "ThaiIDRead's result is not the length of the block";
    }
    if (std::memcmp(g_out, record.data(), record.size()) != 0) {
        return "the block does not begin with the TIS-620 record";
    }
    const unsigned char* jpeg = reinterpret_cast<unsigned char*>(g_out) + record.size();
    if (jpeg[0] != 0xFF || jpeg[1] != 0xD8 || jpeg[photo - 2] != 0xFF || jpeg[photo - 1] != 0xD9) {
        return "the photo of the block is not a whole JPEG (FF D8 .. FF D9)";
    }
    // The length word stays behind and no terminator follows the block.
    if (!Untouched(static_cast<size_t>(result), 64, fill)) {
        return "ThaiIDRead wrote past the block";
    }
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
    {"swipe", RunSwipe},
    {"swipecancel", RunSwipeCancel},
    {"thaiid", RunThaiId},
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
