#include "detection/inference_model.h"

#include <fcntl.h>
#include <iterator>

#include "base/camera_paths.h"
#include "log/Logger.h"

namespace {

constexpr const char* kChip = "google-edge-tpu-tflite";
constexpr int kSlots = 100;  // candidates in the output tensors

bool fail(const std::string& message) {
    applicationLog().error(message);
    return false;
}

}  // namespace

void InferenceModel::release(const std::string& function) {
    m_file.reset();
    if (m_connection == nullptr) {
        return;
    }
    m_job.reset();
    if (m_inputTensors != nullptr) {
        larodDestroyTensors(m_connection, &m_inputTensors, m_inputCount, m_error.slot());
    }
    if (m_outputTensors != nullptr) {
        larodDestroyTensors(m_connection, &m_outputTensors, m_outputCount, m_error.slot());
    }
    if (m_model != nullptr) {
        if (!larodDeleteModel(m_connection, m_model, m_error.slot())) {
            applicationLog().error(function + "Failed to delete larod model: " + m_error.message());
        }
        larodDestroyModel(&m_model);
    }
    if (!larodDisconnect(&m_connection, m_error.slot())) {
        applicationLog().error(function + "Failed to disconnect from larod: " + m_error.message());
    }
    m_inputTensors = nullptr;
    m_outputTensors = nullptr;
    m_inputCount = 0;
    m_outputCount = 0;
    m_connection = nullptr;
}

bool InferenceModel::load(const std::string& path, const std::string& name, int width, int height) {
    m_path = path;
    m_file.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!m_file) {
        return fail("init_larod: Unable to open model file: " + path);
    }
    applicationLog().info(std::string("init_larod: Setting up larod connection with chip ") + kChip + " and model " +
                          path);
    if (!connect(name)) {
        return fail("init_larod: Failed to set up larod");
    }
    if (!createTensorFiles(width, height) || !createInputTensors() || !createOutputTensors()) {
        return false;
    }
    m_job.reset(larodCreateJobRequest(m_model, m_inputTensors, m_inputCount, m_outputTensors, m_outputCount, nullptr,
                                      m_error.slot()));
    if (!m_job) {
        return fail("init_larod: Failed creating inference request: " + m_error.message());
    }
    return true;
}

bool InferenceModel::connect(const std::string& name) {
    if (!larodConnect(&m_connection, m_error.slot())) {
        return fail("larod_setup: Could not connect to larod: " + m_error.message());
    }
    const larodDevice* const device = larodGetDevice(m_connection, kChip, 0, m_error.slot());
    if (device == nullptr) {
        return fail("larod_setup: Unable to larodGetDevice: " + m_error.message());
    }
    m_model =
        larodLoadModel(m_connection, m_file.get(), device, LAROD_ACCESS_PRIVATE, name.c_str(), nullptr, m_error.slot());
    if (m_model == nullptr) {
        applicationLog().error("larod_setup: Unable to load model: " + m_error.message());
        larodDisconnect(&m_connection, m_error.slot());
        m_connection = nullptr;
        return false;
    }
    applicationLog().info("larod_setup: Model loaded successfully");
    return true;
}

bool InferenceModel::createTensorFiles(int width, int height) {
    // The output sizes are element counts used as byte counts. It works because the mapping covers whole memory pages
    // and the service writes through the descriptor.
    const auto make = [](const char* nameTemplate, int size) {
        return std::make_unique<MemoryMappedFile>(cameraPath(nameTemplate), size);
    };
    try {
        m_input = make("/tmp/larod.in.test-XXXXXX", 3 * width * height);
        m_locations = make("/tmp/larod.out0.test-XXXXXX", kSlots * 4);
        m_classes = make("/tmp/larod.out1.test-XXXXXX", kSlots);
        m_scores = make("/tmp/larod.out2.test-XXXXXX", kSlots);
        m_count = make("/tmp/larod.out3.test-XXXXXX", 1);
    } catch (const char* reason) {
        return fail(std::string("init_larod: ") + reason);
    }
    return true;
}

bool InferenceModel::createInputTensors() {
    m_inputTensors = larodCreateModelInputs(m_model, &m_inputCount, m_error.slot());
    if (m_inputTensors == nullptr) {
        return fail("init_larod: Failed retrieving input tensors: " + m_error.message());
    }
    if (m_inputCount != 1) {
        return fail("init_larod: Model has " + std::to_string(m_inputCount) +
                    " inputs, app only supports 1 input tensor.");
    }
    const int descriptor = m_input->getFileDescriptor();
    applicationLog().info("init_larod: Finished with input tensor setup " + std::to_string(descriptor));
    if (!larodSetTensorFd(m_inputTensors[0], descriptor, m_error.slot())) {
        return fail("init_larod: Failed setting input tensor fd: " + m_error.message());
    }
    return true;
}

bool InferenceModel::createOutputTensors() {
    m_outputTensors = larodCreateModelOutputs(m_model, &m_outputCount, m_error.slot());
    if (m_outputTensors == nullptr) {
        return fail("init_larod: Failed retrieving output tensors: " + m_error.message());
    }
    struct Output {
        const MemoryMappedFile& file;
        const char* name;
    };
    const Output outputs[] = {{*m_locations, "locations (0)"},
                              {*m_classes, "classes (1)"},
                              {*m_scores, "scores (2)"},
                              {*m_count, "Num of Detections (3)"}};
    if (m_outputCount != std::size(outputs)) {
        return fail("init_larod: Model has " + std::to_string(m_outputCount) + " outputs, need 4 output tensors.");
    }
    for (size_t i = 0; i < std::size(outputs); ++i) {
        if (!larodSetTensorFd(m_outputTensors[i], outputs[i].file.getFileDescriptor(), m_error.slot())) {
            return fail(std::string("init_larod: Failed setting ") + outputs[i].name +
                        " tensor fd: " + m_error.message());
        }
    }
    return true;
}

bool InferenceModel::run(std::string& reason) {
    for (const auto& output : {std::cref(m_locations), std::cref(m_classes), std::cref(m_scores), std::cref(m_count)}) {
        output.get()->rewind();
    }
    if (!m_job || !larodRunJob(m_connection, m_job.get(), m_error.slot())) {
        reason = "Unable to run inference on model " + m_path + ": " + m_error.message() + " Error Code " +
                 std::to_string(m_error.code());
        return false;
    }
    return true;
}

Candidates InferenceModel::candidates() const {
    const auto floatsOf = [](const MemoryMappedFile& file) { return reinterpret_cast<float*>(file.getBuffer()); };
    return {floatsOf(*m_locations), floatsOf(*m_classes), floatsOf(*m_scores)};
}
