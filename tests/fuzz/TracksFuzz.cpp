// The stripe answer rendered into the caller's track text: whatever the terminal sends, the
// rendering ends, and a rendered text never needs more room than the caller was told to keep.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cards/Tracks.h"

namespace {

size_t g_notices;
void CountNotice(const std::string&) { ++g_notices; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string answer(reinterpret_cast<const char*>(data), size);  // to its first NUL
    std::string text;
    g_notices = 0;
    switch (FormatTracks(answer.c_str(), text, CountNotice)) {
    case TrackAnswer::Rendered:
        // "B" + field + "F" + one digit, twice, and a '|': the fields come from the answer.
        if (text.size() > answer.size() + 7 || text.find('|') == std::string::npos)
            std::abort();
        break;
    case TrackAnswer::PassedThrough:
    case TrackAnswer::TwoFields:
        if (!text.empty() && text.size() > answer.size() + 7)
            std::abort();
        break;
    }
    if (XorHexDigits(answer, CountNotice) > 15)
        std::abort();
    return 0;
}
