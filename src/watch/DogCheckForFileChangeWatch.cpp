#include "watch/DogCheckForFileChangeWatch.h"

#include <fcntl.h>
#include <unistd.h>

#include "job/ResultCode.h"
#include "main/Descriptor.h"
#include "main/ProcessState.h"
#include "watch/WatchedFile.h"

namespace kennly {

DogCheckForFileChangeWatch::~DogCheckForFileChangeWatch() {
    DogCheckForFileChangeWatch::Remember();
}

void DogCheckForFileChangeWatch::Remember() noexcept {
    try {
        SaveFileTime();
    } catch (...) {  // no memory for the path: the change is acted on once more, not missed
    }
}

std::int32_t DogCheckForFileChangeWatch::DoWatch() {
    return JudgeWatchedFile(params, 1, [this](std::int32_t fileTime) { return Judge(fileTime); });
}

std::int32_t DogCheckForFileChangeWatch::Judge(std::int32_t fileTime) {
    if (firstCall) {
        firstCall = false;
        LoadFileTime();
    }
    if (fileTime == lastFileTime) {
        return ResultHealthy;
    }
    lastFileTime = fileTime;
    return ResultFailed;
}

// Neither operation may block on a job's name that leads to a FIFO, hence O_NONBLOCK.

void DogCheckForFileChangeWatch::LoadFileTime() {
    if (jobName.empty()) {
        return;
    }
    const std::string path = RecordPath();
    const Descriptor record(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!record.IsOpen()) {
        return;
    }
    std::int32_t recorded = NoFileTime;
    const ssize_t got = read(record.Number(), &recorded, sizeof(recorded));
    lastFileTime = got == sizeof(recorded) ? recorded : NoFileTime;
    if (lastFileTime == NoFileTime) {
        unlink(path.c_str());  // a record that stays is found short again
    }
}

void DogCheckForFileChangeWatch::SaveFileTime() const {
    const std::int32_t seen = lastFileTime;
    if (seen == NoFileTime) {
        return;
    }
    constexpr mode_t readableAndWritableByAll = 0666;
    const Descriptor record(open(RecordPath().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK,
                                 readableAndWritableByAll));
    if (!record.IsOpen()) {
        return;
    }
    // Cut to its length only afterwards: a record that there is is never empty, whatever ends the
    // process. Where the cut fails, the first four bytes are the ones that count.
    if (write(record.Number(), &seen, sizeof(seen)) == sizeof(seen)) {
        [[maybe_unused]] const int cut = ftruncate(record.Number(), sizeof(seen));
    }
}

std::string DogCheckForFileChangeWatch::RecordPath() const {
    return std::string(configDir) + "/filetimes/" + jobName;
}

}  // namespace kennly
