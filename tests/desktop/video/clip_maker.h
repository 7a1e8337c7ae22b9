#pragma once

#include <string>

#include "test_folder.h"

/** Clips for tests, made on the spot in a folder that goes when its owner goes. */
namespace video_test {

class ClipFolder : public TestFolder {
public:
    std::string file(const std::string& name) const { return (path() / name).string(); }
};

/** How to make a clip; the defaults give ten pictures a second, losslessly. */
struct ClipPlan {
    int width = 640;
    int height = 360;
    int frames = 10;
    std::string coder = "-c:v ffv1";
    std::string picture =
        {}; /**< a filter graph that gives the pictures; empty: frame n is all of luma lumaOfFrame(n) */
};

constexpr int kClipRate = 10;
constexpr long kFrameMicros = 1'000'000 / kClipRate;

/** Luma of frame n, counted from 0, of a clip without a picture of its own. */
constexpr int lumaOfFrame(int n) {
    return 20 + 2 * n;
}

/** Makes the clip with the ffmpeg program. Throws std::runtime_error with the command line when that fails. */
void makeClip(const std::string& path, const ClipPlan& plan);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

}  // namespace video_test
