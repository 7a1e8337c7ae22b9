#pragma once

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "broker.h"
#include "desktop/mqtt/mqtt_link.h"
#include "test_folder.h"

using Lines = std::vector<std::string>;

inline const std::string kOnline = R"({"online":true})";
inline const std::string kOffline = R"({"online":false})";

/** The numbers from first up to before end, as payloads. */
inline Lines numbers(int first, int end) {
    Lines lines;
    for (int number = first; number < end; ++number) {
        lines.push_back(std::to_string(number));
    }
    return lines;
}

/** A broker that is not started yet, and a link to it that a test makes when it wants to. */
class LinkTest : public testing::Test {
protected:
    void SetUp() override {
        if (!Broker::isInstalled()) {
            GTEST_SKIP() << "mosquitto is not installed";
        }
        m_broker.emplace(m_folder.path());
    }

    void link(const std::function<void(desktop::MqttLinkSettings&)>& change = [](auto&) {}) {
        desktop::MqttLinkSettings settings;
        settings.broker.address = "127.0.0.1:" + std::to_string(m_broker->port()) + "/camera";
        settings.clientId = "camera";
        settings.firstRetry = std::chrono::milliseconds(1);
        settings.longestRetry = std::chrono::milliseconds(20);
        settings.farewell = kPatience;
        settings.say = [this](const std::string& line) {
            const std::lock_guard lock(m_mutex);
            m_said.push_back(line);
        };
        change(settings);
        m_link.reset();
        m_link = std::make_unique<desktop::MqttLink>(settings);
    }

    void send(int first, int end) {
        for (const std::string& number : numbers(first, end)) {
            m_link->send("number", number, false);
        }
    }

    Lines said() const {
        const std::lock_guard lock(m_mutex);
        return m_said;
    }

    bool isSaid(const std::string& part) const {
        const Lines lines = said();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.find(part) != std::string::npos; });
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(m_broker->port()) + "/camera"; }

    TestFolder m_folder;
    std::optional<Broker> m_broker;
    mutable std::mutex m_mutex;  // guards m_said
    Lines m_said;
    std::unique_ptr<desktop::MqttLink> m_link;
};
