#include "config/parameter_controller.h"
#include "desktop/config/desktop_config.h"
#include "killed_writer.h"
#include "log_capture.h"

namespace {

/** Saves all settings over and over, every number the number of the save. */
class Settings : public Writer {
public:
    Settings() {
        desktop::DesktopConfig config;
        desktop::setDesktopConfig(config);
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        store.save_config_params(numbered(0));
    }

    void write() override {
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        for (int next = m_progress->done + 1;; ++next) {
            m_progress->begun = next;
            store.save_config_params(numbered(next));
            m_progress->done = next;
        }
    }

    void check() override {
        parameter_controller store(m_config);
        store.init_controller("ostrel_senvo");
        const ConfigParams found = store.load_config_params();
        // In the order in which they are saved: those of the last save first, then those of the one before.
        std::vector<int> numbers;
        numbers.insert(numbers.end(), found.i_Exclusion1.begin(), found.i_Exclusion1.end());
        numbers.push_back(found.i_DetectionControlPoints);
        numbers.insert(numbers.end(), found.i_Detection1.begin(), found.i_Detection1.end());
        numbers.push_back(found.i_MinNumberOfPeopleForTrigger);
        numbers.push_back(static_cast<int>(found.f_Sensitivity));
        numbers.push_back(number(found.str_DetectionOverlay));
        numbers.push_back(found.i_MaxDisappeared);
        numbers.insert(numbers.end(), found.i_Occupancy3.begin(), found.i_Occupancy3.end());
        numbers.push_back(number(found.str_OccupancyAutoResetTime));
        numbers.push_back(found.cameraInfo.i_PeriodTime);
        for (const std::string& password : found.cameraInfo.followerPassword) {
            numbers.push_back(number(password));
        }
        EXPECT_TRUE(std::is_sorted(numbers.rbegin(), numbers.rend()));
        EXPECT_GE(numbers.back(), m_progress->done) << "a setting that was saved is gone";
        EXPECT_GE(numbers.back(), numbers.front() - 1) << "of two saves at most";
        EXPECT_LE(numbers.front(), std::max(m_half, m_progress->begun.load()));
        m_half = numbers.front();
        m_progress->begun = m_progress->done = numbers.back();
    }

private:
    static ConfigParams numbered(int save) {
        ConfigParams config;
        config.i_Exclusion1.fill(save);
        config.i_DetectionControlPoints = save;
        config.i_Detection1.fill(save);
        config.i_MinNumberOfPeopleForTrigger = save;
        config.f_Sensitivity = static_cast<float>(save);
        config.str_DetectionOverlay = text(save);
        config.i_MaxDisappeared = save;
        config.i_Occupancy3.fill(save);
        config.str_OccupancyAutoResetTime = text(save);
        config.cameraInfo.i_PeriodTime = save;
        config.cameraInfo.followerPassword.fill(text(save));
        return config;
    }

    /** A text that shows when part of it is missing. */
    static std::string text(int save) { return std::to_string(save) + std::string(500, '.') + "end"; }
    static int number(const std::string& value) {
        const int save = std::atoi(value.c_str());
        EXPECT_EQ(value, text(save));
        return save;
    }

    const ConfigParams m_config;
    int m_half = 0; /**< a save that a kill cut short earlier */
};

TEST(KilledWhileSaving, LosesNothingThatWasSaved) {
    const LogCapture folder;
    Settings settings;
    killAtAnyMoment(settings, 20000);
}

}  // namespace
