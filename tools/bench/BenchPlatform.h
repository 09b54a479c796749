// What the timing host needs of the system. One implementation per platform: BenchPosix.cpp,
// BenchWin32.cpp (the mingw runtime here has no std::thread).
#pragma once

// CPU time that this process has used so far, user and system, in seconds.
double ProcessCpuSeconds();
void SleepMilliseconds(int ms);
// Runs `run` on a thread of its own; WaitThread waits for it to end. One at a time.
void StartThread(void (*run)());
void WaitThread();
