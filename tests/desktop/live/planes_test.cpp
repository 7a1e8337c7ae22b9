#include "desktop/live/planes.h"

#include <gtest/gtest.h>

namespace desktop {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(Planes, TakeNv12OverInFullRange) {
    Planes planes(4, 2);
    const Bytes nv12 = {16,  235, 126, 0,     // luma: black, white, the middle, below black
                        16,  16,  16,  255,   //
                        128, 240, 16,  128};  // chroma: neutral and most of v; least of u and neutral
    fillFromNv12(planes, nv12.data(), false);
    EXPECT_EQ(planes.y, (Bytes{0, 255, 128, 0, 0, 0, 0, 255}));
    EXPECT_EQ(planes.u, (Bytes{128, 0}));
    EXPECT_EQ(planes.v, (Bytes{255, 128}));
    fillFromNv12(planes, nv12.data(), true);
    EXPECT_EQ(planes.y, (Bytes{0, 128, 255, 0, 255, 0, 0, 0}));
    EXPECT_EQ(planes.u, (Bytes{0, 128}));
    EXPECT_EQ(planes.v, (Bytes{128, 255}));
}

TEST(Planes, PixelateToTheMeanOfEachSquare) {
    Planes planes(6, 2);
    planes.y = {0,  10, 4, 4, 100, 200,  //
                20, 10, 4, 4, 0,   100};
    planes.u = {1, 2, 3};
    planes.v = {7, 8, 9};
    pixelate(planes, 2);
    EXPECT_EQ(planes.y, (Bytes{10, 10, 4, 4, 100, 100, 10, 10, 4, 4, 100, 100}));
    EXPECT_EQ(planes.u, (Bytes{1, 2, 3}));
    pixelate(planes, 4);
    EXPECT_EQ(planes.y, (Bytes{7, 7, 7, 7, 100, 100, 7, 7, 7, 7, 100, 100})) << "the last square is a narrow one";
    EXPECT_EQ(planes.u, (Bytes{2, 2, 3})) << "1.5, rounded";
    EXPECT_EQ(planes.v, (Bytes{8, 8, 9}));
}

/** A picture of 4x4, grey 100 and neutral. */
Planes grey() {
    Planes planes(4, 4);
    planes.y.assign(16, 100);
    planes.u.assign(4, 128);
    planes.v.assign(4, 128);
    return planes;
}

/** Lays pixels in rows of width over a grey picture; they are transparent afterwards. */
Planes blended(std::vector<uint32_t> pixels, int width, int left = 0, int top = 0) {
    Planes planes = grey();
    blendAndClear(reinterpret_cast<uint8_t*>(pixels.data()), 4 * width, width, static_cast<int>(pixels.size()) / width,
                  left, top, planes);
    EXPECT_EQ(pixels, std::vector<uint32_t>(pixels.size(), 0)) << "transparent again";
    return planes;
}

TEST(Blending, LeavesWhatIsTransparent) {
    const Planes planes = blended(std::vector<uint32_t>(16, 0), 4);
    EXPECT_EQ(planes.y, grey().y);
    EXPECT_EQ(planes.u, grey().u);
    EXPECT_EQ(planes.v, grey().v);
}

TEST(Blending, CoversWithWhatIsOpaque) {
    constexpr uint32_t kRed = 0xFFFF0000;
    const Planes planes = blended({kRed, kRed, 0, 0, kRed, kRed, 0, 0}, 4);
    // Red: luma 0.299 * 255, u 128 - 0.168736 * 255, v 128 + 127.5.
    EXPECT_EQ(planes.y, (Bytes{76, 76, 100, 100, 76, 76, 100, 100, 100, 100, 100, 100, 100, 100, 100, 100}));
    EXPECT_EQ(planes.u, (Bytes{85, 128, 128, 128}));
    EXPECT_EQ(planes.v, (Bytes{255, 128, 128, 128}));
}

TEST(Blending, MixesWithWhatIsHalfTransparent) {
    // Premultiplied blue of alpha 128: luma 0.114 * 128 + 100 * 127 / 255 = 14.592 + 49.804.
    const Planes planes = blended({0x80000080, 0, 0, 0, 0, 0, 0, 0}, 4);
    EXPECT_EQ(planes.y[0], 64);
    EXPECT_EQ(planes.y[1], 100);
    // One of four pixels: u 128 + 0.5 * 128 / 4, v 128 - 0.081312 * 128 / 4.
    EXPECT_EQ(planes.u[0], 144);
    EXPECT_EQ(planes.v[0], 125);
}

TEST(Blending, KeepsTheChromaBelowInProportion) {
    std::vector<uint32_t> pixels(4, 0x80404040);  // grey of alpha 128
    Planes planes = grey();
    planes.u[0] = 228;
    blendAndClear(reinterpret_cast<uint8_t*>(pixels.data()), 8, 2, 2, 0, 0, planes);
    EXPECT_EQ(planes.u[0], 178) << "128 + 100 * 127 / 255";
    EXPECT_EQ(planes.v[0], 128);
}

TEST(Blending, CutsOffWhatIsOutside) {
    constexpr uint32_t kWhite = 0xFFFFFFFF;
    const struct {
        const char* label;
        int left;
        int top;
        std::vector<size_t> white; /**< luma pixels */
    } cases[] = {{"right and below", 2, 2, {10, 11, 14, 15}},
                 {"left and above", -2, -2, {0, 1, 4, 5}},
                 {"far away", 40, 40, {}}};
    for (const auto& [label, left, top, white] : cases) {
        const Planes planes = blended(std::vector<uint32_t>(16, kWhite), 4, left, top);
        Bytes expected = grey().y;
        for (const size_t pixel : white) {
            expected[pixel] = 255;
        }
        EXPECT_EQ(planes.y, expected) << label;
    }
}

TEST(Blending, FindsWhatIsDrawnAnywhereOnALargePicture) {
    for (const int x : {0, 31, 32, 65, 99}) {
        for (const int y : {0, 33, 49}) {
            Planes planes(100, 50);
            std::vector<uint32_t> pixels(5000, 0);
            const auto at = static_cast<size_t>(y * 100 + x);
            pixels[at] = 0xFFFFFFFF;
            blendAndClear(reinterpret_cast<uint8_t*>(pixels.data()), 400, 100, 50, 0, 0, planes);
            Bytes expected(5000, 0);
            expected[at] = 255;
            EXPECT_EQ(planes.y, expected) << x << ' ' << y;
            EXPECT_EQ(pixels[at], 0U);
        }
    }
}

}  // namespace
}  // namespace desktop
