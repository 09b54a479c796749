// The simulator's frame parser: any bytes in any split, with a raw stream announced now and
// then, as a file upload does. It must neither fault nor keep more than its limit of a frame.
#include <cstdint>
#include <cstdlib>

#include "FuzzInput.h"
#include "FrameParser.h"
#include "Handlers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzInput input(data, size);
    FrameParser parser(OperationTable());
    const auto sink = [](const ParserEvent& event) {
        if (event.request.payload.size() > FrameParser::MaxPayload + 1)
            std::abort();
    };
    while (!input.Empty()) {
        const uint8_t control = input.Byte();
        if (control == 0xFF) {
            parser.ExpectStream(input.Byte());
            continue;
        }
        if (control == 0xFE) {
            parser.Abandon();
            continue;
        }
        size_t count = 0;
        const uint8_t* chunk = input.Take(control, &count);
        parser.Feed(chunk, count, sink);
    }
    parser.Abandon();
    return 0;
}
