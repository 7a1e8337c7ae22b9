#pragma once

#include <csignal>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "app/application.h"
#include "log_capture.h"
#include "scripted_platform.h"
#include "test_clock.h"

/** The application on a small scripted camera, every class unselected but persons. */
class RunningApplication : public testing::Test {
protected:
    static constexpr uint32_t kWidth = 64;
    static constexpr uint32_t kHeight = 36;
    static constexpr int kIterationTime = 100;

    explicit RunningApplication(time_t start = 1700000000) : m_clock(start) {
        scripted::reset();
        scripted::offerResolutions(1, {{kWidth, kHeight}});
        scripted::parameters()["ModelWidth"] = std::to_string(kWidth);
        scripted::parameters()["ModelHeight"] = std::to_string(kHeight);
        scripted::parameters()["MainLoopTime"] = std::to_string(kIterationTime);
        scripted::parameters()["Sensitivity"] = "0.35";
        scripted::parameters()["DetectPersons"] = "true";
        scripted::parameters()["MinOccupantsForTrigger"] = "1000";
        scripted::parameters()["PeriodTime"] = "15";
        installModel("detect_960_540_tpu.tflite");
        installModel("detect_540_960_tpu.tflite");
    }

    std::string modelPath(const std::string& name) const {
        return m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo" / name;
    }
    void installModel(const std::string& name) const { std::ofstream(modelPath(name)) << "model"; }

    /** Takes every step of start-up but the main loop. */
    void start() {
        m_application.init_parameter_controller();
        ASSERT_EQ(m_application.init_ai(), 1);
        m_application.init_occupancy_controller();
        m_application.init_sensor_aspect_ratio();
        m_application.init_overlay_manager();
        m_application.init_event_manager();
        m_application.init_logic(m_application.config().i_MaxDisappeared);
    }

    /** Makes every cycle take so long by the clock. */
    void cycleTakes(int64_t milliseconds) {
        scripted::onJob([this, milliseconds](const std::vector<uint8_t>&) {
            m_clock.advanceMillis(milliseconds);
            return std::vector<scripted::Candidate>();
        });
    }

    /** Sends this process one SIGTERM in the first cycle. */
    static void askToEndInTheFirstCycle(const std::function<void()>& before = [] {}) {
        scripted::onJob([before, asked = false](const std::vector<uint8_t>&) mutable {
            if (!asked) {
                asked = true;
                before();
                kill(getpid(), SIGTERM);
            }
            return std::vector<scripted::Candidate>();
        });
    }

    /** Cycles in which the model fails. */
    void fail(int cycles) {
        scripted::failFrom("larodRunJob", 1, {LAROD_ERROR_JOB, "no chip"});
        for (int i = 0; i < cycles; ++i) {
            EXPECT_EQ(m_application.do_one_analysis(), 0) << "failing cycle " << i;
        }
        scripted::heal("larodRunJob");
    }

    LogCapture m_log;
    TestClock m_clock;
    Application m_application;
};
