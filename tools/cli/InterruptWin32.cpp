#include "Interrupt.h"

#include <windows.h>

#include <cstring>

namespace {

PosCancelFn volatile g_cancel = nullptr;
volatile LONG g_interrupts = 0;
bool g_armed = false;

void Say(const char* text)
{
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(strlen(text)), &written,
              nullptr);
}

// Runs on a thread of its own that the console starts for the event, which is one of the
// ways the library expects PosCancel to come in while another call waits.
BOOL WINAPI OnConsoleEvent(DWORD event)
{
    if (event != CTRL_C_EVENT)
        return FALSE;
    PosCancelFn cancel = g_cancel;
    if (InterlockedIncrement(&g_interrupts) == 1 && cancel) {
        Say("\r\nCancelling: waiting for the terminal to answer (Ctrl-C again to quit).\r\n");
        cancel();
        return TRUE;
    }
    // Second Ctrl-C: end here rather than in the default handler, whose exit code is not
    // the same everywhere (Wine gives 0). 130 is what a POSIX shell shows for SIGINT.
    Say("\r\nInterrupted.\r\n");
    ExitProcess(130);
    return TRUE;
}

} // namespace

void BeginCancellableWait(PosCancelFn cancel)
{
    if (g_armed || !cancel)
        return;
    g_cancel = cancel;
    g_interrupts = 0;
    g_armed = SetConsoleCtrlHandler(OnConsoleEvent, TRUE) != 0;
}

bool EndCancellableWait()
{
    if (!g_armed)
        return false;
    SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
    g_armed = false;
    return g_interrupts != 0;
}
