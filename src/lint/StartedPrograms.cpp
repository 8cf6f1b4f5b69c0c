#include "lint/StartedPrograms.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>

#include "lint/Wording.h"
#include "lint/Words.h"

namespace kennly {

namespace {

using Words = std::vector<ShellWord>;

bool IsOption(const ShellWord& word) {
    return word.text.size() > 1 && word.text.front() == '-';
}

// ---- programs that start another

struct Wrapper {
    std::string_view name;
    std::string_view valueLetters;  // options that take the next word
    std::string_view otherLetters;  // options with which it starts nothing that could be told
    std::size_t operands;           // before the program
    bool takesAssignments;
    bool looksElsewhere;  // for the program
};

constexpr std::array<Wrapper, 15> Wrappers = {{
    {"timeout", "ks", "", 1, false, false},
    {"nice", "n", "", 0, false, false},
    {"ionice", "cn", "pPu", 0, false, false},
    {"chrt", "TPD", "pm", 1, false, false},
    {"taskset", "", "p", 1, false, false},
    {"env", "uC", "S", 0, true, false},
    {"nohup", "", "", 0, false, false},
    {"setsid", "", "", 0, false, false},
    {"stdbuf", "ioe", "", 0, false, false},
    {"flock", "wE", "cu", 1, false, false},
    {"time", "fo", "", 0, false, false},
    {"exec", "a", "", 0, false, false},
    {"command", "", "vV", 0, false, false},
    {"sudo", "ugpCDRTrth", "eilsvVkK", 0, true, true},
    {"runuser", "ug", "cls", 0, false, true},
}};

bool TakesValue(std::string_view longOption) {
    return IsAmong(longOption,
                   {"--kill-after", "--signal", "--adjustment", "--class", "--classdata", "--unset",
                    "--chdir", "--user", "--group", "--timeout", "--wait", "--conflict-exit-code",
                    "--output", "--input", "--error", "--format"});
}

const Wrapper* FindWrapper(const ShellWord& program) {
    const auto* const found =
        std::find_if(Wrappers.begin(), Wrappers.end(), [&](const Wrapper& each) {
            return program.isExact && each.name == BaseName(program.text);
        });
    return found != Wrappers.end() ? found : nullptr;
}

// How many words the option at the front takes; none when it changes what the wrapper does.
std::optional<std::size_t> SizeOfOption(const Wrapper& wrapper, const ShellWord& option) {
    if (option.text.compare(0, 2, "--") == 0) {
        return TakesValue(option.text) ? 2 : 1;
    }
    for (std::size_t i = 1; i < option.text.size(); ++i) {
        if (wrapper.otherLetters.find(option.text[i]) != std::string_view::npos) {
            return std::nullopt;
        }
        if (wrapper.valueLetters.find(option.text[i]) != std::string_view::npos) {
            return i + 1 < option.text.size() ? 1 : 2;
        }
    }
    return 1;
}

// Whether it has the program started in another directory.
bool ChangesDirectory(const Wrapper& wrapper, const ShellWord& option) {
    const std::string& text = option.text;
    if (text.compare(0, 2, "--") == 0) {
        return text.compare(0, 7, "--chdir") == 0;
    }
    const std::size_t letter = text.find_first_of(wrapper.valueLetters, 1);
    return wrapper.name == "env" && letter != std::string::npos && text[letter] == 'C';
}

struct Stage {
    std::size_t begin = 0;  // of its words
    bool looksElsewhere = false;
    bool changesDirectory = false;
};

// Goes behind the options at `stage.begin`. Returns false when one changes what the wrapper does.
bool SkipOptions(const Wrapper& wrapper, const Words& words, Stage& stage) {
    std::size_t& at = stage.begin;
    while (at < words.size() && IsOption(words[at])) {
        if (words[at].text == "--") {
            ++at;
            break;
        }
        const auto size = words[at].isExact ? SizeOfOption(wrapper, words[at]) : std::nullopt;
        if (!size) {
            return false;
        }
        stage.changesDirectory |= ChangesDirectory(wrapper, words[at]);
        at += *size;
    }
    const bool hasDash = wrapper.name == "env" && at < words.size() && words[at].text == "-";
    at += hasDash ? 1 : 0;
    return true;
}

// What the program at `begin` of the words starts with the rest of them.
std::optional<Stage> StageBehind(const Words& words, std::size_t begin) {
    const Wrapper* const wrapper = FindWrapper(words[begin]);
    Stage stage;
    stage.begin = begin + 1;
    if (wrapper == nullptr || !SkipOptions(*wrapper, words, stage)) {
        return std::nullopt;
    }
    stage.looksElsewhere = wrapper->looksElsewhere;
    std::size_t& at = stage.begin;
    for (std::size_t i = 0; i < wrapper->operands; ++i, ++at) {
        if (at < words.size() && !words[at].isExact) {
            return std::nullopt;  // may become options, or nothing
        }
    }
    while (wrapper->takesAssignments && at < words.size() && IsAssignment(words[at].text)) {
        stage.looksElsewhere |= words[at].text.compare(0, 5, "PATH=") == 0;
        ++at;
    }
    if (at >= words.size() || words[at].text.empty() || IsOption(words[at])) {
        return std::nullopt;
    }
    return stage;
}

Words From(std::size_t begin, const Words& words) {
    return {words.begin() + static_cast<std::ptrdiff_t>(begin), words.end()};
}

// ---- shells that are given a script

bool IsShell(const ShellWord& program) {
    return program.isExact && IsAmong(BaseName(program.text), {"sh", "dash", "bash", "ksh", "zsh"});
}

bool IsPlainShell(const ShellWord& program) {
    return IsAmong(BaseName(program.text), {"sh", "dash"});
}

// Nothing when there is none, and when the shell around it replaces something in it.
std::optional<std::string> ScriptOf(const Words& words) {
    if (!IsShell(words.front())) {
        return std::nullopt;
    }
    for (std::size_t at = 1; at + 1 < words.size() && IsOption(words[at]); ++at) {
        const std::string& option = words[at].text;
        if (option.compare(0, 2, "--") != 0 && option.find('c') != std::string::npos) {
            const ShellWord& script = words[at + 1];
            return script.isExact ? std::optional(script.text) : std::nullopt;
        }
        at += option == "-o" ? 1 : 0;
    }
    return std::nullopt;
}

// ---- what only the shell can tell

// In what precedes a program, whatever may have it look for the program somewhere else.
bool ChangesSearch(const Words& words) {
    const std::string& program = words.front().text;
    return IsAmong(program, {".", "source", "eval", "alias", "exit"}) ||
           std::any_of(words.begin(), words.end(),
                       [](const ShellWord& word) { return word.text.compare(0, 5, "PATH=") == 0; });
}

// Whether the shell itself starts what is behind the name; others than sh time in this way as well.
bool IsOfShell(const StartedProgram& program) {
    const std::string& name = program.words.front().text;
    return name == "command" || (name == "time" && !program.bySh);
}

bool ResetsSignals(const Words& words) {
    return std::any_of(words.begin(), words.end(), [](const ShellWord& word) {
        return word.text.compare(0, 16, "--default-signal") == 0;
    });
}

bool IsQuestion(const Words& words) {
    return IsAmong(BaseName(words.front().text), {"test", "[", "command", "which", "type", "hash"});
}

bool IsNegated(const std::string& line) {
    const std::size_t at = line.find_first_not_of(" \t");
    return at != std::string::npos && line[at] == '!';
}

bool HasFunction(const std::string& line) {
    return line.find("()") != std::string::npos;
}

// What has been changed by all that stood before.
struct Changes {
    bool search = false;     // where programs are looked for
    bool directory = false;  // from which relative paths count
};

class Search {
public:
    explicit Search(std::vector<StartedProgram>& found) : found_(found) {}

