// The portrait that the simulated Thai ID card carries, and the small JPEG encoder behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The photo field of the card file is this long, and so is the JPEG stored in it.
constexpr size_t IdPhotoSize = 5118;
// Readers fetch the photo in chunks of 0xFF bytes; the usual 20 of them cover this much.
constexpr size_t IdPhotoChunk = 0xFF;
constexpr size_t IdPhotoChunkedSize = 20 * IdPhotoChunk;  // 5100

// A baseline JPEG (SOI, JFIF APP0, DQT, SOF0, DHT, SOS, scan, EOI) of one 8-bit grey
// component: the standard luminance tables, quantisation scaled as the IJG quality 1..100.
// `grey` holds width * height pixels row by row; any width and height from 1 to 65535.
std::vector<uint8_t> EncodeGreyJpeg(int width, int height, const std::vector<uint8_t>& grey,
                                    int quality);

// The card's portrait: a synthetic grey head-and-shoulders picture, exactly IdPhotoSize bytes.
// Readers differ in how much of the field they take: most read the 20 chunks of 0xFF bytes
// (5100 bytes), a few read the whole field. Both must get a picture, so the complete JPEG
// (SOI .. EOI, a COM segment padding it) fills the first 5100 bytes exactly, and the 18 bytes
// after it are 0xFF fill closed by a second EOI, so that the field also starts FF D8 and ends
// FF D9. Decoders stop at the first EOI.
const std::vector<uint8_t>& SyntheticIdPhoto();
