#include "lint/ShellOutline.h"

#include <algorithm>
#include <set>
#include <utility>

#include "lint/Words.h"

namespace kennly {

namespace {

bool Opens(std::string_view word) {
    return IsAmong(word, {"{", "if", "while", "until", "for", "case"});
}

bool Closes(std::string_view word) {
    return IsAmong(word, {"}", "fi", "done", "esac"});
}

// Behind these a command begins.
bool LeadsToCommand(std::string_view word) {
    return IsAmong(word, {"then", "do", "else", "elif", "!"});
}

bool IsBetweenWords(char c) {
    return c == ' ' || c == '\t';
}

bool EndsWord(char c) {
    return IsBetweenWords(c) || c == '\n' || c == ';' || c == '&' || c == '|' || c == '<' ||
           c == '>' || c == '(' || c == ')';
}

bool IsReplaced(char c) {
    return c == '$' || c == '`' || c == '*' || c == '?' || c == '[' || c == '~';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsNumber(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), IsDigit);
}

struct HereDocument {
    std::string end;
    bool ignoresTabs;  // those before its lines
};

class Scanner {
public:
    explicit Scanner(std::string_view line) : rest_(line) {}

    ShellOutline Scan() {
        while (!rest_.empty()) {
            ScanNext();
        }
        EndCommand("");
        MarkFunctions();
        return std::move(outline_);
    }

private:
    void ScanNext() {
        const char c = rest_.front();
        if (IsBetweenWords(c)) {
            rest_.remove_prefix(1);
        } else if (rest_.substr(0, 2) == "\\\n") {
            rest_.remove_prefix(2);
        } else if (c == '#') {
            SkipComment();
        } else if (c == '\n' || c == ';' || c == '&' || c == '|') {
            ScanSeparator();
        } else if (c == '(' || c == ')') {
            ScanParenthesis();
        } else if (c == '<' || c == '>') {
            ScanRedirection("");
        } else {
            ScanWordOrRedirection();
        }
    }

    bool AtTop() const { return groups_.empty(); }

    void SkipComment() {
        const std::size_t end = rest_.find('\n');
        outline_.hasComment = end == std::string_view::npos;
        rest_.remove_prefix(std::min(end, rest_.size()));
    }

    void ScanSeparator() {
        const std::string_view two = rest_.substr(0, 2);
        const std::size_t size = two == "&&" || two == "||" || two == ";;" ? 2 : 1;
        const std::string separator(rest_.substr(0, size));
        rest_.remove_prefix(size);
        atCommand_ = true;
        inPattern_ = inPattern_ || (separator == ";;" && !AtTop() && groups_.back() == "case");
        if (AtTop()) {
            EndCommand(separator);
        }
        if (separator == "\n") {
            SkipDocuments();
        }
    }

    void ScanParenthesis() {
        const char sign = rest_.front();
        rest_.remove_prefix(1);
        atCommand_ = true;
        if (inPattern_) {
            inPattern_ = sign == '(';
        } else if (sign == '(') {
            NoteFunction();
            command_.isCompound = true;
            groups_.emplace_back("(");
        } else if (!AtTop()) {
            groups_.pop_back();
        }
    }

    void NoteFunction() {
        if (AtTop() && !command_.isCompound && command_.words.size() == 1) {
            functions_.insert(command_.words.front().text);
        }
    }

    void MarkFunctions() {
        for (ShellCommand& command : outline_.commands) {
            for (ShellWord& word : command.words) {
                word.isExact = word.isExact && functions_.count(word.text) == 0;
            }
        }
    }

    void ScanRedirection(std::string_view descriptor) {
        const std::string_view signs =
            rest_.substr(0, std::min(rest_.find_first_not_of("<>&|"), rest_.size()));
        rest_.remove_prefix(signs.size());
        const bool ignoresTabs = signs == "<<" && rest_.substr(0, 1) == "-";
        rest_.remove_prefix(ignoresTabs ? 1 : 0);
        while (!rest_.empty() && IsBetweenWords(rest_.front())) {
            rest_.remove_prefix(1);
        }
        const std::string where = ScanWord().text;
        if (signs == "<<") {
            documents_.push_back({where, ignoresTabs});
        }
        if (AtTop()) {
            const bool isOutput = signs.front() == '>';
            if (isOutput && (descriptor.empty() || descriptor == "1")) {
                command_.redirectsOutput = true;
                command_.outputTo = where;
            }
            command_.redirectsInput |= !isOutput && (descriptor.empty() || descriptor == "0");
        }
        atCommand_ = false;
    }

