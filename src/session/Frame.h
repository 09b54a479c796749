// The terminal's frame protocol: STX, operation code, payload, ETX, check byte (XOR of code
// and payload). Replies come back as such a frame, as SI payload SO check, or as one byte.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "session/DeviceContext.h"

constexpr int ReadChunk = 10000;

// The card slot's operation: 0x38, then what to do with the card.
constexpr uint8_t OpCardChannel = 0x38;
constexpr uint8_t OpCardTransmit = 0x01;  // length byte, APDU
constexpr uint8_t OpCardOpen = 0x02;      // answer: ATR length byte and ATR, or a status byte
constexpr uint8_t OpCardClose = 0x03;
constexpr uint8_t OpCardPresence = 0x04;  // answer: 0x06 while a card is in

// Frame building in g_context.txBuffer, with txLength as the running index. Nothing is ever
// written past the buffer: a frame that would not fit is built no further, and SendFrame
// sends none of it and gives 0, as a write that sent nothing.
void BeginFrame(DeviceContext& context, std::initializer_list<uint8_t> operation);
void AppendBytes(DeviceContext& context, const void* data, int count);
void AppendText(DeviceContext& context, const char* text);  // with its NUL
// Appends ETX and the check byte over everything behind STX.
void CloseFrame(DeviceContext& context);
int SendFrame(DeviceContext& context);  // serial.Write of the frame

// Polls until a reply is complete; no time limit. Returns the raw byte count in rxBuffer.
int WaitReply(DeviceContext& context);
// WaitReply, then strips the envelope in place and copies payload and NUL to `out`.
// Always returns 0; the outcome shows in rxLength, rxBuffer and `out`.
int ReadReply(DeviceContext& context, uint8_t* out, uint32_t* outLength);
// ReadReply's second half, for `n` raw bytes that WaitReply left in rxBuffer.
void TakeReply(DeviceContext& context, int n, uint8_t* out, uint32_t* outLength);
// SendFrame; if it went out, ReadReply. 0, or the write's result if that was not above 0.
int ExchangeFrame(DeviceContext& context, uint8_t* out, uint32_t* outLength);
