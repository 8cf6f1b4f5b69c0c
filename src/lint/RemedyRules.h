#pragma once

#include "lint/Rules.h"

namespace kennly {

/// Remedies: what nohup and the shell make of their commands, and their block files.
void FindRemedyTraps(const LintSubject& subject);

}  // namespace kennly
