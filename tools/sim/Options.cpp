#include "Options.h"

#include "Handlers.h"
#include "Hex.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>

namespace {

enum class Argument { None, Required, Optional };

struct OptionInfo {
    const char* name;
    Argument argument;
    // Applies the value (empty for Argument::None); false with a message in error.
    std::function<bool(const std::string& value, SimOptions& options, std::string& error)> apply;
};

bool ParseNumber(const std::string& text, long min, long max, long& value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= min && value <= max;
}

bool ParseOpCode(const std::string& text, OpCode& code) {
    Bytes bytes;
    if (!ParseHex(text, bytes) || bytes.empty() || bytes.size() > 2) return false;
    code = bytes.size() == 1 ? OpCode::One(bytes[0]) : OpCode::Two(bytes[0], bytes[1]);
    for (const Operation& op : OperationTable()) {
        if (op.code == code) return true;
    }
    return false;
}

// The setters below keep the option table short: each takes the field to fill.
using Setter = std::function<bool(const std::string&, SimOptions&, std::string&)>;

Setter Flag(std::function<void(SimOptions&)> set) {
    return [set](const std::string&, SimOptions& options, std::string&) {
        set(options);
        return true;
    };
}

Setter Text(std::function<std::string&(SimOptions&)> field) {
    return [field](const std::string& value, SimOptions& options, std::string&) {
        field(options) = value;
        return true;
    };
}

Setter Milliseconds(std::function<int&(SimOptions&)> field) {
    return [field](const std::string& value, SimOptions& options, std::string& error) {
        long number = 0;
        if (!ParseNumber(value, 0, INT_MAX, number)) {
            error = "expected milliseconds (0 or more), not \"" + value + "\"";
            return false;
        }
        field(options) = static_cast<int>(number);
        return true;
    };
}

Setter HexBytes(std::function<Bytes&(SimOptions&)> field) {
    return [field](const std::string& value, SimOptions& options, std::string& error) {
        if (!ParseHex(value, field(options))) {
            error = "expected hex bytes like 15:41:42, not \"" + value + "\"";
            return false;
        }
        return true;
    };
}

bool ApplySplit(const std::string& value, SimOptions& options, std::string& error) {
    size_t colon = value.find(':');
    long bytes = 0, pause = 0;
    if (colon == std::string::npos || !ParseNumber(value.substr(0, colon), 1, INT_MAX, bytes) ||
        !ParseNumber(value.substr(colon + 1), 0, INT_MAX, pause)) {
        error = "expected N:MS (e.g. 3:50), not \"" + value + "\"";
        return false;
    }
    options.faults.splitBytes = static_cast<size_t>(bytes);
    options.faults.splitPauseMs = static_cast<int>(pause);
    return true;
}

bool ApplyReply(const std::string& value, SimOptions& options, std::string& error) {
    size_t equals = value.find('=');
    OpCode code;
    Bytes bytes;
    if (equals == std::string::npos || !ParseOpCode(value.substr(0, equals), code)) {
        error = "expected OP=HEX with OP a known operation code (e.g. 3B=02:41:03:40), not \"" +
                value + "\"";
        return false;
    }
    if (!ParseHex(value.substr(equals + 1), bytes)) {
        error = "bad hex bytes in \"" + value + "\"";
        return false;
    }
    options.faults.replies[code].push_back(bytes);
    return true;
}

bool ApplyHold(const std::string& value, SimOptions& options, std::string& error) {
    OpCode code;
    if (!ParseOpCode(value, code)) {
        error = "expected a known operation code in hex (e.g. 3352), not \"" + value + "\"";
        return false;
    }
    options.faults.holds.insert(code);
    return true;
}

bool ApplyCard(const std::string& value, SimOptions& options, std::string& error) {
    if (value != "in" && value != "out") {
        error = "expected in or out, not \"" + value + "\"";
        return false;
    }
    options.terminal.cardIn = value == "in";
    return true;
}

bool ApplyMasterKeyReply(const std::string& value, SimOptions& options, std::string& error) {
    if (!ParseHex(value, options.terminal.masterKeyReply)) {
        error = "expected hex bytes, not \"" + value + "\"";
        return false;
    }
    options.terminal.masterKeyFrame = true;
    return true;
}

bool ApplyOversize(const std::string& value, SimOptions& options, std::string& error) {
    long size = 0;
    if (!ParseNumber(value, 0, 64L << 20, size)) {
        error = "expected a byte count up to 64 MiB, not \"" + value + "\"";
        return false;
    }
    options.faults.oversize = static_cast<size_t>(size);
    return true;
}

bool ApplyThrottle(const std::string& value, SimOptions& options, std::string& error) {
    long baud = 921600;
    if (!value.empty() && !ParseNumber(value, 1, INT_MAX, baud)) {
        error = "expected a baud rate, not \"" + value + "\"";
        return false;
    }
    options.faults.throttleBaud = static_cast<unsigned>(baud);
    return true;
}

bool ApplyVanishAfter(const std::string& value, SimOptions& options, std::string& error) {
    long frames = 0;
    if (!ParseNumber(value, 1, INT_MAX, frames)) {
        error = "expected a frame count of 1 or more, not \"" + value + "\"";
        return false;
    }
    options.session.vanishAfter = static_cast<int>(frames);
    return true;
}

// NAME[:SIZE],NAME[:SIZE],...
bool ApplyFiles(const std::string& value, SimOptions& options, std::string& error) {
    options.defaultFiles = false;
    options.files.clear();
    size_t start = 0;
    while (start < value.size()) {
        size_t comma = value.find(',', start);
        std::string item = value.substr(start, comma == std::string::npos ? comma : comma - start);
        start = comma == std::string::npos ? value.size() : comma + 1;
        size_t colon = item.rfind(':');
        long size = 0;
        std::string name = item.substr(0, colon);
        if (name.empty() ||
            (colon != std::string::npos && !ParseNumber(item.substr(colon + 1), 0, 16L << 20, size))) {
            error = "expected NAME[:SIZE],... , not \"" + value + "\"";
            return false;
        }
        options.files.emplace_back(name, static_cast<size_t>(size));
    }
    return true;
}

// A file name, or #N for the Nth file announced since the last folder announcement; no value:
// every file.
bool ApplyFileChoice(const std::string& value, FileChoice& choice, std::string& error) {
    if (value.empty()) {
        choice.every = true;
        return true;
    }
    if (value[0] == '#') {
        long position = 0;
        if (!ParseNumber(value.substr(1), 1, INT_MAX, position)) {
            error = "expected #N with N 1 or more, not \"" + value + "\"";
            return false;
        }
        choice.positions.insert(static_cast<int>(position));
        return true;
    }
    choice.names.insert(value);
    return true;
}

bool ApplyDecline(const std::string& value, SimOptions& options, std::string& error) {
    if (value.empty()) {
        options.terminal.declineUpload = true;
        return true;
    }
    return ApplyFileChoice(value, options.terminal.decline, error);
}

bool ApplyFailUpload(const std::string& value, SimOptions& options, std::string& error) {
    return ApplyFileChoice(value, options.terminal.failClosing, error);
}

const std::vector<OptionInfo>& AllOptions() {
    using A = Argument;
    static const std::vector<OptionInfo> all = {
        {"link", A::Required, Text([](SimOptions& o) -> std::string& { return o.linkPath; })},
        {"record", A::Required, Text([](SimOptions& o) -> std::string& { return o.recordPath; })},
        {"record-sent", A::Required, Text([](SimOptions& o) -> std::string& { return o.sentPath; })},
        {"quiet", A::None, Flag([](SimOptions& o) { o.quiet = true; })},
        {"help", A::None, Flag([](SimOptions& o) { o.help = true; })},
        // the terminal's answers
        {"version-text", A::Required,
         Text([](SimOptions& o) -> std::string& { return o.terminal.versionText; })},
        {"pin", A::Required, Text([](SimOptions& o) -> std::string& { return o.terminal.pinReply; })},
        {"pin-wait", A::None, Flag([](SimOptions& o) { o.terminal.pinWait = true; })},
        {"mk-reply", A::Required, ApplyMasterKeyReply},
        {"script-reply", A::Required,
         Text([](SimOptions& o) -> std::string& { return o.terminal.scriptReply; })},
        {"emv-name", A::Required, Text([](SimOptions& o) -> std::string& { return o.terminal.emvName; })},
        {"stripe", A::Required, Text([](SimOptions& o) -> std::string& { return o.terminal.stripe; })},
        {"swipe-fail", A::None, Flag([](SimOptions& o) { o.terminal.swipeFail = true; })},
        {"swipe-wait", A::None, Flag([](SimOptions& o) { o.terminal.swipeWait = true; })},
        {"thaiid-wait", A::None, Flag([](SimOptions& o) { o.terminal.thaiIdWait = true; })},
        {"card", A::Required, ApplyCard},
        {"atr", A::Required, HexBytes([](SimOptions& o) -> Bytes& { return o.terminal.atr; })},
        {"select-9000", A::None, Flag([](SimOptions& o) { o.terminal.selectAnswers61 = false; })},
        {"files", A::Required, ApplyFiles},
        {"decline-upload", A::Optional, ApplyDecline},
        {"fail-upload", A::Optional, ApplyFailUpload},
        {"save-uploads", A::Required,
         Text([](SimOptions& o) -> std::string& { return o.terminal.uploadFolder; })},
        // faults
        {"silent", A::None, Flag([](SimOptions& o) { o.faults.silent = true; })},
        {"delay", A::Required, Milliseconds([](SimOptions& o) -> int& { return o.faults.delayMs; })},
        {"split", A::Required, ApplySplit},
        {"byte-pace", A::Required,
         Milliseconds([](SimOptions& o) -> int& { return o.faults.bytePaceMs; })},
        {"throttle", A::Optional, ApplyThrottle},
        {"bad-check", A::None, Flag([](SimOptions& o) { o.faults.badCheck = true; })},
        {"siso", A::None, Flag([](SimOptions& o) { o.faults.siso = true; })},
        {"oversize", A::Required, ApplyOversize},
        {"garbage", A::Required, HexBytes([](SimOptions& o) -> Bytes& { return o.faults.probeGarbage; })},
        {"reply", A::Required, ApplyReply},
        {"hold", A::Required, ApplyHold},
        {"answer-can", A::None, Flag([](SimOptions& o) { o.session.answerCan = true; })},
        {"vanish-after", A::Required, ApplyVanishAfter},
        {"resync", A::Required, Milliseconds([](SimOptions& o) -> int& { return o.session.resyncMs; })},
        {"overrun", A::Required, Milliseconds([](SimOptions& o) -> int& { return o.session.overrunMs; })},
        {"stream-give-up", A::Required,
         Milliseconds([](SimOptions& o) -> int& { return o.session.streamGiveUpMs; })},
        {"empty-upload-pause", A::Required,
         Milliseconds([](SimOptions& o) -> int& { return o.session.emptyUploadPauseMs; })},
        {"closing-reply", A::Required, HexBytes([](SimOptions& o) -> Bytes& { return o.session.closingReply; })},
    };
    return all;
}

const OptionInfo* FindOption(const std::string& name) {
    for (const OptionInfo& known : AllOptions()) {
        if (name == known.name) return &known;
    }
    return nullptr;
}

}  // namespace

