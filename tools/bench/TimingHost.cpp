// varnik-timing: times one figure of the library against a terminal (the simulator, as
// scripts/bench.sh runs it) and prints "median min max count", milliseconds per call, or for
// cpu-wait the share of a core in percent, three times, and 1; then the number of calls that
// failed.
//
//   varnik-timing LIBRARY FIGURE RUNS [SECONDS]
//
// Figures: version (getVersion), stripe (MsreRead), thaiid (ThaiIDRead, text), thaiid-photo
// (ThaiIDRead, block with photo), pcsc-thaiid (ReaderSelect once, then per run the whole card
// through plain PC/SC calls: context, reader list, connect, status, every field and the photo),
// cpu-wait (a PIN entry that waits SECONDS for the customer; the simulator runs --pin-wait).
// One call before the runs warms up and is not counted; the count printed includes it, so that
// the script can divide the bytes on the line by it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "BenchPlatform.h"
#include "LibraryLoader.h"
#include "PcscLoader.h"
#include "PcscSession.h"

namespace {

VarnikApi g_api;
std::vector<char> g_out(1 << 20);

int Fail(const std::string& why)
{
    std::fprintf(stderr, "varnik-timing: %s\n", why.c_str());
    return 1;
}

int g_failed = 0;

// Milliseconds of each of `runs` calls, after one call that is not counted. A call that fails
// (on a loaded machine the simulator may pause past the 5 ms that end a reply) is counted apart.
std::vector<double> Time(int runs, const std::function<bool()>& call)
{
    std::vector<double> times;
    g_out[0] = 0;
    g_failed += !call();
    for (int i = 0; i < runs; ++i) {
        g_out[0] = 0;  // an export that never reached the terminal leaves it so
        auto start = std::chrono::steady_clock::now();
        bool done = call();
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (done)
            times.push_back(ms);
        else
            ++g_failed;
    }
    return times;
}

void Print(std::vector<double> values, size_t count)
{
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    std::printf("%.3f %.3f %.3f %zu %d\n", median, values.front(), values.back(), count, g_failed);
}

bool ReadCardThroughPcsc(const PcscApi& api)
{
    PcscSession session(api);
    std::vector<std::string> readers;
    ByteString atr;
    ThaiIdCard card;
    std::string error;
    if (session.Establish() != 0 || session.ListReaders(readers) != 0 || readers.empty() ||
        session.Connect(readers.front()) != 0 || session.Status(atr) != 0)
        return false;
    return ReadThaiIdCard(session, atr, card, error) && !card.photo.empty();
}

void WaitForPin()
{
    unsigned char key[64];
    g_api.PinReadKey(key);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return Fail("usage: varnik-timing LIBRARY FIGURE RUNS [SECONDS]");
    const std::string figure = argv[2];
    const int runs = std::max(1, std::atoi(argv[3]));
    const double seconds = argc > 4 ? std::atof(argv[4]) : 3.0;

    std::string used, error;
    LibraryHandle library = OpenLibraryFile(argv[1], used, error);
    if (!library)
        return Fail(used + ": " + error);
    BindExports(g_api, [library](const char* name) { return FindLibraryExport(library, name); });

    std::vector<double> times;
    if (figure == "version") {
        times = Time(runs, [] { return g_api.getVersion(g_out.data()) > 0 && g_out[0] != 0x02 && g_out[0] != 0; });
    } else if (figure == "stripe") {
        times = Time(runs, [] { return g_api.MsreRead(g_out.data()) > 1 && g_out[0] != 0; });
    } else if (figure == "thaiid" || figure == "thaiid-photo") {
        const int mode = figure == "thaiid" ? 0 : 2;
        times = Time(runs, [mode] { return g_api.ThaiIDRead(g_out.data(), mode) > 100 && g_out[0] != 0; });
    } else if (figure == "pcsc-thaiid") {
        PcscApi api;
        if (g_api.ReaderSelect() != 0 || !LoadPcscLibrary(api, error))
            return Fail("ReaderSelect or the PC/SC library failed " + error);
        times = Time(runs, [&api] { return ReadCardThroughPcsc(api); });
    } else if (figure == "cpu-wait") {
        StartThread(WaitForPin);
        SleepMilliseconds(300);  // the entry is under way: its frame is out, the wait sleeps
        double before = ProcessCpuSeconds();
        auto start = std::chrono::steady_clock::now();
        SleepMilliseconds(static_cast<int>(seconds * 1000));
        double cpu = ProcessCpuSeconds() - before;
        double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        g_api.PosCancel();
        WaitThread();
        // Wine's process times come in ticks and can read a hair lower the second time.
        double percent = std::max(0.0, 100 * cpu / wall);
        std::printf("%.3f %.3f %.3f 1 0\n", percent, percent, percent);
        return 0;
    } else {
        return Fail("no figure named " + figure);
    }
    if (times.empty())
        return Fail(figure + ": every call failed");
    Print(times, times.size() + 1);
    return 0;
}
