#pragma once

#include <string>

namespace kennly {

/// Whether the shell that system() uses can parse `line`. It runs nothing of it. True when the
/// shell cannot be asked. Any thread may call it.
bool ShellAccepts(const std::string& line);

}  // namespace kennly
