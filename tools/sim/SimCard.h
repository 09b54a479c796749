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
};

struct ThaiIdCardOptions {
    bool selectAnswers61 = true;  // SELECT answers 61 0A (true) or 90 00 (false)
    Bytes atr;                    // empty: the default "TH NID" ATR
};

std::unique_ptr<SimCard> MakeThaiIdCard(const ThaiIdCardOptions& options);
