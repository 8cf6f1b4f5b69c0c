#include "lint/LogRecorder.h"

#include <initializer_list>
#include <mutex>

#include "main/Log.h"

namespace kennly {

namespace {

std::mutex linesLock;
std::vector<DaemonLine> lines;  // guarded by linesLock

void Record(bool isError, std::initializer_list<const char*> texts) noexcept {
    try {
        DaemonLine line;
        line.isError = isError;
        const char* separator = "";
        for (const char* const text : texts) {
            line.text.append(separator).append(text);
            separator = " ";
        }
        const std::lock_guard<std::mutex> lock(linesLock);
        lines.push_back(line);
    } catch (...) {  // without memory for a line, its caller is about to fail as well
    }
}

}  // namespace

std::vector<DaemonLine> TakeDaemonLines() {
    const std::lock_guard<std::mutex> lock(linesLock);
    std::vector<DaemonLine> taken;
    taken.swap(lines);
    return taken;
}

void LogError(const char* a) noexcept {
    Record(true, {a});
}

void LogError(const char* a, const char* b) noexcept {
    Record(true, {a, b});
}

void LogError(const char* a, const char* b, const char* c) noexcept {
    Record(true, {a, b, c});
}

void LogError(const char* a, const char* b, const char* c, const char* d) noexcept {
    Record(true, {a, b, c, d});
}

void LogDebug(const char* a) noexcept {
    Record(false, {a});
}

void LogDebug(const char* a, const char* b) noexcept {
    Record(false, {a, b});
}

void LogDebug(const char* a, const char* b, const char* c) noexcept {
    Record(false, {a, b, c});
}

void LogDebug(const char* a, const char* b, const char* c, const char* d) noexcept {
    Record(false, {a, b, c, d});
}

}  // namespace kennly
