// The simulated terminal end to end in memory: bytes in, handler, faults, bytes out.
#include "Crc32.h"
#include "Handlers.h"
#include "Simulator.h"
#include "TestSupport.h"
#include "ThaiIdData.h"

#include <memory>

namespace {

class FakeCard : public SimCard {
public:
    Bytes Atr() const override { return Hex("3B 02 14 50"); }
    Bytes Transmit(const Bytes& command) override {
        commands.push_back(command);
        return response;
    }
    std::vector<Bytes> commands;
    Bytes response = Hex("61 0A");
};

// One simulated terminal whose line is a byte vector.
class Terminal {
public:
    SimState state;
    FaultOptions faults;
    SessionOptions session;
    FakeCard* card = nullptr;
    int vanished = 0;

    Terminal() {
        auto fake = std::make_unique<FakeCard>();
        card = fake.get();
        state.card = std::move(fake);
    }

    void RemoveCard() {
        state.card.reset();
        card = nullptr;
    }

    // What the terminal sends back for these bytes.
    Bytes Exchange(const Bytes& in) {
        Start();
        line_.clear();
        simulator_->OnBytes(in.data(), in.size());
        return line_;
    }

    bool Holding() { return Start().Holding(); }

private:
    Simulator& Start() {
        if (!simulator_) {
            writer_ = std::make_unique<ReplyWriter>(faults, [this](const uint8_t* data, size_t length) {
                line_.insert(line_.end(), data, data + length);
                return true;
            });
            simulator_ = std::make_unique<Simulator>(state, *writer_, log_, session, [this] { ++vanished; });
        }
        return *simulator_;
    }

