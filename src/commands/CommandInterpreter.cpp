// PosExec: one chain of comparisons against one word slot. The order of the chain is part of
// the behaviour: "FILE" with an unknown "cmd" goes on to the comparisons that follow it.
#include <cstring>

#include "cards/PinPad.h"
#include "commands/Commands.h"
#include "commands/FileTransfer.h"
#include "session/Exports.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

std::string MemberText(CkJsonObject& json, const char* key)
{
    const char* value = json.StringOf(key);
    return value != nullptr ? value : "";
}

int SendPinpadScript(char* out, const char* text, int capacity)
{
    DeviceContext& context = g_context;
    context.operationFlag = 0;
    BeginFrame(context, {0x30, 0x33});
    out[0] = 0;
    AppendText(context, text);
    CloseFrame(context);
    int result = SendFrame(context);
    if (result > 0) {
        if (capacity > 0)
            ReadReplyInto(context, out, capacity);
        else
            ReadReply(context, reinterpret_cast<uint8_t*>(out), nullptr);
        result = 0;
    }
    if (static_cast<uint8_t>(out[0]) == CAN) {
        out[0] = 0;
        result = -1;
    }
    context.operationFlag = 0;
    return result;
}

namespace {

// Sends the frame built so far and, if it went out, waits for the answer.
int SendAndWait(DeviceContext& context, uint8_t* out = nullptr)
{
    uint32_t length = 0;  // nobody reads it
    return ExchangeFrame(context, out, &length);
}

int RunScreen(DeviceContext& context, std::string& word)
{
    word = MemberText(context.scriptDocument.json, "slide");
    if (word.empty()) {
        // The other screen: one zero byte as its text, and no answer to wait for.
        AppendBytes(context, "\x36\x00", 2);
        CloseFrame(context);
        return SendFrame(context);
    }
    AppendBytes(context, "\x3A", 1);
    AppendText(context, word.c_str());
    CloseFrame(context);
    return SendAndWait(context);
}

int RunApdu(DeviceContext& context, char* out, std::string& word)
{
    static const char NotInserted[] = "card not insert";
    static const char Inserted[] = "card inserted";
    std::memcpy(out, NotInserted, sizeof NotInserted);
    word = MemberText(context.scriptDocument.json, "cmd");
    if (word.empty() || !EqualNoCase(word, "card"))
        return -1;
    WriteLog("apduCard called");
    OpenDevice(context);
    BeginFrame(context, {OpCardChannel, OpCardPresence});
    CloseFrame(context);
    int written = SendFrame(context);
    if (written > 0)
        ReadReply(context, nullptr, nullptr);
    else if (written < 0)
        return -1;
    // A write of 0 falls through to the reply of the exchange before.
    if (context.rxLength < 1 || context.rxBuffer[0] != ACK)
        return -2;
    std::memcpy(out, Inserted, sizeof Inserted);
    return 0;
}

// True if the sub-word was one of FILE's own, with its result in `result`. Otherwise the word
// slot holds the sub-word for the comparisons that follow "FILE".
bool RunFile(DeviceContext& context, char* out, std::string& word, int& result)
{
    CkJsonObject& json = context.scriptDocument.json;
    word = MemberText(json, "cmd");
    result = 0;
    if (word.empty())
        return true;
    AppendBytes(context, "\x39", 1);
    if (EqualNoCase(word, "list")) {
        AppendBytes(context, "\x4C", 1);
        CloseFrame(context);
        result = SendAndWait(context, reinterpret_cast<uint8_t*>(out));
        return true;
    }
    if (EqualNoCase(word, "del")) {
        // The name goes behind the check byte, outside the frame: the terminal reads it so.
        AppendBytes(context, "\x44", 1);
        CloseFrame(context);
        word = MemberText(json, "file");
        AppendText(context, word.c_str());
        result = SendFrame(context);
        if (result > 0) {
            ReadReply(context, nullptr, nullptr);
            result = 0;
        }
        return true;
    }
    if (EqualNoCase(word, "write")) {
        word = MemberText(json, "file");
        result = UploadFile(word.c_str());
        return true;
    }
    return false;
}

// A cancel leaves in `out` the files stored before it, one a line: no more than the folder's
// announcement, which fits one frame, as a list reply does.
int RunUpload(DeviceContext& context, char* out)
{
    CkJsonObject& json = context.scriptDocument.json;
    std::string input = json.HasMember("input") ? MemberText(json, "input") : DefaultUploadFolder;
    // The module folder ends in its separator; the name is appended with none between.
    std::string folder = g_strModuleFolder + input;
    std::string stored;
    int result = UploadFolder(folder.c_str(), &stored);
    std::memcpy(out, stored.c_str(), stored.size() + 1);
    return result;
}

}  // namespace

int RunCommand(char* out, const char* command)
{
    DeviceContext& context = g_context;
    out[0] = 0;
    if (context.serial.m_bOpen == 0)
        return ErrPortClosed;

    // A late reply of an earlier command must not be taken for this one's.
    uint8_t scratch[DrainChunk];
    while (context.serial.Read(scratch, DrainChunk, sizeof scratch) > 0) {
    }

    std::string word = command != nullptr ? command : "";
    if (EqualNoCase(word, "VERSION")) {
        QueryVersion(out);
        return 1;
    }
    if (!LoadScriptDocument(context.scriptDocument, command)) {
        WriteLog(Format("load file json error :%s", word.c_str()));
        return -2;
    }
    CkJsonObject& json = context.scriptDocument.json;
    if (!json.HasMember("format"))
        return -2;
    word = MemberText(json, "format");

    BeginFrame(context, {});
    if (EqualNoCase(word, "BEEP")) {
        AppendBytes(context, "<0", 2);
        CloseFrame(context);
        return SendAndWait(context);
    }
    if (EqualNoCase(word, "SCREEN"))
        return RunScreen(context, word);
    if (EqualNoCase(word, "APDU"))
        return RunApdu(context, out, word);
    if (EqualNoCase(word, "FILE")) {
        int result = 0;
        if (RunFile(context, out, word, result))
            return result;
    }
    if (EqualNoCase(word, "UPLOAD"))
        return RunUpload(context, out);
    if (EqualNoCase(word, "PINPAD"))
        return SendPinpadScript(out, command);  // the caller's own text, not the parsed document
    return 0;
}

extern "C" int VARNIK_CALL PosExec(char* out, const char* command)
{
    EnterLibrary();
    if (out == nullptr)
        return ErrNoBuffer;
    DeviceContext& context = g_context;
    int opened = OpenDevice(context);
    if (opened != 0)
        return opened;
    // The port stays open for the next export.
    return RunCommand(out, command);
}
