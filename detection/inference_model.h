#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <larod.h>

#include "base/unique_fd.h"
#include "detection/detection_filter.h"
#include "detection/mmfile.h"

/** The larod error of the last call; released when the next call needs the slot. */
class LarodError {
public:
    LarodError() = default;
    ~LarodError() { larodClearError(&m_error); }
    LarodError(const LarodError&) = delete;
    LarodError& operator=(const LarodError&) = delete;
    larodError** slot() {
        larodClearError(&m_error);
        return &m_error;
    }
    std::string message() const { return m_error == nullptr || m_error->msg == nullptr ? "N/A" : m_error->msg; }
    int code() const { return m_error == nullptr ? 0 : m_error->code; }

private:
    larodError* m_error = nullptr;
};

/**
 * A model on the inference service: one RGB input, four outputs (boxes, classes, scores, count). Holds the connection
 * and all that hangs on it. Failures of loading are logged under init_larod and larod_setup. Analysis thread.
 */
class InferenceModel {
public:
    InferenceModel() = default;
    /** Logs what cannot be released as the detector's end. */
    ~InferenceModel() { release("~location_controller_larod: "); }
    InferenceModel(const InferenceModel&) = delete;
    InferenceModel& operator=(const InferenceModel&) = delete;

    /** Lets go what is loaded; function begins the log lines of what fails. */
    void release(const std::string& function);

    /** Loads a model from a file, under a name, with an input of that size in pixels, and prepares the job. */
    bool load(const std::string& path, const std::string& name, int width, int height);

    /** Runs the model on its input; false, with the reason. */
    bool run(std::string& reason);

    /** The input's bytes, RGB. Not before a model was loaded. */
    uint8_t* input() const { return m_input->getBuffer(); }

    /** What the last run found. Not before a model was loaded. */
    Candidates candidates() const;

private:
    struct DestroyJob {
        void operator()(larodJobRequest* request) const { larodDestroyJobRequest(&request); }
    };

    bool connect(const std::string& name);
    bool createTensorFiles(int width, int height);
    bool createInputTensors();
    bool createOutputTensors();

    LarodError m_error;
    UniqueFd m_file;
    std::string m_path;
    larodConnection* m_connection = nullptr; /**< let go, with what hangs on it, by release */
    larodModel* m_model = nullptr;
    larodTensor** m_inputTensors = nullptr;
    size_t m_inputCount = 0;
    larodTensor** m_outputTensors = nullptr;
    size_t m_outputCount = 0;
    std::unique_ptr<larodJobRequest, DestroyJob> m_job;

    std::unique_ptr<MemoryMappedFile> m_input;
    std::unique_ptr<MemoryMappedFile> m_locations;
    std::unique_ptr<MemoryMappedFile> m_classes;
    std::unique_ptr<MemoryMappedFile> m_scores;
    std::unique_ptr<MemoryMappedFile> m_count;
};
