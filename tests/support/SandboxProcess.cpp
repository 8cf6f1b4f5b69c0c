#include "support/SandboxProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "support/Deadline.h"
#include "support/SandboxFork.h"
#include "support/SandboxNamespaces.h"

namespace kennly::test {
namespace {

constexpr const char* SearchedDirectories[] = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                               "/usr/bin",        "/sbin",          "/bin"};
constexpr int CaptureBytes = 1024 * 1024;

/// What the helper tells: first Started or Failed, after Started in time Ended.
struct News {
    enum Kind { Started, Failed, Ended };
    Kind kind;
    int value;         // process number, error number, raw wait status
    const char* step;  // of a failure; the helper is a copy of us, so that addresses agree
};

/// All that helper and command need, made ready before the fork: after it, nothing may allocate.
struct Preparation {
    std::vector<std::string> texts;
    std::vector<std::string> programs;  // the places to try, in order
    std::vector<char*> arguments;
    std::vector<char*> environment;
    std::string workingDirectory;
    std::vector<int> closed;
    std::vector<int> ignored;
    sigset_t blocked = {};
    int userNamespace = -1;
    int mountNamespace = -1;
    int processNamespace = -1;
    int rootDirectory = -1;
    int status = -1;
    int output = -1;
    int error = -1;
    int nullDevice = -1;
    std::vector<int> kept;
};

// ---- before the fork

std::vector<std::string> PlacesOf(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return {program};
    }
    std::vector<std::string> places;
    for (const char* const directory : SearchedDirectories) {
        places.push_back(std::string(directory) + "/" + program);
    }
    return places;
}

std::vector<std::string> EnvironmentWith(const StartOptions& options) {
    std::map<std::string, std::string> values;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos) {
            values[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : options.environment) {
        std::string& old = values[name];
        old = name == "LD_PRELOAD" && !old.empty() ? value + ":" + old : value;
    }
    std::vector<std::string> texts;
    for (const auto& [name, value] : values) {
        texts.push_back(name + "=" + value);
    }
    return texts;
}

void PrepareTexts(const std::vector<std::string>& command, const StartOptions& options,
                  Preparation& prepared) {
    prepared.programs = PlacesOf(command[0]);
    prepared.texts = command;
    const std::vector<std::string> environment = EnvironmentWith(options);
    prepared.texts.insert(prepared.texts.end(), environment.begin(), environment.end());
    for (std::string& text : prepared.texts) {
        auto& list =
            prepared.arguments.size() < command.size() ? prepared.arguments : prepared.environment;
        list.push_back(text.data());
    }
    prepared.arguments.push_back(nullptr);
    prepared.environment.push_back(nullptr);
    prepared.workingDirectory = options.workingDirectory.empty() ? "/" : options.workingDirectory;
    prepared.closed = options.closedDescriptors;
    prepared.ignored = options.ignoredSignals;
    sigemptyset(&prepared.blocked);
    for (const int number : options.blockedSignals) {
        sigaddset(&prepared.blocked, number);
    }
}

void PrepareDescriptors(const SandboxNamespaces& namespaces, Preparation& prepared) {
    prepared.userNamespace = namespaces.UserNamespace();
    prepared.mountNamespace = namespaces.MountNamespace();
    prepared.processNamespace = namespaces.ProcessNamespace();
    prepared.rootDirectory = namespaces.RootDirectory();
    prepared.kept = {prepared.mountNamespace, prepared.processNamespace, prepared.rootDirectory,
                     prepared.status, prepared.nullDevice};
    for (const int number : {prepared.userNamespace, prepared.output, prepared.error}) {
        if (number >= 0) {
            prepared.kept.push_back(number);
        }
    }
    std::sort(prepared.kept.begin(), prepared.kept.end());
}

/// Opens the pipe for a captured descriptor, if it is one. Returns false when there is none to
/// have.
bool OpenCapture(bool captured, Descriptor& readEnd, Descriptor& writeEnd) {
    if (!captured) {
        return true;
    }
    if (!MakePipe(readEnd, writeEnd)) {
        return false;
    }
    fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);
    fcntl(readEnd.Get(), F_SETPIPE_SZ, CaptureBytes);  // where refused, the usual size has to do
    return true;
}

