#include "PcscSession.h"

#include <cstdio>

namespace {

// The library copies a whole reply into the receive buffer, with a NUL behind it, whatever
// size the caller names; its own receive buffer holds 204800 bytes.
const size_t ReceiveBufferSize = 256 * 1024;

// The ATR has at most 33 bytes by the standard; the library keeps up to 255 of what the
// terminal says and copies them all.
const size_t AtrBufferSize = 256;

// Room for the reader list beyond what the size query says: the query's answer is only
// believed as far as it is large enough.
const PcscDword ReaderListMinimum = 256;

const ByteString SelectThaiId = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0,
                                 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01};

struct CardField {
    const char* name;
    uint16_t offset;
    uint8_t length;
    std::string ThaiIdFields::*slot;
};

// Where each field lies in the card's file. The text fields are TIS-620, blank-padded.
const CardField ThaiIdCardFields[] = {
    {"citizen number", 0x0004, 13, &ThaiIdFields::citizenId},
    {"Thai name", 0x0011, 100, &ThaiIdFields::thaiName},
    {"English name", 0x0075, 100, &ThaiIdFields::englishName},
    {"birth date", 0x00D9, 8, &ThaiIdFields::birthDate},
    {"sex", 0x00E1, 1, &ThaiIdFields::sex},
    {"issuer", 0x00F6, 100, &ThaiIdFields::issuer},
    {"issue date", 0x0167, 8, &ThaiIdFields::issueDate},
    {"expiry date", 0x016F, 8, &ThaiIdFields::expiryDate},
    {"address", 0x1579, 160, &ThaiIdFields::address},
};

// The photo is read in pieces of 0xFF bytes, the last one shorter.
const uint16_t PhotoOffset = 0x017B;
const unsigned PhotoLength = 5118;
const unsigned PhotoChunk = 0xFF;

std::string StatusText(const ApduResponse& response)
{
    char text[8];
    std::snprintf(text, sizeof text, "%02X %02X", response.sw1, response.sw2);
    return text;
}

// One command and, when the card says that data waits (61 xx), its GET RESPONSE; a GET
// RESPONSE with the wrong count (6C xx) is asked again with the count the card names.
bool Exchange(PcscSession& session, const ByteString& command, uint8_t getResponseP2,
              ApduResponse& response, std::string& error)
{
    ByteString raw;
    PcscLong result = session.Transmit(command, raw);
    if (result == 0 && SplitResponse(raw, response) && response.sw1 == 0x61) {
        result = session.Transmit(GetResponseCommand(response.sw2 ? response.sw2 : 256,
                                                     getResponseP2), raw);
        if (result == 0 && SplitResponse(raw, response) && response.sw1 == 0x6C)
            result = session.Transmit(GetResponseCommand(response.sw2 ? response.sw2 : 256,
                                                         getResponseP2), raw);
        if (result == 0)
            SplitResponse(raw, response);
    }
    if (result != 0) {
        error = "the transmission failed: " + PcscResultText(result);
        return false;
    }
    if (raw.size() < 2) {
        error = "the response is too short: " + (raw.empty() ? "nothing" : HexText(raw));
        return false;
    }
    return true;
}

// Reads `length` bytes of the card's file at `offset`: 80 B0 hi lo 02 00 length.
bool ReadBinary(PcscSession& session, uint16_t offset, uint8_t length, uint8_t getResponseP2,
                ByteString& data, std::string& error)
{
    const ByteString command = {0x80, 0xB0, static_cast<uint8_t>(offset >> 8),
                                static_cast<uint8_t>(offset & 0xFF), 0x02, 0x00, length};
    ApduResponse response;
    if (!Exchange(session, command, getResponseP2, response, error))
        return false;
    if (response.StatusWord() != 0x9000) {
        error = "the card answered " + StatusText(response);
        return false;
    }
    data = response.data;
    return true;
}

} // namespace

const char* MissingPcscFunction(const PcscApi& api)
{
    if (!api.SCardEstablishContext)
        return "SCardEstablishContext";
    if (!api.SCardReleaseContext)
        return "SCardReleaseContext";
    if (!api.SCardListReaders)
        return "SCardListReaders";
    if (!api.SCardConnect)
        return "SCardConnect";
    if (!api.SCardStatus)
        return "SCardStatus";
    if (!api.SCardTransmit)
        return "SCardTransmit";
    if (!api.SCardDisconnect)
        return "SCardDisconnect";
    return nullptr;
}

std::string PcscResultText(PcscLong result)
{
    const unsigned long code = static_cast<unsigned long>(result) & 0xFFFFFFFFUL;
    const char* name = nullptr;
    switch (code) {
    case 0x80100003UL: name = "SCARD_E_INVALID_HANDLE"; break;
    case 0x80100004UL: name = "SCARD_E_INVALID_PARAMETER"; break;
    case 0x80100008UL: name = "SCARD_E_INSUFFICIENT_BUFFER"; break;
    case 0x80100009UL: name = "SCARD_E_UNKNOWN_READER"; break;
    case 0x8010000CUL: name = "SCARD_E_NO_SMARTCARD"; break;
    case 0x8010001DUL: name = "SCARD_E_NO_SERVICE"; break;
    case 0x8010002EUL: name = "SCARD_E_NO_READERS_AVAILABLE"; break;
    default: break;
    }
    char number[16];
    std::snprintf(number, sizeof number, "0x%08lX", code);
    return name ? std::string(name) + " (" + number + ")" : std::string(number);
}

PcscSession::PcscSession(const PcscApi& api) : m_api(api) {}