bool ParseOptions(const std::vector<std::string>& args, SimOptions& options, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.compare(0, 2, "--") != 0) {
            error = "unexpected argument \"" + arg + "\"";
            return false;
        }
        size_t equals = arg.find('=');
        std::string name = arg.substr(2, equals == std::string::npos ? equals : equals - 2);
        bool inlineValue = equals != std::string::npos;
        std::string value = inlineValue ? arg.substr(equals + 1) : "";
        const OptionInfo* known = FindOption(name);
        if (known == nullptr) {
            error = "unknown option --" + name;
            return false;
        }
        if (known->argument == Argument::None && inlineValue) {
            error = "--" + name + " takes no value";
            return false;
        }
        if (known->argument == Argument::Required && !inlineValue) {
            if (i + 1 >= args.size()) {
                error = "--" + name + " needs a value";
                return false;
            }
            value = args[++i];
        }
        std::string problem;
        if (!known->apply(value, options, problem)) {
            error = "--" + name + ": " + problem;
            return false;
        }
    }
    return true;
}

std::string HelpText() {
    return R"(Usage: new6210-sim [options]

Simulates a NEW6210 payment terminal (PIN pad, stripe reader, chip-card reader) on a
pseudo-terminal, so that point-of-sale software and the Varnik library can be developed and
tested without the device. The first line on standard output is the serial device to open
(e.g. /dev/pts/7); the traffic log goes to standard error, one line per frame in and out.
Runs until SIGTERM or SIGINT (Ctrl+C). While it runs, SIGUSR1 takes the chip card out of
the slot and SIGUSR2 puts a fresh one in (kill -USR1 PID), so that removal and insertion can
be shown. Options take their value as --name VALUE or --name=VALUE.

Port and logging:
  --link PATH          make PATH a symbolic link to the simulated serial device (an old
                       file there is replaced; the link is removed at exit)
  --record FILE        write every byte received from the host to FILE, raw, as it arrives,
                       and one line per announced file to FILE.files, tab-separated:
                       OUTCOME NAME SIZE CRC RECEIVED-SIZE RECEIVED-CRC (the CRC-32s in
                       8 hex digits; "-" for what never arrived). OUTCOME is stored,
                       declined, mismatch (CRC differs), short (the host fell silent
                       before SIZE bytes, with --stream-give-up) or failed (--fail-upload)
  --record-sent FILE   write every byte sent to the host to FILE, raw (for wire-time figures)
  --quiet              no traffic log (warnings still show)

The terminal's answers:
  --version-text TEXT  answer to the version request (default "NEW6210 SIM 1.0")
  --pin HEXTEXT        what the keypad returns for a PIN entry (default 1234567890ABCDEF)
  --pin-wait           the customer never finishes: a PIN entry ends only by a cancel
  --mk-reply HEX       answer a master key load with a frame of these bytes (default: ACK)
  --script-reply TEXT  result text of a terminal script (default "OK"); a terminal that
                       cancels the script: --reply 3033=18
  --emv-name TEXT      cardholder name of the EMV read (default "JAIDEE/SOMCHAI MR")
  --stripe TEXT        the swiped tracks "track1|track2|track3"
                       (default "4111111111111111=2512101|4111111111111111=2512|")
  --swipe-fail         a bad swipe: the stripe read answers "READ ERROR"
  --swipe-wait         nobody swipes: the stripe read ends only by a cancel
  --thaiid-wait        nobody inserts the ID card: the Thai ID read ends only by a cancel
  --card in|out        whether a chip card (a Thai ID card) is in the slot (default in)
  --atr HEX            the card's ATR (default: the Thai ID card's own)
  --select-9000        the card answers SELECT with 90 00 instead of 61 0A
  --files LIST         the terminal's files at start, NAME[:SIZE],... ("" for none;
                       default pinpad.json,pinclear.json)
  --decline-upload[=WHICH]
                       refuse a file upload: CAN to its announcement, and no bytes follow.
                       WHICH is a file name, or #N for the Nth file announced since the last
                       folder announcement (e.g. #2); without it every file. Repeatable
  --fail-upload[=WHICH]
                       take the file's bytes, then answer CAN as the closing reply (the
                       terminal failed to store it); WHICH as for --decline-upload
  --save-uploads DIR   also write each uploaded file into DIR (slashes in names become _)