// ---- in the helper and its child: only calls that are safe in a signal handler

void DefaultSignals() {
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        sigaction(number, &byDefault, nullptr);  // refused for a few, which are as they should be
    }
}

void ArrangeSignals(const Preparation& prepared) {
    struct sigaction ignored = {};
    ignored.sa_handler = SIG_IGN;
    for (const int number : prepared.ignored) {
        sigaction(number, &ignored, nullptr);
    }
    sigprocmask(SIG_SETMASK, &prepared.blocked, nullptr);
}

[[noreturn]] void Fail(int descriptor, const char* step) {
    const News news = {News::Failed, errno, step};
    WriteRecord(descriptor, &news, sizeof news);
    _exit(127);
}

void ExecuteFirstFound(const Preparation& prepared) {
    int error = ENOENT;
    for (const std::string& program : prepared.programs) {
        execve(program.c_str(), prepared.arguments.data(), prepared.environment.data());
        if (errno != ENOENT && errno != ENOTDIR) {
            error = errno;
        }
    }
    errno = error;
}

[[noreturn]] void BeCommand(const Preparation& prepared, int failure) {
    setsid();  // so that a signal to its whole group stays inside
    umask(022);
    if (chdir(prepared.workingDirectory.c_str()) != 0) {
        Fail(failure, "enter its working directory");
    }
    if (prepared.output >= 0) {
        dup2(prepared.output, STDOUT_FILENO);
    }
    if (prepared.error >= 0) {
        dup2(prepared.error, STDERR_FILENO);
    }
    CloseOthersOnExecute();
    for (const int number : prepared.closed) {
        close(number);
    }
    ArrangeSignals(prepared);
    ExecuteFirstFound(prepared);
    Fail(failure, "execute");
}

void EnterNamespaces(const Preparation& prepared) {
    const int entered[] = {prepared.userNamespace, prepared.mountNamespace,
                           prepared.processNamespace};
    for (const int number : entered) {
        if (number >= 0 && setns(number, 0) != 0) {
            Fail(prepared.status, "enter the sandbox");
        }
    }
    // Entering a mount namespace leads to its own root, out of a chroot that we may live in.
    if (fchdir(prepared.rootDirectory) != 0 || chroot(".") != 0) {
        Fail(prepared.status, "enter the sandbox's root directory");
    }
}

[[noreturn]] void BeHelper(const Preparation& prepared) {
    KeepOnly(prepared.kept, prepared.nullDevice);
    DefaultSignals();
    EnterNamespaces(prepared);
    int failure[2];
    if (pipe2(failure, O_CLOEXEC) != 0) {
        Fail(prepared.status, "make a pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        BeCommand(prepared, failure[1]);
    }
    if (child < 0) {
        Fail(prepared.status, "fork");
    }
    // What the command alone is to hold: its end of a captured pipe must be the last.
    for (const int number : {failure[1], prepared.output, prepared.error}) {
        close(number);
    }
    News news = {};
    if (ReadRecord(failure[0], &news, sizeof news)) {
        WriteRecord(prepared.status, &news, sizeof news);
        WaitForChild(child);
        _exit(1);
    }
    news = {News::Started, child, nullptr};
    WriteRecord(prepared.status, &news, sizeof news);
    news = {News::Ended, WaitForChild(child), nullptr};
    WriteRecord(prepared.status, &news, sizeof news);
    _exit(0);
}

// ---- after the fork

/// Takes what there is to read. Returns false once nothing more will come.
bool Drain(const Descriptor& descriptor, std::string& text) {
    std::array<char, 65536> buffer = {};
    for (;;) {
        const ssize_t count = read(descriptor.Get(), buffer.data(), buffer.size());
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return count < 0 && errno == EAGAIN;
        }
    }
}

}  // namespace

