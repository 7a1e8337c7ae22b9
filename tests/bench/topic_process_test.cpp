#include "topic_process.h"

#include <gtest/gtest.h>

#include "test_folder.h"

namespace {

TEST(TopicProcess, EndsInOneWayOrAnother) {
    struct Row {
        const char* name;
        std::string script;
        int status;
        const char* fault;
    };
    // What is left behind is told by its name, which it has once it was started.
    const std::string left = "sleep 3000 & until grep -q sleep /proc/$!/comm; do :; done; ";
    const Row rows[] = {
        {"well", "exit 0", 0, ""},
        {"with a status of its own", "exit 1", 1, ""},
        {"by a signal", "kill -SEGV $$", 127, "ended by a signal: Segmentation fault"},
        {"with a process behind it", left, 0, "left processes behind: sleep"},
        {"with those of its child", "sh -c '" + left + left + "'", 0, "left processes behind: sleep, sleep"},
        {"after those it started", "sh -c 'exit 3'; exit 0", 0, ""}};
    for (const Row& row : rows) {
        const TopicEnd end = runTopic({"/bin/sh", "-c", row.script}, std::chrono::hours(1), true);
        EXPECT_EQ(end.status, row.status) << row.name;
        EXPECT_EQ(end.fault, row.fault) << row.name;
    }
}

TEST(TopicProcess, IsEndedWithAllThatItStartedWhenItHangs) {
    const TopicEnd end = runTopic({"/bin/sh", "-c", "sleep 3000 & sleep 3000"}, std::chrono::seconds(1), true);
    EXPECT_EQ(end.fault, "did not end within 1 seconds");
    // Nothing of it is left, or the pipe that they all write to would not have ended.
    EXPECT_EQ(runTopic({"/bin/sh", "-c", "exit 0"}, std::chrono::hours(1), true).fault, "");
}

TEST(TopicProcess, GivesBackAllThatItWrites) {
    const TopicEnd end = runTopic({"/bin/sh", "-c", "i=0; while [ $i -lt 20000 ]; do echo line $i; i=$((i + 1)); done"},
                                  std::chrono::hours(1), true);
    EXPECT_EQ(std::count(end.output.begin(), end.output.end(), '\n'), 20000);
    EXPECT_EQ(end.output.substr(end.output.size() - 11), "line 19999\n");
}

TEST(TopicProcess, ThatCannotBeStartedHasAStatusThatSaysSo) {
    EXPECT_EQ(runTopic({"/nowhere/to/be/found"}, std::chrono::hours(1), true).status, 127);
}

}  // namespace
