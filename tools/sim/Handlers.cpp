#include "Handlers.h"

#include "Crc32.h"
#include "ThaiIdData.h"

#include <cstdio>
#include <fstream>

namespace {

uint32_t LittleEndian32(const Bytes& bytes, size_t at) {
    return uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 |
           uint32_t(bytes[at + 3]) << 24;
}

void AppendLittleEndian32(Bytes& bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

std::string JsonEscaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

// ---- session and screen ------------------------------------------------------------------

Reply Probe(const Request&, SimState&) {
    return Reply::Ack();
}

Reply Version(const Request&, SimState& state) {
    return Reply::FrameText(state.config.versionText);
}

Reply Screen(const Request&, SimState&) {
    return Reply::Nothing();  // the host awaits no answer
}

Reply Slide(const Request&, SimState&) {
    return Reply::Ack();
}

Reply Beep(const Request&, SimState&) {
    return Reply::Ack();
}

// ---- keypad ------------------------------------------------------------------------------

// "pinpad.json" or "pinclear.json|<prompt>": the keypad screen runs until the customer is done.
Reply PinEntry(const Request&, SimState& state) {
    if (state.config.pinWait) {
        return Reply::Hold();
    }
    return Reply::FrameText(state.config.pinReply);
}

Reply LoadMasterKey(const Request& request, SimState& state) {
    state.lastMasterKey = request.fixed;
    if (state.config.masterKeyFrame) {
        return Reply::Frame(state.config.masterKeyReply);
    }
    return Reply::Ack();
}

Reply RunScript(const Request&, SimState& state) {
    return Reply::FrameText(state.config.scriptReply);
}

// ---- card readers ------------------------------------------------------------------------

// {"EMVTAG":[{"tag":"NAME-1","cmd":"5F20","type":"A"}, ...]}: each item comes back with its
// "value" in place of "type".
Reply EmvRead(const Request& request, SimState& state) {
    if (!state.card) {
        return Reply::Hold();  // "insert card" until the host gives up
    }
    std::vector<std::string> tags = StringMembers(request.text, "tag");
    std::vector<std::string> cmds = StringMembers(request.text, "cmd");
    std::string answer = "{\"EMVTAG\":[";
    for (size_t i = 0; i < tags.size() && i < cmds.size(); ++i) {
        answer += i ? "," : "";
        answer += "{\"tag\":\"" + JsonEscaped(tags[i]) + "\",\"cmd\":\"" + JsonEscaped(cmds[i]) +
                  "\",\"value\":\"" + JsonEscaped(EmvTagValue(cmds[i], state.config)) + "\"}";
    }
    answer += "]}";
    return Reply::FrameText(answer);
}

// Mode byte, "Insert Card :". Low two bits 0/1: the record as TIS-620 text; 2/3: a 32-bit
// little-endian length, then the text and the photo.
Reply ThaiIdRead(const Request& request, SimState& state) {
    if (state.config.thaiIdWait || !state.card) {
        return Reply::Hold();
    }
    const ThaiIdRecord& record = DefaultThaiIdRecord();
    std::string text = ThaiIdTextRecord(record);
    uint8_t mode = request.fixed.empty() ? 0 : request.fixed[0];
    if ((mode & 3) < 2) {
        return Reply::FrameText(text);
    }
    Bytes block(text.begin(), text.end());
    block.insert(block.end(), record.photo.begin(), record.photo.end());
    Bytes payload;
    AppendLittleEndian32(payload, static_cast<uint32_t>(block.size()));
    payload.insert(payload.end(), block.begin(), block.end());
    return Reply::Frame(payload);
}

// "Swipe Card :": fields "track1|track2|track3".
Reply StripeRead(const Request&, SimState& state) {
    if (state.config.swipeWait) {
        return Reply::Hold();
    }
    if (state.config.swipeFail) {
        return Reply::FrameText(SwipeErrorText);
    }
    return Reply::FrameText(state.config.stripe);
}

// LL and the command (LL 0: a text, sent with its NUL). The card's answer goes back as it is:
// 61xx included, since the host does the T=0 follow-up itself.
Reply CardTransmit(const Request& request, SimState& state) {
    if (!state.card) {
        return Reply::Cancel();
    }
    Bytes command = request.fixed;
    if (request.lengthByte == 0) {
        command.assign(request.text.begin(), request.text.end());
        command.push_back(0);
    }
    return Reply::Frame(state.card->Transmit(command));
}

Reply CardOpen(const Request&, SimState& state) {
    if (!state.card) {
        return Reply::Single(0x01);  // any byte but 0 means "no card"
    }
    Bytes atr = state.card->Atr();
    Bytes payload{static_cast<uint8_t>(atr.size())};
    payload.insert(payload.end(), atr.begin(), atr.end());
    return Reply::Frame(payload);
}

Reply CardClose(const Request&, SimState&) {
    return Reply::Ack();
}

Reply CardPresence(const Request&, SimState& state) {
    return Reply::Single(state.card ? ctl::ACK : ctl::NAK);
}

// ---- file store --------------------------------------------------------------------------

Reply ListFiles(const Request&, SimState& state) {
    std::string list;
    for (const auto& file : state.files) {
        list += file.first + " " + std::to_string(file.second.size()) + "\n";
    }
    return Reply::FrameText(list);
}

Reply DeleteFile(const Request& request, SimState& state) {
    state.files.erase(request.text);
    return Reply::Ack();
}

// Count, a zero word, the host paths joined by '|'. The files themselves follow one by one.
Reply AnnounceFolder(const Request&, SimState& state) {
    state.announcedSinceFolder = 0;
    return Reply::Ack();
}

// Size, CRC-32, name; then `size` raw bytes unless the terminal declines.
Reply AnnounceFile(const Request& request, SimState& state) {
    state.upload.name = request.text;
    state.upload.size = LittleEndian32(request.fixed, 0);
    state.upload.crc = LittleEndian32(request.fixed, 4);
    state.upload.position = ++state.announcedSinceFolder;
    if (state.config.declineUpload || state.config.decline.Picks(request.text, state.upload.position)) {
        RecordUpload(state, "declined", nullptr);
        return Reply::Cancel();
    }
    return Reply::Ack().ThenStream(state.upload.size);
}

std::string SafeFileName(const std::string& name) {
    std::string safe = name;
    for (char& c : safe) {
        if (c == '/' || c == '\\') c = '_';
    }
    return safe.empty() || safe == "." || safe == ".." ? "_" + safe : safe;
}

void SaveCopy(const std::string& folder, const std::string& name, const Bytes& content) {
    std::string path = folder + "/" + SafeFileName(name);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()), std::streamsize(content.size()));
    if (!file) {
        std::fprintf(stderr, "new6210-sim: cannot write the uploaded file to %s\n", path.c_str());
    }
}

}  // namespace

