#include "action/DogExecuteAction.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

#include "job/ResultCode.h"
#include "main/Log.h"

namespace kennly {

std::int32_t DogExecuteAction::DoAction() {
    try {
        return Start();
    } catch (...) {  // silent like every other reason for which no remedy runs
        return ResultNotEvaluated;
    }
}

std::int32_t DogExecuteAction::Start() const {
    if (params.size() != 1 || params.front().empty()) {
        return ResultNotEvaluated;
    }
    const std::string& command = params.front();
    if (IsBlocked()) {
        return ResultHealthy;
    }
    if (type != RemedyTypeExecuteAlways) {
        LogDebug(jobName.c_str(), "check failed - running remedy:", command.c_str());
    }
    const std::string commandLine = CommandLineOf(command);
    const int waitStatus = std::system(commandLine.c_str());
    if (waitStatus == -1) {
        return ResultNotEvaluated;
    }
    // Deliberate: how the shell ended is not looked at, so an end by a signal reads as status 0.
    constexpr int exitStatusShift = 8;
    return waitStatus >> exitStatusShift == 0 ? ResultHealthy : ResultFailed;
}

std::string DogExecuteAction::CommandLineOf(const std::string& command) {
    return "nohup " + command + " 1>/dev/null 2>/dev/null &";
}

bool DogExecuteAction::IsBlocked() const {
    const auto paths = {&blockAction, &blockAction2, &blockAction3};
    return std::any_of(paths.begin(), paths.end(), [](const std::string* path) {
        // A file that exists holds the remedy back even if it cannot be read.
        return !path->empty() && access(path->c_str(), F_OK) == 0;
    });
}

}  // namespace kennly
