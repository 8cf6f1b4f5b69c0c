#include "status/DaemonLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

namespace kennly::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DaemonLogTest : public testing::Test {
protected:
    void Append(const std::string& lines) const {
        directory.Write("log", directory.Read("log") + lines);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.Path("log");
    static constexpr pid_t Worker = 4711;
};

TEST_F(DaemonLogTest, TellsTheTextsOfOneProcessSinceItsBeginning) {
    Append("Nov 22 08:00:00 host kennly: 4711:C : long ago\n");
    const DaemonLog log(path);
    Append(
        "Nov 22 08:00:01 host kennly: 4711:C : first: with a colon\n"
        "Nov 22 08:00:01 host kennly: 4712:P : of another process\n"
        "Nov 22 08:00:01 host kennly: 14711:P : of another process\n"
        "Nov 22 08:00:01 host other: 4711:C : of another program\n"
        "2026-11-22T08:00:02+00:00 host kennly: 4711:WC: second\n"
        "<163>kennly: 4711:  : third\n");

    EXPECT_THAT(log.NewTexts(Worker).value(),
                ElementsAre("first: with a colon", "second", "third"));
}

TEST_F(DaemonLogTest, TellsAllOfALogThatHasBeenBegunAnew) {
    Append("Nov 22 08:00:00 host kennly: 4711:C : long ago, before the rotation\n");
    const DaemonLog log(path);
    directory.Write("log", "kennly: 4711:C : new\n");

    EXPECT_THAT(log.NewTexts(Worker).value(), ElementsAre("new"));
}

TEST_F(DaemonLogTest, TakesALogThatComesLater) {
    const DaemonLog log(path);
    EXPECT_FALSE(log.NewTexts(Worker).has_value());

    Append("kennly: 4711:C : new\n");
    EXPECT_THAT(log.NewTexts(Worker).value(), ElementsAre("new"));
}

TEST_F(DaemonLogTest, KnowsNothingWithoutALogThatCanBeRead) {
    EXPECT_FALSE(DaemonLog(path).NewTexts(Worker).has_value());
    EXPECT_FALSE(DaemonLog(directory.Path("")).NewTexts(Worker).has_value());
}

TEST_F(DaemonLogTest, PassesOverLinesThatAreNone) {
    const DaemonLog log(path);
    Append("kennly: 4711:\nkennly: 4711:C\nkennly: 4711\n\n");

    EXPECT_THAT(log.NewTexts(Worker).value(), IsEmpty());
}

}  // namespace

}  // namespace kennly::test
