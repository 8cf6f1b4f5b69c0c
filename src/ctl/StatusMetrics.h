#pragma once

#include <string>

#include "ctl/StatusView.h"

namespace kennly {

/// Everything that is a number, in the text format of Prometheus. What is unknown is left out.
/// Any thread may call it.
std::string MetricsOf(const StatusView& view);

}  // namespace kennly
