#include <sys/stat.h>

#include <algorithm>
#include <future>
#include <random>
#include <stdexcept>
#include <vector>

#include "daemon/Measurements.h"
#include "daemon/Site.h"

namespace kennly::bench {

namespace {

std::string FaultFile(int job) {
    return DataDirectory + "fault-" + std::to_string(job);
}

std::string RepairedFile(int job) {
    return DataDirectory + "repaired-" + std::to_string(job);
}

// The check of a job fails while its fault is there; the remedy takes it away, and by that leaves
// when it did so.
std::string RepairJobs(int jobs, int delay) {
    return Configuration(jobs, [delay](int job) {
        return JobText{CommandCheck("test ! -e " + FaultFile(job), delay),
                       R"(<remedy type="Execute"><param value="mv )" + FaultFile(job) + " " +
                           RepairedFile(job) + R"("/></remedy>)"};
    });
}

double SecondsOf(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// From the making of a fault to its removal, in seconds.
double SecondsToRepair(const Site& site, int job) {
    const std::string repaired = site.Inside().PathInside(RepairedFile(job));
    site.Inside().RemoveFile(RepairedFile(job));
    site.WriteFile(FaultFile(job), "");
    const auto start = Clock::now();
    struct stat status = {};
    while (stat(repaired.c_str(), &status) != 0) {
        if (SecondsSince(start) > LongestWaitSeconds) {
            throw std::runtime_error("a fault is not repaired");
        }
        Wait(0.02);
    }
    return SecondsOf(status.st_ctim) - SecondsOf(status.st_mtim);
}

// When to make faults, in parts of two cycles of a job: as many moments as there are faults, each
// at random in a stretch of its own, so that no stretch has more of them than another by chance.
class Moments {
public:
    Moments(std::size_t count, std::mt19937& random) {
        std::uniform_real_distribution<double> within(0, 1);
        for (std::size_t i = 0; i < count; ++i) {
            all_.push_back((static_cast<double>(i) + within(random)) / static_cast<double>(count));
        }
        std::shuffle(all_.begin(), all_.end(), random);
    }

    // Those of one of the sandboxes.
    std::vector<double> Of(std::size_t sandbox, std::size_t repairs) const {
        const auto begin = all_.begin() + static_cast<std::ptrdiff_t>(sandbox * repairs);
        return {begin, begin + static_cast<std::ptrdiff_t>(repairs)};
    }

private:
    std::vector<double> all_;
};

// Faults of one job, one after the other. After a repair its cycles go on in step with that, and
// each moment of two whole ones is as likely.
std::vector<double> RepairsOf(const Site& site, int job, double cycleSeconds,
                              const std::vector<double>& moments) {
    constexpr double settling = 2;
    std::vector<double> times;
    for (const double moment : moments) {
        Wait(settling + 2 * cycleSeconds * moment);
        times.push_back(SecondsToRepair(site, job));
    }
    site.ExpectNoError();
    return times;
}

// In each of several sandboxes at once one of so many jobs fails again and again.
std::vector<double> Repairs(int jobs, int delay, double cycleSeconds, std::size_t repairs) {
    constexpr std::size_t sandboxes = 20;
    std::mt19937 random(std::random_device{}());
    const Moments moments(sandboxes * repairs, random);
    std::vector<std::future<std::vector<double>>> all;
    for (std::size_t i = 0; i < sandboxes; ++i) {
        all.push_back(std::async(std::launch::async, [=, &moments] {
            const Site site;
            site.Configure(RepairJobs(jobs, delay));
            const auto daemon = site.StartDaemon();
            return RepairsOf(site, jobs / 2, cycleSeconds, moments.Of(i, repairs));
        }));
    }
    std::vector<double> times;
    for (auto& one : all) {
        const std::vector<double> some = one.get();
        times.insert(times.end(), some.begin(), some.end());
    }
    return times;
}

// The floor of a median is what the waits amount to at a moment chosen at random.
void MeasureRepairs(const std::string& name, int jobs, int delay, const Effort& effort,
                    Figures& figures) {
    constexpr double pollSeconds = 1;
    const double cycleSeconds = delay + pollSeconds;
    Figure figure = {name, jobs, "s", {}};
    for (const double seconds : Repairs(jobs, delay, cycleSeconds, effort.repairs)) {
        figure.rounds.push_back({seconds, cycleSeconds / 2 + pollSeconds});
    }
    figures.Add(figure);
}

}  // namespace

void MeasureDetection(const Effort& effort, Figures& figures) {
    MeasureRepairs("detection at once", 1, 0, effort, figures);
    MeasureRepairs("detection", 1, 1, effort, figures);
    if (effort.full) {
        MeasureRepairs("detection", 10, 1, effort, figures);
    }
}

}  // namespace kennly::bench
