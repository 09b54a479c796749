// The PC/SC functions of the process as the command-line host calls them, declared here so
// that no PC/SC header or development package is needed. The types follow each platform's
// own interface: winscard.dll on Windows (32-bit DWORD and LONG, handles as wide as a
// pointer, WINAPI calls), pcsc-lite on Linux (DWORD and LONG are unsigned long and long,
// handles are LONG). `unsigned long` and `long` have the right width on both.
#pragma once

#include <cstdint>

#if defined(_WIN32)
#define PCSC_CALL __stdcall
using PcscHandle = uintptr_t;   // SCARDCONTEXT and SCARDHANDLE: ULONG_PTR
#else
#define PCSC_CALL
using PcscHandle = long;
#endif
using PcscDword = unsigned long;
using PcscLong = long;

struct PcscIoRequest {
    PcscDword dwProtocol;
    PcscDword cbPciLength;
};

// The same numbers on both platforms.
const PcscDword PcscScopeSystem = 2;
const PcscDword PcscShareShared = 2;
const PcscDword PcscProtocolT0 = 1;
const PcscDword PcscLeaveCard = 0;

using SCardEstablishContextFn = PcscLong(PCSC_CALL*)(PcscDword scope, const void* reserved1,
                                                     const void* reserved2, PcscHandle* context);
using SCardReleaseContextFn = PcscLong(PCSC_CALL*)(PcscHandle context);
using SCardListReadersFn = PcscLong(PCSC_CALL*)(PcscHandle context, const char* groups,
                                                char* readers, PcscDword* readersLength);
using SCardConnectFn = PcscLong(PCSC_CALL*)(PcscHandle context, const char* reader,
                                            PcscDword shareMode, PcscDword preferredProtocols,
                                            PcscHandle* card, PcscDword* activeProtocol);
using SCardStatusFn = PcscLong(PCSC_CALL*)(PcscHandle card, char* readerNames,
                                           PcscDword* readerNamesLength, PcscDword* state,
                                           PcscDword* protocol, uint8_t* atr,
                                           PcscDword* atrLength);
using SCardTransmitFn = PcscLong(PCSC_CALL*)(PcscHandle card, const PcscIoRequest* sendPci,
                                             const uint8_t* send, PcscDword sendLength,
                                             PcscIoRequest* receivePci, uint8_t* receive,
                                             PcscDword* receiveLength);
using SCardDisconnectFn = PcscLong(PCSC_CALL*)(PcscHandle card, PcscDword disposition);
using SCardFreeMemoryFn = PcscLong(PCSC_CALL*)(PcscHandle context, const void* memory);

struct PcscApi {
    SCardEstablishContextFn SCardEstablishContext = nullptr;
    SCardReleaseContextFn SCardReleaseContext = nullptr;
    SCardListReadersFn SCardListReaders = nullptr;
    SCardConnectFn SCardConnect = nullptr;
    SCardStatusFn SCardStatus = nullptr;
    SCardTransmitFn SCardTransmit = nullptr;
    SCardDisconnectFn SCardDisconnect = nullptr;
    // Bound with the rest but not needed: varnik never asks PC/SC to allocate.
    SCardFreeMemoryFn SCardFreeMemory = nullptr;
    // The T=0 protocol header of the PC/SC library (winscard's g_rgSCardT0Pci), or null to
    // use one of our own.
    const PcscIoRequest* t0Pci = nullptr;
};
