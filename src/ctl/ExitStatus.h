#pragma once

namespace kennly {

// How kennlyctl ends. The numbers from 64 on are those of sysexits(3); scripts and units rely on
// all.

inline constexpr int ExitClean = 0;
inline constexpr int ExitFindings = 1;       // there is something to mend
inline constexpr int ExitLoadFails = 2;      // the daemon would not load the file
inline constexpr int ExitUsage = 64;         // wrong options
inline constexpr int ExitNoInput = 66;       // a file is missing or cannot be read
inline constexpr int ExitUnavailable = 69;   // what is asked about does not run
inline constexpr int ExitSoftware = 70;      // out of memory, or a fault of kennlyctl
inline constexpr int ExitSystem = 71;        // the system refused a process or the like
inline constexpr int ExitCannotCreate = 73;  // a file cannot be written
inline constexpr int ExitNoPermission = 77;  // another user's permissions are needed

}  // namespace kennly
