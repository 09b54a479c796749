// A PC/SC session as the pcsc command runs it: one context, the first reader, one card
// connection, and the T=0 dialogue of the Thai national ID card on top. It calls whatever the
// PcscApi holds, so the unit tests run it against a card of their own.
#pragma once

#include "CardText.h"
#include "PcscApi.h"

#include <string>
#include <vector>

// The name of the first function that the pcsc command calls and `api` lacks, or null.
const char* MissingPcscFunction(const PcscApi& api);

// "SCARD_E_NO_SMARTCARD (0x8010000C)" for the codes a session meets, the number otherwise.
std::string PcscResultText(PcscLong result);

class PcscSession {
public:
    explicit PcscSession(const PcscApi& api);
    // Disconnects and releases the context if they were made.
    ~PcscSession();
    PcscSession(const PcscSession&) = delete;
    PcscSession& operator=(const PcscSession&) = delete;

    PcscLong Establish();
    // Asks for the size first, then for the list.
    PcscLong ListReaders(std::vector<std::string>& names);
    // Shared, T=0.
    PcscLong Connect(const std::string& reader);
    PcscLong Status(ByteString& atr);
    // The response as the reader gives it: data and status word.
    PcscLong Transmit(const ByteString& command, ByteString& response);

private:
    const PcscApi& m_api;
    PcscHandle m_context = 0;
    PcscHandle m_card = 0;
    bool m_established = false;
    bool m_connected = false;
    ByteString m_receive;
};

struct ApduResponse {
    ByteString data;
    uint8_t sw1 = 0;
    uint8_t sw2 = 0;
    unsigned StatusWord() const { return (sw1 << 8) | sw2; }
};

// Splits off the last two bytes as the status word; false for a response shorter than that.
bool SplitResponse(const ByteString& response, ApduResponse& split);

// GET RESPONSE for `count` bytes: 00 C0 00 P2 count (256 as 00).
ByteString GetResponseCommand(unsigned count, uint8_t p2 = 0x00);

// The Thai ID card's GET RESPONSE takes P2 01 on cards whose ATR starts 3B 67, 00 on others.
uint8_t ThaiIdGetResponseP2(const ByteString& atr);

struct ThaiIdCard {
    ThaiIdFields fields;   // UTF-8, trimmed
    ByteString photo;      // as read, 5118 bytes, not yet trimmed
};

// Selects the Thai ID application on the connected card and reads every field and the photo.
// False, with what failed in `error`, at the first command that the card refuses.
bool ReadThaiIdCard(PcscSession& session, const ByteString& atr, ThaiIdCard& card,
                    std::string& error);
