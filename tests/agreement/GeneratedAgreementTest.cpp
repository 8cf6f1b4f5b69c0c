#include <string>
#include <vector>

#include "agreement/AgreementFixture.h"
#include "unit/config/generated/Generator.h"
#include "unit/config/generated/Writer.h"

namespace kennly::test {

namespace {

constexpr unsigned FirstSeed = 70001;
// The daemon may run under a sanitizer, which takes many times as long to start.
const unsigned Configurations = RunsUnderSanitizer() ? 150 : 1000;

/// Spoils texts as hands, editors and disks do.
class Spoiler {
public:
    explicit Spoiler(Dice& dice) : dice_(dice) {}

    std::string Spoil(std::string text) {
        for (std::size_t left = 1 + dice_.Below(4); left > 0; --left) {
            SpoilOnce(text);
        }
        return text;
    }

private:
    void SpoilOnce(std::string& text) {
        const std::size_t place = dice_.Below(text.size() + 1);
        const std::size_t size = dice_.Below(40);
        switch (dice_.Below(7)) {
            case 0:
                text.resize(place);
                break;
            case 1:
                text.erase(place, size);
                break;
            case 2:
                text.insert(place, text.substr(dice_.Below(text.size() + 1), size));
                break;
            case 3:
                text.insert(place, 1, static_cast<char>(dice_.Below(256)));
                break;
            default:
                text.insert(place, Token());
        }
    }

    std::string Token() {
        using namespace std::string_literals;
        static const std::vector<std::string> tokens = {"\"",
                                                        "'",
                                                        "<",
                                                        ">",
                                                        "&",
                                                        "=",
                                                        "\0"s,
                                                        "\xC3",
                                                        "\xEF\xBB\xBF",
                                                        "\xFF\xFE",
                                                        "\r\n",
                                                        "/>",
                                                        "</",
                                                        "</job>",
                                                        "<job>",
                                                        "<job name='a' enabled='true'>",
                                                        "<check type='CheckCommandResult'>",
                                                        "<remedy type='Execute'/>",
                                                        "<param value='x'/>",
                                                        "<param/>",
                                                        "<!--",
                                                        "-->",
                                                        "<![CDATA[",
                                                        "]]>",
                                                        "<?xml version='1.0'?>",
                                                        "<!DOCTYPE k [",
                                                        " type=",
                                                        " type='Execute'",
                                                        " type=''",
                                                        " name=\"b\"",
                                                        " name=\"b\" name=\"b\"",
                                                        " enabled='true'",
                                                        " enabled='yes'",
                                                        " maxloaderrors='-1'",
                                                        " maxloaderrors='0'",
                                                        "&#0;",
                                                        "&#xFFFFFFFF;",
                                                        "&amp;",
                                                        "&lt"};
        return dice_.Pick(tokens);
    }

    Dice& dice_;
};

std::string Generate(unsigned seed) {
    Dice dice(seed);
    const ConfigurationItem configuration = Generator(dice).Configuration();
    Writer writer(dice);
    const std::string text = writer.Write(configuration);
    switch (seed % 5) {
        case 0:
            return writer.Write(configuration, dice.Below(writer.Elements()));
        case 1:
            return text.substr(0, dice.Below(text.size()));
        case 2:
            return Spoiler(dice).Spoil(text);
        default:
            return text;
    }
}

}  // namespace

using GeneratedAgreementTest = AgreementTest;

TEST_F(GeneratedAgreementTest, CoversConfigurationsValidAndBroken) {
    std::vector<Candidate> candidates;
    for (unsigned seed = FirstSeed; seed < FirstSeed + Configurations; ++seed) {
        candidates.push_back({"seed " + std::to_string(seed), Generate(seed)});
    }

    ExpectAgreement(candidates);

    EXPECT_EQ(outcome.judged, Configurations);
    EXPECT_GT(outcome.refused, Configurations / 4);
    EXPECT_LT(outcome.refused, Configurations / 3 * 2);
    EXPECT_GT(outcome.ended, Configurations / 20);
    EXPECT_GT(outcome.lines, 2 * Configurations);
}

}  // namespace kennly::test
