#include "ctl/StatusJson.h"

#include "unit/status/GivenSnapshot.h"

namespace kennly::test {

TEST(StatusJsonTest, HasEverything) {
    Snapshot snapshot = HealthyBoth();
    JobState& job = snapshot.main.jobs[0];
    job.checks = {{44, 5, "probe", {"web", "mail"}}};
    job.remedies = {{45, 60, "restart", {"web"}}};
    job.blockFiles = {"/run/b"};
    snapshot.main.strangers = {{46, 1, "x", {}}};
    snapshot.main.tree.config.newerThanLoaded = true;
    snapshot.watcher.jobs[0] = GivenJob("file", "/watched", CheckTypeFileChange);
    snapshot.watcher.jobs[0].file = "/watched";
    snapshot.watcher.jobs[0].recorded = -5;
    snapshot.orphanRecords = {"old"};

    const Json json = AsJson(ViewOf(snapshot));

    const Json& main = json.at("main");
    EXPECT_EQ(main.at("runs"), true);
    EXPECT_EQ(main.at("start_directory"), "/srv");
    ASSERT_EQ(main.at("processes").size(), 2U);
    EXPECT_EQ(main.at("processes").at(0).at("role"), "parent");
    const Json& child = main.at("processes").at(1);
    EXPECT_EQ(child.at("pid"), 12);
    EXPECT_EQ(child.at("role"), "child");
    EXPECT_EQ(child.at("parent"), 11);
    EXPECT_EQ(child.at("threads"), 4);
    EXPECT_EQ(child.at("program"), "/usr/sbin/kennly");
    EXPECT_EQ(child.at("program_replaced"), false);
    EXPECT_EQ(child.at("directory"), "/srv");
    EXPECT_EQ(main.at("parent_heartbeat").dump(),
              R"({"path":"parent","exists":true,"age":0.5,"stale":false})");
    EXPECT_EQ(main.at("configuration").dump(),
              R"({"path":"kennly.xml","exists":true,"loads":true,"reason":null,"changed":0,)"
              R"("jobs":1,"newer_than_loaded":true})");
    const Json& web = main.at("jobs").at(0);
    EXPECT_EQ(web.at("name"), "web");
    EXPECT_EQ(web.at("check"), "CheckCommandResult");
    EXPECT_EQ(web.at("subject"), "probe");
    EXPECT_EQ(web.at("delay"), 30);
    EXPECT_EQ(web.at("running").dump(),
              R"([{"pid":44,"seconds":5.0,"command":"probe","jobs":["web","mail"]}])");
    EXPECT_EQ(web.at("remedies_probably_running").at(0).at("pid"), 45);
    EXPECT_EQ(web.at("blocked"), true);
    EXPECT_EQ(web.at("blocked_by").dump(), R"(["/run/b"])");
    EXPECT_TRUE(web.at("file").is_null());
    EXPECT_EQ(web.at("has_record"), false);
    EXPECT_EQ(main.at("running_of_no_known_job").at(0).at("pid"), 46);
    const Json& file = json.at("watcher").at("jobs").at(0);
    EXPECT_EQ(file.at("file"), "/watched");
    EXPECT_EQ(file.at("has_record"), true);
    EXPECT_EQ(file.at("recorded_time"), -5);
    EXPECT_EQ(file.at("blocked"), false);
    EXPECT_EQ(json.at("watcher").at("configuration").at("newer_than_loaded"), false);
    EXPECT_EQ(json.at("orphan_records").dump(), R"(["old"])");
    EXPECT_EQ(json.at("processes_hidden"), false);
    EXPECT_EQ(json.at("details_hidden"), false);
    EXPECT_EQ(json.at("problems").at(0).at("code"), "block-in-force");
    EXPECT_EQ(json.at("problems").at(0).at("level"), "note");
}

TEST(StatusJsonTest, HasNullForWhatIsUnknown) {
    Snapshot snapshot = Healthy();
    snapshot.processesHidden = true;
    snapshot.detailsHidden = true;
    snapshot.recordsHidden = true;
    TreeState& tree = snapshot.main.tree;
    tree.parentBeat = {"parent", false, true, 0};
    tree.workers[0].program = "";
    tree.workers[0].directory = "";
    tree.startDirectory.reset();
    tree.config.readable = false;
    tree.config.newerThanLoaded.reset();
    JobState& job = snapshot.main.jobs[0];
    job.remediesKnown = false;
    job.recordKnown = false;
    job.unknownBlockFiles = {"b"};
    snapshot.watcher.tree.config.hidden = true;
    snapshot.watcher.jobs = {GivenJob("beats")};

    const Json json = AsJson(ViewOf(snapshot));

    const Json& main = json.at("main");
    EXPECT_EQ(main.at("runs"), true);
    EXPECT_TRUE(main.at("start_directory").is_null());
    EXPECT_TRUE(main.at("processes").at(1).at("program").is_null());
    EXPECT_TRUE(main.at("processes").at(1).at("program_replaced").is_null());
    EXPECT_TRUE(main.at("processes").at(1).at("directory").is_null());
    EXPECT_EQ(main.at("parent_heartbeat").dump(),
              R"({"path":"parent","exists":null,"age":null,"stale":null})");
    EXPECT_EQ(main.at("configuration").at("exists"), true);
    EXPECT_TRUE(main.at("configuration").at("loads").is_null());
    EXPECT_TRUE(main.at("configuration").at("jobs").is_null());
    EXPECT_TRUE(main.at("configuration").at("newer_than_loaded").is_null());
    EXPECT_TRUE(main.at("jobs").at(0).at("remedies_probably_running").is_null());
    EXPECT_TRUE(main.at("jobs").at(0).at("blocked").is_null());
    EXPECT_EQ(main.at("jobs").at(0).at("perhaps_blocked_by").dump(), R"(["b"])");
    EXPECT_TRUE(main.at("jobs").at(0).at("has_record").is_null());
    EXPECT_TRUE(json.at("watcher").at("runs").is_null());
    EXPECT_TRUE(json.at("watcher").at("processes").is_null());
    EXPECT_TRUE(json.at("watcher").at("running_of_no_known_job").is_null());
    EXPECT_TRUE(json.at("watcher").at("jobs").at(0).at("running").is_null());
    EXPECT_TRUE(json.at("watcher").at("jobs").at(0).at("remedies_probably_running").is_null());
    EXPECT_TRUE(main.at("jobs").at(0).at("running").is_array());
    EXPECT_TRUE(json.at("watcher").at("configuration").at("exists").is_null());
    EXPECT_TRUE(json.at("orphan_records").is_null());
    EXPECT_EQ(json.at("processes_hidden"), true);
    EXPECT_EQ(json.at("details_hidden"), true);
}

TEST(StatusJsonTest, IsTextWhateverNamesThereAre) {
    Snapshot snapshot = Healthy();
    snapshot.main.jobs[0] = GivenJob("Gr\xFC\"\\\n",
                                     "pr\xFC"
                                     "be");
    const Json read = Json::parse(TextOf(AsJson(ViewOf(snapshot))));
    EXPECT_EQ(read.at("main").at("jobs").at(0).at("name"), "Gr\xEF\xBF\xBD\"\\\n");
}

}  // namespace kennly::test
