// wine_host.exe: the Windows build under Wine, run by run-wine-tests.sh once per scenario with
// the terminal simulator (or port_peer.py for "win32") linked in as a COM port.
//
//   wine_host.exe <scenario> <COM number> [name=value ...]
//
// The export scenarios load the Varnik.dll beside this program by path, as a point-of-sale
// application does, and check each call's result and the caller's buffer; the script checks
// the bytes that reached the far end and the log. "win32" runs the platform layer and the COM
// port driver, linked in from the library's objects, against port_peer.py. The program does
// not import winscard.dll: ReaderSelect must find it unhooked when it is first loaded.
#include <windows.h>
#include <winscard.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "serial/CComPort.h"
#include "support/Format.h"
#include "support/Log.h"
#include "varnik.h"

void RunPortScan();  // PortScanScenario.cpp

namespace {

int g_port = 0;
std::map<std::string, std::string> g_settings;
HMODULE g_library = nullptr;

// A failed check ends the scenario (or the driver case) with `why` as its reason.
void Check(bool condition, const std::string& why)
{
    if (!condition)
        throw std::runtime_error(why);
}

template <typename Fn>
Fn Export(HMODULE module, const char* name)
{
    FARPROC address = module ? GetProcAddress(module, name) : nullptr;
    Check(address != nullptr, std::string("no function ") + name);
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(address));
}

// The exports' own declarations give the pointer types, with the calling convention.
#define EXPORT(name) Export<decltype(&::name)>(g_library, #name)

void CheckPort()
{
    const int result = EXPORT(PosCheckPort)(g_port);
    Check(result == 0, Format("PosCheckPort(%d) gave %d", g_port, result));
}

// The caller's buffer, larger than any reply.
char g_out[256 * 1024];

// --- cancel from a window message that the library's own wait dispatches -------------------

decltype(&::PosCancel) g_cancel = nullptr;
int g_cancelCalls = 0, g_cancelResult = -1;

LRESULT CALLBACK CancelWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message != WM_APP)
        return DefWindowProcA(window, message, wParam, lParam);
    ++g_cancelCalls;
    g_cancelResult = g_cancel();
    return 0;
}

// Reads with a message posted to a hidden window, whose handler (a cancel, as a host's button
// would send it) must run once, from inside the library's wait, and give 0.
int ReadWithMessage(decltype(&::getVersion) read, decltype(&::PosCancel) cancel)
{
    g_cancel = cancel;
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = CancelWindowProc;
    windowClass.lpszClassName = "VarnikWineHostCancel";
    RegisterClassA(&windowClass);
    HWND window = CreateWindowExA(0, windowClass.lpszClassName, "", WS_OVERLAPPED, 0, 0, 0, 0,
                                  nullptr, nullptr, nullptr, nullptr);
    Check(window != nullptr, "CreateWindowExA failed");
    PostMessageA(window, WM_APP, 0, 0);  // after the probe, whose own loop pumps messages too
    const int result = read(g_out);
    DestroyWindow(window);
    Check(g_cancelCalls == 1 && g_cancelResult == 0,
          Format("the message ran %d time(s) during the wait and gave %d", g_cancelCalls,
                 g_cancelResult));
    return result;
}

using TransmitFn = decltype(&::SCardTransmit);

// One APDU; a T=0 "61 xx" is followed by GET RESPONSE through `later`.
std::string Exchange(TransmitFn transmit, TransmitFn later, SCARDHANDLE card,
                     const std::vector<BYTE>& command)
{
    static const SCARD_IO_REQUEST t0 = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
    BYTE reply[300];
    DWORD length = sizeof reply;
    const LONG result = transmit(card, &t0, command.data(),
                                 static_cast<DWORD>(command.size()), nullptr, reply, &length);
    Check(result == SCARD_S_SUCCESS && length >= 2 && length <= sizeof reply,
          Format("SCardTransmit gave %lX, %lu bytes", result, length));
    if (reply[length - 2] == 0x61)
        return Exchange(later, later, card, {0x00, 0xC0, 0x00, 0x00, reply[length - 1]});
    return std::string(reinterpret_cast<char*>(reply), length);
}

// --- the export scenarios -------------------------------------------------------------------

// A message that keeps the thread busy while the terminal answers.
int VARNIK_CALL BusyHandler()
{
    Sleep(200);
    return 0;
}

// getVersion as a host calls it, a row each: what a window message runs during the wait
// ("busy": BusyHandler, or the export of that name), and the whole text the caller's buffer
// must get, with its NUL; the result is its length, and nothing past it is written. The reply
// that arrives during a busy message is read whole afterwards; a cancel gives the terminal's
// CAN as it came, with no terminator of its own.
struct TextRead {
    const char* scenario;
    const char* message;
    std::string text;
};

