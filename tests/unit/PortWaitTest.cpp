// What wakes a port wait, on a real pseudo-terminal: a wait that returns when nothing happened
// spins a core, one that misses its wake-up hangs a call.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>

#include <functional>

#include "PtyPort.h"
#include "platform/Platform.h"
#include "serial/CComPort.h"

// A pseudo-terminal hung up reports POLLERR beside POLLHUP; a line whose other side closed may
// report the hang-up alone, so the error is taken out on its way back.
bool g_hangUpAlone = false;

extern "C" int poll(pollfd* watched, nfds_t count, int timeoutMs)
{
    using Real = int (*)(pollfd*, nfds_t, int);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "poll"));
    const int ready = real(watched, count, timeoutMs);
    if (g_hangUpAlone && ready > 0)
        watched[0].revents &= ~POLLERR;
    return ready;
}

namespace {

TEST(PortWait, EachWakeIsReportedOnceAndQuietEndsOnlyByTheTimeGiven)
{
    PtyPort line;
    CComPort port;
    ASSERT_EQ(port.Open(PtyPort::Number), 1);
    ClearCancelWake();  // one left by another test of this process

    struct Step {
        const char* what;
        std::function<void()> act;
        PortWait expected;
    } steps[] = {
        {"quiet line", [] {}, PortWait::Timeout},
        {"cancel raised", [] { RaiseCancelWake(); }, PortWait::Wake},
        {"raised twice, taken back at once", [] { RaiseCancelWake(); RaiseCancelWake(); }, PortWait::Wake},
        {"quiet again after the wake", [] {}, PortWait::Timeout},
        {"a byte", [&line] { line.Send({0x06}); }, PortWait::Input},
        {"the byte still unread", [] {}, PortWait::Input},
        {"the other side hung up", [&line] { g_hangUpAlone = dup2(open("/dev/null", O_RDONLY), line.Master()) > 0; },
         PortWait::Gone},
    };
    for (const Step& step : steps) {
        step.act();
        EXPECT_EQ(port.WaitInput(20), step.expected) << step.what;
    }
    g_hangUpAlone = false;
    port.Close();
    EXPECT_EQ(port.WaitInput(-1), PortWait::Gone) << "a closed port never sleeps";
}

}  // namespace
