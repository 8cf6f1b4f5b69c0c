#pragma once

#include <ostream>

namespace kennly {

/// Reads the options and sets `foregroundMode`, `childMode`, `watcherMode`, `createWatcher`,
/// `configDir` and `configFile`.
///
/// Returns false at the first argument that is no option. With no argument at all it changes
/// nothing: such a process is always a plain parent, which reads no configuration. Main thread
/// only.
///
/// Deliberate: only the first two characters of an argument count, so that "-fast" is "-f".
bool ReadCommandLine(int argumentCount, const char* const* arguments);

/// Writes the four lines of the usage text to `out`.
void WriteUsage(std::ostream& out);

}  // namespace kennly
