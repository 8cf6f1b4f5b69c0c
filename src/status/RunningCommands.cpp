#include "status/RunningCommands.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "action/DogAction.h"
#include "lint/ShellOutline.h"
#include "status/ProcFile.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly {

namespace {

using Words = std::vector<std::string>;

std::string Joined(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text.append(text.empty() ? "" : " ").append(word);
    }
    return text;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

Words TextsOf(const std::vector<ShellWord>& words) {
    Words texts(words.size());
    std::transform(words.begin(), words.end(), texts.begin(),
                   [](const ShellWord& word) { return word.text; });
    return texts;
}

// The shell replaces itself by the last command of a line: then the words are that command's own.
Words LastCommandOf(const std::string& line) {
    const ShellOutline outline = OutlineShell(line);
    return outline.commands.empty() ? Words() : TextsOf(ProgramWords(outline.commands.back()));
}

Words FirstCommandOf(const std::string& line) {
    const ShellOutline outline = OutlineShell(line);
    return outline.commands.empty() ? Words() : TextsOf(outline.commands.front().words);
}

// A script that is executed stands behind its interpreter.
bool IsProgram(const Words& running, const Words& expected) {
    if (expected.empty() || running.size() < expected.size()) {
        return false;
    }
    return std::equal(expected.rbegin(), expected.rend(), running.rbegin());
}

std::string CommandOf(const DogWatch& check) {
    return check.type == CheckTypeCommandResult && check.params.size() == 1 ? check.params.front()
                                                                            : "";
}

std::string CommandOf(const DogAction& remedy) {
    return remedy.params.size() == 1 ? remedy.params.front() : "";
}

// What a shell was given by system(), which may put "--" before it.
std::optional<std::string> LineOfShell(const Words& words) {
    const bool isMarked = words.size() == 4 && words[2] == "--";
    if ((words.size() != 3 && !isMarked) || words[1] != "-c") {
        return std::nullopt;
    }
    return words.back();
}

// What is looked for: the command of a job, and how it looks while it runs.
struct Wanted {
    std::string job;
    std::string command;
    std::string shellLine;  // of a check; the shell of a remedy does not last
    Words words;
};

// Taken apart once, as there may be thousands of jobs and of processes.
std::vector<Wanted> WantedChecks(const std::vector<JobHandle>& jobs) {
    std::vector<Wanted> wanted;
    for (const JobHandle& job : jobs) {
        const std::string command = CommandOf(*job->check);
        if (!command.empty()) {
            wanted.push_back({job->name, command, DogCheckCommandWatch::CommandLineOf(command),
                              LastCommandOf(command)});
        }
    }
    return wanted;
}

std::vector<Wanted> WantedRemedies(const std::vector<JobHandle>& jobs) {
    std::vector<Wanted> wanted;
    for (const JobHandle& job : jobs) {
        const std::string command = CommandOf(*job->remedy);
        if (!command.empty()) {
            wanted.push_back({job->name, command, "", FirstCommandOf(command)});
        }
    }
    return wanted;
}

bool IgnoresHangup(pid_t process) {
    constexpr int hexadecimal = 16;
    const std::uint64_t ignored =
        std::strtoull(ReadProcStatus(process, "SigIgn").c_str(), nullptr, hexadecimal);
    return (ignored >> (SIGHUP - 1) & 1) != 0;
}

bool WritesToNowhere(pid_t process) {
    return ReadProcLink(process, "fd/1") == "/dev/null" &&
           ReadProcLink(process, "fd/2") == "/dev/null";
}

class Search {
public:
    Search(const DaemonProcess& worker, const std::vector<JobHandle>& jobs)
        : worker_(worker), checks_(WantedChecks(jobs)), remedies_(WantedRemedies(jobs)) {}

    RunningCommands Run() {
        found_.remediesKnown = !worker_.program.empty();
        for (const pid_t number : AllProcesses()) {
            const auto stat = ReadProcStat(number);
            if (!stat || stat->state == 'Z' || number == worker_.number) {
                continue;
            }
            if (stat->parent == worker_.number) {
                TakeChild(number, *stat);
            } else if (stat->startTicks >= worker_.startTicks) {
                TakeRemedy(number, *stat);
            }
        }
        return std::move(found_);
    }

private:
    static RunningCommand Describe(pid_t number, const ProcStat& stat, const Words& words) {
        RunningCommand command;
        command.number = number;
        command.seconds = SecondsSince(stat.startTicks);
        command.text = LineOfShell(words).value_or(Joined(words));
        return command;
    }

    void TakeChild(pid_t number, const ProcStat& stat) {
        const Words words = ReadProcTexts(number, "cmdline").value_or(Words());
        if (words.empty() || words == worker_.arguments) {
            return;  // about to become a command
        }
        RunningCommand command = Describe(number, stat, words);
        if (EndsWith(command.text, " 1>/dev/null 2>/dev/null &")) {
            return;  // the shell that is starting a remedy
        }
        const std::optional<std::string> line = LineOfShell(words);
        for (const Wanted& wanted : checks_) {
            if (line == wanted.shellLine || IsProgram(words, wanted.words)) {
                command.jobs.push_back(wanted.job);
                command.text = wanted.command;
            }
        }
        // A worker that is the first process of its container adopts its own remedies.
        if (!command.jobs.empty() || !TakeRemedy(number, stat)) {
            found_.checks.push_back(command);
        }
    }

    bool TakeRemedy(pid_t number, const ProcStat& stat) {
        const Words words = ReadProcTexts(number, "cmdline").value_or(Words());
        RunningCommand command = Describe(number, stat, words);
        for (const Wanted& wanted : remedies_) {
            if (IsProgram(words, wanted.words)) {
                command.jobs.push_back(wanted.job);
                command.text = wanted.command;
            }
        }
        if (command.jobs.empty() || !IgnoresHangup(number) || !WritesToNowhere(number) ||
            !HasLostItsParent(stat)) {
            return false;
        }
        found_.remedies.push_back(command);
        return true;
    }

    // Adopted by the first process, or by one that asked to adopt: neither is of its session.
    static bool HasLostItsParent(const ProcStat& stat) {
        constexpr pid_t firstProcess = 1;
        const auto parent = ReadProcStat(stat.parent);
        return stat.parent == firstProcess || !parent || parent->session != stat.session;
    }

    const DaemonProcess& worker_;
    const std::vector<Wanted> checks_;
    const std::vector<Wanted> remedies_;
    RunningCommands found_;
};

}  // namespace

RunningCommands FindRunningCommands(const DaemonProcess& worker,
                                    const std::vector<JobHandle>& jobs) {
    return Search(worker, jobs).Run();
}

}  // namespace kennly
