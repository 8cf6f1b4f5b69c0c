#include "support/SystemLogSocket.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

#include "support/Deadline.h"

namespace kennly::test {
namespace {

constexpr std::size_t LargestDatagram = 262144;  // above what a sender's buffer usually lets out

Descriptor Open() {
    return Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

}  // namespace

std::unique_ptr<SystemLogSocket> SystemLogSocket::Create(std::string& error) {
    Descriptor socket = Open();
    Descriptor wakeUp(eventfd(0, EFD_CLOEXEC));
    if (!socket.IsOpen() || !wakeUp.IsOpen()) {
        error = std::string("cannot open the log socket: ") + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<SystemLogSocket>(
        new SystemLogSocket(std::move(socket), std::move(wakeUp)));
}

SystemLogSocket::SystemLogSocket(Descriptor socket, Descriptor wakeUp)
    : socket_(std::move(socket)), wakeUp_(std::move(wakeUp)), buffer_(LargestDatagram) {
    ReadAgain();
}

SystemLogSocket::~SystemLogSocket() {
    StopReading();
}

void SystemLogSocket::ReadAgain() {
    if (reader_.joinable()) {
        return;
    }
    // The test's signals are for its own threads: the reader inherits a full mask.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    reader_ = std::thread([this] { Run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void SystemLogSocket::StopReading() {
    if (!reader_.joinable()) {
        return;
    }
    eventfd_write(wakeUp_.Get(), 1);
    reader_.join();
    eventfd_t spoken = 0;
    eventfd_read(wakeUp_.Get(), &spoken);
}

void SystemLogSocket::Close() {
    StopReading();
    socket_.Close();
}

bool SystemLogSocket::Reopen() {
    socket_ = Open();
    if (socket_.IsOpen()) {
        ReadAgain();
    }
    return socket_.IsOpen();
}

std::vector<LogLine> SystemLogSocket::Lines() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return lines_;
}

bool SystemLogSocket::WaitFor(const Condition& condition, std::chrono::milliseconds limit) const {
    Deadline deadline(limit);
    std::vector<LogLine> seen;
    for (;;) {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            const auto first = lines_.begin() + static_cast<std::ptrdiff_t>(seen.size());
            seen.insert(seen.end(), first, lines_.end());
        }
        if (condition(seen)) {
            return true;
        }
        std::unique_lock<std::mutex> guard(lock_);
        do {
            if (deadline.HasPassed()) {
                return false;
            }
        } while (!arrived_.wait_for(guard, Deadline::LongestTurn,
                                    [&] { return lines_.size() > seen.size(); }));
    }
}

void SystemLogSocket::OnLine(Listener listener) {
    const std::lock_guard<std::mutex> guard(listenerLock_);
    listener_ = std::move(listener);
}

void SystemLogSocket::Run() {
    std::array<pollfd, 2> watched = {{{socket_.Get(), POLLIN, 0}, {wakeUp_.Get(), POLLIN, 0}}};
    for (;;) {
        if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        ReadAll();
        if (watched[1].revents != 0) {
            return;
        }
    }
}

void SystemLogSocket::ReadAll() {
    for (;;) {
        const ssize_t size = recv(socket_.Get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (size >= 0) {
            Record(std::string_view(buffer_.data(), static_cast<std::size_t>(size)));
        } else if (errno != EINTR) {
            return;
        }
    }
}

void SystemLogSocket::Record(std::string_view datagram) {
    LogLine line = ParseLogLine(datagram);
    line.arrival = std::chrono::steady_clock::now();
    line.wallArrival = std::chrono::system_clock::now();
    {
        const std::lock_guard<std::mutex> guard(lock_);
        lines_.push_back(line);
    }
    arrived_.notify_all();
    const std::lock_guard<std::mutex> guard(listenerLock_);
    if (listener_) {
        listener_(line);
    }
}

}  // namespace kennly::test
