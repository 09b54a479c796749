// The port driver's result rules, on a real pseudo-terminal.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>

#include "PtyPort.h"
#include "serial/CComPort.h"

// Writes to the line, counted on their way to the real call.
int g_lineFd = -1, g_lineWrites = 0;

extern "C" ssize_t write(int fd, const void* data, size_t size)
{
    using Real = ssize_t (*)(int, const void*, size_t);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "write"));
    g_lineWrites += fd == g_lineFd;
    return real(fd, data, size);
}

namespace {

using Bytes = std::vector<uint8_t>;

struct PortTest : ::testing::Test {
    PtyPort line;
    CComPort port;
    void SetUp() override { ASSERT_EQ(port.Open(PtyPort::Number), 1); }
};

// Longer writes also show only their first hundred bytes on the ">" line.
TEST_F(PortTest, WritesUpToAHundredBytesReportTheirCountLongerOnesReportOne)
{
    line.EnableLog();
    Bytes hundred(100, 0x41), longer(101, 0x42);
    g_lineFd = port.m_hPort;
    EXPECT_EQ(port.Write(hundred.data(), 100), 100);
    EXPECT_EQ(line.Receive(), hundred);
    EXPECT_EQ(g_lineWrites, 100) << "one byte a write";
    EXPECT_EQ(port.Write(longer.data(), 101), 1);
    EXPECT_EQ(line.Receive(), longer);
    EXPECT_EQ(g_lineWrites, 101) << "the whole frame at once";
    g_lineFd = -1;
    // A count below 1 logs the buffer up to its first zero byte, so it must have one.
    const char text[] = "AB";
    EXPECT_EQ(port.Write(text, 0), 0);
    EXPECT_EQ(port.Write(text, -3), 0);
    const std::string log = line.LogText();
    for (const char* shown : {"41", "42"}) {
        std::string traffic = "\t>";
        for (int i = 0; i < 100; ++i)
            traffic += std::string(i == 0 ? "" : ":") + shown;
        EXPECT_NE(log.find(traffic + "\r\n"), std::string::npos) << shown << "\n" << log;
    }
}

TEST_F(PortTest, ReadLimitsBelow256AreHonouredAndLargerOnesTakeTheQueue)
{
    line.EnableLog();
    struct Case {
        int queued, limit, expected;
    } cases[] = {{5, 1, 1}, {500, 255, 255}, {500, 300, 500}, {500, 10000, 500}, {3, 100, 3}};
    for (const Case& c : cases) {
        line.Send(Bytes(static_cast<size_t>(c.queued), 0x55));
        usleep(20000);
        std::vector<uint8_t> buffer(1024);
        EXPECT_EQ(port.Read(buffer.data(), c.limit), c.expected) << c.queued << "/" << c.limit;
        while (port.Read(buffer.data(), 10000) > 0) {
        }
    }
    std::string log = line.LogText();
    EXPECT_NE(log.find("in que 5\r\n"), std::string::npos);
    EXPECT_NE(log.find("in que 500\r\n"), std::string::npos);  // from the 255 limit only
    EXPECT_EQ(log.find("in que 3\r\n"), std::string::npos);
}

TEST_F(PortTest, RoomBoundsTheReadAClosedPortReadsMinusOneAndAReopenKeepsTheHandle)
{
    line.Send(Bytes(50, 0x66));
    usleep(20000);
    uint8_t buffer[8] = {};
    EXPECT_EQ(port.Read(buffer, 10000, 8), 8);
    EXPECT_EQ(port.Read(buffer, 10000, 0), 0);

    port.m_nHold = 5;
    const PortHandle handle = port.m_hPort;
    EXPECT_EQ(port.Open(PtyPort::Number), 1);
    EXPECT_EQ(port.m_nHold, 0);
    EXPECT_EQ(port.m_hPort, handle);

    port.Close();
    port.Close();  // a second close does nothing
    EXPECT_EQ(port.Read(buffer, 1), -1);
    EXPECT_EQ(port.Write(buffer, 1), 0);
    EXPECT_EQ(port.Open(-1), 0);
    EXPECT_EQ(port.Open(99), 0);
    EXPECT_EQ(port.m_bOpen, 0);
}

}  // namespace
