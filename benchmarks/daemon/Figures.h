#pragma once

#include <string>
#include <vector>

namespace kennly::bench {

/// One measurement of something, and of the floor that nobody can go below, in the same run.
struct Round {
    double measured = 0;
    double floor = 0;
};

/// What was found out about something with one number of jobs.
struct Figure {
    std::string name;  // as in goals.json
    int jobs = 0;
    std::string unit;
    std::vector<Round> rounds;
};

/// The figures of one run, told as they come.
///
/// Threads: one at a time.
class Figures {
public:
    /// Keeps a figure and tells that it is there.
    void Add(const Figure& figure);
    /// Writes all of them as JSON. Throws std::runtime_error when that fails.
    void Write(const std::string& path) const;

private:
    std::vector<Figure> figures_;
};

}  // namespace kennly::bench
