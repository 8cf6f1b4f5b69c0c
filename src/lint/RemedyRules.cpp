#include "lint/RemedyRules.h"

#include <algorithm>
#include <filesystem>

#include "action/DogExecuteAction.h"
#include "lint/ShellOutline.h"
#include "lint/ShellSyntax.h"
#include "lint/StartedPrograms.h"
#include "lint/Wording.h"

namespace kennly {

namespace {

constexpr const char* const Advice = ": write one simple command, or sh -c '...'";

class RemedyTraps {
public:
    RemedyTraps(const LintSubject& subject, const LintedJob& job)
        : subject_(subject), element_(*job.elements.remedy), remedy_(*job.job->remedy) {}

    void Find() const {
        Type();
        Delay();
        Block("blockaction", remedy_.blockAction);
        Block("blockaction2", remedy_.blockAction2);
        Block("blockaction3", remedy_.blockAction3);
        if (HasItsParam()) {
            Command();
        }
    }

private:
    void Report(Severity severity, const char* code, const std::string& text) const {
        subject_.Report(ParamOf(element_, 0), "value", severity, code, text);
    }

    void Type() const {
        if (remedy_.type == RemedyTypeExecuteAlways) {
            subject_.Report(element_, "type", Severity::Note, "always-means-unlogged",
                            "ExecuteAlways runs after failures only, as Execute does; what it "
                            "leaves out is the line in the log");
        }
    }

    void Delay() const {
        constexpr std::int32_t longDelay = 10;
        constexpr std::int32_t veryLongDelay = 60;
        if (remedy_.delay >= longDelay) {
            subject_.Report(element_, "delay",
                            remedy_.delay >= veryLongDelay ? Severity::Warning : Severity::Note,
                            "long-delay",
                            "while this remedy is due, a reload may take up to " +
                                std::to_string(remedy_.delay) +
                                " s, as it waits for this pause; meanwhile no job runs and there "
                                "is no heartbeat: write a shorter delay if that matters");
        }
    }

    bool HasItsParam() const {
        if (remedy_.params.size() != 1) {
            subject_.Report(element_, "type", Severity::Warning, "param-count",
                            "a remedy needs 1 param and has " +
                                std::to_string(remedy_.params.size()) + ": it never runs");
            return false;
        }
        if (remedy_.params.front().empty()) {
            Report(Severity::Warning, "empty-param", "the value is empty: the remedy never runs");
            return false;
        }
        return true;
    }

    void Command() const {
        const std::string& command = remedy_.params.front();
        const ShellOutline outline = OutlineShell(command);
        if (FindProgram(subject_.machine, "nohup") == "") {
            Report(Severity::Warning, "command-not-found",
                   NotFound(subject_.machine, "nohup") +
                       ": no remedy runs, silently; install coreutils");
        }
        if (outline.commands.empty()) {
            Report(Severity::Warning, "empty-param", "nothing is run: write a command");
            return;
        }
        if (!IsReadable(command)) {
            return;
        }
        if (EndsInHereDocument(command)) {
            Report(Severity::Warning, "here-document",
                   std::string("what the daemon puts behind the last line keeps it from ending the "
                               "here-document, and the remedy runs in the foreground") +
                       Advice);
            return;
        }
        End(command, outline);
        List(command, outline);
        Overridden(outline.commands.back());
        Programs(ProgramsStartedBy("nohup " + command));
    }

    bool IsReadable(const std::string& command) const {
        if (!ShellAccepts(DogExecuteAction::CommandLineOf(command))) {
            Report(Severity::Warning, "shell-syntax",
                   std::string("with nohup before it and the redirections behind it, the shell "
                               "cannot read this, and nothing runs, silently") +
                       Advice);
            return false;
        }
        const std::vector<std::string> scripts = ScriptsIn("nohup " + command);
        if (!std::all_of(scripts.begin(), scripts.end(), ShellAccepts)) {
            Report(Severity::Warning, "shell-syntax",
                   "sh cannot read the script behind -c, and does nothing, silently; look for a "
                   "quote or a bracket without its twin");
            return false;
        }
        return true;
    }

    void End(const std::string& command, const ShellOutline& outline) const {
        const std::string mark = "/kennly-end-of-command";
        if (outline.hasComment &&
            OutlineShell(command + " 1>" + mark).commands.back().outputTo != mark) {
            Report(Severity::Warning, "comment-in-command",
                   "what stands behind the # is a comment, and with it the & that the daemon puts "
                   "there: the remedy runs in the foreground, and all remedies wait for its end; "
                   "remove it, or write it in the XML");
        }
        if (outline.endsInBackslash) {
            Report(Severity::Warning, "trailing-backslash",
                   "the backslash at the end makes the redirection that the daemon puts behind it "
                   "an argument: remove it");
        }
    }

    void List(const std::string& command, const ShellOutline& outline) const {
        const auto separated = [&](std::initializer_list<const char*> separators) {
            return std::any_of(
                outline.commands.begin(), outline.commands.end(), [&](const ShellCommand& each) {
                    return std::any_of(separators.begin(), separators.end(),
                                       [&](const char* one) { return each.separator == one; });
                });
        };
        if (separated({";", "\n"})) {
            Report(Severity::Warning, "foreground-part",
                   std::string("what stands before the last separator runs in the foreground, and "
                               "all remedies wait for its end") +
                       Advice);
        } else if (BeginsWithLineEnd(command)) {
            Report(Severity::Warning, "list-partly-nohup",
                   "nohup stands alone in the first line, and nothing runs under it: write the "
                   "command in one line");
        } else if (separated({"&&", "||", "|"})) {
            Report(Severity::Warning, "list-partly-nohup",
                   std::string("only the first command runs under nohup, and only the last has its "
                               "output discarded") +
                       Advice);
        } else if (separated({"&"})) {
            Report(Severity::Warning, "output-not-discarded",
                   std::string("the daemon discards the output of what stands behind the last &, "
                               "and puts that into the background itself") +
                       (outline.commands.size() == 1 ? ": remove the &" : Advice));
        }
    }

    static bool BeginsWithLineEnd(const std::string& command) {
        const std::size_t first = command.find_first_not_of(" \t");
        return first != std::string::npos && command[first] == '\n';
    }

    void Overridden(const ShellCommand& last) const {
        if (!last.outputTo.empty() && last.outputTo.front() == '/' &&
            last.outputTo != "/dev/null") {
            Report(Severity::Warning, "output-overridden",
                   "the daemon's redirection comes later, and " + Quoted(last.outputTo) +
                       " stays without the output: write sh -c '...' around the command");
        }
    }

    // The first of them is nohup, which knows neither assignments nor what a shell has built in.
    void Programs(const std::vector<StartedProgram>& programs) const {
        if (programs.size() > 1 && !CanBeRunByNohup(programs[1])) {
            return;
        }
        for (std::size_t i = 1; i < programs.size(); ++i) {
            const std::string missing = MissingProgram(subject_.machine, programs[i]);
            if (!missing.empty()) {
                Report(Severity::Warning, "command-not-found",
                       NotFound(subject_.machine, missing) +
                           (programs[i].decides
                                ? ": the remedy is reported as started and does nothing"
                                : ": this part of the remedy does nothing, silently"));
                return;
            }
        }
    }

    bool CanBeRunByNohup(const StartedProgram& program) const {
        const ShellWord& word = program.words.front();
        if (program.byShell || !word.isExact || FindProgram(subject_.machine, word.text) != "") {
            return true;
        }
        const bool isAssignment = IsAssignment(word.text);
        if (!isAssignment && !IsShellBuiltin(word.text) && word.text != "!") {
            return true;
        }
        Report(Severity::Warning, "nohup-cannot-run",
               "nohup starts programs, and " + Quoted(word.text) +
                   (isAssignment ? " is an assignment" : " is built into the shell") +
                   ": it is not run, silently" + Advice);
        return false;
    }

    void Block(const char* attribute, const std::string& path) const {
        if (path.empty()) {
            return;
        }
        const auto report = [&](Severity severity, const char* code, const std::string& text) {
            subject_.Report(element_, attribute, severity, code, Quoted(path) + text);
        };
        if (const auto objection = ObjectionTo(path)) {
            subject_.Report(element_, attribute, Severity::Warning, objection->code,
                            objection->text);
        } else if (IsDirectory(path) == Answer::Yes) {
            report(Severity::Warning, "block-is-directory",
                   " is a directory, and keeps the remedy from running as long as it is there: "
                   "write the path of a file");
        } else if (Exists(path) == Answer::Yes) {
            report(Severity::Note, "block-in-force",
                   " is there now, and keeps the remedy from running: remove it when the "
                   "maintenance is over");
        } else if (IsDirectory(std::filesystem::path(path).parent_path()) == Answer::No) {
            report(Severity::Warning, "block-directory-missing",
                   " is in a directory that is missing: make it, or nobody can block the remedy");
        }
    }

    const LintSubject& subject_;
    const TiXmlElement& element_;
    const DogAction& remedy_;
};

}  // namespace

void FindRemedyTraps(const LintSubject& subject) {
    for (const LintedJob& job : subject.jobs) {
        RemedyTraps(subject, job).Find();
    }
}

}  // namespace kennly
