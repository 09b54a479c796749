#include "Interrupt.h"

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace {

// Written by the main flow before the handler is installed, read by the handler.
PosCancelFn g_cancel = nullptr;
volatile sig_atomic_t g_interrupts = 0;
bool g_armed = false;
struct sigaction g_previous;

void Say(const char* text)
{
    ssize_t ignored = write(STDERR_FILENO, text, strlen(text));
    (void)ignored;
}

// Calling into the library from a signal handler is tolerable here, though PosCancel is not
// async-signal-safe on paper: all it does is store 1 in the library's cancel flag and hand a
// line to the log, which writes only when logging is switched on. The handler is installed
// only while the main thread sits in a library call that waits for the terminal, and that
// wait spends its time in a 5 ms sleep and a non-blocking read, not in the allocator or the
// log writer. What remains is a chance of a mixed-up log line with debug logging on, which
// is not worth a watcher thread.
void OnInterrupt(int)
{
    if (g_interrupts == 0 && g_cancel) {
        g_interrupts = 1;
        Say("\nCancelling: waiting for the terminal to answer (Ctrl-C again to quit).\n");
        g_cancel();
        return;
    }
    // Second Ctrl-C: die of SIGINT as an unhandled one would, so a calling shell sees it. The
    // signal is blocked inside its handler, so it lands as soon as the handler returns.
    signal(SIGINT, SIG_DFL);
    raise(SIGINT);
}

} // namespace

void BeginCancellableWait(PosCancelFn cancel)
{
    if (g_armed || !cancel)
        return;
    g_cancel = cancel;
    g_interrupts = 0;
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a sleep or read that the library is in returns early with EINTR, so its
    // polling loop sees the flag on the next round without finishing the interrupted call.
    action.sa_flags = 0;
    g_armed = sigaction(SIGINT, &action, &g_previous) == 0;
}

bool EndCancellableWait()
{
    if (!g_armed)
        return false;
    sigaction(SIGINT, &g_previous, nullptr);
    g_armed = false;
    return g_interrupts != 0;
}
