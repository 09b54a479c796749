// The simulated Thai national ID card: one application, one transparent file, T=0 answers.
#include <algorithm>

#include "SimCard.h"
#include "ThaiIdData.h"

namespace {

// 3B, TB1 and TC1 present, 8 historical bytes "TH NID 6".
const Bytes DefaultAtr = {0x3B, 0x68, 0x00, 0x00, 0x54, 0x48, 0x20, 0x4E, 0x49, 0x44, 0x20, 0x36};
const Bytes ThaiIdAid = {0xA0, 0x00, 0x00, 0x00, 0x54, 0x48, 0x00, 0x01};
// FCI template with the application family's DF name; 10 bytes, as SELECT's 61 0A announces.
const Bytes SelectFci = {0x6F, 0x08, 0x84, 0x06, 0xA0, 0x00, 0x00, 0x00, 0x54, 0x48};

constexpr uint8_t ClaIso = 0x00;
constexpr uint8_t ClaProprietary = 0x80;
constexpr uint8_t InsSelect = 0xA4;
constexpr uint8_t InsReadBinary = 0xB0;
constexpr uint8_t InsGetResponse = 0xC0;
constexpr size_t MaxResponse = 256;  // what one T=0 GET RESPONSE can carry (P3 00)

Bytes Status(uint8_t sw1, uint8_t sw2) { return {sw1, sw2}; }

// The count as T=0 puts it in one byte: 256 is 00.
uint8_t CountByte(size_t count) { return static_cast<uint8_t>(count & 0xFF); }

class ThaiIdCard : public SimCard {
public:
    ThaiIdCard(const ThaiIdCardOptions& options, const ThaiIdRecord& record)
        : m_options(options), m_file(ThaiIdFileImage(record)) {
        if (m_options.atr.empty()) m_options.atr = DefaultAtr;
    }

    Bytes Atr() const override { return m_options.atr; }

    Bytes Transmit(const Bytes& command) override {
        if (command.size() < 4) {
            m_pending.reset();
            return Status(0x67, 0x00);
        }
        const uint8_t cla = command[0];
        const uint8_t ins = command[1];
        // Only a GET RESPONSE may pick up what the previous command left.
        if (ins != InsGetResponse || cla != ClaIso) m_pending.reset();
        if (cla != ClaIso && cla != ClaProprietary) return Status(0x6E, 0x00);
        switch (ins) {
        case InsSelect:
            return cla == ClaIso ? Select(command) : Status(0x6E, 0x00);
        case InsReadBinary:
            return cla == ClaProprietary ? Read(command) : Status(0x6E, 0x00);
        case InsGetResponse:
            return cla == ClaIso ? GetResponse(command) : Status(0x6E, 0x00);
        default:
            return Status(0x6D, 0x00);
        }
    }

    void Reset() override {
        m_selected = false;
        m_pending.reset();
    }

private:
    // Response bytes kept for the next GET RESPONSE.
    struct Pending {
        bool present = false;
        Bytes data;
        void reset() {
            present = false;
            data.clear();
        }
    };

    // The data field of a command with P3 = Lc, which may carry a trailing Le byte (case 4
    // as some clients send it). Empty with ok false if the length doesn't match P3.
    static bool CommandData(const Bytes& command, Bytes& data) {
        const size_t lc = command.size() > 4 ? command[4] : 0;
        const size_t body = command.size() > 5 ? command.size() - 5 : 0;
        if (lc == 0 || (body != lc && body != lc + 1)) return false;
        data.assign(command.begin() + 5, command.begin() + 5 + static_cast<long>(lc));
        return true;
    }

    Bytes Select(const Bytes& command) {
        Bytes aid;
        if (!CommandData(command, aid)) return Status(0x67, 0x00);
        if (command[2] != 0x04 || command[3] != 0x00) return Status(0x6A, 0x86);
        if (aid != ThaiIdAid) return Status(0x6A, 0x82);
        m_selected = true;
        m_pending.present = true;
        m_pending.data = SelectFci;
        return m_options.selectAnswers61 ? Status(0x61, CountByte(SelectFci.size()))
                                         : Status(0x90, 0x00);
    }

    Bytes Read(const Bytes& command) {
        Bytes lengthField;
        if (!CommandData(command, lengthField) || lengthField.size() != 2) {
            return Status(0x67, 0x00);
        }
        if (!m_selected) return Status(0x69, 0x86);
        const size_t offset = static_cast<size_t>(command[2]) << 8 | command[3];
        const size_t length = static_cast<size_t>(lengthField[0]) << 8 | lengthField[1];
        if (length == 0 || length > MaxResponse) return Status(0x67, 0x00);
        if (offset >= m_file.size()) return Status(0x6B, 0x00);
        const size_t count = std::min(length, m_file.size() - offset);
        m_pending.present = true;
        m_pending.data.assign(m_file.begin() + static_cast<long>(offset),
                              m_file.begin() + static_cast<long>(offset + count));
        return Status(0x61, CountByte(count));
    }

    Bytes GetResponse(const Bytes& command) {
        if (command.size() > 5) return Status(0x67, 0x00);
        // P2 01 is what cards with the older ATR (3B 67 ...) are sent; take both everywhere.
        if (command[2] != 0x00 || (command[3] != 0x00 && command[3] != 0x01)) {
            return Status(0x6A, 0x86);
        }
        if (!m_pending.present) return Status(0x69, 0x85);
        const size_t le = command.size() == 5 && command[4] != 0 ? command[4] : MaxResponse;
        if (le != m_pending.data.size()) return Status(0x6C, CountByte(m_pending.data.size()));
        Bytes response = std::move(m_pending.data);
        m_pending.reset();
        response.push_back(0x90);
        response.push_back(0x00);
        return response;
    }

    ThaiIdCardOptions m_options;
    Bytes m_file;
    bool m_selected = false;
    Pending m_pending;
};

}  // namespace

std::unique_ptr<SimCard> MakeThaiIdCard(const ThaiIdCardOptions& options) {
    return std::make_unique<ThaiIdCard>(options, DefaultThaiIdRecord());
}
