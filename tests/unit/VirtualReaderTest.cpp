// The six PC/SC stand-ins, called directly with the port closed: nothing is sent or read, but
// each frame is left in txBuffer and SCardConnect judges whatever rxBuffer holds. The round
// trip with a terminal is PcscTest's, through an unmodified PC/SC client.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

#include "pcsc/VirtualReader.h"
#include "session/DeviceContext.h"

using namespace Pcsc;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes SentFrame()
{
    return Bytes(g_context.txBuffer, g_context.txBuffer + g_context.txLength);
}

// A frame written out by hand around `command`.
Bytes Framed(const Bytes& head, const Bytes& command, const Bytes& tail)
{
    Bytes frame = head;
    frame.insert(frame.end(), command.begin(), command.end());
    frame.insert(frame.end(), tail.begin(), tail.end());
    return frame;
}

// Lets SCardConnect judge `answer` as if the terminal had just sent it.
LONG ConnectWithAnswer(const Bytes& answer, int rxLength)
{
    std::memcpy(g_context.rxBuffer, answer.data(), answer.size());
    g_context.rxLength = rxLength;
    SCARDHANDLE card = 0;
    DWORD protocol = 0;
    const LONG status = SCardConnect(0, "no such reader", 0, 0, &card, &protocol);
    EXPECT_EQ(card, 0x1234) << "set also when no card is found";
    EXPECT_EQ(protocol, 1u);
    EXPECT_EQ(SentFrame(), (Bytes{0x02, 0x38, 0x02, 0x03, 0x3A}));
    return status;
}

// The kept ATR, asked for with room for any.
Bytes StatusAtr()
{
    DWORD state = 0, protocol = 0, atrLength = 64;
    uint8_t atr[80];
    std::memset(atr, 0xEE, sizeof atr);
    EXPECT_EQ(SCardStatus(0, nullptr, nullptr, &state, &protocol, atr, &atrLength), 0);
    EXPECT_EQ(state, SCARD_SPECIFIC);
    EXPECT_EQ(protocol, 1u);
    EXPECT_EQ(atr[atrLength], 0xEE) << "nothing past the ATR";
    return Bytes(atr, atr + atrLength);
}

struct ClosedPort : ::testing::Test {
    void SetUp() override
    {
        CloseDevice(g_context);
        g_context.port = 0;
        g_reader = {};
    }
};

// An allocated list is the caller's to free.
TEST_F(ClosedPort, ListReadersAllocatesTheListWhenAsked)
{
    const Bytes list = {'N', 'E', 'W', '6', '2', '1', '0', ' ', 'R', 'e', 'a',
                        'd', 'e', 'r', ' ', 'C', 'a', 'r', 'd', 0, 0};
    char* allocated = nullptr;
    DWORD count = SCARD_AUTOALLOCATE;
    EXPECT_EQ(SCardListReaders(0, nullptr, reinterpret_cast<char*>(&allocated), &count), 0);
    ASSERT_NE(allocated, nullptr);
    EXPECT_EQ(count, 21u);
    EXPECT_EQ(Bytes(allocated, allocated + 21), list);
    std::free(allocated);  // what pcsc-lite's SCardFreeMemory does with it
}

// The ATR is kept from the answer to the Open APDU, within what arrived and the area, and
// outlives the disconnect.
TEST_F(ClosedPort, ConnectKeepsTheAtrOfTheAnswerForStatus)
{
    EXPECT_EQ(StatusAtr(), Bytes{}) << "before any connect";
    Bytes long_(1 + 120);
    long_[0] = 100;
    std::iota(long_.begin() + 1, long_.end(), 1);
    const struct {
        const char* name;
        Bytes answer;
        int rxLength;
        LONG status;
        Bytes atr;
    } cases[] = {
        {"length byte and ATR", {0x02, 0x3B, 0x00}, 3, 0, {0x3B, 0x00}},
        {"length beyond what arrived", {0x05, 0x3B, 0x00, 0x77}, 3, 0, {0x3B, 0x00}},
        {"length beyond the area", long_, 121, 0, Bytes(long_.begin() + 1, long_.begin() + 65)},
        {"status 0: card, no ATR", {0x00}, 1, 0, {}},
        {"empty answer", {0x3B}, 0, 0, {}},
    };
    for (const auto& c : cases) {
        g_reader.atrLength = 3;
        g_reader.atr[0] = 0x99;
        EXPECT_EQ(ConnectWithAnswer(c.answer, c.rxLength), c.status) << c.name;
        SCardDisconnect(0x1234, 0);
        EXPECT_EQ(SentFrame(), (Bytes{0x02, 0x38, 0x03, 0x03, 0x3B}));
        EXPECT_EQ(StatusAtr(), c.atr) << c.name;
        DWORD state = 0, protocol = 0, atrLength = 0;
        EXPECT_EQ(SCardStatus(0, nullptr, nullptr, &state, &protocol, nullptr, &atrLength), 0);
        EXPECT_EQ(atrLength, c.atr.size()) << c.name << ": a null buffer still learns the length";
    }
}

TEST_F(ClosedPort, TransmitFramesTheCommandWithItsLowLengthByte)
{
    Bytes big(400);
    std::iota(big.begin(), big.end(), 0);
    struct Case {
        const char* name;
        Bytes command;
        Bytes head, tail;  // around the command: the low length byte, then ETX and check
    } cases[] = {
        {"the whole work area", Bytes(big.begin(), big.begin() + 304), {0x02, 0x38, 0x01, 0x30},
         {0x03, 0x09}},
        {"longer than the work area", big, {0x02, 0x38, 0x01, 0x90}, {0x03, 0xA9}},
        {"no command: the empty text with its NUL", {}, {0x02, 0x38, 0x01, 0x00, 0x00}, {0x03, 0x39}},
    };
    for (const Case& c : cases) {
        uint8_t reply[8] = {0xEE};
        DWORD replyLength = 77;
        EXPECT_EQ(SCardTransmit(0, nullptr, c.command.data(), static_cast<DWORD>(c.command.size()),
                                nullptr, reply, &replyLength), 0) << c.name;
        EXPECT_EQ(SentFrame(), Framed(c.head, c.command, c.tail)) << c.name;
        EXPECT_EQ(reply[0], 0xEE) << c.name << ": nothing read from a closed port";
        EXPECT_EQ(replyLength, 77u) << c.name;
    }

    // A command whose frame does not fit fills txBuffer to its last byte and never past it.
    const Bytes huge(TxRxCapacity, 0x41);
    DWORD replyLength = 0;
    SCardTransmit(0, nullptr, huge.data(), static_cast<DWORD>(huge.size()), nullptr, nullptr, &replyLength);
    EXPECT_EQ(g_context.txLength, TxRxCapacity);
}

}  // namespace
