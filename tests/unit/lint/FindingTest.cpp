#include "lint/Finding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kennly::test {

using ::testing::ElementsAre;

Finding At(int line, int column, const std::string& text) {
    return {{line, column}, Severity::Note, "code", text};
}

TEST(FindingTest, NamesItsSeverities) {
    EXPECT_STREQ(NameOf(Severity::Error), "error");
    EXPECT_STREQ(NameOf(Severity::Warning), "warning");
    EXPECT_STREQ(NameOf(Severity::Note), "note");
}

TEST(FindingTest, TellsWhetherThereIsOneOfASeverity) {
    const std::vector<Severity> all = {Severity::Error, Severity::Warning, Severity::Note};
    for (const Severity asked : all) {
        EXPECT_FALSE(Has({}, asked));
        for (const Severity there : all) {
            EXPECT_EQ(Has({{{}, there, "", ""}}, asked), asked == there);
        }
    }
    EXPECT_TRUE(
        Has({{{}, Severity::Note, "", ""}, {{}, Severity::Error, "", ""}}, Severity::Error));
}

TEST(FindingTest, SortsByLineAndColumnAndKeepsTheOrderOfEquals) {
    Findings findings = {At(10, 1, "h"), At(2, 3, "e"), At(2, 12, "g"), At(0, 0, "a"),
                         At(2, 3, "f"),  At(1, 9, "c"), At(0, 0, "b"),  At(1, 10, "d")};

    SortByPlace(findings);

    std::string order;
    for (const Finding& finding : findings) {
        order += finding.text;
    }
    EXPECT_EQ(order, "abcdefgh");
}

TEST(FindingTest, KeepsTheOrderOfManyEquals) {
    Findings findings;
    for (int i = 0; i < 1000; ++i) {
        findings.push_back(At(1000 - i / 100, 1, std::to_string(i)));
    }

    SortByPlace(findings);

    for (std::size_t i = 1; i < findings.size(); ++i) {
        const Finding& before = findings[i - 1];
        ASSERT_LE(before.where.line, findings[i].where.line);
        if (before.where.line == findings[i].where.line) {
            ASSERT_EQ(std::stoi(before.text) + 1, std::stoi(findings[i].text));
        }
    }
}

}  // namespace kennly::test
