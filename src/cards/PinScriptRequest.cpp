// The "@" forms of PinReadKeyClear: a script or a file command on the terminal, given as JSON
// text, as a host file that holds it, or ("@@") as a text for the document loader as it stands.
#include <cstdio>
#include <cstring>

#include "cards/HexDigit.h"
#include "cards/ImageBuffer.h"
#include "cards/PinPad.h"
#include "commands/Commands.h"
#include "commands/FileTransfer.h"
#include "platform/Platform.h"
#include "session/Frame.h"
#include "support/Config.h"
#include "support/Format.h"
#include "support/Log.h"

namespace {

// Reads the host file whole into imageBuffer with a NUL behind it. -2 if it can't be opened,
// is no plain file (a pipe would keep the call waiting) or does not fit, else 0.
int ReadRequestFile(const std::string& path)
{
    uint64_t length = 0;
    std::FILE* file = OpenPlainFile(path, length);
    if (file == nullptr)
        return -2;
    if (length > static_cast<uint64_t>(ImageBufferSize - 1)) {
        std::fclose(file);
        WriteLog(Format("script file [%s] of %llu bytes does not fit the %d-byte request buffer.",
                        path.c_str(), static_cast<unsigned long long>(length), ImageBufferSize));
        return -2;
    }
    size_t count = std::fread(imageBuffer, 1, static_cast<size_t>(length), file);
    imageBuffer[count] = 0;
    std::fclose(file);
    return 0;
}

// Puts the document text of the request into imageBuffer. 0, or -2 for a host file that
// can't be read.
int TakeRequestText(const char* request)
{
    char* text = reinterpret_cast<char*>(imageBuffer);
    const char* behind = request + 1;
    if (request[1] == '@') {
        behind = request + 2;
    } else {
        // Only positions count: a "}" first and a "{" later are a pair too.
        const char* open = std::strchr(request, '{');
        const char* close = std::strchr(request, '}');
        if (open == nullptr || close == nullptr || close == request)
            return ReadRequestFile(behind);
    }
    // The request itself lies in imageBuffer: the copy moves it down over its own start.
    std::memmove(text, behind, std::strlen(behind) + 1);
    return 0;
}

// Decodes "image" by pairs into imageBuffer with a NUL behind; the size, or -1 if it would
// not fit.
int DecodeImage(const std::string& image)
{
    const size_t size = (image.size() + 1) / 2;
    if (size > static_cast<size_t>(ImageBufferSize - 1))
        return -1;
    const char* digits = image.c_str();  // an odd count pairs its last digit with the NUL
    for (size_t i = 0; i < size; ++i) {
        imageBuffer[i] = static_cast<uint8_t>(HexDigit(static_cast<unsigned char>(digits[2 * i])) << 4 |
                                              HexDigit(static_cast<unsigned char>(digits[2 * i + 1])));
    }
    imageBuffer[size] = 0;
    return static_cast<int>(size);
}

int RunFileRequest(DeviceContext& context, char* out, CkJsonObject& json)
{
    std::string cmd = MemberText(json, "cmd");
    if (cmd.empty())
        return 0;
    AppendBytes(context, "\x39", 1);
    if (EqualNoCase(cmd, "list")) {
        AppendBytes(context, "\x4C", 1);
        CloseFrame(context);
        int written = SendFrame(context);
        if (written <= 0)
            return written;
        ReadReplyInto(context, out, PinWorkSize);
        return 0;
    }
    if (EqualNoCase(cmd, "del")) {
        AppendBytes(context, "\x44", 1);
        CloseFrame(context);
        AppendText(context, MemberText(json, "file").c_str());  // behind the check byte
        int written = SendFrame(context);
        if (written <= 0)
            return written;
        ReadReply(context, nullptr, nullptr);
        return 0;
    }
    if (EqualNoCase(cmd, "write")) {
        std::string file = MemberText(json, "file");
        if (file.empty())
            return -2;
        std::string image = MemberText(json, "image");
        if (image.empty())
            return -3;
        int size = DecodeImage(image);
        if (size < 0) {
            WriteLog(Format("image for [%s] of %d bytes does not fit the %d-byte image buffer.",
                            file.c_str(), static_cast<int>((image.size() + 1) / 2), ImageBufferSize));
            return -3;
        }
        return UploadImage(file.c_str(), size);
    }
    // Unknown: the 0x39 stays in txBuffer and is never sent.
    return -1;
}

}  // namespace

int RunPinScriptRequest(char* out, const char* request)
{
    DeviceContext& context = g_context;
    int taken = TakeRequestText(request);
    if (taken != 0)
        return taken;
    out[0] = 0;

    const char* text = reinterpret_cast<const char*>(imageBuffer);
    ScriptDocument document;
    LoadScriptDocument(document, text);  // a failed load leaves an empty document
    std::string format = MemberText(document.json, "format");
    if (EqualNoCase(format, "PINPAD"))
        return SendPinpadScript(out, text, PinWorkSize);
    if (!EqualNoCase(format, "FILE"))
        return -1;
    return RunFileRequest(context, out, document.json);
}
