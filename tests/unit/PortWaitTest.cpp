// What wakes a port wait, on a real pseudo-terminal: a wait that returns when nothing happened
// spins a core, one that misses its wake-up hangs a call.
#include <gtest/gtest.h>

#include <functional>

#include "PtyPort.h"
#include "platform/Platform.h"
#include "serial/CComPort.h"

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
    };
    for (const Step& step : steps) {
        step.act();
        EXPECT_EQ(port.WaitInput(20), step.expected) << step.what;
    }
    port.Close();
    EXPECT_EQ(port.WaitInput(-1), PortWait::Gone) << "a closed port never sleeps";
}

}  // namespace
