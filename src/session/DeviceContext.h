// The one terminal and all its state. Every export, the PC/SC replacements and the command
// interpreter work on g_context; the host makes one call at a time, PosCancel excepted.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "serial/CComPort.h"
#include "support/Config.h"

constexpr int TxRxCapacity = 204800;
constexpr int ProbeTries = 2;
constexpr int ProbeWindowMs = 2000;
constexpr int SilenceMs = 5;  // a reply that is no complete frame ends after this much quiet
constexpr int DrainChunk = 100;
constexpr int ErrPortUnavailable = 110;
constexpr int ErrNoTerminal = 1538;
// A null output buffer: the export answers this before it touches the terminal.
constexpr int ErrNoBuffer = -1;
constexpr int DefaultTimeoutSeconds = 30;

constexpr uint8_t STX = 0x02;
constexpr uint8_t ETX = 0x03;
constexpr uint8_t ACK = 0x06;
constexpr uint8_t SO = 0x0E;
constexpr uint8_t SI = 0x0F;
constexpr uint8_t CAN = 0x18;

struct DeviceContext {
    DeviceContext();
    ~DeviceContext();
    DeviceContext(const DeviceContext&) = delete;
    DeviceContext& operator=(const DeviceContext&) = delete;

    // 1 while a cancel waits to be served. Stored by PosCancel from any thread or a signal
    // handler, so it must stay lock-free.
    std::atomic<uint32_t> cancelRequested;
    int32_t timeoutSeconds;  // "timeout" of varnik.json; no wait depends on it
    int32_t port;            // COM number; 0: none known
    ScriptDocument configDocument;
    ScriptDocument scriptDocument;  // what PosExec loads
    uint8_t cancelByte;
    // CANs that waits sent for cancels; an upload compares it across files to see a cancel.
    uint32_t cancelsSent;
    std::string text;  // the prompt or request being framed
    int32_t handshakeState;
    uint8_t txBuffer[TxRxCapacity];
    int32_t txLength;
    uint8_t rxBuffer[TxRxCapacity];
    int32_t rxLength;
    CComPort serial;
    int32_t operationFlag;
};

extern DeviceContext g_context;

// Finishes the library's start-up on first use. Every export calls it before anything else:
// the loader lock forbids reading files or scanning devices while the library loads.
void EnterLibrary();

void InitialiseDeviceContext();
// Releases what the context holds; runs at unload.
void TeardownDeviceContext();

// 0 if the port is usable, ErrPortUnavailable otherwise; a fresh open drains stale input.
int OpenDevice(DeviceContext& context);
void CloseDevice(DeviceContext& context);
// A wait found the device gone (an unplugged adapter): close the port, so that the call ends
// instead of spinning and the next call opens the port again.
void DropVanishedPort(DeviceContext& context);

// The frame of every export that talks to the terminal. BeginOperation clears operationFlag
// and opens the port; a non-zero result is the export's, returned at once without
// EndOperation. EndOperation closes the port and clears the flag again.
int BeginOperation(DeviceContext& context);
void EndOperation(DeviceContext& context);
