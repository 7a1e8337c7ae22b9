#include <optional>
#include <sys/stat.h>

#include "detector_fixture.h"

namespace {

using Lines = std::vector<std::string>;

/** A detector made anew by each test, so that a test can see it go. */
class Inference : public testing::Test {
protected:
    Inference() {
        scripted::reset();
        scripted::offerResolutions(1, {{320, 180}});
        std::ofstream(modelPath()) << "model";
    }

    std::string modelPath() const { return m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/model"; }

    bool init(bool portrait = false, int iterationTime = 100) {
        return m_detector->init_larod("ostrel_senvo", "model", 320, 180, iterationTime, portrait);
    }

    LogCapture m_log;
    ConfigParams m_config = everyClass();
    std::optional<location_controller_larod> m_detector{m_config};
};

// --- Start -----------------------------------------------------------------------------------------------------------

TEST_F(Inference, AStartTellsItsSteps) {
    EXPECT_TRUE(init());
    Lines lines = LogCapture::lines();
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_EQ(lines[6].rfind("info: init_larod: Finished with input tensor setup ", 0), 0U) << lines[6];
    lines.erase(lines.begin() + 6);
    EXPECT_EQ(
        lines,
        (Lines{
            "info: test_if_video_stream_exists: Succeed vdo_stream_new for320x180, 0. ",
            "info: init_video_stream: Video stream exists.",
            "info: init_video_stream: Starting stream: VDO_FORMAT_YUV, 320x180, rotation 0, 25 fps",
            "info: init_larod: model, Model 320x180, Stream 320x180",
            "info: init_larod: Setting up larod connection with chip google-edge-tpu-tflite and model " + modelPath(),
            "info: larod_setup: Model loaded successfully", "info: init_larod: Start fetching video frames from VDO"}));
    EXPECT_EQ(scripted::lastStreamSettings(),
              (std::map<std::string, uint32_t>{
                  {"channel", 1}, {"format", 3}, {"width", 320}, {"height", 180}, {"rotation", 0}}));
    EXPECT_EQ(m_detector->getAnalysisResolution(), "320x180");
    EXPECT_EQ(m_detector->get_iteration_time(), 100);
}

TEST_F(Inference, PortraitTurnsStreamAndModel) {
    EXPECT_TRUE(init(true));
    EXPECT_EQ(scripted::lastStreamSettings(),
              (std::map<std::string, uint32_t>{
                  {"channel", 1}, {"format", 3}, {"width", 320}, {"height", 180}, {"rotation", 90}}));
    EXPECT_EQ(m_detector->get_stream_width(), 180U);
    EXPECT_EQ(m_detector->get_stream_height(), 320U);
    EXPECT_EQ(m_detector->getAnalysisResolution(), "320x180");
    EXPECT_TRUE(m_detector->is_portrait());
    EXPECT_EQ(LogCapture::count("info: init_larod: model, Model 180x320, Stream 180x320"), 1);
}

TEST_F(Inference, ASizeThatIsNotOfferedIsReplacedByOneThatIs) {
    scripted::offerResolutions(1, {{1280, 720}});
    EXPECT_TRUE(init());
    EXPECT_EQ(m_detector->get_stream_width(), 1280U);
    EXPECT_EQ(m_detector->get_stream_height(), 720U);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"test_if_video_stream_exists: Failed vdo_stream_new for i_ChosenLandscapeStreamWidth, "
                     "i_ChosenLandscapeStreamHeight, i_Rotation. 320x180, 0. size not offered",
                     "init_video_stream: Video stream does not exist. Going to choose resolution."}));
    size_t inputSize = 0;
    scripted::onJob([&](const std::vector<uint8_t>& input) {
        inputSize = input.size();
        return std::vector<scripted::Candidate>();
    });
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(inputSize, 3U * 320 * 180);
}

TEST_F(Inference, WithoutAnySizeTheStartFails) {
    scripted::offerResolutions(1, {{100, 100}});
    EXPECT_FALSE(init());
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 5U);
    EXPECT_EQ(errors[2], "choose_resolution: Failed to find a suitable stream for model WxH=320x180");
    EXPECT_EQ(errors[3], "init_video_stream: Failed choosing stream resolution");
    EXPECT_EQ(errors[4], "init_larod: Failed to initialize video stream.");
}

TEST_F(Inference, TheIterationTimeHasADefault) {
    EXPECT_TRUE(init(false, 0));
    EXPECT_EQ(m_detector->get_iteration_time(), 150);
}

TEST_F(Inference, ASecondStartDropsTheStreamOfTheFirst) {
    EXPECT_TRUE(init());
    EXPECT_TRUE(init());
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"init_video_stream: m_VDOStream is not NULL. Clearing m_VDOStream."}));
    EXPECT_EQ(scripted::liveStreams(), 1);
    EXPECT_EQ(scripted::calls("larodDisconnect"), 1);
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
}

TEST_F(Inference, AMissingModelFileIsNamed) {
    std::filesystem::remove(modelPath());
    EXPECT_FALSE(init());
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"init_larod: Unable to open model file: " + modelPath()}));
}

