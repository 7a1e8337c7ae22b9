#include "desktop/frames/frame_converter.h"

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

namespace desktop {
namespace {

/** An NV12 picture in which every 2x2 block of pixels has a luma and a chroma of its own. */
FramePtr markedPicture(int width, int height) {
    FramePtr picture = makeNv12Frame(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            picture->data[0][y * picture->linesize[0] + x] = static_cast<uint8_t>(16 + (y * width + x) % 200);
        }
    }
    for (int y = 0; y < height / 2; ++y) {
        for (int x = 0; x < width; ++x) {
            picture->data[1][y * picture->linesize[1] + x] = static_cast<uint8_t>((y * 31 + x * 7) % 251);
        }
    }
    return picture;
}

uint8_t lumaAt(const AVFrame& picture, int x, int y) {
    return picture.data[0][y * picture.linesize[0] + x];
}

uint8_t chromaAt(const AVFrame& picture, int x, int y, int plane) {
    return picture.data[1][y * picture.linesize[1] + 2 * x + plane];
}

FramePtr plainPicture(AVPixelFormat format, int width, int height, uint8_t luma) {
    FramePtr picture = makeFrame();
    picture->format = format;
    picture->width = width;
    picture->height = height;
    EXPECT_EQ(av_frame_get_buffer(picture.get(), 0), 0);
    for (int y = 0; y < height; ++y) {
        std::fill_n(picture->data[0] + static_cast<ptrdiff_t>(y) * picture->linesize[0], width, luma);
    }
    for (int plane = 1; plane < 3; ++plane) {
        for (int y = 0; y < height / 2; ++y) {
            std::fill_n(picture->data[plane] + static_cast<ptrdiff_t>(y) * picture->linesize[plane], width / 2,
                        uint8_t{128});
        }
    }
    return picture;
}

TEST(FrameConverterTest, RotatesClockwisePixelForPixel) {
    constexpr int kWidth = 16;
    constexpr int kHeight = 12;
    struct Place {
        int x;
        int y;
    };
    struct Row {
        int rotation;
        int outWidth;
        Place (*source)(int x, int y, int width, int height);  // where an output pixel comes from
    };
    const Row rows[] = {
        {0, kWidth,
         [](int x, int y, int, int) {
             return Place{x, y};
         }},
        {90, kHeight,
         [](int x, int y, int, int height) {
             return Place{y, height - 1 - x};
         }},
        {180, kWidth,
         [](int x, int y, int width, int height) {
             return Place{width - 1 - x, height - 1 - y};
         }},
        {270, kHeight,
         [](int x, int y, int width, int) {
             return Place{width - 1 - y, x};
         }},
    };
    const FramePtr picture = markedPicture(kWidth, kHeight);
    for (const Row& row : rows) {
        std::vector<uint8_t> out(nv12Size(kWidth, kHeight));
        FrameConverter(kWidth, kHeight, row.rotation).convert(*picture, out.data());
        const int outHeight = kWidth * kHeight / row.outWidth;
        for (int y = 0; y < outHeight; ++y) {
            for (int x = 0; x < row.outWidth; ++x) {
                const Place from = row.source(x, y, kWidth, kHeight);
                ASSERT_EQ(out[static_cast<std::size_t>(y * row.outWidth + x)], lumaAt(*picture, from.x, from.y))
                    << "luma, rotation " << row.rotation << " at " << x << "," << y;
            }
        }
        const uint8_t* chroma = out.data() + std::ptrdiff_t{kWidth} * kHeight;
        for (int y = 0; y < outHeight / 2; ++y) {
            for (int x = 0; x < row.outWidth / 2; ++x) {
                const Place from = row.source(x, y, kWidth / 2, kHeight / 2);
                for (int plane = 0; plane < 2; ++plane) {
                    ASSERT_EQ(chroma[y * row.outWidth + 2 * x + plane], chromaAt(*picture, from.x, from.y, plane))
                        << "chroma " << plane << ", rotation " << row.rotation << " at " << x << "," << y;
                }
            }
        }
    }
}

TEST(FrameConverterTest, BlackBarsWhereTheAspectRatioDiffers) {
    struct Row {
        const char* label;
        int sourceWidth;
        int sourceHeight;
        AVRational pixel;
        int left;  // columns of the bar on each side
        int top;   // rows of the bar above and below
    };
    constexpr int kWidth = 640;
    constexpr int kHeight = 360;
    const Row rows[] = {
        {"same ratio", 320, 180, {1, 1}, 0, 0}, {"almost the same ratio", 854, 480, {0, 1}, 0, 0},
        {"square", 360, 360, {1, 1}, 140, 0},   {"portrait", 180, 360, {1, 1}, 230, 0},
        {"cinema", 640, 240, {1, 1}, 0, 60},    {"wide pixels fill", 320, 360, {2, 1}, 0, 0},
    };
    for (const Row& row : rows) {
        FramePtr picture = plainPicture(AV_PIX_FMT_YUV420P, row.sourceWidth, row.sourceHeight, 200);
        picture->sample_aspect_ratio = row.pixel;
        std::vector<uint8_t> out(nv12Size(kWidth, kHeight), 77);
        FrameConverter(kWidth, kHeight, 0).convert(*picture, out.data());
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const bool bar = x < row.left || x >= kWidth - row.left || y < row.top || y >= kHeight - row.top;
                ASSERT_EQ(out[static_cast<std::size_t>(y * kWidth + x)], bar ? 16 : 200)
                    << row.label << " at " << x << "," << y;
            }
        }
        for (std::size_t index = static_cast<std::size_t>(kWidth) * kHeight; index < out.size(); ++index) {
            ASSERT_EQ(out[index], 128) << row.label << ", chroma byte " << index;
        }
    }
}

