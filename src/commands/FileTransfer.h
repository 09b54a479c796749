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
// Subfolders deeper than this below an uploaded folder are not searched: a folder mounted
// inside itself would lead on for ever.
constexpr int FolderDepthLimit = 32;

// 0 if the file can't be opened or is no plain file (and for an empty one).
uint32_t FileCrc32(const char* path);
// Appends the full path of every file below `folder`, a subfolder's files where the subfolder
// is met; folders themselves are not listed. Links to folders are not followed, so that each
// file is met once.
void ListFiles(const char* folder, std::vector<std::string>& files);
// The name a file is announced under: what follows the last slash or backslash.
std::string UploadName(const char* path);

// 0 or -1. A file that can't be opened, is no plain file, is over 4 GiB or that the terminal
// declines gives 0. -1: the closing reply began with CAN, the announcement could not go out,
// the port went away, or the file changed while it was sent (the terminal still gets exactly
// the announced count).
int UploadFile(const char* path);
// 0, or -1 when a file failed; the files after it are not tried. A cancel stops the upload
// before the next file with -1; `storedBeforeCancel` then gets the paths of the files the
// terminal took, each with a line feed (no more than the folder's announcement holds).
int UploadFolder(const char* folder, std::string* storedBeforeCancel = nullptr);
// The first `size` bytes of imageBuffer under `name`. 0 or -1, as UploadFile.
int UploadImage(const char* name, int32_t size);