void RecordUpload(SimState& state, const char* outcome, const Bytes* received) {
    if (state.uploadRecord == nullptr) {
        return;
    }
    const PendingUpload& upload = state.upload;
    std::fprintf(state.uploadRecord, "%s\t%s\t%u\t%08X\t", outcome, upload.name.c_str(),
                 unsigned(upload.size), unsigned(upload.crc));
    if (received != nullptr) {
        std::fprintf(state.uploadRecord, "%zu\t%08X\n", received->size(),
                     unsigned(Crc32(received->data(), received->size())));
    } else {
        std::fprintf(state.uploadRecord, "-\t-\n");
    }
    std::fflush(state.uploadRecord);
}

Reply FinishUpload(const Bytes& content, SimState& state) {
    const PendingUpload& upload = state.upload;
    if (content.size() != upload.size) {
        RecordUpload(state, "short", &content);
        return Reply::Cancel();
    }
    if (Crc32(content.data(), content.size()) != upload.crc) {
        RecordUpload(state, "mismatch", &content);
        return Reply::Cancel();
    }
    if (state.config.failClosing.Picks(upload.name, upload.position)) {
        RecordUpload(state, "failed", &content);
        return Reply::Cancel();
    }
    RecordUpload(state, "stored", &content);
    state.files[upload.name] = content;
    if (!state.config.uploadFolder.empty()) {
        SaveCopy(state.config.uploadFolder, state.upload.name, content);
    }
    return Reply::FrameText("OK");
}

std::string EmvTagValue(const std::string& tag, const TerminalConfig& config) {
    if (tag == "5F20") return config.emvName;           // cardholder name
    if (tag == "5A") return "4111111111111111";         // application PAN
    if (tag == "5F24") return "251231";                 // expiry date YYMMDD
    return "";
}

std::vector<std::string> StringMembers(const std::string& json, const std::string& key) {
    std::vector<std::string> values;
    const std::string quotedKey = "\"" + key + "\"";
    size_t at = 0;
    while ((at = json.find(quotedKey, at)) != std::string::npos) {
        at += quotedKey.size();
        size_t colon = json.find_first_not_of(" \t\r\n", at);
        if (colon == std::string::npos || json[colon] != ':') continue;
        size_t open = json.find_first_not_of(" \t\r\n", colon + 1);
        if (open == std::string::npos || json[open] != '"') continue;
        std::string value;
        size_t i = open + 1;
        for (; i < json.size() && json[i] != '"'; ++i) {
            if (json[i] == '\\' && i + 1 < json.size()) ++i;
            value += json[i];
        }
        values.push_back(value);
        at = i;
    }
    return values;
}

const std::vector<Operation>& OperationTable() {
    using S = PayloadShape;
    static const std::vector<Operation> table = {
        {OpCode::Two('0', '0'), S::Text, 0, "PIN entry", PinEntry},
        {OpCode::Two('0', '2'), S::Fixed, 16, "load master key", LoadMasterKey},
        {OpCode::Two('0', '3'), S::Text, 0, "run script", RunScript},
        {OpCode::One('1'), S::Text, 0, "EMV read", EmvRead},
        {OpCode::Two(0x32, 0x00), S::FixedThenText, 1, "Thai ID read", ThaiIdRead},
        {OpCode::Two('3', 'R'), S::Text, 0, "stripe read", StripeRead},
        {OpCode::One('4'), S::None, 0, "probe", Probe},
        {OpCode::One('6'), S::Text, 0, "screen", Screen},
        {OpCode::Two(0x38, 0x01), S::LengthPrefixed, 0, "card APDU", CardTransmit},
        {OpCode::Two(0x38, 0x02), S::None, 0, "open APDU", CardOpen},
        {OpCode::Two(0x38, 0x03), S::None, 0, "close APDU", CardClose},
        {OpCode::Two(0x38, 0x04), S::None, 0, "card present?", CardPresence},
        {OpCode::Two('9', 'D'), S::NameAfterCheck, 0, "delete file", DeleteFile},
        {OpCode::Two('9', 'L'), S::None, 0, "list files", ListFiles},
        {OpCode::Two('9', 'S'), S::FixedThenText, 8, "announce folder", AnnounceFolder},
        {OpCode::Two('9', 'W'), S::FixedThenText, 8, "announce file", AnnounceFile},
        {OpCode::One(':'), S::Text, 0, "slide", Slide},
        {OpCode::One(';'), S::None, 0, "version", Version},
        {OpCode::Two('<', '0'), S::None, 0, "beep", Beep},
    };
    return table;
}
