#include "lint/CommandRules.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "config/ElementParser.h"
#include "job/ResultCode.h"
#include "lint/ShellOutline.h"
#include "lint/ShellSyntax.h"
#include "lint/StartedPrograms.h"
#include "lint/Wording.h"
#include "lint/Words.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly {

namespace {

using Words = std::vector<ShellWord>;

bool IsAllBlank(const std::string& command) {
    return std::all_of(command.begin(), command.end(), [](char c) { return IsBlank(c); });
}

// Whether one of the words is that long option, or a group of short ones with that letter.
bool HasOption(const Words& words, std::string_view longName, char letter) {
    return std::any_of(words.begin() + 1, words.end(), [&](const ShellWord& word) {
        const std::string& text = word.text;
        const bool isShort = text.size() > 1 && text[0] == '-' && text[1] != '-';
        return text.substr(0, text.find('=')) == longName ||
               (isShort && text.find(letter) != std::string::npos);
    });
}

// ---- what a command writes

enum class Loudness { Silent, Unknown, Loud };

Loudness LoudnessOf(const ShellCommand& command) {
    if (command.redirectsOutput) {
        return Loudness::Silent;
    }
    const Words words = WorkingWords(command);
    if (words.empty()) {
        return command.isCompound ? Loudness::Unknown : Loudness::Silent;
    }
    const std::string_view name = BaseName(words.front().text);
    if (IsAmong(name, {"test", "[",      "true",  "false",  ":",      "exit",  "sleep",
                       "kill", "cd",     "set",   "export", "umask",  "unset", "shift",
                       "wait", "ulimit", "trap",  "touch",  "mkdir",  "rmdir", "rm",
                       "cp",   "mv",     "ln",    "chmod",  "chown",  "chgrp", "sync",
                       "read", "return", "break", "local",  "logger", "alias", "pkill"})) {
        return Loudness::Silent;
    }
    if (IsAmong(name, {".", "eval", "exec"})) {
        return Loudness::Unknown;
    }
    if (IsAmong(name, {"grep", "egrep", "fgrep", "zgrep", "systemctl", "mountpoint", "pidof"}) &&
        HasOption(words, "--quiet", 'q')) {
        return Loudness::Silent;
    }
    if (name == "cmp" && HasOption(words, "--quiet", 's')) {
        return Loudness::Silent;
    }
    return Loudness::Loud;
}

// Those that neither wait for anything nor take long.
bool IsQuick(const ShellCommand& command) {
    const Words words = command.isCompound ? Words() : ProgramWords(command);
    return !words.empty() &&
           IsAmong(BaseName(words.front().text), {"test", "[", "true", "false", ":", "exit", "cd"});
}

// ---- what a command reads

// How many arguments that are no options a program must have not to read its input; 0 for one that
// never does, or of which that cannot be told.
std::size_t OperandsWithoutInput(const Words& words) {
    static const std::map<std::string_view, std::size_t> operands = {
        {"cat", 1},   {"sort", 1},  {"wc", 1},  {"head", 1}, {"tail", 1}, {"grep", 2},
        {"egrep", 2}, {"fgrep", 2}, {"sed", 2}, {"awk", 2},  {"tr", 99},  {"read", 99}};
    const std::string_view name = BaseName(words.front().text);
    const auto found = operands.find(name);
    if (found == operands.end() || HasOption(words, "--help", '\0') ||
        HasOption(words, "--version", '\0') || HasOption(words, "--files0-from", '\0')) {
        return 0;
    }
    const bool takesScript = found->second == 2;
    if (takesScript && (HasOption(words, "--regexp", 'e') || HasOption(words, "--file", 'f') ||
                        HasOption(words, "--recursive", 'r') || HasOption(words, "-R", 'R') ||
                        HasOption(words, "--expression", 'V'))) {
        return 0;
    }
    if (name == "awk" && words.size() > 1 && words[1].text.find("BEGIN") != std::string::npos) {
        return 0;
    }
    return found->second;
}

bool ReadsInput(const StartedProgram& program) {
    const Words& words = program.words;
    const bool isExact =
        std::all_of(words.begin(), words.end(), [](const ShellWord& word) { return word.isExact; });
    if (program.hasInput || (!isExact && words.front().text != "read")) {
        return false;
    }
    const auto operands = static_cast<std::size_t>(std::count_if(
        words.begin() + 1, words.end(),
        [](const ShellWord& word) { return word.text.empty() || word.text.front() != '-'; }));
    return operands < OperandsWithoutInput(words);
}

// ---- what ends the shell itself

// Also when it fails, as a shell does not outlive the errors of its special commands.
bool MayEndShell(std::string_view name) {
    return IsAmong(name, {"exit", "exec", "set", "trap", ".", "eval", "source", "return", "alias",
                          ":", "readonly", "shift", "kill", "command"});
}

// Some replacements are errors, and end it as well.
bool HasReplacementThatMayFail(std::string_view text) {
    return text.find("$((") != std::string_view::npos ||
           (text.find("${") != std::string_view::npos && text.find('?') != std::string_view::npos);
}

bool MayEndShell(const ShellCommand& command) {
    if (std::any_of(command.words.begin(), command.words.end(), [](const ShellWord& word) {
            return !word.isExact && HasReplacementThatMayFail(word.text);
        })) {
        return true;
    }
    const Words words = ProgramWords(command);
    const bool onlyAsks = words.size() > 1 && words[1].text == "-0";  // kill
    return !words.empty() &&
           (!words.front().isExact || (MayEndShell(words.front().text) && !onlyAsks));
}

// Whether such a name stands anywhere in `line`: the commands of a group are not listed.
bool NamesWhatMayEndShell(std::string_view line) {
    if (HasReplacementThatMayFail(line)) {
        return true;
    }
    constexpr const char* const betweenWords = " \t\n;&|(){}<>`'\"";
    while (!line.empty()) {
        const std::size_t end = std::min(line.find_first_of(betweenWords), line.size());
        if (MayEndShell(line.substr(0, end))) {
            return true;
        }
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return false;
}

// ---- plugins and shells

bool IsPlugin(const StartedProgram& program) {
    return BaseName(program.words.front().text).substr(0, 6) == "check_";
}

bool IsDash() {
    std::error_code error;
    return std::filesystem::canonical("/bin/sh", error).filename() == "dash";
}

// What "[[" and the like are for the shell that commands are given to.
bool IsBashOnly(const StartedProgram& program) {
    return program.byShell && program.bySh && program.words.front().text == "[[" && IsDash();
}

// The signal in the words of a trap that commands of the daemon start with ignored; may be none.
std::string IgnoredSignalIn(const Words& words) {
    if (words.front().text != "trap" || words.size() < 3 || words[1].text.empty()) {
        return "";
    }
    for (std::size_t i = 2; i < words.size(); ++i) {
        const std::string& text = words[i].text;
        const std::string name = text.compare(0, 3, "SIG") == 0 ? text.substr(3) : text;
        if (IsAmong(name, {"HUP", "INT", "QUIT", "USR1", "USR2", "PIPE", "1", "2", "3", "10", "12",
                           "13"})) {
            return text;
        }
    }
    return "";
}

class CommandTraps {
public:
    CommandTraps(const LintSubject& subject, const LintedJob& job)
        : subject_(subject),
          element_(*job.elements.check),
          check_(static_cast<const DogCheckCommandWatch&>(*job.job->check)),
          command_(check_.params.front()),
          outline_(OutlineShell(command_)),
          programs_(ProgramsStartedBy(command_)) {}

    void Find() const {
        if (!IsReadable()) {
            return;
        }
        if (IsAllBlank(command_) || outline_.commands.empty()) {
            Report(Severity::Warning, "never-fails",
                   "nothing is run, which ends with status 0: " + Verdict(0) + "; write a command");
            return;
        }
        if (EndsInHereDocument(command_)) {
            Report(Severity::Warning, "here-document",
                   "the redirection that the daemon puts behind the last line keeps it from ending "
                   "the here-document: write the text to a file, or hand it over with printf and "
                   "a pipe");
            return;
        }
        if (command_.find("<<") ==
            std::string::npos) {  // else nobody but the shell knows its parts
            End();
            List();
            Overridden();
        }
        Programs();
        Input();
        Signals();
        Plugin();
        Timeout();
    }

private:
    void Report(Severity severity, const char* code, const std::string& text) const {
        subject_.Report(ParamOf(element_, 0), "value", severity, code, text);
    }

    const ShellCommand& Last() const { return outline_.commands.back(); }

    std::string Verdict(std::int32_t status) const {
        return check_.Judge(status) == ResultFailed ? "the check always fails"
                                                    : "the check passes for ever";
    }

    bool IsReadable() const {
        const std::vector<std::string> scripts = ScriptsIn(command_);
        const bool lineIsReadable = ShellAccepts(DogCheckCommandWatch::CommandLineOf(command_));
        if (lineIsReadable && std::all_of(scripts.begin(), scripts.end(), ShellAccepts)) {
            return true;
        }
        Report(
            Severity::Warning, "shell-syntax",
            std::string(lineIsReadable ? "sh cannot read the script behind -c"
                                       : "the shell cannot read this") +
                " and ends with status 2" +
                (lineIsReadable && !(IsAlone() && scripts.size() == 1) ? "" : ": " + Verdict(2)) +
                "; look for a quote or a bracket without its twin");
        return false;
    }

    bool IsAlone() const {
        return outline_.commands.size() == 1 && command_.find('!') == std::string::npos;
    }

    // Whether what the daemon puts behind the command becomes a part of a comment.
    bool EndsInComment() const {
        const std::string mark = "/kennly-end-of-command";
        return outline_.hasComment &&
               OutlineShell(command_ + " 1>" + mark).commands.back().outputTo != mark;
    }

    void End() const {
        if (outline_.endsInBackslash) {
            Report(Severity::Warning, "trailing-backslash",
                   "the backslash at the end makes the redirection that the daemon puts behind it "
                   "an argument: remove it");
        }
        if (EndsInComment()) {
            Report(LoudnessOf(Last()) == Loudness::Silent ? Severity::Note : Severity::Warning,
                   "comment-in-command",
                   "what stands behind the # is a comment, and with it the redirection that the "
                   "daemon puts there; the command finds its output closed, and may fail when it "
                   "writes: remove the comment, or write it in the XML");
        }
        NeverFails();
    }

    bool LastOnlyRedirects() const {
        return outline_.commands.size() > 1 && Last().words.empty() && !Last().isCompound &&
               (Last().redirectsOutput || Last().redirectsInput);
    }

    // With what stands behind the last command, the daemon's redirection is a command of its own.
    void NeverFails() const {
        const std::string& separator = Last().separator;
        const bool onlyRedirects = LastOnlyRedirects();
        const bool isEmptyEnd =
            separator == "&" || ((separator == ";" || separator == "\n") && !EndsInComment());
        if ((!isEmptyEnd && !(onlyRedirects && IsDash())) || MayEndEarly()) {
            return;
        }
        const std::string where = onlyRedirects ? "the last command is nothing but a redirection"
                                                : "behind the " +
                                                      (separator == "\n" ? "line end" : separator) +
                                                      " at the end nothing is run";
        Report(Severity::Warning, "never-fails",
               where + ", which ends with status 0: " + Verdict(0) + "; " +
                   (onlyRedirects ? "write >/dev/null 2>&1 in the place of &>" : "remove it"));
    }

    // Whether the shell may leave with another status before it gets to the end.
    bool MayEndEarly() const {
        return std::any_of(
            outline_.commands.begin(), outline_.commands.end(), [&](const ShellCommand& command) {
                return command.separator != "&" &&
                       (command.isCompound ? NamesWhatMayEndShell(command_) : MayEndShell(command));
            });
    }

    void List() const {
        if (LastOnlyRedirects()) {
            return;  // braces around it would change nothing
        }
        Loudness loudest = Loudness::Silent;
        for (const ShellCommand& command : outline_.commands) {
            const bool isFunction = command.isCompound && command_.find("()") != std::string::npos;
            if (&command != &Last() && command.separator != "|" && !isFunction) {
                loudest = std::max(loudest, LoudnessOf(command));
            }
        }
        if (loudest != Loudness::Silent) {
            Report(loudest == Loudness::Loud ? Severity::Warning : Severity::Note,
                   "list-without-braces",
                   "only the last command has its output discarded; the others find theirs closed, "
                   "and may fail when they write: write { " +
                       Beginning() + "; }, or sh -c '...'");
        }
    }

    std::string Beginning() const {
        constexpr std::size_t enough = 40;
        std::string quoted = Quoted(command_);
        quoted = quoted.substr(1, quoted.size() - 2);
        return quoted.size() > enough ? "..." : quoted;
    }

    void Overridden() const {
        const std::string& target = Last().outputTo;
        if (!target.empty() && target.front() == '/' && target != "/dev/null" && !EndsInComment()) {
            Report(Severity::Warning, "output-overridden",
                   "the daemon's redirection comes later, and " + Quoted(target) +
                       " stays without the output: write sh -c '...' around the command");
        }
    }

    void Programs() const {
        for (const StartedProgram& program : programs_) {
            if (IsBashOnly(program)) {
                Report(Severity::Warning, "command-not-found",
                       "\"[[\" is not known to sh, which runs the command: " +
                           Consequence(program, "[[") + "; write [ or bash -c '...'");
                return;
            }
            const std::string missing = MissingProgram(subject_.machine, program);
            if (!missing.empty()) {
                Report(Severity::Warning, "command-not-found",
                       NotFound(subject_.machine, missing) + ": " + Consequence(program, missing));
                return;
            }
        }
    }

    std::string Consequence(const StartedProgram& program, const std::string& missing) const {
        constexpr std::int32_t cannotRun = 126;
        constexpr std::int32_t notFound = 127;
        const std::int32_t status =
            missing.find('/') != std::string::npos && Exists(missing) == Answer::Yes ? cannotRun
                                                                                     : notFound;
        return program.decides
                   ? Verdict(status)
                   : "this part of the command ends with status " + std::to_string(status);
    }

    void Input() const {
        const auto reader = std::find_if(programs_.begin(), programs_.end(), ReadsInput);
        if (reader != programs_.end()) {
            Report(Severity::Warning, "reads-input",
                   std::string(BaseName(reader->words.front().text)) +
                       " would read its standard input, which is closed: give it a file, or "
                       "</dev/null");
        }
    }

    void Signals() const {
        for (const StartedProgram& program : programs_) {
            const std::string signal =
                program.hasDefaultSignals ? "" : IgnoredSignalIn(program.words);
            if (!signal.empty()) {
                std::string text = "commands of a daemon in the background start with ";
                text.append(signal)
                    .append(
                        " ignored, and a shell cannot trap such a signal: write env "
                        "--default-signal=")
                    .append(signal)
                    .append(" sh -c '...'");
                Report(Severity::Note, "signal-ignored", text);
                return;
            }
        }
    }

    void Plugin() const {
        const bool isDecidedByPlugin = std::any_of(
            programs_.begin(), programs_.end(),
            [](const StartedProgram& program) { return program.decides && IsPlugin(program); });
        if (!isDecidedByPlugin) {
            return;
        }
        constexpr std::int32_t warning = 1;
        constexpr std::int32_t critical = 2;
        constexpr std::int32_t unknown = 3;
        if (check_.anyNonZeroFails) {
            Report(Severity::Note, "plugin-status",
                   "a WARNING of a plugin, status 1, is a failure as CRITICAL is: write sh -c "
                   "'timeout -k 5 30 PLUGIN; [ $? -le 1 ]' if it should pass");
        } else if (check_.runActionResult >= warning && check_.runActionResult <= unknown) {
            subject_.Report(element_, "runactionresult", Severity::Warning, "plugin-status",
                            std::string("the check passes when the plugin is missing, hangs or "
                                        "ends with ") +
                                (check_.runActionResult == unknown ? "CRITICAL" : "UNKNOWN") +
                                (check_.runActionResult == critical ? "" : " or another status") +
                                ": leave runactionresult out, and write sh -c 'timeout -k 5 30 "
                                "PLUGIN; [ $? -le 1 ]'");
        }
    }

    void Timeout() const {
        const bool allQuick =
            std::all_of(outline_.commands.begin(), outline_.commands.end(), IsQuick);
        if (!allQuick && command_.find("timeout") == std::string::npos) {
            Report(Severity::Note, "no-timeout",
                   "should this command hang, it holds up all jobs: write timeout and a number of "
                   "seconds before it");
        }
    }

    const LintSubject& subject_;
    const TiXmlElement& element_;
    const DogCheckCommandWatch& check_;
    const std::string& command_;
    const ShellOutline outline_;
    const std::vector<StartedProgram> programs_;
};

}  // namespace

void FindCommandTraps(const LintSubject& subject) {
    for (const LintedJob& job : subject.jobs) {
        const DogWatch& check = *job.job->check;
        if (check.type == CheckTypeCommandResult && check.params.size() == 1 &&
            !check.params.front().empty()) {
            CommandTraps(subject, job).Find();
        }
    }
}

}  // namespace kennly
