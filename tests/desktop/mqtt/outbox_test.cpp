#include "desktop/mqtt/outbox.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

desktop::MqttMessage event(const std::string& payload) {
    return {"event", payload, false};
}

desktop::MqttMessage state(const std::string& topic, const std::string& payload) {
    return {topic, payload, true};
}

Lines takeAll(desktop::Outbox& outbox) {
    Lines payloads;
    while (const std::optional<desktop::MqttMessage> message = outbox.take()) {
        payloads.push_back(message->payload);
    }
    return payloads;
}

TEST(Outbox, HandsOutTheOldestFirst) {
    desktop::Outbox outbox(3);
    EXPECT_FALSE(outbox.take().has_value());
    for (const char* payload : {"a", "b", "c"}) {
        outbox.add(event(payload));
    }
    EXPECT_EQ(outbox.size(), 3U);
    EXPECT_EQ(takeAll(outbox), (Lines{"a", "b", "c"}));
    EXPECT_EQ(outbox.size(), 0U);
    EXPECT_EQ(outbox.dropped(), 0U);
}

TEST(Outbox, PutsBackBeforeAllOthersEvenBeyondItsCapacity) {
    desktop::Outbox outbox(2);
    outbox.add(event("c"));
    outbox.add(event("d"));
    outbox.putBack({event("a"), event("b")});
    EXPECT_EQ(outbox.size(), 4U);
    EXPECT_EQ(takeAll(outbox), (Lines{"a", "b", "c", "d"}));
    EXPECT_EQ(outbox.dropped(), 0U);
}

struct FullCase {
    const char* label;
    std::vector<desktop::MqttMessage> added;
    Lines kept;
};

class FullOutbox : public testing::TestWithParam<FullCase> {};

TEST_P(FullOutbox, DropsTheOldestButNotTheNewestState) {
    desktop::Outbox outbox(3);
    for (const desktop::MqttMessage& message : GetParam().added) {
        outbox.add(message);
    }
    EXPECT_EQ(outbox.dropped(), GetParam().added.size() - 3) << GetParam().label;
    EXPECT_EQ(takeAll(outbox), GetParam().kept) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, FullOutbox,
    testing::Values(FullCase{"events", {event("1"), event("2"), event("3"), event("4"), event("5")}, {"3", "4", "5"}},
                    FullCase{"an old state", {state("s", "on"), event("1"), event("2"), event("3")}, {"on", "2", "3"}},
                    FullCase{"a state that has a newer one",
                             {state("s", "on"), event("1"), state("s", "off"), event("2")},
                             {"1", "off", "2"}},
                    FullCase{"a state, its newer one later dropped from none",
                             {state("s", "on"), state("s", "off"), event("1"), event("2"), event("3")},
                             {"off", "2", "3"}},
                    FullCase{"nothing but newest states",
                             {state("r", "1"), state("s", "2"), state("t", "3"), state("u", "4")},
                             {"2", "3", "4"}},
                    FullCase{"an event among states",
                             {state("r", "1"), state("s", "2"), state("t", "3"), event("4")},
                             {"1", "2", "3"}}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(Outbox, KnowsTheTopicsOfItsStates) {
    desktop::Outbox outbox(5);
    outbox.add(event("1"));
    EXPECT_FALSE(outbox.holdsState("event")) << "an event is no state";
    outbox.add(state("s", "on"));
    outbox.putBack({state("s", "off")});
    EXPECT_TRUE(outbox.holdsState("s"));
    outbox.take();
    EXPECT_TRUE(outbox.holdsState("s")) << "one of two is left";
    takeAll(outbox);
    EXPECT_FALSE(outbox.holdsState("s"));
}

}  // namespace
