#include "support/RecordedPauses.h"

#include <mutex>
#include <utility>

#include "sync/Pause.h"

namespace {

// Never destroyed: threads that a test leaves behind may pause while the process exits.
struct Recording {
    // So that a recording takes no memory while a test refuses it.
    Recording() { seconds.reserve(10000); }

    std::mutex mutex;
    std::vector<unsigned> seconds;
    std::function<void(std::size_t, unsigned)> action;
};

Recording& TheRecording() {
    static Recording& recording = *new Recording;
    return recording;
}

}  // namespace

namespace kennly {

void Pause(unsigned seconds) {
    std::function<void(std::size_t, unsigned)> action;
    std::size_t count = 0;
    {
        Recording& recording = TheRecording();
        const std::lock_guard lock(recording.mutex);
        recording.seconds.push_back(seconds);
        count = recording.seconds.size();
        action = recording.action;
    }
    if (action) {
        action(count, seconds);
    }
}

namespace test {

std::vector<unsigned> RecordedPauses() {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    return recording.seconds;
}

void ForgetPauses() {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.seconds.clear();
}

void WhilePausing(std::function<void(std::size_t, unsigned)> action) {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.action = std::move(action);
}

}  // namespace test
}  // namespace kennly
