// The terminal's frame parser: what it makes of each stretch of the line, whole, cut in two
// anywhere, and byte by byte. The library's integration tests see only the simulator's
// answers; what the parser took a frame to be is checked here.
#include "FrameParser.h"
#include "Handlers.h"
#include "Hex.h"

#include <gtest/gtest.h>

namespace {

Bytes Wire(const std::string& hex)
{
    Bytes bytes;
    EXPECT_TRUE(ParseHex(hex, bytes)) << hex;
    return bytes;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes Text(const std::string& text)
{
    return Bytes(text.begin(), text.end()) + Bytes{0};
}

// STX code payload ETX and a check byte worked out by hand for the row.
Bytes Frame(const std::string& codeAndPayload, const Bytes& more, uint8_t check)
{
    return Wire("02 " + codeAndPayload) + more + Bytes{0x03, check};
}

// One word per event: a frame as code|fixed part|'text' ('-' for none, "?" before a code the
// terminal doesn't know, whose whole payload stands in the middle, " bad" for a wrong check).
std::string Describe(const ParserEvent& event)
{
    const Request& r = event.request;
    switch (event.kind) {
    case ParserEvent::Kind::Frame:
        return (r.operation ? "" : "?") + r.code.Hex() + "|" +
               HexCompact(r.operation ? r.fixed : r.payload) + "|" +
               (r.hasText ? "'" + r.text + "'" : "-") + (r.checkOk ? "" : " bad");
    case ParserEvent::Kind::Cancel:
        return "CAN";
    case ParserEvent::Kind::StrayBytes:
        return "stray " + HexCompact(event.stream);
    case ParserEvent::Kind::StreamEnd:
        return "stream " + HexCompact(event.stream);
    case ParserEvent::Kind::Malformed:
        return "broken " + r.code.Hex();
    }
    return "?";
}

struct Row {
    const char* what;
    Bytes wire;
    std::string events;  // Describe() of each, joined by ", "
    size_t stream = 0;   // raw bytes that follow the row's first frame, as after an accepted "9W"
};

std::vector<Row> Rows()
{
    const Bytes key = Wire("00 01 02 03 03 02 18 00 FF 10 11 12 13 14 15 16");
    const std::string long300 = HexCompact(Bytes(300, 0xA5));
    return {
        {"probe", Wire("02 34 03 34"), "34||-"},
        {"PIN entry text", Frame("30 30", Text("ab"), 0x03), "3030||'ab'"},
        {"screen, one NUL", Wire("02 36 00 03 36"), "36||''"},
        {"script text holding ETX", Frame("30 33 41 03 42 00", {}, 0x03), "3033||'A\x03" "B'"},
        {"master key, raw bytes with ETX STX CAN", Frame("30 32", key, 0xF3),
         "3032|" + HexCompact(key) + "|-"},
        {"Thai ID mode byte and prompt", Frame("32 00 02", Text("IC"), 0x3A), "3200|02|'IC'"},
        {"APDU with length byte", Wire("02 38 01 05 00 84 00 00 08 03 B0"), "3801|0084000008|-"},
        {"APDU with length 0: a text", Wire("02 38 01 00 41 42 00 03 3A"), "3801||'AB'"},
        {"APDU of 300 bytes, length byte 2C", Frame("38 01 2C", Bytes(300, 0xA5), 0x15),
         "3801|" + long300 + "|-"},
        {"file announcement", Frame("39 57 03 00 00 00 78 56 34 12", Text("a"), 0x04),
         "3957|0300000078563412|'a'"},
        {"delete, name behind the check", Wire("02 39 44 03 7D 6F 6C 64 00"), "3944||'old'"},
        {"close APDU, ETX as second code byte", Wire("02 38 03 03 3B"), "3803||-"},
        {"wrong check byte", Wire("02 3B 03 FF"), "3B||- bad"},
        {"CAN outside a frame, stray byte", Wire("18 41 02 34 03 34 18"),
         "CAN, stray 41, 34||-, CAN"},
        {"unknown codes run to ETX and check", Wire("02 7A 41 42 03 79 02 30 39 03 09 02 34 03 34"),
         "?7A|4142|-, ?3039||-, 34||-"},
        {"missing ETX: the next STX starts anew", Wire("02 3B 02 3B 03 3B"), "broken 3B, 3B||-"},
        {"upload stream, frame bytes inside taken raw",
         Frame("39 57 06 00 00 00 00 00 00 00", Text("f"), 0x0E) + Wire("02 18 03 00 34 03") +
             Wire("02 3B 03 3B"),
         "3957|0600000000000000|'f', stream 021803003403, 3B||-", 6},
    };
}

// Feeds `wire` cut before each of `cuts`; gives the events as Describe() joins them.
std::string Parse(const Bytes& wire, const std::vector<size_t>& cuts, size_t stream)
{
    FrameParser parser(OperationTable());
    std::string events;
    bool announced = false;
    auto sink = [&](const ParserEvent& event) {
        events += (events.empty() ? "" : ", ") + Describe(event);
        if (stream != 0 && !announced && event.kind == ParserEvent::Kind::Frame) {
            announced = true;
            parser.ExpectStream(stream);
        }
    };
    size_t from = 0;
    for (size_t cut : cuts) {
        parser.Feed(Bytes(wire.begin() + from, wire.begin() + cut), sink);
        from = cut;
    }
    parser.Feed(Bytes(wire.begin() + from, wire.end()), sink);
    EXPECT_FALSE(parser.Busy());
    return events;
}

TEST(FrameParser, EveryRowWholeCutInTwoAnywhereAndByteByByte)
{
    for (const Row& row : Rows()) {
        EXPECT_EQ(Parse(row.wire, {}, row.stream), row.events) << row.what;
        std::vector<size_t> every;
        for (size_t cut = 1; cut < row.wire.size(); ++cut) {
            EXPECT_EQ(Parse(row.wire, {cut}, row.stream), row.events) << row.what << ", cut " << cut;
            every.push_back(cut);
        }
        EXPECT_EQ(Parse(row.wire, every, row.stream), row.events) << row.what << ", byte by byte";
    }
}

// A frame cut off by silence is dropped with a report that counts each payload byte that
// arrived once; the parser then takes the next frame as new.
TEST(FrameParser, AbandonAndEndlessTextLeaveItReadyForTheNextFrame)
{
    FrameParser parser(OperationTable());
    std::string events;
    auto sink = [&](const ParserEvent& event) { events += Describe(event) + "; "; };
    const std::pair<const char*, const char*> dropped[] = {
        {"02 30 30 41 42", "with 2 payload bytes"},     // a text command
        {"02 30 32 01 02 03", "with 3 payload bytes"},  // fixed bytes
        {"02 38 01 00 41", "with 2 payload bytes"},     // length byte 0, then a text
    };
    for (const auto& row : dropped) {
        parser.Feed(Wire(row.first), sink);
        EXPECT_TRUE(parser.Busy()) << row.first;
        const std::string report = parser.Abandon();
        EXPECT_NE(report.find(row.second), std::string::npos) << row.first << ": " << report;
    }
    parser.Feed(Wire("02 3B 03 3B"), sink);
    parser.Feed(Wire("02 30 33"), sink);
    parser.Feed(Bytes(FrameParser::MaxPayload + 2, 'A'), sink);
    EXPECT_EQ(events, "3B||-; broken 3033; stray 41; ");
}

}  // namespace
