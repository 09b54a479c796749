// The real program on a real pseudo-terminal: the startup contract, a probe, a version
// request, the record file and a clean stop; and the pseudo-terminal's overrun rule.
#include "Pty.h"
#include "TestSupport.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

// Bytes from fd until `count` have come or timeoutMs passed.
Bytes ReadFor(int fd, size_t count, int timeoutMs) {
    Bytes got;
    while (got.size() < count) {
        pollfd input{fd, POLLIN, 0};
        if (poll(&input, 1, timeoutMs) <= 0) break;
        uint8_t buffer[256];
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        got.insert(got.end(), buffer, buffer + n);
    }
    return got;
}

class RunningSimulator {
public:
    explicit RunningSimulator(const std::vector<std::string>& args) {
        int out[2];
        if (pipe(out) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            close(0);  // the harness runs it with standard input closed
            dup2(out[1], 1);
            close(out[0]);
            std::vector<char*> argv{const_cast<char*>(SIM_PROGRAM)};
            for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
            argv.push_back(nullptr);
            execv(SIM_PROGRAM, argv.data());
            _exit(127);
        }
        close(out[1]);
        stdout_ = out[0];
    }

    ~RunningSimulator() {
        if (pid_ > 0) Stop();
        if (stdout_ >= 0) close(stdout_);
    }

    // The first line of standard output.
    std::string FirstLine() {
        Bytes line;
        while (line.empty() || line.back() != '\n') {
            Bytes more = ReadFor(stdout_, 1, 5000);
            if (more.empty()) break;
            line.insert(line.end(), more.begin(), more.end());
        }
        return std::string(line.begin(), line.end());
    }

    // SIGTERM; the exit status.
    int Stop() {
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int stdout_ = -1;
};

int OpenRaw(const std::string& path) {
    int fd = open(path.c_str(), O_RDWR | O_NOCTTY);
    if (fd >= 0) {
        termios mode{};
        tcgetattr(fd, &mode);
        cfmakeraw(&mode);
        tcsetattr(fd, TCSANOW, &mode);
    }
    return fd;
}

TEST(EndToEnd, ProbeVersionRecordAndCleanStop) {
    char folder[] = "/tmp/new6210-sim-test-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string link = std::string(folder) + "/ttyNEW6210";
    const std::string record = std::string(folder) + "/record.bin";

    RunningSimulator simulator({"--link", link, "--record", record, "--quiet"});
    std::string first = simulator.FirstLine();
    ASSERT_EQ(first.compare(0, 9, "/dev/pts/"), 0) << first;
    ASSERT_EQ(first.back(), '\n');

    const Bytes probe = Hex("02 34 03 34");
    const Bytes version = Hex("02 3B 03 3B");
    int fd = OpenRaw(link);
    ASSERT_GE(fd, 0) << "cannot open " << link;
    ASSERT_EQ(write(fd, probe.data(), probe.size()), 4);
    EXPECT_EQ(ReadFor(fd, 1, 5000), Hex("06"));

    // The host closes and opens the port between calls: the simulator must stay.
    close(fd);
    fd = OpenRaw(first.substr(0, first.size() - 1));
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, version.data(), version.size()), 4);
    Bytes expected = ReplyFrame("NEW6210 SIM 1.0");
    EXPECT_EQ(ReadFor(fd, expected.size(), 5000), expected);
    close(fd);

    EXPECT_EQ(simulator.Stop(), 0);
    EXPECT_EQ(access(link.c_str(), F_OK), -1) << "the link must go at exit";
    std::ifstream file(record, std::ios::binary);
    Bytes recorded((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(recorded, Concat(probe, version));
    unlink(record.c_str());
    rmdir(folder);
}

}  // namespace

namespace {

TEST(Pty, AReplyNobodyReadsIsLostAfterTheOverrunTime) {
    Pty pty;
    std::string error;
    ASSERT_TRUE(pty.Open(error)) << error;
    Bytes big(200000, 'X');
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pty.Write(big.data(), big.size(), 100), Pty::WriteResult::Overrun);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));

    // The host finds an empty queue, and the next reply goes through.
    int fd = OpenRaw(pty.SlavePath());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(ReadFor(fd, 1, 50), Bytes{});
    const Bytes ack{ctl::ACK};
    EXPECT_EQ(pty.Write(ack.data(), 1, 100), Pty::WriteResult::Done);
    EXPECT_EQ(ReadFor(fd, 1, 1000), ack);
    close(fd);
}

}  // namespace