Faults, for testing how the host copes:
  --silent             answer nothing at all (a terminal that is off)
  --delay MS           wait MS milliseconds before every reply
  --split N:MS         send the first N bytes of each reply, pause MS, then the rest
  --byte-pace MS       send replies one byte at a time, MS apart (wins over --split)
  --throttle[=BAUD]    a line of this speed (default 921600 baud, 10 bits a byte: 92160
                       bytes/s) both ways: replies go out at its pace, and the host's bytes
                       are taken no faster, so a host that stops writing early loses bytes
  --bad-check          framed replies carry a wrong check byte
  --siso               framed replies in the second form: SI (0F) payload SO (0E) check
  --oversize N         pad the payload of framed replies with 'X' up to N bytes
  --garbage HEX        bytes sent before the ACK of the probe (e.g. 15 or 15:41:42)
  --reply OP=HEX       answer operation OP with exactly these bytes, instead of the normal
                       answer. OP is the code in hex (3B version, 3352 stripe, 3801 APDU...);
                       HEX like 02:41:03:40 or "024103 40", empty for no answer. Given several
                       times for one OP the answers are used in turn, the last one then sticks
  --hold OP            for operation OP send nothing until the host sends CAN, then CAN
  --answer-can         answer a CAN with CAN also when nothing is waiting
  --vanish-after N     the port disappears for good when the Nth frame comes in (that frame
                       gets no answer)
  --resync MS          drop a frame left incomplete for MS ms (default 2000)
  --stream-give-up MS  answer CAN when an upload's bytes stop short of the announced size for
                       MS ms (default 0: wait for the rest for ever, as a terminal does)
  --empty-upload-pause MS
                       pause MS between the ACK of an empty file's announcement and its
                       closing reply (default 0: both at once, so that a host may read them
                       in one piece, as it may from a terminal)
  --closing-reply HEX  close every upload with exactly these bytes (the file is kept or not
                       as without it), e.g. 02:18:03:1B, a frame whose payload is a CAN
  --overrun MS         when the host takes no byte of a reply for MS ms (its port is closed,
                       or it reads slowly), the rest of the reply and the bytes it has not
                       read are lost, as on a real line (default 500; 0: wait for ever)
  --help               this text

