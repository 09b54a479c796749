// TIS-620 to UTF-8 and back, ThaiLen's count and both forms of the identity card answer. The
// caller's buffers are allocated to exactly the size the header promises, so that a byte
// written past them is a sanitizer report.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "FuzzInput.h"
#include "cards/ThaiText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput input(data, size);
    const uint8_t split = input.Byte();
    const std::string answer = input.Rest();
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(answer.data());
    const int available = static_cast<int>(answer.size() * split / 255);

    // Text form: at most three bytes a character and the NUL.
    std::unique_ptr<char[]> text(new char[3 * answer.size() + 1]);
    const int written = ThaiAnswerAsText(bytes, available, text.get());
    if (written < 0 || written > 3 * available || text[written] != 0)
        std::abort();

    // Binary form: never more than arrived behind the length.
    std::unique_ptr<char[]> binary(new char[answer.size() + 1]);
    const int copied = ThaiAnswerAsBinary(bytes, available, binary.get());
    if (copied < 0 || (copied > 0 && copied > available - 4))
        std::abort();

    // Back to TIS-620 and the column count: the work area is never overrun, and a text that
    // fits it counts no more columns than it has bytes.
    const std::string utf8(text.get(), static_cast<size_t>(written));
    uint8_t area[64];
    const int back = Utf8ToTis620(utf8.c_str(), area, sizeof area);
    if (back >= static_cast<int>(sizeof area))
        std::abort();
    if (answer.size() < ThaiLenAreaSize - 1) {
        const int columns = CountThaiColumns(answer.c_str());
        if (columns < 0 || static_cast<size_t>(columns) > answer.size())
            std::abort();
    }
    return 0;
}
