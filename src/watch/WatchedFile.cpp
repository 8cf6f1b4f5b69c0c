#include "watch/WatchedFile.h"

#include "config/FileTime.h"
#include "job/ResultCode.h"

namespace kennly {

std::int32_t JudgeWatchedFile(const std::list<std::string>& params, std::size_t paramCount,
                              const std::function<std::int32_t(std::int32_t)>& judge) noexcept {
    try {
        if (params.size() != paramCount || params.front().empty()) {
            return ResultNotEvaluated;
        }
        std::int32_t fileTime = 0;
        return GetFileTime(params.front(), fileTime) ? judge(fileTime) : ResultHealthy;
    } catch (...) {
        return ResultNotEvaluated;
    }
}

}  // namespace kennly
