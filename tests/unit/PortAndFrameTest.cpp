// The port driver's result rules and the frame protocol, on a real pseudo-terminal.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

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

TEST_F(PortTest, RoomBoundsTheReadWhateverIsQueued)
{
    line.Send(Bytes(50, 0x66));
    usleep(20000);
    uint8_t buffer[8] = {};
    EXPECT_EQ(port.Read(buffer, 10000, 8), 8);
    EXPECT_EQ(port.Read(buffer, 10000, 0), 0);
}

TEST_F(PortTest, AnEmptyQueueReadsZeroAndAClosedPortMinusOne)
{
    uint8_t buffer[4];
    EXPECT_EQ(port.Read(buffer, 1), 0);
    port.Close();
    port.Close();  // a second close does nothing
    EXPECT_EQ(port.Read(buffer, 1), -1);
    EXPECT_EQ(port.Write(buffer, 1), 0);
}

TEST_F(PortTest, OpeningAnOpenPortClearsTheHoldAndKeepsTheHandle)
{
    port.m_nHold = 5;
    PortHandle handle = port.m_hPort;
    EXPECT_EQ(port.Open(PtyPort::Number), 1);
    EXPECT_EQ(port.m_nHold, 0);
    EXPECT_EQ(port.m_hPort, handle);
}

TEST(PortOpen, AMissingOrNegativePortFails)
{
    PtyPort line;
    CComPort port;
    EXPECT_EQ(port.Open(-1), 0);
    EXPECT_EQ(port.Open(99), 0);
    EXPECT_EQ(port.m_bOpen, 0);
}

// --- frames --------------------------------------------------------------------------------

TEST(FrameBuilder, ChecksumCoversCodeAndPayloadWithItsNul)
{
    DeviceContext& context = g_context;
    struct Case {
        std::initializer_list<uint8_t> code;
        const char* text;
        Bytes expected;
    } cases[] = {
        {{0x34}, nullptr, {0x02, 0x34, 0x03, 0x34}},
        {{0x3B}, nullptr, {0x02, 0x3B, 0x03, 0x3B}},
        {{0x3C, 0x30}, nullptr, {0x02, 0x3C, 0x30, 0x03, 0x0C}},
        {{0x38, 0x03}, nullptr, {0x02, 0x38, 0x03, 0x03, 0x3B}},
        {{0x39, 0x4C}, nullptr, {0x02, 0x39, 0x4C, 0x03, 0x75}},
        {{0x36}, "", {0x02, 0x36, 0x00, 0x03, 0x36}},
    };
    for (const Case& c : cases) {
        BeginFrame(context, c.code);
        if (c.text != nullptr)
            AppendText(context, c.text);
        CloseFrame(context);
        EXPECT_EQ(Bytes(context.txBuffer, context.txBuffer + context.txLength), c.expected);
    }

    BeginFrame(context, {0x30, 0x30});
    AppendText(context, "pinpad.json");
    CloseFrame(context);
    EXPECT_EQ(Bytes(context.txBuffer, context.txBuffer + context.txLength),
              (Bytes{0x02, 0x30, 0x30, 'p', 'i', 'n', 'p', 'a', 'd', '.', 'j', 's', 'o', 'n', 0, 0x03, 0x34}));
}

TEST(FrameBuilder, NeverWritesPastTheTransmitBuffer)
{
    DeviceContext& context = g_context;
    std::vector<uint8_t> huge(TxRxCapacity + 500, 0x41);
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

TEST_F(ReplyTest, RepliesAreStrippedOrDroppedByTheirEnvelope)
{
    struct Case {
        const char* name;
        Bytes reply;
        bool taken;
        Bytes payload;
    } cases[] = {
        {"frame", {0x02, 0x41, 0x03, 0x40}, true, {0x41}},
        {"wrong check byte", {0x02, 0x41, 0x03, 0xFF}, true, {0x41}},
        {"empty frame of three", {0x02, 0x03, 0x01}, true, {}},
        {"second form", {0x0F, 0x41, 0x42, 0x0E, 0x0D}, true, {0x41, 0x42}},
        {"second form closed by ETX", {0x0F, 0x41, 0x03, 0x00}, false, {}},
        {"two bytes", {0x02, 0x03}, false, {}},
        {"not a frame", {0x41, 0x42, 0x43}, false, {}},
    };
    for (const Case& c : cases) {
        context.rxLength = 77;
        uint8_t out[16];
        std::memset(out, 0xEE, sizeof out);
        uint32_t length = 999;
        line.Send(c.reply);
        EXPECT_EQ(ReadReply(context, out, &length), 0) << c.name;
        if (c.taken) {
            EXPECT_EQ(context.rxLength, static_cast<int>(c.payload.size())) << c.name;
            EXPECT_EQ(length, c.payload.size()) << c.name;
            EXPECT_EQ(Bytes(out, out + c.payload.size()), c.payload) << c.name;
            EXPECT_EQ(out[c.payload.size()], 0) << c.name;
            EXPECT_EQ(context.rxBuffer[c.payload.size()], 0) << c.name;
        } else {
            EXPECT_EQ(context.rxLength, 77) << c.name << ": rxLength stays stale";
            EXPECT_EQ(length, 999u) << c.name;
            EXPECT_EQ(out[0], 0xEE) << c.name;
            EXPECT_EQ(Bytes(context.rxBuffer, context.rxBuffer + c.reply.size()), c.reply) << c.name;
        }
    }
}

TEST_F(ReplyTest, ASingleByteIsHandedOnWithoutANul)
{
    uint8_t out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    uint32_t length = 0;
    line.Send({0x06});
    ReadReply(context, out, &length);
    EXPECT_EQ(out[0], 0x06);
    EXPECT_EQ(out[1], 0xEE);
    EXPECT_EQ(length, 1u);
    EXPECT_EQ(context.rxLength, 1);
}

TEST_F(ReplyTest, ACancelRequestSendsOneCanAndTheWaitGoesOn)
{
    context.cancelRequested = 1;
    // The terminal answers only later; the wait must survive several rounds.
    std::thread terminal([&] {
        usleep(100000);
        line.Send({0x18});
    });
    uint8_t out[4] = {};
    ReadReply(context, out, nullptr);
    terminal.join();
    EXPECT_EQ(out[0], 0x18);
    EXPECT_EQ(line.Receive(), Bytes{0x18});
    EXPECT_EQ(context.cancelRequested.load(), 0u);
}

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
