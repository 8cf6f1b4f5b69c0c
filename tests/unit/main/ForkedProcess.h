#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/RecordedLog.h"
#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// What a process that a test has forked left behind.
struct EndedProcess {
    pid_t pid = -1;
    int waitStatus = 0;
    std::vector<std::string> notes;   // what it passed to Note, in order
    std::vector<RecordedLine> lines;  // what it sent to the system log; empty after an abnormal end
    int logClosed = 0;                // how often it closed the log

    bool ExitedWith(int status) const {
        return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == status;
    }
    /// The line that this process writes through LogError in the role given.
    RecordedLine Error(const std::string& role, const std::string& text) const;
    /// The line that this process writes through LogExit in the role given.
    RecordedLine Exit(const std::string& role, int status) const;
};

/// In the forked process: hands a line of text over to the test. Any thread may call it.
void Note(const std::string& text);

/// Runs `body` in a fork of this process, which must have no other threads. The fork exits with
/// what `body` returns, unless `body` ends it in another way; an exit hands its log over.
EndedProcess RunForked(const std::function<int()>& body);

/// In the forked process: waits for the child of its own that ends next. Returns how it ended, as
/// "exit 0" or "signal 9", or "no child".
std::string EndOfAChild();

namespace forked {

inline int notesTo = -1;

inline void Send(char kind, const std::string& text) {
    const std::string record = kind + text + '\0';
    if (write(notesTo, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
        _exit(90);
    }
}

inline void SendLog() {
    for (const RecordedLine& line : RecordedLines()) {
        Send('L', std::to_string(line.priority) + " " + line.text);
    }
    Send('C', std::to_string(LogConnection().closed));
}

inline void Take(const std::string& record, EndedProcess& process) {
    const std::string text = record.substr(1);
    if (record[0] == 'N') {
        process.notes.push_back(text);
    } else if (record[0] == 'C') {
        process.logClosed = std::stoi(text);
    } else {
        const std::size_t blank = text.find(' ');
        process.lines.push_back({std::stoi(text.substr(0, blank)), text.substr(blank + 1)});
    }
}

inline void TakeAll(int from, EndedProcess& process) {
    std::string received;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(from, buffer, sizeof(buffer))) > 0;) {
        received.append(buffer, static_cast<std::size_t>(got));
    }
    std::istringstream records(received);
    for (std::string record; std::getline(records, record, '\0');) {
        Take(record, process);
    }
}

}  // namespace forked

inline RecordedLine EndedProcess::Error(const std::string& role, const std::string& text) const {
    return {test::Error("").priority, std::to_string(pid) + ":" + role + ": " + text + "\n"};
}

inline RecordedLine EndedProcess::Exit(const std::string& role, int status) const {
    return {test::Debug("").priority,
            std::to_string(pid) + ":" + role + " exit(" + std::to_string(status) + ")"};
}

inline void Note(const std::string& text) {
    forked::Send('N', text);
}

inline EndedProcess RunForked(const std::function<int()>& body) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    std::fflush(nullptr);  // or the fork would print it once more
    EndedProcess process;
    process.pid = fork();
    if (process.pid == 0) {
        // Above 2, which the fork may be about to close.
        forked::notesTo = fcntl(writeEnd.Get(), F_DUPFD_CLOEXEC, 3);
        writeEnd.Close();
        ForgetLog();
        std::atexit(forked::SendLog);
        std::exit(body());
    }
    writeEnd.Close();
    forked::TakeAll(readEnd.Get(), process);
    if (waitpid(process.pid, &process.waitStatus, 0) != process.pid) {
        throw std::runtime_error("the end of the fork is lost");
    }
    return process;
}

inline std::string EndOfAChild() {
    int status = 0;
    if (waitpid(-1, &status, 0) <= 0) {
        return "no child";
    }
    return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
}

}  // namespace kennly::test
