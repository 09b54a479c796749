// What the simulator says about a frame it drops: the bytes that arrived, counted once.
#include "FrameParser.h"
#include "Handlers.h"
#include "Hex.h"

#include <gtest/gtest.h>

namespace {

TEST(ParserReport, ADroppedFrameCountsEachPayloadByteOnce) {
    const struct {
        const char* wire;
        const char* report;
    } rows[] = {
        {"02 30 30 41 42", "with 2 payload bytes"},     // a text command
        {"02 30 32 01 02 03", "with 3 payload bytes"},  // fixed bytes
        {"02 38 01 00 41", "with 2 payload bytes"},     // length byte 0, then a text
    };
    for (const auto& row : rows) {
        FrameParser parser(OperationTable());
        Bytes wire;
        ASSERT_TRUE(ParseHex(row.wire, wire));
        parser.Feed(wire, [](const ParserEvent&) {});
        const std::string report = parser.Abandon();
        EXPECT_NE(report.find(row.report), std::string::npos) << row.wire << ": " << report;
    }
}

}  // namespace
