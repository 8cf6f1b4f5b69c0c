#include "ctl/TestVerb.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "action/DogExecuteAction.h"
#include "config/FileTime.h"
#include "config/Number.h"
#include "ctl/ExitStatus.h"
#include "ctl/FindJob.h"
#include "ctl/Surroundings.h"
#include "ctl/Time.h"
#include "job/ResultCode.h"
#include "main/Paths.h"
#include "status/JobState.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly {

namespace {

constexpr int StatusShift =
    8;  // to the exit status in a wait status, which is all the daemon looks at

class Trial {
public:
    Trial(const FoundJob& found, const TestOptions& options, const Output& output)
        : job_(*found.job),
          isWatcher_(found.isWatcher),
          startDirectory_(found.startDirectory),
          options_(options),
          output_(output) {}

    int Run() const {
        if (options_.remedy) {
            return Remedy();
        }
        switch (job_.check->type) {
            case CheckTypeCommandResult:
                return Command();
            case CheckTypeFileChange:
                return FileChange();
            case CheckTypeNoFileChange:
                return NoFileChange();
            default:
                return NoVerdict("a check of this type tests nothing");
        }
    }

private:
    // ---- what comes of it

    int Verdict(bool isHealthy, const std::string& why) const {
        output_.out << "verdict: "
                    << (isHealthy ? Paint(output_, Colour::Green, "healthy")
                                  : Paint(output_, Colour::Red, "failed"))
                    << ", " << Printable(why) << "\n";
        return isHealthy ? ExitClean : ExitFindings;
    }
    int NoVerdict(const std::string& why) const {
        return WithoutVerdict("none", why + ": the remedy never runs");
    }
    int WithoutVerdict(const char* word, const std::string& why) const {
        output_.out << "verdict: " << Paint(output_, Colour::Yellow, word) << ", " << Printable(why)
                    << "\n";
        return ExitFindings;
    }

    // ---- commands

    int RunLine(const std::string& line, ShellEnd& end) const {
        const Surroundings surroundings = FindSurroundings(isWatcher_);
        output_.out << "as: "
                    << (surroundings.daemon != 0
                            ? "the daemon's process " + std::to_string(surroundings.daemon)
                            : "this process, since no daemon runs, or this user may not look at it")
                    << "\nruns: " << Printable(line) << std::endl;
        end = RunInShell(line, surroundings);
        if (end.interrupted) {
            output_.out << "interrupted after " << Duration(end.seconds) << "\n";
            constexpr int statusOfInterrupted = 130;
            return statusOfInterrupted;
        }
        if (end.waitStatus == -1) {
            output_.err << "kennlyctl: cannot start a shell: " << std::strerror(end.error) << "\n";
            return ExitSystem;
        }
        output_.out << "time: " << Duration(end.seconds) << "\n";
        return ExitClean;
    }

    int Command() const {
        const auto& check = static_cast<const DogCheckCommandWatch&>(*job_.check);
        if (check.params.size() != 1) {
            return NoVerdict("it needs one param and has " + std::to_string(check.params.size()));
        }
        if (check.params.front().empty()) {
            return NoVerdict("its command is empty");
        }
        const std::string line = DogCheckCommandWatch::CommandLineOf(check.params.front());
        if (options_.dryRun) {
            output_.out << line << "\n";
            return ExitClean;
        }
        ShellEnd end;
        const int failure = RunLine(line, end);
        if (failure != ExitClean) {
            return failure;
        }
        const int status = end.waitStatus >> StatusShift;
        output_.out << "status: " << status << Meaning(end.waitStatus) << "\n";
        return Verdict(check.Judge(status) == ResultHealthy, Rule(check));
    }

    static std::string Meaning(int waitStatus) {
        if (WIFSIGNALED(waitStatus)) {
            return " (the shell was ended by signal " + std::to_string(WTERMSIG(waitStatus)) + ")";
        }
        switch (WEXITSTATUS(waitStatus)) {
            case 126:
                return " (found and not executable)";
            case 127:
                return " (not found)";
            default:
                return "";
        }
    }

    static std::string Rule(const DogCheckCommandWatch& check) {
        return check.anyNonZeroFails
                   ? "as any status but 0 is a failure"
                   : "as only status " + std::to_string(check.runActionResult) + " is a failure";
    }

    // ---- files

