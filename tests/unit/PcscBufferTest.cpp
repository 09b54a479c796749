// The stand-ins honour the buffer sizes a PC/SC host passes: a buffer too small gets nothing
// and learns the size it needs; every size that fits gets the answer as before.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "PtyPort.h"
#include "pcsc/VirtualReader.h"
#include "session/DeviceContext.h"

using namespace Pcsc;

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint8_t Unwritten = 0xEE;

Bytes Framed(const Bytes& payload)
{
    Bytes frame = {0x02};
    uint8_t check = 0;
    for (uint8_t b : payload) {
        frame.push_back(b);
        check ^= b;
    }
    frame.push_back(0x03);
    frame.push_back(check);
    return frame;
}

TEST(PcscBuffers, ReaderListBelowTwentyLearnsTwentyOne)
{
    for (DWORD room : {0u, 8u, 19u}) {
        char buffer[32];
        std::memset(buffer, Unwritten, sizeof buffer);
        DWORD count = room;
        EXPECT_EQ(SCardListReaders(0, nullptr, buffer, &count), SCARD_E_INSUFFICIENT_BUFFER);
        EXPECT_EQ(count, 21u) << room;
        EXPECT_EQ(Bytes(buffer, buffer + sizeof buffer), Bytes(sizeof buffer, Unwritten)) << room;
    }
    EXPECT_EQ(SCardListReaders(0, nullptr, nullptr, nullptr), SCARD_E_INVALID_PARAMETER);
}

// A terminal on a pseudo-terminal whose answer waits in the line before the call.
struct AnsweredCall : ::testing::Test {
    PtyPort line;
    void SetUp() override
    {
        g_context.port = PtyPort::Number;
        ASSERT_EQ(OpenDevice(g_context), 0);
    }
    void TearDown() override { CloseDevice(g_context); }
    void Answer(const Bytes& reply)
    {
        line.Send(reply);
        usleep(20000);
    }
};

TEST_F(AnsweredCall, AnAtrGoesOnlyIntoABufferThatHoldsIt)
{
    Bytes answer = {62};
    for (uint8_t i = 0; i < 62; ++i)
        answer.push_back(static_cast<uint8_t>(0x3B + i));
    Answer(Framed(answer));
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    ASSERT_EQ(SCardConnect(0, "r", 0, 0, &card, &protocol), SCARD_S_SUCCESS);

    for (DWORD room : {33u, 61u, 62u}) {
        Bytes atr(80, Unwritten);
        DWORD length = room, state = 0;
        EXPECT_EQ(SCardStatus(card, nullptr, nullptr, &state, &protocol, atr.data(), &length),
                  room < 62 ? SCARD_E_INSUFFICIENT_BUFFER : SCARD_S_SUCCESS);
        EXPECT_EQ(length, 62u);
        Bytes expected(80, Unwritten);
        if (room >= 62)
            std::copy(answer.begin() + 1, answer.end(), expected.begin());
        EXPECT_EQ(atr, expected) << room;
    }
}

TEST_F(AnsweredCall, ATransmitAnswerGoesOnlyIntoABufferThatHoldsIt)
{
    Bytes answer(300, 0x61);
    answer[298] = 0x90;
    answer[299] = 0x00;
    const struct {
        DWORD room;
        LONG status;
        size_t written;  // bytes of the answer in the host's buffer, NUL included
    } rows[] = {
        {16, SCARD_E_INSUFFICIENT_BUFFER, 0},
        {299, SCARD_E_INSUFFICIENT_BUFFER, 0},
        {300, SCARD_S_SUCCESS, 300},  // no room for the NUL: none written
        {301, SCARD_S_SUCCESS, 301},
    };
    for (const auto& row : rows) {
        Answer(Framed(answer));
        Bytes received(400, Unwritten);
        DWORD length = row.room;
        const uint8_t command[] = {0x00, 0xB0, 0x00, 0x00, 0x00};
        EXPECT_EQ(SCardTransmit(0, nullptr, command, sizeof command, nullptr, received.data(),
                                &length), row.status) << row.room;
        EXPECT_EQ(length, 300u) << "the size needed, or the size written";
        Bytes expected = answer;
        expected.push_back(0);
        expected.resize(row.written);
        expected.resize(400, Unwritten);
        EXPECT_EQ(received, expected) << row.room;
        line.Receive();
    }
}

TEST_F(AnsweredCall, TransmitWithoutACommandCopiesNothingFromANullBuffer)
{
    Answer(Framed({0x90, 0x00}));
    uint8_t received[4] = {Unwritten, Unwritten, Unwritten, Unwritten};
    DWORD length = sizeof received;
    EXPECT_EQ(SCardTransmit(0, nullptr, nullptr, 0, nullptr, received, &length), SCARD_S_SUCCESS);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(Bytes(received, received + 4), (Bytes{0x90, 0x00, 0x00, Unwritten}));
    EXPECT_EQ(SCardTransmit(0, nullptr, nullptr, 5, nullptr, received, &length),
              SCARD_E_INVALID_PARAMETER);
}

}  // namespace
