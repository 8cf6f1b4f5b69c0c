#include "lint/ShellSyntax.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "lint/Words.h"

namespace kennly {

namespace {

constexpr int StatusOfSyntaxError = 2;

// Those of letters, and what only some shells reserve.
bool IsReserved(std::string_view word) {
    return IsAmong(word, {"case", "coproc", "do", "done", "elif", "else", "esac", "fi", "for",
                          "function", "if", "in", "select", "then", "time", "until", "while"});
}

bool IsPlain(std::string_view word) {
    return !IsReserved(word) && std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_./=:@%+,-").find(c) != std::string_view::npos;
    });
}

// Whether it is one command that no shell refuses, with what the daemon puts behind it. Most are,
// and a configuration may have thousands.
bool IsPlainCommand(std::string_view line) {
    if (line.empty() || line.front() == '-' || line.front() == '+') {
        return false;  // an option of the shell itself
    }
    bool isFirst = true;
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        const bool endsInBackground = word == "&" && line.empty() && !isFirst;
        if (!endsInBackground && !IsAmong(word, {"1>/dev/null", "2>/dev/null"}) && !IsPlain(word)) {
            return false;
        }
        isFirst = isFirst && word.empty();
    }
    return true;
}

class SilentDescriptors {
public:
    SilentDescriptors() {
        posix_spawn_file_actions_init(&actions_);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
        }
    }
    ~SilentDescriptors() { posix_spawn_file_actions_destroy(&actions_); }
    SilentDescriptors(const SilentDescriptors&) = delete;
    SilentDescriptors& operator=(const SilentDescriptors&) = delete;

    const posix_spawn_file_actions_t* Actions() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_ = {};
};

}  // namespace

bool ShellAccepts(const std::string& line) {
    if (IsPlainCommand(line)) {
        return true;
    }
    const SilentDescriptors silent;
    std::string shell = "sh";
    std::string onlyParse = "-nc";
    std::string text = line;
    char* const arguments[] = {shell.data(), onlyParse.data(), text.data(), nullptr};
    pid_t process = 0;
    if (posix_spawn(&process, "/bin/sh", silent.Actions(), nullptr, arguments, environ) != 0) {
        return true;
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) {
            return true;
        }
    }
    return !WIFEXITED(status) || WEXITSTATUS(status) != StatusOfSyntaxError;
}

}  // namespace kennly
