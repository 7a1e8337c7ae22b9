#include "detection/imgprovider.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>

#include "vdo_handles.h"

namespace video_test {
namespace {

struct Destroy {
    void operator()(ImgProvider* provider) const { destroyImgProvider(provider); }
};

TEST(ImgProvider, HandsOutTheFramesOfTheDesktopsVideo) {
    const ConfiguredSource source("scene:plaza");
    unsigned width = 0;
    unsigned height = 0;
    ASSERT_TRUE(chooseStreamResolution(600, 300, &width, &height));
    EXPECT_EQ(width, 640U);
    EXPECT_EQ(height, 360U);
    const std::unique_ptr<ImgProvider, Destroy> provider(createImgProvider(width, height, 2, VDO_FORMAT_YUV));
    ASSERT_TRUE(provider);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(startFrameFetch(provider.get()));
        for (int i = 0; i < 5; ++i) {
            VdoBuffer* const frame = getLastFrameBlocking(provider.get());
            ASSERT_NE(frame, nullptr);
            const auto* const luma = static_cast<const uint8_t*>(vdo_buffer_get_data(frame));
            bool hasAPicture = false;
            for (unsigned pixel = 1; pixel < width * height; ++pixel) {
                hasAPicture = hasAPicture || luma[pixel] != luma[0];
            }
            EXPECT_TRUE(hasAPicture);
            returnFrame(provider.get(), frame);
        }
        EXPECT_TRUE(stopFrameFetch(provider.get()));
    }
}

}  // namespace
}  // namespace video_test
