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

// The terminal's answer waits in the line before the call; the port stays open between calls.
// What the line held before the open is drained by it, or it would spoil every answer.
struct AnsweredCall : ::testing::Test {
    PtyPort line;
    void SetUp() override
    {
        g_context.port = PtyPort::Number;
        line.Send({0x41, 0x02, 0x42}), usleep(20000);
        ASSERT_EQ(OpenDevice(g_context), 0);
    }
    void TearDown() override { CloseDevice(g_context); }
    void Answer(const Bytes& payload)
    {
        Bytes frame = {0x02};
        frame.insert(frame.end(), payload.begin(), payload.end());
        frame.insert(frame.end(), {0x03, 0x00});  // the check byte is not verified
        line.Send(frame);
        usleep(20000);
    }
};

TEST_F(AnsweredCall, AnswersGoOnlyIntoBuffersThatHoldThem)
{
    Bytes atr(63, 0x3B);
    atr[0] = 62;  // the length byte
    Answer(atr);
    SCARDHANDLE card = 0;
    DWORD protocol = 0, state = 0;
    ASSERT_EQ(SCardConnect(0, "r", 0, 0, &card, &protocol), SCARD_S_SUCCESS);
    Bytes reply(300, 0x61);
    const struct {
        const char* call;
        DWORD room;
        LONG status;
        DWORD size;      // needed, or written
        size_t written;  // bytes in the buffer, a NUL behind a transmit answer included
    } rows[] = {
        {"list", 19, SCARD_E_INSUFFICIENT_BUFFER, 21, 0},
        {"list", 20, SCARD_S_SUCCESS, 19, 20},
        {"list", 21, SCARD_S_SUCCESS, 19, 21},  // the closing NUL only where there is room
        {"status", 33, SCARD_E_INSUFFICIENT_BUFFER, 62, 0},
        {"status", 62, SCARD_S_SUCCESS, 62, 62},
        {"transmit", 299, SCARD_E_INSUFFICIENT_BUFFER, 300, 0},
        {"transmit", 300, SCARD_S_SUCCESS, 300, 300},  // no room for the NUL: none written
        {"transmit", 301, SCARD_S_SUCCESS, 300, 301},
    };
    for (const auto& row : rows) {
        Bytes buffer(400, Unwritten), expected;
        DWORD size = row.room;
        LONG status;
        const std::string call = row.call;
        if (call == "list") {
            status = SCardListReaders(0, nullptr, reinterpret_cast<char*>(buffer.data()), &size);
            expected.assign(ReaderName, ReaderName + sizeof ReaderName);
        } else if (call == "status") {
            status = SCardStatus(card, nullptr, nullptr, &state, &protocol, buffer.data(), &size);
            expected.assign(atr.begin() + 1, atr.end());
        } else {
            Answer(reply);
            const uint8_t command[] = {0x00, 0xB0, 0x00, 0x00, 0x00};
            status = SCardTransmit(0, nullptr, command, sizeof command, nullptr, buffer.data(), &size);
            expected = reply;
            expected.push_back(0);
            line.Receive();
        }
        expected.resize(row.written);
        expected.resize(buffer.size(), Unwritten);
        EXPECT_EQ(status, row.status) << row.call << " " << row.room;
        EXPECT_EQ(size, row.size) << row.call << " " << row.room;
        EXPECT_EQ(buffer, expected) << row.call << " " << row.room;
    }
}

TEST_F(AnsweredCall, NullPointersAreRefusedOrCopiedFromNever)
{
    Answer({0x90, 0x00});
    uint8_t received[4] = {Unwritten, Unwritten, Unwritten, Unwritten};
    DWORD length = sizeof received;
    EXPECT_EQ(SCardTransmit(0, nullptr, nullptr, 0, nullptr, received, &length), SCARD_S_SUCCESS);
    EXPECT_EQ(Bytes(received, received + 4), (Bytes{0x90, 0x00, 0x00, Unwritten}));
    EXPECT_EQ(SCardTransmit(0, nullptr, nullptr, 5, nullptr, received, &length),
              SCARD_E_INVALID_PARAMETER);
    EXPECT_EQ(SCardListReaders(0, nullptr, nullptr, nullptr), SCARD_E_INVALID_PARAMETER);
}

}  // namespace
