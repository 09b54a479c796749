// The terminal's frame parser: every payload shape, in any split of the arrival.
#include "FrameParser.h"
#include "Handlers.h"
#include "Hex.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

Bytes Wire(const std::string& hex) {
    return Hex(hex);
}

Bytes Text(const std::string& text) {
    return TextBytes(text);
}

Bytes Frame(const Bytes& code, const Bytes& payload) {
    return CommandFrame(code, payload);
}

struct Collector {
    std::vector<ParserEvent> events;
    FrameParser::Sink Sink() {
        return [this](const ParserEvent& event) { events.push_back(event); };
    }
};

std::vector<ParserEvent> ParseInPieces(const Bytes& wire, const std::vector<size_t>& cuts) {
    FrameParser parser(OperationTable());
    Collector collector;
    size_t from = 0;
    for (size_t cut : cuts) {
        parser.Feed(Bytes(wire.begin() + from, wire.begin() + cut), collector.Sink());
        from = cut;
    }
    parser.Feed(Bytes(wire.begin() + from, wire.end()), collector.Sink());
    EXPECT_FALSE(parser.Busy());
    return collector.events;
}

struct ShapeCase {
    const char* what;
    Bytes wire;
    std::string code;   // hex
    std::string fixed;  // hex
    std::string text;
    bool hasText;
};

std::vector<ShapeCase> ShapeCases() {
    Bytes key = Wire("00 01 02 03 03 02 18 00 FF 10 11 12 13 14 15 16");  // ETX, STX, CAN inside
    Bytes longApdu(300, 0xA5);
    Bytes longApduPayload = Concat({0x2C}, longApdu);  // only the low 8 bits of 300
    return {
        {"probe", Wire("02 34 03 34"), "34", "", "", false},
        {"version", Wire("02 3B 03 3B"), "3B", "", "", false},
        {"beep", Wire("02 3C 30 03 0C"), "3C30", "", "", false},
        {"PIN entry text", Frame(Text("00"), Text(std::string("pinpad.json") + '\0')), "3030", "",
         "pinpad.json", true},
        {"screen, one NUL", Wire("02 36 00 03 36"), "36", "", "", true},
        {"script text holding ETX", Frame(Text("03"), Wire("41 03 42 00")), "3033", "", "A\x03" "B",
         true},
        {"master key, raw bytes", Frame(Text("02"), key), "3032", HexCompact(key), "", false},
        {"Thai ID mode byte and prompt", Frame(Wire("32 00"), Concat({0x02}, Text("Insert Card :" + std::string(1, '\0')))),
         "3200", "02", "Insert Card :", true},
        {"APDU with length byte", Wire("02 38 01 05 00 84 00 00 08 03 B0"), "3801", "0084000008", "",
         false},
        {"APDU with length 0: a text", Frame(Wire("38 01"), Wire("00 41 42 00")), "3801", "", "AB", true},
        {"APDU longer than 255", Frame(Wire("38 01"), longApduPayload), "3801", HexCompact(longApdu),
         "", false},
        {"file announcement", Frame(Text("9W"), Concat(Wire("03 00 00 00 78 56 34 12"), Text(std::string("a.bin") + '\0'))),
         "3957", "0300000078563412", "a.bin", true},
        {"folder announcement", Frame(Text("9S"), Concat(Wire("02 00 00 00 00 00 00 00"), Text(std::string("c:\\x|c:\\y") + '\0'))),
         "3953", "0200000000000000", "c:\\x|c:\\y", true},
        {"delete, name behind the check", Concat(Wire("02 39 44 03 7D"), Text(std::string("old.json") + '\0')),
         "3944", "", "old.json", true},
        {"delete without a name", Wire("02 39 44 03 7D 00"), "3944", "", "", true},
        {"list", Wire("02 39 4C 03 75"), "394C", "", "", false},
        {"close APDU, ETX as second code byte", Wire("02 38 03 03 3B"), "3803", "", "", false},
    };
}

void ExpectShape(const ShapeCase& c, const std::vector<ParserEvent>& events, const std::string& how) {
    ASSERT_EQ(events.size(), 1u) << c.what << how;
    const ParserEvent& event = events[0];
    ASSERT_EQ(event.kind, ParserEvent::Kind::Frame) << c.what << how;
    const Request& request = event.request;
    ASSERT_NE(request.operation, nullptr) << c.what << how;
    EXPECT_EQ(request.code.Hex(), c.code) << c.what << how;
    EXPECT_EQ(HexCompact(request.fixed), c.fixed) << c.what << how;
    EXPECT_EQ(request.text, c.text) << c.what << how;
    EXPECT_EQ(request.hasText, c.hasText) << c.what << how;
    EXPECT_TRUE(request.checkOk) << c.what << how;
}

TEST(FrameParser, EveryShapeWholeAndInEveryTwoPieceSplit) {
    for (const ShapeCase& c : ShapeCases()) {
        ExpectShape(c, ParseInPieces(c.wire, {}), " (whole)");
        for (size_t cut = 1; cut < c.wire.size(); ++cut) {
            ExpectShape(c, ParseInPieces(c.wire, {cut}), " (cut at " + std::to_string(cut) + ")");
        }
    }
}

