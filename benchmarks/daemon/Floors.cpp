#include "daemon/Floors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <list>
#include <mutex>
#include <thread>

#include "daemon/Places.h"
#include "daemon/SharedCount.h"
#include "sync/ThreadStack.h"
#include "sync/WaiterTable.h"

namespace kennly::bench {

namespace {

// So many threads each run the command again and again, as the daemon does, with a pause between or
// none at all.
int RepeatCommand(const std::string& command, int threads, unsigned pauseSeconds) {
    const std::string line = command + " 1>/dev/null 2>/dev/null";
    std::list<std::thread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([&line, pauseSeconds] {
            while (std::system(line.c_str()) == 0) {
                if (pauseSeconds > 0) {  // a sleep of no time gives the processor up all the same
                    sleep(pauseSeconds);
                }
            }
            std::_Exit(1);  // with fewer threads it would be another floor
        });
    }
    all.front().join();
    return 1;
}

// Two threads, one of which has the other look at the file.
class Pair {
public:
    // Does not wait for the look.
    void HandOver() {
        {
            const std::lock_guard<std::mutex> held(lock_);
            waits_ = true;
        }
        changed_.notify_one();
    }

    void AwaitLook() {
        std::unique_lock<std::mutex> held(lock_);
        changed_.wait(held, [this] { return !waits_; });
    }

    // With `tells`, the first thread waits for the look.
    [[noreturn]] void LookWheneverAsked(SharedCount& looks, bool tells) {
        for (;;) {
            {
                std::unique_lock<std::mutex> held(lock_);
                changed_.wait(held, [this] { return waits_; });
            }
            struct stat status = {};
            if (stat(WatchedFile.c_str(), &status) != 0) {
                std::_Exit(1);
            }
            looks.Add();
            {
                const std::lock_guard<std::mutex> held(lock_);
                waits_ = false;
            }
            if (tells) {
                changed_.notify_one();
            }
        }
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool waits_ = false;  // a look is due; guarded by lock_
};

int LookAgainAndAgain() {
    SharedCount looks(LooksFile);
    Pair pair;
    const std::thread second([&pair, &looks] { pair.LookWheneverAsked(looks, true); });
    for (;;) {
        pair.HandOver();
        pair.AwaitLook();
    }
}

[[noreturn]] void HandOverEachCycle(Pair& pair) {
    for (;;) {
        pair.HandOver();
        sleep(1);
        sleep(1);
    }
}

int LookInPairs(int jobs) {
    SizeWaiterTable(static_cast<std::uint32_t>(2 * jobs));  // as the daemon does
    SharedCount looks(LooksFile);
    std::list<Pair> pairs(static_cast<std::size_t>(jobs));
    std::list<std::thread> threads;
    for (Pair& pair : pairs) {
        threads.emplace_back([&pair, &looks] { pair.LookWheneverAsked(looks, false); });
        threads.emplace_back([&pair] { HandOverEachCycle(pair); });
    }
    threads.front().join();  // never: whoever fails ends the process
    return 1;
}

[[noreturn]] void Sleep() {
    for (;;) {
        sleep(3600);
    }
}

int SleepInThreads(int threads) {
    std::list<std::thread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back(Sleep);
    }
    Sleep();
}

}  // namespace

int RunFloor(const std::vector<std::string>& arguments) {
    if (!SetThreadStack()) {
        return 1;
    }
    if (arguments.size() == 2 && arguments[0] == "commands") {
        return RepeatCommand(arguments[1], 2, 0);
    }
    if (arguments.size() == 4 && arguments[0] == "paced-commands") {
        return RepeatCommand(arguments[3], std::stoi(arguments[1]),
                             static_cast<unsigned>(std::stoul(arguments[2])));
    }
    if (arguments.size() == 1 && arguments[0] == "looks") {
        return LookAgainAndAgain();
    }
    if (arguments.size() == 2 && arguments[0] == "paced-looks") {
        return LookInPairs(std::stoi(arguments[1]));
    }
    if (arguments.size() == 2 && arguments[0] == "sleepers") {
        return SleepInThreads(std::stoi(arguments[1]));
    }
    return 2;
}

}  // namespace kennly::bench
