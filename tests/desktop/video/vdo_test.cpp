#include <future>
#include <gtest/gtest.h>
#include <set>

#include "clip_maker.h"
#include "desktop/frames/picture.h"
#include "vdo-channel.h"
#include "vdo_handles.h"

namespace video_test {
namespace {

using ChannelHandle = std::unique_ptr<VdoChannel, Unref>;

TEST(VdoMapTest, KeepsTheLastValueOfAName) {
    const MapHandle map(vdo_map_new());
    EXPECT_EQ(vdo_map_get_uint32(map.get(), "width", 7), 7U);
    vdo_map_set_uint32(map.get(), "width", 640);
    vdo_map_set_uint32(map.get(), "width", 1280);
    vdo_map_set_uint32(map.get(), "height", 720);
    EXPECT_EQ(vdo_map_get_uint32(map.get(), "width", 7), 1280U);
    testing::internal::CaptureStdout();
    vdo_map_dump(map.get());
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "height: 720\nwidth: 1280\n");
}

TEST(VdoChannelTest, OffersSizesOfTheSourcesAspectRatio) {
    const ClipFolder folder;
    makeClip(folder.file("old.mkv"), {.width = 320, .height = 240, .frames = 2});
    struct Row {
        std::string source;
        guint32 width;
        guint32 height;
    };
    const Row rows[] = {{"scene:plaza", 1920, 1080}, {folder.file("old.mkv"), 1280, 960}};
    for (const Row& row : rows) {
        const ConfiguredSource source(row.source);
        ErrorSlot error;
        GList* channels = vdo_channel_get_all(error.fresh());
        ASSERT_EQ(g_list_length(channels), 1U) << error.message();
        const std::unique_ptr<VdoResolutionSet, decltype(&g_free)> sizes(
            vdo_channel_get_resolutions(static_cast<VdoChannel*>(channels->data), nullptr, error.fresh()), g_free);
        ASSERT_EQ(sizes->count, 5U) << row.source;
        EXPECT_EQ(sizes->resolutions[0].width, row.width) << row.source;
        EXPECT_EQ(sizes->resolutions[0].height, row.height) << row.source;
        g_list_free_full(channels, g_object_unref);
    }
}

TEST(VdoChannelTest, ThereIsOneChannel) {
    const ConfiguredSource source("scene:plaza");
    ErrorSlot error;
    EXPECT_TRUE(ChannelHandle(vdo_channel_get(1, error.fresh()))) << error.message();
    for (const guint number : {0U, 2U}) {
        EXPECT_FALSE(ChannelHandle(vdo_channel_get(number, error.fresh())));
        EXPECT_EQ(error.code(), VDO_ERROR_NOT_FOUND);
        EXPECT_EQ(error.message(), "expected channel 1, got channel " + std::to_string(number));
    }
}

TEST(VdoChannelTest, ASourceThatIsNotThereIsAnErrorOfTheCall) {
    const ConfiguredSource source("/no/such/clip.mp4");
    ErrorSlot error;
    EXPECT_FALSE(ChannelHandle(vdo_channel_get(1, error.fresh())));
    EXPECT_EQ(error.message(), "/no/such/clip.mp4: no such file");
    EXPECT_EQ(vdo_channel_get_all(error.fresh()), nullptr);
    EXPECT_EQ(error.code(), VDO_ERROR_NOT_FOUND);
    EXPECT_EQ(vdo_channel_get_all(nullptr), nullptr) << "a caller without an error slot";
}

TEST(VdoStreamTest, RefusesSettingsThatAreNotServed) {
    const ConfiguredSource source("scene:plaza");
    struct Row {
        const char* name;
        guint32 value;
        const char* says;
    };
    const Row rows[] = {
        {"channel", 2, "expected channel 1, got channel 2"},
        {"format", VDO_FORMAT_H264, "expected format 3 (YUV, NV12), got format 0"},
        {"width", 416, "the size 416x720 is not offered; offered are 1920x1080, 1280x720, 640x360, 480x270, 320x180"},
        {"height", 0, "the size 1280x0 is not offered"},
        {"rotation", 45, "expected a rotation of 0, 90, 180 or 270 degrees, got 45"},
        {"rotation", 360, "got 360"},
        {"buffer.strategy", VDO_BUFFER_STRATEGY_EXTERNAL,
         "expected buffer strategy 3 (explicit) or 4 (infinite), got 2"},
    };
    for (const Row& row : rows) {
        const MapHandle settings = streamSettings(1280, 720);
        vdo_map_set_uint32(settings.get(), row.name, row.value);
        ErrorSlot error;
        EXPECT_FALSE(StreamHandle(vdo_stream_new(settings.get(), nullptr, error.fresh()))) << row.name;
        EXPECT_EQ(error.code(), VDO_ERROR_INVALID_ARGUMENT) << row.name;
        EXPECT_NE(error.message().find(row.says), std::string::npos) << error.message();
    }
    ErrorSlot error;
    const auto callback = [](VdoStream*, VdoBuffer*, gpointer) {};
    EXPECT_FALSE(StreamHandle(vdo_stream_new(streamSettings(1280, 720).get(), callback, error.fresh())));
    EXPECT_NE(error.message().find("expected no callback"), std::string::npos) << error.message();
}

TEST(VdoStreamTest, TellsTheSettingsInForce) {
    const ConfiguredSource source("scene:plaza");
    const StreamHandle stream = startStream(640, 360, 90);
    ErrorSlot error;
    const MapHandle settings(vdo_stream_get_settings(stream.get(), error.fresh()));
    EXPECT_EQ(vdo_map_get_uint32(settings.get(), "width", 0), 640U);
    EXPECT_EQ(vdo_map_get_uint32(settings.get(), "height", 0), 360U);
    EXPECT_EQ(vdo_map_get_uint32(settings.get(), "rotation", 0), 90U);
    EXPECT_EQ(vdo_map_get_uint32(settings.get(), "framerate", 0), 15U);
    EXPECT_EQ(vdo_map_get_uint32(settings.get(), "format", 0), static_cast<guint32>(VDO_FORMAT_YUV));
}

TEST(VdoStreamTest, FramesNeedAStartedStream) {
    const ConfiguredSource source("scene:plaza");
    ErrorSlot error;
    const StreamHandle stream(vdo_stream_new(streamSettings(320, 180).get(), nullptr, error.fresh()));
    ASSERT_TRUE(stream) << error.message();
    EXPECT_FALSE(vdo_stream_start(stream.get(), error.fresh()));
    EXPECT_EQ(error.message(), "the stream is started before it was attached to");
    ASSERT_TRUE(vdo_stream_attach(stream.get(), nullptr, error.fresh()));
    EXPECT_EQ(vdo_stream_get_buffer(stream.get(), error.fresh()), nullptr);
    EXPECT_EQ(error.message(), "a frame is asked of a stream that is not started");
    ASSERT_TRUE(vdo_stream_start(stream.get(), error.fresh()));
    ASSERT_TRUE(vdo_stream_start(stream.get(), error.fresh())) << "starting a started stream does nothing";
    EXPECT_FALSE(fetchFrame(stream.get(), desktop::nv12Size(320, 180), error).empty()) << error.message();
    vdo_stream_stop(stream.get());
    EXPECT_EQ(vdo_stream_get_buffer(stream.get(), error.fresh()), nullptr);
}

TEST(VdoStreamTest, AKeptFrameIsNotOverwritten) {
    const ClipFolder folder;
    makeClip(folder.file("clip.mkv"), {});
    const ConfiguredSource source(folder.file("clip.mkv"));
    const StreamHandle stream = startStream(640, 360);
    ErrorSlot error;
    std::set<VdoBuffer*> kept;
    for (int frame = 0; frame < 5; ++frame) {
        VdoBuffer* buffer = vdo_stream_get_buffer(stream.get(), error.fresh());
        ASSERT_NE(buffer, nullptr) << error.message();
        EXPECT_EQ(static_cast<uint8_t*>(vdo_buffer_get_data(buffer))[0], lumaOfFrame(frame));
        EXPECT_TRUE(kept.insert(buffer).second) << "a buffer was handed out twice";
    }
    for (VdoBuffer* buffer : kept) {
        EXPECT_TRUE(vdo_stream_buffer_enqueue(stream.get(), buffer, error.fresh())) << error.message();
    }
    EXPECT_TRUE(kept.contains(vdo_stream_get_buffer(stream.get(), error.fresh()))) << "a returned buffer is used again";
}

TEST(VdoStreamTest, GivingBackTwiceIsRefused) {
    const ConfiguredSource source("scene:plaza");
    const StreamHandle stream = startStream(320, 180);
    ErrorSlot error;
    VdoBuffer* buffer = vdo_stream_get_buffer(stream.get(), error.fresh());
    VdoBuffer* again = buffer;
    EXPECT_TRUE(vdo_stream_buffer_unref(stream.get(), &buffer, error.fresh()));
    EXPECT_FALSE(vdo_stream_buffer_unref(stream.get(), &again, error.fresh()));
    EXPECT_EQ(error.code(), VDO_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vdo_stream_buffer_alloc(stream.get(), nullptr, error.fresh()), nullptr);
    EXPECT_EQ(error.message(), "buffers are allocated with the explicit buffer strategy only");
}

TEST(VdoStreamTest, ExplicitBuffersTravelRound) {
    const ClipFolder folder;
    makeClip(folder.file("clip.mkv"), {});
    const ConfiguredSource source(folder.file("clip.mkv"));
    const MapHandle settings = streamSettings(640, 360);
    vdo_map_set_uint32(settings.get(), "buffer.strategy", VDO_BUFFER_STRATEGY_EXPLICIT);
    ErrorSlot error;
    const StreamHandle stream(vdo_stream_new(settings.get(), nullptr, error.fresh()));
    ASSERT_TRUE(stream) << error.message();
    VdoBuffer* first = vdo_stream_buffer_alloc(stream.get(), nullptr, error.fresh());
    VdoBuffer* second = vdo_stream_buffer_alloc(stream.get(), nullptr, error.fresh());
    ASSERT_TRUE(vdo_stream_buffer_enqueue(stream.get(), first, error.fresh())) << error.message();
    ASSERT_TRUE(vdo_stream_buffer_enqueue(stream.get(), second, error.fresh())) << error.message();
    EXPECT_FALSE(vdo_stream_buffer_enqueue(stream.get(), second, error.fresh())) << "queued twice";
    ASSERT_TRUE(vdo_stream_start(stream.get(), error.fresh())) << error.message();

    EXPECT_EQ(vdo_stream_get_buffer(stream.get(), error.fresh()), first);
    EXPECT_EQ(vdo_stream_get_buffer(stream.get(), error.fresh()), second);
    EXPECT_EQ(static_cast<uint8_t*>(vdo_buffer_get_data(first))[0], lumaOfFrame(0));
    EXPECT_EQ(static_cast<uint8_t*>(vdo_buffer_get_data(second))[0], lumaOfFrame(1));

    // With every buffer in the consumer's hands, a fetch waits until one comes back.
    auto third = std::async(std::launch::async, [&] { return vdo_stream_get_buffer(stream.get(), nullptr); });
    EXPECT_TRUE(vdo_stream_buffer_enqueue(stream.get(), first, error.fresh())) << error.message();
    EXPECT_EQ(third.get(), first);
    EXPECT_EQ(static_cast<uint8_t*>(vdo_buffer_get_data(first))[0], lumaOfFrame(2));

    g_object_unref(first);  // the consumer's own references; the stream still has its
    VdoBuffer* lent = second;
    EXPECT_TRUE(vdo_stream_buffer_unref(stream.get(), &lent, error.fresh())) << error.message();
    EXPECT_TRUE(vdo_stream_buffer_unref(stream.get(), &second, error.fresh())) << error.message();
}

TEST(VdoStreamTest, AStreamInRealTimeEndsWhenItIsStopped) {
    const ConfiguredSource source("scene:plaza", desktop::Pacing::RealTime);
    const StreamHandle stream = startStream(320, 180);
    ErrorSlot error;
    EXPECT_FALSE(fetchFrame(stream.get(), desktop::nv12Size(320, 180), error).empty()) << error.message();
    std::atomic<int> fetched = 0;
    auto consumer = std::async(std::launch::async, [&] {
        ErrorSlot slot;
        while (!fetchFrame(stream.get(), desktop::nv12Size(320, 180), slot).empty()) {
            fetched += 1;
            fetched.notify_all();
        }
        return slot.code();
    });
    fetched.wait(0);
    vdo_stream_stop(stream.get());
    EXPECT_EQ(consumer.get(), VDO_ERROR_FAILED);
}

}  // namespace
}  // namespace video_test
