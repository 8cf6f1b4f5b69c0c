#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace kennly {

/// Where the rules for rsyslog that come with the daemon have its lines written.
inline constexpr char DaemonLogPath[] = "/var/log/kennly.log";

/// What a process of the daemon has had to say since a moment, as far as a file collects it.
///
/// Threads: one at a time. Ownership: keeps nothing open.
class DaemonLog {
public:
    /// Begins: what the file at `path` holds now is passed over.
    explicit DaemonLog(std::string path);

    /// The texts that `process` has sent since, in order, without time, host, process and role.
    /// Nothing when there is no such file, or this process may not read it: then nobody knows.
    std::optional<std::vector<std::string>> NewTexts(pid_t process) const;

private:
    const std::string path_;
    off_t end_ = 0;  // where the file ended at first
};

}  // namespace kennly
