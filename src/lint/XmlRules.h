#pragma once

#include "lint/Rules.h"

namespace kennly {

/// What the parser makes of the text, and what its author will not have meant: characters that are
/// dropped, elements that stand where nobody looks, what other parsers of XML would refuse.
void FindXmlTraps(const LintSubject& subject);

}  // namespace kennly
