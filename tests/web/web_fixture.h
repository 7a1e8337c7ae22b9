#pragma once

#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "builders.h"
#include "log_capture.h"
#include "scripted_platform.h"
#include "test_clock.h"
#include "web/parameter_io.h"

/** The settings exchange with a detector on a stream of 960 by 540, and a scripted store. */
class WebFixture : public testing::Test {
protected:
    WebFixture() {
        scripted::reset();
        scripted::offerResolutions(1, {{960, 540}});
        std::ofstream(m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/model") << "model";
        EXPECT_TRUE(m_detector.init_larod("ostrel_senvo", "model", 960, 540, 200, false));
        m_store.init_controller("ostrel_senvo");
        m_config.i_MainLoopTime = 200;
        applicationLog().clear();
    }

    const LogCapture m_log;
    TestClock m_clock;
    ConfigParams m_config = everyClass(); /**< the web service's record */
    location_controller_larod m_detector{m_config};
    http_request_controller m_followers;
    parameter_controller m_store{m_config};
    MetricsParams m_metrics;
    LeaderMetricsParams m_leaderMetrics;
    std::atomic<int> m_status = 200;
    std::vector<SettingsUpdate> m_published;
    std::function<void()> m_onPublished = [] {};
    parameter_io m_settings{{m_config, m_detector, m_followers, m_store, m_metrics, m_leaderMetrics, m_status,
                             [this](const SettingsUpdate& update) {
                                 m_published.push_back(update);
                                 m_onPublished();
                             }}};
};