std::unique_ptr<SandboxProcess> SandboxProcess::Launch(const SandboxNamespaces& namespaces,
                                                       const std::vector<std::string>& command,
                                                       const StartOptions& options) {
    if (command.empty() || command[0].empty()) {
        throw std::runtime_error("cannot start a command without a name");
    }
    std::unique_ptr<SandboxProcess> process(new SandboxProcess);
    Descriptor status;
    Descriptor output;
    Descriptor error;
    const Descriptor nullDevice(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nullDevice.IsOpen() || !MakePipe(process->status_, status) ||
        !OpenCapture(options.captureOutput, process->output_, output) ||
        !OpenCapture(options.captureError, process->error_, error)) {
        throw std::runtime_error("cannot prepare " + command[0] + ": " + std::strerror(errno));
    }
    Preparation prepared;
    PrepareTexts(command, options, prepared);
    prepared.status = status.Get();
    prepared.output = output.Get();
    prepared.error = error.Get();
    prepared.nullDevice = nullDevice.Get();
    PrepareDescriptors(namespaces, prepared);
    process->helper_ = ForkWithSignalsBlocked();
    if (process->helper_ == 0) {
        BeHelper(prepared);
    }
    status.Close();
    process->pid_ = process->AwaitStart(command[0]);
    return process;
}

SandboxProcess::~SandboxProcess() {
    if (pid_ > 0) {
        Signal(SIGKILL);
    }
    ReapHelper();
}

SandboxProcess::SandboxProcess(SandboxProcess&& other) noexcept {
    *this = std::move(other);
}

SandboxProcess& SandboxProcess::operator=(SandboxProcess&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(helper_, other.helper_);
    std::swap(status_, other.status_);
    std::swap(output_, other.output_);
    std::swap(error_, other.error_);
    std::swap(outputText_, other.outputText_);
    std::swap(errorText_, other.errorText_);
    std::swap(end_, other.end_);
    std::swap(helperLost_, other.helperLost_);
    return *this;
}

bool SandboxProcess::Running() {
    Observe(0);
    return !end_ && !helperLost_;
}

bool SandboxProcess::Signal(int signal) {
    return Running() && kill(pid_, signal) == 0;
}

std::optional<int> SandboxProcess::WaitForEnd(std::chrono::milliseconds limit) {
    for (Deadline deadline(limit); Running() && !deadline.HasPassed();) {
        Observe(static_cast<int>(std::min(limit, Deadline::LongestTurn).count()));
    }
    if (helperLost_) {
        throw std::runtime_error("the helper of a command in the sandbox ended early");
    }
    return end_;
}

std::string SandboxProcess::OutputText() {
    Observe(0);
    return outputText_;
}

std::string SandboxProcess::ErrorText() {
    Observe(0);
    return errorText_;
}

pid_t SandboxProcess::AwaitStart(const std::string& name) {
    News news = {};
    if (helper_ > 0 && ReadRecord(status_.Get(), &news, sizeof news) &&
        news.kind == News::Started) {
        return static_cast<pid_t>(news.value);
    }
    const char* const step = news.step != nullptr ? news.step : "fork";
    const int error = news.step != nullptr ? news.value : errno;
    throw std::runtime_error("cannot start " + name + " in the sandbox: cannot " + step + ": " +
                             std::strerror(error));
}

/// Waits up to `milliseconds` for anything to happen and takes note of all that has.
void SandboxProcess::Observe(int milliseconds) {
    std::array<pollfd, 3> watched = {
        {{status_.Get(), POLLIN, 0}, {output_.Get(), POLLIN, 0}, {error_.Get(), POLLIN, 0}}};
    if (poll(watched.data(), watched.size(), milliseconds) <= 0) {
        return;
    }
    if (watched[0].revents != 0) {
        TakeEnd();
    }
    // After the end: what came before it is complete then.
    if (output_.IsOpen() && !Drain(output_, outputText_)) {
        output_.Close();
    }
    if (error_.IsOpen() && !Drain(error_, errorText_)) {
        error_.Close();
    }
}

void SandboxProcess::TakeEnd() {
    News news = {};
    if (ReadRecord(status_.Get(), &news, sizeof news) && news.kind == News::Ended) {
        end_ = news.value;
    } else {
        helperLost_ = true;
    }
    status_.Close();
    ReapHelper();
}

void SandboxProcess::ReapHelper() {
    if (helper_ > 0) {
        WaitForChild(std::exchange(helper_, -1));
    }
}

}  // namespace kennly::test
