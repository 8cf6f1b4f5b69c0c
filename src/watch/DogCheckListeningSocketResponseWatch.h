#pragma once

#include <cstdint>

#include "watch/DogWatch.h"

namespace kennly {

/// The check that stands for whether a listening socket answers, and tests nothing.
///
/// Deliberate: a placeholder that configurations may name. Its job never runs the remedy. Threads
/// and ownership: as DogWatch.
class DogCheckListeningSocketResponseWatch : public DogWatch {
public:
    /// Returns ResultNotEvaluated whatever the parameters. Logs nothing.
    std::int32_t DoWatch() override;
};

}  // namespace kennly
