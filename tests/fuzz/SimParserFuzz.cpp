// The simulator's frame parser: any bytes in any split, with a raw stream announced now and
// then as an upload does, and partial frames abandoned. Input: steps of a control byte and, for
// a control below 0xFE, that many bytes to feed; 0xFF announces a stream of the next byte's
// length, 0xFE abandons what is in progress.
#include <algorithm>
#include <cstdint>

#include "FrameParser.h"
#include "Handlers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FrameParser parser(OperationTable());
    const auto ignore = [](const ParserEvent&) {};
    for (size_t i = 0; i < size;) {
        const uint8_t control = data[i++];
        if (control == 0xFF) {
            parser.ExpectStream(i < size ? data[i++] : 0);
        } else if (control == 0xFE) {
            parser.Abandon();
        } else {
            const size_t count = std::min<size_t>(control, size - i);
            parser.Feed(data + i, count, ignore);
            i += count;
        }
    }
    parser.Abandon();
    return 0;
}
