// The tree is the architecture: src/ORDER lists the units from the lowest to the highest, and no
// file may include what stands below itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace kennly::test {

namespace fs = std::filesystem;
using ::testing::IsEmpty;

namespace {

using Ranks = std::map<std::string, std::size_t>;

// "sync/Event" for src/sync/Event.h and src/sync/Event.cpp.
std::string UnitOf(const fs::path& root, const fs::path& file) {
    return fs::relative(file, root).replace_extension().generic_string();
}

std::vector<fs::path> FilesWith(const fs::path& root, const std::set<std::string>& extensions) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (extensions.count(entry.path().extension().string()) != 0) {
            files.push_back(entry.path());
        }
    }
    return files;
}

// The units in the order of the list, numbered from 0.
Ranks ReadOrder(const fs::path& root) {
    Ranks ranks;
    std::ifstream file(root / "ORDER");
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.front() != '#') {
            ranks.emplace(line, ranks.size());
        }
    }
    return ranks;
}

// The units that a file includes with quotation marks.
std::vector<std::string> IncludesOf(const fs::path& file) {
    const std::string begin = "#include \"";
    const std::string end = ".h\"";
    std::vector<std::string> units;
    std::ifstream source(file);
    for (std::string line; std::getline(source, line);) {
        const std::size_t stop = line.find(end);
        if (line.rfind(begin, 0) == 0 && stop != std::string::npos) {
            units.push_back(line.substr(begin.size(), stop - begin.size()));
        }
    }
    return units;
}

// Every breach of the order below `root`, one text each.
std::vector<std::string> BreachesBelow(const fs::path& root) {
    const Ranks ranks = ReadOrder(root);
    std::vector<std::string> breaches;
    for (const fs::path& file : FilesWith(root, {".h", ".cpp"})) {
        const std::string unit = UnitOf(root, file);
        if (ranks.count(unit) == 0) {
            breaches.push_back(unit + " is not listed");
            continue;
        }
        for (const std::string& included : IncludesOf(file)) {
            const bool isOwnHeader = included == unit && file.extension() == ".cpp";
            if (!isOwnHeader &&
                (ranks.count(included) == 0 || ranks.at(included) >= ranks.at(unit))) {
                breaches.push_back(fs::relative(file, root).string() + " includes " + included);
            }
        }
    }
    return breaches;
}

const fs::path SourceRoot = KENNLY_SOURCE_DIRECTORY;

}  // namespace

TEST(IncludeOrder, NoFileIncludesWhatStandsBelowIt) {
    EXPECT_THAT(BreachesBelow(SourceRoot), IsEmpty());
}

TEST(IncludeOrder, EveryListedUnitExists) {
    const Ranks ranks = ReadOrder(SourceRoot);
    EXPECT_FALSE(ranks.empty());
    for (const auto& row : ranks) {
        EXPECT_TRUE(fs::exists(SourceRoot / (row.first + ".h")) ||
                    fs::exists(SourceRoot / (row.first + ".cpp")))
            << row.first;
    }
}

TEST(IncludeOrder, EveryHeaderCompilesAlone) {
    const TemporaryDirectory directory;
    for (const fs::path& header : FilesWith(SourceRoot, {".h"})) {
        const std::string name = UnitOf(SourceRoot, header);
        directory.Write("alone.cpp", "#include \"" + name + ".h\"\n");
        const std::string command = std::string(KENNLY_COMPILER) +
                                    " -std=c++17 -fsyntax-only -D_GNU_SOURCE -I '" +
                                    SourceRoot.string() + "' '" + directory.Path("alone.cpp") + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << name << ".h does not compile alone";
    }
}

TEST(IncludeOrder, ABreachIsNoticed) {
    const TemporaryDirectory directory;
    fs::create_directory(directory.Path("a"));
    directory.Write("ORDER", "# lowest first\na/Low\na/High\n");
    directory.Write("a/Low.h", "#include <string>\n#include \"a/High.h\"\n");
    directory.Write("a/High.cpp", "#include \"a/High.h\"\n#include \"a/Low.h\"\n");
    directory.Write("a/Unlisted.h", "");

    const auto breaches = BreachesBelow(directory.Path(""));

    EXPECT_THAT(breaches, ::testing::UnorderedElementsAre("a/Low.h includes a/High",
                                                          "a/Unlisted is not listed"));
}

}  // namespace kennly::test
