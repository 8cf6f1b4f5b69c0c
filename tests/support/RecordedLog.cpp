#include "support/RecordedLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "main/Log.h"

namespace kennly::test {

namespace {

// Never destroyed: threads that a test leaves behind may log while the process exits.
struct Recording {
    std::mutex mutex;
    std::vector<RecordedLine> lines;
    RecordedConnection connection;
    bool throws = false;
    unsigned waitSeconds = 0;
};

Recording& TheRecording() {
    static Recording& recording = *new Recording;
    return recording;
}

RecordedLine Line(int priority, const std::string& text) {
    return {priority, std::to_string(getpid()) + ":" + roleTag + ": " + text + "\n"};
}

void Record(int priority, const char* format, va_list arguments) {
    char* written = nullptr;
    const int length = vasprintf(&written, format, arguments);
    const std::unique_ptr<char, decltype(&std::free)> text(length >= 0 ? written : nullptr,
                                                           &std::free);
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    for (unsigned left = recording.waitSeconds; left > 0; --left) {
        usleep(1'000'000);
    }
    if (recording.throws) {
        throw std::runtime_error("the log has failed");
    }
    recording.lines.push_back({priority, text ? text.get() : "(a line that nothing holds)"});
}

}  // namespace

bool operator==(const RecordedLine& a, const RecordedLine& b) {
    return a.priority == b.priority && a.text == b.text;
}

std::ostream& operator<<(std::ostream& out, const RecordedLine& line) {
    return out << "priority " << line.priority << " \"" << line.text << "\"";
}

RecordedLine Error(const std::string& text) {
    return Line(LOG_ERR, text);
}

RecordedLine Debug(const std::string& text) {
    return Line(LOG_DEBUG, text);
}

std::vector<RecordedLine> RecordedLines() {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    return recording.lines;
}

void ForgetLog() {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.lines.clear();
}

void MakeSyslogThrow(bool throws) {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.throws = throws;
}

void MakeSyslogWait(unsigned seconds) {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.waitSeconds = seconds;
}

RecordedConnection LogConnection() {
    Recording& recording = TheRecording();
    const std::lock_guard lock(recording.mutex);
    return recording.connection;
}

}  // namespace kennly::test

extern "C" {

void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);
void __wrap_openlog(const char* identity, int options, int facility);
void __wrap_closelog();

void __wrap_syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    kennly::test::Record(priority, format, arguments);
    va_end(arguments);
}

void __wrap___syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    kennly::test::Record(priority, format, arguments);
    va_end(arguments);
}

void __wrap_openlog(const char* identity, int options, int facility) {
    kennly::test::Recording& recording = kennly::test::TheRecording();
    const std::lock_guard lock(recording.mutex);
    recording.connection.identity = identity;
    recording.connection.options = options;
    recording.connection.facility = facility;
}

void __wrap_closelog() {
    kennly::test::Recording& recording = kennly::test::TheRecording();
    const std::lock_guard lock(recording.mutex);
    ++recording.connection.closed;
}
}
