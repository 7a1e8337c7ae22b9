#include "desktop/mqtt/mqtt_link.h"

#include <gtest/gtest.h>
#include <map>

#include "desktop/mqtt/back_off.h"
#include "link_fixture.h"

namespace {

constexpr int kMany = 10000;

/** The first place where the lines differ, for a message that can be read. */
std::string difference(const Lines& got, const Lines& expected) {
    const auto [at, other] = std::mismatch(got.begin(), got.end(), expected.begin(), expected.end());
    if (at == got.end() && other == expected.end()) {
        return "none";
    }
    std::string text = std::to_string(got.size()) + " lines, expected " + std::to_string(expected.size()) + "; at " +
                       std::to_string(at - got.begin()) + ":";
    for (auto line = at; line != got.end() && line - at < 30; ++line) {
        text += " " + *line;
    }
    return text;
}

class MqttLink : public LinkTest {};

TEST_F(MqttLink, DeliversInOrderBetweenOnlineAndOffline) {
    m_broker->start();
    Subscriber subscriber(*m_broker);
    link();
    send(0, 3);
    m_link->end();
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    const std::vector<Received> expected = {{"camera/status", kOnline, false},
                                            {"camera/number", "0", false},
                                            {"camera/number", "1", false},
                                            {"camera/number", "2", false},
                                            {"camera/status", kOffline, false}};
    EXPECT_EQ(subscriber.messages(), expected);
    EXPECT_EQ(said(), Lines{"mqtt: connected to " + address()});
}

struct StopCase {
    const char* label;
    int signal;
    int qualityOfService; /**< the subscriber's; a killed broker begins anew to number what it sends to a 2 */
};

class MqttLinkAfter : public MqttLink, public testing::WithParamInterface<StopCase> {};

TEST_P(MqttLinkAfter, DeliversWhatCameWhileTheBrokerWasAway) {
    m_broker->start();
    Subscriber subscriber(*m_broker, true, GetParam().qualityOfService);
    link();
    send(0, 10);
    ASSERT_TRUE(subscriber.collectUntil("camera/number", "9"));
    // Written now, so that a broker that is killed still knows its sessions.
    m_broker->stop(SIGTERM);
    m_broker->start();
    m_link->send("number", "10", false);
    ASSERT_TRUE(subscriber.collectUntil("camera/number", "10"));
    m_broker->stop(GetParam().signal);
    send(11, kMany + 11);
    m_broker->start();
    m_link->send("end", "", false);
    ASSERT_TRUE(subscriber.collectUntil("camera/end", ""));
    EXPECT_EQ(difference(subscriber.payloads("camera/number"), numbers(0, kMany + 11)), "none");
    EXPECT_EQ(m_link->dropped(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Stops, MqttLinkAfter,
                         testing::Values(StopCase{"Term", SIGTERM, 2}, StopCase{"Kill", SIGKILL, 0}),
                         [](const auto& instance) { return instance.param.label; });

TEST_F(MqttLink, LosesAndDoublesNothingWhenTheBrokerStopsInBetween) {
    constexpr int kStops = 10;
    constexpr int kEach = 1000;
    m_broker->start();
    // Mosquitto 2.0 does not remember, over a stop, how far the deliveries to a subscriber of quality 2 had come.
    Subscriber subscriber(*m_broker, true, 0);
    link();
    int interrupted = 0;
    for (int round = 0; round < kStops; ++round) {
        send(round * kEach, (round + 1) * kEach);
        ASSERT_TRUE(subscriber.collectUntil("camera/number", std::to_string(round * kEach + kEach / 4)));
        m_broker->stop();
        interrupted += m_link->waiting() > 0 ? 1 : 0;
        m_broker->start();
    }
    EXPECT_GT(interrupted, 0) << "no stop came in between";
    m_link->send("end", "", false);
    ASSERT_TRUE(subscriber.collectUntil("camera/end", ""));
    EXPECT_EQ(difference(subscriber.payloads("camera/number"), numbers(0, kStops * kEach)), "none");
}

TEST_F(MqttLink, LosesNothingWhenTheBrokerLosesItsMemory) {
    constexpr int kKills = 5;
    constexpr int kEach = 400;
    m_broker->configure("allow_anonymous true\n");
    m_broker->start();
    link();
    int sent = 0;
    for (int round = 0; round < kKills; ++round) {
        for (const int end = sent + kEach; sent < end; ++sent) {
            m_link->send("state/" + std::to_string(sent), std::to_string(sent), true);
        }
        ASSERT_TRUE(waitUntil([&] { return m_link->waiting() < kEach / 2; }));
        m_broker->stop(SIGKILL);
        m_broker->start();
    }
    m_link->end();
    Subscriber subscriber(*m_broker);
    std::map<std::string, std::string> expected = {{"camera/status", kOffline}};
    for (int number = 0; number < sent; ++number) {
        expected["camera/state/" + std::to_string(number)] = std::to_string(number);
    }
    ASSERT_TRUE(subscriber.collect([&] { return subscriber.messages().size() >= expected.size(); }));
    std::map<std::string, std::string> states;
    for (const Received& message : subscriber.messages()) {
        states[message.topic] = message.payload;
    }
    EXPECT_EQ(states, expected);
}

TEST_F(MqttLink, LeavesStatesToThoseWhoSubscribeLater) {
    m_broker->start();
    link();
    m_link->send("alert", "on", true);
    m_link->send("data", "1", false);
    m_link->send("alert", "off", true);
    m_link->end();
    Subscriber subscriber(*m_broker);
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    ASSERT_TRUE(subscriber.collect([&] { return subscriber.messages().size() == 2; }));
    EXPECT_EQ(subscriber.payloads("camera/alert"), Lines{"off"});
    EXPECT_TRUE(subscriber.messages().front().isOld);
}

TEST_F(MqttLink, BringsTheNewestStateBackToABrokerWithoutMemory) {
    m_broker->configure("allow_anonymous true\n");
    m_broker->start();
    {
        Subscriber before(*m_broker);
        link();
        m_link->send("alert", "on", true);
        m_link->send("other", "1", true);
        ASSERT_TRUE(before.collectUntil("camera/other", "1"));
        ASSERT_TRUE(waitUntil([&] { return m_link->waiting() == 0; }));
    }
    m_broker->stop();
    m_link->send("alert", "off", true);
    m_broker->start();
    Subscriber subscriber(*m_broker);
    ASSERT_TRUE(subscriber.collectUntil("camera/alert", "off"));
    m_link->end();
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    EXPECT_EQ(subscriber.payloads("camera/other"), Lines{"1"});
    EXPECT_EQ(subscriber.payloads("camera/alert"), Lines{"off"}) << "the older state is not repeated";
}

TEST_F(MqttLink, DropsTheOldestWhenTheOutboxIsFull) {
    link([](auto& settings) { settings.capacity = 100; });
    ASSERT_TRUE(waitUntil([&] { return isSaid("Connection refused; trying again"); }));
    m_link->send("alert", "on", true);
    send(0, 150);
    EXPECT_EQ(m_link->waiting(), 100U);
    EXPECT_EQ(m_link->dropped(), 51U);
    ASSERT_TRUE(waitUntil([&] { return isSaid("mqtt: 100 events wait for the broker; from now on the oldest"); }));
    m_broker->start();
    Subscriber subscriber(*m_broker, true);
    m_link->end();
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    EXPECT_EQ(subscriber.payloads("camera/alert"), Lines{"on"}) << "the newest state of a topic stays";
}

TEST_F(MqttLink, NeverWaitsForABrokerThatHangs) {
    const LoopbackSocket hanging;
    hanging.hang();
    link([&](auto& settings) {
        settings.broker.address = "127.0.0.1:" + std::to_string(hanging.port());
        settings.farewell = std::chrono::milliseconds(1);
    });
    send(0, kMany);
    EXPECT_EQ(m_link->waiting(), static_cast<size_t>(kMany)) << "all sends have returned, none was answered";
    m_link->end();
    m_link.reset();
    EXPECT_EQ(said(), Lines{"mqtt: 10000 events are not delivered"});
}

TEST_F(MqttLink, TellsEachReasonOnce) {
    link();
    ASSERT_TRUE(waitUntil([&] { return isSaid("Connection refused"); }));
    m_broker->start();
    ASSERT_TRUE(Subscriber(*m_broker).collectUntil("camera/status", kOnline));
    m_broker->stop();
    const Lines expected = {"mqtt: " + address() + ": Connection refused; trying again",
                            "mqtt: connected to " + address(),
                            "mqtt: " + address() + ": The connection was lost.; trying again",
                            "mqtt: " + address() + ": Connection refused; trying again"};
    ASSERT_TRUE(waitUntil([&] { return said().size() == expected.size(); }));
    EXPECT_EQ(said(), expected);
}

TEST(BackOff, DoublesThePausesUpToTheLongest) {
    using std::chrono::seconds;
    desktop::BackOff backOff(seconds(1), seconds(5));
    for (const int expected : {1, 2, 4, 5, 5}) {
        EXPECT_EQ(backOff.next(), seconds(expected));
    }
    backOff.reset();
    EXPECT_EQ(backOff.next(), seconds(1));
}

TEST_F(MqttLink, RefusesAnAddressThatIsNone) {
    desktop::MqttLinkSettings settings;
    settings.broker.address = "broker";
    EXPECT_THROW(desktop::MqttLink{settings}, std::runtime_error);
}

}  // namespace
