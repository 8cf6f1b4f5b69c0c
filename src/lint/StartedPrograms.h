#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lint/Machine.h"
#include "lint/ShellOutline.h"

namespace kennly {

/// A program that a line for the shell has started: named there, or behind timeout, env and their
/// like, or in the script that is given to a shell.
struct StartedProgram {
    std::vector<ShellWord> words;  // its name and its arguments; never empty
    bool byShell = true;     // else by a program, which knows nothing that is built into a shell
    bool bySh = true;        // by /bin/sh, or a shell that was called sh
    bool isFindable = true;  // is looked for where the line itself is, as far as one can tell
    bool decides = true;     // should it be missing, that is the status of the whole line
    bool hasInput = false;   // from a pipe or a redirection
    bool hasDefaultSignals = false;  // env has been told not to leave them ignored
};

/// The programs that `line` has started, in its order. Those in loops, conditions, groups and
/// replacements are left out, and so is all of a line with a here-document or a function, of which
/// only the shell knows where they end; and what stands behind more than 49 others that start it.
/// Any thread may call it.
std::vector<StartedProgram> ProgramsStartedBy(const std::string& line);

/// The name of `program` when the machine has none of that name; empty when it has one, when it is
/// or may be built into the shell that starts it, when only the shell can tell, and when this
/// process may not look for it.
std::string MissingProgram(const Machine& machine, const StartedProgram& program);

/// The sentence that `program` is not found, and where it was looked for.
std::string NotFound(const Machine& machine, const std::string& program);

/// The scripts in `line` that are given to sh with -c, and those in them. Any thread may call it.
std::vector<std::string> ScriptsIn(const std::string& line);

/// The words of the program that does the work of `command`: behind timeout, env and their like.
/// Empty for a command without words. Any thread may call it.
std::vector<ShellWord> WorkingWords(const ShellCommand& command);

/// Whether the last line of `line` is the end of a here-document. Any thread may call it.
bool EndsInHereDocument(const std::string& line);

/// `path` without the directories before it.
std::string_view BaseName(std::string_view path);

}  // namespace kennly
