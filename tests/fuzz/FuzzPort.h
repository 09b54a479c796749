// The terminal's line for the reply fuzzer: the library's port opened once on a pseudo-terminal
// and a script played on the other end while the library waits. Steps: a control byte, then
// (control & 0x1F) bytes to send; 0x40 asks for a cancel as PosCancel does, 0x20 pauses 2 ms
// after the step (7 ms, past a poll, with 0x80 too).
#pragma once

#include <algorithm>
#include <thread>

#include "../unit/PtyPort.h"
#include "session/DeviceContext.h"

class FuzzPort {
public:
    FuzzPort()
    {
        g_context.port = PtyPort::Number;
        if (OpenDevice(g_context) != 0)
            std::abort();
        m_master = m_line.Master();
    }

    // Runs `wait` while the script plays; gives it the bytes the script sends (at least one,
    // since the library's wait has no time limit).
    template <typename Wait>
    void Play(const std::string& steps, Wait wait)
    {
        size_t total = 0;
        for (size_t i = 0; i < steps.size(); i += 1 + (steps[i] & 0x1F))
            total += std::min<size_t>(steps[i] & 0x1F, steps.size() - i - 1);
        std::thread player([&] {
            for (size_t i = 0; i < steps.size();) {
                const uint8_t control = static_cast<uint8_t>(steps[i++]);
                const size_t count = std::min<size_t>(control & 0x1F, steps.size() - i);
                (void)!write(m_master, steps.data() + i, count);
                i += count;
                if (control & 0x40)
                    g_context.cancelRequested = 1;
                if (control & 0x20)
                    usleep(control & 0x80 ? 7000 : 2000);
            }
            if (total == 0)
                (void)!write(m_master, "\x06", 1);
        });
        wait(std::max<size_t>(total, 1));
        player.join();
        // What the reply left unread and the CANs the library sent go before the next run.
        usleep(1000);
        uint8_t sink[4096];
        while (g_context.serial.Read(sink, 10000, sizeof sink) > 0) {
        }
        for (int n = 0; ioctl(m_master, FIONREAD, &n) == 0 && n > 0;)
            (void)!read(m_master, sink, sizeof sink);
        g_context.cancelRequested = 0;
    }

private:
    PtyPort m_line;
    int m_master = -1;
};