    // The input that stands in the line itself, up to a line with its mark.
    void SkipDocuments() {
        for (const HereDocument& document : documents_) {
            for (bool isEnd = false; !isEnd && !rest_.empty();) {
                std::string_view line = rest_.substr(0, rest_.find('\n'));
                rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
                while (document.ignoresTabs && line.substr(0, 1) == "\t") {
                    line.remove_prefix(1);
                }
                isEnd = line == document.end;
            }
        }
        documents_.clear();
    }

    void ScanWordOrRedirection() {
        const std::string_view before = rest_;
        ShellWord word = ScanWord();
        const std::string_view written = before.substr(0, before.size() - rest_.size());
        if (IsNumber(written) && !rest_.empty() && (rest_.front() == '<' || rest_.front() == '>')) {
            ScanRedirection(written);
            return;
        }
        if (TakeReservedWord(written)) {
            return;
        }
        atCommand_ = false;
        if (AtTop()) {
            word.isAssignment = IsAssignment(written);
            command_.words.push_back(word);
        }
    }

    // Returns whether it is no word of a command. Quotes make a reserved word an ordinary one.
    bool TakeReservedWord(std::string_view word) {
        if (inPattern_) {
            if (word == "esac") {
                TakeEnd();
            }
            return true;
        }
        if (wordsBeforePattern_ > 0) {  // the subject of a "case", and "in"
            inPattern_ = --wordsBeforePattern_ == 0;
            return true;
        }
        if (!atCommand_) {
            return false;
        }
        if (Opens(word)) {
            command_.isCompound = true;
            groups_.emplace_back(word);
            wordsBeforePattern_ = word == "case" ? 2 : 0;
            atCommand_ = word != "for";
            return true;
        }
        if (Closes(word)) {
            TakeEnd();
            return true;
        }
        return LeadsToCommand(word);
    }

    void TakeEnd() {
        inPattern_ = false;
        if (!AtTop()) {
            groups_.pop_back();
        }
    }

    ShellWord ScanWord() {
        ShellWord word;
        while (!rest_.empty() && !EndsWord(rest_.front())) {
            const char c = rest_.front();
            rest_.remove_prefix(1);
            if (c == '\\') {
                TakeEscaped(word);
            } else if (c == '\'') {
                TakeSingleQuoted(word);
            } else if (c == '"') {
                TakeDoubleQuoted(word);
            } else {
                TakePlain(c, word);
            }
        }
        return word;
    }

    void TakeEscaped(ShellWord& word) {
        if (rest_.empty()) {
            outline_.endsInBackslash = true;
            return;
        }
        if (rest_.front() != '\n') {
            word.text += rest_.front();
        }
        rest_.remove_prefix(1);
    }

    void TakeSingleQuoted(ShellWord& word) {
        const std::size_t end = std::min(rest_.find('\''), rest_.size());
        word.text += rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
    }

    void TakeDoubleQuoted(ShellWord& word) {
        while (!rest_.empty() && rest_.front() != '"') {
            const char c = rest_.front();
            rest_.remove_prefix(1);
            if (c == '\\' && !rest_.empty()) {
                if (std::string_view("$`\"\\\n").find(rest_.front()) == std::string_view::npos) {
                    word.text += c;
                }
                TakeEscaped(word);
            } else {
                TakeReplacement(c, true, word);
                word.isExact = word.isExact && c != '$' && c != '`';
            }
        }
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
    }

    void TakePlain(char c, ShellWord& word) {
        TakeReplacement(c, false, word);
        word.isExact = word.isExact && !IsReplaced(c);
    }

    char Take(ShellWord& word) {
        const char c = rest_.front();
        word.text += c;
        rest_.remove_prefix(1);
        return c;
    }

