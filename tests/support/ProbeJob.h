#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "pool/ThreadPool.h"
#include "support/SandboxPolling.h"

namespace kennly::test {

/// Far longer than anything takes that is waited for; only a failing test gets there.
inline constexpr std::chrono::seconds WaitLimit{20};

/// A gate that threads wait at until somebody opens it.
class Gate {
public:
    void Open() { open_ = true; }
    bool IsOpen() const { return open_; }

    /// Returns false when nobody opened it in time.
    bool Wait() const {
        return WaitUntil([this] { return IsOpen(); }, WaitLimit);
    }

private:
    std::atomic<bool> open_{false};
};

/// What became of one job; outlives it.
struct JobRecord {
    std::atomic<int> runs{0};
    std::atomic<int> givenUp{0};
    std::atomic<int> destroyed{0};
    std::atomic<std::uint32_t> context{0};
    std::atomic<std::thread::id> thread{};

    bool WaitForRun() const {
        return WaitUntil([this] { return runs > 0; }, WaitLimit);
    }
    bool WaitForDestruction() const {
        return WaitUntil([this] { return destroyed > 0; }, WaitLimit);
    }
};

/// A job of the pool that does what it is told and keeps a record of what is done to it.
class ProbeJob : public ThreadPool::IJob {
public:
    using Body = std::function<void()>;

    ProbeJob(bool waitable, std::shared_ptr<JobRecord> record, Body body)
        : IJob(waitable), record_(std::move(record)), body_(std::move(body)) {}
    ~ProbeJob() override { ++record_->destroyed; }
    ProbeJob(const ProbeJob&) = delete;
    ProbeJob& operator=(const ProbeJob&) = delete;

    void Run(std::uint32_t context) override {
        record_->context = context;
        record_->thread = std::this_thread::get_id();
        ++record_->runs;
        if (body_) {
            body_();
        }
    }
    void GivenUp() noexcept override { ++record_->givenUp; }

private:
    const std::shared_ptr<JobRecord> record_;
    const Body body_;
};

inline std::shared_ptr<ProbeJob> WaitableJob(const std::shared_ptr<JobRecord>& record,
                                             ProbeJob::Body body = nullptr) {
    return std::make_shared<ProbeJob>(true, record, std::move(body));
}

inline std::shared_ptr<ProbeJob> PlainJob(const std::shared_ptr<JobRecord>& record,
                                          ProbeJob::Body body = nullptr) {
    return std::make_shared<ProbeJob>(false, record, std::move(body));
}

}  // namespace kennly::test
