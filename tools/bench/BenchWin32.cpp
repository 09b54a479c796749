#include "BenchPlatform.h"

#include <windows.h>

namespace {

HANDLE g_thread = nullptr;

DWORD WINAPI RunThread(LPVOID run)
{
    reinterpret_cast<void (*)()>(run)();
    return 0;
}

double Seconds(const FILETIME& time)
{
    return ((static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 1e7;
}

}  // namespace

double ProcessCpuSeconds()
{
    FILETIME created, exited, kernel, user;
    if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user))
        return 0;
    return Seconds(kernel) + Seconds(user);
}

void SleepMilliseconds(int ms)
{
    Sleep(static_cast<DWORD>(ms));
}

void StartThread(void (*run)())
{
    g_thread = CreateThread(nullptr, 0, RunThread, reinterpret_cast<LPVOID>(run), 0, nullptr);
}

void WaitThread()
{
    WaitForSingleObject(g_thread, INFINITE);
    CloseHandle(g_thread);
}
