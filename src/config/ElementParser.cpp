#include "config/ElementParser.h"

#include <strings.h>
#include <tinyxml.h>

#include "action/CreateAction.h"
#include "config/Number.h"
#include "main/Log.h"
#include "watch/CreateWatch.h"
#include "watch/DogCheckCommandWatch.h"

namespace kennly {

namespace {

struct TypeName {
    const char* name;
    std::int32_t code;
};

constexpr TypeName CheckTypes[] = {
    {"CheckCommandResult", CheckTypeCommandResult},
    {"CheckForFileChange", CheckTypeFileChange},
    {"CheckForNoFileChange", CheckTypeNoFileChange},
    {"CheckSocketListening", CheckTypeSocketListening},
    {"CheckListeningSocketResponse", CheckTypeListeningSocketResponse},
};

constexpr TypeName RemedyTypes[] = {
    {"Execute", RemedyTypeExecute},
    {"ExecuteAlways", RemedyTypeExecuteAlways},
};

template <typename Table>
std::int32_t CodeFromName(const Table& table, const char* name, std::int32_t unknown) {
    for (const TypeName& row : table) {
        if (strcasecmp(row.name, name) == 0) {
            return row.code;
        }
    }
    return unknown;
}

std::string TextAttribute(const TiXmlElement& element, const char* name) {
    const char* const text = element.Attribute(name);
    return text != nullptr ? text : "";
}

std::list<std::string> ParseParams(const std::string& jobName, const TiXmlElement& element,
                                   const char* missingValue) {
    std::list<std::string> params;
    for (const TiXmlElement* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (!IsNamed(*child, "param")) {
            continue;
        }
        if (const char* const value = child->Attribute("value")) {
            params.emplace_back(value);
        } else {
            LogError(missingValue, jobName.c_str());
        }
    }
    return params;
}

void ReadFailureStatus(const TiXmlElement& element, DogCheckCommandWatch& check) {
    if (element.Attribute("runactionresult") != nullptr) {
        check.anyNonZeroFails = false;
        check.runActionResult = NumberAttribute(element, "runactionresult", 0);
    }
}

}  // namespace

bool IsNamed(const TiXmlElement& element, const char* name) {
    return strcasecmp(element.Value(), name) == 0;
}

std::int32_t NumberAttribute(const TiXmlElement& element, const char* name, std::int32_t absent) {
    const char* const text = element.Attribute(name);
    return text != nullptr ? NumberFromText(text) : absent;
}

std::int32_t CheckTypeFromName(const char* name) {
    return CodeFromName(CheckTypes, name, CheckTypeUnknown);
}

std::int32_t RemedyTypeFromName(const char* name) {
    return CodeFromName(RemedyTypes, name, RemedyTypeUnknown);
}

std::unique_ptr<DogWatch> ParseCheck(const std::string& jobName, const TiXmlElement& element) {
    const char* const typeName = element.Attribute("type");
    if (typeName == nullptr) {
        LogError("check type missing in job", jobName.c_str());
        return nullptr;
    }
    const std::int32_t type = CheckTypeFromName(typeName);
    if (type == CheckTypeUnknown) {
        LogError("check type", typeName, "invalid in job", jobName.c_str());
        return nullptr;
    }
    std::unique_ptr<DogWatch> check = CreateWatch(type);
    check->jobName = jobName;
    check->type = type;
    check->delay = NumberAttribute(element, "delay", 0);
    if (type == CheckTypeCommandResult) {
        ReadFailureStatus(element, static_cast<DogCheckCommandWatch&>(*check));
    }
    check->params = ParseParams(jobName, element, "check param missing its value in job");
    return check;
}

std::unique_ptr<DogAction> ParseRemedy(const std::string& jobName, const TiXmlElement& element) {
    const char* const typeName = element.Attribute("type");
    if (typeName == nullptr) {
        LogError("remedy type missing in job", jobName.c_str());
        return nullptr;
    }
    const std::int32_t type = RemedyTypeFromName(typeName);
    if (type == RemedyTypeUnknown) {
        LogError("remedy type", typeName, "not valid in job", jobName.c_str());
        return nullptr;
    }
    std::unique_ptr<DogAction> remedy = CreateAction(type);
    remedy->jobName = jobName;
    remedy->type = type;
    remedy->delay = NumberAttribute(element, "delay", 0);
    remedy->blockAction = TextAttribute(element, "blockaction");
    remedy->blockAction2 = TextAttribute(element, "blockaction2");
    remedy->blockAction3 = TextAttribute(element, "blockaction3");
    remedy->params = ParseParams(jobName, element, "remedy param missing its value in job");
    return remedy;
}

}  // namespace kennly