    Bytes line_;
    TrafficLog log_{true};
    std::unique_ptr<ReplyWriter> writer_;
    std::unique_ptr<Simulator> simulator_;
};

Bytes Le32(uint32_t value) {
    return Bytes{uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

Bytes Announcement(const std::string& name, const Bytes& content, uint32_t crc) {
    return CommandFrame(TextBytes("9W"), Concat(Concat(Le32(uint32_t(content.size())), Le32(crc)),
                                                TextBytes(name + std::string(1, '\0'))));
}

Bytes Announcement(const std::string& name, const Bytes& content) {
    return Announcement(name, content, Crc32(content.data(), content.size()));
}

const Bytes Probe = Hex("02 34 03 34");
const Bytes Version = Hex("02 3B 03 3B");
const Bytes Can = Hex("18");

TEST(Simulator, DefaultAnswers) {
    struct Case {
        const char* what;
        Bytes request;
        Bytes reply;
    } cases[] = {
        {"probe", Probe, Hex("06")},
        {"version", Version, ReplyFrame("NEW6210 SIM 1.0")},
        {"PIN entry", TextFrame("00", "pinpad.json"), ReplyFrame("1234567890ABCDEF")},
        {"PIN clear", TextFrame("00", "pinclear.json|Amount"), ReplyFrame("1234567890ABCDEF")},
        {"master key", CommandFrame(TextBytes("02"), Bytes(16, 0x11)), Hex("06")},
        {"script", TextFrame("03", "{\"format\":\"PINPAD\"}"), ReplyFrame("OK")},
        {"stripe", TextFrame("3R", "Swipe Card :"),
         ReplyFrame("4111111111111111=2512101|4111111111111111=2512|")},
        {"screen", Hex("02 36 00 03 36"), {}},
        {"slide", TextFrame(":", "x"), Hex("06")},
        {"beep", Hex("02 3C 30 03 0C"), Hex("06")},
        {"open APDU", Hex("02 38 02 03 3A"), ReplyFrame(Hex("04 3B 02 14 50"))},
        {"APDU, 61xx passes", Hex("02 38 01 05 00 84 00 00 08 03 B0"), ReplyFrame(Hex("61 0A"))},
        {"close APDU", Hex("02 38 03 03 3B"), Hex("06")},
        {"card present", Hex("02 38 04 03 3C"), Hex("06")},
        {"folder", CommandFrame(TextBytes("9S"), Concat(Bytes(8, 0), Bytes{0})), Hex("06")},
        {"unknown operation", Hex("02 7A 03 7A"), {}},
        {"wrong check byte still answered", Hex("02 3B 03 00"), ReplyFrame("NEW6210 SIM 1.0")},
    };
    for (const Case& c : cases) {
        Terminal terminal;
        EXPECT_EQ(HexColon(terminal.Exchange(c.request)), HexColon(c.reply)) << c.what;
    }
}

TEST(Simulator, ApduGoesToTheCardAsSent) {
    Terminal terminal;
    terminal.card->response = Hex("01 02 90 00");
    EXPECT_EQ(terminal.Exchange(Hex("02 38 01 05 00 C0 00 00 02 03 F9")), ReplyFrame(Hex("01 02 90 00")));
    EXPECT_EQ(terminal.Exchange(CommandFrame(Hex("38 01"), Hex("00 41 00"))), ReplyFrame(Hex("01 02 90 00")));
    ASSERT_EQ(terminal.card->commands.size(), 2u);
    EXPECT_EQ(terminal.card->commands[0], Hex("00 C0 00 00 02"));
    EXPECT_EQ(terminal.card->commands[1], Hex("41 00"));  // LL 0: the text with its NUL
}

TEST(Simulator, NoCardInTheSlot) {
    Terminal terminal;
    terminal.RemoveCard();
    EXPECT_EQ(terminal.Exchange(Hex("02 38 02 03 3A")), Hex("01"));
    EXPECT_EQ(terminal.Exchange(Hex("02 38 04 03 3C")), Hex("15"));
    EXPECT_EQ(terminal.Exchange(Hex("02 38 01 01 00 03 38")), Hex("18"));
    EXPECT_EQ(terminal.Exchange(TextFrame("1", "{}")), Bytes{});  // waits for a card
    EXPECT_EQ(terminal.Exchange(Can), Can);
}

TEST(Simulator, WaitsEndOnlyByCanAndAreAnsweredWithCan) {
    Terminal terminal;
    terminal.state.config.pinWait = true;
    EXPECT_EQ(terminal.Exchange(TextFrame("00", "pinpad.json")), Bytes{});
    EXPECT_TRUE(terminal.Holding());
    EXPECT_EQ(terminal.Exchange(Can), Can);
    EXPECT_FALSE(terminal.Holding());
    EXPECT_EQ(terminal.Exchange(Can), Bytes{});  // nothing held any more
}

TEST(Simulator, AnswerCanAnswersALooseCan) {
    Terminal terminal;
    terminal.session.answerCan = true;
    EXPECT_EQ(terminal.Exchange(Can), Can);
}

TEST(Simulator, HoldOptionTurnsAnyOperationIntoAWait) {
    Terminal terminal;
    terminal.faults.holds.insert(OpCode::One(';'));
    EXPECT_EQ(terminal.Exchange(Version), Bytes{});
    EXPECT_EQ(terminal.Exchange(Probe), Hex("06"));  // a new frame abandons the wait
    EXPECT_EQ(terminal.Exchange(Can), Bytes{});
}

TEST(Simulator, UploadWithGoodCrcIsStoredAndListed) {
    Terminal terminal;
    Bytes content = Hex("02 18 03 41 03 00");  // looks like frames and CAN: must stay content
    EXPECT_EQ(terminal.Exchange(Announcement("new.bin", content)), Hex("06"));
    EXPECT_EQ(terminal.Exchange(content), ReplyFrame("OK"));
    EXPECT_EQ(terminal.state.files["new.bin"], content);
    Bytes list = terminal.Exchange(Hex("02 39 4C 03 75"));
    EXPECT_NE(std::string(list.begin(), list.end()).find("new.bin 6\n"), std::string::npos);
}

TEST(Simulator, UploadWithBadCrcIsRefused) {
    Terminal terminal;
    Bytes content = TextBytes("hello");
    EXPECT_EQ(terminal.Exchange(Announcement("h.txt", content, 0x12345678)), Hex("06"));
    EXPECT_EQ(terminal.Exchange(content), Can);
    EXPECT_EQ(terminal.state.files.count("h.txt"), 0u);
}

TEST(Simulator, UploadSplitAcrossArrivals) {
    Terminal terminal;
    Bytes content(5000, 0x5A);
    terminal.Exchange(Announcement("big", content));
    EXPECT_EQ(terminal.Exchange(Bytes(content.begin(), content.begin() + 1234)), Bytes{});
    EXPECT_EQ(terminal.Exchange(Bytes(content.begin() + 1234, content.end())), ReplyFrame("OK"));
}

TEST(Simulator, DeclinedUploadTakesNoStream) {
    for (bool byReplyOption : {false, true}) {
        Terminal terminal;
        if (byReplyOption) {
            terminal.faults.replies[OpCode::Two('9', 'W')].push_back(Can);
        } else {
            terminal.state.config.declineUpload = true;
        }
        EXPECT_EQ(terminal.Exchange(Announcement("x", TextBytes("abc"))), Can);
        EXPECT_EQ(terminal.Exchange(Version), ReplyFrame("NEW6210 SIM 1.0")) << byReplyOption;
    }
}

TEST(Simulator, DeleteRemovesAFile) {
    Terminal terminal;
    terminal.state.files["old.json"] = TextBytes("{}");
    EXPECT_EQ(terminal.Exchange(Concat(Hex("02 39 44 03 7D"), TextBytes(std::string("old.json") + '\0'))),
              Hex("06"));
    EXPECT_EQ(terminal.state.files.count("old.json"), 0u);
}

TEST(Simulator, ThaiIdTextAndBinaryForms) {
    const ThaiIdRecord& record = DefaultThaiIdRecord();
    std::string text = ThaiIdTextRecord(record);
    Bytes block = Concat(TextBytes(text), record.photo);
    for (uint8_t mode : {0, 1, 2, 3, 4, 6}) {
        Terminal terminal;
        Bytes request = CommandFrame(Hex("32 00"), Concat({mode}, TextBytes(std::string("Insert Card :") + '\0')));
        Bytes expected = (mode & 3) < 2 ? ReplyFrame(text) : ReplyFrame(Concat(Le32(uint32_t(block.size())), block));
        EXPECT_EQ(terminal.Exchange(request), expected) << int(mode);
    }
}

TEST(Simulator, EmvAnswersEachRequestedTag) {
    Terminal terminal;
    terminal.state.config.emvName = "DOE/JANE \"J\"";
    std::string request = R"({"EMVTAG":[{"tag":"NAME-1","cmd":"5F20","type":"A"},{"tag":"X","cmd":"9999","type":"B"}]})";
    EXPECT_EQ(terminal.Exchange(TextFrame("1", request)),
              ReplyFrame(R"({"EMVTAG":[{"tag":"NAME-1","cmd":"5F20","value":"DOE/JANE \"J\""},)"
                         R"({"tag":"X","cmd":"9999","value":""}]})"));
}

TEST(Simulator, PortVanishesAtTheNthFrame) {
    Terminal terminal;
    terminal.session.vanishAfter = 2;
    EXPECT_EQ(terminal.Exchange(Probe), Hex("06"));
    EXPECT_EQ(terminal.Exchange(Concat(Version, Probe)), Bytes{});
    EXPECT_EQ(terminal.vanished, 1);
}

TEST(Simulator, FaultsOnTheWayOut) {
    Terminal silent;
    silent.faults.silent = true;
    EXPECT_EQ(silent.Exchange(Probe), Bytes{});

    Terminal garbage;
    garbage.faults.probeGarbage = Hex("15 41");
    EXPECT_EQ(garbage.Exchange(Probe), Hex("15 41 06"));
    EXPECT_EQ(garbage.Exchange(Hex("02 3C 30 03 0C")), Hex("06"));  // only the probe's ACK

    Terminal siso;
    siso.faults.siso = true;
    siso.faults.badCheck = true;
    EXPECT_EQ(siso.Exchange(TextFrame("03", "x")), Hex("0F 4F 4B 0E FB"));  // 4F^4B = 04, ^FF

    Terminal oversize;
    oversize.faults.oversize = 6;
    EXPECT_EQ(oversize.Exchange(TextFrame("03", "x")), ReplyFrame("OKXXXX"));
}

TEST(Simulator, ScriptedRepliesAreUsedInTurnAndTheLastSticks) {
    Terminal terminal;
    auto& queue = terminal.faults.replies[OpCode::One(';')];
    queue = {Hex("02 41 03 40"), Hex(""), Hex("15")};
    EXPECT_EQ(terminal.Exchange(Version), Hex("02 41 03 40"));
    EXPECT_EQ(terminal.Exchange(Version), Bytes{});
    EXPECT_EQ(terminal.Exchange(Version), Hex("15"));
    EXPECT_EQ(terminal.Exchange(Version), Hex("15"));
    EXPECT_EQ(terminal.Exchange(Probe), Hex("06"));
}

}  // namespace
