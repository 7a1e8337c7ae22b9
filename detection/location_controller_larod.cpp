#include "detection/location_controller_larod.h"

#include <exception>
#include <fcntl.h>

#include <vdo-map.h>

#include "base/camera_paths.h"
#include "base/platform_error.h"
#include "detection/imgconverter.h"
#include "log/Logger.h"

namespace {

constexpr guint32 kAnalysisChannel = 1;

struct UnrefMap {
    void operator()(VdoMap* map) const { g_object_unref(map); }
};
using MapHandle = std::unique_ptr<VdoMap, UnrefMap>;

MapHandle streamSettings(int width, int height, int rotation) {
    MapHandle settings(vdo_map_new());
    vdo_map_set_uint32(settings.get(), "channel", kAnalysisChannel);
    vdo_map_set_uint32(settings.get(), "format", VDO_FORMAT_YUV);
    vdo_map_set_uint32(settings.get(), "width", static_cast<guint32>(width));
    vdo_map_set_uint32(settings.get(), "height", static_cast<guint32>(height));
    vdo_map_set_uint32(settings.get(), "rotation", static_cast<guint32>(rotation));
    return settings;
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

bool fail(const std::string& message) {
    applicationLog().error(message);
    return false;
}

}  // namespace

location_controller_larod::location_controller_larod(const ConfigParams& config) : m_config(config) {}

location_controller_larod::~location_controller_larod() {
    m_VDOStream.reset();
    releaseModel("~location_controller_larod: ");
}

void location_controller_larod::releaseModel(const std::string& function) {
    if (m_LarodConn == nullptr) {
        return;
    }
    m_LarodJobRequest.reset();
    if (m_LarodInputTensors != nullptr) {
        larodDestroyTensors(m_LarodConn, &m_LarodInputTensors, m_LarodNumInputs, m_LarodError.slot());
    }
    if (m_LarodOutputTensors != nullptr) {
        larodDestroyTensors(m_LarodConn, &m_LarodOutputTensors, m_LarodNumOutputs, m_LarodError.slot());
    }
    if (m_LarodModel != nullptr) {
        if (!larodDeleteModel(m_LarodConn, m_LarodModel, m_LarodError.slot())) {
            applicationLog().error(function + "Failed to delete larod model: " + m_LarodError.message());
        }
        larodDestroyModel(&m_LarodModel);
    }
    if (!larodDisconnect(&m_LarodConn, m_LarodError.slot())) {
        applicationLog().error(function + "Failed to disconnect from larod: " + m_LarodError.message());
    }
    m_LarodInputTensors = nullptr;
    m_LarodOutputTensors = nullptr;
    m_LarodNumInputs = 0;
    m_LarodNumOutputs = 0;
    m_LarodConn = nullptr;
}

bool location_controller_larod::init_larod(const std::string& appName, const std::string& modelFileName, int modelWidth,
                                           int modelHeight, int iterationTime, bool isPortrait) {
    m_IsPortrait = isPortrait;
    m_LarodChipType = "google-edge-tpu-tflite";
    m_IterationTime = iterationTime > 0 ? iterationTime : kDefaultIterationTime;
    releaseModel("init_larod: ");
    m_LarodModelFd.reset();

    const int rotation = m_IsPortrait ? 90 : 0;
    m_ModelWidth = m_IsPortrait ? modelHeight : modelWidth;
    m_ModelHeight = m_IsPortrait ? modelWidth : modelHeight;
    // The landscape size in either case: the video service does the turning.
    if (!init_video_stream(modelWidth, modelHeight, rotation)) {
        return fail("init_larod: Failed to initialize video stream.");
    }
    m_app_name = appName;
    m_ModelFileName = modelFileName;
    set_paths();
    applicationLog().info("init_larod: " + m_ModelFileName + ", Model " + sizeText(m_ModelWidth, m_ModelHeight) +
                          ", Stream " + std::to_string(m_StreamWidth) + "x" + std::to_string(m_StreamHeight));

    m_LarodModelFd.reset(open(m_ModelPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (!m_LarodModelFd) {
        return fail("init_larod: Unable to open model file: " + m_ModelPath);
    }
    applicationLog().info(std::string("init_larod: Setting up larod connection with chip ") + m_LarodChipType +
                          " and model " + m_ModelPath);
    if (!larod_setup()) {
        return fail("init_larod: Failed to set up larod");
    }
    if (!createTensorFiles() || !createInputTensors() || !createOutputTensors()) {
        return false;
    }
    m_LarodJobRequest.reset(larodCreateJobRequest(m_LarodModel, m_LarodInputTensors, m_LarodNumInputs,
                                                  m_LarodOutputTensors, m_LarodNumOutputs, nullptr,
                                                  m_LarodError.slot()));
    if (!m_LarodJobRequest) {
        return fail("init_larod: Failed creating inference request: " + m_LarodError.message());
    }
    applicationLog().info("init_larod: Start fetching video frames from VDO");
    const auto floatsOf = [](const MemoryMappedFile& file) { return reinterpret_cast<float*>(file.getBuffer()); };
    m_OutputLocations = floatsOf(*m_LarodOutputLocationsFile);
    m_OutputClasses = floatsOf(*m_LarodOutputClassesFile);
    m_OutputScores = floatsOf(*m_LarodOutputScoresFile);
    return true;
}

void location_controller_larod::set_paths() {
    m_ModelPath = cameraPath("/mnt/flash/usr/local/packages/" + m_app_name + "/" + m_ModelFileName);
}

bool location_controller_larod::larod_setup() {
    if (!larodConnect(&m_LarodConn, m_LarodError.slot())) {
        return fail("larod_setup: Could not connect to larod: " + m_LarodError.message());
    }
    const larodDevice* const device = larodGetDevice(m_LarodConn, m_LarodChipType, 0, m_LarodError.slot());
    if (device == nullptr) {
        return fail("larod_setup: Unable to larodGetDevice: " + m_LarodError.message());
    }
    m_LarodModel = larodLoadModel(m_LarodConn, m_LarodModelFd.get(), device, LAROD_ACCESS_PRIVATE,
                                  m_ModelFileName.c_str(), nullptr, m_LarodError.slot());
    if (m_LarodModel == nullptr) {
        applicationLog().error("larod_setup: Unable to load model: " + m_LarodError.message());
        larodDisconnect(&m_LarodConn, m_LarodError.slot());
        m_LarodConn = nullptr;
        return false;
    }
    applicationLog().info("larod_setup: Model loaded successfully");
    return true;
}

bool location_controller_larod::createTensorFiles() {
    // The output sizes are element counts used as byte counts. It works because the mapping covers whole memory pages
    // and the service writes through the descriptor.
    const auto make = [](const char* nameTemplate, int size) {
        return std::make_unique<MemoryMappedFile>(cameraPath(nameTemplate), size);
    };
    try {
        m_LarodInputFile = make("/tmp/larod.in.test-XXXXXX", 3 * m_ModelWidth * m_ModelHeight);
        m_LarodOutputLocationsFile = make("/tmp/larod.out0.test-XXXXXX", m_NumberofResults * 4);
        m_LarodOutputClassesFile = make("/tmp/larod.out1.test-XXXXXX", m_NumberofResults);
        m_LarodOutputScoresFile = make("/tmp/larod.out2.test-XXXXXX", m_NumberofResults);
        m_LarodOutputNumDetectionsFile = make("/tmp/larod.out3.test-XXXXXX", 1);
    } catch (const char* reason) {
        return fail(std::string("init_larod: ") + reason);
    }
    return true;
}

bool location_controller_larod::createInputTensors() {
    m_LarodInputTensors = larodCreateModelInputs(m_LarodModel, &m_LarodNumInputs, m_LarodError.slot());
    if (m_LarodInputTensors == nullptr) {
        return fail("init_larod: Failed retrieving input tensors: " + m_LarodError.message());
    }
    if (m_LarodNumInputs != 1) {
        return fail("init_larod: Model has " + std::to_string(m_LarodNumInputs) +
                    " inputs, app only supports 1 input tensor.");
    }
    const int descriptor = m_LarodInputFile->getFileDescriptor();
    applicationLog().info("init_larod: Finished with input tensor setup " + std::to_string(descriptor));
    if (!larodSetTensorFd(m_LarodInputTensors[0], descriptor, m_LarodError.slot())) {
        return fail("init_larod: Failed setting input tensor fd: " + m_LarodError.message());
    }
    return true;
}

bool location_controller_larod::createOutputTensors() {
    m_LarodOutputTensors = larodCreateModelOutputs(m_LarodModel, &m_LarodNumOutputs, m_LarodError.slot());
    if (m_LarodOutputTensors == nullptr) {
        return fail("init_larod: Failed retrieving output tensors: " + m_LarodError.message());
    }
    struct Output {
        const MemoryMappedFile& file;
        const char* name;
    };
    const Output outputs[] = {{*m_LarodOutputLocationsFile, "locations (0)"},
                              {*m_LarodOutputClassesFile, "classes (1)"},
                              {*m_LarodOutputScoresFile, "scores (2)"},
                              {*m_LarodOutputNumDetectionsFile, "Num of Detections (3)"}};
    if (m_LarodNumOutputs != std::size(outputs)) {
        return fail("init_larod: Model has " + std::to_string(m_LarodNumOutputs) + " outputs, need 4 output tensors.");
    }
    for (size_t i = 0; i < std::size(outputs); ++i) {
        if (!larodSetTensorFd(m_LarodOutputTensors[i], outputs[i].file.getFileDescriptor(), m_LarodError.slot())) {
            return fail(std::string("init_larod: Failed setting ") + outputs[i].name +
                        " tensor fd: " + m_LarodError.message());
        }
    }
    return true;
}

bool location_controller_larod::test_if_video_stream_exists(int width, int height, int rotation) {
    const MapHandle settings = streamSettings(width, height, rotation);
    const std::string asked = sizeText(width, height) + ", " + std::to_string(rotation) + ". ";
    PlatformError error;
    const std::unique_ptr<VdoStream, Unref> stream(vdo_stream_new(settings.get(), nullptr, error.slot()));
    if (!stream) {
        return fail(
            "test_if_video_stream_exists: Failed vdo_stream_new for i_ChosenLandscapeStreamWidth, "
            "i_ChosenLandscapeStreamHeight, i_Rotation. " +
            asked + error.message());
    }
    applicationLog().info("test_if_video_stream_exists: Succeed vdo_stream_new for" + asked);
    return true;
}

bool location_controller_larod::init_video_stream(int width, int height, int rotation) {
    int chosenWidth = width;
    int chosenHeight = height;
    if (test_if_video_stream_exists(width, height, rotation)) {
        applicationLog().info("init_video_stream: Video stream exists.");
    } else {
        applicationLog().error("init_video_stream: Video stream does not exist. Going to choose resolution.");
        unsigned offeredWidth = 0;
        unsigned offeredHeight = 0;
        if (!choose_resolution(static_cast<unsigned>(width), static_cast<unsigned>(height), &offeredWidth,
                               &offeredHeight)) {
            return fail("init_video_stream: Failed choosing stream resolution");
        }
        chosenWidth = static_cast<int>(offeredWidth);
        chosenHeight = static_cast<int>(offeredHeight);
    }

    const MapHandle settings = streamSettings(chosenWidth, chosenHeight, rotation);
    if (m_VDOStream) {
        applicationLog().error("init_video_stream: m_VDOStream is not NULL. Clearing m_VDOStream.");
        m_VDOStream.reset();
    }
    PlatformError error;
    m_VDOStream.reset(vdo_stream_new(settings.get(), nullptr, error.slot()));
    if (!m_VDOStream) {
        return fail("init_video_stream: Failed vdo_stream_new for m_VDOStream. " + error.message());
    }
    if (vdo_stream_attach(m_VDOStream.get(), nullptr, error.slot()) == FALSE) {
        return fail("init_video_stream: Failed vdo_stream_attach for m_VDOStream." + error.message());
    }
    const MapHandle inForce(vdo_stream_get_settings(m_VDOStream.get(), error.slot()));
    if (!inForce) {
        return fail("init_video_stream: Failed vdo_stream_get_settings for m_VDOStream." + error.message());
    }
    const auto setting = [&](const char* name) { return std::to_string(vdo_map_get_uint32(inForce.get(), name, 0)); };
    applicationLog().info("init_video_stream: Starting stream: VDO_FORMAT_YUV, " + setting("width") + "x" +
                          setting("height") + ", rotation " + setting("rotation") + ", " + setting("framerate") +
                          " fps");
    if (vdo_stream_start(m_VDOStream.get(), error.slot()) == FALSE) {
        return fail("init_video_stream: Failed vdo_stream_start for m_VDOStream." + error.message());
    }
    const bool turned = rotation == 90 || rotation == 270;
    m_StreamWidth = static_cast<unsigned>(turned ? chosenHeight : chosenWidth);
    m_StreamHeight = static_cast<unsigned>(turned ? chosenWidth : chosenHeight);
    return true;
}

int location_controller_larod::larod_prepare_data_and_do_ai() {
    static const std::string function = "larod_prepare_data_and_do_ai: ";
    PlatformError error;
    VdoBuffer* frame = nullptr;
    try {
        // Without a stream after a failed start, the cycle fails like any other until the restart rule decides.
        frame = m_VDOStream ? vdo_stream_get_buffer(m_VDOStream.get(), error.slot()) : nullptr;
    } catch (const std::exception& exception) {
        applicationLog().error(function + "vdo_stream_get_buffer exception  " + exception.what());
        return -1;
    }
    if (frame == nullptr) {
        applicationLog().error(function + "Failed vdo_stream_get_buffer(): " + error.message());
        return -1;
    }
    const auto* const pixels = static_cast<const uint8_t*>(vdo_buffer_get_data(frame));
    if (pixels == nullptr ||
        !convertCropScaleU8yuvToRGB(pixels, m_StreamWidth, m_StreamHeight, m_LarodInputFile->getBuffer(),
                                    static_cast<unsigned>(m_ModelWidth), static_cast<unsigned>(m_ModelHeight))) {
        applicationLog().error(function + "Failed img scale/convert in convertCropScaleU8yuvToRGB() (continue anyway)");
    }
    m_LarodOutputLocationsFile->rewind();
    m_LarodOutputClassesFile->rewind();
    m_LarodOutputScoresFile->rewind();
    m_LarodOutputNumDetectionsFile->rewind();
    if (!m_LarodJobRequest || !larodRunJob(m_LarodConn, m_LarodJobRequest.get(), m_LarodError.slot())) {
        applicationLog().error(function + "Unable to run inference on model " + m_ModelPath + ": " +
                               m_LarodError.message() + " Error Code " + std::to_string(m_LarodError.code()));
        return 1;
    }
    if (vdo_stream_buffer_unref(m_VDOStream.get(), &frame, error.slot()) == FALSE) {
        applicationLog().error(function + "Failed to release VDO stream buffer: " + error.message());
        return 1;
    }
    remove_anomalies();
    apply_non_maximum_suppression();
    return 0;
}

std::string location_controller_larod::getAnalysisResolution() const {
    return m_IsPortrait ? sizeText(static_cast<int>(m_StreamHeight), static_cast<int>(m_StreamWidth))
                        : sizeText(static_cast<int>(m_StreamWidth), static_cast<int>(m_StreamHeight));
}