    void Look(const std::string& line, StartedProgram start, Changes changes) {
        if (line.find("<<") != std::string::npos || HasFunction(line)) {
            return;
        }
        const ShellOutline outline = OutlineShell(line);
        const std::vector<ShellCommand>& commands = outline.commands;
        const bool isPipeline =
            !IsNegated(line) &&
            std::all_of(commands.begin(), commands.end(), [&](const auto& each) {
                return each.separator == (&each == &commands.back() ? "" : "|");
            });
        start.words.clear();
        bool isPiped = false;
        for (const ShellCommand& command : commands) {
            StartedProgram program = start;
            program.words = command.isCompound ? Words() : ProgramWords(command);
            program.decides &= isPipeline && &command == &commands.back();
            program.hasInput = start.hasInput || isPiped || command.redirectsInput;
            isPiped = command.separator == "|";
            if (!program.words.empty() && !program.words.front().text.empty()) {
                program.isFindable &=
                    command.words.size() == program.words.size() || !ChangesSearch(command.words);
                Take(program, changes);
            }
            if (!command.words.empty()) {
                start.hasInput |= command.redirectsInput && command.words.front().text == "exec";
                Remember(command.words, changes);
            }
        }
    }

private:
    void Remember(const Words& words, Changes& changes) {
        changes.search |= ChangesSearch(words);
        changes.directory |= IsAmong(words.front().text, {"cd", "chdir", "pushd", "popd"});
        if (IsQuestion(words)) {
            for (const ShellWord& word : words) {
                askedFor_.insert(word.text);
            }
        }
    }

