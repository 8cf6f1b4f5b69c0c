// What stands in for the daemon's program where only its processes are looked at: it takes any
// options, and does what the lines on its standard input ask for. Ends with that input.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* MarkOfChild = "KENNLY_STAND_IN_CHILD";

using Words = std::vector<std::string>;

// Some number of threads that do nothing.
class Threads {
public:
    ~Threads() { End(); }

    void End() {
        end_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
        end_ = false;
    }

    void Start(int count) {
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([this] {
                while (!end_) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                }
            });
        }
    }

private:
    std::atomic<bool> end_{false};
    std::vector<std::thread> threads_;
};

void Execute(const char* program, Words words) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(program, arguments.data());
    _exit(127);
}

// Returns the number of the new process once it has become what it is to be.
pid_t StartChild(const char* program, const Words& words, int input) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        std::abort();
    }
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(input, STDIN_FILENO);
        Execute(program, words);
    }
    close(ends[1]);
    char nothing = 0;
    while (read(ends[0], &nothing, 1) > 0) {
    }
    close(ends[0]);
    return child;
}

// Until all who could write to it have gone.
void AwaitEndOfInput() {
    pollfd input = {STDIN_FILENO, 0, 0};
    while (poll(&input, 1, -1) <= 0 || (input.revents & (POLLHUP | POLLERR)) == 0) {
    }
}

Words Split(const std::string& text) {
    Words words;
    std::istringstream rest(text);
    for (std::string word; std::getline(rest, word, '\x1F');) {
        words.push_back(word);
    }
    return words;
}

// Shows no arguments any more, as a process does whose memory the kernel has taken back already:
// gives back the page that they begin in. That may be one of this thread's stack, to which it
// therefore never returns. Answers, and ends with the input.
[[noreturn]] void ForgetArguments(const char* first) {
    std::thread([first] {
        const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto begin = reinterpret_cast<std::uintptr_t>(first) / size * size;
        munmap(reinterpret_cast<void*>(begin), size);
        std::cout << 0 << std::endl;
        char nothing = 0;
        while (read(STDIN_FILENO, &nothing, 1) > 0) {
        }
        _exit(0);
    }).join();
    _exit(1);
}

// "VERB\x1FWORD...": answered by the number of the process that has been started, or 0.
pid_t Obey(const std::string& line, const char* self, int input, Threads& threads) {
    Words words = Split(line);
    const std::string verb = words.front();
    words.erase(words.begin());
    if (verb == "threads" || verb == "more") {  // so many new ones, or in addition
        if (verb == "threads") {
            threads.End();
        }
        threads.Start(std::atoi(words.front().c_str()));
        return 0;
    }
    if (verb == "forget") {
        ForgetArguments(self);
    }
    if (verb == "child") {  // this program once more, with these options
        words.insert(words.begin(), self);
        setenv(MarkOfChild, "1", 1);
        return StartChild(self, words, input);
    }
    if (verb == "run") {  // the program, then the words that it is to see
        const std::string program = words.front();
        words.erase(words.begin());
        return StartChild(program.c_str(), words, input);
    }
    const pid_t ended = fork();  // "ended": a child that is never reaped
    if (ended == 0) {
        _exit(0);
    }
    siginfo_t end = {};
    waitid(P_PID, static_cast<id_t>(ended), &end, WEXITED | WNOWAIT);
    return ended;
}

}  // namespace

int main(int /*argumentCount*/, char** arguments) {
    if (std::getenv(MarkOfChild) != nullptr) {
        AwaitEndOfInput();
        return 0;
    }
    int ends[2] = {-1, -1};  // what it has started ends with it too
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return 1;
    }
    Threads threads;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << Obey(line, arguments[0], ends[0], threads) << std::endl;
    }
    return 0;
}
