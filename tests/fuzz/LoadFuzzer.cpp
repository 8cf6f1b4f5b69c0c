// Loads whatever libFuzzer thinks up as a configuration file, by the code that the daemon runs, and
// demands of every load what has to hold for all of them.

#include <sys/mman.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "action/DogExecuteAction.h"
#include "config/DogConfig.h"
#include "config/FileInspection.h"
#include "config/XmlOutline.h"
#include "fuzz/LoaderLines.h"
#include "main/ProcessState.h"
#include "support/GuardedText.h"
#include "support/ParsedOutline.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly::test {

namespace {

// No attribute is likely to give this one by chance.
constexpr std::int32_t LimitBefore = 1234567;

void Demand(bool holds, const char* what) {
    if (!holds) {
        Found(std::string("this does not hold: ") + what);
    }
}

// The configuration file: in memory, nameless, reached by a path all the same, and gone with the
// process however it ends.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("configuration", MFD_CLOEXEC)) {
        Demand(descriptor_ >= 0, "there is memory for a file");
        std::snprintf(configFile, sizeof(configFile), "/proc/self/fd/%d", descriptor_);
        // Nothing is below it: a record that a check wrote would go nowhere.
        std::snprintf(configDir, sizeof(configDir), "/dev/null");
    }

    void Write(const std::string& text) const {
        Demand(ftruncate(descriptor_, 0) == 0 && pwrite(descriptor_, text.data(), text.size(), 0) ==
                                                     static_cast<ssize_t>(text.size()),
               "the file takes the input");
    }

private:
    const int descriptor_;
};

// One load: what it returned, logged and left behind.
struct LoadResult {
    bool loaded = false;
    std::vector<RecordedLine> lines;
    std::vector<std::string> jobs;  // each with all that its elements said
    std::int32_t limit = 0;
};

std::string Joined(const std::list<std::string>& params) {
    std::string joined;
    for (const std::string& param : params) {
        joined += std::to_string(param.size()) + ":" + param;
    }
    return joined;
}

std::string Described(const DogJob& job) {
    std::string text = job.name + "\n" + std::to_string(job.maxErrors) + " " +
                       std::to_string(job.check->type) + " " + std::to_string(job.check->delay) +
                       " " + Joined(job.check->params);
    if (const auto* const command = dynamic_cast<const DogCheckCommandWatch*>(job.check)) {
        text += (command->anyNonZeroFails ? " any " : " only ") +
                std::to_string(command->runActionResult);
    }
    const DogAction& remedy = *job.remedy;
    return text + "\n" + std::to_string(remedy.type) + " " + std::to_string(remedy.delay) + " " +
           Joined({remedy.blockAction, remedy.blockAction2, remedy.blockAction3}) + " " +
           Joined(remedy.params);
}

void ExpectComplete(const DogJob& job) {
    Demand(job.enabled, "a kept job is enabled");
    Demand(job.slotBase == NoWorkers, "a loaded job has no workers yet");
    Demand(job.check != nullptr, "a kept job has a check");
    Demand(job.remedy != nullptr, "a kept job has a remedy");
    Demand(job.check->jobName == job.name, "a check bears the name of its job");
    Demand(job.remedy->jobName == job.name, "a remedy bears the name of its job");
    Demand(job.check->type >= CheckTypeCommandResult &&
               job.check->type <= CheckTypeListeningSocketResponse,
           "a check has a known type");
    Demand((dynamic_cast<const DogCheckCommandWatch*>(job.check) != nullptr) ==
               (job.check->type == CheckTypeCommandResult),
           "a check is what its type says");
    Demand(job.remedy->type == RemedyTypeExecute || job.remedy->type == RemedyTypeExecuteAlways,
           "a remedy has a known type");
    Demand(dynamic_cast<const DogExecuteAction*>(job.remedy) != nullptr,
           "a remedy is what its type says");
}

void ExpectConsistent(DogConfig& config) {
    std::set<std::string> names;
    for (const JobHandle& job : config.Jobs()) {
        Demand(job != nullptr, "no job is null");
        ExpectComplete(*job);
        Demand(names.insert(job->name).second, "no two jobs have one name");
        Demand(config.FindJob(job->name) == job, "a job is found by its name");
    }
}

