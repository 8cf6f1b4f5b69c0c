#pragma once

#include "lint/Rules.h"

namespace kennly {

/// What the shell makes of the command of a check, with what the daemon puts around it.
void FindCommandTraps(const LintSubject& subject);

}  // namespace kennly
