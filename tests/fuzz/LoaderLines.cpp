#include "fuzz/LoaderLines.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "main/Log.h"

namespace kennly::test {

namespace {

constexpr const char* Exception = "exception while loading config";
constexpr const char* Failure = "config file failed to load, error: ";

// A line of the loader: `begin`, any text, and, if there is a `middle`, that and any text again.
struct Pattern {
    int priority;
    const char* begin;
    const char* middle;
};

constexpr Pattern WithSubject[] = {
    {LOG_ERR, "job name already exists - ignoring job: ", ""},
    {LOG_DEBUG, "job not enabled - ignoring job: ", ""},
    {LOG_ERR, "extra remedy ignored in job: ", ""},
    {LOG_ERR, "extra check ignored in job: ", ""},
    {LOG_ERR, "no remedy defined in job: ", ""},
    {LOG_ERR, "no check defined in job: ", ""},
    {LOG_ERR, "check type missing in job ", ""},
    {LOG_ERR, "remedy type missing in job ", ""},
    {LOG_ERR, "check type ", " invalid in job "},
    {LOG_ERR, "remedy type ", " not valid in job "},
    {LOG_ERR, "check param missing its value in job ", ""},
    {LOG_ERR, "remedy param missing its value in job ", ""},
};

constexpr const char* Reasons[] = {
    "elements nested too deep",
    "too many attributes in one element",
    "file ends inside a character",
    "no element in the document",
    "Error document empty.",
    "Error parsing Element.",
    "Failed to read Element name",
    "Error reading Element value.",
    "Error reading Attributes.",
    "Error: empty tag.",
    "Error reading end tag.",
    "Error parsing Unknown.",
    "Error parsing Comment.",
    "Error parsing Declaration.",
    "Error null (0) or unexpected EOF found in input stream.",
    "Error parsing CDATA.",
};

std::vector<LoaderLine>& Lines() {
    static std::vector<LoaderLine>& lines = *new std::vector<LoaderLine>;
    return lines;
}

bool BeginsWith(const std::string& text, const std::string& begin) {
    return text.compare(0, begin.size(), begin) == 0;
}

bool Matches(const LoaderLine& line, const Pattern& pattern) {
    const std::string begin = pattern.begin;
    return line.priority == pattern.priority && BeginsWith(line.text, begin) &&
           line.text.find(pattern.middle, begin.size()) != std::string::npos;
}

bool IsFailure(const LoaderLine& line) {
    return line.priority == LOG_ERR && BeginsWith(line.text, Failure) &&
           std::find(std::begin(Reasons), std::end(Reasons),
                     line.text.substr(std::string(Failure).size())) != std::end(Reasons);
}

void Record(int priority, const char* format, va_list arguments) {
    char* written = nullptr;
    const int length = vasprintf(&written, format, arguments);
    const std::string whole = length >= 0 ? written : "";
    std::free(written);
    const std::string begin = std::to_string(getpid()) + ":" + roleTag + ": ";
    if (!BeginsWith(whole, begin) || whole.back() != '\n') {
        Found("a line of another form: " + whole);
    }
    Lines().push_back({priority, whole.substr(begin.size(), whole.size() - begin.size() - 1)});
}

}  // namespace

bool operator==(const LoaderLine& a, const LoaderLine& b) {
    return a.priority == b.priority && a.text == b.text;
}

std::vector<LoaderLine> TakeLines() {
    return std::exchange(Lines(), {});
}

bool MayBeLogged(const LoaderLine& line) {
    return std::any_of(std::begin(WithSubject), std::end(WithSubject),
                       [&](const Pattern& pattern) { return Matches(line, pattern); }) ||
           (line.priority == LOG_ERR && line.text == "job name missing") || IsFailure(line) ||
           TellsOfAnException(line);
}

bool TellsOfAnException(const LoaderLine& line) {
    return line.priority == LOG_ERR && line.text == Exception;
}

void Found(const std::string& what) {
    std::fprintf(stderr, "found: %s\n", what.c_str());
    std::abort();
}

}  // namespace kennly::test

extern "C" {

void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);

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
}
