#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "lint/Lint.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace kennly::test {

/// A configuration with a trap in it, and the same as its author will have meant it.
struct Trap {
    const char* name;
    const char* code;  // of the finding that the one has and the other has not
    std::string trap;
    std::string twin;
};

/// `text` as it is to be written into a value.
inline std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '"' ? "&quot;" : std::string(1, c);
    }
    return escaped;
}

inline std::string CheckOf(const std::string& command,
                           const std::string& attributes = "delay='1'") {
    return "<check type='CheckCommandResult' " + attributes + "><param value=\"" + command +
           "\"/></check>";
}
inline std::string CheckOfType(const std::string& type, const std::string& params,
                               const std::string& attributes = "delay='1'") {
    return "<check type='" + type + "' " + attributes + ">" + params + "</check>";
}
inline std::string FileCheckOf(const std::string& path) {
    return "<check type='CheckForFileChange' delay='1'><param value=\"" + path + "\"/></check>";
}
inline std::string StaleCheckOf(const std::string& path, const std::string& limit) {
    return "<check type='CheckForNoFileChange' delay='1'><param value=\"" + path +
           "\"/><param value=\"" + limit + "\"/></check>";
}
inline std::string RemedyOf(const std::string& command, const std::string& attributes = "") {
    return "<remedy type='Execute' " + attributes + "><param value=\"" + command + "\"/></remedy>";
}
inline const std::string GoodCheck = CheckOf("test -d /");
inline const std::string GoodRemedy = RemedyOf("true");

inline std::string JobOf(const std::string& content, const std::string& attributes = "name='a'") {
    return "<job enabled='true' " + attributes + ">" + content + "</job>";
}
inline std::string RootOf(const std::string& content, const std::string& attributes = "") {
    return "<kennly " + attributes + ">" + content + "</kennly>";
}
inline std::string WithCheck(const std::string& check) {
    return RootOf(JobOf(check + GoodRemedy));
}
inline std::string WithRemedy(const std::string& remedy) {
    return RootOf(JobOf(GoodCheck + remedy));
}

/// Makes the process that of an ordinary user for as long as the object lives, for whom the entry
/// `closed` of the directory has these permissions: none, unless told.
class AsOther {
public:
    AsOther(const TemporaryDirectory& directory, const std::string& closed,
            std::filesystem::perms permissions = std::filesystem::perms::none)
        : closed_(directory.Path(closed)) {
        std::filesystem::permissions(directory.Path(""), std::filesystem::perms(0755));
        std::filesystem::permissions(closed_, permissions);
        other_.emplace();
    }
    ~AsOther() {
        other_.reset();
        std::error_code ignored;
        std::filesystem::permissions(closed_, std::filesystem::perms(0755), ignored);
    }
    AsOther(const AsOther&) = delete;
    AsOther& operator=(const AsOther&) = delete;

private:
    const std::string closed_;
    std::optional<WithoutPrivileges> other_;
};

/// Configurations on a machine of the test's own: its directories are there and root's alone, the
/// search path is that of a system.
class LintTest : public ::testing::Test {
protected:
    LintTest() {
        machine.configDirectory = directory.Path("config");
        machine.recordDirectory = directory.Path("config/filetimes");
        machine.heartbeatDirectory = directory.Path("heartbeats");
        machine.mainConfig = directory.Path("config/kennly.xml");
        machine.watcherConfig = directory.Path("config/dogdog.xml");
        machine.searchPath = "/usr/sbin:/usr/bin:/sbin:/bin";
        machine.startDirectory = directory.Path("");
        for (const std::string& path :
             {machine.configDirectory, machine.recordDirectory, machine.heartbeatDirectory}) {
            std::filesystem::create_directories(path);
        }
    }

    LintReport Examine(const std::string& content, bool watcher = false) {
        return ExamineFile(directory.Write("draft.xml", content), watcher);
    }

    /// Without what is true of a test's own files whenever root does not run it.
    LintReport ExamineFile(const std::string& path, bool watcher = false) {
        LintReport report = Lint(path, watcher, machine);
        if (geteuid() != 0) {
            Findings& all = report.findings;
            all.erase(
                std::remove_if(all.begin(), all.end(),
                               [](const Finding& each) { return each.code == "not-roots-alone"; }),
                all.end());
        }
        return report;
    }

    std::vector<Finding> Those(const std::string& content, const std::string& code,
                               bool watcher = false) {
        std::vector<Finding> those;
        for (const Finding& finding : Examine(content, watcher).findings) {
            if (finding.code == code) {
                those.push_back(finding);
            }
        }
        return those;
    }

    void ExpectTraps(const std::vector<Trap>& traps, bool watcher = false) {
        for (const Trap& trap : traps) {
            SCOPED_TRACE(trap.name);
            EXPECT_THAT(Those(trap.trap, trap.code, watcher), ::testing::SizeIs(1)) << trap.trap;
            EXPECT_THAT(Those(trap.twin, trap.code, watcher), ::testing::IsEmpty()) << trap.twin;
        }
    }

    const TemporaryDirectory directory;
    Machine machine;
};

}  // namespace kennly::test
