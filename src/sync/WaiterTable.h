#pragma once

#include <cstdint>

namespace kennly {

/// How many rows suit so many threads: a power of two, as the kernel takes no other number, and at
/// least what it would choose by itself on a machine with so many processors (-1 when unknown).
/// Once it was asked, it no longer does.
unsigned long WaiterTableRows(std::uint32_t threadCount, long processors);

/// Asks the kernel to keep this process's waiting threads in a table that suits `threadCount` of
/// them: about four a row, at 64 bytes of the kernel's memory a row, and never fewer rows than the
/// kernel would choose by itself.
///
/// From Linux 6.16 on, each process has a table of its own for those that wait for a lock or an
/// event, whose size depends on the number of processors alone. On a machine with two, each wake
/// would search a sixteenth of all idle workers. Earlier kernels have one large table for the whole
/// machine and refuse, which is not reported: it does as well.
///
/// May be called again for another number, also while threads wait.
void SizeWaiterTable(std::uint32_t threadCount);

}  // namespace kennly
