#pragma once

#include "lint/Rules.h"

namespace kennly {

/// The root and the jobs as a whole: limits, thresholds, names, how many there are.
void FindJobTraps(const LintSubject& subject);

}  // namespace kennly