TEST_F(Inference, AMissingFolderForTensorFilesIsNamed) {
    std::filesystem::remove_all(m_log.folder() / "tmp");
    EXPECT_FALSE(init());
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 2U);
    const std::string prefix =
        "MemoryMappedFile: Failed to create temporary file: " + (m_log.folder() / "tmp/larod.in.test-").string();
    EXPECT_EQ(errors[0].rfind(prefix, 0), 0U) << errors[0];
    EXPECT_TRUE(errors[0].ends_with(" : No such file or directory")) << errors[0];
    EXPECT_EQ(errors[1], "init_larod: Failed to create temporary file");
}

TEST_F(Inference, NoTensorFileStaysInTheFolder) {
    EXPECT_TRUE(init());
    EXPECT_TRUE(std::filesystem::is_empty(m_log.folder() / "tmp"));
}

struct StartFault {
    const char* label;
    const char* call;
    int invocation;
    const char* message;
    Lines errors;
};

class FailingStart : public Inference, public testing::WithParamInterface<StartFault> {};

TEST_P(FailingStart, IsLogged) {
    const StartFault& given = GetParam();
    scripted::failAt(given.call, given.invocation, {LAROD_ERROR_JOB, given.message});
    EXPECT_FALSE(init()) << given.label;
    EXPECT_EQ(LogCapture::ofLevel("error"), given.errors) << given.label;
    EXPECT_TRUE(init()) << given.label << ": starting over helps";
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0) << given.label;
}

Lines stream(const char* what) {
    return {std::string("init_video_stream: Failed ") + what, "init_larod: Failed to initialize video stream."};
}

Lines setup(const char* what) {
    return {std::string("larod_setup: ") + what, "init_larod: Failed to set up larod"};
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailingStart,
    testing::Values(
        StartFault{"stream", "vdo_stream_new", 2, "busy", stream("vdo_stream_new for m_VDOStream. busy")},
        StartFault{"stream, no words", "vdo_stream_new", 2, "", stream("vdo_stream_new for m_VDOStream. N/A")},
        StartFault{"attaching", "vdo_stream_attach", 1, "busy", stream("vdo_stream_attach for m_VDOStream.busy")},
        StartFault{"settings", "vdo_stream_get_settings", 1, "busy",
                   stream("vdo_stream_get_settings for m_VDOStream.busy")},
        StartFault{"starting", "vdo_stream_start", 1, "busy", stream("vdo_stream_start for m_VDOStream.busy")},
        StartFault{"connection", "larodConnect", 1, "gone", setup("Could not connect to larod: gone")},
        StartFault{"connection, no words", "larodConnect", 1, "", setup("Could not connect to larod: N/A")},
        StartFault{"device", "larodGetDevice", 1, "gone", setup("Unable to larodGetDevice: gone")},
        StartFault{"model", "larodLoadModel", 1, "bad", setup("Unable to load model: bad")},
        StartFault{"inputs", "larodCreateModelInputs", 1, "bad", {"init_larod: Failed retrieving input tensors: bad"}},
        StartFault{"input file", "larodSetTensorFd", 1, "bad", {"init_larod: Failed setting input tensor fd: bad"}},
        StartFault{
            "outputs", "larodCreateModelOutputs", 1, "bad", {"init_larod: Failed retrieving output tensors: bad"}},
        StartFault{
            "output 0", "larodSetTensorFd", 2, "bad", {"init_larod: Failed setting locations (0) tensor fd: bad"}},
        StartFault{"output 1", "larodSetTensorFd", 3, "bad", {"init_larod: Failed setting classes (1) tensor fd: bad"}},
        StartFault{"output 2", "larodSetTensorFd", 4, "bad", {"init_larod: Failed setting scores (2) tensor fd: bad"}},
        StartFault{"output 3",
                   "larodSetTensorFd",
                   5,
                   "bad",
                   {"init_larod: Failed setting Num of Detections (3) tensor fd: bad"}},
        StartFault{"job", "larodCreateJobRequest", 1, "bad", {"init_larod: Failed creating inference request: bad"}}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Inference, AModelWithOtherTensorsIsRefused) {
    scripted::setTensorCounts(2, 4);
    EXPECT_FALSE(init());
    scripted::setTensorCounts(1, 3);
    EXPECT_FALSE(init());
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"init_larod: Model has 2 inputs, app only supports 1 input tensor.",
                                                   "init_video_stream: m_VDOStream is not NULL. Clearing m_VDOStream.",
                                                   "init_larod: Model has 3 outputs, need 4 output tensors."}));
}

// --- Cycles ----------------------------------------------------------------------------------------------------------

TEST_F(Inference, ACycleGivesItsFrameBack) {
    EXPECT_TRUE(init());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    }
    EXPECT_EQ(scripted::calls("vdo_stream_get_buffer"), 3);
    EXPECT_EQ(scripted::framesOut(), 0);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Inference, ACyclesOutputReplacesTheOneBefore) {
    EXPECT_TRUE(init());
    scripted::find({{.classId = 0, .score = 0.9F, .ymin = 0.25F, .xmin = 0.25F, .ymax = 0.75F, .xmax = 0.75F}});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(m_detector->get_detections().size(), 1U);
    scripted::find({});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(m_detector->get_detections().size(), 0U) << "every output is written from its start";
}

