#include "ctl/UptakeWatch.h"

#include <algorithm>
#include <utility>

#include "status/ProcFile.h"

namespace kennly {

namespace {

std::set<pid_t> ThreadsOfJobs(pid_t worker) {
    const std::vector<pid_t> threads = ThreadsOf(worker);
    std::set<pid_t> those(threads.begin(), threads.end());
    those.erase(worker);
    return those;
}

}  // namespace

UptakeWatch::UptakeWatch(pid_t worker, std::function<bool()> wasRead)
    : worker_(worker), wasRead_(std::move(wasRead)), old_(ThreadsOfJobs(worker)) {}

UptakeWatch::State UptakeWatch::Look(std::size_t jobs) {
    const auto stat = ReadProcStat(worker_);
    if (!stat || stat->state == 'Z') {
        return State::Gone;
    }
    const std::set<pid_t> before = ThreadsOfJobs(worker_);
    if (wasRead_ && !wasRead_()) {
        old_.insert(before.begin(), before.end());  // of the file before, even if they are new
        return State::Waiting;
    }
    const std::set<pid_t> now = ThreadsOfJobs(worker_);
    const bool allNew = std::none_of(now.begin(), now.end(),
                                     [this](pid_t thread) { return old_.count(thread) != 0; });
    constexpr std::size_t threadsPerJob = 3;
    const bool canBeSeen = !old_.empty() || jobs > 0 || wasRead_;
    if (allNew && canBeSeen && now.size() == threadsPerJob * jobs) {
        return State::TakenUp;
    }
    return wasRead_ ? State::Read : State::Waiting;
}

}  // namespace kennly