PcscSession::~PcscSession()
{
    if (m_connected)
        m_api.SCardDisconnect(m_card, PcscLeaveCard);
    // The context that a redirected establish hands out is unknown to the real library, whose
    // release then only says so; it is released all the same, as any host does.
    if (m_established)
        m_api.SCardReleaseContext(m_context);
}

PcscLong PcscSession::Establish()
{
    PcscLong result = m_api.SCardEstablishContext(PcscScopeSystem, nullptr, nullptr, &m_context);
    m_established = result == 0;
    return result;
}

PcscLong PcscSession::ListReaders(std::vector<std::string>& names)
{
    names.clear();
    PcscDword size = 0;
    PcscLong result = m_api.SCardListReaders(m_context, nullptr, nullptr, &size);
    if (result != 0)
        return result;
    // A list is names with a NUL each and one more at the end; a reader that writes more
    // than it announced, or forgets the last NUL, still ends in our zeros.
    PcscDword capacity = size < ReaderListMinimum ? ReaderListMinimum : size;
    std::vector<char> list(capacity + 2, '\0');
    PcscDword length = capacity;
    result = m_api.SCardListReaders(m_context, nullptr, list.data(), &length);
    if (result != 0)
        return result;
    for (size_t at = 0; at < capacity && list[at] != '\0';) {
        std::string name(list.data() + at);
        names.push_back(name);
        at += name.size() + 1;
    }
    return 0;
}

PcscLong PcscSession::Connect(const std::string& reader)
{
    PcscDword protocol = 0;
    PcscLong result = m_api.SCardConnect(m_context, reader.c_str(), PcscShareShared,
                                         PcscProtocolT0, &m_card, &protocol);
    m_connected = result == 0;
    return result;
}

PcscLong PcscSession::Status(ByteString& atr)
{
    char readerNames[256] = {};
    PcscDword readerNamesLength = sizeof readerNames;
    PcscDword state = 0, protocol = 0;
    ByteString buffer(AtrBufferSize, 0);
    PcscDword atrLength = AtrBufferSize;
    PcscLong result = m_api.SCardStatus(m_card, readerNames, &readerNamesLength, &state,
                                        &protocol, buffer.data(), &atrLength);
    atr.clear();
    if (result == 0)
        atr.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(
                                                        atrLength < AtrBufferSize ? atrLength
                                                                                  : AtrBufferSize));
    return result;
}

PcscLong PcscSession::Transmit(const ByteString& command, ByteString& response)
{
    static const PcscIoRequest ownT0Pci = {PcscProtocolT0, sizeof(PcscIoRequest)};
    if (m_receive.empty())
        m_receive.assign(ReceiveBufferSize + 1, 0);
    PcscDword length = ReceiveBufferSize;
    PcscLong result = m_api.SCardTransmit(m_card, m_api.t0Pci ? m_api.t0Pci : &ownT0Pci,
                                          command.data(), static_cast<PcscDword>(command.size()),
                                          nullptr, m_receive.data(), &length);
    response.clear();
    if (result == 0) {
        if (length > ReceiveBufferSize)
            length = ReceiveBufferSize;
        response.assign(m_receive.begin(), m_receive.begin() + static_cast<std::ptrdiff_t>(length));
    }
    return result;
}

bool SplitResponse(const ByteString& response, ApduResponse& split)
{
    if (response.size() < 2)
        return false;
    split.data.assign(response.begin(), response.end() - 2);
    split.sw1 = response[response.size() - 2];
    split.sw2 = response[response.size() - 1];
    return true;
}

ByteString GetResponseCommand(unsigned count, uint8_t p2)
{
    return {0x00, 0xC0, 0x00, p2, static_cast<uint8_t>(count & 0xFF)};
}

uint8_t ThaiIdGetResponseP2(const ByteString& atr)
{
    return atr.size() >= 2 && atr[0] == 0x3B && atr[1] == 0x67 ? 0x01 : 0x00;
}

bool ReadThaiIdCard(PcscSession& session, const ByteString& atr, ThaiIdCard& card,
                    std::string& error)
{
    const uint8_t p2 = ThaiIdGetResponseP2(atr);
    ByteString raw;
    ApduResponse response;
    PcscLong result = session.Transmit(SelectThaiId, raw);
    if (result != 0) {
        error = "SELECT: the transmission failed: " + PcscResultText(result);
        return false;
    }
    // The answer of SELECT is no more than the card's description; 61 xx is as good as 90 00.
    if (!SplitResponse(raw, response) ||
        (response.sw1 != 0x61 && response.StatusWord() != 0x9000)) {
        error = "SELECT: no Thai ID application, the card answered " +
                (raw.empty() ? std::string("nothing") : HexText(raw));
        return false;
    }

    card = ThaiIdCard();
    for (const CardField& field : ThaiIdCardFields) {
        ByteString data;
        if (!ReadBinary(session, field.offset, field.length, p2, data, error)) {
            error = std::string(field.name) + ": " + error;
            return false;
        }
        card.fields.*field.slot =
            Tis620ToUtf8(TrimCardField(std::string(data.begin(), data.end())));
    }
    for (unsigned read = 0; read < PhotoLength;) {
        unsigned count = PhotoLength - read < PhotoChunk ? PhotoLength - read : PhotoChunk;
        ByteString data;
        if (!ReadBinary(session, static_cast<uint16_t>(PhotoOffset + read),
                        static_cast<uint8_t>(count), p2, data, error)) {
            error = "photo at offset " + std::to_string(read) + ": " + error;
            return false;
        }
        card.photo.insert(card.photo.end(), data.begin(), data.end());
        read += count;
    }
    return true;
}
