// The port driver's result rules and the frame protocol, on a real pseudo-terminal.
#include <gtest/gtest.h>

#include <cstring>

#include "PtyPort.h"
#include "session/DeviceContext.h"
#include "session/Frame.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct PortTest : ::testing::Test {
    PtyPort line;
    CComPort port;
    void SetUp() override { ASSERT_EQ(port.Open(PtyPort::Number), 1); }
};

TEST_F(PortTest, WritesUpToAHundredBytesReportTheirCountLongerOnesReportOne)
{
    Bytes hundred(100, 0x41), longer(101, 0x42);
    EXPECT_EQ(port.Write(hundred.data(), 100), 100);
    EXPECT_EQ(line.Receive(), hundred);
    EXPECT_EQ(port.Write(longer.data(), 101), 1);
    EXPECT_EQ(line.Receive(), longer);
    // A count below 1 logs the buffer up to its first zero byte, so it must have one.
    const char text[] = "AB";
    EXPECT_EQ(port.Write(text, 0), 0);
    EXPECT_EQ(port.Write(text, -3), 0);
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

// --- frames --------------------------------------------------------------------------------

TEST(FrameBuilder, CheckByteCoversCodeAndPayloadWithItsNulAndTheBufferBoundsIt)
{
    DeviceContext& context = g_context;
    const std::vector<uint8_t> huge(TxRxCapacity + 500, 0x41);
    const struct {
        std::initializer_list<uint8_t> code;
        const char* text;
        Bytes expected;
    } cases[] = {
        {{0x34}, nullptr, {0x02, 0x34, 0x03, 0x34}},
        {{0x3C, 0x30}, nullptr, {0x02, 0x3C, 0x30, 0x03, 0x0C}},
        {{0x38, 0x03}, nullptr, {0x02, 0x38, 0x03, 0x03, 0x3B}},
        {{0x39, 0x4C}, nullptr, {0x02, 0x39, 0x4C, 0x03, 0x75}},
        {{0x36}, "", {0x02, 0x36, 0x00, 0x03, 0x36}},
        {{0x30, 0x30}, "pinpad.json",
         {0x02, 0x30, 0x30, 'p', 'i', 'n', 'p', 'a', 'd', '.', 'j', 's', 'o', 'n', 0, 0x03, 0x34}},
    };
    for (const auto& c : cases) {
        BeginFrame(context, c.code);
        if (c.text != nullptr)
            AppendText(context, c.text);
        CloseFrame(context);
        EXPECT_EQ(Bytes(context.txBuffer, context.txBuffer + context.txLength), c.expected);
    }
    BeginFrame(context, {0x31});
    AppendBytes(context, huge.data(), static_cast<int>(huge.size()));
    CloseFrame(context);
    EXPECT_EQ(context.txLength, TxRxCapacity);
}

struct ReplyTest : ::testing::Test {
    PtyPort line;
    DeviceContext& context = g_context;
    void SetUp() override
    {
        context.port = PtyPort::Number;
        ASSERT_EQ(OpenDevice(context), 0);
    }
    void TearDown() override { CloseDevice(context); }
};

TEST_F(ReplyTest, AnOpenDrainsWhatCameBefore)
{
    CloseDevice(context);
    line.Send({0x41, 0x42, 0x43});
    usleep(20000);
    ASSERT_EQ(OpenDevice(context), 0);
    line.Send({0x02, 0x5A, 0x03, 0x5A});
    uint8_t out[8] = {};
    ReadReply(context, out, nullptr);
    EXPECT_STREQ(reinterpret_cast<char*>(out), "Z");
}

}  // namespace
