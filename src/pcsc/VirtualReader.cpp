// The six PC/SC stand-ins. Nothing here keeps a session: the context and card handles are two
// fixed numbers, card presence is whatever the terminal answers to the Open APDU, and the ATR
// of that answer is the only thing remembered. The port is opened on demand and left open.
#include "pcsc/VirtualReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "session/DeviceContext.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

VirtualReaderState g_reader;

namespace Pcsc {

namespace {

// ReadReply leaves its length untouched when it drops a reply; this marks "not written".
constexpr uint32_t NoLength = 0xFFFFFFFFu;

}  // namespace

LONG PCSC_API SCardEstablishContext(DWORD, const void*, const void*, SCARDCONTEXT* phContext)
{
    WriteLog("SCardEstablishContext called");
    if (phContext == nullptr)
        return SCARD_E_INVALID_PARAMETER;
    *phContext = VirtualContext;
    return SCARD_S_SUCCESS;
}

#if defined(_WIN32)
LONG PCSC_API SCardListReadersA(
#else
LONG SCardListReaders(
#endif
    SCARDCONTEXT, const char*, char* mszReaders, DWORD* pcchReaders)
{
    WriteLog("SCardListReaders called");
    WriteLog(Format("-> Found readers: %s", ReaderName));
    if (pcchReaders == nullptr)
        return SCARD_E_INVALID_PARAMETER;

    // A size query: the whole list is the name and two NULs.
    if (mszReaders == nullptr) {
        *pcchReaders = ReaderListLength;
        return SCARD_S_SUCCESS;
    }

    if (*pcchReaders == SCARD_AUTOALLOCATE) {
#if defined(_WIN32)
        // winscard.dll's SCardFreeMemory releases with an allocator we can't reach, so any
        // block of ours handed to it would be freed by the wrong heap.
        return SCARD_E_INVALID_PARAMETER;
#else
        // pcsc-lite's SCardFreeMemory is free().
        char* list = static_cast<char*>(std::malloc(ReaderListLength));
        if (list == nullptr)
            return SCARD_E_NO_MEMORY;
        std::memcpy(list, ReaderName, sizeof(ReaderName));
        list[ReaderListLength - 1] = '\0';
        *reinterpret_cast<char**>(mszReaders) = list;
        *pcchReaders = ReaderListLength;
        return SCARD_S_SUCCESS;
#endif
    }

    // A capacity below the name and its NUL is honoured, as PC/SC asks: nothing is written and
    // the host learns the size of the whole list.
    if (*pcchReaders < ReaderNameLength + 1) {
        *pcchReaders = ReaderListLength;
        return SCARD_E_INSUFFICIENT_BUFFER;
    }
    // Hosts that pass their capacity and have room get a closed multi-string; the count stays
    // the name's length, as the hosts of this reader have always read it.
    const bool roomForList = *pcchReaders >= ReaderListLength;
    std::memcpy(mszReaders, ReaderName, sizeof(ReaderName));
    if (roomForList)
        mszReaders[ReaderListLength - 1] = '\0';
    *pcchReaders = ReaderNameLength;
    return SCARD_S_SUCCESS;
}

#if defined(_WIN32)
LONG PCSC_API SCardConnectA(
#else
LONG SCardConnect(
#endif
    SCARDCONTEXT, const char* szReader, DWORD, DWORD, SCARDHANDLE* phCard,
    DWORD* pdwActiveProtocol)
{
    WriteLog("SCardConnect called");
    if (phCard == nullptr || pdwActiveProtocol == nullptr)
        return SCARD_E_INVALID_PARAMETER;
    *phCard = VirtualCardHandle;
    *pdwActiveProtocol = SCARD_PROTOCOL_T0;
    LONG status = SCARD_S_SUCCESS;

    WriteLog("Open APDU");
    DeviceContext& context = g_context;
    OpenDevice(context);
    BeginFrame(context, {OpCardChannel, OpCardOpen});
    CloseFrame(context);
    const int written = SendFrame(context);
    int read = 0;
    if (written > 0)
        read = ReadReply(context, nullptr, nullptr);

    if (written < 0 || read < 0) {
        status = SCARD_E_NO_SMARTCARD;
    } else {
        g_reader.atrLength = 0;
        g_reader.atr[0] = 0;
        if (context.rxLength > 1) {
            // Length byte, then the ATR. The length is the terminal's word, but atr holds 64
            // bytes and only rxLength - 1 of them arrived.
            const int count = std::min({static_cast<int>(context.rxBuffer[0]),
                                        static_cast<int>(sizeof(g_reader.atr)),
                                        context.rxLength - 1});
            std::memcpy(g_reader.atr, context.rxBuffer + 1, count);
            g_reader.atrLength = static_cast<uint8_t>(count);
        } else if (context.rxLength == 1) {
            // A one-byte answer is a status: 0 is a card without ATR, anything else no card.
            if (context.rxBuffer[0] != 0)
                status = SCARD_E_NO_SMARTCARD;
        }
    }

    WriteLog(Format("SCardConnect(%s,hCard:0x%x status:[0x%x]) called",
                    szReader != nullptr ? szReader : "(null)",
                    static_cast<unsigned>(*phCard), static_cast<unsigned>(status)));
    return status;
}

#if defined(_WIN32)
LONG PCSC_API SCardStatusA(
#else
LONG SCardStatus(
#endif
    SCARDHANDLE, char*, DWORD*, DWORD* pdwState, DWORD* pdwProtocol, BYTE* pbAtr,
    DWORD* pcbAtrLen)
{
    if (pcbAtrLen == nullptr)
        return SCARD_E_INVALID_PARAMETER;
    WriteLog(Format("SCardStatus(pcbAtrLen:%d) called", static_cast<int>(*pcbAtrLen)));
    if (pdwState != nullptr)
        *pdwState = SCARD_SPECIFIC;
    if (pdwProtocol != nullptr)
        *pdwProtocol = SCARD_PROTOCOL_T0;
    // A buffer smaller than the ATR gets nothing; a null one asks for the length alone.
    const bool fits = pbAtr == nullptr || *pcbAtrLen >= g_reader.atrLength;
    *pcbAtrLen = g_reader.atrLength;
    if (!fits)
        return SCARD_E_INSUFFICIENT_BUFFER;
    if (pbAtr != nullptr)
        std::memcpy(pbAtr, g_reader.atr, g_reader.atrLength);
    return SCARD_S_SUCCESS;
}

LONG PCSC_API SCardTransmit(SCARDHANDLE, const SCARD_IO_REQUEST*, const BYTE* pbSendBuffer,
                            DWORD cbSendLength, SCARD_IO_REQUEST*, BYTE* pbRecvBuffer,
                            DWORD* pcbRecvLength)
{
    WriteLog("SCardTransmit called");
    if ((pbSendBuffer == nullptr && cbSendLength != 0) || pcbRecvLength == nullptr)
        return SCARD_E_INVALID_PARAMETER;
    const DWORD room = pbRecvBuffer != nullptr ? *pcbRecvLength : 0;

    // Commands go out of a local copy. One longer than the copy goes out of the caller's
    // buffer instead, with the same bytes on the wire.
    uint8_t work[TransmitWorkSize] = {};
    const uint8_t* command = work;
    if (cbSendLength > sizeof(work))
        command = pbSendBuffer;
    else if (cbSendLength != 0)  // nothing to copy, and the buffer may then be null
        std::memcpy(work, pbSendBuffer, cbSendLength);

    DeviceContext& context = g_context;
    OpenDevice(context);

    const uint8_t lengthByte = static_cast<uint8_t>(cbSendLength & 0xFF);
    BeginFrame(context, {OpCardChannel, OpCardTransmit});
    AppendBytes(context, &lengthByte, 1);
    if (cbSendLength != 0) {
        const DWORD count = std::min<DWORD>(cbSendLength, TxRxCapacity);
        AppendBytes(context, command, static_cast<int>(count));
    } else {
        // No length: the work area is sent as a text with its NUL, while LL stays 0. The text
        // ends inside the work area at the latest.
        const size_t text = strnlen(reinterpret_cast<const char*>(work), sizeof(work));
        AppendBytes(context, work, static_cast<int>(std::min(text + 1, sizeof(work))));
    }
    CloseFrame(context);

    const int written = SendFrame(context);
    int read = 0;
    uint32_t received = NoLength;
    if (written > 0)
        read = ReadReply(context, nullptr, &received);
    if (written < 0 || read < 0) {
        *pcbRecvLength = 0;
        return SCARD_E_NO_SMARTCARD;
    }
    if (received == NoLength)
        return SCARD_S_SUCCESS;  // nothing usable arrived: the host's buffer stays as it was
    *pcbRecvLength = received;
    if (room < received)
        return SCARD_E_INSUFFICIENT_BUFFER;
    // The answer as ReadReply leaves it in rxBuffer: a payload with its NUL behind, or one raw
    // byte. A NUL behind it goes along only where the host's buffer has room for it.
    const size_t count = std::min<size_t>(received, TxRxCapacity - 1);
    const bool withNul = room > received && context.rxBuffer[count] == 0;
    // A null buffer has no room, so only an empty answer gets here with one: nothing to copy.
    if (pbRecvBuffer != nullptr)
        std::memcpy(pbRecvBuffer, context.rxBuffer, count + (withNul ? 1 : 0));
    return SCARD_S_SUCCESS;
}

LONG PCSC_API SCardDisconnect(SCARDHANDLE, DWORD)
{
    DeviceContext& context = g_context;
    OpenDevice(context);
    BeginFrame(context, {OpCardChannel, OpCardClose});
    CloseFrame(context);
    const int written = SendFrame(context);
    if (written > 0)
        return ReadReply(context, nullptr, nullptr);
    return written;
}

}  // namespace Pcsc
