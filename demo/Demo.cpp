// Runs the daemon in a sandbox and tells what happens, in two acts. Ends with status 0 only when
// all of it was seen.

#include <cstdio>
#include <exception>
#include <string>

#include "Stage.h"

namespace {

void Play(kennly::test::Sandbox& sandbox) {
    kennly::demo::Stage stage(sandbox);
    try {
        stage.Headline("FIRST ACT: checks and remedies");
        kennly::demo::PlayRepair(stage);
        stage.Headline("SECOND ACT: two trees that watch each other");
        kennly::demo::PlayRecovery(stage);
        stage.Headline("All of it happened as told.");
    } catch (...) {
        stage.StopNarratingLog();
        throw;
    }
}

}  // namespace

int main() {
    try {
        std::string error;
        const auto sandbox = kennly::test::Sandbox::Create(error);
        if (!sandbox) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        Play(*sandbox);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "demonstration failed: %s\n", failure.what());
        return 1;
    }
}
