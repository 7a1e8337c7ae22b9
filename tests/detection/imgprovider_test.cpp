#include "detection/imgprovider.h"

#include <gtest/gtest.h>
#include <thread>

#include "log_capture.h"
#include "scripted_platform.h"

namespace {

class Provider : public testing::Test {
protected:
    Provider() {
        scripted::reset();
        scripted::offerResolutions(1, {{64, 36}, {128, 72}});
    }

    LogCapture m_log;
};

struct Release {
    void operator()(ImgProvider* provider) const { destroyImgProvider(provider); }
};
using ProviderPtr = std::unique_ptr<ImgProvider, Release>;

ProviderPtr makeProvider(unsigned numFrames = 2) {
    return ProviderPtr(createImgProvider(64, 36, numFrames, VDO_FORMAT_YUV));
}

TEST_F(Provider, OpensAStreamWithBuffersOfItsOwn) {
    const ProviderPtr provider = makeProvider(2);
    ASSERT_TRUE(provider);
    const std::map<std::string, uint32_t> expected = {
        {"channel", 1}, {"format", 3}, {"width", 64}, {"height", 36}, {"buffer.strategy", 3}};
    EXPECT_EQ(scripted::lastStreamSettings(), expected);
    EXPECT_EQ(LogCapture::countContaining("info: createStream: Dump of vdo stream settings map ====="), 1);
    EXPECT_EQ(scripted::calls("vdo_stream_buffer_alloc"), 5) << "two kept, two with the consumer, one being filled";
    EXPECT_EQ(scripted::calls("vdo_stream_buffer_enqueue"), 5);
    EXPECT_EQ(scripted::calls("vdo_stream_start"), 1);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Provider, LeavesNothingBehind) {
    {
        const ProviderPtr provider = makeProvider();
        ASSERT_TRUE(startFrameFetch(provider.get()));
        returnFrame(provider.get(), getLastFrameBlocking(provider.get()));
    }
    EXPECT_EQ(scripted::liveStreams(), 0);
    EXPECT_EQ(scripted::framesOut(), 0);
    EXPECT_EQ(scripted::calls("vdo_stream_buffer_unref"), 5);
    destroyImgProvider(nullptr);
}

struct CreationFault {
    const char* call;
    std::vector<std::string> lines;
};

class ProviderCreation : public Provider, public testing::WithParamInterface<CreationFault> {};

TEST_P(ProviderCreation, UndoesWhatWasBuilt) {
    scripted::failAt(GetParam().call, 1, {VDO_ERROR_FAILED, "out of order"});
    EXPECT_FALSE(makeProvider());
    std::vector<std::string> lines = GetParam().lines;
    lines.emplace_back("createImgProvider: Could not create VDO stream!");
    EXPECT_EQ(LogCapture::ofLevel("error"), lines);
    EXPECT_EQ(scripted::liveStreams(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, ProviderCreation,
    testing::Values(CreationFault{"vdo_map_new", {"createStream: Failed to create vdo_map"}},
                    CreationFault{"vdo_stream_new", {"createStream: Failed creating vdo stream: out of order"}},
                    CreationFault{"vdo_stream_buffer_alloc",
                                  {"allocateVdoBuffers: Failed creating VDO buffer: out of order",
                                   "createStream: Failed setting up VDO buffers!"}},
                    CreationFault{"vdo_buffer_get_data",
                                  {"allocateVdoBuffers: Failed initializing buffer memmap: N/A",
                                   "createStream: Failed setting up VDO buffers!"}},
                    CreationFault{"vdo_stream_buffer_enqueue",
                                  {"allocateVdoBuffers: Failed enqueue VDO buffer: out of order",
                                   "createStream: Failed setting up VDO buffers!"}},
                    CreationFault{"vdo_stream_start", {"createStream: Failed starting VDO stream: out of order"}}),
    [](const auto& each) { return std::string(each.param.call); });

TEST_F(Provider, HandsOutTheNewestFrame) {
    // Each frame carries its number; the stream halts at the fourth until the consumer has looked.
    std::atomic<int> number = 0;
    std::atomic<bool> isHalted = false;
    std::atomic<bool> goOn = false;
    scripted::drawFrames([&](uint8_t* nv12, uint32_t, uint32_t) {
        if (number == 3) {
            isHalted = true;
            isHalted.notify_all();
            goOn.wait(false);
        }
        nv12[0] = static_cast<uint8_t>(++number);
    });
    const ProviderPtr provider = makeProvider(3);
    ASSERT_TRUE(startFrameFetch(provider.get()));
    isHalted.wait(false);
    std::vector<int> seen;
    for (int i = 0; i < 3; ++i) {
        VdoBuffer* const frame = getLastFrameBlocking(provider.get());
        seen.push_back(*static_cast<uint8_t*>(vdo_buffer_get_data(frame)));
        returnFrame(provider.get(), frame);
    }
    EXPECT_EQ(seen, (std::vector<int>{3, 2, 1})) << "what is newest of those that were not taken yet";
    goOn = true;
    goOn.notify_all();
    EXPECT_TRUE(stopFrameFetch(provider.get()));
}

TEST_F(Provider, KeepsNoMoreThanItShould) {
    // Without a consumer the oldest of the frames beyond the limit goes back each time, for as long as one likes.
    std::atomic<int> drawn = 0;
    scripted::drawFrames([&](uint8_t*, uint32_t, uint32_t) {
        ++drawn;
        drawn.notify_all();
    });
    const ProviderPtr provider = makeProvider(2);
    ASSERT_TRUE(startFrameFetch(provider.get()));
    for (int seen = drawn; seen < 1000; seen = drawn) {
        drawn.wait(seen);
    }
    EXPECT_TRUE(stopFrameFetch(provider.get()));
    EXPECT_EQ(scripted::framesOut(), 2);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty()) << "a buffer was always there to be filled";
}

TEST_F(Provider, ServesAConsumerThatHoldsTwoFrames) {
    const ProviderPtr provider = makeProvider(1);
    ASSERT_TRUE(startFrameFetch(provider.get()));
    VdoBuffer* held = getLastFrameBlocking(provider.get());
    for (int i = 0; i < 1000; ++i) {
        VdoBuffer* const next = getLastFrameBlocking(provider.get());
        ASSERT_NE(next, held);
        returnFrame(provider.get(), held);
        held = next;
    }
    returnFrame(provider.get(), held);
    EXPECT_TRUE(stopFrameFetch(provider.get()));
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Provider, GoesOnAfterAFrameThatFails) {
    scripted::failAt("vdo_stream_get_buffer", 1, {VDO_ERROR_NO_VIDEO, "no picture"});
    const ProviderPtr provider = makeProvider();
    ASSERT_TRUE(startFrameFetch(provider.get()));
    EXPECT_NE(getLastFrameBlocking(provider.get()), nullptr);
    EXPECT_TRUE(stopFrameFetch(provider.get()));
    EXPECT_EQ(LogCapture::ofLevel("error"),
              std::vector<std::string>{"threadEntry: Failed fetching frame from vdo: no picture"});
}

TEST_F(Provider, ReportsAFrameThatDoesNotGoBack) {
    const ProviderPtr provider = makeProvider(1);
    scripted::failAt("vdo_stream_buffer_enqueue", 1, {VDO_ERROR_FAILED, "out of order"});
    ASSERT_TRUE(startFrameFetch(provider.get()));
    while (scripted::calls("vdo_stream_buffer_enqueue") < 6) {
        returnFrame(provider.get(), getLastFrameBlocking(provider.get()));
    }
    EXPECT_TRUE(stopFrameFetch(provider.get()));
    EXPECT_EQ(LogCapture::countContaining("error: threadEntry: Failed enqueueing buffer to vdo: out of order"), 1);
}

TEST_F(Provider, StartsAndStopsAgain) {
    const ProviderPtr provider = makeProvider();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(startFrameFetch(provider.get()));
        returnFrame(provider.get(), getLastFrameBlocking(provider.get()));
        EXPECT_TRUE(stopFrameFetch(provider.get()));
    }
    EXPECT_FALSE(stopFrameFetch(provider.get()));
    EXPECT_EQ(
        LogCapture::ofLevel("error"),
        std::vector<std::string>{"stopFrameFetch: Failed to join thread fetching frames from vdo: it does not run"});
}

TEST_F(Provider, StartsOnlyOnce) {
    const ProviderPtr provider = makeProvider(0);
    ASSERT_TRUE(startFrameFetch(provider.get()));
    EXPECT_FALSE(startFrameFetch(provider.get()));
    EXPECT_EQ(
        LogCapture::ofLevel("error"),
        std::vector<std::string>{"startFrameFetch: Failed to start thread fetching frames from vdo: it runs already"});
    EXPECT_NE(getLastFrameBlocking(provider.get()), nullptr) << "one frame at least is kept";
    EXPECT_TRUE(stopFrameFetch(provider.get()));
}

TEST_F(Provider, TellsAWaitingConsumerThatNothingComes) {
    scripted::failFrom("vdo_stream_get_buffer", 1, {VDO_ERROR_NO_VIDEO, "no picture"});
    const ProviderPtr provider = makeProvider();
    ASSERT_TRUE(startFrameFetch(provider.get()));
    std::thread consumer([&] { EXPECT_EQ(getLastFrameBlocking(provider.get()), nullptr); });
    EXPECT_TRUE(stopFrameFetch(provider.get()));
    consumer.join();
    EXPECT_EQ(LogCapture::countContaining("error: getLastFrameBlocking: Failed to wait on condition: "), 1);
}

struct ChoiceCase {
    std::vector<scripted::Size> offered;
    scripted::Size asked;
    scripted::Size chosen;
    const char* line;
};

class ProviderChoice : public Provider, public testing::WithParamInterface<ChoiceCase> {};

TEST_P(ProviderChoice, IsTheSmallestThatIsLargeEnough) {
    scripted::offerResolutions(1, GetParam().offered);
    unsigned width = 0;
    unsigned height = 0;
    EXPECT_TRUE(chooseStreamResolution(GetParam().asked.width, GetParam().asked.height, &width, &height));
    EXPECT_EQ(width, GetParam().chosen.width);
    EXPECT_EQ(height, GetParam().chosen.height);
    EXPECT_EQ(LogCapture::ofLevel("info"),
              std::vector<std::string>{"chooseStreamResolution: " + std::string(GetParam().line)});
}

INSTANTIATE_TEST_SUITE_P(
    Table, ProviderChoice,
    testing::Values(
        ChoiceCase{{{1920, 1080}, {1280, 720}, {640, 360}},
                   {960, 540},
                   {1280, 720},
                   "We select stream w/h=1280 x 720 based on VDO channel info."},
        ChoiceCase{{{1280, 960}, {1000, 1000}, {640, 360}},  // a square is as good as any
                   {960, 540},
                   {1000, 1000},
                   "We select stream w/h=1000 x 1000 based on VDO channel info."},
        ChoiceCase{{{1200, 600}, {600, 1200}, {1000, 720}},  // of equal areas the first
                   {600, 600},
                   {1200, 600},
                   "We select stream w/h=1200 x 600 based on VDO channel info."},
        ChoiceCase{{{640, 360}, {2000, 500}},
                   {960, 540},
                   {960, 540},
                   "VDO channel info contains no reslution info. Fallback to client-requested stream resolution."},
        ChoiceCase{{},
                   {960, 540},
                   {960, 540},
                   "VDO channel info contains no reslution info. Fallback to client-requested stream resolution."}));

TEST_F(Provider, ChoosesNothingWhenTheChannelCannotBeAsked) {
    unsigned width = 7;
    unsigned height = 8;
    scripted::failAt("vdo_channel_get", 1, {VDO_ERROR_NOT_FOUND, "no such channel"});
    EXPECT_FALSE(chooseStreamResolution(960, 540, &width, &height));
    scripted::failAt("vdo_channel_get_resolutions", 1, {VDO_ERROR_FAILED, ""});
    EXPECT_FALSE(chooseStreamResolution(960, 540, &width, &height));
    EXPECT_EQ(width, 7U);
    EXPECT_EQ(height, 8U);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (std::vector<std::string>{"chooseStreamResolution: Failed vdo_channel_get(): no such channel",
                                        "chooseStreamResolution: Failed vdo_channel_get_resolutions(): N/A"}));
}

}  // namespace
