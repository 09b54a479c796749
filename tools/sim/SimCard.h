// A simulated ISO 7816-4 card behind the terminal's card slot, T=0 behaviour.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

using Bytes = std::vector<uint8_t>;

class SimCard {
public:
    virtual ~SimCard() = default;
    virtual Bytes Atr() const = 0;
    // One command APDU in, the response (data and status word) out, as a T=0 card gives it:
    // case-2/3 commands may answer 61xx, and GET RESPONSE (00 C0 00 00 Le) fetches the data.
    virtual Bytes Transmit(const Bytes& command) = 0;
    // Power cycle (a new insertion or the terminal's open of the slot): back to the state
    // after the ATR, nothing selected and no response pending.
    virtual void Reset() {}
};

struct ThaiIdCardOptions {
    bool selectAnswers61 = true;  // SELECT answers 61 0A (true) or 90 00 (false)
    Bytes atr;                    // empty: the default "TH NID" ATR
};

// The Thai national ID card with DefaultThaiIdRecord() on it. What it answers:
//   SELECT 00 A4 04 00 08 A0 00 00 00 54 48 00 01 [Le]: 61 0A or 90 00 (selectAnswers61); the
//     10 FCI bytes wait for GET RESPONSE either way. Another AID: 6A 82; other P1/P2: 6A 86.
//   READ 80 B0 hi lo 02 00 len [Le]: 61 len (61 00 for 256), the data waits for GET RESPONSE.
//     An offset at or past the file's end: 6B 00; a range that runs past it is cut at the end
//     (61 with the shorter count). A length of 0 or above 256: 67 00.
//   GET RESPONSE 00 C0 00 00 Le or 00 C0 00 01 Le: the waiting bytes and 90 00; an Le that is
//     not their count (P3 00 counts as 256): 6C count, and they keep waiting. Nothing waiting:
//     69 85. Other P1/P2: 6A 86.
//   Any command but GET RESPONSE drops what was waiting, as a T=0 card does.
//   Before a successful SELECT, READ answers 69 86.
//   CLA other than 00 and 80, or a known INS under the other of the two: 6E 00. Unknown INS:
//   6D 00. A command shorter than 4 bytes, or whose P3 does not match its data: 67 00.
std::unique_ptr<SimCard> MakeThaiIdCard(const ThaiIdCardOptions& options);
