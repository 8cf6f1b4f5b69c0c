#pragma once

#include "lint/Rules.h"

namespace kennly {

/// Who but root could change what the daemon runs as root: the installation's files and
/// directories, and the programs that the configuration names by their paths.
void FindOwnershipTraps(const LintSubject& subject);

}  // namespace kennly
