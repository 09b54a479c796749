// TIS-620 to UTF-8 and back, ThaiLen's count, and both forms of the identity card answer, into
// buffers of exactly the size the header promises. Input: a byte that says how much of the
// rest arrived, then the answer.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "cards/ThaiText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const std::string answer(reinterpret_cast<const char*>(data) + 1, size - 1);
    const uint8_t* bytes = data + 1;
    const int available = static_cast<int>(answer.size() * data[0] / 255);

    std::unique_ptr<char[]> text(new char[3 * answer.size() + 1]);
    const int written = ThaiAnswerAsText(bytes, available, text.get());
    std::unique_ptr<char[]> binary(new char[answer.size() + 1]);
    const int copied = ThaiAnswerAsBinary(bytes, available, binary.get());
    if (text[written] != 0 || copied < 0 || (copied > 0 && copied > available - 4))
        std::abort();

    uint8_t area[64];
    if (Utf8ToTis620(text.get(), area, sizeof area) >= static_cast<int>(sizeof area))
        std::abort();
    if (answer.size() < ThaiLenAreaSize - 1 && CountThaiColumns(answer.c_str()) > static_cast<int>(answer.size()))
        std::abort();
    return 0;
}
