#include "support/SystemLogLine.h"

#include <syslog.h>

#include <array>
#include <cstddef>
#include <cstdio>

namespace kennly::test {
namespace {

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool IsLetter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

void TakePriority(std::string_view& rest, LogLine& line) {
    constexpr int Priorities = 24 * 8;  // facilities by severities
    const std::size_t end = rest.find('>');
    if (rest.empty() || rest[0] != '<' || end == std::string_view::npos || end < 2 || end > 4) {
        return;
    }
    int priority = 0;
    for (const char character : rest.substr(1, end - 1)) {
        if (!IsDigit(character)) {
            return;
        }
        priority = priority * 10 + (character - '0');
    }
    if (priority >= Priorities) {
        return;
    }
    line.facility = priority & LOG_FACMASK;
    line.severity = priority & LOG_PRIMASK;
    rest.remove_prefix(end + 1);
}

bool FitsTime(char expected, char found) {
    switch (expected) {
        case 'A':
            return IsLetter(found);
        case '0':
            return IsDigit(found);
        case '_':
            return IsDigit(found) || found == ' ';
        default:
            return found == expected;
    }
}

void TakeTime(std::string_view& rest) {
    constexpr std::string_view Shape = "AAA _0 00:00:00 ";  // days below ten have a space before
    if (rest.size() < Shape.size()) {
        return;
    }
    for (std::size_t index = 0; index < Shape.size(); ++index) {
        if (!FitsTime(Shape[index], rest[index])) {
            return;
        }
    }
    rest.remove_prefix(Shape.size());
}

std::string_view WithoutProcessNumber(std::string_view identity) {
    const std::size_t open = identity.rfind('[');
    if (open == std::string_view::npos || identity.back() != ']' || open + 2 >= identity.size()) {
        return identity;
    }
    for (const char character : identity.substr(open + 1, identity.size() - open - 2)) {
        if (!IsDigit(character)) {
            return identity;
        }
    }
    return identity.substr(0, open);
}

void TakeIdentity(std::string_view& rest, LogLine& line) {
    constexpr std::string_view Separator = ": ";
    const std::size_t end = rest.find(Separator);
    if (end == std::string_view::npos) {
        return;
    }
    const std::string_view identity = rest.substr(0, end);
    for (const char character : identity) {
        if (static_cast<unsigned char>(character) <= ' ') {
            return;  // a colon somewhere in the text of a message that has no identity
        }
    }
    line.identity = WithoutProcessNumber(identity);
    rest.remove_prefix(end + Separator.size());
}

std::string Escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += "\\n";
        } else if (character == '\\') {
            result += "\\\\";
        } else if (character >= ' ' && character <= '~') {
            result += character;
        } else {
            std::array<char, 8> code = {};
            std::snprintf(code.data(), code.size(), "\\x%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(character)));
            result += code.data();
        }
    }
    return result;
}

std::string PriorityName(const LogLine& line) {
    static constexpr std::array<const char*, 24> Facilities = {
        "kern",   "user",   "mail",   "daemon", "auth",   "syslog", "lpr",    "news",
        "uucp",   "cron",   "auth2",  "ftp",    "ntp",    "audit",  "alert",  "clock",
        "local0", "local1", "local2", "local3", "local4", "local5", "local6", "local7"};
    static constexpr std::array<const char*, 8> Severities = {"emerg",   "alert",  "crit", "err",
                                                              "warning", "notice", "info", "debug"};
    if (line.facility < 0 || line.severity < 0) {
        return "unknown";
    }
    const auto facility = static_cast<std::size_t>(line.facility >> 3) % Facilities.size();
    const auto severity = static_cast<std::size_t>(line.severity) % Severities.size();
    return std::string(Facilities[facility]) + "." + Severities[severity];
}

}  // namespace

LogLine ParseLogLine(std::string_view datagram) {
    LogLine line;
    TakePriority(datagram, line);
    TakeTime(datagram);
    TakeIdentity(datagram, line);
    line.text = datagram;
    return line;
}

std::string DescribeLog(const std::vector<LogLine>& lines) {
    std::string result;
    for (const LogLine& line : lines) {
        const std::chrono::duration<double> since = line.arrival - lines.front().arrival;
        std::array<char, 32> time = {};
        std::snprintf(time.data(), time.size(), "%9.3f ", since.count());
        result += time.data() + PriorityName(line) + " " + Escaped(line.identity) + ": " +
                  Escaped(line.text) + "\n";
    }
    return result;
}

}  // namespace kennly::test
