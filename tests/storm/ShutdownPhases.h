#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "storm/Storm.h"
#include "system/Configuration.h"

namespace kennly::test {

/// What a daemon is given to do so that SIGTERM meets it at a certain work.
struct Preparation {
    int jobs = 0;
    std::string configuration;
    std::string trace;        // left once the work begins; empty when it is the daemon's first
    std::string replacement;  // put in place after that; its load begins the work
    int replacementJobs = 0;
};

/// The name of its Marker.
inline const std::string ReplacementMarker = "replacement";

struct ShutdownPhase {
    std::string name;
    Preparation (*prepare)(Dice&);
    std::chrono::milliseconds longest;  // SIGTERM comes up to so long after the work has begun
};

namespace shutdown {

/// How long a command takes that is not waited for. The thread sanitizer runs a handler in the
/// thread that has got the signal, and if that one runs a command, only after it.
inline std::string VeryLong() {
    return RunsUnderThreadSanitizer() ? "10" : "300";
}

inline std::string Named(int number) {
    return "job" + std::to_string(number);
}

/// Elements that mean nothing, and some jobs: reading them takes a while.
inline Preparation LargeFile(Dice& dice) {
    Preparation prepared;
    std::string text;
    for (std::uint32_t left = 3000 + dice.UpTo(30000); left > 0; --left) {
        text += "<remark author=\"nobody\" text=\"read and passed over\"/>\n";
    }
    while (prepared.jobs < 10) {
        text += Job(Named(prepared.jobs++), Check("true", "delay=\"1\"") + Remedy("true"));
    }
    prepared.configuration = Configuration(text);
    return prepared;
}

/// Jobs whose many workers take a while to start.
inline Preparation ManyJobs(Dice& dice) {
    Preparation prepared;
    prepared.jobs = 100 + static_cast<int>(dice.UpTo(150));
    std::string text;
    for (int number = 0; number < prepared.jobs; ++number) {
        text += Job(Named(number), Check("true", "delay=\"300\"") + Remedy("true"));
    }
    prepared.configuration = Configuration(text);
    return prepared;
}

/// Jobs that are busy all the time.
inline Preparation BusyJobs(Dice& dice) {
    Preparation prepared;
    prepared.jobs = 10 + static_cast<int>(dice.UpTo(20));
    const std::vector<std::string> checks = {
        Check("true", "delay=\"1\""),
        Check("false", "delay=\"1\""),
        Check("sleep 0.5", "delay=\"1\""),
        CheckOfType("CheckForFileChange", {DataDirectory + "/heartbeats/child"}),
        CheckOfType("CheckForNoFileChange", {MainConfiguration, "60"}),
        CheckOfType("CheckSocketListening", {}),
    };
    std::string text;
    for (int number = 0; number < prepared.jobs; ++number) {
        text += Job(Named(number), dice.Pick(checks) + Remedy("true"));
    }
    prepared.configuration = Configuration(text);
    return prepared;
}

/// Jobs of one kind, the first of which leaves a trace when its check runs.
inline Preparation Alike(const std::string& command, const std::string& checkAttributes,
                         const std::string& remedyAttributes) {
    Preparation prepared;
    prepared.trace = "begun";
    std::string text;
    while (prepared.jobs < 5) {
        const std::string trace = prepared.jobs == 0 ? ": >>" + TracePath("begun") + "; " : "";
        text += Job(Named(prepared.jobs++),
                    Check(trace + command, checkAttributes) + Remedy("true", remedyAttributes));
    }
    prepared.configuration = Configuration(text);
    return prepared;
}

/// Checks that end about when the replacement is loaded, some seconds after it, or not at all.
inline Preparation Replacement(Dice& dice) {
    const std::string seconds = dice.Pick(std::vector<std::string>{"5", "6", "7", VeryLong()});
    Preparation prepared = Alike("sleep " + seconds, "delay=\"1\"", "");
    prepared.replacementJobs = 1;
    prepared.replacement = Configuration(Marker(ReplacementMarker) +
                                         Job("new", Check("true", "delay=\"1\"") + Remedy("true")));
    return prepared;
}

inline Preparation LongCommands(Dice& /*dice*/) {
    return Alike("sleep " + VeryLong(), "delay=\"1\"", "");
}

inline Preparation PausesOfChecks(Dice& /*dice*/) {
    return Alike("true", "delay=\"300\"", "");
}

inline Preparation PausesOfRemedies(Dice& /*dice*/) {
    return Alike("false", "delay=\"1\"", "delay=\"300\"");
}

}  // namespace shutdown

inline const std::vector<ShutdownPhase> ShutdownPhases = {
    {"loading", shutdown::LargeFile, std::chrono::milliseconds(150)},
    {"building the pool", shutdown::ManyJobs, std::chrono::milliseconds(60)},
    {"running", shutdown::BusyJobs, std::chrono::milliseconds(4000)},
    {"replacing the jobs", shutdown::Replacement, std::chrono::milliseconds(2500)},
    {"in long commands", shutdown::LongCommands, std::chrono::milliseconds(1500)},
    {"in the pauses of checks", shutdown::PausesOfChecks, std::chrono::milliseconds(2500)},
    {"in the pauses of remedies", shutdown::PausesOfRemedies, std::chrono::milliseconds(2500)},
};

}  // namespace kennly::test
