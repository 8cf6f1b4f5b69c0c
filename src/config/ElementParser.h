#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "action/DogAction.h"
#include "watch/DogWatch.h"

class TiXmlElement;

namespace kennly {

// The elements of the configuration file below "job". Names of elements and of types are compared
// without regard to case, names of attributes exactly. What is wrong is logged at error priority
// and left out. Only the loader calls these, on the main thread. All throw std::bad_alloc.

/// Whether the name of `element` is `name`, in any letter case.
bool IsNamed(const TiXmlElement& element, const char* name);

/// The number in the attribute `name` of `element`, or `absent` when there is no such attribute.
std::int32_t NumberAttribute(const TiXmlElement& element, const char* name, std::int32_t absent);

/// The code of the check type that `name` stands for, or CheckTypeUnknown.
std::int32_t CheckTypeFromName(const char* name);

/// The code of the remedy type that `name` stands for, or RemedyTypeUnknown.
std::int32_t RemedyTypeFromName(const char* name);

/// A new check from a "check" element of the job `jobName`, or null.
///
/// Logs "check type missing in job" or "check type ... invalid in job" and returns null when there
/// is no usable "type". Logs "check param missing its value in job" for each "param" without
/// "value", which is left out. "runactionresult" counts for CheckCommandResult only.
std::unique_ptr<DogWatch> ParseCheck(const std::string& jobName, const TiXmlElement& element);

/// A new remedy from a "remedy" element of the job `jobName`, or null.
///
/// Logs "remedy type missing in job" or "remedy type ... not valid in job" and returns null when
/// there is no usable "type". Logs "remedy param missing its value in job" for each "param" without
/// "value", which is left out.
std::unique_ptr<DogAction> ParseRemedy(const std::string& jobName, const TiXmlElement& element);

}  // namespace kennly
