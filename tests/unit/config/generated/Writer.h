#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/Dice.h"
#include "unit/config/generated/Configuration.h"

namespace kennly::test {

/// Writes configurations as XML, in one of the many spellings that mean the same.
class Writer {
public:
    explicit Writer(Dice& dice) : dice_(dice) {}

    /// The text of the file. The element number `doubled` of it, if there is one, gets two
    /// attributes of one name.
    std::string Write(const ConfigurationItem& configuration,
                      std::optional<std::size_t> doubled = std::nullopt) {
        doubled_ = doubled;
        elements_ = 0;
        std::string text = Prolog();
        std::string children;
        for (const JobItem& job : configuration.jobs) {
            children += Filler() + Job(job);
        }
        text += Element(dice_.Pick({"kennly", "config", "job", "_"}),
                        {{"maxloaderrors", configuration.limit.text}}, children + Filler());
        endOfRoot_ = text.size();
        return text + Epilog();
    }

    /// How many elements the last file has, and where its root ends.
    std::size_t Elements() const { return elements_; }
    std::size_t EndOfRoot() const { return endOfRoot_; }

private:
    using Attribute = std::pair<std::string, std::optional<std::string>>;

    std::string Prolog() {
        return dice_.Pick({"", "\n", "<?xml version='1.0'?>\n",
                           "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n",
                           "<?xml version='1.0' encoding='ISO-8859-1'?>", "\xEF\xBB\xBF",
                           "<!-- <kennly maxloaderrors='1'> -->", "<!DOCTYPE kennly>"});
    }

    std::string Epilog() {
        return dice_.Pick(
            {"", "\n", "<!-- end -->\n", "text",
             "<kennly maxloaderrors='77'><job name='second root' enabled='true'/></kennly>"});
    }

    std::string Job(const JobItem& job) {
        std::string children;
        for (const PartItem& part : job.parts) {
            children += Filler() + Part(part);
        }
        return Element(
            job.isJob ? dice_.AnyCase("job") : OtherName("job"),
            {{"name", job.name}, {"enabled", job.enabledText}, {"maxerrors", job.maxErrors.text}},
            children);
    }

    std::string Part(const PartItem& part) {
        std::string children;
        for (const ParamItem& param : part.params) {
            children += Filler() + Param(param);
        }
        const bool isCheck = part.kind == PartKind::Check;
        const std::string name = isCheck ? "check" : "remedy";
        return Element(part.kind == PartKind::Other ? OtherName(name) : dice_.AnyCase(name),
                       {{"type", part.type.text},
                        {"delay", part.delay.text},
                        {"runactionresult", part.failureStatus.text},
                        {"blockaction", part.blockFiles[0]},
                        {"blockaction2", part.blockFiles[1]},
                        {"blockaction3", part.blockFiles[2]}},
                       children);
    }

    // What a param holds does not matter.
    std::string Param(const ParamItem& param) {
        return Element(param.isParam ? dice_.AnyCase("param") : OtherName("param"),
                       {{"value", param.value}},
                       dice_.OneIn(6) ? "<param value='below'/><check type='Execute'/>" : "");
    }

    // The name of an element that means nothing.
    std::string OtherName(const std::string& name) {
        return dice_.Pick<std::string>(
            {name + "s", name + "2", "_" + name, name + ".", name.substr(1), "x:" + name, "other"});
    }

    // What may stand between elements and means nothing.
    std::string Filler() {
        return dice_.Pick(
            {"", "", "", " ", "\n    ", "\r\n", "some text", "it's > \"text\"", "&lt;job/&gt;",
             "<!-- <job name='comment' enabled='true'/> -->", "<![CDATA[<param value='x'/>]]>",
             "<?note <x?>", "<!note>",
             "<group><job name='inner' enabled='true'/><check/><remedy/><param/></group>"});
    }

    std::string Element(const std::string& name, std::vector<Attribute> attributes,
                        const std::string& children) {
        AddDecoys(attributes);
        dice_.Shuffle(attributes);
        std::string tag = "<" + name;
        for (const auto& [attribute, value] : attributes) {
            if (value) {
                tag += dice_.Pick({" ", "\n", " \t "}) + attribute + dice_.Pick({"=", "=", " = "}) +
                       Quoted(*value);
            }
        }
        if (elements_++ == doubled_) {
            tag += " twice='1' between='2' twice='1'";
        }
        if (children.empty() && dice_.OneIn(2)) {
            return tag + dice_.Pick({" />", "\n/>"});
        }
        return tag + dice_.Pick({">", " >"}) + children + "</" + name +
               dice_.Pick({">", ">", " >"});
    }

    // Attributes that differ from a known one in the case of a letter alone, or are unknown.
    void AddDecoys(std::vector<Attribute>& attributes) {
        if (dice_.OneIn(4)) {
            std::string decoy = dice_.Pick(attributes).first;
            decoy[0] = static_cast<char>(decoy[0] ^ ' ');
            attributes.emplace_back(decoy, dice_.Pick({"true", "1", "Execute"}));
        }
        if (dice_.OneIn(6)) {
            attributes.emplace_back("data-x", "<y>");
        }
    }

    std::string Quoted(const std::string& value) {
        const bool isPlain = !value.empty() && value.find_first_not_of(
                                                   "abcdefghijklmnopqrstuvwxyz"
                                                   "0123456789") == std::string::npos;
        if (isPlain && dice_.OneIn(4)) {
            return value;
        }
        const char quote = dice_.OneIn(2) ? '"' : '\'';
        std::string text(1, quote);
        for (const char c : value) {
            const bool mustBeEscaped = c == quote || c == '&';
            text += mustBeEscaped || dice_.OneIn(12) ? Escaped(c) : std::string(1, c);
        }
        return text + quote;
    }

    std::string Escaped(char c) {
        static const std::vector<std::pair<char, std::string>> entities = {
            {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&apos;"}};
        for (const auto& [character, entity] : entities) {
            if (c == character && dice_.OneIn(2)) {
                return entity;
            }
        }
        if (static_cast<unsigned char>(c) > 0x7F) {
            return {c};
        }
        char number[16];
        std::snprintf(number, sizeof(number), dice_.OneIn(2) ? "&#%d;" : "&#x%x;", c);
        return number;
    }

    Dice& dice_;
    std::optional<std::size_t> doubled_;
    std::size_t elements_ = 0;
    std::size_t endOfRoot_ = 0;
};

}  // namespace kennly::test
