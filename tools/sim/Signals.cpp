#include "Signals.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <initializer_list>

namespace {

volatile sig_atomic_t g_stop = 0;
volatile sig_atomic_t g_card = 0;  // a CardSignal
bool g_installed = false;
sigset_t g_waitMask;  // the mask inside waits: stop signals let through

void OnStopSignal(int) {
    g_stop = 1;
}

void OnCardSignal(int signal) {
    g_card = static_cast<int>(signal == SIGUSR1 ? CardSignal::Out : CardSignal::In);
}

const sigset_t* WaitMask() {
    return g_installed ? &g_waitMask : nullptr;  // not installed (unit tests): mask unchanged
}

timespec ToTimespec(std::chrono::nanoseconds duration) {
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return timespec{static_cast<time_t>(seconds.count()),
                    static_cast<long>((duration - seconds).count())};
}

}  // namespace

void InstallStopSignals() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: the wait must return
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaction(signal, &action, nullptr);
        sigaddset(&stopSignals, signal);
    }
    action.sa_handler = OnCardSignal;
    for (int signal : {SIGUSR1, SIGUSR2}) {
        sigaction(signal, &action, nullptr);
        sigaddset(&stopSignals, signal);
    }
    std::signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &stopSignals, &g_waitMask);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2}) {
        sigdelset(&g_waitMask, signal);
    }
    g_installed = true;
}

bool StopRequested() {
    return g_stop != 0;
}

CardSignal TakeCardSignal() {
    CardSignal taken = static_cast<CardSignal>(static_cast<int>(g_card));
    g_card = static_cast<int>(CardSignal::None);
    return taken;
}

int WaitForEvents(pollfd* fds, nfds_t count, int timeoutMs) {
    if (StopRequested()) {
        errno = EINTR;
        return -1;
    }
    timespec timeout = ToTimespec(std::chrono::milliseconds(timeoutMs));
    return ppoll(fds, count, timeoutMs < 0 ? nullptr : &timeout, WaitMask());
}

bool SleepUntil(std::chrono::steady_clock::time_point when) {
    while (!StopRequested()) {
        auto left = when - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero()) {
            return true;
        }
        timespec timeout = ToTimespec(left);
        ppoll(nullptr, 0, &timeout, WaitMask());
    }
    return false;
}

bool SleepFor(std::chrono::microseconds duration) {
    return SleepUntil(std::chrono::steady_clock::now() + duration);
}
