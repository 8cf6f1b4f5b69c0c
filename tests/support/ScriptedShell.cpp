#include "support/ScriptedShell.h"

#include <cerrno>

namespace kennly::test {

ScriptedShell shell;

}  // namespace kennly::test

extern "C" {

int __real_system(const char* commandLine);
int __wrap_system(const char* commandLine);

int __wrap_system(const char* commandLine) {
    using kennly::test::shell;
    shell.commandLines.emplace_back(commandLine);
    if (shell.whenCalled) {
        shell.whenCalled();
    }
    if (!shell.scripted) {
        return __real_system(commandLine);
    }
    errno = shell.error;
    return shell.result;
}
}
