#pragma once

#include <limits>
#include <string>
#include <vector>

#include "support/Dice.h"
#include "unit/config/generated/Configuration.h"

namespace kennly::test {

/// Thinks up configurations with every kind of peculiarity, most of their jobs nearly right.
class Generator {
public:
    explicit Generator(Dice& dice) : dice_(dice) {}

    ConfigurationItem Configuration() {
        ConfigurationItem configuration;
        configuration.limit = MaybeNumber(2);
        for (std::size_t left = dice_.Below(8); left > 0; --left) {
            configuration.jobs.push_back(Job());
        }
        return configuration;
    }

private:
    JobItem Job() {
        static const std::vector<std::string> on = {"true", "TRUE", "True", "tRuE"};
        static const std::vector<std::string> off = {"false", "yes",   "1",        "",
                                                     " true", "true ", "truetrue", "tru"};
        JobItem job;
        job.isJob = !dice_.OneIn(8);
        if (!dice_.OneIn(12)) {
            job.name = Text();
        }
        job.enabled = !dice_.OneIn(6);
        if (job.enabled) {
            job.enabledText = dice_.Pick(on);
        } else if (!dice_.OneIn(3)) {
            job.enabledText = dice_.Pick(off);
        }
        job.maxErrors = MaybeNumber(2);
        AddParts(job.parts);
        return job;
    }

    // A check and a remedy most of the time, and then a few more of anything, in any order.
    void AddParts(std::vector<PartItem>& parts) {
        for (const PartKind kind : {PartKind::Check, PartKind::Remedy}) {
            if (!dice_.OneIn(8)) {
                parts.push_back(Part(kind));
            }
        }
        while (dice_.OneIn(2)) {
            parts.push_back(
                Part(dice_.Pick<PartKind>({PartKind::Check, PartKind::Remedy, PartKind::Other})));
        }
        dice_.Shuffle(parts);
    }

    PartItem Part(PartKind kind) {
        PartItem part;
        part.kind = kind;
        part.type = Type(kind);
        part.delay = MaybeNumber(2);
        part.failureStatus = MaybeNumber(3);
        for (int i = 0; i < 3; ++i) {
            part.blockFiles.push_back(dice_.OneIn(3) ? std::optional(Text()) : std::nullopt);
        }
        for (std::size_t left = dice_.Below(4); left > 0; --left) {
            part.params.push_back({!dice_.OneIn(5), Text()});
            if (dice_.OneIn(4)) {
                part.params.back().value.reset();
            }
        }
        return part;
    }

    TypeText Type(PartKind kind) {
        static const std::vector<TypeText> checks = {
            {"CheckCommandResult", 1},   {"CheckCommandResult", 1},
            {"CheckForFileChange", 2},   {"CheckForNoFileChange", 3},
            {"CheckSocketListening", 4}, {"CheckListeningSocketResponse", 5}};
        static const std::vector<TypeText> remedies = {{"Execute", 1}, {"ExecuteAlways", 2}};
        static const std::vector<std::string> common = {
            "", "Foo", "1", "<a&b>", " Execute", "CheckCommandResult ", "Check", "Exec"};
        if (dice_.OneIn(5)) {
            return dice_.OneIn(2) ? TypeText{} : TypeText{dice_.Pick(common), 0};
        }
        if (dice_.OneIn(12)) {  // right for the other kind
            return {dice_.Pick(kind == PartKind::Remedy ? checks : remedies).text, 0};
        }
        TypeText type = dice_.Pick(kind == PartKind::Remedy ? remedies : checks);
        type.text = dice_.AnyCase(*type.text);
        return type;
    }

    // Any string will do for a name, a path or a parameter; a few of them come again and again.
    std::string Text() {
        static const std::vector<std::string> texts = {"a",
                                                       "b",
                                                       "A",
                                                       "web",
                                                       "",
                                                       " a",
                                                       "a ",
                                                       "it's",
                                                       "x<y>z",
                                                       "a&b",
                                                       "say \"hello\"",
                                                       "%s %n",
                                                       "../etc",
                                                       "\xC3\xA4\xE2\x82\xAC",
                                                       "&lt;",
                                                       "&#65;",
                                                       "]]>",
                                                       "<!-- x -->",
                                                       "a=b",
                                                       "two\nlines",
                                                       "\ttab",
                                                       "a && b;",
                                                       "'\"'",
                                                       "</job>",
                                                       "a/>"};
        return dice_.Pick(texts);
    }

    NumberText MaybeNumber(std::size_t chances) {
        return dice_.OneIn(chances) ? Number() : NumberText{};
    }

    NumberText Number() {
        constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
        constexpr auto highest = std::numeric_limits<std::int32_t>::max();
        static const std::vector<NumberText> odd = {
            {"", 0},
            {"abc", 0},
            {" ", 0},
            {"-", 0},
            {"+-3", 0},
            {"- 5", 0},
            {"0x10", 0},
            {"1.9", 1},
            {"007", 7},
            {"5 6", 5},
            {"+4", 4},
            {"-0", 0},
            {"\t\n 12", 12},
            {"1e3", 1},
            {"\"3\"", 0},
            {"&#51;", 0},
            {"3<4", 3},
            {"\xC2\xA0"
             "7",
             0},
            {"2147483647", highest},
            {"2147483648", highest},
            {"-2147483648", lowest},
            {"-2147483649", lowest},
            {"4294967296", highest},
            {"-4294967296", lowest},
            {"99999999999999999999999", highest},
            {"-99999999999999999999999", lowest},
        };
        return dice_.OneIn(2) ? dice_.Pick(odd) : OrdinaryNumber();
    }

    NumberText OrdinaryNumber() {
        static const std::vector<std::string> before = {"", "", " ", "\t", "\n"};
        static const std::vector<std::string> behind = {"", "", " ", "s", "-1", ".5", "<"};
        const auto number = static_cast<std::int32_t>(dice_.Below(2000)) - 1000;
        const std::string sign = number > 0 && dice_.OneIn(4) ? "+" : "";
        return {dice_.Pick(before) + sign + std::to_string(number) + dice_.Pick(behind), number};
    }

    Dice& dice_;
};

}  // namespace kennly::test
