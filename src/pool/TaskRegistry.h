#pragma once

#include <map>
#include <memory>
#include <string>

#include "sync/CriticalSection.h"
#include "sync/Event.h"

namespace kennly {

/// The names of the jobs that have a task of one kind queued or running.
///
/// A job whose name stands here is refused a second task of that kind; an empty registry tells the
/// job cycles that every task has handed back its result.
///
/// Threads: any thread may call any operation. Each takes only this object's own lock.
/// Ownership: keeps copies of names; knows neither jobs nor tasks.
class TaskRegistry {
public:
    TaskRegistry() = default;
    virtual ~TaskRegistry() = default;
    TaskRegistry(const TaskRegistry&) = delete;
    TaskRegistry& operator=(const TaskRegistry&) = delete;

    /// Enters a job. Returns false and changes nothing when the job is already here.
    bool Register(const std::string& jobName);

    /// Takes a job out, if it is here.
    void Unregister(const std::string& jobName) noexcept;

    /// Takes every job out. Deliberate: the registry does not become "empty" for those who wait;
    /// only the next job to be entered and taken out again does that.
    void Clear();

    /// Whether the last job has been taken out by Unregister and none entered since, or none was
    /// ever entered.
    bool IsEmpty() const { return emptyEvent_.IsSet(); }

private:
    std::map<std::string, bool>
        names_;  // guarded by lock_; the flag is always false and never read
    CriticalSection lock_{true};
    Event emptyEvent_{true};
};

/// The three registries of the process: one for job cycles, one for checks, one for remedies. They
/// are made before main and given up at exit; whoever uses one holds it, and once the process exits
/// the functions return null.
std::shared_ptr<TaskRegistry> JobRegistry();
std::shared_ptr<TaskRegistry> WatchRegistry();
std::shared_ptr<TaskRegistry> ActionRegistry();

}  // namespace kennly
