#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/ProcessView.h"
#include "system/Configuration.h"

namespace kennly::test {

// Versions of a configuration file whose jobs leave traces of their own version, each trace an
// empty file. One directory holds those of one version, so that an earlier one that lives on shows.

inline const std::string StaleFile = PathOf("stale");      // was last touched long ago
inline const std::string WatchedFile = PathOf("watched");  // gets a new time now and then
inline const std::string Traces = PathOf("traces");
inline const std::string UnexpectedTrace = PathOf("unexpected");  // of a remedy that is not due

struct Version {
    int number = 0;
    int jobs = 0;
    std::string content;
    std::vector<std::string> checks;    // the traces that its checks leave at once
    std::vector<std::string> remedies;  // those that remedies leave, of file checks too

    std::string Directory() const { return Traces + "/" + std::to_string(number); }
    std::string MarkerName() const { return "version-" + std::to_string(number); }
};

/// Makes the jobs of one version; the kind of a job follows from its place.
class VersionMaker {
public:
    /// Each job takes up `bulk` bytes more than it needs.
    VersionMaker(int number, std::size_t bulk) : bulk_(bulk) { version_.number = number; }

    Version Make(int jobs) {
        std::string text = Marker(version_.MarkerName());
        for (version_.jobs = 0; version_.jobs < jobs; ++version_.jobs) {
            text += JobAt(version_.jobs);
        }
        version_.content = Whole(text);
        return version_;
    }

    /// The file around the jobs, with characters of more than one byte in it. Tolerates any number
    /// of failed loads.
    static std::string Whole(const std::string& jobs) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- Stürme – à volonté -->\n" +
               Configuration(jobs, "maxloaderrors=\"1000000\"");
    }

private:
    enum class Kind {
        Passes,
        Fails,
        IsSlow,
        IsSlower,
        HasNoDelay,
        Changes,
        Stale,
        Listening,
        Responding
    };

    // Only few take their time: while the check of one job runs, all others wait to go on.
    static Kind KindAt(int place) {
        static constexpr Kind kinds[] = {Kind::Passes, Kind::Fails,     Kind::Changes,
                                         Kind::Passes, Kind::Stale,     Kind::Listening,
                                         Kind::Passes, Kind::Responding};
        return place % 25 == 3    ? RunsUnderSanitizer() ? Kind::Passes : Kind::HasNoDelay
               : place % 25 == 14 ? Kind::IsSlow
               : place % 50 == 35 ? Kind::IsSlower
                                  : kinds[place % 8];
    }

    std::string JobAt(int place) {
        const std::string name = "job-" + std::to_string(place);
        const Kind kind = KindAt(place);
        const bool fails = kind == Kind::Fails || kind == Kind::Changes || kind == Kind::Stale;
        const std::string check = CheckOf(kind, name, place % 4 == 0 ? "1" : "2");
        return Job(name, check + (fails ? Answering(name, place % 3 == 0) : Unused()));
    }

    std::string CheckOf(Kind kind, const std::string& job, const std::string& seconds) {
        const std::string delay = "delay=\"" + seconds + "\"";
        switch (kind) {
            case Kind::Passes:
                return Tracing(job, "true", delay);
            case Kind::Fails:
                return Tracing(job, "false", delay);
            case Kind::IsSlow:
                return Tracing(job, "sleep 0.6", delay);
            case Kind::IsSlower:
                return Tracing(job, "sleep 1.6", delay);
            case Kind::HasNoDelay:
                return Tracing(job, "true", "");
            case Kind::Changes:
                return CheckOfType("CheckForFileChange", {WatchedFile}, delay);
            case Kind::Stale:
                return CheckOfType("CheckForNoFileChange", {StaleFile, "60"}, delay);
            case Kind::Listening:  // these never come to a verdict: nothing can be seen of them
                return CheckOfType("CheckSocketListening", {"localhost", "1"}, delay);
            case Kind::Responding:
                break;
        }
        return CheckOfType("CheckListeningSocketResponse", {"localhost", "1"}, delay);
    }

    // In braces: a command is silenced by what the daemon adds to its end.
    std::string Tracing(const std::string& job, const std::string& rest,
                        const std::string& attributes) {
        version_.checks.push_back("check-" + job);
        return Check("{ : >" + version_.Directory() + "/check-" + job + "; " + rest + "; }",
                     attributes);
    }

    std::string Answering(const std::string& job, bool late) {
        version_.remedies.push_back("remedy-" + job);
        return Remedy("sh -c ': >" + version_.Directory() + "/remedy-" + job + "'",
                      Bulk() + (late ? " delay=\"1\"" : ""), "ExecuteAlways");
    }

    /// Of a job whose check does not fail.
    std::string Unused() const {
        return Remedy("sh -c ': >" + UnexpectedTrace + "'", Bulk(), "ExecuteAlways");
    }

    /// A block file of which there can be none, so long is its name.
    std::string Bulk() const { return "blockaction3=\"/" + std::string(bulk_, 'x') + "\""; }

    std::size_t bulk_;
    Version version_;
};

}  // namespace kennly::test
