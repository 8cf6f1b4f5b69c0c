#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kennly {

// What the kernel tells of a process, each value as it is at the moment. Nothing where there is no
// such process, or this one may not know. Any thread may call these.

/// The content of the file `name` in the directory of the process, such as "status".
std::optional<std::string> ReadProcFile(pid_t process, const std::string& name);

/// The value of a field of its file "status", such as "SigIgn"; empty where there is none.
std::string ReadProcStatus(pid_t process, const std::string& field);

/// What the symbolic link `name` leads to, such as "exe".
std::optional<std::string> ReadProcLink(pid_t process, const std::string& name);

/// The texts of a file in which each ends with a NUL: "cmdline" or "environ".
std::optional<std::vector<std::string>> ReadProcTexts(pid_t process, const std::string& name);

/// The numbers of all processes, in ascending order.
std::vector<pid_t> AllProcesses();

/// The numbers of the threads of a process, in ascending order.
std::vector<pid_t> ThreadsOf(pid_t process);

struct ProcStat {
    std::string name;  // of the program's file, 15 bytes of it
    char state = '?';  // as in proc(5): 'Z' has ended and waits to be reaped
    pid_t parent = 0;
    pid_t session = 0;
    int threads = 0;
    std::uint64_t startTicks = 0;  // after the machine's start
};

std::optional<ProcStat> ReadProcStat(pid_t process);

/// The same for one thread of a process: its own state and start.
std::optional<ProcStat> ReadThreadStat(pid_t process, pid_t thread);

/// How many threads of a process, its first one left out, are in a pause such as sleep(3). Nothing
/// when the kernel does not say what threads wait for.
std::optional<int> ThreadsInPause(pid_t process);

/// How long ago that was, in seconds; never negative. The kernel counts in hundredths.
double SecondsSince(std::uint64_t startTicks);

}  // namespace kennly
