// SIGTERM, SIGINT and SIGHUP end the simulator cleanly. They are blocked except inside the
// waits below, so a signal can't slip in between a test of StopRequested and a wait.
#pragma once

#include <chrono>
#include <poll.h>

void InstallStopSignals();
bool StopRequested();

// SIGUSR1 takes the card out of the slot, SIGUSR2 puts it back; like the stop signals they
// arrive only inside the waits. The last one that came, or None; taking it clears it.
enum class CardSignal { None, Out, In };
CardSignal TakeCardSignal();

// poll() that a stop signal interrupts: -1 with errno EINTR then. timeoutMs < 0: no limit.
int WaitForEvents(pollfd* fds, nfds_t count, int timeoutMs);

// Sleeps; false if a stop signal came first.
bool SleepFor(std::chrono::microseconds duration);
bool SleepUntil(std::chrono::steady_clock::time_point when);
inline bool SleepMs(int ms) { return SleepFor(std::chrono::milliseconds(ms)); }
