// The terminal's card slot as the one PC/SC reader "NEW6210 Reader Card". Six functions with
// the signatures of the platform's PC/SC library stand in for the real ones once the
// redirection is installed; they never call the functions they replace. Names follow the
// platform: the narrow "A" variants of winscard.dll on Windows, pcsc-lite's names on Linux.
#pragma once

#include <cstdint>

#include "pcsc/PcscTypes.h"

struct VirtualReaderState {
    uint8_t atrLength;  // valid bytes in atr; 0 until a terminal answer brought an ATR
    uint8_t atr[64];    // as the terminal gave it, without its length byte
};

// Kept from one connect to the next; no disconnect clears it.
extern VirtualReaderState g_reader;

namespace Pcsc {

constexpr char ReaderName[] = "NEW6210 Reader Card";
constexpr DWORD ReaderNameLength = sizeof(ReaderName) - 1;    // 19
constexpr DWORD ReaderListLength = ReaderNameLength + 2;      // name, NUL, NUL: 21
constexpr SCARDCONTEXT VirtualContext = 1234;
constexpr SCARDHANDLE VirtualCardHandle = 0x1234;
constexpr int TransmitWorkSize = 304;

LONG PCSC_API SCardEstablishContext(DWORD dwScope, const void* pvReserved1,
                                    const void* pvReserved2, SCARDCONTEXT* phContext);
LONG PCSC_API SCardTransmit(SCARDHANDLE hCard, const SCARD_IO_REQUEST* pioSendPci,
                            const BYTE* pbSendBuffer, DWORD cbSendLength,
                            SCARD_IO_REQUEST* pioRecvPci, BYTE* pbRecvBuffer,
                            DWORD* pcbRecvLength);
LONG PCSC_API SCardDisconnect(SCARDHANDLE hCard, DWORD dwDisposition);

#if defined(_WIN32)
LONG PCSC_API SCardListReadersA(SCARDCONTEXT hContext, const char* mszGroups, char* mszReaders,
                                DWORD* pcchReaders);
LONG PCSC_API SCardConnectA(SCARDCONTEXT hContext, const char* szReader, DWORD dwShareMode,
                            DWORD dwPreferredProtocols, SCARDHANDLE* phCard,
                            DWORD* pdwActiveProtocol);
LONG PCSC_API SCardStatusA(SCARDHANDLE hCard, char* mszReaderNames, DWORD* pcchReaderLen,
                           DWORD* pdwState, DWORD* pdwProtocol, BYTE* pbAtr, DWORD* pcbAtrLen);
#else
LONG SCardListReaders(SCARDCONTEXT hContext, const char* mszGroups, char* mszReaders,
                      DWORD* pcchReaders);
LONG SCardConnect(SCARDCONTEXT hContext, const char* szReader, DWORD dwShareMode,
                  DWORD dwPreferredProtocols, SCARDHANDLE* phCard, DWORD* pdwActiveProtocol);
LONG SCardStatus(SCARDHANDLE hCard, char* mszReaderNames, DWORD* pcchReaderLen,
                 DWORD* pdwState, DWORD* pdwProtocol, BYTE* pbAtr, DWORD* pcbAtrLen);
#endif

}  // namespace Pcsc