TEST(FrameConverterTest, ChromaIsInterleavedBlueFirst) {
    FramePtr picture = plainPicture(AV_PIX_FMT_YUV420P, 320, 180, 100);
    for (int y = 0; y < 90; ++y) {
        std::fill_n(picture->data[1] + static_cast<ptrdiff_t>(y) * picture->linesize[1], 160, uint8_t{60});
        std::fill_n(picture->data[2] + static_cast<ptrdiff_t>(y) * picture->linesize[2], 160, uint8_t{190});
    }
    std::vector<uint8_t> out(nv12Size(320, 180));
    FrameConverter(320, 180, 0).convert(*picture, out.data());
    for (std::size_t index = std::size_t{320} * 180; index < out.size(); index += 2) {
        ASSERT_EQ(out[index], 60) << "U at " << index;
        ASSERT_EQ(out[index + 1], 190) << "V at " << index;
    }
}

TEST(FrameConverterTest, FullRangeBecomesLimitedRange) {
    const FramePtr white = plainPicture(AV_PIX_FMT_YUVJ420P, 320, 180, 255);
    std::vector<uint8_t> out(nv12Size(320, 180));
    FrameConverter(320, 180, 0).convert(*white, out.data());
    EXPECT_NEAR(out[0], 235, 1);
}

TEST(FrameConverterTest, FollowsASourceThatChangesItsSize) {
    FrameConverter converter(320, 180, 0);
    std::vector<uint8_t> out(nv12Size(320, 180));
    converter.convert(*plainPicture(AV_PIX_FMT_YUV420P, 640, 360, 50), out.data());
    EXPECT_EQ(out[320 * 90 + 160], 50);
    converter.convert(*plainPicture(AV_PIX_FMT_YUV420P, 180, 180, 90), out.data());
    EXPECT_EQ(out[320 * 90 + 160], 90);
    EXPECT_EQ(out[std::size_t{320} * 90], 16) << "no bar beside the square picture";
}

}  // namespace
}  // namespace desktop
