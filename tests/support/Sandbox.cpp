#include "support/Sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include "support/KeptConfigurations.h"
#include "support/SandboxDescriptor.h"
#include "support/SandboxNamespaces.h"
#include "support/SystemLogSocket.h"

namespace kennly::test {

std::unique_ptr<Sandbox> Sandbox::Create(std::string& error) {
    auto log = SystemLogSocket::Create(error);
    if (!log) {
        return nullptr;
    }
    auto namespaces = SandboxNamespaces::Create(log->Get(), error);
    if (!namespaces) {
        return nullptr;
    }
    return std::unique_ptr<Sandbox>(new Sandbox(std::move(log), std::move(namespaces)));
}

Sandbox::Sandbox(std::unique_ptr<SystemLogSocket> log,
                 std::unique_ptr<SandboxNamespaces> namespaces)
    : log_(std::move(log)), namespaces_(std::move(namespaces)) {}

Sandbox::~Sandbox() = default;

std::string Sandbox::PathInside(const std::string& absolutePath) const {
    return "/proc/" + std::to_string(FirstProcess()) + "/root" + absolutePath;
}

std::unique_ptr<SandboxProcess> Sandbox::Start(const std::vector<std::string>& command,
                                               const StartOptions& options) const {
    return SandboxProcess::Launch(*namespaces_, command, options);
}

pid_t Sandbox::FirstProcess() const {
    return namespaces_->FirstProcess();
}

std::vector<pid_t> Sandbox::Processes() const {
    std::vector<pid_t> found;
    struct stat ours = {};
    DIR* const stream = opendir("/proc");
    if (stream == nullptr || fstat(namespaces_->ProcessNamespace(), &ours) != 0) {
        return found;
    }
    while (const dirent* const entry = readdir(stream)) {
        const pid_t process = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        if (process <= 0 || process == FirstProcess()) {
            continue;
        }
        const std::string path = std::string("/proc/") + entry->d_name + "/ns/pid";
        struct stat theirs = {};
        if (stat(path.c_str(), &theirs) == 0 && theirs.st_ino == ours.st_ino &&
            theirs.st_dev == ours.st_dev) {
            found.push_back(process);
        }
    }
    closedir(stream);
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<Death> Sandbox::Deaths() const {
    return namespaces_->Deaths();
}

bool Sandbox::HasUserNamespace() const {
    return namespaces_->UserNamespace() >= 0;
}

std::vector<LogLine> Sandbox::Log() const {
    return log_->Lines();
}

bool Sandbox::WaitForLog(const std::function<bool(const std::vector<LogLine>&)>& condition,
                         std::chrono::milliseconds limit) const {
    return log_->WaitFor(condition, limit);
}

void Sandbox::OnLine(std::function<void(const LogLine&)> listener) {
    log_->OnLine(std::move(listener));
}

void Sandbox::StopReadingLog() {
    log_->StopReading();
}

void Sandbox::ReadLogAgain() {
    log_->ReadAgain();
}

void Sandbox::EndLog() {
    RemoveFile(LogSocketPath);
    log_->Close();
}

bool Sandbox::BeginLogAgain() {
    const std::string path = PathInside(LogSocketPath);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return log_->Reopen() &&
           bind(log_->Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           chmod(path.c_str(), 0666) == 0;
}

bool Sandbox::WriteFile(const std::string& path, const std::string& content) const {
    KeepConfiguration(path, content);
    const Descriptor file(open(PathInside(path).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    if (!file.IsOpen()) {
        return false;
    }
    // Shortened only afterwards: whoever reads at the same time never finds an empty file.
    const auto size = static_cast<ssize_t>(content.size());
    return pwrite(file.Get(), content.data(), content.size(), 0) == size &&
           ftruncate(file.Get(), static_cast<off_t>(size)) == 0;
}

std::optional<std::string> Sandbox::ReadFile(const std::string& path) const {
    std::ifstream file(PathInside(path), std::ios::binary);
    if (!file || !FileExists(path)) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool Sandbox::FileExists(const std::string& path) const {
    struct stat status = {};
    return stat(PathInside(path).c_str(), &status) == 0;
}

bool Sandbox::RemoveFile(const std::string& path) const {
    return unlink(PathInside(path).c_str()) == 0;
}

bool Sandbox::SetFileTime(const std::string& path, std::time_t seconds) const {
    struct timespec times[2] = {};
    times[0].tv_sec = seconds;
    times[1].tv_sec = seconds;
    return utimensat(AT_FDCWD, PathInside(path).c_str(), times, 0) == 0;
}

}  // namespace kennly::test
