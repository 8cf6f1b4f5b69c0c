#pragma once

#include <atomic>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "agreement/Verdicts.h"
#include "support/Lanes.h"
#include "system/DaemonFixture.h"

namespace kennly::test {

/// A configuration, and how a failure speaks of it.
struct Candidate {
    std::string name;
    std::string content;
};

/// A sandbox in which kennlyctl and the daemon are asked for their verdicts on configurations.
///
/// Each daemon ends after its first cycle and runs no command: see FirstCycle.cpp.
class AgreementLane : public DaemonTest {
public:
    using DaemonTest::sandbox;
    using DaemonTest::SetUp;

    /// Writes the configurations and has both judge each.
    std::vector<Verdicts> Judge(const std::vector<Candidate>& candidates) {
        std::vector<std::string> paths;
        for (const Candidate& candidate : candidates) {
            paths.push_back(PathOf("candidate-" + std::to_string(paths.size())));
            EXPECT_TRUE(sandbox->WriteFile(paths.back(), candidate.content)) << candidate.name;
        }
        return JudgeFiles(paths);
    }

    /// The same for what lies at these paths. Once for each sandbox.
    std::vector<Verdicts> JudgeFiles(const std::vector<std::string>& paths) {
        // Of the other tree, and so no part of any verdict.
        Configure(Configuration(Marker("of the other tree")), WatcherConfiguration);
        std::vector<std::string> command = {"sh", "-c", Script, "sh"};
        command.insert(command.end(), paths.begin(), paths.end());
        const auto shell = sandbox->Start(command);
        EXPECT_EQ(shell->WaitForEnd(LongestScript), std::optional<int>(0));
        EXPECT_TRUE(sandbox->WaitForLog(
            [&](const auto& lines) { return Ends(lines) >= paths.size(); }, Generous));
        const std::map<std::string, std::vector<Line>> said = LinesByNumber();
        std::vector<Verdicts> verdicts;
        for (const std::string& path : paths) {
            const auto lines = said.find(WordIn(path + ".number"));
            verdicts.push_back({lines != said.end() ? lines->second : std::vector<Line>(),
                                {std::atoi(WordIn(path + ".status").c_str()),
                                 sandbox->ReadFile(path + ".texts").value_or(""),
                                 sandbox->ReadFile(path + ".json").value_or("")}});
        }
        return verdicts;
    }

private:
    // The daemon comes last: its jobs' records may have any name. It is given the file under a
    // link, because so it can be a pipe as well, or missing.
    inline static const std::string Script = "for file; do " KENNLY_CTL
                                             " check --as-daemon \"$file\" >\"$file.texts\"; "
                                             "echo $? >\"$file.status\"; " KENNLY_CTL
                                             " check --json \"$file\" >\"$file.json\"; "
                                             "ln -sfn \"$file\" " +
                                             MainConfiguration +
                                             "; "
                                             "LD_PRELOAD=" KENNLY_FIRST_CYCLE
                                             "${LD_PRELOAD:+:$LD_PRELOAD} " KENNLY_PROGRAM
                                             " -f & "
                                             "echo $! >\"$file.number\"; "
                                             "wait; "
                                             "done";
    static constexpr std::chrono::minutes LongestScript{5};

    std::string WordIn(const std::string& path) const {
        std::istringstream content(sandbox->ReadFile(path).value_or(""));
        std::string word;
        content >> word;
        return word;
    }

    static std::string NumberIn(const LogLine& line) {
        return line.text.substr(0, line.text.find(':'));
    }

    /// Whether it is the last line of a process, which has gone through its first cycle or given
    /// up.
    static bool IsEnd(const LogLine& line) {
        return line.severity == LOG_INFO ||
               (line.severity == LOG_DEBUG && line.text == NumberIn(line) + ":   exit(0)");
    }

    static std::size_t Ends(const std::vector<LogLine>& lines) {
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), IsEnd));
    }

    /// What each daemon has said of its load.
    std::map<std::string, std::vector<Line>> LinesByNumber() const {
        std::map<std::string, std::vector<Line>> lines;
        for (const LogLine& line : sandbox->Log()) {
            std::vector<Line>& those = lines[NumberIn(line)];
            if (!IsEnd(line)) {
                those.push_back({PriorityOf(line), WithoutFrame(line)});
            }
        }
        return lines;
    }

    static std::string WithoutFrame(const LogLine& line) {
        const std::string begin = NumberIn(line) + ":  : ";
        EXPECT_EQ(line.identity, "kennly");
        EXPECT_EQ(line.facility, LOG_LOCAL4);
        EXPECT_EQ(line.text.compare(0, begin.size(), begin), 0) << line.text;
        EXPECT_EQ(line.text.back(), '\n') << line.text;
        return line.text.substr(begin.size(), line.text.size() - begin.size() - 1);
    }

    static std::string PriorityOf(const LogLine& line) {
        return line.severity == LOG_ERR     ? "err"
               : line.severity == LOG_DEBUG ? "debug"
                                            : std::to_string(line.severity);
    }
};

/// What came out for many configurations.
struct Outcome {
    std::size_t judged = 0;
    std::size_t refused = 0;  // that do not load
    std::size_t ended = 0;    // that end the daemon
    std::size_t silent = 0;   // of which it says nothing
    std::size_t lines = 0;
    std::size_t disagreements = 0;
};

class AgreementTest : public ::testing::Test {
protected:
    /// Expects that kennlyctl says of each configuration what the daemon says.
    void ExpectAgreement(const std::vector<Candidate>& candidates) {
        std::atomic<std::size_t> next{0};
        RunInLanes<AgreementLane>(Lanes, [&](auto& lane, int /*number*/) {
            for (std::size_t at = 0; (at = next.fetch_add(Batch)) < candidates.size();) {
                const auto begin = candidates.begin() + static_cast<std::ptrdiff_t>(at);
                const std::vector<Candidate> batch(
                    begin,
                    begin + static_cast<std::ptrdiff_t>(std::min(Batch, candidates.size() - at)));
                lane.SetUp();  // a sandbox in which nobody has said anything yet
                Expect(batch, lane.Judge(batch));
            }
        });
        EXPECT_EQ(outcome.judged, candidates.size());
        std::cout << outcome.judged << " configurations, of which " << outcome.refused
                  << " do not load, " << outcome.ended << " end the daemon and " << outcome.silent
                  << " are loaded without a word; " << outcome.lines << " lines\n";
    }

    void Expect(const std::vector<Candidate>& candidates, const std::vector<Verdicts>& verdicts) {
        const std::lock_guard<std::mutex> held(lock_);
        ASSERT_EQ(candidates.size(), verdicts.size());
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            const std::vector<Line>& lines = verdicts[i].daemon;
            ++outcome.judged;
            outcome.refused += Has(lines, LoadFailure) ? 1U : 0U;
            outcome.ended += Has(lines, ClosingLine) ? 1U : 0U;
            outcome.silent += lines.empty() ? 1U : 0U;
            outcome.lines += lines.size();
            const std::string disagreement = DisagreementIn(verdicts[i]);
            if (!disagreement.empty() && ++outcome.disagreements <= MostShown) {
                ADD_FAILURE() << candidates[i].name << ":\n"
                              << candidates[i].content.substr(0, MostBytesShown) << "\n"
                              << disagreement;
            }
        }
    }

    Outcome outcome;

private:
    static constexpr int Lanes = 4;
    static constexpr std::size_t Batch = 25;
    static constexpr std::size_t MostShown = 5;
    static constexpr std::size_t MostBytesShown = 4000;

    std::mutex lock_;  // guards `outcome` while lanes run
};

}  // namespace kennly::test
