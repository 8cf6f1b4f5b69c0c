#include "daemon/ProcessorTime.h"

#include <unistd.h>

#include <ctime>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/ProcessView.h"

namespace kennly::bench {

double OwnProcessorTime(pid_t process) {
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("the process has ended");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double ProcessorTimeOfWorkers(pid_t process) {
    const std::string thread = "task/" + std::to_string(process) + "/schedstat";
    const std::string nanoseconds = test::ProcessFile(process, thread);
    if (nanoseconds.empty()) {
        throw std::runtime_error("the kernel does not tell the time of a thread");
    }
    return OwnProcessorTime(process) - std::stod(nanoseconds) * 1e-9;
}

double ChildrenProcessorTime(pid_t process) {
    const std::string text = test::ProcessFile(process, "stat");
    // Behind the name, which may have any characters: its state is the third field, the children's
    // times are the sixteenth and the seventeenth.
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 16; ++field) {
        fields >> skipped;
    }
    double userTicks = 0;
    double systemTicks = 0;
    if (!(fields >> userTicks >> systemTicks)) {
        throw std::runtime_error("the process has ended");
    }
    return (userTicks + systemTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double ProcessorTime(pid_t process) {
    return OwnProcessorTime(process) + ChildrenProcessorTime(process);
}

}  // namespace kennly::bench
