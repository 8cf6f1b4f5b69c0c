#include "lint/OwnershipRules.h"

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string_view>

#include "action/DogAction.h"
#include "lint/StartedPrograms.h"
#include "lint/Wording.h"
#include "lint/Words.h"
#include "watch/DogWatch.h"

namespace kennly {

namespace {

// Why others than root can change what is at `path`; empty when only root can, or there is nothing.
std::string Weakness(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return "";
    }
    if (status.st_uid != 0) {
        return "does not belong to root";
    }
    // In a sticky directory, others can change nothing but what is theirs.
    const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    if ((status.st_mode & S_IWOTH) != 0 && !isSticky) {
        return "can be written by everybody";
    }
    if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0 && !isSticky) {
        return "can be written by a group other than root";
    }
    return "";
}

struct WeakPlace {
    std::string path;  // empty: there is none
    std::string weakness;
};

// The place itself, or the nearest directory above it, by which others can exchange it.
WeakPlace FindWeakPlace(std::filesystem::path path) {
    for (;;) {
        const std::string weakness = Weakness(path);
        if (!weakness.empty()) {
            return {path, weakness};
        }
        if (!path.has_relative_path()) {
            return {};
        }
        path = path.parent_path();
    }
}

void CheckInstalled(const LintSubject& subject) {
    const Machine& machine = subject.machine;
    std::set<std::string> reported;
    for (const std::string& path :
         {machine.configDirectory, machine.recordDirectory, machine.heartbeatDirectory,
          subject.watcher ? machine.watcherConfig : machine.mainConfig}) {
        const WeakPlace weak = FindWeakPlace(path);
        if (!weak.path.empty() && reported.insert(weak.path).second) {
            subject.findings.push_back({{},
                                        Severity::Warning,
                                        "not-roots-alone",
                                        weak.path + " " + weak.weakness +
                                            ", and decides what root runs: give it to root, and "
                                            "chmod go-w"});
        }
    }
}

bool IsInterpreter(const ShellWord& program) {
    return IsAmong(BaseName(program.text), {"sh", "dash", "bash", "ksh", "zsh", "perl", "python",
                                            "python3", "ruby", "php", "node"});
}

bool IsShell(const ShellWord& program) {
    const std::string_view name = BaseName(program.text);
    return name.size() >= 2 && name.substr(name.size() - 2) == "sh";
}

// The script that an interpreter is given; empty when it is given none, or gets it as a text.
std::string ScriptFileIn(const std::vector<ShellWord>& words) {
    const char* const optionsWithText = IsShell(words.front()) ? "c" : "cemr";
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string& text = words[i].text;
        if (text.size() > 1 && text.front() == '-') {
            if (text[1] != '-' && text.find_first_of(optionsWithText) != std::string::npos) {
                return "";
            }
            continue;
        }
        return words[i].isExact && !text.empty() && text.front() == '/' ? text : "";
    }
    return "";
}

// The files that root would run for `line`.
std::set<std::string> FilesRunBy(const Machine& machine, const std::string& line) {
    std::set<std::string> files;
    for (const StartedProgram& program : ProgramsStartedBy(line)) {
        const ShellWord& name = program.words.front();
        const bool isBuiltin = program.byShell && IsShellBuiltin(name.text);
        if (name.isExact && program.isFindable && !isBuiltin) {
            files.insert(FindProgram(machine, name.text).value_or(""));
        }
        if (IsInterpreter(name)) {
            files.insert(ScriptFileIn(program.words));
        }
    }
    files.erase("");
    return files;
}

void CheckPrograms(const LintSubject& subject, const TiXmlElement& part, const std::string& line) {
    for (const std::string& file : FilesRunBy(subject.machine, line)) {
        const WeakPlace weak = FindWeakPlace(file);
        if (!weak.path.empty()) {
            subject.Report(ParamOf(part, 0), "value", Severity::Warning, "not-roots-alone",
                           Quoted(weak.path) + " " + weak.weakness + ", and root runs " +
                               (weak.path == file ? "it" : Quoted(file) + " in it") +
                               ": give it to root, and chmod go-w");
        }
    }
}

}  // namespace

void FindOwnershipTraps(const LintSubject& subject) {
    CheckInstalled(subject);
    for (const LintedJob& job : subject.jobs) {
        if (job.job->check->type == CheckTypeCommandResult && !job.job->check->params.empty()) {
            CheckPrograms(subject, *job.elements.check, job.job->check->params.front());
        }
        if (!job.job->remedy->params.empty()) {
            CheckPrograms(subject, *job.elements.remedy, job.job->remedy->params.front());
        }
    }
}

}  // namespace kennly