LoadResult LoadOnce(DogConfig& config) {
    maxLoadErrors = LimitBefore;
    LoadResult result;
    result.loaded = config.Load();
    result.lines = TakeLines();
    result.limit = maxLoadErrors;
    ExpectConsistent(config);
    for (const JobHandle& job : config.Jobs()) {
        result.jobs.push_back(Described(*job));
    }
    return result;
}

void ExpectDocumentedLines(const LoadResult& result) {
    for (const RecordedLine& line : result.lines) {
        if (!MayBeLogged(line)) {
            Found("a line that is not documented: " + line.text);
        }
    }
    if (!result.loaded) {
        Demand(result.jobs.empty(), "a refused file leaves no job");
        Demand(result.lines.size() == 1, "a refused file is reported in one line");
        Demand(result.limit == LimitBefore, "a refused file leaves the limit alone");
    }
}

// The limit that a file with this root sets.
std::int32_t ExpectedLimit(const TiXmlElement& root) {
    const char* const text = root.Attribute("maxloaderrors");
    if (text == nullptr) {
        return LimitBefore;
    }
    const long long number = std::strtoll(text, nullptr, 10);
    return static_cast<std::int32_t>(
        std::min<long long>(std::max<long long>(number, std::numeric_limits<std::int32_t>::min()),
                            std::numeric_limits<std::int32_t>::max()));
}

// The look at a file before it is parsed must not miss anything that the parser will see.
void ExpectOutlined(const std::string& text, const TiXmlDocument& document, bool accepted) {
    const XmlOutline seen = OutlineXml(AsRead(text), std::numeric_limits<std::size_t>::max());
    const XmlOutline parsed = OutlineOf(document);
    Demand(seen.depth >= parsed.depth, "the parser nests elements no deeper than the outline");
    Demand(seen.attributes >= parsed.attributes, "the parser finds no more attributes");
    if (accepted) {
        Demand(seen.depth == parsed.depth, "the parser nests elements as deep as the outline");
        Demand(seen.attributes == parsed.attributes, "the parser finds the same attributes");
    }
}

// The text lies where reading on behind it ends the process. What TinyXML makes of it there is what
// it has made of the file: none of that came from behind the text.
void ExpectNothingReadBehind(const std::string& text, const TiXmlDocument& document) {
    const GuardedText guarded(AsRead(text));
    TiXmlDocument alone;
    alone.Parse(guarded.Begin());
    const XmlOutline expected = OutlineOf(document);
    const XmlOutline found = OutlineOf(alone);
    Demand(alone.Error() == document.Error(), "the parser's verdict is on the text alone");
    Demand(found.depth == expected.depth && found.attributes == expected.attributes,
           "the parser finds in a file what it finds in the text alone");
}

void ExpectWhatTheParserSees(const std::string& text, const LoadResult& result) {
    if (!InspectConfigFile(configFile).empty()) {
        Demand(!result.loaded, "what would harm the parser is refused");
        return;
    }
    TiXmlDocument document(configFile);
    const bool accepted = document.LoadFile();
    const TiXmlElement* const root = document.FirstChildElement();
    Demand(result.loaded == (accepted && root != nullptr), "the verdict is the parser's");
    if (result.loaded) {
        Demand(result.limit == ExpectedLimit(*root), "the limit is what the root says");
    }
    ExpectOutlined(text, document, accepted);
    ExpectNothingReadBehind(text, document);
}

void LoadTwice(const std::string& text) {
    DogConfig config;
    const LoadResult first = LoadOnce(config);
    ExpectDocumentedLines(first);
    ExpectWhatTheParserSees(text, first);
    const LoadResult second = LoadOnce(config);
    Demand(second.loaded == first.loaded, "a second load returns the same");
    Demand(second.jobs == first.jobs, "a second load gives the same jobs");
    Demand(second.lines == first.lines, "a second load logs the same lines");
    Demand(second.limit == first.limit, "a second load gives the same limit");
}

}  // namespace

}  // namespace kennly::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kennly::test::MemoryFile file;
    const std::string text(reinterpret_cast<const char*>(data), size);
    file.Write(text);
    kennly::test::LoadTwice(text);
    return 0;
}
