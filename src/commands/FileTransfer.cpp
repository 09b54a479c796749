#include "commands/FileTransfer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cards/ImageBuffer.h"
#include "commands/Crc32.h"
#include "platform/Platform.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

namespace {

// The announcement tells a size in 32 bits.
constexpr uint64_t LargestAnnounced = 0xFFFFFFFFu;

void PutLittleEndian(uint8_t* bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// How one file went: taken by the terminal, not sent at all (it can't be opened, is too large,
// or the terminal declined it), or failed, which ends a folder upload.
enum class Sent { Stored, Skipped, Failed };

// What the terminal said to an announcement. Lost: it was not sent (too long for a frame, no
// port) or the port went while waiting, so no stream may follow.
enum class Answer { Stream, Declined, Lost };

// Sends the "9W" announcement and waits for the answer. Declined only on a reply of exactly one
// CAN. `closed` is set when the closing reply came in the same read as the ACK; it then stands
// in rxBuffer as it came.
Answer AnnounceFile(DeviceContext& context, const std::string& name, uint32_t size, uint32_t crc,
                    const char* logName, bool& closed)
{
    uint8_t fields[8];
    PutLittleEndian(fields, size);
    PutLittleEndian(fields + 4, crc);
    BeginFrame(context, {0x39, 0x57});
    AppendBytes(context, fields, sizeof fields);
    AppendText(context, name.c_str());
    CloseFrame(context);

    WriteLog("CRC>" + BytesToHex(fields + 4, 4));
    WriteLog(Format("upload file [%s] size = %d", logName, static_cast<int>(size)));
    // Bytes streamed after an announcement the terminal never got would be taken for frames,
    // and the closing reply would never come.
    if (SendFrame(context) <= 0)
        return Answer::Lost;
    const int n = WaitReply(context);
    if (n < 1)
        return Answer::Lost;
    // An empty file has nothing to wait for: a terminal may send its closing reply right
    // behind the ACK, and one read may take both.
    closed = size == 0 && n > 1 && context.rxBuffer[0] == ACK;
    if (closed) {
        std::memmove(context.rxBuffer, context.rxBuffer + 1, static_cast<size_t>(n - 1));
        context.rxLength = n - 1;
        return Answer::Stream;
    }
    TakeReply(context, n, nullptr, nullptr);
    return context.rxLength == 1 && context.rxBuffer[0] == CAN ? Answer::Declined : Answer::Stream;
}

// After the stream: the closing answer as it comes, unstripped, unless it came already. True
// if it failed: a CAN, or no answer because the port went away.
bool CloseUpload(DeviceContext& context, bool closed)
{
    WriteLog("update completed");
    if (!closed && WaitReply(context) < 1)
        return true;
    return context.rxBuffer[0] == CAN;
}

// Hands the first `size` bytes of `file` to `take` in pieces of at most `piece`, read through
// `buffer`; zeros stand in for bytes the file no longer has. False unless the file held
// exactly `size` bytes.
template <typename Take>
bool ReadExactly(std::FILE* file, uint64_t size, uint8_t* buffer, size_t piece, Take take)
{
    bool exact = true;
    for (uint64_t left = size; left > 0;) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(piece, left));
        const size_t got = exact ? std::fread(buffer, 1, want, file) : 0;
        if (got < want) {
            exact = false;
            std::memset(buffer + got, 0, want - got);
        }
        take(buffer, want);
        left -= want;
    }
    return exact && std::fgetc(file) == EOF;
}

Sent SendFile(DeviceContext& context, const char* path)
{
    // One handle for both passes, its length taken at the open: the announced count is what
    // streams, whatever happens to the file meanwhile.
    uint64_t size = 0;
    FileHandle file(OpenPlainFile(path, size));
    if (!file) {
        WriteLog(Format("[upload] open file [%s] failed.", path));
        return Sent::Skipped;
    }
    if (size > LargestAnnounced) {
        WriteLog(Format("[upload] file [%s] of %llu bytes is larger than an announcement can tell: not sent.",
                        path, static_cast<unsigned long long>(size)));
        return Sent::Skipped;
    }
    std::unique_ptr<uint8_t[]> block(new uint8_t[CrcBlockSize]);
    uint32_t state = Crc32Begin();
    bool unchanged = ReadExactly(file.get(), size, block.get(), CrcBlockSize,
                                 [&](const uint8_t* bytes, size_t count) { state = Crc32Update(state, bytes, count); });
    const uint32_t crc = Crc32End(state);
    block.reset();

    bool closed = false;
    const Answer answer = AnnounceFile(context, UploadName(path), static_cast<uint32_t>(size), crc, path, closed);
    if (answer != Answer::Stream)
        return answer == Answer::Lost ? Sent::Failed : Sent::Skipped;

    // Write returns only once the line has taken the whole block, so txBuffer may be refilled.
    std::rewind(file.get());
    state = Crc32Begin();
    unchanged = ReadExactly(file.get(), size, context.txBuffer, StreamBlockSize,
                            [&](const uint8_t* bytes, size_t count) {
                                state = Crc32Update(state, bytes, count);
                                context.serial.Write(bytes, static_cast<int>(count));
                            }) &&
                unchanged && Crc32End(state) == crc;
    if (CloseUpload(context, closed))
        return Sent::Failed;
    if (!unchanged) {
        WriteLog(Format("[upload] file [%s] changed while it was sent: the terminal got %u bytes that are not the file.",
                        path, static_cast<unsigned>(size)));
        return Sent::Failed;
    }
    return Sent::Stored;
}

