#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// Opens a pipe whose ends are closed by an execute. Returns false, with errno, when there is none.
bool MakePipe(Descriptor& readEnd, Descriptor& writeEnd);

/// Forks; the child begins with every signal blocked, so that no handler of ours runs in it.
///
/// The caller may have other threads, so that the child must confine itself to calls that are safe
/// in a signal handler. Returns as fork does.
pid_t ForkWithSignalsBlocked();

/// Makes the calling process let go of what it inherited: 0, 1 and 2 become `nullDevice`, and all
/// above are closed but those in `kept`, which is sorted and holds numbers above 2.
///
/// Safe in the child of a process with threads.
void KeepOnly(const std::vector<int>& kept, int nullDevice);

/// Marks all descriptors above 2 as closed by the next execute. Safe like KeepOnly.
void CloseOthersOnExecute();

/// Writes `size` bytes in one record of at most PIPE_BUF. Returns false when it did not go out.
bool WriteRecord(int descriptor, const void* record, std::size_t size);

/// Reads one record written by WriteRecord. Returns false at the end of the pipe or on an error.
bool ReadRecord(int descriptor, void* record, std::size_t size);

/// Waits for the end of one child. Returns its raw wait status, 0 when it is no child of ours.
int WaitForChild(pid_t child);

}  // namespace kennly::test
