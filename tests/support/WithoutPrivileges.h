#pragma once

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace kennly::test {

/// Makes the process an ordinary user where it is root, also in the eyes of access(), for as long
/// as the object lives.
class WithoutPrivileges {
public:
    WithoutPrivileges() {
        if (wasRoot_ && setresuid(Nobody, Nobody, 0) != 0) {
            throw std::runtime_error("cannot give up privileges");
        }
    }
    ~WithoutPrivileges() {
        if (wasRoot_ && setresuid(0, 0, 0) != 0) {
            std::abort();
        }
    }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

private:
    static constexpr uid_t Nobody = 65534;
    const bool wasRoot_ = geteuid() == 0;
};

}  // namespace kennly::test
