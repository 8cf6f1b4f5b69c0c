#include "fuzz/LoaderLines.h"

#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

namespace kennly::test {

namespace {

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

bool BeginsWith(const std::string& text, const std::string& begin) {
    return text.compare(0, begin.size(), begin) == 0;
}

bool Matches(const RecordedLine& line, const Pattern& pattern) {
    const std::string begin = pattern.begin;
    return line.priority == pattern.priority && BeginsWith(line.text, begin) &&
           line.text.find(pattern.middle, begin.size()) != std::string::npos;
}

bool IsFailure(const RecordedLine& line) {
    return line.priority == LOG_ERR && BeginsWith(line.text, Failure) &&
           std::find(std::begin(Reasons), std::end(Reasons),
                     line.text.substr(std::string(Failure).size())) != std::end(Reasons);
}

RecordedLine WithoutFrame(const RecordedLine& line) {
    const std::string begin = Error("").text;  // of every line; its own end is in there
    const std::size_t size = begin.size() - 1;
    if (line.text.size() <= size || line.text.compare(0, size, begin, 0, size) != 0 ||
        line.text.back() != '\n') {
        Found("a line of another form: " + line.text);
    }
    return {line.priority, line.text.substr(size, line.text.size() - size - 1)};
}

}  // namespace

std::vector<RecordedLine> TakeLines() {
    std::vector<RecordedLine> lines;
    for (const RecordedLine& line : RecordedLines()) {
        lines.push_back(WithoutFrame(line));
    }
    ForgetLog();
    return lines;
}

bool MayBeLogged(const RecordedLine& line) {
    return std::any_of(std::begin(WithSubject), std::end(WithSubject),
                       [&](const Pattern& pattern) { return Matches(line, pattern); }) ||
           (line.priority == LOG_ERR && line.text == "job name missing") || IsFailure(line);
}

void Found(const std::string& what) {
    std::fprintf(stderr, "found: %s\n", what.c_str());
    std::abort();
}

}  // namespace kennly::test
