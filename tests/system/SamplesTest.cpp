#include <sys/wait.h>

#include <cstdlib>
#include <regex>
#include <set>

#include "support/TemporaryDirectory.h"
#include "system/RecoveryFixture.h"

namespace kennly::test {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

/// What an administrator finds after an installation.
class InstalledSamplesTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string command = "DESTDIR='" + root.Path("") +
                                    "' '" KENNLY_CMAKE "' --install '" KENNLY_BUILD
                                    "' --prefix /usr >/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }

    fs::path Installed(const std::string& path) const { return root.Path("") + path; }

    /// The words of a configuration's remedies that are absolute paths.
    static std::set<std::string> PathsInRemedies(const std::string& configuration) {
        std::set<std::string> paths;
        const std::regex remedy("<remedy[^]*?</remedy>");
        const std::regex path("[\" ](/[^\" ]+)(?=[\" ][^]*/>)");
        for (std::sregex_iterator found(configuration.begin(), configuration.end(), remedy), end;
             found != end; ++found) {
            const std::string text = found->str();
            const std::string params = text.substr(text.find("<param"));
            for (std::sregex_iterator word(params.begin(), params.end(), path); word != end;
                 ++word) {
                paths.insert((*word)[1]);
            }
        }
        return paths;
    }

    TemporaryDirectory root;
};

TEST_F(InstalledSamplesTest, NameOnlyProgramsThatAreInstalledWithThem) {
    for (const char* const name : {"kennly", "dogdog"}) {
        SCOPED_TRACE(name);
        const fs::path sample = Installed(DataDirectory + "/config/" + name + ".xml.sample");
        std::ifstream file(sample);
        ASSERT_TRUE(file) << sample;

        const std::set<std::string> paths =
            PathsInRemedies({std::istreambuf_iterator<char>(file), {}});

        EXPECT_THAT(paths,
                    UnorderedElementsAre("/usr/libexec/kennly/restart-tree", "/usr/sbin/kennly"));
        for (const std::string& path : paths) {
            EXPECT_TRUE(fs::is_regular_file(Installed(path))) << path;
            EXPECT_EQ(access(Installed(path).c_str(), X_OK), 0) << path;
        }
    }
}

TEST_F(InstalledSamplesTest, LieBesideTheDirectoriesThatTheDaemonExpects) {
    for (const char* const directory : {"/config/filetimes", "/heartbeats"}) {
        EXPECT_TRUE(fs::is_directory(Installed(DataDirectory + directory))) << directory;
    }
    for (const char* const configuration : {"/config/kennly.xml", "/config/dogdog.xml"}) {
        EXPECT_FALSE(fs::exists(Installed(DataDirectory + configuration)))
            << "an installation must not bring " << configuration << " into force";
    }
}

using SamplesTest = RecoveryFixture;

TEST_F(SamplesTest, AreLoadedAndCheckedWithoutAComplaint) {
    for (const std::string& path : {MainConfiguration, WatcherConfiguration}) {
        std::string text = sandbox->ReadFile(path).value_or("");
        text.insert(text.rfind("</kennly>"), Marker("marker"));
        Configure(text, path);
    }

    StartTrees({"-w"}, BothTrees);

    EXPECT_TRUE(WaitForLine(LoadedOf("C ", "marker")));
    EXPECT_TRUE(WaitForLine(LoadedOf("WC", "marker")));
    EXPECT_TRUE(WaitForBeatsOf(BothTrees));
    StopTrees();
    EXPECT_TRUE(WaitForExitsOf(BothTrees));
    EXPECT_THAT(Lines(), Not(Contains(HasSubstr(".err "))));
    EXPECT_THAT(Lines(), Not(Contains(HasSubstr("running remedy"))));
}

}  // namespace kennly::test
