#include "watch/DogCheckForNoFileChangeWatch.h"

#include <algorithm>
#include <ctime>
#include <string>

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

std::int32_t AgeInSeconds(std::int32_t fileTime) {
    const auto now = static_cast<std::uint32_t>(std::time(nullptr));
    return static_cast<std::int32_t>(now - static_cast<std::uint32_t>(fileTime));
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
    return AgeInSeconds(fileTime) > GreatestAgeSeconds(params.back()) ? ResultFailed
                                                                      : ResultHealthy;
}

}  // namespace kennly
