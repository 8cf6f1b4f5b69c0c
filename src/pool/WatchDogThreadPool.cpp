#include "pool/WatchDogThreadPool.h"

#include "main/Log.h"
#include "pool/TaskRegistry.h"
#include "sync/ForEver.h"
#include "sync/SharedSlot.h"
#include "sync/WaiterTable.h"

namespace kennly {

namespace {

// A worker that still runs while the process exits does not lose it.
const ForEver<WatchDogThreadPool::COMInitialisation> comInitialisation;

std::shared_ptr<WatchDogThreadPool::COMInitialisation> Hook() {
    return {std::shared_ptr<void>(), &*comInitialisation};
}

SharedSlot<WatchDogThreadPool>& PoolSlot() {
    static const ForEver<SharedSlot<WatchDogThreadPool>> slot;
    return *slot;
}

void ClearRegistry(const std::shared_ptr<TaskRegistry>& registry) {
    if (registry) {
        registry->Clear();
    }
}

}  // namespace

WatchDogThreadPool::WatchDogThreadPool(std::uint32_t threadCount)
    : ThreadPool(threadCount, Hook()) {}

bool CreateThreadPool(std::uint32_t threadCount) {
    try {
        if (!GetThreadPool()) {
            SizeWaiterTable(threadCount);
            PoolSlot().Put(std::make_shared<WatchDogThreadPool>(threadCount));
        }
    } catch (...) {
        LogError("exception while creating threadpool!");
        return false;
    }
    if (GetThreadPool()->IsCreated()) {
        return true;
    }
    LogError("Error creating Thread Pool");
    return false;
}

bool TidyThreadPool() {
    try {
        if (const auto pool = GetThreadPool()) {
            // Emptied afterwards: a cycle that finds no pool leaves its name registered, and the
            // others would wait for it.
            pool->Destroy();
            PoolSlot().Put(nullptr);
        }
        ClearRegistry(WatchRegistry());
        ClearRegistry(ActionRegistry());
        ClearRegistry(JobRegistry());
        return true;
    } catch (...) {
        LogError("exception while tidying threadpool!");
        return false;
    }
}

std::shared_ptr<WatchDogThreadPool> GetThreadPool() {
    return PoolSlot().Hold();
}

}  // namespace kennly
