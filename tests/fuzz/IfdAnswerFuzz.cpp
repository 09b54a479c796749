// The reader driver's answer reader against a card's answer to READ BINARY cut at any points.
// Each piece goes out once the driver has taken the one before, well inside the silence, so
// only the frame's structure can tell where the answer ends: it must come up whole, whatever
// the pieces look like. Input: Le, a count of cuts (low 3 bits) and the cuts, then the data
// (cut or padded to Le; 90 00 follows).
#include <poll.h>

#include <algorithm>
#include <thread>

#include "../unit/PtyPort.h"
#include "ReaderChannel.h"
#include "session/Frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static PtyPort line;
    static Ifd::ReaderChannel channel(g_context);
    static const bool opened = channel.Open(g_strConfigFolder + "COM" + std::to_string(PtyPort::Number));
    if (!opened)
        std::abort();
    if (size < 2)
        return 0;
    const uint8_t command[] = {0x00, 0xB0, 0x00, 0x00, data[0]};
    const size_t cutCount = std::min<size_t>(data[1] & 7, size - 2);
    std::vector<uint8_t> answer(data + 2 + cutCount, data + size);
    answer.resize(data[0] == 0 ? 256 : data[0]);
    answer.insert(answer.end(), {0x90, 0x00});
    std::vector<uint8_t> frame{STX};
    frame.insert(frame.end(), answer.begin(), answer.end());
    uint8_t check = 0;
    for (uint8_t byte : answer)
        check ^= byte;
    frame.insert(frame.end(), {ETX, check});
    std::vector<size_t> cuts(data + 2, data + 2 + cutCount);
    for (size_t& cut : cuts)
        cut %= frame.size();
    std::sort(cuts.begin(), cuts.end());
    cuts.push_back(frame.size());

    std::thread terminal([&] {
        // The request first: the driver empties the line before it sends.
        uint8_t request[64];
        pollfd master{line.Master(), POLLIN, 0};
        for (size_t got = 0; got < 11 && poll(&master, 1, 1000) > 0;)
            got += static_cast<size_t>(std::max<ssize_t>(read(line.Master(), request, 64), 0));
        size_t from = 0;
        for (size_t cut : cuts) {
            (void)!write(line.Master(), frame.data() + from, cut - from);
            from = cut;
            for (int n = 1, i = 0; i < 20000 && ioctl(line.Slave(), FIONREAD, &n) == 0 && n > 0; ++i)
                usleep(50);
        }
    });
    uint8_t out[258];
    unsigned long length = 0;
    const Ifd::Outcome outcome = channel.Transmit(command, sizeof command, out, sizeof out, &length);
    terminal.join();
    if (outcome != Ifd::Outcome::Done || std::vector<uint8_t>(out, out + length) != answer)
        std::abort();
    return 0;
}