TEST_F(Inference, NoFrameEndsTheCycle) {
    EXPECT_TRUE(init());
    scripted::failAt("vdo_stream_get_buffer", 1, {VDO_ERROR_NO_VIDEO, "no signal"});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), -1);
    scripted::failAt("vdo_stream_get_buffer", 1, {});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), -1);
    scripted::throwNext("vdo_stream_get_buffer", "torn apart");
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), -1);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"larod_prepare_data_and_do_ai: Failed vdo_stream_get_buffer(): no signal",
                     "larod_prepare_data_and_do_ai: Failed vdo_stream_get_buffer(): N/A",
                     "larod_prepare_data_and_do_ai: vdo_stream_get_buffer exception  torn apart"}));
    EXPECT_EQ(scripted::calls("larodRunJob"), 0);
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
}

TEST_F(Inference, AFailedConversionStillRunsTheModelOnTheInputOfBefore) {
    EXPECT_TRUE(init());
    std::vector<std::vector<uint8_t>> inputs;
    scripted::onJob([&](const std::vector<uint8_t>& input) {
        inputs.push_back(input);
        return std::vector<scripted::Candidate>();
    });
    scripted::drawFrames(
        [](uint8_t* nv12, uint32_t width, uint32_t height) { std::fill_n(nv12, width * height, uint8_t{200}); });
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    scripted::drawFrames(nullptr);
    scripted::failAt("vdo_buffer_get_data", 1, {});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"larod_prepare_data_and_do_ai: Failed img scale/convert in convertCropScaleU8yuvToRGB() (continue "
                     "anyway)"}));
    ASSERT_EQ(inputs.size(), 3U);
    EXPECT_EQ(inputs[1], inputs[0]);
    EXPECT_NE(inputs[2], inputs[0]);
}

TEST_F(Inference, AFailedJobKeepsItsFrame) {
    EXPECT_TRUE(init());
    scripted::failAt("larodRunJob", 1, {LAROD_ERROR_JOB, "too hot"});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 1);
    EXPECT_EQ(scripted::framesOut(), 1);
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(scripted::framesOut(), 1);
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"larod_prepare_data_and_do_ai: Unable to run inference on model " +
                                                   modelPath() + ": too hot Error Code -1"}));
}

TEST_F(Inference, AFrameThatCannotBeGivenBackLeavesTheOutputUnfiltered) {
    EXPECT_TRUE(init());
    const scripted::Candidate person = {
        .classId = 0, .score = 0.9F, .ymin = 0.25F, .xmin = 0.25F, .ymax = 0.75F, .xmax = 0.75F};
    scripted::find({person, person});
    scripted::failAt("vdo_stream_buffer_unref", 1, {VDO_ERROR_IO, "stuck"});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 1);
    EXPECT_EQ(m_detector->get_detections().size(), 2U);
    scripted::failAt("vdo_stream_buffer_unref", 1, {});
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 1);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"larod_prepare_data_and_do_ai: Failed to release VDO stream buffer: stuck",
                     "larod_prepare_data_and_do_ai: Failed to release VDO stream buffer: N/A"}));
    EXPECT_EQ(m_detector->larod_prepare_data_and_do_ai(), 0);
    EXPECT_EQ(m_detector->get_detections().size(), 1U);
}

// --- End -------------------------------------------------------------------------------------------------------------

TEST_F(Inference, AnEndReleasesEverything) {
    EXPECT_TRUE(init());
    m_detector.reset();
    EXPECT_EQ(scripted::liveStreams(), 0);
    EXPECT_EQ(scripted::calls("larodDestroyJobRequest"), 1);
    EXPECT_EQ(scripted::calls("larodDestroyTensors"), 2);
    EXPECT_EQ(scripted::calls("larodDeleteModel"), 1);
    EXPECT_EQ(scripted::calls("larodDestroyModel"), 1);
    EXPECT_EQ(scripted::calls("larodDisconnect"), 1);
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Inference, AnEndTellsWhatItCouldNotRelease) {
    EXPECT_TRUE(init());
    scripted::failAt("larodDeleteModel", 1, {LAROD_ERROR_DELETE_MODEL, "in use"});
    scripted::failAt("larodDisconnect", 1, {LAROD_ERROR_CONNECTION, "gone"});
    m_detector.reset();
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"~location_controller_larod: Failed to delete larod model: in use",
                     "~location_controller_larod: Failed to disconnect from larod: gone"}));
    EXPECT_EQ(scripted::calls("larodDestroyModel"), 1);
}

TEST_F(Inference, ADetectorThatWasNeverStartedEndsWithoutACall) {
    m_detector.reset();
    EXPECT_EQ(scripted::calls("larodDisconnect"), 0);
}

}  // namespace
