#include "desktop/inference/engine/settings_in_force.h"

#include <gtest/gtest.h>

#include "desktop/config/desktop_config.h"
#include "desktop/parameters/parameter_store.h"
#include "program.h"
#include "test_folder.h"

namespace desktop {
namespace {

using Classes = std::vector<ObjectClass>;

class SettingsInForceTest : public testing::Test {
protected:
    SettingsInForceTest() {
        writeFile(m_folder.path() / "manifest.json", R"({
            "inference": {"sensitivity": "Sensitivity"},
            "class_parameters": {"Car": "Cars", "Bicycle": "Bicycles", "Person": "People"}})");
        DesktopConfig config;
        config.stateFolder = m_folder.path();
        config.manifest = m_folder.path() / "manifest.json";
        setDesktopConfig(config);
    }
    ~SettingsInForceTest() override { setDesktopConfig({}); }

    std::unique_ptr<ParameterStore> store() const {
        return std::make_unique<ParameterStore>(
            m_path, std::vector<ParameterDefault>{
                        {"Sensitivity", "0.5"}, {"Cars", "true"}, {"Bicycles", "false"}, {"People", "true"}});
    }

    void change(const char* sql) const {
        sqlite3* handle = nullptr;
        ASSERT_EQ(sqlite3_open(m_path.c_str(), &handle), SQLITE_OK);
        const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> owned(handle, sqlite3_close);
        ASSERT_EQ(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
    }

    TestFolder m_folder;
    std::string m_path = m_folder.path() / "parameters.db";
};

TEST_F(SettingsInForceTest, FollowTheStore) {
    SettingsInForce settings;
    EXPECT_EQ(settings.sensitivity(), SettingsInForce::kUsualSensitivity) << "there is no store yet";
    EXPECT_EQ(settings.counted(), Classes());
    EXPECT_FALSE(std::filesystem::exists(m_path)) << "and a reader makes none";
    const auto written = store();
    EXPECT_EQ(settings.sensitivity(), 0.5F);
    EXPECT_EQ(settings.counted(), (Classes{ObjectClass::Person, ObjectClass::Car}));
    written->set("Sensitivity", "0.25");
    written->set("Bicycles", "true");
    written->set("Cars", "false");
    EXPECT_EQ(settings.sensitivity(), 0.25F);
    EXPECT_EQ(settings.counted(), (Classes{ObjectClass::Person, ObjectClass::Bicycle}));
    written->set("Sensitivity", "low");
    EXPECT_EQ(settings.sensitivity(), SettingsInForce::kUsualSensitivity);
}

TEST_F(SettingsInForceTest, StayWhatTheyWereWhileTheStoreCannotBeRead) {
    const auto written = store();
    SettingsInForce settings;
    ASSERT_EQ(settings.sensitivity(), 0.5F);
    ASSERT_EQ(settings.counted(), (Classes{ObjectClass::Person, ObjectClass::Car}));
    change("ALTER TABLE parameter RENAME TO elsewhere");
    EXPECT_EQ(settings.sensitivity(), 0.5F);
    EXPECT_EQ(settings.counted(), (Classes{ObjectClass::Person, ObjectClass::Car}));
    change("ALTER TABLE elsewhere RENAME TO parameter");
    change("UPDATE parameter SET value = '0.75' WHERE name = 'Sensitivity'");
    EXPECT_EQ(settings.sensitivity(), 0.75F) << "it can again";
}

}  // namespace
}  // namespace desktop