// "thread" cancels from another thread while the call waits. The silence rows time the end of
// a reply: the simulator pauses 2 ms after its first 4 bytes ("silence"), which must not end
// it, or 15 ms ("gap"), which must: the 5 ms rule, with 10 ms for the timer to be late.
const TextRead TextReads[] = {
    {"version", nullptr, "NEW6210 WINE 2.5"},  // the simulator's --version-text
    {"cancel", "PosCancel", "\x18"},
    {"threadcancel", "thread", "\x18"},
    {"busymessage", "busy", "NEW6210 SIM 1.0"},
    {"silence", nullptr, "NEW6210 SIM 1.0"},
    {"gap", nullptr, "\x02NEW"},
};

DWORD WINAPI CancelLater(void* cancel)
{
    Sleep(300);
    g_cancelResult = reinterpret_cast<decltype(&::PosCancel)>(cancel)();
    return 0;
}

void RunTextRead(const TextRead& row)
{
    CheckPort();
    Check(EXPORT(PosSelect)() == 0, "PosSelect did not give 0");
    std::memset(g_out, row.message == nullptr ? 0x55 : 0, sizeof g_out);
    HANDLE canceller = nullptr;
    if (row.message != nullptr && std::strcmp(row.message, "thread") == 0)
        canceller = CreateThread(nullptr, 0, CancelLater, reinterpret_cast<void*>(EXPORT(PosCancel)),
                                 0, nullptr);
    const int result =
        row.message == nullptr || canceller != nullptr ? EXPORT(getVersion)(g_out)
        : ReadWithMessage(EXPORT(getVersion), std::strcmp(row.message, "busy") == 0
                                                  ? BusyHandler
                                                  : Export<decltype(&::PosCancel)>(g_library, row.message));
    if (canceller != nullptr) {
        WaitForSingleObject(canceller, INFINITE);
        CloseHandle(canceller);
        Check(g_cancelResult == 0, "PosCancel from the other thread did not give 0");
    }
    Check(result == static_cast<int>(row.text.size()) &&
              std::memcmp(g_out, row.text.c_str(), row.text.size() + 1) == 0,
          Format("getVersion gave %d, \"%.80s\"", result, g_out));
    Check(row.message != nullptr || std::string(g_out + result + 1, 64) == std::string(64, 0x55),
          "getVersion wrote past its text and NUL");
}

// The terminal is unplugged while getVersion waits (the run script closes its line and removes
// its link): the call ends, and the next one finds no port.
void RunUnplug()
{
    CheckPort();
    EXPORT(getVersion)(g_out);
    const int again = EXPORT(getVersion)(g_out);
    Check(again == 110, Format("getVersion after the unplug gave %d, not 110", again));
}

// PosExec's "write" of the file= file (forward slashes, so no JSON escaping); the run script
// checks what the terminal stored.
void RunUpload()
{
    CheckPort();
    const std::string command =
        "{\"format\":\"FILE\",\"cmd\":\"write\",\"file\":\"" + g_settings["file"] + "\"}";
    const int result = EXPORT(PosExec)(g_out, command.c_str());
    Check(result == 0, Format("PosExec(%s) gave %d", command.c_str(), result));
}

// ReaderSelect (twice) hooks winscard.dll; the calls bound by name afterwards answer as the
// virtual reader (one reader as a closed list, T=0, the simulator's 12-byte ATR), an allocated
// list is refused, and a SCardTransmit pointer taken before and one taken after both reach
// the terminal's card.
void RunPcsc()
{
    HMODULE winscard = LoadLibraryA("winscard.dll");
    const auto early = Export<TransmitFn>(winscard, "SCardTransmit");
    CheckPort();
    Check(EXPORT(ReaderSelect)() == 0 && EXPORT(ReaderSelect)() == 0,
          "ReaderSelect did not give 0");
#define BIND(name) const auto name = Export<decltype(&::SCard##name)>(winscard, "SCard" #name)
    BIND(EstablishContext);
    BIND(ListReadersA);
    BIND(ConnectA);
    BIND(StatusA);
    BIND(Disconnect);
    const auto later = Export<TransmitFn>(winscard, "SCardTransmit");
    SCARDCONTEXT context = 0;
    SCARDHANDLE card = 0;
    char readers[64];
    std::memset(readers, 0x55, sizeof readers);
    DWORD count = sizeof readers, protocol = 0, state = 0, statusProtocol = 0;
    BYTE atr[64];
    DWORD atrLength = sizeof atr;
    const LONG establish = EstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context);
    const LONG list = ListReadersA(context, nullptr, readers, &count);
    readers[sizeof readers - 1] = '\0';
    const LONG connect = ConnectA(context, "NEW6210 Reader Card", SCARD_SHARE_SHARED,
                                   SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card, &protocol);
    const LONG status = StatusA(card, nullptr, nullptr, &state, &statusProtocol, atr, &atrLength);
    LPSTR allocated = nullptr;
    DWORD allocatedCount = SCARD_AUTOALLOCATE;
    Check(ListReadersA(context, nullptr, reinterpret_cast<LPSTR>(&allocated), &allocatedCount) ==
                  static_cast<LONG>(SCARD_E_INVALID_PARAMETER) && allocated == nullptr,
          "SCARD_AUTOALLOCATE was not refused");
    Exchange(early, later, card,
             {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01});
    const std::string number = Exchange(early, later, card, {0x80, 0xB0, 0x00, 0x04, 0x02, 0x00, 0x0D});
    Check(number == std::string("1234567890121\x90", 14) + '\0', "the citizen number did not come back");
    const LONG disconnect = Disconnect(card, SCARD_LEAVE_CARD);
    const std::string answers = Format(
        "establish %lX context %lX, list %lX %lu \"%s\" then %d, connect %lX card %lX protocol %lu, "
        "status %lX state %lX protocol %lu ATR %lu, disconnect %lX",
        establish, static_cast<unsigned long>(context), list, count, readers, readers[20],
        connect, static_cast<unsigned long>(card), protocol, status, state, statusProtocol,
        atrLength, disconnect);
    Check(answers ==
              "establish 0 context 4D2, list 0 19 \"NEW6210 Reader Card\" then 0, connect 0 card "
              "1234 protocol 1, status 0 state 6 protocol 1 ATR 12, disconnect 0",
          "not the virtual reader: " + answers);
}

// --- the platform layer and the COM port driver ---------------------------------------------

CComPort g_com;
size_t g_logSeen = 0;

// The lines the log gained since the last call, without their stamps, each ended by '/': the
// bytes of a ">" or "<" line as the first three and their count, any other line cut at 20.
std::string NewLog()
{
    std::string content, lines;
    ReadWholeFile(LogFileName(g_strLogFolder, CurrentLocalTime()), content);
    for (size_t start = g_logSeen, end; start < content.size(); start = end + 2) {
        end = content.find("\r\n", start);
        if (end == std::string::npos)
            break;
        const size_t tab = content.find('\t', start);
        if (tab > end)
            continue;  // the empty line behind a system message's own line end
        const std::string text = content.substr(tab + 1, end - tab - 1);
        if (text[0] == '<' || text[0] == '>')
            lines += text.substr(0, 9) + Format("(%d)/", static_cast<int>(text.size() / 3));
        else
            lines += text.substr(0, 20) + "/";
    }
    g_logSeen = content.size();
    return lines;
}

// port_peer.py's commands: a letter and a 16-bit value.
void Command(char letter, int value)
{
    const unsigned char bytes[3] = {static_cast<unsigned char>(letter),
                                    static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value & 0xFF)};
    g_com.Write(bytes, 3);
    NewLog();
}

// Collects exactly `count` bytes, never asking for more than is left; gives them in hex.
std::string ReadExactly(int count, int timeoutMs = 3000)
{
    unsigned char buffer[16];
    int got = 0;
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(timeoutMs);
    while (got < count && GetTickCount64() < deadline) {
        const int n = g_com.Read(buffer + got, 10000, count - got);
        got += n > 0 ? n : 0;
        if (n <= 0)
            Sleep(5);
    }
    NewLog();
    return got == count ? BytesToHex(buffer, count) : "lost";
}

// Asks the peer for `count` bytes 01 02 .. FB 01 .. and waits until all are queued.
void QueuePattern(int count)
{
    Command('Q', count);
    COMSTAT status = {};
    for (int i = 0; i < 300 && status.cbInQue < static_cast<DWORD>(count); ++i) {
        Sleep(10);
        DWORD errors = 0;
        ClearCommError(g_com.m_hPort, &errors, &status);
    }
}

int g_apcCalls = 0;

void CALLBACK CountApc(ULONG_PTR)
{
    ++g_apcCalls;
}

// Files: a rewrite truncates, an append adds, bytes stay as they are, a failed read leaves
// the caller's text. Text: UTF-8 and the ANSI code page. The clock counts milliseconds while
// we sleep, and a host's APC runs during the library's sleep.
void CheckPlatform()
{
    const std::string path = g_strModuleFolder + "scratch.bin";
    std::string content = "untouched";
    Check(!ReadWholeFile(path + ".missing", content) && content == "untouched", "missing file");
    Check(WriteWholeFile(path, "x\0y\r\n", 5) && WriteWholeFile(path, "zz", 2) &&
              AppendToFile(path, "1\0\r\n", 4) && ReadWholeFile(path, content) &&
              content == std::string("zz1\0\r\n", 6),
          "write, rewrite and append did not give zz1\\0\\r\\n");
    Check(Utf8ToAnsi(std::string("a\0b", 3)) == std::string("a\0b", 3), "NUL in a text");
    Check(GetACP() != 1252 ||
              (Utf8ToAnsi("caf\xC3\xA9") == "caf\xE9" && AnsiToUtf8("caf\xE9") == "caf\xC3\xA9"),
          "code page 1252 conversion");
    const int32_t before = MillisecondClock();
    Sleep(100);
    const int32_t elapsed = MillisecondClock() - before;  // the tick moves in steps of ~16 ms
    Check(elapsed >= 80 && elapsed <= 1000, Format("the clock moved %d ms in 100", elapsed));
    QueueUserAPC(CountApc, GetCurrentThread(), 0);
    AlertableSleep(20);
    Check(g_apcCalls == 1, "the APC did not run during the sleep");
}

// The driver step by step, each step's result and log lines compared whole with what the
// driver must give. Opening an open port clears the hold and keeps the handle; the line is
// 921600 baud, 8N1, no flow control ('B', the speed LE, flags 1: CS8 alone). An empty queue
// reads 0 and logs nothing; below 256 the limit cuts a read and says so, from 256 on the whole
// queue comes; the caller's room bounds every read. Up to 100 bytes a write gives the length
// (nothing for none), above it 1; every byte reaches the far end (the peer's receipt: 'R',
// count, sum), and the log shows at most the first 100. A long write, which the slowed far end
// needs over a second for, delivers every byte. Closed twice or never opened, a port refuses
// with one line; no such port, or a device that is no serial port, fails the open.
void CheckDriver()
{
    std::string trace;
    auto step = [&](long long result) { trace += Format("%lld %s; ", result, NewLog().c_str()); };
    step(g_com.Open(g_port));
    HANDLE handle = g_com.m_hPort;
    g_com.m_nHold = 3;
    step(g_com.Open(g_port));
    step(g_com.m_nHold + 10 * (g_com.m_hPort == handle));
    // The line as the port reports it (the run preloads a UART's keeping of data bits and
    // parity into the pty), then as the far end sees it.
    DCB line = {};
    line.DCBlength = sizeof line;
    GetCommState(g_com.m_hPort, &line);
    trace += Format("%lu %u%c%c %d%d%d; ", line.BaudRate, line.ByteSize, "NOEMS?"[line.Parity % 6],
                    "1?2"[line.StopBits % 3], line.fOutxCtsFlow, line.fOutX, line.fInX);
    Command('B', 0);
    trace += ReadExactly(6) + "; ";

    static unsigned char buffer[1024];
    step(g_com.Read(buffer, 100));
    QueuePattern(5);
    step(g_com.Read(buffer, 1));
    step(g_com.Read(buffer, 100));
    QueuePattern(600);
    step(g_com.Read(buffer, 255));
    step(g_com.Read(buffer, 256));
    step(buffer[0]);
    std::memset(buffer, 0xEE, sizeof buffer);
    QueuePattern(200);
    step(g_com.Read(buffer, 10000, 10));
    step(buffer[10]);
    step(g_com.Read(buffer, 10000, 0));
    step(g_com.Read(buffer, 10000));

    trace += Format("%d %d; ", g_com.Write("AB", 0), g_com.Write("AB", -5));
    NewLog();
    static unsigned char data[204800];
    for (size_t i = 0; i < sizeof data; ++i)
        data[i] = static_cast<unsigned char>(i % 5 + 1);
    for (int length : {1, 100, 101, 1000}) {
        Command('D', length);
        step(g_com.Write(data, length));
        trace += ReadExactly(5) + "; ";
    }
    Command('L', static_cast<int>(sizeof data) / 16);
    const ULONGLONG start = GetTickCount64();
    step(g_com.Write(data, sizeof data));
    Check(GetTickCount64() - start >= 1000, "the far end took it all at once: proves nothing");
    trace += ReadExactly(5, 8000) + "; ";

    g_com.Close();
    g_com.Close();
    CComPort fresh;
    for (CComPort* port : {&fresh, &g_com}) {
        step(port->Read(buffer, 1));
        step(port->Write("x", 1));
    }
    for (int number : {-1, 250, 999999999, std::atoi(g_settings["null"].c_str())})
        step(fresh.Open(number) + 10 * fresh.m_bOpen);
    const std::string expected =
        "1 ; 1 ; 10 ; 921600 8N1 000; 42:00:10:0E:00:01; "
        "0 ; 1 in que 5/<01(1)/; 4 <02:03:04(4)/; "
        "255 in que 600/<01:02:03(255)/; 345 <05:06:07(345)/; 5 ; "
        "10 <01:02:03(10)/; 238 ; 0 ; 190 <0B:0C:0D(190)/; "
        "0 0; 1 >01(1)/; 52:00:01:00:01; 100 >01:02:03(100)/; 52:00:64:01:2C; "
        "1 >01:02:03(100)/; 52:00:65:01:2D; 1 >01:02:03(100)/; 52:03:E8:0B:B8; "
        "1 >01:02:03(100)/; 52:20:00:60:00; "
        "-1 ; 0 Com port not open/; -1 ; 0 Com port not open/; "
        "0 Invalid Handle Value/; 0 Invalid Handle Value/; 0 Invalid Handle Value/; "
        "0 Set Time Out Error :/; ";
    Check(trace == expected, "the driver's steps gave\n" + trace + "\ninstead of\n" + expected);
}

// The far end stops reading: writes go pending. A long one is given up after the line's own
// write time-out of 5 s, and the port works on afterwards.
void CheckStalledLine()
{
    static unsigned char zeros[4000];  // bytes the peer ignores
    Check(g_com.Open(g_port) == 1, "the port did not open");
    Command('S', 7000);
    const ULONGLONG stallStart = GetTickCount64();
    ULONGLONG took = 0;
    for (int i = 0; i < 40 && took < 900; ++i) {
        const ULONGLONG start = GetTickCount64();
        Check(g_com.Write(zeros, sizeof zeros) == 1, "a stalled write did not give 1");
        took = GetTickCount64() - start;
    }
    Check(took >= 4500 && took <= 6500, Format("the stalled write took %d ms", int(took)));
    const ULONGLONG elapsed = GetTickCount64() - stallStart;
    Sleep(elapsed < 7500 ? static_cast<DWORD>(7500 - elapsed) : 0);
    Command('Q', 3);
    Check(ReadExactly(3, 5000) == "01:02:03", "the port did not work on");
}

// The first failed check ends the scenario.
void RunWin32()
{
    LogInit();  // the log beside this program, whatever its config says: the cases read it
    g_nLogMode = 1;
    CreateFolder(g_strModuleFolder + "Log");
    CreateFolder(g_strLogFolder);
    CheckPlatform();
    CheckStalledLine();
    CheckDriver();
}

const std::pair<std::string, void (*)()> Scenarios[] = {
    {"pcsc", RunPcsc}, {"win32", RunWin32}, {"upload", RunUpload}, {"unplug", RunUnplug},
    {"portscan", RunPortScan}};

std::function<void()> FindScenario(const std::string& name)
{
    for (const auto& scenario : Scenarios)
        if (scenario.first == name)
            return scenario.second;
    for (const TextRead& row : TextReads)
        if (name == row.scenario)
            return [&row] { RunTextRead(row); };
    return nullptr;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::function<void()> run = argc < 3 ? nullptr : FindScenario(argv[1]);
    if (!run) {
        std::fprintf(stderr, "usage: wine_host.exe <scenario> <COM number> [name=value ...]\n");
        return 2;
    }
    g_port = std::atoi(argv[2]);
    for (int i = 3; i < argc; ++i) {
        const char* equals = std::strchr(argv[i], '=');
        if (equals != nullptr)
            g_settings[std::string(argv[i], equals - argv[i])] = equals + 1;
    }
    char path[MAX_PATH];
    std::string library(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
    library = library.substr(0, library.find_last_of('\\') + 1) + "Varnik.dll";
    const bool win32 = std::strcmp(argv[1], "win32") == 0;
    g_library = win32 ? nullptr : LoadLibraryA(library.c_str());
    try {
        Check(g_library != nullptr || win32, "cannot load " + library);
        run();
        std::printf("PASS %s\n", argv[1]);
        return 0;
    } catch (const std::exception& failure) {
        std::printf("FAIL %s: %s\n", argv[1], failure.what());
        return 1;
    }
}
