#include "real_frame.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "this_build.h"

namespace {

std::vector<uint8_t> pattern(size_t size, unsigned width) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>((i % width) * 7 + (i / width) * 13);
    }
    return bytes;
}

}  // namespace

std::vector<uint8_t> realFrame(unsigned width, unsigned height) {
    const size_t size = size_t{width} * height * 3 / 2;
    const auto clip = this_build::shared() / "media/one-by-one-person-detection.mp4";
    if (!std::filesystem::exists(clip)) {
        return pattern(size, width);
    }
    const std::string command = "ffmpeg -v error -ss 60 -i '" + clip.string() +
                                "' -frames:v 1 -vf scale=" + std::to_string(width) + ":" + std::to_string(height) +
                                " -pix_fmt nv12 -f rawvideo - 2>/dev/null";
    const std::unique_ptr<FILE, decltype(&pclose)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<uint8_t> bytes(size);
    if (!pipe || fread(bytes.data(), 1, size, pipe.get()) != size) {
        return pattern(size, width);
    }
    return bytes;
}
