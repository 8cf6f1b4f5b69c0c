#include "daemon/Site.h"

#include <sys/stat.h>
#include <syslog.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kennly::bench {

namespace {

const std::string ConfigurationFile = DataDirectory + "config/kennly.xml";

}  // namespace

std::string CountedCommand(const std::string& countFile) {
    return "{ printf x >>" + countFile + "; }";
}

std::string CommandCheck(const std::string& command, int delay) {
    return R"(<check type="CheckCommandResult" delay=")" + std::to_string(delay) +
           R"("><param value=")" + command + R"("/></check>)";
}

std::string Configuration(int jobs, const std::function<JobText(int)>& job) {
    std::ostringstream text;
    text << "<kennly>\n";
    for (int i = 0; i < jobs; ++i) {
        const JobText parts = job(i);
        text << R"(<job name="job-)" << i << R"(" enabled="true">)" << parts.check << parts.remedy
             << "</job>\n";
    }
    text << "</kennly>\n";
    return text.str();
}

Site::Site() {
    std::string error;
    sandbox_ = test::Sandbox::Create(error);
    if (!sandbox_) {
        throw std::runtime_error("no sandbox: " + error);
    }
}

void Site::WriteFile(const std::string& path, const std::string& content) const {
    if (!sandbox_->WriteFile(path, content)) {
        throw std::runtime_error("cannot write " + path);
    }
}

void Site::Configure(const std::string& text) const {
    const std::string draft = ConfigurationFile + ".draft";
    WriteFile(draft, text);
    std::filesystem::rename(sandbox_->PathInside(draft), sandbox_->PathInside(ConfigurationFile));
}

std::unique_ptr<test::SandboxProcess> Site::StartDaemon(const std::string& preload) const {
    test::StartOptions options;
    if (!preload.empty()) {
        options.environment = {{"LD_PRELOAD", preload}};
    }
    return sandbox_->Start({KENNLY_PROGRAM, "-f"}, options);
}

std::unique_ptr<test::SandboxProcess> Site::StartFloor(
    const std::vector<std::string>& floor) const {
    std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe"), "floor"};
    command.insert(command.end(), floor.begin(), floor.end());
    return sandbox_->Start(command);
}

std::int64_t Site::Count(const std::string& countFile) const {
    struct stat status = {};
    return stat(sandbox_->PathInside(countFile).c_str(), &status) == 0 ? status.st_size : 0;
}

void Site::AwaitCount(std::int64_t count, const std::string& countFile) const {
    const std::string path = sandbox_->PathInside(countFile);
    const auto start = Clock::now();
    struct stat status = {};
    while (stat(path.c_str(), &status) != 0 || status.st_size < count) {
        if (SecondsSince(start) > LongestWaitSeconds) {
            throw std::runtime_error("the commands do not run" + LogText());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Site::ExpectNoError() const {
    for (const test::LogLine& line : sandbox_->Log()) {
        if (line.severity == LOG_ERR) {
            throw std::runtime_error("the daemon has logged errors" + LogText());
        }
    }
}

std::string Site::LogText() const {
    return "\n" + test::DescribeLog(sandbox_->Log());
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void Wait(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

}  // namespace kennly::bench
