#include "desktop/events/event_values.h"

#include <gtest/gtest.h>

namespace {

struct TopicCase {
    const char* label;
    std::vector<std::string> levels;
    const char* path;
    const char* mqtt;
};

class Topic : public testing::TestWithParam<TopicCase> {};

TEST_P(Topic, IsMadeOfTheDeclarationsLevels) {
    desktop::KeyValues declaration;
    for (size_t level = 0; level < GetParam().levels.size(); ++level) {
        declaration["tnsaxis:topic" + std::to_string(level)].value = GetParam().levels[level];
    }
    declaration["active"].value = "no level";
    EXPECT_EQ(desktop::topicPath(declaration), GetParam().path) << GetParam().label;
    EXPECT_EQ(desktop::mqttTopic(declaration), GetParam().mqtt) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Topic,
    testing::Values(
        TopicCase{"plain", {"Platform", "App-1.2_x", "Alert"}, "Platform/App-1.2_x/Alert", "Platform/App-1.2_x/Alert"},
        TopicCase{"wildcards", {"a+b", "#"}, "a+b/#", "a_b/_"},
        TopicCase{"a slash within a level", {"a/b", "c"}, "a/b/c", "a_b/c"},
        TopicCase{"spaces and controls", {"Area 1", "a\tb"}, "Area 1/a\tb", "Area_1/a_b"},
        TopicCase{"reserved", {"$SYS"}, "$SYS", "_SYS"},
        TopicCase{"other letters", {"\xC3\xA9t\xC3\xA9"}, "\xC3\xA9t\xC3\xA9", "__t__"},
        TopicCase{"an empty level", {"a", "", "c"}, "a//c", "a/_/c"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace
