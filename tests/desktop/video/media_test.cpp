#include <cstdlib>
#include <gtest/gtest.h>

#include "clip_maker.h"
#include "desktop/frames/picture.h"
#include "this_build.h"
#include "vdo_handles.h"

namespace video_test {
namespace {

constexpr guint32 kWidth = 640;
constexpr guint32 kHeight = 360;
constexpr std::size_t kBytes = desktop::nv12Size(kWidth, kHeight);
const char* const kH264 = "-c:v libx264 -preset ultrafast -g 10 -movflags +faststart";

int fetchedLuma(VdoStream* stream, ErrorSlot& error) {
    const std::string frame = fetchFrame(stream, kBytes, error);
    return frame.empty() ? -1 : static_cast<unsigned char>(frame[0]);
}

/** Fetches to the end and returns how many frames there were. */
int drain(VdoStream* stream, ErrorSlot& error) {
    int frames = 0;
    while (!fetchFrame(stream, kBytes, error).empty()) {
        ++frames;
    }
    return frames;
}

TEST(RecordingTest, HandsOutTheNewestFrameThatIsDue) {
    const ClipFolder folder;
    makeClip(folder.file("clip.mkv"), {});
    const ConfiguredSource source(folder.file("clip.mkv"));
    const StreamHandle stream = startStream(kWidth, kHeight);
    struct Row {
        const char* label;
        int64_t time;
        int frame;  // the one handed out, -1 at the end
        int64_t next;
    };
    const Row rows[] = {
        {"first", 0, 0, kFrameMicros},
        {"waits for the second", 0, 1, 2 * kFrameMicros},
        {"skips to the newest", 4 * kFrameMicros + 50'000, 4, 5 * kFrameMicros},
        {"never the same again", 4 * kFrameMicros + 50'000, 5, 6 * kFrameMicros},
        {"time does not go back", 0, 6, 7 * kFrameMicros},
        {"due to the microsecond", 7 * kFrameMicros, 7, 8 * kFrameMicros},
        {"the last", 100 * kFrameMicros, 9, -1},
        {"after the end", 101 * kFrameMicros, -1, -1},
    };
    ErrorSlot error;
    for (const Row& row : rows) {
        desktop::setVirtualTime(row.time);
        EXPECT_EQ(fetchedLuma(stream.get(), error), row.frame < 0 ? -1 : lumaOfFrame(row.frame)) << row.label;
        EXPECT_EQ(desktop::nextFrameTime(), row.next) << row.label;
    }
    EXPECT_EQ(error.code(), VDO_ERROR_NO_VIDEO);
    EXPECT_NE(error.message().find("clip.mkv: the recording has ended"), std::string::npos) << error.message();
    EXPECT_EQ(desktop::sourceError(), "");
    EXPECT_EQ(desktop::sourceDuration(), 10 * kFrameMicros);
}

TEST(RecordingTest, EveryStreamGetsTheFrame) {
    const ClipFolder folder;
    makeClip(folder.file("clip.mkv"), {});
    const ConfiguredSource source(folder.file("clip.mkv"));
    const StreamHandle first = startStream(kWidth, kHeight);
    const StreamHandle second = startStream(kWidth, kHeight);
    ErrorSlot error;
    desktop::setVirtualTime(3 * kFrameMicros);
    EXPECT_EQ(fetchedLuma(first.get(), error), lumaOfFrame(3));
    EXPECT_EQ(fetchedLuma(second.get(), error), lumaOfFrame(3));
}

TEST(RecordingTest, RefusesWhatIsNoVideo) {
    const ClipFolder folder;
    writeFile(folder.file("notes.txt"), std::string(4000, 'a'));
    writeFile(folder.file("empty.mp4"), "");
    writeFile(folder.file("noise.mp4"), std::string(4000, '\x5a'));
    makeClip(folder.file("whole.mp4"), {.coder = "-c:v libx264"});  // its index is at the end
    const std::string whole = readFile(folder.file("whole.mp4"));
    writeFile(folder.file("headless.mp4"), whole.substr(0, whole.size() / 2));
    ASSERT_EQ(std::system((std::string(FFMPEG_PROGRAM) + " -nostdin -v error -f lavfi -i sine=d=1 '" +
                           folder.file("sound.wav") + "'")
                              .c_str()),
              0);
    struct Row {
        std::string source;
        int code;
        std::string says;
    };
    const Row rows[] = {
        {folder.file("gone.mp4"), VDO_ERROR_NOT_FOUND, "gone.mp4: no such file"},
        {folder.file(""), VDO_ERROR_NOT_FOUND, "expected a video file, got a folder"},
        {folder.file("notes.txt"), VDO_ERROR_NO_VIDEO, "notes.txt: expected a video, got "},
        {folder.file("empty.mp4"), VDO_ERROR_NO_VIDEO, "empty.mp4: expected a video, got "},
        {folder.file("noise.mp4"), VDO_ERROR_NO_VIDEO, "noise.mp4: expected a video, got "},
        {folder.file("headless.mp4"), VDO_ERROR_NO_VIDEO,
         "headless.mp4: expected a video, got something else or a cut-off"},
        {folder.file("sound.wav"), VDO_ERROR_NO_VIDEO, "sound.wav: expected a video, found no picture stream"},
        {"scene:moon", VDO_ERROR_NOT_FOUND, "scene:moon: no such scene; known: plaza"},
        {"/dev/video99", VDO_ERROR_NO_VIDEO, "/dev/video99: cannot open"},
    };
    for (const Row& row : rows) {
        const ConfiguredSource source(row.source);
        ErrorSlot error;
        const StreamHandle stream(vdo_stream_new(streamSettings(kWidth, kHeight).get(), nullptr, error.fresh()));
        EXPECT_FALSE(stream) << row.source;
        EXPECT_EQ(error.code(), row.code) << row.source;
        EXPECT_NE(error.message().find(row.says), std::string::npos) << error.message();
        EXPECT_EQ(desktop::nextFrameTime(), -1) << row.source;
        EXPECT_EQ(desktop::sourceError(), error.message());
    }
}

TEST(RecordingTest, TellsWhereACutOffClipEnds) {
    const ClipFolder folder;
    makeClip(folder.file("whole.mp4"), {.frames = 60, .coder = kH264, .picture = "testsrc2"});
    const std::string whole = readFile(folder.file("whole.mp4"));
    writeFile(folder.file("cut.mp4"), whole.substr(0, whole.size() / 2));
    const ConfiguredSource source(folder.file("cut.mp4"));
    const StreamHandle stream = startStream(kWidth, kHeight);
    ErrorSlot error;
    const int frames = drain(stream.get(), error);
    EXPECT_GT(frames, 10);
    EXPECT_LT(frames, 50);
    EXPECT_EQ(error.code(), VDO_ERROR_NO_VIDEO);
    EXPECT_EQ(desktop::sourceError(), error.message());
    EXPECT_NE(error.message().find("cut.mp4: "), std::string::npos) << error.message();
    EXPECT_NE(error.message().find("frame "), std::string::npos) << error.message();
    EXPECT_NE(error.message().find(" s"), std::string::npos) << error.message();
}

TEST(RecordingTest, TellsWhereADamagedClipBreaks) {
    const ClipFolder folder;
    makeClip(folder.file("whole.mp4"), {.frames = 60, .coder = kH264, .picture = "testsrc2"});
    std::string bytes = readFile(folder.file("whole.mp4"));
    uint32_t state = 1;
    for (std::size_t index = bytes.size() / 2; index < bytes.size() / 2 + bytes.size() / 8; ++index) {
        state = state * 1664525U + 1013904223U;
        bytes[index] = static_cast<char>(state >> 24U);
    }
    writeFile(folder.file("broken.mp4"), bytes);
    const ConfiguredSource source(folder.file("broken.mp4"));
    const StreamHandle stream = startStream(kWidth, kHeight);
    ErrorSlot error;
    const int frames = drain(stream.get(), error);
    EXPECT_GT(frames, 10);
    EXPECT_LT(frames, 50);
    EXPECT_NE(desktop::sourceError().find("broken.mp4: breaks at frame " + std::to_string(frames + 1)),
              std::string::npos)
        << desktop::sourceError();
    EXPECT_EQ(desktop::nextFrameTime(), -1);
}

TEST(RecordingTest, AWholeClipEndsWithoutAnError) {
    const ClipFolder folder;
    struct Row {
        const char* name;
        const char* coder;
    };
    const Row rows[] = {
        {"clip.mp4", kH264},        {"clip.ts", "-c:v libx264 -preset ultrafast"},
        {"clip.avi", "-c:v mpeg4"}, {"clip.mkv", "-c:v libx264 -bf 2"},
        {"clip.mov", "-c:v mjpeg"},
    };
    for (const Row& row : rows) {
        makeClip(folder.file(row.name), {.frames = 25, .coder = row.coder, .picture = "testsrc2"});
        const ConfiguredSource source(folder.file(row.name));
        const StreamHandle stream = startStream(kWidth, kHeight);
        ErrorSlot error;
        EXPECT_EQ(drain(stream.get(), error), 25) << row.name;
        EXPECT_EQ(desktop::sourceError(), "") << row.name;
    }
}

TEST(RecordingTest, RealFootageReadsToItsEnd) {
    const std::string media = this_build::shared() / "media/";
    struct Row {
        const char* name;
        int frames;
    };
    const Row rows[] = {{"car-detection.mp4", 377}, {"one-by-one-person-detection.mp4", 1394}};
    for (const Row& row : rows) {
        if (!std::filesystem::exists(media + row.name)) {
            GTEST_SKIP() << "no " << media << row.name;
        }
        const ConfiguredSource source(media + row.name);
        const StreamHandle stream = startStream(320, 180);
        ErrorSlot error;
        int frames = 0;
        while (!fetchFrame(stream.get(), desktop::nv12Size(320, 180), error).empty()) {
            ++frames;
        }
        EXPECT_EQ(frames, row.frames) << row.name;
        EXPECT_EQ(desktop::sourceError(), "") << row.name;
    }
}

}  // namespace
}  // namespace video_test
