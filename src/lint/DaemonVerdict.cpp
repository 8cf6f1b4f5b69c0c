#include "lint/DaemonVerdict.h"

#include <algorithm>
#include <cstdio>

#include "config/DogConfig.h"
#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

namespace {

constexpr std::int32_t LoadErrorLimitAtStart = 10;

DaemonVerdict::Outcome OutcomeOf(std::int32_t result) {
    switch (result) {
        case ReloadLoaded:
            return DaemonVerdict::Outcome::Loads;
        case ReloadNoFile:
            return DaemonVerdict::Outcome::CannotExamine;
        case ReloadUnchanged:
            return DaemonVerdict::Outcome::NeverRead;
        default:
            return DaemonVerdict::Outcome::Fails;
    }
}

std::string ReasonIn(const std::vector<DaemonLine>& lines) {
    const std::string before = "config file failed to load, error: ";
    const auto line = std::find_if(lines.begin(), lines.end(), [&](const DaemonLine& each) {
        return each.text.compare(0, before.size(), before) == 0;
    });
    if (line != lines.end()) {
        return line->text.substr(before.size());
    }
    return lines.empty() ? "" : lines.front().text;
}

}  // namespace

DaemonVerdict AskDaemon(const std::string& path) {
    std::snprintf(configFile, sizeof(configFile), "%s", path.c_str());
    maxLoadErrors = LoadErrorLimitAtStart;
    TakeDaemonLines();  // of whatever came before
    DogConfig config;
    DaemonVerdict verdict;
    verdict.outcome = OutcomeOf(config.ReloadConfigIfConfigHasChanged());
    verdict.jobs.assign(config.Jobs().begin(), config.Jobs().end());
    const std::int32_t failedCycles = verdict.outcome == DaemonVerdict::Outcome::Loads ? 0 : 1;
    verdict.endsDaemon = failedCycles > maxLoadErrors;
    if (verdict.endsDaemon) {  // the loop says so at its next cycle
        LogError("watchdog closing down as there have been too many load config errors");
    }
    verdict.lines = TakeDaemonLines();
    if (verdict.outcome == DaemonVerdict::Outcome::Fails) {
        verdict.reason = ReasonIn(verdict.lines);
    }
    return verdict;
}

}  // namespace kennly
