// The terminal's line for the reply fuzzers: the library's port opened once on a
// pseudo-terminal, and a script played on the other end while the library waits. The script
// is a run of steps: a control byte, then for a chunk that many bytes. Control bits: low five
// the chunk's length, 0x20 a pause of a few milliseconds after it (some longer than a poll, so
// that a reply may end early), 0x40 a cancel request as another thread's PosCancel makes it.
#pragma once

#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "FuzzInput.h"
#include "session/DeviceContext.h"
#include "support/Log.h"

class FuzzPort {
public:
    static constexpr int Number = 9;

    FuzzPort()
    {
        LogInit();
        g_nLogMode = 0;
        char folder[] = "/tmp/varnik-fuzz-XXXXXX";
        if (mkdtemp(folder) == nullptr)
            std::abort();
        int slave = -1;
        if (openpty(&m_master, &slave, nullptr, nullptr, nullptr) != 0)
            std::abort();
        g_strConfigFolder = std::string(folder) + "/";
        const std::string link = g_strConfigFolder + "COM" + std::to_string(Number);
        if (symlink(ttyname(slave), link.c_str()) != 0)
            std::abort();
        g_context.port = Number;
        if (OpenDevice(g_context) != 0)
            std::abort();
        close(slave);  // the library holds its own descriptor of the line
    }

    // Plays the script on a thread of its own while `wait` runs on this one. Returns the
    // bytes the script wrote (at least one: the library's wait has no time limit).
    template <typename Wait>
    size_t Play(FuzzInput& script, Wait wait)
    {
        const std::string steps = script.Rest();
        size_t written = 0;
        for (size_t i = 0; i < steps.size(); i += 1 + (steps[i] & 0x1F))
            written += std::min<size_t>(steps[i] & 0x1F, steps.size() - i - 1);
        if (written == 0)
            written = 1;
        std::thread player([&] {
            size_t sent = 0;
            for (size_t i = 0; i < steps.size();) {
                const uint8_t control = static_cast<uint8_t>(steps[i++]);
                const size_t count = std::min<size_t>(control & 0x1F, steps.size() - i);
                sent += Send(steps.data() + i, count);
                i += count;
                if (control & 0x40)
                    g_context.cancelRequested = 1;
                if (control & 0x20)
                    usleep(1000u * (control >> 7 ? 7 : 2));
            }
            if (sent == 0)
                Send("\x06", 1);
        });
        wait(written);
        player.join();
        Drain();
        return written;
    }

private:
    size_t Send(const char* bytes, size_t count)
    {
        return count > 0 && write(m_master, bytes, count) == static_cast<ssize_t>(count) ? count : 0;
    }

    // What the reply left unread, and the CANs the library sent, are gone before the next run.
    void Drain()
    {
        usleep(1000);
        uint8_t sink[4096];
        while (g_context.serial.Read(sink, 10000, sizeof sink) > 0) {
        }
        int pending = 0;
        while (ioctl(m_master, FIONREAD, &pending) == 0 && pending > 0 &&
               read(m_master, sink, sizeof sink) > 0) {
        }
        g_context.cancelRequested = 0;
    }

    int m_master = -1;
};
