#include "desktop/mqtt/line_link.h"

#include <gtest/gtest.h>

#include "broker.h"
#include "desktop/mqtt/published_lines.h"
#include "line_folder.h"
#include "test_folder.h"

namespace {

class LineLink : public testing::Test {
protected:
    void SetUp() override {
        if (!Broker::isInstalled()) {
            GTEST_SKIP() << "mosquitto is not installed";
        }
        m_broker.emplace(m_folder.path());
        m_broker->start();
    }

    std::unique_ptr<desktop::LineLink> link() {
        desktop::LineLinkSettings settings;
        settings.broker.address = "127.0.0.1:" + std::to_string(m_broker->port()) + "/site/gate";
        settings.clientId = "lines";
        settings.lines.folder = m_lines.path();
        settings.lines.positionFile = (m_folder.path() / "confirmed.json").string();
        settings.lines.steadyMillis = [] { return 0; };
        settings.lines.random = [](int64_t) { return 0; };
        settings.lines.say = [](const std::string&) {};
        settings.firstRetry = settings.longestRetry = std::chrono::milliseconds(5);
        settings.pause = std::chrono::milliseconds(5);
        return std::make_unique<desktop::LineLink>(settings);
    }

    static void publish(const Broker& broker, const std::string& topic, const std::string& payload) {
        desktop::MqttClient client({}, "other", desktop::MqttSession::Wiped, nullptr);
        client.connect({"127.0.0.1", static_cast<uint16_t>(broker.port()), ""});
        while (!client.isAccepted()) {
            client.step(-1, kPatience);
        }
        client.publish({topic, payload, true}, desktop::MqttClient::kAtLeastOnce);
        while (client.takeDelivered().empty()) {
            client.step(-1, kPatience);
        }
    }

    TestFolder m_folder;
    LineFolder m_lines;
    std::optional<Broker> m_broker;
};

TEST_F(LineLink, SendsLinesUntilTheyAreConfirmedWhateverTheBrokerSays) {
    Subscriber subscriber(*m_broker);
    m_lines.append(1, LineFolder::lines(1, 2));
    const std::string both = "{\"epoch\":\"a\",\"after\":0}\n" + LineFolder::lines(1, 2);
    auto first = link();
    ASSERT_TRUE(subscriber.collectUntil("site/gate/ledger", both));
    first = nullptr;
    auto second = link();
    ASSERT_TRUE(subscriber.collectUntil("site/gate/ledger", both)) << "not confirmed, so sent again";
    publish(*m_broker, "site/gate/confirmed", R"({"epoch":"a","through":2})");
    ASSERT_TRUE(
        waitUntil([&] { return readFile(m_folder.path() / "confirmed.json").find(":2}") != std::string::npos; }));
    second = nullptr;
    m_lines.append(1, LineFolder::line(3));
    auto third = link();
    ASSERT_TRUE(subscriber.collectUntil("site/gate/ledger", "{\"epoch\":\"a\",\"after\":2}\n" + LineFolder::line(3)));
    EXPECT_EQ(subscriber.payloads("site/gate/ledger").size(), 3U);
}

TEST_F(LineLink, GoesOnWithABrokerThatWasKilled) {
    auto lines = link();
    m_broker->stop(SIGKILL);
    m_lines.append(1, LineFolder::line(1));
    m_broker->start();
    Subscriber subscriber(*m_broker);
    m_lines.append(1, LineFolder::line(2));
    ASSERT_TRUE(subscriber.collect([&] {
        const auto payloads = subscriber.payloads("site/gate/ledger");
        return !payloads.empty() && payloads.back().find(LineFolder::line(2)) != std::string::npos;
    }));
}

struct ManifestCase {
    const char* label;
    const char* manifest;
    const char* expected; /**< the folder, or the end of what is thrown; "none" */
};

class PublishedLines : public testing::TestWithParam<ManifestCase> {};

TEST_P(PublishedLines, AreReadFromTheManifest) {
    const TestFolder folder;
    const std::string path = folder.path() / "manifest.json";
    writeFile(path, GetParam().manifest);
    std::string got;
    try {
        const auto lines = desktop::readPublishedLines(path);
        got = lines ? lines->folder : "none";
    } catch (const std::runtime_error& error) {
        got = error.what();
    }
    EXPECT_TRUE(got.ends_with(GetParam().expected)) << got;
}

INSTANTIATE_TEST_SUITE_P(
    Manifests, PublishedLines,
    testing::Values(ManifestCase{"None", "{}", "none"},
                    ManifestCase{"Folder", R"({"published_lines":{"folder":"x/y","live":["o"]}})", "x/y"},
                    ManifestCase{"NoObject", "[1]", "expected a JSON object, got none"},
                    ManifestCase{"NoFolder", R"({"published_lines":{"live":[]}})",
                                 R"(a list of texts "live" in "published_lines", got {"live":[]})"},
                    ManifestCase{"WrongLive", R"({"published_lines":{"folder":"x","live":[1]}})",
                                 R"(a list of texts "live" in "published_lines", got {"folder":"x","live":[1]})"}),
    [](const auto& instance) { return instance.param.label; });

}  // namespace
