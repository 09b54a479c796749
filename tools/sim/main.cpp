// new6210-sim: a NEW6210 payment terminal on a pseudo-terminal. See --help.
#include "Options.h"
#include "Pty.h"
#include "Signals.h"
#include "Simulator.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// The screens that the PIN entry runs; a real terminal keeps them in its file store.
const std::string PinpadScreen = R"({"screen":"pinpad","keys":"0123456789"})";
const std::string PinclearScreen = R"({"screen":"pinclear","keys":"0123456789ABCDEF"})";

std::map<std::string, Bytes> StartingFiles(const SimOptions& options) {
    std::map<std::string, Bytes> files;
    if (options.defaultFiles) {
        files["pinpad.json"] = Bytes(PinpadScreen.begin(), PinpadScreen.end());
        files["pinclear.json"] = Bytes(PinclearScreen.begin(), PinclearScreen.end());
    }
    for (const auto& file : options.files) {
        files[file.first] = Bytes(file.second, 0);
    }
    return files;
}

void SetUp(const SimOptions& options, SimState& state) {
    state.config = options.terminal;
    state.files = StartingFiles(options);
    ThaiIdCardOptions card;
    card.selectAnswers61 = options.terminal.selectAnswers61;
    card.atr = options.terminal.atr;
    state.newCard = [card]() { return MakeThaiIdCard(card); };
    if (options.terminal.cardIn) {
        state.card = state.newCard();
    }
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "new6210-sim: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    SimOptions options;
    std::string error;
    if (!ParseOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        std::fprintf(stderr, "new6210-sim: %s\nTry 'new6210-sim --help'.\n", error.c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(HelpText().c_str(), stdout);
        return 0;
    }
    InstallStopSignals();

    SimState state;
    SetUp(options, state);

    std::FILE* record = nullptr;
    if (!options.recordPath.empty()) {
        const std::string files = options.recordPath + ".files";
        if ((record = std::fopen(options.recordPath.c_str(), "wb")) == nullptr) {
            return Fail("cannot write the record file " + options.recordPath);
        }
        if ((state.uploadRecord = std::fopen(files.c_str(), "w")) == nullptr) {
            return Fail("cannot write the record file " + files);
        }
    }
    std::FILE* sent = nullptr;
    if (!options.sentPath.empty() && (sent = std::fopen(options.sentPath.c_str(), "wb")) == nullptr) {
        return Fail("cannot write the record file " + options.sentPath);
    }
    Pty pty;
    if (!pty.Open(error)) {
        return Fail(error);
    }
    const std::string slave = pty.SlavePath();
    if (!options.linkPath.empty() && !CreateLink(options.linkPath, slave, error)) {
        return Fail(error);
    }
    // The startup contract: the device path alone on the first line of standard output.
    std::printf("%s\n", slave.c_str());
    std::fflush(stdout);

    TrafficLog log(options.quiet);
    log.Note("terminal ready on " + slave +
             (options.linkPath.empty() ? "" : " (linked as " + options.linkPath + ")"));
    auto writeToHost = [&pty, &log, &options, sent](const uint8_t* data, size_t length) {
        Pty::WriteResult result = pty.Write(data, length, options.session.overrunMs);
        if (sent != nullptr) {
            std::fwrite(data, 1, length, sent);
            std::fflush(sent);
        }
        if (result == Pty::WriteResult::Overrun) {
            log.Warn("the host took nothing for " + std::to_string(options.session.overrunMs) +
                     " ms: the rest of the reply and the unread bytes are lost");
        }
        return result == Pty::WriteResult::Done;
    };
    ReplyWriter writer(options.faults, writeToHost);
    auto vanish = [&pty, &options, &slave]() {
        pty.Close();
        if (!options.linkPath.empty()) RemoveLink(options.linkPath, slave);
    };
    Simulator simulator(state, writer, log, options.session, vanish);

    RunSession(pty, simulator, record, log, InputPace(options.faults.throttleBaud));

    if (!options.linkPath.empty()) {
        RemoveLink(options.linkPath, slave);
    }
    if (record != nullptr) {
        std::fclose(record);
        std::fclose(state.uploadRecord);
    }
    log.Note("stopped");
    return 0;
}
