// The console side of the command-line host that differs by platform: ConsolePosix.cpp,
// ConsoleWin32.cpp.
#pragma once

#include <functional>

// Whether standard output is a terminal (progress bars) rather than a file or a pipe.
bool OutputIsTerminal();

// Runs `work` on this thread while another thread calls `tick` every `periodMs`; the ticks
// have stopped when it returns. Gives what `work` gives.
int RunWhileTicking(int periodMs, const std::function<void()>& tick,
                    const std::function<int()>& work);
