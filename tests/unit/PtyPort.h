// A pseudo-terminal standing in for the terminal's line: the library opens COM<N> in a
// temporary config folder, linked to the slave; the test plays the terminal on the master.
#pragma once

#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/Log.h"

class PtyPort {
public:
    static constexpr int Number = 3;

    PtyPort()
    {
        LogInit();  // settle the folder strings first, so ours are not overwritten later
        char folder[] = "/tmp/varnik-unit-XXXXXX";
        m_folder = mkdtemp(folder);
        int slave = -1;
        openpty(&m_master, &slave, nullptr, nullptr, nullptr);
        termios raw{};
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
        m_slave = slave;  // kept open so the master never sees a hang-up
        m_savedConfig = g_strConfigFolder;
        g_strConfigFolder = m_folder + "/";
        std::string link = g_strConfigFolder + "COM" + std::to_string(Number);
        symlink(ttyname(slave), link.c_str());
    }

    ~PtyPort()
    {
        g_strConfigFolder = m_savedConfig;
        if (!m_savedLog.empty())
            g_strLogFolder = m_savedLog;
        g_nLogMode = 0;
        close(m_master);
        close(m_slave);
        std::system(("rm -rf '" + m_folder + "'").c_str());
    }

    // Logging into the temporary folder, for tests that look at log lines.
    void EnableLog()
    {
        g_nLogMode = 1;
        m_savedLog = g_strLogFolder;
        g_strLogFolder = m_folder;
    }
    std::string LogText() const
    {
        LocalTime now = CurrentLocalTime();
        std::string content;
        ReadWholeFile(LogFileName(m_folder, now), content);
        return content;
    }

    int Master() const { return m_master; }
    int Slave() const { return m_slave; }
    void Send(const std::vector<uint8_t>& bytes) { (void)!write(m_master, bytes.data(), bytes.size()); }
    std::vector<uint8_t> Receive()
    {
        usleep(20000);
        std::vector<uint8_t> bytes(1 << 16);
        int count = 0, available = 0;
        while (ioctl(m_master, FIONREAD, &available) == 0 && available > 0) {
            int n = static_cast<int>(read(m_master, bytes.data() + count, bytes.size() - count));
            if (n <= 0)
                break;
            count += n;
        }
        bytes.resize(static_cast<size_t>(count));
        return bytes;
    }

private:
    int m_master = -1;
    int m_slave = -1;
    std::string m_folder;
    std::string m_savedConfig;
    std::string m_savedLog;
};
