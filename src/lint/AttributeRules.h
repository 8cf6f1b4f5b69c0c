#pragma once

#include "lint/Rules.h"

namespace kennly {

/// Attributes that nobody reads, and numbers that are read as others than they look.
void FindAttributeTraps(const LintSubject& subject);

}  // namespace kennly