// `depth`: how far `folder` lies below the folder of the upload.
void ListFilesBelow(const std::string& folder, std::vector<std::string>& files, int depth)
{
    for (const FolderEntry& entry : SearchFolder(folder)) {
        std::string path = folder + FolderSeparator() + entry.name;
        if (!entry.folder)
            files.push_back(path);
        else if (entry.link)
            WriteLog(Format("[upload] folder link [%s] not followed.", path.c_str()));
        else if (depth >= FolderDepthLimit)
            WriteLog(Format("[upload] folder [%s] lies deeper than %d levels: not searched.", path.c_str(),
                            FolderDepthLimit));
        else
            ListFilesBelow(path, files, depth + 1);
    }
}

// Takes a cancel that came since `before` CANs had gone out, served by a wait or still pending.
bool TakeCancel(DeviceContext& context, uint32_t before)
{
    uint32_t pending = 1;
    return context.cancelRequested.compare_exchange_strong(pending, 0) || context.cancelsSent != before;
}

}  // namespace

uint32_t FileCrc32(const char* path)
{
    uint64_t size = 0;
    FileHandle file(OpenPlainFile(path, size));
    if (!file)
        return 0;
    std::unique_ptr<uint8_t[]> block(new uint8_t[CrcBlockSize]);
    uint32_t state = Crc32Begin();
    size_t count;
    while ((count = std::fread(block.get(), 1, CrcBlockSize, file.get())) > 0)
        state = Crc32Update(state, block.get(), count);
    return Crc32End(state);
}

void ListFiles(const char* folder, std::vector<std::string>& files)
{
    ListFilesBelow(folder, files, 0);
}

std::string UploadName(const char* path)
{
    std::string name = path;
    std::replace(name.begin(), name.end(), '\\', '/');
    size_t slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

int UploadFile(const char* path)
{
    return SendFile(g_context, path) == Sent::Failed ? -1 : 0;
}

int UploadFolder(const char* folder, std::string* storedBeforeCancel)
{
    DeviceContext& context = g_context;
    const uint32_t cancels = context.cancelsSent;
    std::vector<std::string> files;
    ListFiles(folder, files);

    std::string joined;
    for (size_t i = 0; i < files.size(); ++i)
        joined += (i > 0 ? "|" : "") + files[i];
    // STX, two op bytes, two numbers, the paths with their NUL, ETX and check byte.
    const size_t frameLength = 1 + 2 + 8 + joined.size() + 1 + 2;
    if (frameLength > static_cast<size_t>(TxRxCapacity)) {
        WriteLog(Format("[upload] folder [%s]: the list of %d files takes %d bytes, more than one frame holds.",
                        folder, static_cast<int>(files.size()), static_cast<int>(frameLength)));
        return -1;
    }

    uint8_t fields[8] = {};
    PutLittleEndian(fields, static_cast<uint32_t>(files.size()));
    BeginFrame(context, {0x39, 0x53});
    AppendBytes(context, fields, sizeof fields);
    AppendText(context, joined.c_str());
    CloseFrame(context);
    // The answer is not looked at: the files say for themselves whether they are wanted.
    if (SendFrame(context) > 0)
        ReadReply(context, nullptr, nullptr);

    std::vector<std::string> stored;
    for (const std::string& path : files) {
        // A cancel can't stop a stream the terminal counts on; it stops the walk between files.
        if (TakeCancel(context, cancels)) {
            std::string names;
            for (const std::string& done : stored) {
                names += (names.empty() ? "" : ", ") + done;
                if (storedBeforeCancel != nullptr)
                    *storedBeforeCancel += done + "\n";
            }
            WriteLog(Format("[upload] cancelled: %d of %d files stored [%s], [%s] and the files after it not sent.",
                            static_cast<int>(stored.size()), static_cast<int>(files.size()), names.c_str(),
                            path.c_str()));
            return -1;
        }
        const Sent sent = SendFile(context, path.c_str());
        if (sent == Sent::Failed)
            return -1;
        if (sent == Sent::Stored)
            stored.push_back(path);
    }
    return 0;
}

int UploadImage(const char* name, int32_t size)
{
    DeviceContext& context = g_context;
    // The image never reaches past the buffer that holds it.
    const int32_t length = std::min(size, static_cast<int32_t>(ImageBufferSize));
    uint32_t crc = length > 0 ? Crc32(imageBuffer, static_cast<size_t>(length)) : 0;

    bool closed = false;
    const Answer answer = AnnounceFile(context, name, static_cast<uint32_t>(size), crc, name, closed);
    if (answer != Answer::Stream)
        return answer == Answer::Lost ? -1 : 0;

    for (int32_t offset = 0; offset < length; offset += ImagePieceSize)
        context.serial.Write(imageBuffer + offset, std::min(ImagePieceSize, length - offset));

    if (CloseUpload(context, closed))
        return -1;
    // The same line as a file that can't be opened; kept, since log readers know it so.
    WriteLog(Format("[upload] open file [%s] failed.", name));
    return 0;
}
