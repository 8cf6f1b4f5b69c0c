#pragma once

#include "lint/Rules.h"

namespace kennly {

/// Checks that watch the daemon's own heartbeats.
void FindTreeTraps(const LintSubject& subject);

}  // namespace kennly
