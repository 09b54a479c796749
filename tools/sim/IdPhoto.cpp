#include "IdPhoto.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

constexpr double Pi = 3.14159265358979323846;
constexpr double InvSqrt2 = 0.70710678118654752440;

constexpr std::array<uint8_t, 64> ZigZag = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The example luminance table of the JPEG standard, in natural (row-major) order.
constexpr std::array<uint8_t, 64> BaseLuminance = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

// The standard Huffman tables for luminance: code counts per length 1..16, then the symbols.
constexpr std::array<uint8_t, 16> DcBits = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
constexpr std::array<uint8_t, 12> DcValues = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr std::array<uint8_t, 16> AcBits = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7D};
constexpr std::array<uint8_t, 162> AcValues = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
    0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xA1, 0x08, 0x23, 0x42, 0xB1, 0xC1, 0x15, 0x52,
    0xD1, 0xF0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0A, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x25,
    0x26, 0x27, 0x28, 0x29, 0x2A, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x43, 0x44, 0x45,
    0x46, 0x47, 0x48, 0x49, 0x4A, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x63, 0x64,
    0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8A, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
    0x9A, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6,
    0xB7, 0xB8, 0xB9, 0xBA, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xCA, 0xD2, 0xD3,
    0xD4, 0xD5, 0xD6, 0xD7, 0xD8, 0xD9, 0xDA, 0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8,
    0xE9, 0xEA, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA};

struct HuffmanCode {
    uint16_t code = 0;
    uint8_t length = 0;
};

// Canonical codes from the counts per length, indexed by symbol.
template <size_t N>
std::array<HuffmanCode, 256> BuildCodes(const std::array<uint8_t, 16>& bits,
                                        const std::array<uint8_t, N>& values) {
    std::array<HuffmanCode, 256> codes{};
    uint16_t code = 0;
    size_t k = 0;
    for (int length = 1; length <= 16; ++length) {
        for (int i = 0; i < bits[length - 1]; ++i) {
            codes[values[k++]] = {code, static_cast<uint8_t>(length)};
            ++code;
        }
        code <<= 1;
    }
    return codes;
}

class BitWriter {
public:
    explicit BitWriter(std::vector<uint8_t>& out) : m_out(out) {}

    void Put(uint32_t bits, int count) {
        for (int i = count - 1; i >= 0; --i) {
            m_byte = static_cast<uint8_t>((m_byte << 1) | ((bits >> i) & 1));
            if (++m_filled == 8) Emit();
        }
    }
    // The last byte is padded with 1 bits, as the standard asks.
    void Flush() {
        while (m_filled != 0) Put(1, 1);
    }

private:
    void Emit() {
        m_out.push_back(m_byte);
        if (m_byte == 0xFF) m_out.push_back(0x00);  // stuffing: FF in the scan is never a marker
        m_byte = 0;
        m_filled = 0;
    }

    std::vector<uint8_t>& m_out;
    uint8_t m_byte = 0;
    int m_filled = 0;
};

void PutWord(std::vector<uint8_t>& out, unsigned value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

template <size_t N>
void PutHuffmanTable(std::vector<uint8_t>& out, uint8_t classAndId,
                     const std::array<uint8_t, 16>& bits, const std::array<uint8_t, N>& values) {
    out.insert(out.end(), {0xFF, 0xC4});
    PutWord(out, static_cast<unsigned>(2 + 1 + 16 + N));
    out.push_back(classAndId);
    out.insert(out.end(), bits.begin(), bits.end());
    out.insert(out.end(), values.begin(), values.end());
}

// Magnitude category of a coefficient and the bits that follow its code (ones' complement
// for negative values).
int Category(int value) {
    int magnitude = std::abs(value);
    int category = 0;
    while (magnitude != 0) {
        magnitude >>= 1;
        ++category;
    }
    return category;
}

uint32_t AmplitudeBits(int value, int category) {
    return static_cast<uint32_t>(value < 0 ? value + (1 << category) - 1 : value) &
           ((1u << category) - 1);
}

}  // namespace

