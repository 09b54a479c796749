#include "commands/FileTransfer.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "cards/ImageBuffer.h"
#include "commands/Crc32.h"
#include "platform/Platform.h"
#include "session/Frame.h"
#include "support/Format.h"
#include "support/Log.h"

namespace {

void PutLittleEndian(uint8_t* bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// Sends the "9W" announcement and waits for the answer. True if the terminal declined: a
// reply of exactly one CAN, nothing else counts.
bool AnnounceFile(DeviceContext& context, const std::string& name, uint32_t size, uint32_t crc,
                  const char* logName)
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
    if (SendFrame(context) > 0)
        ReadReply(context, nullptr, nullptr);
    return context.rxLength == 1 && context.rxBuffer[0] == CAN;
}

// After the stream: the closing answer as it comes, unstripped. True if it failed.
bool CloseUpload(DeviceContext& context)
{
    WriteLog("update completed");
    WaitReply(context);
    return context.rxBuffer[0] == CAN;
}

}  // namespace

uint32_t FileCrc32(const char* path)
{
    std::unique_ptr<uint8_t[]> block(new uint8_t[CrcBlockSize]);
    FileHandle file(std::fopen(path, "rb"));
    if (!file)
        return 0;
    uint32_t state = Crc32Begin();
    size_t count;
    while ((count = std::fread(block.get(), 1, CrcBlockSize, file.get())) > 0)
        state = Crc32Update(state, block.get(), count);
    return Crc32End(state);
}

void ListFiles(const char* folder, std::vector<std::string>& files)
{
    for (const FolderEntry& entry : SearchFolder(folder)) {
        std::string path = folder + std::string(1, FolderSeparator()) + entry.name;
        if (entry.folder)
            ListFiles(path.c_str(), files);
        else
            files.push_back(path);
    }
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
    DeviceContext& context = g_context;
    std::string name = UploadName(path);
    uint32_t crc = FileCrc32(path);
    FileHandle file(std::fopen(path, "rb"));
    if (!file) {
        WriteLog(Format("[upload] open file [%s] failed.", path));
        return 0;
    }
    std::fseek(file.get(), 0, SEEK_END);
    long size = std::ftell(file.get());
    std::fseek(file.get(), 0, SEEK_SET);

    if (AnnounceFile(context, name, static_cast<uint32_t>(size), crc, path))
        return 0;

    // Write returns only once the line has taken the whole block, so txBuffer may be refilled.
    for (;;) {
        context.txLength = StreamBlockSize;
        size_t count = std::fread(context.txBuffer, 1, static_cast<size_t>(context.txLength), file.get());
        if (count == 0)
            break;
        context.serial.Write(context.txBuffer, static_cast<int>(count));
    }
    return CloseUpload(context) ? -1 : 0;
}

int UploadFolder(const char* folder)
{
    DeviceContext& context = g_context;
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

    for (const std::string& path : files) {
        if (UploadFile(path.c_str()) < 0)
            return -1;
    }
    return 0;
}

int UploadImage(const char* name, int32_t size)
{
    DeviceContext& context = g_context;
    // The image never reaches past the buffer that holds it.
    const int32_t length = std::min(size, static_cast<int32_t>(ImageBufferSize));
    uint32_t crc = length > 0 ? Crc32(imageBuffer, static_cast<size_t>(length)) : 0;

    if (AnnounceFile(context, name, static_cast<uint32_t>(size), crc, name))
        return 0;

    for (int32_t offset = 0; offset < length; offset += ImagePieceSize)
        context.serial.Write(imageBuffer + offset, std::min(ImagePieceSize, length - offset));

    if (CloseUpload(context))
        return -1;
    // The same line as a file that can't be opened; kept, since log readers know it so.
    WriteLog(Format("[upload] open file [%s] failed.", name));
    return 0;
}
