#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kennly::test {

/// One line as it would have reached the system log: priority (LOG_ERR, LOG_DEBUG) and exact bytes.
struct RecordedLine {
    int priority = 0;
    std::string text;
};

bool operator==(const RecordedLine& a, const RecordedLine& b);
std::ostream& operator<<(std::ostream& out, const RecordedLine& line);

/// The line that LogError or LogDebug writes for `text` in this process: with process id, role tag
/// and newline.
RecordedLine Error(const std::string& text);
RecordedLine Debug(const std::string& text);

/// What has been sent to the system log since the last ForgetLog, in order. The stand-ins of
/// syslog, openlog and closelog fill it. Any thread may call these.
std::vector<RecordedLine> RecordedLines();
void ForgetLog();

/// While set, syslog throws an exception instead of recording the line.
void MakeSyslogThrow(bool throws);

/// From now on syslog waits for so long before it takes a line.
void MakeSyslogWait(unsigned seconds);

/// The arguments of the last openlog, and how often closelog was called.
struct RecordedConnection {
    std::string identity;
    int options = -1;
    int facility = -1;
    int closed = 0;
};
RecordedConnection LogConnection();

}  // namespace kennly::test
