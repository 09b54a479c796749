// The Windows side of the library on Wine. The platform layer: files, folders, text, clock,
// alertable sleep, message pump and lock. The COM port driver, against port_peer.py on a
// pseudo-terminal: results, limits, the bytes that arrive at the far end, the log lines, and a
// stalled line that sends writes down the pending path.
//
//   wine_win32_test.exe <COM number of the peer> <COM number linked to /dev/null>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

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

#define EXPECT_EQ(actual, expected)                                                           \
    do {                                                                                      \
        long long actual_ = (actual), expected_ = (expected);                                 \
        if (actual_ != expected_)                                                             \
            Fail(__LINE__, Format("%s is %lld, expected %lld", #actual, actual_, expected_)); \
    } while (0)
#define EXPECT_TEXT(actual, expected)                                                   \
    do {                                                                                \
        std::string actual_ = (actual), expected_ = (expected);                         \
        if (actual_ != expected_)                                                       \
            Fail(__LINE__, Format("%s is \"%s\", expected \"%s\"", #actual,            \
                                  actual_.c_str(), expected_.c_str()));                 \
    } while (0)
#define EXPECT_TRUE(condition)                        \
    do {                                              \
        if (!(condition))                             \
            Fail(__LINE__, "not true: " #condition); \
    } while (0)

// --- the log -----------------------------------------------------------------------------

size_t g_logSeen = 0;

// Text the log gained since the last call, as "text\n" per line without the stamps.
std::string NewLog()
{
    std::string content;
    ReadWholeFile(LogFileName(g_strLogFolder, CurrentLocalTime()), content);
    std::string fresh = content.size() > g_logSeen ? content.substr(g_logSeen) : std::string();
    g_logSeen = content.size();
    std::string lines;
    size_t start = 0;
    while (start < fresh.size()) {
        size_t end = fresh.find("\r\n", start);
        std::string line = fresh.substr(start, end == std::string::npos ? end : end - start);
        size_t tab = line.find('\t');
        lines += (tab == std::string::npos ? line : line.substr(tab + 1)) + "\n";
        start = end == std::string::npos ? fresh.size() : end + 2;
    }
    return lines;
}

bool HasLine(const std::string& log, const std::string& line)
{
    return ("\n" + log).find("\n" + line + "\n") != std::string::npos;
}

bool Contains(const std::string& log, const std::string& text)
{
    return log.find(text) != std::string::npos;
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

// Waits until at least `count` bytes are queued, so that one Read sees all of them.
void WaitQueued(DWORD count)
{
    ULONGLONG deadline = GetTickCount64() + 3000;
    while (GetTickCount64() < deadline) {
        DWORD errors = 0;
        COMSTAT status;
        std::memset(&status, 0, sizeof status);
        ClearCommError(g_port.m_hPort, &errors, &status);
        if (status.cbInQue >= count) {
            return;
        }
        Sleep(10);
    }
}

unsigned char Pattern(int index)
{
    return static_cast<unsigned char>(index % 251 + 1);
}

// --- platform cases ----------------------------------------------------------------------

std::string Scratch(const char* name)
{
    return g_strModuleFolder + "scratch\\" + name;
}

void FilesAndFolders()
{
    std::string folder = g_strModuleFolder + "scratch";
    CreateFolder(folder);
    EXPECT_TRUE(!CreateFolder(folder));  // exists already
    EXPECT_TRUE(CreateFolder(Scratch("sub")));

    std::string content;
    EXPECT_TRUE(WriteWholeFile(Scratch("a.bin"), "x\0y\r\n", 5));
    EXPECT_TRUE(ReadWholeFile(Scratch("a.bin"), content));
    EXPECT_TEXT(content, std::string("x\0y\r\n", 5));  // binary, NUL and CR LF kept
    EXPECT_TRUE(WriteWholeFile(Scratch("a.bin"), "zz", 2));
    EXPECT_TRUE(ReadWholeFile(Scratch("a.bin"), content));
    EXPECT_TEXT(content, "zz");  // truncated
    EXPECT_TRUE(AppendToFile(Scratch("a.bin"), "12", 2));
    EXPECT_TRUE(AppendToFile(Scratch("new.log"), "34", 2));  // created if absent
    EXPECT_TRUE(ReadWholeFile(Scratch("a.bin"), content));
    EXPECT_TEXT(content, "zz12");
    content = "untouched";
    EXPECT_TRUE(!ReadWholeFile(Scratch("missing"), content));
    EXPECT_TEXT(content, "untouched");

    // No sharing: while another handle holds the file, an append is refused.
    HANDLE held = CreateFileA(Scratch("a.bin").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_TRUE(held != INVALID_HANDLE_VALUE);
    EXPECT_TRUE(!AppendToFile(Scratch("a.bin"), "56", 2));
    CloseHandle(held);
    EXPECT_TRUE(ReadWholeFile(Scratch("a.bin"), content));
    EXPECT_TEXT(content, "zz12");

    // Plain files only, with or without a closing separator.
    for (const std::string& path : {folder, folder + "\\", folder + "/"}) {
        std::vector<std::string> names = ListFolderFiles(path);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names.size(), 2);
        if (names.size() == 2) {
            EXPECT_TEXT(names[0], "a.bin");
            EXPECT_TEXT(names[1], "new.log");
        }
    }
    EXPECT_EQ(ListFolderFiles(Scratch("nothing here")).size(), 0);
}

void WhereWeAre()
{
    char own[MAX_PATH];
    DWORD length = GetModuleFileNameA(nullptr, own, MAX_PATH);
    // Linked into this program, the library's module is the program itself.
    EXPECT_TEXT(ModuleFilePath(), std::string(own, length));
    EXPECT_EQ(FolderSeparator(), '\\');
    EXPECT_TEXT(g_strModuleName, "wine_win32_test");
    EXPECT_TRUE(!g_strModuleFolder.empty() && g_strModuleFolder.back() == '\\');
}

void Text()
{
    EXPECT_TEXT(Utf8ToAnsi(""), "");
    EXPECT_TEXT(Utf8ToAnsi(std::string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_TEXT(AnsiToUtf8("plain ASCII"), "plain ASCII");
    // One character of the code page in force, both ways.
    UINT codePage = GetACP();
    std::printf("    (ANSI code page %u)\n", codePage);
    if (codePage == 1252) {
        EXPECT_TEXT(Utf8ToAnsi("caf\xC3\xA9"), "caf\xE9");
        EXPECT_TEXT(AnsiToUtf8("caf\xE9"), "caf\xC3\xA9");
    } else if (codePage == 874) {
        EXPECT_TEXT(Utf8ToAnsi("\xE0\xB8\x81"), "\xA1");
        EXPECT_TEXT(AnsiToUtf8("\xA1"), "\xE0\xB8\x81");
    }
}

void ClockAndTime()
{
    // The tick count moves in steps of about 16 ms: compare with the fine-grained counter.
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    int32_t before = MillisecondClock();
    Sleep(60);
    int32_t elapsed = MillisecondClock() - before;
    QueryPerformanceCounter(&end);
    long long reference = (end.QuadPart - start.QuadPart) * 1000 / frequency.QuadPart;
    if (elapsed < 0 || elapsed < reference - 40 || elapsed > reference + 40) {
        Fail(__LINE__, Format("the clock moved %d ms in %lld ms", elapsed, reference));
    }

    SYSTEMTIME now;
    GetLocalTime(&now);
    LocalTime time = CurrentLocalTime();
    EXPECT_EQ(time.year, now.wYear);
    EXPECT_EQ(time.month, now.wMonth);
    EXPECT_TRUE(time.day >= 1 && time.day <= 31 && time.hour < 24 && time.minute < 60 &&
                time.second < 61);
}

int g_apcCalls = 0;

void CALLBACK CountApc(ULONG_PTR)
{
    ++g_apcCalls;
}

// The two ways a cancel reaches a waiting call on its own thread.
void SleepAndPump()
{
    g_apcCalls = 0;
    QueueUserAPC(CountApc, GetCurrentThread(), 0);
    AlertableSleep(20);
    EXPECT_EQ(g_apcCalls, 1);

    MSG message;
    while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
    }
    PostThreadMessageA(GetCurrentThreadId(), WM_APP, 1, 0);
    PostThreadMessageA(GetCurrentThreadId(), WM_APP, 2, 0);
    PumpOneMessage();  // one message per call, no more
    EXPECT_TRUE(PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE) && message.wParam == 2);
    EXPECT_TRUE(!PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
    PumpOneMessage();  // an empty queue: returns at once
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
    g_counter = 0;
    HANDLE threads[2];
    for (HANDLE& thread : threads) {
        thread = CreateThread(nullptr, 0, CountUnderLock, nullptr, 0, nullptr);
    }
    WaitForMultipleObjects(2, threads, TRUE, 30000);
    for (HANDLE thread : threads) {
        CloseHandle(thread);
    }
    EXPECT_EQ(g_counter, 200000);
}

// --- port cases --------------------------------------------------------------------------

void ClosedPort()
{
    CComPort port;
    unsigned char buffer[4];
    NewLog();
    EXPECT_EQ(port.Read(buffer, 1), -1);
    EXPECT_EQ(NewLog().size(), 0);
    EXPECT_EQ(port.Write("x", 1), 0);
    EXPECT_TEXT(NewLog(), std::string("Com port not open\n"));
}

void OpenTwice()
{
    g_port.m_nHold = 7;
    EXPECT_EQ(g_port.Open(g_peerPort), 1);
    EXPECT_EQ(g_port.m_nHold, 0);
    EXPECT_EQ(g_port.m_bOpen, 1);
    HANDLE handle = g_port.m_hPort;
    g_port.m_nHold = 3;
    EXPECT_EQ(g_port.Open(g_peerPort), 1);
    EXPECT_EQ(g_port.m_nHold, 0);
    EXPECT_TRUE(g_port.m_hPort == handle);
}

// What the far end of the line was set to: 921600 baud, 8N1, no flow control of any kind.
void LineSettings()
{
    unsigned char reply[6];
    EXPECT_EQ(g_port.Write("B", 1), 1);
    EXPECT_TRUE(ReadExactly(reply, 6));
    EXPECT_EQ(reply[0], 'B');
    EXPECT_EQ(reply[1] | reply[2] << 8 | reply[3] << 16 | reply[4] << 24, 921600);
    EXPECT_EQ(reply[5], 1);  // CS8 and nothing else
}

void EmptyQueue()
{
    unsigned char buffer[16];
    NewLog();
    EXPECT_EQ(g_port.Read(buffer, 100), 0);
    EXPECT_EQ(NewLog().size(), 0);
}

// Below 256 the limit cuts the read and says so; from 256 on the whole queue comes.
void ReadLimits()
{
    static unsigned char buffer[1024];
    Command('Q', 5);
    WaitQueued(5);
    NewLog();
    EXPECT_EQ(g_port.Read(buffer, 1), 1);
    EXPECT_EQ(buffer[0], 1);
    std::string log = NewLog();
    EXPECT_TRUE(HasLine(log, "in que 5"));
    EXPECT_TRUE(HasLine(log, "<01"));
    EXPECT_EQ(g_port.Read(buffer, 100), 4);
    EXPECT_EQ(buffer[3], 5);
    log = NewLog();
    EXPECT_TRUE(!Contains(log, "in que"));
    EXPECT_TRUE(HasLine(log, "<02:03:04:05"));

    Command('Q', 500);
    WaitQueued(500);
    NewLog();
    EXPECT_EQ(g_port.Read(buffer, 255), 255);
    EXPECT_TRUE(HasLine(NewLog(), "in que 500"));
    EXPECT_EQ(g_port.Read(buffer, 300), 245);
    EXPECT_EQ(buffer[0], Pattern(255));
    EXPECT_TRUE(!Contains(NewLog(), "in que"));

    Command('Q', 300);
    WaitQueued(300);
    EXPECT_EQ(g_port.Read(buffer, 256), 300);
    EXPECT_TRUE(!Contains(NewLog(), "in que"));
}

// The caller's room bounds every read, whatever is queued.
void ReadRoom()
{
    unsigned char buffer[300];
    std::memset(buffer, 0xEE, sizeof buffer);
    Command('Q', 200);
    WaitQueued(200);
    EXPECT_EQ(g_port.Read(buffer, 10000, 10), 10);
    EXPECT_EQ(buffer[9], Pattern(9));
    EXPECT_EQ(buffer[10], 0xEE);
    EXPECT_EQ(g_port.Read(buffer, 10000, 0), 0);
    EXPECT_EQ(g_port.Read(buffer, 10000), 190);
    EXPECT_EQ(buffer[189], Pattern(199));
}

// Up to 100 bytes the result is the length, above it 1; every byte reaches the far end, and
// the log shows at most the first 100.
void WriteSizes()
{
    static unsigned char data[1000];
    for (int i = 0; i < 1000; ++i) {
        data[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    for (int length : {1, 99, 100, 101, 1000}) {
        Command('D', length);
        NewLog();
        EXPECT_EQ(g_port.Write(data, length), length <= 100 ? length : 1);
        std::string log = NewLog();
        std::string shown = BytesToHex(data, length < 100 ? length : 100);
        if (!HasLine(log, ">" + shown)) {
            Fail(__LINE__, Format("no line \">%s\" for %d bytes", shown.c_str(), length));
        }
        unsigned char reply[5];
        int sum = 0;
        for (int i = 0; i < length; ++i) {
            sum += data[i];
        }
        if (!ReadExactly(reply, 5)) {
            Fail(__LINE__, Format("no receipt for %d bytes", length));
            continue;
        }
        EXPECT_EQ(reply[0], 'R');
        EXPECT_EQ(reply[1] << 8 | reply[2], length);
        EXPECT_EQ(reply[3] << 8 | reply[4], sum % 65536);
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
    unsigned char reply[5];
    if (!ReadExactly(reply, 5, 8000)) {
        Fail(__LINE__, "no receipt: bytes of the long write were lost");
        return;
    }
    EXPECT_EQ(reply[0], 'R');
    EXPECT_EQ(reply[1] << 8 | reply[2], static_cast<int>(sizeof data) % 65536);
    EXPECT_EQ(reply[3] << 8 | reply[4], sum % 65536);
}

void WriteNothing()
{
    const char text[] = "AB";
    NewLog();
    EXPECT_EQ(g_port.Write(text, 0), 0);
    EXPECT_EQ(g_port.Write(text, -5), 0);
    // A count below 1 logs up to the first zero byte.
    EXPECT_TEXT(NewLog(), std::string(">41:42\n>41:42\n"));
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

void CloseTwice()
{
    unsigned char buffer[4];
    g_port.Close();
    EXPECT_EQ(g_port.m_bOpen, 0);
    EXPECT_TRUE(g_port.m_hPort == NullPortHandle);
    g_port.Close();
    EXPECT_EQ(g_port.Read(buffer, 1), -1);
    NewLog();
    EXPECT_EQ(g_port.Write("x", 1), 0);
    EXPECT_TEXT(NewLog(), std::string("Com port not open\n"));
}

void OpenFailures()
{
    CComPort port;
    NewLog();
    EXPECT_EQ(port.Open(-1), 0);  // "COM-1"
    EXPECT_EQ(port.m_bOpen, 0);
    EXPECT_TRUE(Contains(NewLog(), "Invalid Handle Value: "));
    EXPECT_EQ(port.Open(250), 0);  // nothing linked there
    EXPECT_TRUE(Contains(NewLog(), "Invalid Handle Value: "));
    EXPECT_EQ(port.Open(999999999), 0);  // a name longer than its buffer
    EXPECT_TRUE(Contains(NewLog(), "Invalid Handle Value: "));
    // Not a serial device: Wine refuses the time-outs.
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
    {"files and folders", FilesAndFolders},
    {"where we are", WhereWeAre},
    {"text", Text},
    {"clock and time", ClockAndTime},
    {"sleep and pump", SleepAndPump},
    {"lock", Lock},
    {"closed port", ClosedPort},     {"open twice", OpenTwice},
    {"line settings", LineSettings}, {"empty queue", EmptyQueue},
    {"read limits", ReadLimits},     {"read room", ReadRoom},
    {"write sizes", WriteSizes},     {"long write", LongWrite},
    {"write nothing", WriteNothing},
    {"stalled line", StalledLine},   {"close twice", CloseTwice},
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
