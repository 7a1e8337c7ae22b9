#include "desktop/live/live_request.h"

#include <gtest/gtest.h>

namespace desktop {
namespace {

const std::vector<StreamSize> kSizes = {{1920, 1080}, {1280, 720}, {640, 360}};

TEST(LiveRequest, IsRead) {
    const struct {
        const char* target;
        bool video;
        StreamSize size;
        bool overlays;
        int fps;
    } cases[] = {
        {"/live/image.jpg", false, {1280, 720}, true, 0},
        {"/live/video.mjpg?", true, {1280, 720}, true, 0},
        {"/live/image.jpg?resolution=1920x1080", false, {1920, 1080}, true, 0},
        {"/live/image.jpg?resolution=640x360&overlays=0", false, {640, 360}, false, 0},
        {"/live/video.mjpg?overlays=1&fps=1", true, {1280, 720}, true, 1},
        {"/live/video.mjpg?fps=60&resolution=640x360", true, {640, 360}, true, 60},
        {"/live/image.jpg?again=1234567", false, {1280, 720}, true, 0},
    };
    for (const auto& [target, video, size, overlays, fps] : cases) {
        const auto answer = parseLiveRequest(std::string("GET ") + target + " HTTP/1.1", kSizes);
        const auto* const request = std::get_if<LiveRequest>(&answer);
        ASSERT_NE(request, nullptr) << target << ": " << std::get<Refusal>(answer).reason;
        EXPECT_EQ(request->video, video) << target;
        EXPECT_EQ(request->size, size) << target;
        EXPECT_EQ(request->overlays, overlays) << target;
        EXPECT_EQ(request->fps, fps) << target;
    }
}

TEST(LiveRequest, TakesTheSmallestSizeWhenAllAreWide) {
    const auto answer = parseLiveRequest("GET /live/image.jpg HTTP/1.1", {{1920, 1080}, {1600, 900}});
    EXPECT_EQ(std::get<LiveRequest>(answer).size, (StreamSize{1600, 900}));
}

TEST(LiveRequest, IsRefusedWithWhatWasExpected) {
    const std::string sizes = "resolution: expected one of 1920x1080, 1280x720, 640x360, got ";
    const std::string fps = "fps: expected a whole number from 1 to 60, got ";
    const struct {
        std::string line;
        int status;
        std::string reason;
    } cases[] = {
        {"GET /live/image.jpg?resolution=641x360 HTTP/1.1", 400, sizes + "\"641x360\""},
        {"GET /live/image.jpg?resolution=0x0", 400, sizes + "\"0x0\""},
        {"GET /live/image.jpg?resolution=-1280x-720", 400, sizes + "\"-1280x-720\""},
        {"GET /live/image.jpg?resolution=99999999999x9", 400, sizes + "\"99999999999x9\""},
        {"GET /live/image.jpg?resolution=", 400, sizes + "\"\""},
        {"GET /live/image.jpg?resolution", 400, sizes + "\"\""},
        {"GET /live/image.jpg?resolution=large", 400, sizes + "\"large\""},
        {"GET /live/image.jpg?resolution=640x360x1", 400, sizes + "\"640x360x1\""},
        {"GET /live/image.jpg?resolution=640x360%20", 400, sizes + "\"640x360%20\""},
        {"GET /live/image.jpg?resolution=" + std::string(50, 'x'), 400, sizes + "\"" + std::string(40, 'x') + "...\""},
        {"GET /live/image.jpg?resolution=\x1b\xff", 400, sizes + "\"??\""},
        {"GET /live/video.mjpg?fps=0", 400, fps + "\"0\""},
        {"GET /live/video.mjpg?fps=10000", 400, fps + "\"10000\""},
        {"GET /live/video.mjpg?fps=61", 400, fps + "\"61\""},
        {"GET /live/video.mjpg?fps=-1", 400, fps + "\"-1\""},
        {"GET /live/video.mjpg?fps=2.5", 400, fps + "\"2.5\""},
        {"GET /live/video.mjpg?fps=fast", 400, fps + "\"fast\""},
        {"GET /live/video.mjpg?fps=", 400, fps + "\"\""},
        {"GET /live/image.jpg?overlays=2", 400, "overlays: expected 0 or 1, got \"2\""},
        {"GET /live/image.jpg?overlays=true", 400, "overlays: expected 0 or 1, got \"true\""},
        {"GET /live/", 404, "expected /live/image.jpg or /live/video.mjpg, got \"/live/\""},
        {"GET /live/image.jpg/x", 404, "expected /live/image.jpg or /live/video.mjpg, got \"/live/image.jpg/x\""},
        {"GET", 404, "expected /live/image.jpg or /live/video.mjpg, got \"\""},
        {"POST /live/image.jpg", 405, "expected GET, got \"POST\""},
        {"", 405, "expected GET, got \"\""},
    };
    for (const auto& [line, status, reason] : cases) {
        const auto answer = parseLiveRequest(line, kSizes);
        const auto* const refusal = std::get_if<Refusal>(&answer);
        ASSERT_NE(refusal, nullptr) << line;
        EXPECT_EQ(refusal->status, status) << line;
        EXPECT_EQ(refusal->reason, reason) << line;
    }
}

}  // namespace
}  // namespace desktop
