#pragma once

#include "ctl/Output.h"

namespace kennly {

/// Reads the command line of kennlyctl and runs the verb that it names. Returns the exit status:
/// the verb's, 0 after help or the version, ExitUsage with a sentence on `output.err` for a command
/// line that cannot be read, ExitCannotCreate when `output.out` does not take what was written,
/// ExitSoftware when something threw. Never throws.
/// Main thread only.
int RunKennlyctl(int argumentCount, const char* const* arguments, const Output& output);

}  // namespace kennly
