#include "desktop/config/desktop_config.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

TEST(DesktopConfig, OfAnEmptyFileIsTheDefault) {
    const desktop::DesktopConfig config = desktop::parseDesktopConfig("{}");
    EXPECT_EQ(config.video, "scene:plaza");
    EXPECT_EQ(config.pacing, desktop::Pacing::RealTime);
    EXPECT_EQ(config.stateFolder, ".");
    EXPECT_EQ(config.networksFolder, "");
    EXPECT_EQ(config.manifest, "");
    EXPECT_EQ(config.mqtt.address, "") << "no broker";
}

struct ConfigCase {
    const char* label;
    const char* text;
    const char* error;
};

class BadConfig : public testing::TestWithParam<ConfigCase> {};

TEST_P(BadConfig, IsRefusedWithWhatWasExpected) {
    std::string error = "nothing";
    try {
        desktop::parseDesktopConfig(GetParam().text);
    } catch (const std::runtime_error& thrown) {
        error = thrown.what();
    }
    EXPECT_EQ(error, GetParam().error) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadConfig,
    testing::Values(ConfigCase{"empty", "", "expected a JSON object, got none"},
                    ConfigCase{"a list", "[]", "expected a JSON object, got []"},
                    ConfigCase{"another type", R"({"video": 7})", "\"video\": expected a text, got 7"},
                    ConfigCase{"null", R"({"manifest": null})", "\"manifest\": expected a text, got null"},
                    ConfigCase{"unknown pacing", R"({"pacing": "fast"})",
                               "\"pacing\": expected one of realtime, virtual, got \"fast\""},
                    ConfigCase{"unknown key", R"({"colour": "red"})",
                               "unknown key \"colour\"; known: pacing, video, networksFolder, stateFolder, "
                               "manifest, heartbeat, liveSocket, mqtt, mqttUser, mqttPasswordFile, mqttCaFile, "
                               "mqttCertFile, mqttKeyFile"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace
