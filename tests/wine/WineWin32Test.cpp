// The Windows side of the library on Wine, where the host scenarios do not reach it. The
// platform layer: files, text, clock, alertable sleep and lock. The COM port driver, against
// port_peer.py on a pseudo-terminal: results, limits, the bytes that arrive at the far end,
// the log lines, and a stalled line that sends writes down the pending path.
//
//   wine_win32_test.exe <COM number of the peer> <COM number linked to /dev/null>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <string>

#include "serial/CComPort.h"
#include "support/Format.h"
#include "support/Log.h"

namespace {

int g_peerPort = 0;
int g_nullPort = 0;
CComPort g_port;
std::string g_failures;  // of the case that runs

void Fail(int line, const std::string& what)
{
    g_failures += Format("    line %d: %s\n", line, what.c_str());
}

void ExpectEqual(int line, const char* what, long long actual, long long expected)
{
    if (actual != expected)
        Fail(line, Format("%s is %lld, expected %lld", what, actual, expected));
}

void ExpectText(int line, const char* what, const std::string& actual, const std::string& expected)
{
    if (actual != expected)
        Fail(line, Format("%s is \"%s\", expected \"%s\"", what, actual.c_str(), expected.c_str()));
}

#define EXPECT_EQ(actual, expected) ExpectEqual(__LINE__, #actual, (actual), (expected))
#define EXPECT_TEXT(actual, expected) ExpectText(__LINE__, #actual, (actual), (expected))
#define EXPECT_TRUE(condition) ((condition) ? void() : Fail(__LINE__, "not true: " #condition))

// --- the log -----------------------------------------------------------------------------

size_t g_logSeen = 0;

// The lines the log gained since the last call, each as "text\n" without its stamp.
std::string NewLog()
{
    std::string content;
    ReadWholeFile(LogFileName(g_strLogFolder, CurrentLocalTime()), content);
    std::string lines;
    for (size_t start = g_logSeen, end; start < content.size(); start = end + 2) {
        end = content.find("\r\n", start);
        if (end == std::string::npos)
            break;
        size_t tab = content.find('\t', start);
        lines += content.substr(tab + 1, end - tab - 1) + "\n";
    }
    g_logSeen = content.size();
    return lines;
}

bool Contains(const std::string& log, const std::string& text)
{
    return log.find(text) != std::string::npos;
}

bool HasLine(const std::string& log, const std::string& line)
{
    return Contains("\n" + log, "\n" + line + "\n");
}

// --- the peer ----------------------------------------------------------------------------

void Command(char letter, int value)
{
    unsigned char bytes[3] = {static_cast<unsigned char>(letter),
                              static_cast<unsigned char>(value >> 8),
                              static_cast<unsigned char>(value & 0xFF)};
    g_port.Write(bytes, 3);
}

// Collects exactly `count` bytes, never asking for more than is left.
bool ReadExactly(unsigned char* buffer, int count, int timeoutMs = 3000)
{
    int got = 0;
    ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(timeoutMs);
    while (got < count && GetTickCount64() < deadline) {
        int n = g_port.Read(buffer + got, 10000, count - got);
        if (n > 0) {
            got += n;
        } else {
            Sleep(5);
        }
    }
    return got == count;
}

// Asks the peer for `count` pattern bytes and waits until all are queued, so that one Read
// sees all of them.
void QueuePattern(int count)
{
    Command('Q', count);
    ULONGLONG deadline = GetTickCount64() + 3000;
    COMSTAT status;
    do {
        Sleep(10);
        DWORD errors = 0;
        std::memset(&status, 0, sizeof status);
        ClearCommError(g_port.m_hPort, &errors, &status);
    } while (status.cbInQue < static_cast<DWORD>(count) && GetTickCount64() < deadline);
}

// The peer's receipt for bytes it took: 'R', their count and their sum, each modulo 65536.
void ExpectReceipt(int line, int count, int sum, int timeoutMs = 3000)
{
    unsigned char receipt[5] = {};
    if (!ReadExactly(receipt, 5, timeoutMs))
        return Fail(line, Format("no receipt for %d bytes: some were lost", count));
    ExpectEqual(line, "the receipt's count", receipt[1] << 8 | receipt[2], count % 65536);
    ExpectEqual(line, "the receipt's sum", receipt[3] << 8 | receipt[4], sum % 65536);
}

unsigned char Pattern(int index)
{
    return static_cast<unsigned char>(index % 251 + 1);
}

// --- platform cases ----------------------------------------------------------------------

// What the config files and the log stand on: a rewrite truncates, an append adds, bytes stay
// as they are, and a failed read leaves the caller's text.
void Files()
{
    const std::string path = g_strModuleFolder + "scratch.bin";
    std::string content = "untouched";
    EXPECT_TRUE(!ReadWholeFile(path + ".missing", content));
    EXPECT_TEXT(content, "untouched");
    EXPECT_TRUE(WriteWholeFile(path, "x\0y\r\n", 5));
    EXPECT_TRUE(WriteWholeFile(path, "zz", 2));
    EXPECT_TRUE(AppendToFile(path, "1\0\r\n", 4));
    EXPECT_TRUE(ReadWholeFile(path, content));
    EXPECT_TEXT(content, std::string("zz1\0\r\n", 6));
}

void Text()
{
    EXPECT_TEXT(Utf8ToAnsi(std::string("a\0b", 3)), std::string("a\0b", 3));
    UINT codePage = GetACP();
    std::printf("    (ANSI code page %u)\n", codePage);
    if (codePage == 1252) {
        EXPECT_TEXT(Utf8ToAnsi("caf\xC3\xA9"), "caf\xE9");
        EXPECT_TEXT(AnsiToUtf8("caf\xE9"), "caf\xC3\xA9");
    }
}

// The probe's windows are measured with this clock: milliseconds, moving while we sleep.
void Clock()
{
    int32_t before = MillisecondClock();
    Sleep(100);
    int32_t elapsed = MillisecondClock() - before;
    if (elapsed < 80 || elapsed > 1000) {  // the tick count moves in steps of about 16 ms
        Fail(__LINE__, Format("the clock moved %d ms in a sleep of 100 ms", elapsed));
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    LocalTime time = CurrentLocalTime();
    EXPECT_TRUE(time.year == now.wYear && time.month == now.wMonth && time.day == now.wDay);
}

int g_apcCalls = 0;

void CALLBACK CountApc(ULONG_PTR)
{
    ++g_apcCalls;
}

// A host's APC (which may call PosCancel) runs while a wait sleeps.
void AlertableWait()
{
    QueueUserAPC(CountApc, GetCurrentThread(), 0);
    AlertableSleep(20);
    EXPECT_EQ(g_apcCalls, 1);
}

PlatformLock g_lock;
long g_counter = 0;

DWORD WINAPI CountUnderLock(void*)
{
    for (int i = 0; i < 100000; ++i) {
        LockScope scope(g_lock);
        LockScope again(g_lock);  // the same thread may enter twice
        long value = g_counter;
        g_counter = value + 1;
    }
    return 0;
}

void Lock()
{
    HANDLE threads[2] = {CreateThread(nullptr, 0, CountUnderLock, nullptr, 0, nullptr),
                         CreateThread(nullptr, 0, CountUnderLock, nullptr, 0, nullptr)};
    WaitForMultipleObjects(2, threads, TRUE, 30000);
    CloseHandle(threads[0]);
    CloseHandle(threads[1]);
    EXPECT_EQ(g_counter, 200000);
}

// --- port cases --------------------------------------------------------------------------

// Opening an open port clears the hold and keeps the handle. The far end of the line is set
// to 921600 baud, 8N1, no flow control of any kind.
void Open()
{
    EXPECT_EQ(g_port.Open(g_peerPort), 1);
    HANDLE handle = g_port.m_hPort;
    g_port.m_nHold = 3;
    EXPECT_EQ(g_port.Open(g_peerPort), 1);
    EXPECT_EQ(g_port.m_nHold, 0);
    EXPECT_TRUE(g_port.m_hPort == handle);

    unsigned char reply[6];
    EXPECT_EQ(g_port.Write("B", 1), 1);
    EXPECT_TRUE(ReadExactly(reply, 6));
    EXPECT_EQ(reply[1] | reply[2] << 8 | reply[3] << 16 | reply[4] << 24, 921600);
    EXPECT_EQ(reply[5], 1);  // CS8 and nothing else
}

// An empty queue reads 0 and logs nothing. Below 256 the limit cuts the read and says so;
// from 256 on the whole queue comes. The caller's room bounds every read.
void Reads()
{
    static unsigned char buffer[1024];
    NewLog();
    EXPECT_EQ(g_port.Read(buffer, 100), 0);
    EXPECT_EQ(NewLog().size(), 0);

    QueuePattern(5);
    EXPECT_EQ(g_port.Read(buffer, 1), 1);
    std::string log = NewLog();
    EXPECT_TRUE(HasLine(log, "in que 5") && HasLine(log, "<01"));
    EXPECT_EQ(g_port.Read(buffer, 100), 4);
    log = NewLog();
    EXPECT_TRUE(!Contains(log, "in que") && HasLine(log, "<02:03:04:05"));

    QueuePattern(600);
    EXPECT_EQ(g_port.Read(buffer, 255), 255);
    EXPECT_TRUE(HasLine(NewLog(), "in que 600"));
    EXPECT_EQ(g_port.Read(buffer, 256), 345);
    EXPECT_EQ(buffer[0], Pattern(255));
    EXPECT_TRUE(!Contains(NewLog(), "in que"));

    std::memset(buffer, 0xEE, sizeof buffer);
    QueuePattern(200);
    EXPECT_EQ(g_port.Read(buffer, 10000, 10), 10);
    EXPECT_EQ(buffer[10], 0xEE);
    EXPECT_EQ(g_port.Read(buffer, 10000, 0), 0);
    EXPECT_EQ(g_port.Read(buffer, 10000), 190);
    EXPECT_EQ(buffer[189], Pattern(199));
}

// Up to 100 bytes the result is the length (nothing is none), above it 1; every byte reaches
// the far end, and the log shows at most the first 100.
void Writes()
{
    EXPECT_EQ(g_port.Write("AB", 0), 0);
    EXPECT_EQ(g_port.Write("AB", -5), 0);
    static unsigned char data[1000];
    for (int i = 0; i < 1000; ++i) {
        data[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    for (int length : {1, 100, 101, 1000}) {
        Command('D', length);
        NewLog();
        EXPECT_EQ(g_port.Write(data, length), length <= 100 ? length : 1);
        if (!HasLine(NewLog(), ">" + BytesToHex(data, std::min(length, 100)))) {
            Fail(__LINE__, Format("no line of the first bytes of %d", length));
        }
        int sum = 0;
        for (int i = 0; i < length; ++i) {
            sum += data[i];
        }
        ExpectReceipt(__LINE__, length, sum);
    }
}

// A file goes out in pieces of the whole transmit buffer, which the line needs more than two
// seconds for: a write that takes longer than the one-second wait must still deliver every
// byte, and be over when it returns.
void LongWrite()
{
    static unsigned char data[204800];
    int sum = 0;
    for (int i = 0; i < static_cast<int>(sizeof data); ++i) {
        data[i] = static_cast<unsigned char>(i * 13 + 5);
        sum += data[i];
    }
    Command('L', static_cast<int>(sizeof data) / 16);
    ULONGLONG start = GetTickCount64();
    EXPECT_EQ(g_port.Write(data, sizeof data), 1);
    ULONGLONG took = GetTickCount64() - start;
    if (took < 1000) {
        Fail(__LINE__, Format("the far end took it all in %d ms: the case proves nothing",
                              static_cast<int>(took)));
    }
    ExpectReceipt(__LINE__, static_cast<int>(sizeof data), sum, 8000);
}

// The far end stops reading: writes go pending. A long one is given up after the line's own
// write time-out of 5 s, cancelled and waited for, and the port works on afterwards.
void StalledLine()
{
    static unsigned char zeros[4000];  // bytes the peer ignores
    const int stallMs = 7000;
    Command('S', stallMs);
    ULONGLONG stallStart = GetTickCount64();
    bool backedUp = false;
    for (int i = 0; i < 40 && !backedUp; ++i) {
        ULONGLONG start = GetTickCount64();
        EXPECT_EQ(g_port.Write(zeros, sizeof zeros), 1);
        ULONGLONG took = GetTickCount64() - start;
        if (took >= 900) {
            backedUp = true;
            if (took < 4500 || took > 6500) {
                Fail(__LINE__, Format("a stalled long write took %d ms", static_cast<int>(took)));
            }
        }
    }
    EXPECT_TRUE(backedUp);
    ULONGLONG elapsed = GetTickCount64() - stallStart;
    if (elapsed < static_cast<ULONGLONG>(stallMs) + 500) {
        Sleep(static_cast<DWORD>(stallMs + 500 - elapsed));
    }
    unsigned char buffer[3];
    Command('Q', 3);
    EXPECT_TRUE(ReadExactly(buffer, 3, 5000));
    EXPECT_EQ(buffer[2], 3);
}

// A port never opened, and one closed twice over: reads give -1, writes 0 and one line.
void ClosedPorts()
{
    g_port.Close();
    g_port.Close();
    EXPECT_TRUE(g_port.m_hPort == NullPortHandle);
    CComPort fresh;
    for (CComPort* port : {&fresh, &g_port}) {
        unsigned char buffer[4];
        NewLog();
        EXPECT_EQ(port->Read(buffer, 1), -1);
        EXPECT_EQ(port->Write("x", 1), 0);
        EXPECT_TEXT(NewLog(), "Com port not open\n");
    }
}

// No such port ("COM-1", nothing linked, a name longer than its buffer), and a device that
// is no serial port, whose time-outs Wine refuses.
void OpenFailures()
{
    CComPort port;
    NewLog();
    for (int number : {-1, 250, 999999999}) {
        EXPECT_EQ(port.Open(number), 0);
        EXPECT_TRUE(Contains(NewLog(), "Invalid Handle Value: "));
    }
    EXPECT_EQ(port.Open(g_nullPort), 0);
    EXPECT_EQ(port.m_bOpen, 0);
    EXPECT_TRUE(Contains(NewLog(), "Set Time Out Error : "));
}

struct Case {
    const char* name;
    void (*run)();
};

// In order: the open port carries over from case to case.
const Case g_cases[] = {
    {"files", Files},           {"text", Text},
    {"clock", Clock},           {"alertable wait", AlertableWait},
    {"lock", Lock},             {"open", Open},
    {"reads", Reads},           {"writes", Writes},
    {"long write", LongWrite},  {"stalled line", StalledLine},
    {"closed ports", ClosedPorts},
    {"open failures", OpenFailures},
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: wine_win32_test.exe <peer COM number> <null COM number>\n");
        return 2;
    }
    g_peerPort = std::atoi(argv[1]);
    g_nullPort = std::atoi(argv[2]);

    // Log beside the executable whatever its config says: the cases read the lines back.
    LogInit();
    g_nLogMode = 1;
    CreateFolder(g_strModuleFolder + "Log");
    CreateFolder(g_strLogFolder);

    int failed = 0;
    for (const Case& each : g_cases) {
        g_failures.clear();
        each.run();
        if (g_failures.empty()) {
            std::printf("PASS %s\n", each.name);
        } else {
            std::printf("FAIL %s\n%s", each.name, g_failures.c_str());
            ++failed;
        }
        std::fflush(stdout);
    }
    std::printf("%d of %d cases failed\n", failed, static_cast<int>(sizeof g_cases / sizeof g_cases[0]));
    return failed == 0 ? 0 : 1;
}
