#pragma once

#include "ctl/Json.h"
#include "ctl/StatusView.h"

namespace kennly {

/// Everything, as JSON. What is not known is null. Any thread may call it.
Json AsJson(const StatusView& view);

}  // namespace kennly
