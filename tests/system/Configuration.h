#pragma once

#include <string>
#include <vector>

namespace kennly::test {

/// The directory in which the test's commands leave their traces; the daemon's own data lie there.
inline const std::string DataDirectory = "/opt/qrv/data/kennly";

/// `text` as it has to stand in an attribute.
inline std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

inline std::string Param(const std::string& value) {
    return "<param value=\"" + Escaped(value) + "\"/>";
}

/// The check that runs `command`, with attributes like `delay="1"`.
inline std::string Check(const std::string& command, const std::string& attributes = "") {
    return "<check type=\"CheckCommandResult\" " + attributes + ">" + Param(command) + "</check>\n";
}

/// The check of any type with these parameters, by default once a second.
inline std::string CheckOfType(const std::string& type, const std::vector<std::string>& params,
                               const std::string& attributes = "delay=\"1\"") {
    std::string check = "<check type=\"" + type + "\" " + attributes + ">";
    for (const std::string& value : params) {
        check += Param(value);
    }
    return check + "</check>\n";
}

/// The remedy that starts `command`, with attributes like `delay="1"`.
inline std::string Remedy(const std::string& command, const std::string& attributes = "",
                          const std::string& type = "Execute") {
    return "<remedy type=\"" + type + "\" " + attributes + ">" + Param(command) + "</remedy>\n";
}

inline std::string Job(const std::string& name, const std::string& checkAndRemedy,
                       const std::string& attributes = "") {
    return "<job name=\"" + name + "\" enabled=\"true\" " + attributes + ">\n" + checkAndRemedy +
           "</job>\n";
}

/// A job that is not enabled. The line about it tells that this file has been loaded.
inline std::string Marker(const std::string& name) {
    return "<job name=\"" + name + "\"/>\n";
}

inline std::string Configuration(const std::string& jobs, const std::string& attributes = "") {
    return "<kennly " + attributes + ">\n" + jobs + "</kennly>\n";
}

/// A file that is no one's but the test's.
inline std::string PathOf(const std::string& name) {
    return DataDirectory + "/" + name;
}

/// A shell command that writes the output of another one to the file `name`, and then "end".
inline std::string Reporting(const std::string& command, const std::string& name) {
    return command + " >" + PathOf(name) + "; echo end >>" + PathOf(name);
}

/// A file for the traces of one command.
inline std::string TracePath(const std::string& name) {
    return DataDirectory + "/trace-" + name;
}

/// The file that a job watches.
inline std::string WatchedPath(const std::string& job) {
    return PathOf("watched-" + job);
}

/// Where the daemon remembers the time of the file that a job watches.
inline std::string RecordPath(const std::string& job) {
    return DataDirectory + "/config/filetimes/" + job;
}

/// A shell command that appends the time, in nanoseconds, to the trace `name`.
inline std::string Note(const std::string& name) {
    return "date +%s%N >>" + TracePath(name);
}

/// The same for a remedy, which is one command and not a line for the shell.
inline std::string NoteInShell(const std::string& name) {
    return "sh -c '" + Note(name) + "'";
}

/// A healthy job beside others, whose traces tell that theirs had time to go on.
inline std::string Beside() {
    return Job("beside", Check(Note("beside") + "; true", "delay=\"1\"") + Remedy("true"));
}

}  // namespace kennly::test
