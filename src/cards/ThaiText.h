// Thai text between the identity card's TIS-620 and the caller's UTF-8, and the column count
// of such a text on a display where vowels above and below and tone marks stack.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int ThaiLenAreaSize = 10240;

// TIS-620 to UTF-8, byte by byte: ASCII stays, 0xA1..0xDA and 0xDF..0xFB become U+0E01..U+0E5B
// (three bytes each), every other byte is dropped. Returns the bytes written; adds no NUL.
int Tis620ToUtf8(const uint8_t* text, size_t length, char* out);

// The reverse that ThaiLen uses: an 0xE0 byte takes the next two as one Thai character, all
// else is copied byte by byte. Bytes past the text's NUL are taken as 0. Returns the bytes
// written into `area`, or -1 as soon as the output would fill `capacity` bytes: the last byte
// of the area is left for the NUL and nothing is written past it.
int Utf8ToTis620(const char* text, uint8_t* area, int capacity);

// Marks that stack on the character before them and take no column of their own.
bool IsStackedThaiMark(uint8_t tis620);

// ThaiLen's work: converts into its static area and counts the columns up to the first NUL.
// A text that fills the area ends the process, after a log line.
int CountThaiColumns(const char* text);

// The two forms of the identity card answer; `available` bounds what is read of `answer`
// (ThaiIDRead gives the whole rxBuffer for the text, what arrived for the binary block).
// Text: TIS-620 up to its first NUL (or `available`), as UTF-8 with a NUL into `out`;
// returns the UTF-8 length. Binary: a 32-bit little-endian length and the bytes behind it;
// copies and returns at most what arrived behind the length, never a negative count.
int ThaiAnswerAsText(const uint8_t* answer, int available, char* out);
int ThaiAnswerAsBinary(const uint8_t* answer, int available, char* out);