std::vector<uint8_t> EncodeGreyJpeg(int width, int height, const std::vector<uint8_t>& grey,
                                    int quality) {
    if (width < 1 || height < 1 || width > 0xFFFF || height > 0xFFFF ||
        grey.size() != static_cast<size_t>(width) * static_cast<size_t>(height)) {
        throw std::invalid_argument("EncodeGreyJpeg: bad image size");
    }
    quality = std::clamp(quality, 1, 100);
    const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
    std::array<int, 64> quant{};  // natural order
    for (int i = 0; i < 64; ++i) {
        quant[i] = std::clamp((BaseLuminance[i] * scale + 50) / 100, 1, 255);
    }

    std::vector<uint8_t> out = {0xFF, 0xD8};
    // JFIF 1.01, no density unit, aspect 1:1, no thumbnail.
    out.insert(out.end(), {0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0x00, 0x01, 0x01, 0x00,
                           0x00, 0x01, 0x00, 0x01, 0x00, 0x00});
    out.insert(out.end(), {0xFF, 0xDB, 0x00, 0x43, 0x00});
    for (int i = 0; i < 64; ++i) out.push_back(static_cast<uint8_t>(quant[ZigZag[i]]));
    out.insert(out.end(), {0xFF, 0xC0, 0x00, 0x0B, 0x08});
    PutWord(out, static_cast<unsigned>(height));
    PutWord(out, static_cast<unsigned>(width));
    out.insert(out.end(), {0x01, 0x01, 0x11, 0x00});  // component 1, 1x1 sampling, table 0
    PutHuffmanTable(out, 0x00, DcBits, DcValues);
    PutHuffmanTable(out, 0x10, AcBits, AcValues);
    out.insert(out.end(), {0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00, 0x3F, 0x00});

    static const std::array<HuffmanCode, 256> dcCodes = BuildCodes(DcBits, DcValues);
    static const std::array<HuffmanCode, 256> acCodes = BuildCodes(AcBits, AcValues);
    std::array<double, 64> cosines{};  // cos((2x + 1) u pi / 16), index x * 8 + u
    for (int x = 0; x < 8; ++x) {
        for (int u = 0; u < 8; ++u) cosines[x * 8 + u] = std::cos((2 * x + 1) * u * Pi / 16);
    }

    BitWriter bits(out);
    int previousDc = 0;
    for (int by = 0; by < height; by += 8) {
        for (int bx = 0; bx < width; bx += 8) {
            // Level-shifted samples; blocks past the edge repeat the last row and column.
            std::array<double, 64> block{};
            for (int y = 0; y < 8; ++y) {
                for (int x = 0; x < 8; ++x) {
                    const int sy = std::min(by + y, height - 1);
                    const int sx = std::min(bx + x, width - 1);
                    block[y * 8 + x] = grey[static_cast<size_t>(sy) * width + sx] - 128.0;
                }
            }
            std::array<int, 64> coefficients{};  // natural order
            for (int v = 0; v < 8; ++v) {
                for (int u = 0; u < 8; ++u) {
                    double sum = 0;
                    for (int y = 0; y < 8; ++y) {
                        for (int x = 0; x < 8; ++x) {
                            sum += block[y * 8 + x] * cosines[x * 8 + u] * cosines[y * 8 + v];
                        }
                    }
                    const double cu = u == 0 ? InvSqrt2 : 1.0;
                    const double cv = v == 0 ? InvSqrt2 : 1.0;
                    const double value = 0.25 * cu * cv * sum;
                    coefficients[v * 8 + u] =
                        static_cast<int>(std::lround(value / quant[v * 8 + u]));
                }
            }

            const int dc = coefficients[0];
            const int diff = dc - previousDc;
            previousDc = dc;
            int category = Category(diff);
            bits.Put(dcCodes[category].code, dcCodes[category].length);
            bits.Put(AmplitudeBits(diff, category), category);

            int run = 0;
            for (int k = 1; k < 64; ++k) {
                const int value = coefficients[ZigZag[k]];
                if (value == 0) {
                    ++run;
                    continue;
                }
                while (run > 15) {
                    bits.Put(acCodes[0xF0].code, acCodes[0xF0].length);  // ZRL: 16 zeros
                    run -= 16;
                }
                category = Category(value);
                const int symbol = (run << 4) | category;
                bits.Put(acCodes[symbol].code, acCodes[symbol].length);
                bits.Put(AmplitudeBits(value, category), category);
                run = 0;
            }
            if (run > 0) bits.Put(acCodes[0x00].code, acCodes[0x00].length);  // EOB
        }
    }
    bits.Flush();
    out.insert(out.end(), {0xFF, 0xD9});
    return out;
}

