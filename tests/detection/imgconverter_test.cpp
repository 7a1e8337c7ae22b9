#include "detection/imgconverter.h"

#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <libyuv.h>
#include <memory>
#include <random>
#include <sys/resource.h>

#include "log_capture.h"
#include "program.h"
#include "slow_build.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

/** The conversion step by step over whole pictures. */
Bytes stepByStep(const Bytes& nv12, unsigned srcWidth, unsigned srcHeight, unsigned dstWidth, unsigned dstHeight) {
    const auto asInt = [](auto value) { return static_cast<int>(value); };
    Bytes source(size_t{srcWidth} * srcHeight * 4);
    EXPECT_EQ(
        libyuv::NV12ToARGB(nv12.data(), asInt(srcWidth), nv12.data() + size_t{srcWidth} * srcHeight, asInt(srcWidth),
                           source.data(), asInt(srcWidth * 4), asInt(srcWidth), asInt(srcHeight)),
        0);
    const double ratio = static_cast<double>(dstWidth) / dstHeight;
    double cropWidth = srcWidth;
    double cropHeight = srcWidth / ratio;
    if (cropHeight > srcHeight) {
        cropHeight = srcHeight;
        cropWidth = cropHeight * ratio;
    }
    const unsigned x = (srcWidth - static_cast<unsigned>(cropWidth)) >> 1U;
    const unsigned y = (srcHeight - static_cast<unsigned>(cropHeight)) >> 1U;
    Bytes target(size_t{dstWidth} * dstHeight * 4);
    EXPECT_EQ(libyuv::ARGBScale(source.data() + size_t{x} * 4 + size_t{y} * srcWidth * 4, asInt(srcWidth * 4),
                                asInt(cropWidth), asInt(cropHeight), target.data(), asInt(dstWidth * 4),
                                asInt(dstWidth), asInt(dstHeight), libyuv::kFilterBilinear),
              0);
    Bytes rgb;
    rgb.reserve(size_t{dstWidth} * dstHeight * 3);
    for (size_t i = 0; i < target.size(); i += 4) {
        rgb.push_back(target[i + 2]);
        rgb.push_back(target[i + 1]);
        rgb.push_back(target[i]);
    }
    return rgb;
}

Bytes randomFrame(unsigned width, unsigned height, unsigned seed) {
    std::mt19937 random(seed);
    Bytes frame(size_t{width} * height + size_t{width} * ((height + 1) / 2) + 1);
    for (uint8_t& byte : frame) {
        byte = static_cast<uint8_t>(random());
    }
    return frame;
}

void expectSame(const Bytes& nv12, unsigned srcWidth, unsigned srcHeight, unsigned dstWidth, unsigned dstHeight) {
    const Bytes expected = stepByStep(nv12, srcWidth, srcHeight, dstWidth, dstHeight);
    Bytes rgb(expected.size(), 0xEE);
    EXPECT_TRUE(convertCropScaleU8yuvToRGB(nv12.data(), srcWidth, srcHeight, rgb.data(), dstWidth, dstHeight));
    const auto difference = std::mismatch(rgb.begin(), rgb.end(), expected.begin());
    EXPECT_EQ(difference.first, rgb.end())
        << srcWidth << "x" << srcHeight << " to " << dstWidth << "x" << dstHeight << " differs first at row "
        << static_cast<size_t>(difference.first - rgb.begin()) / 3 / dstWidth;
}

struct SizesCase {
    const char* label;
    unsigned srcWidth;
    unsigned srcHeight;
    unsigned dstWidth;
    unsigned dstHeight;
};

class Conversion : public testing::TestWithParam<SizesCase> {};

