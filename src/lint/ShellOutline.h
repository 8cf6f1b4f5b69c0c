#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kennly {

/// A word of a command, as the shell would have it without its quotes. What the shell would replace
/// (variables, output of commands, patterns) stands as it was written.
struct ShellWord {
    std::string text;
    bool isExact = true;        // nothing in it would be replaced, nor is it a function of the line
    bool isAssignment = false;  // has the form NAME=value
};

/// One command of a list that is not inside a group, a function or another command.
struct ShellCommand {
    std::vector<ShellWord> words;  // without redirections
    bool isCompound = false;       // a group, a loop, a condition: its words are not listed
    bool redirectsOutput = false;  // its standard output, somewhere else
    bool redirectsInput = false;
    std::string outputTo;   // the last file that its standard output goes to, or a descriptor
    std::string separator;  // what follows: "&&", "||", "|", ";", "&", a newline, or nothing
};

/// A command line as far as it takes to see what becomes of text that is put before and behind it.
struct ShellOutline {
    std::vector<ShellCommand> commands;
    bool hasComment = false;       // at the end, which would swallow what is put behind
    bool endsInBackslash = false;  // which takes what follows as it stands
};

/// Outlines `line` as a POSIX shell reads it. Any text is taken; of one that is no valid line, the
/// outline is a guess. Any thread may call it.
ShellOutline OutlineShell(std::string_view line);

/// The words of a command that name the program and its arguments: without assignments and "!"
/// before it.
std::vector<ShellWord> ProgramWords(const ShellCommand& command);

/// Whether `word`, as it is written, has the form NAME=value.
bool IsAssignment(std::string_view word);

/// Whether `name` is built into the shell, or one of its reserved words.
bool IsShellBuiltin(std::string_view name);

}  // namespace kennly
