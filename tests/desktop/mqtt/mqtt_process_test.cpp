#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

#include "desktop/config/desktop_config.h"
#include "link_fixture.h"
#include "this_build.h"

/* Whole processes that send through the event service, and how they end. */

namespace {

constexpr int kMany = 1000;

class MqttProcess : public LinkTest {
protected:
    /** Starts a process that sends so many events and then exits or waits. */
    Child startSender(int count, const std::string& then) {
        desktop::DesktopConfig config;
        config.stateFolder = m_folder.path();
        config.mqtt.address = address();
        writeFile(m_folder.path() / "desktop.json", desktop::formatDesktopConfig(config));
        return Child(startProgram({this_build::program("mqtt_sender"), std::to_string(count), then}, m_folder.path(),
                                  {"SENVO_DESKTOP_CONFIG=" + (m_folder.path() / "desktop.json").string()}));
    }

    static Lines numbersIn(const Lines& payloads) {
        Lines found;
        for (const std::string& payload : payloads) {
            found.push_back(std::to_string(nlohmann::json::parse(payload)["number"].get<int>()));
        }
        return found;
    }
};

TEST_F(MqttProcess, ThatEndsDeliversWhatItHasSentAndSaysGoodbye) {
    m_broker->start();
    Subscriber subscriber(*m_broker);
    Child sender = startSender(kMany, "exit");
    ASSERT_EQ(sender.wait(60000), 0) << readFile(m_folder.path() / "err");
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    EXPECT_EQ(subscriber.payloads("camera/status"), (Lines{kOnline, kOffline}));
    const Lines payloads = subscriber.payloads("camera/Sender");
    EXPECT_EQ(numbersIn(payloads), numbers(-1, kMany)) << "the declared state comes first";
    EXPECT_EQ(numbersIn(subscriber.payloads("camera/Data")), Lines{"0"}) << "a stateless event declares no state";
    std::string lines = subscriber.payloads("camera/Data").front() + "\n";
    for (size_t index = 1; index < payloads.size(); ++index) {
        lines += payloads[index] + "\n";
    }
    EXPECT_EQ(lines, readFile(m_folder.path() / "events.jsonl"));
}

TEST_F(MqttProcess, ThatIsKilledIsSaidToBeGoneByTheBroker) {
    m_broker->start();
    Subscriber subscriber(*m_broker);
    Child sender = startSender(3, "wait");
    ASSERT_TRUE(subscriber.collect([&] { return subscriber.payloads("camera/Sender").size() == 4; }));
    EXPECT_EQ(subscriber.payloads("camera/status"), Lines{kOnline});
    kill(sender.pid(), SIGKILL);
    ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
    Subscriber later(*m_broker);
    ASSERT_TRUE(later.collectUntil("camera/status", kOffline));
    ASSERT_TRUE(later.collect([&] { return later.messages().size() == 2; }));
    EXPECT_EQ(numbersIn(later.payloads("camera/Sender")), Lines{"2"});
    EXPECT_EQ(later.payloads("camera/Data"), Lines{}) << "no state, nothing to keep";
}

TEST_F(MqttProcess, ThatFollowsAKilledOneIsNotTakenForIt) {
    constexpr int kRuns = 5;
    const std::string log = m_folder.path() / "log";
    m_broker->configure("allow_anonymous true\nlog_type notice\nlog_dest file " + log + "\n");
    m_broker->start();
    Subscriber subscriber(*m_broker);
    for (int run = 1; run <= kRuns; ++run) {
        const size_t earlier = subscriber.payloads("camera/Sender").size();
        Child killed = startSender(kMany, "wait");
        ASSERT_TRUE(subscriber.collect([&] { return subscriber.payloads("camera/Sender").size() > earlier + 100; }));
        kill(killed.pid(), SIGKILL);
        ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
        const size_t before = subscriber.payloads("camera/Sender").size();
        Child next = startSender(kMany, "exit");
        ASSERT_EQ(next.wait(60000), 0) << readFile(m_folder.path() / "err");
        ASSERT_TRUE(subscriber.collectUntil("camera/status", kOffline));
        const Lines all = numbersIn(subscriber.payloads("camera/Sender"));
        EXPECT_EQ(Lines(all.begin() + static_cast<std::ptrdiff_t>(before), all.end()), numbers(-1, kMany));
    }
    // This broker tells new messages from old ones by itself; others have to be told to forget (c1: a clean session).
    std::istringstream lines(readFile(log));
    int cleaned = 0;
    for (std::string line; std::getline(lines, line);) {
        cleaned += line.find(" as senvo") != std::string::npos && line.find(", c1, ") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(cleaned, 2 * kRuns);
}

TEST_F(MqttProcess, EndsThoughTheBrokerIsAway) {
    Child sender = startSender(3, "exit");
    EXPECT_EQ(sender.wait(60000), 0);
    const std::string said = readFile(m_folder.path() / "err");
    EXPECT_NE(said.find("senvo: mqtt: 5 events are not delivered\n"), std::string::npos) << said;
}

}  // namespace