TEST_P(Conversion, GivesTheBytesOfTheStepsOneByOne) {
    const SizesCase& given = GetParam();
    expectSame(randomFrame(given.srcWidth, given.srcHeight, 1), given.srcWidth, given.srcHeight, given.dstWidth,
               given.dstHeight);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Conversion,
    testing::Values(SizesCase{"same ratio", 1280, 720, 960, 540},
                    SizesCase{"full high definition", 1920, 1080, 960, 540},
                    SizesCase{"cropped and enlarged", 640, 480, 960, 540},
                    SizesCase{"four times as large", 3840, 2160, 960, 540}, SizesCase{"portrait", 1080, 1920, 540, 960},
                    SizesCase{"square out of the middle", 1920, 1080, 300, 300},
                    SizesCase{"the model's own size", 960, 540, 960, 540}, SizesCase{"enlarged", 480, 270, 960, 540},
                    SizesCase{"odd column offset", 962, 540, 540, 540}, SizesCase{"odd row offset", 640, 486, 960, 540},
                    SizesCase{"odd target", 1280, 720, 301, 299}, SizesCase{"fewer rows than a band", 640, 360, 32, 18},
                    SizesCase{"one row more than a band", 640, 480, 40, 25},
                    SizesCase{"portrait out of landscape", 1280, 720, 270, 480}, SizesCase{"tiny", 4, 2, 8, 4}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(RealFrame, GivesTheBytesOfTheStepsOneByOne) {
    const std::filesystem::path shared = sharedFolder();
    if (shared.empty()) {
        GTEST_SKIP() << "no shared clips on this machine";
    }
    const TestFolder folder;
    const std::string clip = shared / "media/one-by-one-person-detection.mp4";
    const ProgramResult decoded = runProgram({FFMPEG_PROGRAM, "-v", "error", "-ss", "10", "-i", clip, "-frames:v", "1",
                                              "-f", "rawvideo", "-pix_fmt", "nv12", "frame.nv12"},
                                             folder.path());
    ASSERT_EQ(decoded.status, 0) << decoded.err;
    const std::string raw = readFile(folder.path() / "frame.nv12");
    const Bytes frame(raw.begin(), raw.end());
    ASSERT_EQ(frame.size(), 768U * 432 * 3 / 2);
    expectSame(frame, 768, 432, 960, 540);
    expectSame(frame, 768, 432, 300, 300);
    expectSame(frame, 768, 432, 540, 960);
}

TEST(Conversion, CutsTheMiddle) {
    // White but for a black stripe at the left: a square from the middle does not see it, the whole picture does.
    constexpr unsigned kWidth = 64;
    constexpr unsigned kHeight = 32;
    Bytes frame(kWidth * kHeight * 3 / 2, 128);
    for (unsigned row = 0; row < kHeight; ++row) {
        for (unsigned column = 0; column < kWidth; ++column) {
            frame[row * kWidth + column] = column < 16 ? 16 : 235;
        }
    }
    Bytes square(3U * 16 * 16);
    EXPECT_TRUE(convertCropScaleU8yuvToRGB(frame.data(), kWidth, kHeight, square.data(), 16, 16));
    EXPECT_GT(*std::min_element(square.begin(), square.end()), 250);
    Bytes whole(3U * 32 * 16);
    EXPECT_TRUE(convertCropScaleU8yuvToRGB(frame.data(), kWidth, kHeight, whole.data(), 32, 16));
    EXPECT_LT(whole[0], 5);
    EXPECT_GT(whole[3 * 31], 250);
}

// --- Refusals --------------------------------------------------------------------------------------------------------

struct RefusalCase {
    const char* label;
    unsigned srcWidth;
    unsigned srcHeight;
    unsigned dstWidth;
    unsigned dstHeight;
    const char* line;
};

class Refusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refusal, IsLogged) {
    const LogCapture log;
    const Bytes frame = randomFrame(64, 64, 1);
    Bytes rgb(3U * 64 * 64);
    const RefusalCase& given = GetParam();
    EXPECT_FALSE(convertCropScaleU8yuvToRGB(frame.data(), given.srcWidth, given.srcHeight, rgb.data(), given.dstWidth,
                                            given.dstHeight))
        << given.label;
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{std::string("convertCropScaleU8yuvToRGB: ") + given.line}))
        << given.label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Refusal,
    testing::Values(RefusalCase{"frame without width", 0, 64, 64, 64, "Failed NV12ToARGB(), result=-1"},
                    RefusalCase{"frame without height", 64, 0, 64, 64, "Failed NV12ToARGB(), result=-1"},
                    RefusalCase{"target without height", 64, 64, 64, 0, "Failed ARGBScale(), result=-1"},
                    RefusalCase{"target without width", 64, 64, 0, 64, "Failed ARGBScale(), result=-1"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

/** Converts with little memory to be had; ends the process with 0 when the log says what is expected. */
[[noreturn]] void convertInNarrowMemory(unsigned srcSize, unsigned dstWidth, unsigned dstHeight,
                                        const std::string& line) {
    const LogCapture log;
    const rlimit limit = {rlim_t{1} << 30U, rlim_t{1} << 30U};
    setrlimit(RLIMIT_AS, &limit);
    const Bytes frame(64);
    uint8_t rgb = 0;
    const bool converted = convertCropScaleU8yuvToRGB(frame.data(), srcSize, srcSize, &rgb, dstWidth, dstHeight);
    const Lines errors = LogCapture::ofLevel("error");
    const bool asExpected = !converted && errors == Lines{"convertCropScaleU8yuvToRGB: " + line};
    std::fprintf(stderr, "%s\n", errors.empty() ? "no error logged" : errors[0].c_str());
    std::_Exit(asExpected ? 0 : 1);
}

TEST(ConversionDeathTest, TellsWhenMemoryIsShort) {
    if (kSanitized) {
        GTEST_SKIP() << "sanitizers need more address space than the test leaves";
    }
    EXPECT_EXIT(convertInNarrowMemory(100000, 1, 1, "Failed allocating big tempARGB buffer: Cannot allocate memory"),
                testing::ExitedWithCode(0), "");
    EXPECT_EXIT(convertInNarrowMemory(4, 100000000, 100000000,
                                      "Failed allocating small tempARGB buffer: Cannot allocate memory"),
                testing::ExitedWithCode(0), "");
}

// --- Repacking and the converters that stand by ----------------------------------------------------------------------

TEST(Repacking, TurnsBlueFirstIntoRedFirst) {
    const Bytes argb = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    Bytes rgb(12);
    ARGBtoRAW(argb.data(), rgb.data(), 2, 2);
    EXPECT_EQ(rgb, (Bytes{3, 2, 1, 7, 6, 5, 11, 10, 9, 15, 14, 13}));
}

TEST(StandbyLibrary, ConvertsBlackAndWhite) {
    Bytes nv12 = {16, 235, 235, 16, 128, 128};
    Bytes rgb(12);
    convertU8yuvToRGBlibYuv(2, 2, nv12.data(), rgb.data());
    EXPECT_EQ(rgb, (Bytes{0, 0, 0, 255, 255, 255, 255, 255, 255, 0, 0, 0}));
}

TEST(StandbyLibrary, LogsARefusal) {
    const LogCapture log;
    Bytes nv12(6);
    Bytes rgb(12);
    convertU8yuvToRGBlibYuv(2, 0, nv12.data(), rgb.data());
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"convertU8yuvToRGBlibYuv: Failed NV12ToRAW(), result=-1"}));
}

