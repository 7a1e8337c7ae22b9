#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "config/config_params.h"
#include "detection/analysis_stream.h"
#include "detection/detection_filter.h"
#include "detection/inference_model.h"
#include "detection/stream_choice.h"
#include "finding/finding.h"

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
    explicit location_controller_larod(const ConfigParams& config) : m_config(config) {}

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
    std::vector<detection> get_detections() const { return detectionsOf(m_Model.candidates(), limits(), m_config); }

    /** Sets the score threshold, 0..1, as it is; scores must exceed it. Any thread. */
    void set_sensitivity(float threshold) { m_Threshold = threshold; }

    // Any thread; 0 before the first stream.
    unsigned get_stream_width() const { return m_StreamWidth; }
    unsigned get_stream_height() const { return m_StreamHeight; }

    /** Analysis cycle time in milliseconds. */
    int get_iteration_time() const { return m_IterationTime; }

    /** Analysis size before rotation, "WxH". Any thread. */
    std::string getAnalysisResolution() const;

    bool is_portrait() const { return m_IsPortrait; }

    /** Whether the settings select a class for counting; never for an index outside 0..8. */
    bool is_object_a_trigger(int classId) const { return isObjectClassMonitored(m_config, classId); }
    bool IsValidClass(int classId) const { return is_object_a_trigger(classId); }

    /** "Person" to "Boat"; "Unknown" outside 0..8. */
    static std::string ClassIDToLabel(int classId) { return class_index_to_label(classId); }

    // The score filters: a rejected candidate gets the score 0.01. All return 0.
    int remove_anomalies();
    int apply_non_maximum_suppression();
    int lower_the_threshold_of_any_same_object_overlapping_this_one(int index);
    bool DoTheseOverlap(const float* box1, const float* box2, int) const { return doOverlap(box1, box2, limits()); }

    // The choice of an analysis stream when the camera does not deliver the model's own size.
    AspectRatioType get_aspect_ratio_type(int width, int height) const { return aspectRatioOf(width, height); }
    bool does_stream_contain_model(int streamWidth, int streamHeight, int modelWidth, int modelHeight) const {
        return containsModel(streamWidth, streamHeight, modelWidth, modelHeight);
    }
    bool find_smallest_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio, unsigned int& width,
                                         unsigned int& height) const;
    bool find_largest_not_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio, unsigned int& width,
                                            unsigned int& height) const;
    bool choose_resolution(unsigned int modelWidth, unsigned int modelHeight, unsigned int* chosenWidth,
                           unsigned int* chosenHeight) const;

private:
    FilterLimits limits() const { return {m_StreamWidth, m_StreamHeight, m_Threshold}; }

    const ConfigParams& m_config;

    int m_ModelWidth = 300; /**< model input size in pixels, after rotation */
    int m_ModelHeight = 300;
    static constexpr int kDefaultIterationTime = 150;
    int m_IterationTime = kDefaultIterationTime; /**< milliseconds */
    std::atomic<float> m_Threshold = 0.35F;
    std::atomic<unsigned> m_StreamWidth = 0; /**< as the stream's own, for any thread */
    std::atomic<unsigned> m_StreamHeight = 0;
    std::atomic<bool> m_IsPortrait = false;

    InferenceModel m_Model;
    AnalysisStream m_Stream; /**< closed before the model is let go */
};