Operations (code in hex and as text) and what the terminal answers by default:
  34       "4"   probe              ACK (06)
  3B       ";"   version            frame with the version text
  3030     "00"  PIN entry          frame with the --pin text; payload "pinpad.json" or
                                    "pinclear.json|<prompt>"
  3032     "02"  load master key    ACK
  3033     "03"  run script         frame with the --script-reply text
  31       "1"   EMV read           frame {"EMVTAG":[{"tag":"NAME-1","cmd":"5F20",
                                    "value":"<name>"}]}: each requested item with its value
  3200           Thai ID read       mode&3 of 0 or 1: frame with the record as TIS-620 text;
                                    2 or 3: frame with a 4-byte little-endian length, then the
                                    text and the photo
  3352     "3R"  stripe read        frame "track1|track2|track3"
  36       "6"   screen             no answer
  3A       ":"   slide              ACK
  3C30     "<0"  beep               ACK
  3802           open APDU          frame: ATR length byte, ATR.  No card: byte 01
  3801           APDU               frame with the card's response and status word, as the
                                    card gives it (61xx included).  No card: CAN (18)
  3803           close APDU         ACK
  3804           card present?      06.  No card: 15
  394C     "9L"  list files         frame with one "name size" line per file
  3944     "9D"  delete file        ACK (the name follows the check byte)
  3953     "9S"  announce folder    ACK; the files follow one by one as "9W" (#N counts
                                    from here)
  3957     "9W"  announce file      ACK, then takes the announced number of raw bytes and
                                    answers a frame "OK"; CAN (18) if their CRC-32 differs
                                    from the announced one, or if the host falls silent
                                    for the --stream-give-up time before all came
  With no card in the slot, the EMV and Thai ID reads wait for one until cancelled.
  A CAN (18) from the host ends any wait (PIN, swipe, card, --hold) and is answered with
  CAN. Unknown operations get no answer.
)";
}
