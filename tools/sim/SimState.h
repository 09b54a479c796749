// What the simulated terminal is set up to answer, and what it holds while it runs.
#pragma once

#include "Protocol.h"
#include "SimCard.h"

#include <cstdint>
#include <functional>
#include <map>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

// Which announced files an upload fault hits: by name, or by position counted from 1 since the
// last folder announcement (or since the start, for single files).
struct FileChoice {
    bool every = false;
    std::set<std::string> names;
    std::set<int> positions;

    bool Picks(const std::string& name, int position) const {
        return every || names.count(name) != 0 || positions.count(position) != 0;
    }
};

// The terminal's behaviour, as the command line sets it.
struct TerminalConfig {
    std::string versionText = "NEW6210 SIM 1.0";

    std::string pinReply = "1234567890ABCDEF";  // hex text the keypad gives back
    bool pinWait = false;                       // keypad waits for keys: only CAN ends it

    bool masterKeyFrame = false;  // answer the key load with a frame of masterKeyReply
    Bytes masterKeyReply;         // (otherwise a single ACK)

    std::string scriptReply = "OK";

    std::string emvName = "JAIDEE/SOMCHAI MR";

    std::string stripe = "4111111111111111=2512101|4111111111111111=2512|";
    bool swipeFail = false;  // a failed swipe: frame "READ ERROR"
    bool swipeWait = false;  // no card is swiped: only CAN ends the wait

    bool thaiIdWait = false;  // no card is inserted: only CAN ends the wait

    bool cardIn = true;
    Bytes atr;                   // empty: the card's own default
    bool selectAnswers61 = true;

    bool declineUpload = false;  // every announced file is refused (CAN to the announcement)
    FileChoice decline;          // only these are refused
    FileChoice failClosing;      // these are taken whole, then the closing reply is CAN
    std::string uploadFolder;    // if set, uploaded files are also written there
};

// A file announced with "9W" whose bytes are still coming.
struct PendingUpload {
    std::string name;
    uint32_t size = 0;
    uint32_t crc = 0;
    int position = 0;  // its place among the announcements, see FileChoice
};

struct SimState {
    TerminalConfig config;
    std::unique_ptr<SimCard> card;  // null: no card in the slot
    std::function<std::unique_ptr<SimCard>()> newCard;  // what an insertion puts in the slot
    std::map<std::string, Bytes> files;
    PendingUpload upload;
    int announcedSinceFolder = 0;       // "9W" frames since the last "9S"
    std::FILE* uploadRecord = nullptr;  // one line per announced file, if set
    Bytes lastMasterKey;
};

// The text a failed swipe answers with.
constexpr const char* SwipeErrorText = "READ ERROR";