struct ColourCase {
    const char* label;
    uint8_t y;
    uint8_t u;
    uint8_t v;
    std::array<double, 3> rgb;  // nominally 0..1
    Bytes wrapped;
};

class StandbyColour : public testing::TestWithParam<ColourCase> {};

// By hand: u' = U/255 - 0.5, v' = V/255 - 0.5; R = Y + 1.13983 v', G = Y - 0.39465 u' - 0.5806 v', B = Y + 2.03211 u'.
INSTANTIATE_TEST_SUITE_P(Table, StandbyColour,
                         testing::Values(
                             // u' = v' = 0.0019608: R = 0.504196 (128.57), G = 0.500048 (127.51), B = 0.505945 (129.02)
                             ColourCase{"grey", 128, 128, 128, {0.504196, 0.500048, 0.505945}, {128, 127, 129}},
                             // u' = 0.0019608, v' = 0.5: R = 1.569915 (400.33, wraps to 144), G = 0.708926 (180.78), B
                             // = 1.003985 (256.02, wraps to 0)
                             ColourCase{"above one", 255, 128, 255, {1.569915, 0.708926, 1.003985}, {144, 180, 0}},
                             // u' = 0.0019608, v' = -0.5: R = -0.569915, G = 0.289526 (73.83), B = 0.003985 (1.02)
                             ColourCase{"below zero", 0, 128, 0, {-0.569915, 0.289526, 0.003985}, {0, 73, 1}},
                             // u' = -0.5, v' = 0.0019608: R = 0.394353 (100.56), G = 0.588305 (150.02), B = -0.623898
                             ColourCase{"no blue", 100, 0, 128, {0.394392, 0.588344, -0.623898}, {100, 150, 0}}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

/** A picture of 4 by 2 whose right half has the colour; the left half is black. */
Bytes halfColoured(const ColourCase& colour) {
    return {0, 0, colour.y, colour.y, 0, 0, colour.y, colour.y, 128, 128, colour.u, colour.v};
}

TEST_P(StandbyColour, InBytesWrapsAround) {
    Bytes nv12 = halfColoured(GetParam());
    Bytes rgb(24);
    convertU8yuvToRGBnaive(4, 2, nv12.data(), rgb.data());
    for (const size_t pixel : {2U, 3U, 6U, 7U}) {
        const auto at = rgb.begin() + static_cast<ptrdiff_t>(3 * pixel);
        EXPECT_EQ(Bytes(at, at + 3), GetParam().wrapped) << GetParam().label << ", pixel " << pixel;
    }
}

TEST_P(StandbyColour, InFloatsIsClampedToTheRange) {
    Bytes nv12 = halfColoured(GetParam());
    std::vector<float> rgb(24);
    constexpr float kScale = 2.0F;
    constexpr float kMean = 0.5F;  // -0.5 to 1.5
    convertU8yuvToFloat32RGB(4, 2, nv12.data(), rgb.data(), kScale, kMean);
    for (const size_t pixel : {2U, 3U, 6U, 7U}) {
        for (size_t channel = 0; channel < 3; ++channel) {
            const double expected = std::min(std::max(-0.5 + 2.0 * GetParam().rgb[channel], -0.5), 1.5);
            EXPECT_NEAR(rgb[3 * pixel + channel], expected, 1e-5) << GetParam().label << ", channel " << channel;
        }
    }
}

}  // namespace
