#include <gtest/gtest.h>

#include "log_capture.h"
#include "overlay/overlay_manager.h"
#include "scripted_platform.h"
#include "test_clock.h"

namespace {

/** A service that never started fails with every cycle, and would fill the log. */
TEST(OverlayFailure, OfAServiceThatNeverStartedIsToldOnceAMinute) {
    const LogCapture log;
    TestClock clock;
    scripted::reset();
    scripted::failFrom("axoverlay_redraw", 1, {AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, "nobody there"});
    const ConfigParams config;
    const OverlayManager manager(config, 640, 360);
    applicationLog().clear();
    const auto told = [] { return LogCapture::countContaining("renderFindings: Failed to redraw overlay: "); };
    for (int cycle = 0; cycle < 600; ++cycle) {
        EXPECT_FALSE(manager.renderFindings());
        clock.advanceMillis(100);
    }
    EXPECT_EQ(told(), 1) << "in a minute";
    EXPECT_FALSE(manager.renderFindings());
    EXPECT_EQ(told(), 2) << "in the next";
}

TEST(OverlayFailure, OfAServiceThatRanIsToldEveryTime) {
    const LogCapture log;
    scripted::reset();
    const ConfigParams config;
    const OverlayManager manager(config, 640, 360);
    scripted::failFrom("axoverlay_redraw", 1, {AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, "gone"});
    for (int cycle = 0; cycle < 3; ++cycle) {
        EXPECT_FALSE(manager.renderFindings());
    }
    EXPECT_EQ(LogCapture::countContaining("renderFindings: Failed to redraw overlay: "), 3);
}

}  // namespace
