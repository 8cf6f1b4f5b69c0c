#include "ctl/HeldSignals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>

#include "support/SandboxDescriptor.h"

namespace kennly::test {

volatile std::sig_atomic_t received = 0;

void Receive(int /*signal*/) {
    received = received + 1;
}

TEST(HeldSignalsTest, KeepsWhatInterruptsUntilTheEnd) {
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        received = 0;
        const auto before = std::signal(signal, Receive);
        {
            const HeldSignals held;
            EXPECT_FALSE(held.HaveCome());
            raise(signal);
            EXPECT_TRUE(held.HaveCome());
            EXPECT_EQ(received, 0);
        }
        EXPECT_EQ(received, 1);
        std::signal(signal, before);
    }
}

TEST(HeldSignalsTest, ForgetsWhatIsIgnored) {
    const auto before = std::signal(SIGHUP, SIG_IGN);  // as under nohup
    {
        const HeldSignals held;
        raise(SIGHUP);
        EXPECT_FALSE(held.HaveCome());
    }
    std::signal(SIGHUP, before);
}

TEST(HeldSignalsTest, OutlivesTheReaderOfWhatItWrites) {
    received = 0;
    const auto before = std::signal(SIGPIPE, Receive);
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    const Descriptor writing(ends[1]);
    {
        const HeldSignals held;
        EXPECT_EQ(write(writing.Get(), "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_EQ(received, 0);
    EXPECT_EQ(write(writing.Get(), "x", 1), -1);
    EXPECT_EQ(received, 1) << "as it was before";
    std::signal(SIGPIPE, before);
}

}  // namespace kennly::test
