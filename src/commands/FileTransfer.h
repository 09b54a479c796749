// Files on their way to the terminal: a framed announcement (size, CRC-32, name), the bytes as
// a raw stream unless the terminal declines, and one closing reply. A folder is announced as
// a whole first, then sent file by file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "session/DeviceContext.h"

constexpr int CrcBlockSize = 100000;
constexpr int StreamBlockSize = TxRxCapacity;  // a file streams through txBuffer
constexpr int ImagePieceSize = 4096;

// 0 if the file can't be opened (and for an empty one).
uint32_t FileCrc32(const char* path);
// Appends the full path of every file below `folder`, a subfolder's files where the subfolder
// is met; folders themselves are not listed.
void ListFiles(const char* folder, std::vector<std::string>& files);
// The name a file is announced under: what follows the last slash or backslash.
std::string UploadName(const char* path);

// 0 or -1 (the terminal's closing reply began with CAN). A file that can't be opened, or that
// the terminal declines, gives 0.
int UploadFile(const char* path);
// 0, or -1 when a file failed; the files after it are not tried.
int UploadFolder(const char* folder);
// The first `size` bytes of imageBuffer under `name`. 0 or -1.
int UploadImage(const char* name, int32_t size);