TEST(FrameParser, EveryShapeOneByteAtATime) {
    for (const ShapeCase& c : ShapeCases()) {
        std::vector<size_t> cuts;
        for (size_t i = 1; i < c.wire.size(); ++i) cuts.push_back(i);
        ExpectShape(c, ParseInPieces(c.wire, cuts), " (byte by byte)");
    }
}

TEST(FrameParser, AllFramesInOneArrivalComeOutInOrder) {
    Bytes all;
    for (const ShapeCase& c : ShapeCases()) all = Concat(all, c.wire);
    std::vector<ParserEvent> events = ParseInPieces(all, {});
    std::vector<ShapeCase> cases = ShapeCases();
    ASSERT_EQ(events.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        ExpectShape(cases[i], {events[i]}, " (in a row)");
    }
}

TEST(FrameParser, WrongCheckByteIsReportedNotDropped) {
    std::vector<ParserEvent> events = ParseInPieces(Wire("02 3B 03 FF"), {});
    ASSERT_EQ(events.size(), 1u);
    EXPECT_FALSE(events[0].request.checkOk);
    EXPECT_EQ(events[0].request.checkByte, 0xFF);
}

TEST(FrameParser, CanOutsideAFrameIsCancelAndStrayBytesAreReported) {
    std::vector<ParserEvent> events = ParseInPieces(Wire("18 41 02 34 03 34 18"), {});
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, ParserEvent::Kind::Cancel);
    EXPECT_EQ(events[1].kind, ParserEvent::Kind::StrayBytes);
    EXPECT_EQ(events[1].stream, Bytes{0x41});
    EXPECT_EQ(events[2].kind, ParserEvent::Kind::Frame);
    EXPECT_EQ(events[3].kind, ParserEvent::Kind::Cancel);
}

TEST(FrameParser, UnknownCodeRunsToEtxAndCheck) {
    std::vector<ParserEvent> events = ParseInPieces(Wire("02 7A 41 42 03 79  02 30 39 03 09  02 34 03 34"), {});
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].request.operation, nullptr);
    EXPECT_EQ(events[0].request.code.Hex(), "7A");
    EXPECT_EQ(HexCompact(events[0].request.payload), "4142");
    EXPECT_TRUE(events[0].request.checkOk);
    EXPECT_EQ(events[1].request.operation, nullptr);  // "0" begins known codes, "09" is none
    EXPECT_EQ(events[1].request.code.Hex(), "3039");
    EXPECT_NE(events[2].request.operation, nullptr);
}

TEST(FrameParser, MissingEtxBreaksTheFrameAndTheNextStxStartsAnew) {
    std::vector<ParserEvent> events = ParseInPieces(Wire("02 3B 02 3B 03 3B"), {});
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, ParserEvent::Kind::Malformed);
    EXPECT_EQ(events[1].kind, ParserEvent::Kind::Frame);
    EXPECT_EQ(events[1].request.code.Hex(), "3B");
}

TEST(FrameParser, StreamAfterAnnouncementIsTakenRawThenFramesResume) {
    Bytes announce = Frame(Text("9W"), Concat(Wire("06 00 00 00 00 00 00 00"), Text(std::string("f") + '\0')));
    Bytes content = Wire("02 18 03 00 34 03");  // frame and CAN bytes inside are file content
    Bytes wire = Concat(Concat(announce, content), Wire("02 3B 03 3B"));
    for (size_t cut = 1; cut < wire.size(); ++cut) {
        FrameParser parser(OperationTable());
        std::vector<ParserEvent> events;
        auto sink = [&](const ParserEvent& event) {
            events.push_back(event);
            if (event.kind == ParserEvent::Kind::Frame && event.request.code.Hex() == "3957") {
                parser.ExpectStream(6);
            }
        };
        parser.Feed(Bytes(wire.begin(), wire.begin() + cut), sink);
        parser.Feed(Bytes(wire.begin() + cut, wire.end()), sink);
        ASSERT_EQ(events.size(), 3u) << "cut at " << cut;
        EXPECT_EQ(events[1].kind, ParserEvent::Kind::StreamEnd);
        EXPECT_EQ(events[1].stream, content);
        EXPECT_EQ(events[2].request.code.Hex(), "3B");
    }
}

TEST(FrameParser, AbandonDropsAPartialFrame) {
    FrameParser parser(OperationTable());
    Collector collector;
    parser.Feed(Wire("02 30 30 41 42"), collector.Sink());
    EXPECT_TRUE(parser.Busy());
    EXPECT_NE(parser.Abandon(), "");
    EXPECT_FALSE(parser.Busy());
    parser.Feed(Wire("02 3B 03 3B"), collector.Sink());
    ASSERT_EQ(collector.events.size(), 1u);
    EXPECT_EQ(collector.events[0].request.code.Hex(), "3B");
}

TEST(FrameParser, EndlessTextIsCutAtTheLimit) {
    FrameParser parser(OperationTable());
    Collector collector;
    parser.Feed(Wire("02 30 33"), collector.Sink());
    parser.Feed(Bytes(FrameParser::MaxPayload + 10, 'A'), collector.Sink());
    ASSERT_EQ(collector.events.size(), 2u);
    EXPECT_EQ(collector.events[0].kind, ParserEvent::Kind::Malformed);
    EXPECT_EQ(collector.events[1].kind, ParserEvent::Kind::StrayBytes);  // the rest, as one run
}

}  // namespace
