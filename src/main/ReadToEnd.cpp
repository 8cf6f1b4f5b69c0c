#include "main/ReadToEnd.h"

#include <unistd.h>

#include <array>
#include <cerrno>

namespace kennly {

bool ReadToEnd(int file, std::string& content) {
    std::array<char, 16384> chunk = {};
    for (;;) {
        const ssize_t got = read(file, chunk.data(), chunk.size());
        if (got > 0) {
            content.append(chunk.data(), static_cast<std::size_t>(got));
        } else if (got == 0) {
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
}

}  // namespace kennly
