#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <larod.h>
#include <vdo-stream.h>

#include "base/unique_fd.h"
#include "config/config_params.h"
#include "detection/mmfile.h"
#include "finding/finding.h"

/** How wide a stream is for its height. */
enum AspectRatioType {
    ASPECT_RATIO_INVALID = 0,
    FULLSCREEN = 1,
    WIDESCREEN = 2,
    SQUARE = 3
};

/**
 * The detector: opens the analysis stream, runs the model on its newest frame once a cycle and turns the model's output
 * into detections.
 *
 * The model is a single-shot detector with built-in post-processing: one RGB input, four outputs (boxes, classes,
 * scores, count), candidates in descending order of score. Every failure is logged and turned into a result; nothing
 * is retried here. All calls come from the analysis thread, except where noted.
 */
class location_controller_larod {
public:
    /** config: the live record, for the class flags. No platform call is made. */
    explicit location_controller_larod(const ConfigParams& config);
    ~location_controller_larod();

    location_controller_larod(const location_controller_larod&) = delete;
    location_controller_larod& operator=(const location_controller_larod&) = delete;

    /**
     * Opens the stream, loads the model and prepares the job; may be called again to start all over.
     * modelWidth and modelHeight are the landscape size in pixels; the portrait flag turns stream and model by 90
     * degrees. iterationTime is in milliseconds; 0 or less means the default. False, logged, on failure.
     */
    bool init_larod(const std::string& appName, const std::string& modelFileName, int modelWidth, int modelHeight,
                    int iterationTime, bool isPortrait);

    /**
     * One cycle: newest frame, conversion, inference, score filters. 0 on success, 1 when the inference or the frame's
     * release failed, -1 when no frame could be had. A failed inference keeps its frame, and a failed conversion
     * still runs the inference on the input of the cycle before.
     */
    int larod_prepare_data_and_do_ai();

    /** This frame's detections in analysis-stream pixels, in the model's order. */
    std::vector<detection> get_detections() const;

    /** Sets the score threshold, 0..1, as it is; scores must exceed it. Any thread. */
    void set_sensitivity(float threshold);

    // Any thread; 0 before the first stream.
    unsigned get_stream_width() const { return m_StreamWidth; }
    unsigned get_stream_height() const { return m_StreamHeight; }

    /** Analysis cycle time in milliseconds. */
    int get_iteration_time() const { return m_IterationTime; }

    /** Analysis size before rotation, "WxH". Any thread. */
    std::string getAnalysisResolution() const;

    bool is_portrait() const { return m_IsPortrait; }

    /** Whether the settings select a class for counting; never for an index outside 0..8. */
    bool is_object_a_trigger(int classId) const;
    bool IsValidClass(int classId) const { return is_object_a_trigger(classId); }

    /** "Person" to "Boat"; "Unknown" outside 0..8. */
    static std::string ClassIDToLabel(int classId);

    // The score filters: a rejected candidate gets the score 0.01. All return 0.
    int remove_anomalies();
    int apply_non_maximum_suppression();
    int lower_the_threshold_of_any_same_object_overlapping_this_one(int index);
    bool DoTheseOverlap(const float* box1, const float* box2, int index) const;

    // The choice of an analysis stream when the camera does not deliver the model's own size.
    AspectRatioType get_aspect_ratio_type(int width, int height) const;
    bool does_stream_contain_model(int streamWidth, int streamHeight, int modelWidth, int modelHeight) const;
    bool find_smallest_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio, unsigned int& width,
                                         unsigned int& height) const;
    bool find_largest_not_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio, unsigned int& width,
                                            unsigned int& height) const;
    bool choose_resolution(unsigned int modelWidth, unsigned int modelHeight, unsigned int* chosenWidth,
                           unsigned int* chosenHeight) const;

private:
    struct Unref {
        void operator()(gpointer object) const { g_object_unref(object); }
    };
    struct DestroyJob {
        void operator()(larodJobRequest* request) const { larodDestroyJobRequest(&request); }
    };

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

    void set_paths();
    bool test_if_video_stream_exists(int width, int height, int rotation);
    bool init_video_stream(int width, int height, int rotation);
    bool larod_setup();
    bool createTensorFiles();
    bool createInputTensors();
    bool createOutputTensors();
    void releaseModel(const std::string& function);

    struct PixelBox {
        float top;
        float left;
        float bottom;
        float right;
        float area() const { return (right - left) * (bottom - top); }
    };
    PixelBox toPixels(const float* box) const;
    /** A candidate's class index; -1 for a value that is none. */
    int classAt(int index) const;

    const ConfigParams& m_config;

    std::string m_ModelFileName;
    int m_ModelWidth = 300; /**< model input size in pixels, after rotation */
    int m_ModelHeight = 300;
    static constexpr int kDefaultIterationTime = 150;
    int m_IterationTime = kDefaultIterationTime; /**< milliseconds */

    static constexpr float m_Overlap = 0.4F; /**< above this share of the smaller box, two boxes are one object */
    static constexpr float m_TinyAnomalyMaxAreaPercent =
        0.005F;                                                /**< smaller boxes, as a share of the frame, are noise */
    static constexpr float m_HugeAnomalyMaxAreaPercent = 0.5F; /**< larger ones too */
    static constexpr int m_MaxResults = 12;                    /**< candidate slots examined */
    static constexpr int m_NumberofResults = 100;              /**< candidate slots in the output tensors */

    std::atomic<unsigned> m_StreamWidth = 0; /**< analysis stream size in pixels, after rotation */
    std::atomic<unsigned> m_StreamHeight = 0;
    std::atomic<float> m_Threshold = 0.35F;
    std::string m_app_name;
    std::string m_ModelPath;

    const float* m_OutputLocations = nullptr; /**< ymin, xmin, ymax, xmax per slot, as fractions of the frame */
    const float* m_OutputClasses = nullptr;
    float* m_OutputScores = nullptr; /**< rewritten in place by the filters */

    LarodError m_LarodError;
    const char* m_LarodChipType = nullptr;
    UniqueFd m_LarodModelFd;
    larodConnection* m_LarodConn = nullptr; /**< released, with what hangs on it, by releaseModel */
    larodModel* m_LarodModel = nullptr;
    larodTensor** m_LarodInputTensors = nullptr;
    size_t m_LarodNumInputs = 0;
    larodTensor** m_LarodOutputTensors = nullptr;
    size_t m_LarodNumOutputs = 0;
    std::unique_ptr<larodJobRequest, DestroyJob> m_LarodJobRequest;

    std::unique_ptr<MemoryMappedFile> m_LarodInputFile;
    std::unique_ptr<MemoryMappedFile> m_LarodOutputLocationsFile;
    std::unique_ptr<MemoryMappedFile> m_LarodOutputClassesFile;
    std::unique_ptr<MemoryMappedFile> m_LarodOutputScoresFile;
    std::unique_ptr<MemoryMappedFile> m_LarodOutputNumDetectionsFile;

    std::unique_ptr<VdoStream, Unref> m_VDOStream;
    std::atomic<bool> m_IsPortrait = false;
};

/** Whether two class indices may be the same object: equal ones, and a car and a truck. */
bool shouldCompareClasses(int a, int b);
