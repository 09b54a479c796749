#include "Console.h"

#include <windows.h>

#include <io.h>
#include <stdio.h>

namespace {

VOID CALLBACK Tick(PVOID context, BOOLEAN)
{
    (*static_cast<const std::function<void()>*>(context))();
}

} // namespace

bool OutputIsTerminal()
{
    return _isatty(_fileno(stdout)) != 0;
}

int RunWhileTicking(int periodMs, const std::function<void()>& tick,
                    const std::function<int()>& work)
{
    HANDLE timer = nullptr;
    // One callback at a time on the timer thread; without the timer only the bar stands still.
    bool started = CreateTimerQueueTimer(&timer, nullptr, Tick, const_cast<std::function<void()>*>(&tick), 0,
                                         static_cast<DWORD>(periodMs),
                                         WT_EXECUTEDEFAULT | WT_EXECUTEINTIMERTHREAD) != 0;
    int result = work();
    if (started)
        DeleteTimerQueueTimer(nullptr, timer, INVALID_HANDLE_VALUE);  // waits for a running tick
    return result;
}
