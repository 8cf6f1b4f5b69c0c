#pragma once

#include <syslog.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/SystemLogLine.h"

namespace kennly::test {

/// A line about a configuration, without the number and the role of the process that says it.
struct Line {
    std::string priority;  // err or debug, else the number
    std::string text;
};

inline bool operator==(const Line& a, const Line& b) {
    return a.priority == b.priority && a.text == b.text;
}
inline bool operator!=(const Line& a, const Line& b) {
    return !(a == b);
}
inline std::ostream& operator<<(std::ostream& out, const Line& line) {
    return out << line.priority << ": "
               << nlohmann::json(line.text).dump(-1, ' ', true,
                                                 nlohmann::json::error_handler_t::replace);
}
inline std::ostream& operator<<(std::ostream& out, const std::vector<Line>& lines) {
    for (const Line& line : lines) {
        out << "  " << line << "\n";
    }
    return out;
}

/// What kennlyctl says of a configuration.
struct CtlVerdict {
    int status = -1;
    std::string asDaemon;  // the output of check --as-daemon
    std::string json;      // the output of check --json
};

/// What both say of one configuration.
struct Verdicts {
    std::vector<Line> daemon;
    CtlVerdict ctl;
};

inline const Line LoadFailure = {"err", "Configuration file parse error"};
inline const Line ClosingLine = {
    "err", "watchdog closing down as there have been too many load config errors"};

inline bool Has(const std::vector<Line>& lines, const Line& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// `text` as JSON can hold it: bytes that are no UTF-8 become the replacement character.
inline std::string AsInJson(const std::string& text) {
    const nlohmann::json json = text;
    return nlohmann::json::parse(
        json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

/// The lines of the daemon that kennlyctl's JSON tells of. Throws when there are none.
inline std::vector<Line> LinesIn(const std::string& json) {
    const nlohmann::json whole = nlohmann::json::parse(json);
    std::vector<Line> lines;
    for (const auto& line : whole.at("daemon")) {
        lines.push_back({line.at("priority"), line.at("text")});
    }
    return lines;
}

/// The errors among the findings of kennlyctl's JSON that stand for a line of the daemon.
inline std::vector<std::string> ErrorsIn(const std::string& json) {
    const nlohmann::json whole = nlohmann::json::parse(json);
    std::vector<std::string> errors;
    for (const auto& finding : whole.at("findings")) {
        if (finding.at("severity") == "error") {
            errors.push_back(finding.at("text"));
        }
    }
    return errors;
}

/// Which of the daemon's errors has no finding that begins with its text, and how many findings are
/// errors although the daemon has none. Empty when each has its own.
inline std::string MismatchOf(std::vector<Line> lines, std::vector<std::string> errors) {
    // The longest first: a shorter one may be what another begins with.
    std::sort(lines.begin(), lines.end(),
              [](const Line& a, const Line& b) { return a.text.size() > b.text.size(); });
    std::ostringstream found;
    for (const Line& line : lines) {
        if (line.priority != "err" || line == LoadFailure || line == ClosingLine) {
            continue;  // the last two stand for no error of their own
        }
        const auto error = std::find_if(errors.begin(), errors.end(), [&](const std::string& text) {
            return text.compare(0, line.text.size(), line.text) == 0;
        });
        if (error == errors.end()) {
            found << "no finding says " << line << "\n";
        } else {
            errors.erase(error);
        }
    }
    const std::size_t ends = Has(lines, ClosingLine) ? 1 : 0;  // its finding has words of its own
    if (errors.size() != ends) {
        found << errors.size() << " findings are errors that the daemon does not have\n";
    }
    return found.str();
}

/// In what the two verdicts differ; empty when they agree.
inline std::string DisagreementIn(const Verdicts& verdicts) {
    std::ostringstream found;
    std::string texts;
    std::vector<Line> expected;
    for (const Line& line : verdicts.daemon) {
        texts += line.text + "\n";
        expected.push_back({line.priority, AsInJson(line.text)});
    }
    const CtlVerdict& ctl = verdicts.ctl;
    if (ctl.asDaemon != texts) {
        found << "--as-daemon says:\n" << Line{"texts", ctl.asDaemon} << "\n";
    }
    try {
        const std::vector<Line> lines = LinesIn(ctl.json);
        if (lines != expected) {
            found << "--json says:\n" << lines;
        }
        found << MismatchOf(expected, ErrorsIn(ctl.json));
    } catch (const nlohmann::json::exception& exception) {
        found << "--json says nothing of use: " << exception.what() << "\n";
    }
    const bool saysItFails = ctl.status == 2;
    if (saysItFails != Has(verdicts.daemon, LoadFailure) || ctl.status < 0 || ctl.status > 2) {
        found << "the exit status is " << ctl.status << "\n";
    }
    return found.str().empty() ? ""
                               : found.str() + "the daemon says:\n" +
                                     (std::ostringstream() << verdicts.daemon).str();
}

}  // namespace kennly::test
