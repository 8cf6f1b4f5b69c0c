#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

#include "config/DogConfig.h"
#include "main/ProcessState.h"
#include "support/TemporaryDirectory.h"

namespace kennly::bench {

/// A configuration of so many jobs, in a file of its own.
class ConfigurationFile {
public:
    explicit ConfigurationFile(std::int64_t jobs) : path_(directory_.Write("jobs", Text(jobs))) {}

    /// Where it lies.
    const std::string& Path() const { return path_; }

private:
    static std::string Text(std::int64_t jobs) {
        std::ostringstream text;
        text << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kennly maxloaderrors=\"5\">\n";
        for (std::int64_t i = 0; i < jobs; ++i) {
            text << "  <job name=\"service-" << i << "\" enabled=\"true\" maxerrors=\"3\">\n"
                 << "    <check type=\"CheckCommandResult\" delay=\"30\">\n"
                 << "      <param value=\"systemctl is-active service-" << i << "\"/>\n"
                 << "    </check>\n"
                 << "    <remedy type=\"Execute\" delay=\"5\" blockaction=\"/run/maintenance\">\n"
                 << "      <param value=\"systemctl restart service-" << i << "\"/>\n"
                 << "    </remedy>\n"
                 << "  </job>\n";
        }
        text << "</kennly>\n";
        return text.str();
    }

    const test::TemporaryDirectory directory_;
    const std::string path_;
};

/// The floor of a load: the parser's own LoadFile of such a file, and the end of its document.
class ParserAlone {
public:
    explicit ParserAlone(std::int64_t jobs) : file_(jobs) {}

    /// Returns whether there is an element.
    bool Once() const {
        TiXmlDocument document(file_.Path().c_str());
        return document.LoadFile() && document.FirstChildElement() != nullptr;
    }

private:
    const ConfigurationFile file_;
};

/// A load as the daemon does it; from the second one on, it replaces the jobs of the one before.
class WholeLoad {
public:
    explicit WholeLoad(std::int64_t jobs) : file_(jobs), jobs_(static_cast<std::size_t>(jobs)) {}

    /// Returns whether all jobs were loaded.
    bool Once() {
        std::snprintf(configFile, sizeof(configFile), "%s", file_.Path().c_str());
        return config_.Load() && config_.Jobs().size() == jobs_;
    }

private:
    const ConfigurationFile file_;
    const std::size_t jobs_;
    DogConfig config_;
};

}  // namespace kennly::bench
