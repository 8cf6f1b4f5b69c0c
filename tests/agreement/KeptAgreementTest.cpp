#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <unordered_set>
#include <vector>

#include "agreement/AgreementFixture.h"
#include "support/KeptConfigurations.h"

namespace kennly::test {

namespace {

// Some tests try thousands, as when they spoil each byte of a file. Of theirs this many are
// compared.
const std::size_t MostOfOneTest = RunsUnderSanitizer() ? 10 : 800;

// Those of unit/config alone.
const std::size_t FewestInAll = RunsUnderSanitizer() ? 20 : 800;

/// So many of them, spread evenly.
std::vector<std::string> Some(const std::vector<std::string>& all, std::size_t most) {
    if (all.size() <= most) {
        return all;
    }
    std::vector<std::string> some;
    for (std::size_t i = 0; i < most; ++i) {
        some.push_back(all[i * all.size() / most]);
    }
    return some;
}

}  // namespace

using KeptAgreementTest = AgreementTest;

TEST_F(KeptAgreementTest, CoversTheConfigurationsOfAllTests) {
    std::vector<Candidate> candidates;
    std::unordered_set<std::string> known;
    for (const auto& entry : std::filesystem::directory_iterator(KENNLY_KEPT)) {
        const std::string test = entry.path().filename();
        const std::vector<std::string> all = KeptConfigurations(entry.path());
        EXPECT_FALSE(all.empty()) << test;
        const std::vector<std::string> some = Some(all, MostOfOneTest);
        std::cout << test << ": " << some.size() << " of " << all.size() << "\n";
        for (const std::string& content : some) {
            if (known.insert(content).second) {
                candidates.push_back({test, content});
            }
        }
    }
    ASSERT_GE(candidates.size(), FewestInAll);

    ExpectAgreement(candidates);
}

}  // namespace kennly::test
