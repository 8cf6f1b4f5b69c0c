#pragma once

#include "lint/Rules.h"

namespace kennly {

/// Checks of any type: parameters, delays, and the files that file checks watch.
void FindCheckTraps(const LintSubject& subject);

}  // namespace kennly
