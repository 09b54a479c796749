// The terminal's line for the reply fuzzer: the library's port opened once on a pseudo-terminal
// and a script played on the other end while the library waits. Steps: a control byte, then
// (control & 0x1F) bytes to send; 0x40 asks for a cancel as PosCancel does, 0x20 pauses 2 ms
// after the step (7 ms, past a poll, with 0x80 too).
#pragma once

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

#include "session/DeviceContext.h"
#include "support/Log.h"

class FuzzPort {
public:
    FuzzPort()
    {
        LogInit();
        char folder[] = "/tmp/varnik-fuzz-XXXXXX";
        int slave = -1;
        if (mkdtemp(folder) == nullptr || openpty(&m_master, &slave, nullptr, nullptr, nullptr) != 0)
            std::abort();
        g_strConfigFolder = std::string(folder) + "/";
        if (symlink(ttyname(slave), (g_strConfigFolder + "COM9").c_str()) != 0)
            std::abort();
        g_context.port = 9;
        if (OpenDevice(g_context) != 0)
            std::abort();
        close(slave);
    }

    // Runs `wait` while the script plays; gives it the bytes the script sends (at least one,
    // since the library's wait has no time limit). As a terminal (`answering`), the script waits
    // for the library's first request, and every later request gets one byte, so that a
    // command of several exchanges ends too.
    template <typename Wait>
    void Play(const std::string& steps, Wait wait, bool answering = false)
    {
        size_t total = 0;
        for (size_t i = 0; i < steps.size(); i += 1 + (steps[i] & 0x1F))
            total += std::min<size_t>(steps[i] & 0x1F, steps.size() - i - 1);
        std::atomic<bool> done{false};
        std::thread player([&] {
            bool asked = !answering;
            while (!asked && !done)
                asked = Requested(5);
            if (!asked)
                return;  // the call ended without a request: nothing waits for an answer
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
            while (answering && !done) {
                if (Requested(5))
                    (void)!write(m_master, "\x15", 1);
            }
        });
        wait(std::max<size_t>(total, 1));
        done = true;
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
    // True once the library has sent something (read and dropped here) within `ms`.
    bool Requested(int ms)
    {
        pollfd ready{m_master, POLLIN, 0};
        if (poll(&ready, 1, ms) != 1)
            return false;
        uint8_t sink[4096];
        return read(m_master, sink, sizeof sink) > 0;
    }

    int m_master = -1;
};