    // With the whole of "$(...)", "${...}" or "`...`", in which blanks and operators mean nothing
    // to the command around it.
    void TakeReplacement(char c, bool isQuoted, ShellWord& word) {
        word.text += c;
        std::string ends = EndOfReplacement(c, word);  // of all that is open, the innermost last
        while (!ends.empty() && !rest_.empty()) {
            TakeReplaced(ends, isQuoted, word);
        }
    }

    // What ends the replacement that `c` begins, if it does.
    std::string EndOfReplacement(char c, ShellWord& word) {
        if (c == '`') {
            return "`";
        }
        if (c != '$' || rest_.empty() || (rest_.front() != '(' && rest_.front() != '{')) {
            return "";
        }
        return Take(word) == '(' ? ")" : "}";
    }

    void TakeReplaced(std::string& ends, bool isQuoted, ShellWord& word) {
        const char innermost = ends.back();
        const char c = Take(word);
        if (c == innermost) {
            ends.pop_back();
            return;
        }
        if (innermost == '\'') {
            return;
        }
        if (c == '\\' && !rest_.empty()) {
            Take(word);
        } else if (innermost == '`') {
            return;
        } else if (c == '"' || (c == '\'' && KnowsSingleQuotes(ends, isQuoted))) {
            ends += c;
        } else if (c == '(' && innermost == ')') {
            ends += ')';
        } else {
            ends += EndOfReplacement(c, word);
        }
    }

    // They are ordinary characters between double quotes.
    static bool KnowsSingleQuotes(const std::string& ends, bool isQuoted) {
        const std::size_t quotes = ends.find_last_of(")\"");
        return quotes == std::string::npos ? !isQuoted : ends[quotes] == ')';
    }

    void EndCommand(const std::string& separator) {
        const bool isEmpty = command_.words.empty() && !command_.isCompound &&
                             !command_.redirectsInput && !command_.redirectsOutput;
        if (!isEmpty) {
            command_.separator = separator;
            if (command_.isCompound) {
                command_.words.clear();  // the name of a function
            }
            outline_.commands.push_back(command_);
        } else if (separator != "\n" && !separator.empty() && !outline_.commands.empty()) {
            outline_.commands.back().separator = separator;
        }
        command_ = {};
        atCommand_ = true;
    }

    std::string_view rest_;
    ShellOutline outline_;
    ShellCommand command_;
    std::vector<std::string> groups_;      // those that are open, by the words that open them
    std::vector<HereDocument> documents_;  // whose text begins behind the next line end
    std::set<std::string> functions_;      // which the line defines
    bool atCommand_ = true;                // the next word may be a reserved one
    bool inPattern_ = false;               // of a "case"
    int wordsBeforePattern_ = 0;
};

}  // namespace

ShellOutline OutlineShell(std::string_view line) {
    return Scanner(line).Scan();
}

std::vector<ShellWord> ProgramWords(const ShellCommand& command) {
    auto begin = command.words.begin();
    while (begin != command.words.end() && begin->isAssignment) {
        ++begin;
    }
    return {begin, command.words.end()};
}

bool IsAssignment(std::string_view word) {
    const std::string_view name = word.substr(0, word.find('='));
    return name.size() < word.size() && !name.empty() && !IsDigit(name.front()) &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsDigit(c) || c == '_';
           });
}

bool IsShellBuiltin(std::string_view name) {
    return IsAmong(
        name, {"!",       ".",      ":",       "[",        "alias",    "bg",     "break",  "case",
               "cd",      "chdir",  "command", "continue", "do",       "done",   "echo",   "elif",
               "else",    "esac",   "eval",    "exec",     "exit",     "export", "false",  "fg",
               "fi",      "for",    "getopts", "hash",     "if",       "in",     "jobs",   "kill",
               "local",   "printf", "pwd",     "read",     "readonly", "return", "set",    "shift",
               "test",    "then",   "times",   "trap",     "true",     "type",   "ulimit", "umask",
               "unalias", "unset",  "until",   "wait",     "while",    "{",      "}"});
}

}  // namespace kennly
