// The POSIX line as the driver leaves it: raw 921600 8N1 without flow control; exclusive while
// open and free after; and no descriptor kept by an open that failed.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <termios.h>

#include <fstream>

#include "PtyPort.h"
#include "serial/CComPort.h"

// A pseudo-terminal keeps 8 data bits and no parity whatever it is asked for, so the settings
// are taken as the driver hands them over, on their way to the real call.
termios g_asked{};

extern "C" int tcsetattr(int fd, int action, const termios* settings)
{
    using Real = int (*)(int, int, const termios*);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "tcsetattr"));
    g_asked = *settings;
    return real(fd, action, settings);
}

namespace {

// The lowest free descriptor number: a descriptor kept by a failed open takes it.
int FreeDescriptor()
{
    const int fd = dup(0);
    close(fd);
    return fd;
}

TEST(Line, OpenLeavesARaw921600LineWithoutFlowControl)
{
    PtyPort line;
    // Every setting starts wrong, so that what the open leaves is what it set.
    termios wrong{};
    ASSERT_EQ(tcgetattr(line.Slave(), &wrong), 0);
    wrong.c_cflag |= CSTOPB | CRTSCTS;
    wrong.c_iflag |= IXON | IXOFF;
    cfsetspeed(&wrong, B9600);
    ASSERT_EQ(tcsetattr(line.Slave(), TCSANOW, &wrong), 0);
    CComPort port;
    ASSERT_EQ(port.Open(PtyPort::Number), 1);
    termios settings = g_asked;
    const struct {
        const char* what;
        bool holds;
    } rows[] = {
        {"921600 in", cfgetispeed(&settings) == B921600},
        {"921600 out", cfgetospeed(&settings) == B921600},
        {"8 data bits", (settings.c_cflag & CSIZE) == CS8},
        {"no parity", (settings.c_cflag & PARENB) == 0},
        {"one stop bit", (settings.c_cflag & CSTOPB) == 0},
        {"no hardware flow control", (settings.c_cflag & CRTSCTS) == 0},
        {"no software flow control", (settings.c_iflag & (IXON | IXOFF | IXANY)) == 0},
        {"receiver on, modem lines ignored", (settings.c_cflag & (CREAD | CLOCAL)) == (CREAD | CLOCAL)},
        {"no line editing or echo", (settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN)) == 0},
        {"no input translation", (settings.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP)) == 0},
        {"no output processing", (settings.c_oflag & OPOST) == 0},
        {"reads never wait", settings.c_cc[VMIN] == 0 && settings.c_cc[VTIME] == 0},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(row.holds) << row.what;
}

TEST(Line, AnOpenPortIsExclusiveUntilClosedAndFailedOpensKeepNoDescriptor)
{
    PtyPort line;
    std::ofstream(g_strConfigFolder + "COM4") << "a file, not a line";
    CComPort first, second;
    ASSERT_EQ(first.Open(PtyPort::Number), 1);
    const int before = FreeDescriptor();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(second.Open(PtyPort::Number), 0) << "taken by the first";
        EXPECT_EQ(second.Open(4), 0) << "no terminal line";
        EXPECT_EQ(second.Open(77), 0) << "no such port";
    }
    EXPECT_EQ(FreeDescriptor(), before);
    first.Close();
    EXPECT_EQ(second.Open(PtyPort::Number), 1) << "free again once closed";
    second.Close();
}

}  // namespace