namespace {

constexpr int PhotoWidth = 120;
constexpr int PhotoHeight = 150;
constexpr int PhotoQuality = 75;

bool InEllipse(double x, double y, double cx, double cy, double rx, double ry) {
    const double dx = (x - cx) / rx;
    const double dy = (y - cy) / ry;
    return dx * dx + dy * dy <= 1.0;
}

// A plain passport-style picture: light backdrop with a soft vertical gradient, dark
// shoulders, a face with darker hair over it. Nobody in particular.
std::vector<uint8_t> PortraitPixels() {
    std::vector<uint8_t> pixels(static_cast<size_t>(PhotoWidth) * PhotoHeight);
    const double w = PhotoWidth;
    const double h = PhotoHeight;
    for (int y = 0; y < PhotoHeight; ++y) {
        for (int x = 0; x < PhotoWidth; ++x) {
            const double px = x + 0.5;
            const double py = y + 0.5;
            int value = 215 - static_cast<int>(25.0 * py / h);  // backdrop
            if (InEllipse(px, py, w * 0.5, h * 1.08, w * 0.48, h * 0.34)) {
                value = 55;  // jacket
                if (InEllipse(px, py, w * 0.5, h * 0.80, w * 0.09, h * 0.10)) {
                    value = 235;  // collar
                }
            }
            if (px > w * 0.41 && px < w * 0.59 && py > h * 0.58 && py < h * 0.78) {
                value = 160;  // neck
            }
            if (InEllipse(px, py, w * 0.5, h * 0.44, w * 0.20, h * 0.21)) {
                value = 170;  // face
                if (py < h * 0.33 || !InEllipse(px, py, w * 0.5, h * 0.47, w * 0.18, h * 0.22)) {
                    value = 40;  // hair
                }
                if (InEllipse(px, py, w * 0.42, h * 0.43, w * 0.025, h * 0.012) ||
                    InEllipse(px, py, w * 0.58, h * 0.43, w * 0.025, h * 0.012)) {
                    value = 50;  // eyes
                }
                if (InEllipse(px, py, w * 0.5, h * 0.56, w * 0.06, h * 0.01)) value = 110;  // mouth
            }
            pixels[static_cast<size_t>(y) * PhotoWidth + x] = static_cast<uint8_t>(value);
        }
    }
    return pixels;
}

std::vector<uint8_t> BuildIdPhoto() {
    std::vector<uint8_t> jpeg = EncodeGreyJpeg(PhotoWidth, PhotoHeight, PortraitPixels(),
                                               PhotoQuality);
    // Pad the image to fill the 20 chunks exactly: one COM segment right after the JFIF
    // header (SOI 2 bytes + APP0 18 bytes).
    constexpr size_t AfterApp0 = 20;
    if (jpeg.size() + 4 > IdPhotoChunkedSize) {
        throw std::logic_error("SyntheticIdPhoto: the encoded portrait is too large");
    }
    const size_t payload = IdPhotoChunkedSize - jpeg.size() - 4;
    std::string text = "Synthetic portrait, test card only.";
    text.resize(std::max(payload, text.size()), ' ');
    text.resize(payload);
    std::vector<uint8_t> comment = {0xFF, 0xFE};
    PutWord(comment, static_cast<unsigned>(payload + 2));
    comment.insert(comment.end(), text.begin(), text.end());
    jpeg.insert(jpeg.begin() + AfterApp0, comment.begin(), comment.end());

    // Fill bytes and a closing EOI to the end of the field.
    jpeg.resize(IdPhotoSize - 2, 0xFF);
    jpeg.push_back(0xFF);
    jpeg.push_back(0xD9);
    return jpeg;
}

}  // namespace

const std::vector<uint8_t>& SyntheticIdPhoto() {
    static const std::vector<uint8_t> photo = BuildIdPhoto();
    return photo;
}
