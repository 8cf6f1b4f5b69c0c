#pragma once

#include <cstddef>

namespace kennly {

/// The size of a thread's stack, in bytes: many times what the deepest worker needs, and little
/// enough for more than a thousand jobs of three threads each in the address space of 32 bits.
inline constexpr std::size_t ThreadStackBytes = std::size_t{256} * 1024;

/// Gives every thread that is created from now on without attributes a stack of that size,
/// whatever limit the process was started with. That limit stays as it is, so that commands
/// inherit it unchanged.
///
/// Returns false, and leaves the size alone, when the system refuses. To be called before there are
/// threads.
bool SetThreadStack();

}  // namespace kennly
