// A PC/SC library for the unit tests: one reader with a Thai ID card that answers as a T=0
// card does (61 xx, then GET RESPONSE), and a record of every call.
#pragma once

#include "PcscApi.h"
#include "CardText.h"

#include <string>
#include <vector>

struct FakePcsc {
    // The reader list as it comes back; the library's own answers a size query with 21 and
    // a list with the name's length, 19.
    std::string readerList = std::string("NEW6210 Reader Card") + '\0' + '\0';
    PcscDword sizeAnswer = 21;
    PcscDword listAnswer = 19;
    PcscLong connectResult = 0;
    ByteString atr = {0x3B, 0x68, 0x00, 0x00, 0x54, 0x48, 0x20, 0x4E, 0x49, 0x44, 0x20, 0x36};
    ByteString file;                 // the card's file, see ThaiIdCardImage
    bool selectRefused = false;      // SELECT answers 6A 82
    unsigned refusedOffset = ~0u;    // a READ at this offset answers 6B 00
    std::vector<ByteString> responses;   // answered in turn before the card's own, if any

    // What the host did.
    std::vector<ByteString> commands;
    int sizeQueries = 0, listCalls = 0, disconnects = 0, releases = 0;
    std::string connectedReader;

    // The card's state.
    bool selected = false;
    ByteString pending;
};

extern FakePcsc g_pcsc;

// The functions of the fake library.
PcscApi FakePcscApi();

// The photo of the fake card: a small JPEG-like stream FF D8 ... FF D9, zero-filled to 5118.
ByteString FakePhoto();
// The record of the fake card in its file layout, text fields blank-padded, TIS-620.
ByteString ThaiIdCardImage();
