#include "Stage.h"

#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "support/SandboxPolling.h"

namespace kennly::demo {

using test::LogLine;

void Stage::Say(const std::string& who, const std::string& what) {
    const std::lock_guard lock(lock_);
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
    std::printf("%5.1f s  %-8s %s\n", since.count(), who.c_str(), what.c_str());
    std::fflush(stdout);
}

void Stage::Headline(const std::string& text) {
    const std::lock_guard lock(lock_);
    std::printf("\n== %s\n", text.c_str());
    std::fflush(stdout);
}

void Stage::NarrateLog(const std::function<std::string(const std::string&)>& explain) {
    sandbox.OnLine([this, explain](const LogLine& line) {
        std::string text = line.text;
        text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
        const std::string priority = line.severity == LOG_ERR ? "err" : "debug";
        Say("log", line.identity + ": " + text + "   [" + priority + "] <- " + explain(text));
    });
}

void Stage::StopNarratingLog() {
    sandbox.OnLine({});
}

void Stage::Install(const std::string& source, const std::string& path, bool executable) {
    std::ifstream file(source, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    Require(!content.empty() && sandbox.WriteFile(path, content),
            source + " could not be installed");
    if (executable) {
        std::filesystem::permissions(sandbox.PathInside(path), std::filesystem::perms{0755});
    }
}

bool Stage::Logged(const std::string& part) const {
    const auto log = sandbox.Log();
    return std::any_of(log.begin(), log.end(), [&](const LogLine& line) {
        return line.text.find(part) != std::string::npos;
    });
}

void Stage::Require(bool holds, const std::string& otherwise) {
    if (!holds) {
        throw std::runtime_error(otherwise);
    }
}

void Stage::Await(const std::function<bool()>& condition, const std::string& otherwise) {
    Require(test::WaitUntil(condition, StepLimit), otherwise);
}

}  // namespace kennly::demo
