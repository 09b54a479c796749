#include "BenchPlatform.h"

#include <sys/resource.h>

#include <chrono>
#include <thread>

namespace {
std::thread g_thread;
}

double ProcessCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void SleepMilliseconds(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void StartThread(void (*run)())
{
    g_thread = std::thread(run);
}

void WaitThread()
{
    g_thread.join();
}
