#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>

#include "log_capture.h"
#include "scripted_platform.h"
#include "statistics/occupancy_manager.h"
#include "test_clock.h"

/** The statistics of a camera named "Cam" that counts persons in area 1 and at entrance 1, kept every five minutes. */
class CameraStatistics : public testing::Test {
protected:
    static constexpr time_t kStart = 1704067200;  // 2024-01-01 00:00:00

    CameraStatistics() {
        scripted::reset();
        m_config.b_Detection1Active = m_config.b_Occupancy1Active = m_config.b_DetectPersons = true;
        m_camera.thisCameraName = "Cam";
        m_camera.i_PeriodTime = 5;
        m_manager.emplace(m_config);
    }

    /** Where an archive is. */
    std::string path(const std::string& name) const {
        return (m_log.folder() / "usr/local/packages/ostrel_senvo/localdata" / name).string();
    }
    std::string content(const std::string& name) const {
        std::ifstream in(path(name));
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const TimeZone m_utc{"UTC0"};
    const LogCapture m_log;
    TestClock m_clock{kStart};
    ConfigParams m_config;
    CameraInfo m_camera;
    EventManager m_events;
    LeaderMetricsParams m_leaderMetrics;
    std::optional<OccupancyManager> m_manager;
};