    bool IsFindable(const std::string& name, const Changes& changes) const {
        const bool dependsOnDirectory = name.front() != '/' && name.find('/') != std::string::npos;
        return !changes.search && !(changes.directory && dependsOnDirectory) &&
               askedFor_.count(name) == 0;
    }

    // The program, and what it starts.
    void Take(StartedProgram program, Changes changes) {
        constexpr std::size_t mostStages = 50;  // each has a copy of the words behind it
        const Words words = program.words;
        std::optional<Stage> stage = Stage();
        for (std::size_t i = 0; stage && i < mostStages; ++i) {
            program.words = From(stage->begin, words);
            program.isFindable &= IsFindable(program.words.front().text, changes);
            found_.push_back(program);
            if (const auto script = ScriptOf(program.words)) {
                program.bySh = IsPlainShell(program.words.front());
                program.byShell = true;
                Look(*script, program, changes);
                return;
            }
            stage = StageBehind(words, stage->begin);
            if (stage) {
                program.hasDefaultSignals |= ResetsSignals(program.words);
                program.isFindable &= !stage->looksElsewhere;
                program.byShell &= IsOfShell(program);
                changes.directory |= stage->changesDirectory;
            }
        }
    }

    std::vector<StartedProgram>& found_;
    std::set<std::string> askedFor_;  // whether they are there, by the line itself
};

void AddScriptsIn(const std::string& line, std::vector<std::string>& scripts) {
    for (const ShellCommand& command : OutlineShell(line).commands) {
        const Words words = WorkingWords(command);
        const auto script = words.empty() ? std::nullopt : ScriptOf(words);
        if (script && IsPlainShell(words.front())) {
            scripts.push_back(*script);
            AddScriptsIn(*script, scripts);
        }
    }
}

}  // namespace

std::vector<StartedProgram> ProgramsStartedBy(const std::string& line) {
    std::vector<StartedProgram> found;
    Search(found).Look(line, {}, {});
    return found;
}

std::string MissingProgram(const Machine& machine, const StartedProgram& program) {
    const ShellWord& name = program.words.front();
    // Nobody but the other shells themselves knows what is built into them.
    const bool mayBeBuiltin =
        program.byShell &&
        (program.bySh ? IsShellBuiltin(name.text) : name.text.find('/') == std::string::npos);
    if (!program.isFindable || !name.isExact || mayBeBuiltin) {
        return "";
    }
    return FindProgram(machine, name.text) == "" ? name.text : "";
}

std::string NotFound(const Machine& machine, const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return Quoted(program) + " is not there, or cannot be executed";
    }
    return Quoted(program) + " is not in the " +
           (machine.daemonRuns ? "daemon's search path" : "search path") + " (" +
           machine.searchPath + ")";
}

std::vector<std::string> ScriptsIn(const std::string& line) {
    std::vector<std::string> scripts;
    AddScriptsIn(line, scripts);
    return scripts;
}

Words WorkingWords(const ShellCommand& command) {
    const Words words = command.isCompound ? Words() : ProgramWords(command);
    std::size_t begin = 0;
    while (begin < words.size()) {
        const std::optional<Stage> stage = StageBehind(words, begin);
        if (!stage) {
            break;
        }
        begin = stage->begin;
    }
    return From(begin, words);
}

bool EndsInHereDocument(const std::string& line) {
    const std::size_t lastLine = line.rfind('\n');
    if (lastLine == std::string::npos) {
        return false;
    }
    const std::size_t begin = line.find_first_not_of('\t', lastLine + 1);
    const std::string end = begin != std::string::npos ? line.substr(begin) : "";
    for (std::size_t at = line.find("<<"); at < lastLine; at = line.find("<<", at + 2)) {
        const std::size_t word = line.find_first_not_of("<-'\"\\ ", at);
        const std::size_t behind = line.find_first_of("'\" \t\n;&|<>)", word);
        if (!end.empty() && word < lastLine && line.substr(word, behind - word) == end) {
            return true;
        }
    }
    return false;
}

std::string_view BaseName(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace kennly
