#pragma once

namespace kennly {

/// The work loop of a child or foreground process; ends the process.
///
/// About once a second: look whether the parent lives (not in the foreground), write the heartbeat,
/// load the configuration if its file has changed, and then replace the pool and start the jobs.
/// More than `maxLoadErrors` failed cycles in a row, the parent's death or a signal end the loop;
/// the pool is then torn down without waiting for running commands, the configuration destroyed,
/// and the process ends with status 0, with status 1 if there was no memory to begin with. Main
/// thread only.
[[noreturn]] void child_main();

}  // namespace kennly
