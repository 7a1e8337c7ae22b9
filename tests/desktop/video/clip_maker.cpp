#include "clip_maker.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace video_test {

void makeClip(const std::string& path, const ClipPlan& plan) {
    std::string picture = plan.picture;
    std::ostringstream input;
    if (picture.empty()) {
        // The raw pictures are made here and not by a filter, so that their luma is exactly the one that is expected.
        std::string raw;
        const auto luma = static_cast<std::size_t>(plan.width) * static_cast<std::size_t>(plan.height);
        for (int frame = 0; frame < plan.frames; ++frame) {
            raw.append(luma, static_cast<char>(lumaOfFrame(frame)));
            raw.append(luma / 2, static_cast<char>(128));
        }
        writeFile(path + ".raw", raw);
        input << "-f rawvideo -pix_fmt yuv420p -s " << plan.width << "x" << plan.height << " -r " << kClipRate
              << " -i '" << path << ".raw'";
    } else {
        input << "-f lavfi -i '" << picture << "=s=" << plan.width << "x" << plan.height << ":r=" << kClipRate << "'";
    }
    std::ostringstream command;
    command << FFMPEG_PROGRAM << " -nostdin -v error -y " << input.str() << " -frames:v " << plan.frames
            << " -pix_fmt yuv420p " << plan.coder << " '" << path << "'";
    if (std::system(command.str().c_str()) != 0) {
        throw std::runtime_error("cannot make a clip: " + command.str());
    }
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace video_test
