#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "support/SandboxDescriptor.h"
#include "system/SystemLogFixture.h"

namespace kennly::test {

/// The log is there, and takes no more lines because nobody reads it.
class FullLogFixture : public LogTroubleTest {
protected:
    static constexpr const char* Filling = "filling";

    static std::int64_t Now() { return std::time(nullptr) * std::int64_t{1'000'000'000}; }

    /// Has the log read no longer and fills it, so that whoever writes to it has to wait.
    void FillLog() {
        sandbox->StopReadingLog();
        while (WriteToLog()) {  // one of them may write no more although there is room
        }
    }

    /// Whether the heartbeat has stood still for much longer than any pause of the daemon.
    bool IsHeldUp() const { return SecondsBetween(TimeOf(ChildHeartbeat), Now()) > 12; }

    /// Has the load of a running daemon wait with a line for a log that nobody reads.
    void HoldUpALoad() {
        ASSERT_TRUE(WaitForTraces("beside", 1));
        FillLog();
        Configure(Configuration(Marker("loaded") + Beside()));
        ASSERT_TRUE(WaitUntil([&] { return IsHeldUp(); }, Generous));
    }

    std::vector<std::string> LinesButFilling() const {
        std::vector<std::string> lines;
        for (const std::string& line : Lines()) {
            if (line.find(Filling) == std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }

private:
    /// Writes as much as one sender can without waiting. Returns whether it was anything.
    bool WriteToLog() const {
        const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        sandbox->PathInside("/dev/log").copy(address.sun_path, sizeof address.sun_path - 1);
        const auto* const log = reinterpret_cast<const sockaddr*>(&address);
        if (connect(sender.Get(), log, sizeof address) != 0) {
            ADD_FAILURE() << "cannot reach the log: " << std::strerror(errno);
            return false;
        }
        bool any = false;
        while (send(sender.Get(), Filling, std::strlen(Filling), MSG_DONTWAIT) > 0) {
            any = true;
        }
        EXPECT_EQ(errno, EAGAIN);
        return any;
    }
};

}  // namespace kennly::test
