#pragma once

#include <string>

namespace kennly {

/// How deep elements of a configuration file may nest. TinyXML parses by recursion: tens of
/// thousands of levels would overflow the stack and end the process. Three levels are all that a
/// job needs.
inline constexpr int MaxNesting = 500;

/// How many attributes one element of a configuration file may have. TinyXML compares each with all
/// before it: a hundred thousand of them, in a file of a megabyte, would take it a minute without a
/// heartbeat. Five are all that a remedy needs.
inline constexpr int MaxAttributes = 1000;

/// Tells whether TinyXML can be given the file at `path` without harm.
///
/// Returns a description of the problem, or an empty text when there is none: the file cannot be
/// opened and read to its end ("Failed to open file", as TinyXML has it), it is not a regular one
/// (a FIFO would block for ever, a directory takes all memory), its elements nest deeper than
/// MaxNesting, one of them has more attributes than MaxAttributes, or it is UTF-8 and ends inside a
/// character. All other faults are left to TinyXML's own verdict. Throws std::bad_alloc or
/// std::length_error for a file that does not fit into memory. Any thread may call it.
std::string InspectConfigFile(const char* path);

}  // namespace kennly
