// The file store's upload faults and its record, which the library's tests read: which file is
// refused or failed, and what each line of FILE.files says.
#include "Hex.h"
#include "Options.h"
#include "Simulator.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

namespace {

Bytes TextBytes(const std::string& text) { return Bytes(text.begin(), text.end()); }
Bytes Hex(const std::string& hex) {
    Bytes bytes;
    EXPECT_TRUE(ParseHex(hex, bytes)) << hex;
    return bytes;
}
Bytes Concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
// STX payload ETX and the XOR of the payload; a command frame's payload begins with its code.
Bytes ReplyFrame(const Bytes& payload) {
    uint8_t check = 0;
    for (uint8_t byte : payload) check ^= byte;
    return Concat(Concat({0x02}, payload), {0x03, check});
}
Bytes ReplyFrame(const std::string& text) { return ReplyFrame(TextBytes(text)); }
Bytes CommandFrame(const Bytes& code, const Bytes& payload) { return ReplyFrame(Concat(code, payload)); }

Bytes Le32(uint32_t value) {
    return Bytes{uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

// Two contents with well-known CRC-32s.
const Bytes Digits = TextBytes("123456789");  // CBF43926
const Bytes Abc = TextBytes("abc");           // 352441C2

Bytes Announce(const std::string& name, const Bytes& content, uint32_t crc) {
    return CommandFrame(TextBytes("9W"), Concat(Concat(Le32(uint32_t(content.size())), Le32(crc)),
                                                TextBytes(name + std::string(1, '\0'))));
}
Bytes AnnounceDigits(const std::string& name) { return Announce(name, Digits, 0xCBF43926); }

const Bytes Folder =
    CommandFrame(TextBytes("9S"), Concat(Concat(Le32(2), Le32(0)), TextBytes(std::string("a|b") + '\0')));
const Bytes Ack = Hex("06");
const Bytes Can = Hex("18");
const Bytes Ok = ReplyFrame("OK");

struct Step {
    Bytes in;       // empty: the host falls silent for the resync time
    Bytes out;
};

struct Case {
    const char* what;
    std::vector<std::string> options;
    std::vector<Step> steps;
    std::string record;
};

std::string RunCase(const Case& c) {
    SimOptions options;
    std::string error;
    EXPECT_TRUE(ParseOptions(c.options, options, error)) << error;
    SimState state;
    state.config = options.terminal;
    state.uploadRecord = std::tmpfile();
    Bytes line;
    TrafficLog log(true);
    ReplyWriter writer(FaultOptions{}, [&line](const uint8_t* data, size_t length) {
        line.insert(line.end(), data, data + length);
        return true;
    });
    Simulator simulator(state, writer, log, SessionOptions{}, [] {});
    for (size_t i = 0; i < c.steps.size(); ++i) {
        line.clear();
        if (c.steps[i].in.empty()) {
            simulator.OnSilence();
        } else {
            simulator.OnBytes(c.steps[i].in.data(), c.steps[i].in.size());
        }
        EXPECT_EQ(line, c.steps[i].out) << c.what << ", step " << i + 1;
    }
    std::string record(4096, '\0');
    std::rewind(state.uploadRecord);
    record.resize(std::fread(&record[0], 1, record.size(), state.uploadRecord));
    std::fclose(state.uploadRecord);
    return record;
}

TEST(FileStore, UploadFaultsPickTheirFileAndEveryAnnouncementIsRecorded) {
    const Case cases[] = {
        {"decline by name", {"--decline-upload=b.bin"},
         {{AnnounceDigits("a.bin"), Ack}, {Digits, Ok}, {AnnounceDigits("b.bin"), Can},
          {AnnounceDigits("c.bin"), Ack}, {Digits, Ok}},
         "stored\ta.bin\t9\tCBF43926\t9\tCBF43926\n"
         "declined\tb.bin\t9\tCBF43926\t-\t-\n"
         "stored\tc.bin\t9\tCBF43926\t9\tCBF43926\n"},
        {"the Nth counts from the folder announcement", {"--decline-upload=#2"},
         {{AnnounceDigits("x"), Ack}, {Digits, Ok}, {Folder, Ack}, {AnnounceDigits("a"), Ack},
          {Digits, Ok}, {AnnounceDigits("b"), Can}},
         "stored\tx\t9\tCBF43926\t9\tCBF43926\n"
         "stored\ta\t9\tCBF43926\t9\tCBF43926\n"
         "declined\tb\t9\tCBF43926\t-\t-\n"},
        {"closing failure takes the bytes, then CAN", {"--fail-upload=#1", "--fail-upload=z"},
         {{AnnounceDigits("y"), Ack}, {Digits, Can}, {Announce("z", Abc, 0x352441C2), Ack},
          {Abc, Can}},
         "failed\ty\t9\tCBF43926\t9\tCBF43926\n"
         "failed\tz\t3\t352441C2\t3\t352441C2\n"},
        {"a CRC that differs", {},
         {{Announce("m", Abc, 0xCBF43926), Ack}, {Abc, Can}},
         "mismatch\tm\t3\tCBF43926\t3\t352441C2\n"},
        {"a stream that stops short is answered after the silence", {},
         {{AnnounceDigits("s"), Ack}, {Abc, {}}, {{}, Can}, {Hex("02 3B 03 3B"), ReplyFrame("NEW6210 SIM 1.0")}},
         "short\ts\t9\tCBF43926\t3\t352441C2\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(RunCase(c), c.record) << c.what;
    }
}

}  // namespace
