#pragma once

#include <csignal>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "system/TreeFixture.h"

namespace kennly::test {

/// kennlyctl beside the real daemon, as an administrator uses it.
class CtlTest : public BackgroundTest {
protected:
    struct Answer {
        int status = -1;  // -1: it did not exit
        std::string out;
        std::string err;
    };

    /// Starts kennlyctl with these arguments.
    std::unique_ptr<SandboxProcess> StartCtl(const std::vector<std::string>& arguments,
                                             const StartOptions& start = {}) const {
        std::vector<std::string> command = {KENNLY_CTL};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return StartObserved(command, start);
    }
    /// Runs it to its end.
    Answer Ctl(const std::vector<std::string>& arguments, const StartOptions& start = {}) const {
        return AnswerOf(*StartCtl(arguments, start));
    }
    /// Runs a line of the shell, in which "$CTL" is kennlyctl.
    Answer InShell(const std::string& line, StartOptions start = {}) const {
        start.environment.emplace_back("CTL", KENNLY_CTL);
        return AnswerOf(*StartObserved({"sh", "-c", line}, start));
    }
    /// Runs kennlyctl as a user without privileges; `before` is a line of the shell for root.
    Answer CtlAsNobody(const std::string& arguments, const std::string& before = "true") const {
        const std::string copy = PathOf("kennlyctl");  // where nobody may have it executed
        return InShell("cp \"$CTL\" " + copy + " && " + before +
                       " && exec setpriv --reuid=65534 --regid=65534 --clear-groups " + copy + " " +
                       arguments);
    }
    /// The same, of a user who sees no processes of others; in a mount namespace of its own.
    Answer CtlBlindly(const std::string& arguments) const {
        return CtlAsNobody(arguments, "mount -t proc -o hidepid=2 proc /proc");
    }
    /// What a terminal is shown, until that is enough for `isEnough` or it ends; `variables` are
    /// the shell's. Outside of the sandbox, which has no terminals.
    static Answer OnTerminal(
        const std::string& variables, const std::string& arguments,
        const std::function<bool(const std::string&)>& isEnough = [](const std::string&) {
            return false;
        }) {
        const std::string line = "echo $$; exec env " + variables +
                                 " script --quiet --return --command '" KENNLY_CTL " " + arguments +
                                 "' /dev/null </dev/null";
        FILE* const pipe = popen(line.c_str(), "r");
        pid_t script = 0;
        EXPECT_EQ(fscanf(pipe, "%d", &script), 1);
        fgetc(pipe);  // the end of that line
        Answer answer;
        for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) {
            answer.out += static_cast<char>(c);
            if (isEnough(answer.out)) {
                kill(script, SIGTERM);  // which ends what it has started
                break;
            }
        }
        answer.status = WEXITSTATUS(pclose(pipe));
        return answer;
    }
    static Answer AnswerOf(SandboxProcess& process) {
        const std::optional<int> end = process.WaitForEnd(LongestAnswer);
        EXPECT_TRUE(end) << "it has not ended: " << process.OutputText() << process.ErrorText();
        const int status = end && WIFEXITED(*end) ? WEXITSTATUS(*end) : -1;
        return {status, process.OutputText(), process.ErrorText()};
    }

    nlohmann::json Status(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"status", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return nlohmann::json::parse(Ctl(arguments).out);
    }
    /// A job of the main tree in there; null when there is none.
    static nlohmann::json JobIn(const nlohmann::json& status, const std::string& name) {
        for (const auto& job : status.at("main").at("jobs")) {
            if (job.at("name") == name) {
                return job;
            }
        }
        return {};
    }
    /// The codes of what is wrong, notes left out.
    static std::vector<std::string> ProblemsIn(const nlohmann::json& status) {
        std::vector<std::string> codes;
        for (const auto& problem : status.at("problems")) {
            if (problem.at("level") != "note") {
                codes.push_back(problem.at("code"));
            }
        }
        return codes;
    }
    /// Has it look again and again until the condition holds for what it shows. Counts the looks,
    /// as one at what is wrong takes more than a second.
    template <class F>
    bool WaitForStatus(F condition, const std::vector<std::string>& more = {}) const {
        constexpr int mostLooks = 60;
        constexpr std::chrono::milliseconds betweenLooks(300);
        for (int look = 1; look < mostLooks; ++look) {
            if (condition(Status(more))) {
                return true;
            }
            std::this_thread::sleep_for(betweenLooks);
        }
        return condition(Status(more));
    }
    /// Waits until these are the problems, and no others.
    bool WaitForProblems(const std::vector<std::string>& codes,
                         const std::vector<std::string>& more = {}) const {
        return WaitForStatus(
            [&](const nlohmann::json& status) { return ProblemsIn(status) == codes; }, more);
    }

    /// A job whose check passes each second, and leaves a trace of its name.
    static std::string Healthy(const std::string& name) {
        return Job(name, Check(Note(name) + "; true", "delay=\"1\"") + Remedy("true"));
    }
    /// A job whose check takes so many seconds and then passes.
    static std::string Slow(const std::string& name, int seconds) {
        return Job(name, Check(Note(name) + "; sleep " + std::to_string(seconds)) + Remedy("true"));
    }

    static constexpr std::chrono::seconds LongestAnswer{120};

private:
    std::unique_ptr<SandboxProcess> StartObserved(const std::vector<std::string>& command,
                                                  StartOptions start) const {
        start.captureOutput = true;
        start.captureError = true;
        return sandbox->Start(command, start);
    }
};

/// With a configuration of one healthy job for each tree.
class CtlTreesTest : public CtlTest {
protected:
    void SetUp() override {
        CtlTest::SetUp();
        ASSERT_TRUE(sandbox);
        Configure(Configuration(Healthy("web")));
        Configure(Configuration(Healthy("beats")), WatcherConfiguration);
    }
};

/// Where kennlyctl counts the daemon's threads.
class CtlThreadsTest : public CtlTest {
protected:
    void SetUp() override {
        if (RunsUnderThreadSanitizer()) {
            GTEST_SKIP() << "the thread sanitizer adds a thread to the daemon's own";
        }
        CtlTest::SetUp();
    }
};

}  // namespace kennly::test
