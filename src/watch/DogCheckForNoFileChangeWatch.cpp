#include "watch/DogCheckForNoFileChangeWatch.h"

#include <algorithm>
#include <ctime>
#include <string>

#include "config/FileTime.h"
#include "config/Number.h"
#include "job/ResultCode.h"
#include "watch/WatchedFile.h"

namespace kennly {

namespace {

std::int32_t GreatestAgeSeconds(const std::string& text) {
    constexpr std::int32_t usualSeconds = 120;
    constexpr std::int32_t leastSeconds = 1;
    return text.empty() ? usualSeconds : std::max(NumberFromText(text.c_str()), leastSeconds);
}

}  // namespace

std::int32_t DogCheckForNoFileChangeWatch::DoWatch() {
    return JudgeWatchedFile(params, 2, [this](std::int32_t fileTime) { return Judge(fileTime); });
}

std::int32_t DogCheckForNoFileChangeWatch::Judge(std::int32_t fileTime) {
    if (fileTime != lastFileTime) {
        lastFileTime = fileTime;
        return ResultHealthy;
    }
    const std::int32_t age = AgeInSeconds(fileTime, std::time(nullptr));
    return age > GreatestAgeSeconds(params.back()) ? ResultFailed : ResultHealthy;
}

}  // namespace kennly
