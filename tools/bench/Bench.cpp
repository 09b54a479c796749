// varnik-bench: how fast the library drives a terminal on a line paced like the real one.
// Each benchmark is one row of the table: it runs a few times against the simulator
// throttled to 921600 baud, and the row shows the median, the spread, the least time the
// line itself needs (the floor) and the floor as a fraction of the median. A new benchmark
// is one more entry in Benchmarks().
//
//   varnik-bench --lib libvarnik.so --sim new6210-sim [--runs N] [--only NAME]
#include "varnik.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <random>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const double LineBytesPerSecond = 92160.0;  // 921600 baud, 10 bits a byte
const int Port = 7;

bool CopyFile(const std::string& from, const std::string& to)
{
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out << in.rdbuf();
    return in && static_cast<bool>(out.flush());
}

std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A till folder with its own copy of the library, config/ and the simulator on COM7; the
// library loaded from there. Gone with the object.
class Till {
public:
    Till(const std::string& library, const std::string& simulator,
         const std::vector<std::string>& simulatorOptions)
    {
        char pattern[] = "/tmp/varnik-bench-XXXXXX";
        if (!mkdtemp(pattern))
            Fail("cannot make a temporary folder");
        folder = pattern;
        mkdir((folder + "/config").c_str(), 0755);
        if (!CopyFile(library, folder + "/libvarnik.so"))
            Fail("cannot copy " + library);
        std::ofstream(folder + "/config/varnik.json") << "{\"port\":" << Port << "}";
        StartSimulator(simulator, simulatorOptions);
        m_library = dlopen((folder + "/libvarnik.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!m_library)
            Fail(std::string("cannot load the library: ") + dlerror());
    }

    ~Till()
    {
        if (m_library)
            dlclose(m_library);  // closes the port before the simulator goes
        if (m_simulator > 0) {
            kill(m_simulator, SIGTERM);
            waitpid(m_simulator, nullptr, 0);
        }
        std::string command = "rm -rf '" + folder + "'";
        if (std::system(command.c_str()) != 0)
            std::fprintf(stderr, "varnik-bench: could not remove %s\n", folder.c_str());
    }

    template <typename Function>
    Function* Get(const char* name) const
    {
        void* address = dlsym(m_library, name);
        if (!address)
            Fail(std::string("the library has no ") + name);
        return reinterpret_cast<Function*>(address);
    }

    // The simulator's record of uploaded files (see new6210-sim --help, --record).
    std::string UploadRecord() const { return ReadText(folder + "/received.files"); }

    [[noreturn]] static void Fail(const std::string& why)
    {
        std::fprintf(stderr, "varnik-bench: %s\n", why.c_str());
        std::exit(1);
    }

    std::string folder;

private:
    void StartSimulator(const std::string& simulator, const std::vector<std::string>& options)
    {
        std::vector<std::string> args = {simulator, "--quiet", "--link",
                                         folder + "/config/COM" + std::to_string(Port),
                                         "--record", folder + "/received"};
        args.insert(args.end(), options.begin(), options.end());
        int out[2];
        if (pipe(out) != 0)
            Fail("pipe failed");
        m_simulator = fork();
        if (m_simulator == 0) {
            dup2(out[1], STDOUT_FILENO);
            close(out[0]);
            close(out[1]);
            std::vector<char*> argv;
            for (std::string& arg : args)
                argv.push_back(&arg[0]);
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        // Its first line, the pty, comes once the link is in place.
        std::string pty;
        char c;
        while (read(out[0], &c, 1) == 1 && c != '\n')
            pty += c;
        close(out[0]);
        if (pty.empty())
            Fail("the simulator did not start: " + simulator);
    }

    void* m_library = nullptr;
    pid_t m_simulator = -1;
};

// One row: `setUp` once, then `run` per sample, giving the seconds it took (false: failed,
// with the reason in `error`). `floorSeconds` is what the line needs at the least; 0 for none.
struct Benchmark {
    std::string name;
    double floorSeconds;
    std::vector<std::string> simulatorOptions;
    std::function<void(Till&)> setUp;
    std::function<bool(Till&, double& seconds, std::string& error)> run;
};

template <typename Call>
double Timed(Call call)
{
    auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Files the simulator stored whole with the announced CRC-32.
size_t StoredCount(const std::string& record)
{
    size_t count = 0;
    for (size_t at = 0; (at = record.find("stored\t", at)) != std::string::npos; ++at)
        count += at == 0 || record[at - 1] == '\n';
    return count;
}

// 1 MB through PosExec's FILE write: announcement, the raw stream, the closing answer.
Benchmark UploadBenchmark()
{
    const size_t size = 1 << 20;
    Benchmark bench;
    bench.name = "upload 1 MB";
    bench.floorSeconds = size / LineBytesPerSecond;
    bench.simulatorOptions = {"--throttle"};
    bench.setUp = [size](Till& till) {
        std::vector<char> content(size);
        std::mt19937 random(6210);
        for (char& c : content)
            c = static_cast<char>(random());
        std::ofstream(till.folder + "/upload.bin", std::ios::binary).write(content.data(), size);
    };
    bench.run = [](Till& till, double& seconds, std::string& error) {
        auto exec = till.Get<int VARNIK_CALL(char*, const char*)>("PosExec");
        std::string document =
            "{\"format\":\"FILE\",\"cmd\":\"write\",\"file\":\"" + till.folder + "/upload.bin\"}";
        std::vector<char> out(1 << 20, 0);
        size_t before = StoredCount(till.UploadRecord());
        int result = 0;
        seconds = Timed([&] { result = exec(out.data(), document.c_str()); });
        if (result != 0 || StoredCount(till.UploadRecord()) != before + 1) {
            error = "PosExec gave " + std::to_string(result) +
                    "; the simulator's record of uploads:\n" + till.UploadRecord();
            return false;
        }
        return true;
    };
    return bench;
}

std::vector<Benchmark> Benchmarks()
{
    return {UploadBenchmark()};
}

std::string Seconds(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", seconds);
    return text;
}

void PrintRow(const std::string& name, int runs, std::vector<double> samples, double floor)
{
    std::sort(samples.begin(), samples.end());
    double median = samples.size() % 2 ? samples[samples.size() / 2]
                                       : (samples[samples.size() / 2 - 1] +
                                          samples[samples.size() / 2]) / 2;
    char ratio[16] = "-";
    if (floor > 0)
        std::snprintf(ratio, sizeof ratio, "%.3f", floor / median);
    std::printf("%-22s %4d %11s %11s %11s %11s %7s\n", name.c_str(), runs, Seconds(median).c_str(),
                Seconds(samples.front()).c_str(), Seconds(samples.back()).c_str(),
                floor > 0 ? Seconds(floor).c_str() : "-", ratio);
    std::fflush(stdout);
}

int Usage()
{
    std::fprintf(stderr, "usage: varnik-bench --lib LIBRARY --sim SIMULATOR [--runs N] "
                         "[--only NAME] [--list]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string library, simulator, only;
    int runs = 3;
    bool list = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--lib" && hasValue)
            library = argv[++i];
        else if (arg == "--sim" && hasValue)
            simulator = argv[++i];
        else if (arg == "--only" && hasValue)
            only = argv[++i];
        else if (arg == "--runs" && hasValue)
            runs = std::atoi(argv[++i]);
        else if (arg == "--list")
            list = true;
        else
            return Usage();
    }
    if (list) {
        for (const Benchmark& bench : Benchmarks())
            std::printf("%s\n", bench.name.c_str());
        return 0;
    }
    if (library.empty() || simulator.empty() || runs < 1)
        return Usage();

    std::printf("%-22s %4s %11s %11s %11s %11s %7s\n", "benchmark", "runs", "median", "min",
                "max", "floor", "ratio");
    int failures = 0;
    for (const Benchmark& bench : Benchmarks()) {
        if (!only.empty() && bench.name != only)
            continue;
        Till till(library, simulator, bench.simulatorOptions);
        if (bench.setUp)
            bench.setUp(till);
        std::vector<double> samples;
        std::string error;
        for (int run = 0; run < runs; ++run) {
            double seconds = 0;
            if (!bench.run(till, seconds, error))
                break;
            samples.push_back(seconds);
        }
        if (samples.size() < size_t(runs)) {
            std::printf("%-22s failed: %s\n", bench.name.c_str(), error.c_str());
            ++failures;
            continue;
        }
        PrintRow(bench.name, runs, samples, bench.floorSeconds);
    }
    std::printf("ratio = floor / median: 1.000 is the line's own speed (92160 bytes/s).\n");
    return failures == 0 ? 0 : 1;
}
