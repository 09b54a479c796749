#include "Console.h"

#include <atomic>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace {

struct Ticker {
    int periodMs;
    const std::function<void()>* tick;
    std::atomic<bool> stop{false};
};

void* TickLoop(void* argument)
{
    Ticker& ticker = *static_cast<Ticker*>(argument);
    timespec period{ticker.periodMs / 1000, (ticker.periodMs % 1000) * 1000000L};
    while (!ticker.stop.load()) {
        (*ticker.tick)();
        nanosleep(&period, nullptr);
    }
    return nullptr;
}

} // namespace

bool OutputIsTerminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

int RunWhileTicking(int periodMs, const std::function<void()>& tick,
                    const std::function<int()>& work)
{
    Ticker ticker;
    ticker.periodMs = periodMs;
    ticker.tick = &tick;
    // Ctrl-C belongs to the thread in the library's wait: the ticker starts with it blocked.
    sigset_t interrupt, previous;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &previous);
    pthread_t thread;
    // Without the thread the work still runs; only the bar stands still.
    bool started = pthread_create(&thread, nullptr, TickLoop, &ticker) == 0;
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    int result = work();
    ticker.stop = true;
    if (started)
        pthread_join(thread, nullptr);
    return result;
}
