#include "detection/camera_resolutions.h"

#include <gtest/gtest.h>

#include <vdo-types.h>

#include "log_capture.h"
#include "scripted_platform.h"

namespace {

class CameraResolutions : public testing::Test {
protected:
    CameraResolutions() { scripted::reset(); }

    LogCapture m_log;
};

TEST_F(CameraResolutions, AreThoseOfAllChannelsOnceAndInOrder) {
    scripted::offerResolutions(1, {{1920, 1080}, {640, 480}, {640, 360}});
    scripted::offerResolutions(2, {{1280, 720}, {640, 360}});
    const std::set<Resolution> expected = {{640, 360}, {640, 480}, {1280, 720}, {1920, 1080}};
    EXPECT_EQ(getCameraResolutions(), expected);
    EXPECT_EQ(getCamerasResolutionsAsCsv(), "640x360,640x480,1280x720,1920x1080,");
    EXPECT_TRUE(LogCapture::lines().empty());
}

TEST_F(CameraResolutions, AreNoneWhenTheChannelsCannotBeListed) {
    scripted::offerResolutions(1, {{640, 360}});
    scripted::failAt("vdo_channel_get_all", 1, {VDO_ERROR_FAILED, "out of order"});
    EXPECT_EQ(getCamerasResolutionsAsCsv(), "");
    EXPECT_EQ(LogCapture::ofLevel("error"),
              std::vector<std::string>{"getCameraResolutions: Failed vdo_channel_get_all(): out of order"});
}

TEST_F(CameraResolutions, LackTheChannelThatCannotBeAsked) {
    scripted::offerResolutions(1, {{640, 360}});
    scripted::offerResolutions(2, {{1280, 720}});
    scripted::failAt("vdo_channel_get_resolutions", 1, {VDO_ERROR_FAILED, "out of order"});
    EXPECT_EQ(getCamerasResolutionsAsCsv(), "1280x720,");
    EXPECT_EQ(LogCapture::ofLevel("error"),
              std::vector<std::string>{"getCameraResolutions: Failed vdo_channel_get_resolutions(): out of order"});
}

}  // namespace
