#include "lint/AttributeRules.h"
#include "lint/CheckRules.h"
#include "lint/CommandRules.h"
#include "lint/JobRules.h"
#include "lint/OwnershipRules.h"
#include "lint/RemedyRules.h"
#include "lint/Rules.h"
#include "lint/TreeRules.h"
#include "lint/XmlRules.h"

namespace kennly {

void ApplyAllRules(const LintSubject& subject) {
    FindXmlTraps(subject);
    FindAttributeTraps(subject);
    FindJobTraps(subject);
    FindCheckTraps(subject);
    FindCommandTraps(subject);
    FindTreeTraps(subject);
    FindRemedyTraps(subject);
    FindOwnershipTraps(subject);
}

}  // namespace kennly