    // Relative paths count from where the daemon was started, and from nowhere while none runs.
    std::optional<std::string> File() const {
        return WholePath(job_.check->params.front(), startDirectory_);
    }
    int UnknownFile() const {
        return WithoutVerdict("unknown",
                              "as its path is relative, and the daemon's directory is not known");
    }
    // The daemon, as another user, may be allowed what this process is not.
    int WithoutFileTime(int error) const {
        return error == EACCES ? WithoutVerdict("unknown", "as this user may not look at the file")
                               : Verdict(true, "as the file cannot be examined");
    }
    int WithoutRecord(int error) const {
        return error == EACCES
                   ? WithoutVerdict("unknown", "as this user may not read the record of its time")
                   : Verdict(false,
                             "as there is no record of its time; a daemon that runs since knows "
                             "it without one");
    }
    bool HasParams(std::size_t count) const {
        return job_.check->params.size() == count && !job_.check->params.front().empty();
    }

    int FileChange() const {
        std::int32_t now = 0;
        if (!HasParams(1)) {
            return NoVerdict("it needs one param, the path of a file");
        }
        const std::optional<std::string> file = File();
        if (!file) {
            return UnknownFile();
        }
        if (!GetFileTime(*file, now)) {
            return WithoutFileTime(errno);
        }
        output_.out << "time of the file: " << Moment(now) << "\n";
        const auto recorded =
            ReadRecord(std::string(ConfigDirectoryPath) + "/filetimes/" + job_.name);
        if (!recorded) {
            return WithoutRecord(errno);
        }
        output_.out << "time on record: " << Moment(*recorded) << "\n";
        return Verdict(now == *recorded,
                       "as the record has it; a daemon that runs may know a later time");
    }

    int NoFileChange() const {
        std::int32_t time = 0;
        if (!HasParams(2)) {
            return NoVerdict("it needs two params, the path of a file and an age in seconds");
        }
        const std::optional<std::string> file = File();
        if (!file) {
            return UnknownFile();
        }
        if (!GetFileTime(*file, time)) {
            return WithoutFileTime(errno);
        }
        const std::string& text = job_.check->params.back();
        constexpr std::int32_t usualSeconds = 120;
        const std::int32_t limit =
            text.empty() ? usualSeconds : std::max(NumberFromText(text.c_str()), 1);
        const std::int32_t age = AgeInSeconds(time, std::time(nullptr));
        return Verdict(age <= limit, "as the file is " + std::to_string(age) +
                                         " s old, and the limit is " + std::to_string(limit) +
                                         " s; the daemon fails it from the second look on");
    }

    // ---- the remedy

    int Remedy() const {
        const DogAction& remedy = *job_.remedy;
        if (remedy.params.size() != 1 || remedy.params.front().empty()) {
            output_.out << "the remedy never runs: it needs one param that is not empty\n";
            return ExitFindings;
        }
        const std::string line = DogExecuteAction::CommandLineOf(remedy.params.front());
        if (options_.dryRun) {
            output_.out << line << "\n";
            return ExitClean;
        }
        const BlockFiles blocks = LookAtBlockFiles(remedy, startDirectory_);
        if (!blocks.inForce.empty()) {
            output_.out << "the remedy does not run: " << Printable(blocks.inForce.front())
                        << " blocks it\n";
            return ExitFindings;
        }
        if (!blocks.unknown.empty()) {
            output_.out << "the remedy does not run: whether " << Printable(blocks.unknown.front())
                        << " blocks it is unknown\n";
            return ExitFindings;
        }
        ShellEnd end;
        const int failure = RunLine(line, end);
        if (failure != ExitClean) {
            return failure;
        }
        const int status = end.waitStatus >> StatusShift;
        output_.out << (status == 0 ? "started; nobody learns how it ends\n"
                                    : "the shell could not start it: status " +
                                          std::to_string(status) + "\n");
        return status == 0 ? ExitClean : ExitFindings;
    }

    const DogJob& job_;
    const bool isWatcher_;
    const std::optional<std::string>& startDirectory_;
    const TestOptions& options_;
    const Output& output_;
};

}  // namespace

int RunTestVerb(const TestOptions& options, const Output& output) {
    const FoundJob found = FindJobOrTell(options.job, options.watcher, output);
    return found.job ? Trial(found, options, output).Run() : ExitNoInput;
}

}  // namespace kennly
