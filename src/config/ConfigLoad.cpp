#include <strings.h>
#include <tinyxml.h>

#include "config/DogConfig.h"
#include "config/ElementParser.h"
#include "config/FileInspection.h"
#include "main/Log.h"
#include "main/ProcessState.h"

namespace kennly {

namespace {

bool IsEnabled(const TiXmlElement& job) {
    const char* const enabled = job.Attribute("enabled");
    return enabled != nullptr && strcasecmp(enabled, "true") == 0;
}

void LogLoadFailure(const char* description) {
    LogError("config file failed to load, error:", description);
}

}  // namespace

bool DogConfig::Load() {
    mutex_.Lock();
    const LoadOutcome outcome = LoadGuarded();
    mutex_.Unlock();
    if (outcome == LoadOutcome::Threw) {
        LogError("exception while loading config");
    }
    return outcome == LoadOutcome::Loaded;
}

DogConfig::LoadOutcome DogConfig::LoadGuarded() {
    try {
        return LoadFile() ? LoadOutcome::Loaded : LoadOutcome::Refused;
    } catch (...) {  // reported once the lock is released
        return LoadOutcome::Threw;
    }
}

bool DogConfig::LoadFile() {
    ClearJobs();
    const std::string problem = InspectConfigFile(configFile);
    if (!problem.empty()) {
        LogLoadFailure(problem.c_str());
        return false;
    }
    TiXmlDocument document(configFile);
    if (!document.LoadFile()) {
        LogLoadFailure(document.ErrorDesc());
        return false;
    }
    const TiXmlElement* const root = document.FirstChildElement();
    if (root == nullptr) {  // nothing but comments or a declaration
        LogLoadFailure("no element in the document");
        return false;
    }
    maxLoadErrors = NumberAttribute(*root, "maxloaderrors", maxLoadErrors);
    for (const TiXmlElement* child = root->FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "job")) {
            ParseJob(*child);  // a bad job is logged and left out; it never stops the load
        }
    }
    return true;
}

bool DogConfig::ParseJob(const TiXmlElement& element) {
    const char* const nameText = element.Attribute("name");
    if (nameText == nullptr) {
        LogError("job name missing");
        return false;
    }
    const std::string name = nameText;
    if (FindJob(name)) {
        LogError("job name already exists - ignoring job:", name.c_str());
        return false;
    }
    if (!IsEnabled(element)) {
        LogDebug("job not enabled - ignoring job:", name.c_str());
        return false;
    }
    const JobHandle job = NewJob();
    job->enabled = true;
    job->name = name;
    job->maxErrors = NumberAttribute(element, "maxerrors", 0);
    if (!ParseCheckAndRemedy(name, element, *job)) {
        return false;
    }
    AddJob(job);
    return true;
}

bool DogConfig::ParseCheckAndRemedy(const std::string& name, const TiXmlElement& element,
                                    DogJob& job) {
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (IsNamed(*child, "remedy")) {
            if (job.remedy != nullptr) {
                LogError("extra remedy ignored in job:", name.c_str());
            } else {  // null when it was refused, so that a later one has its chance
                job.remedy = ParseRemedy(name, *child).release();
            }
        } else if (IsNamed(*child, "check")) {
            if (job.check != nullptr) {
                LogError("extra check ignored in job:", name.c_str());
            } else {
                job.check = ParseCheck(name, *child).release();
            }
        }
    }
    if (job.remedy == nullptr) {
        LogError("no remedy defined in job:", name.c_str());
        return false;
    }
    if (job.check == nullptr) {
        LogError("no check defined in job:", name.c_str());
        return false;
    }
    return true;
}

}  // namespace kennly
