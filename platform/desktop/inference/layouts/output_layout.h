#pragma once

#include <map>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desktop/inference/detections/detections.h"

namespace desktop {

/** A candidate's box in fractions of the network's input. */
struct CandidateBox {
    float centreX;
    float centreY;
    float width;
    float height;
};

/** Collects the candidates that are good enough and of a class that is wanted. */
class Collector {
public:
    /** classes: those that are wanted, by the network's numbers; it outlives this. */
    Collector(const std::map<int, ObjectClass>& classes, float threshold)
        : m_classes(classes), m_threshold(threshold) {}

    void add(int networkClass, float score, const CandidateBox& box);

    float threshold() const { return m_threshold; }
    std::vector<Detection> take() { return std::move(m_found); }

private:
    const std::map<int, ObjectClass>& m_classes;
    const float m_threshold;
    std::vector<Detection> m_found;
};

/** The best of some class scores. */
struct BestClass {
    int index;
    float score;
};

/** The best of count class scores that lie step values apart; count is at least 1. */
BestClass bestClass(const float* scores, int count, size_t step);

/**
 * How networks of one kind lay out what they find. A layout is one file of this folder, with a function of the file's
 * name that returns it; the folder's CMakeLists.txt names the files. Any thread.
 */
class OutputLayout {
public:
    OutputLayout() = default;
    OutputLayout(const OutputLayout&) = delete;
    OutputLayout& operator=(const OutputLayout&) = delete;
    virtual ~OutputLayout() = default;

    /** By which model cards know it. */
    virtual const char* name() const = 0;

    /** The outputs that a network of such an input has, in words. */
    virtual std::string expected(cv::Size input) const = 0;

    /** Whether these are such outputs; all of them hold floats. */
    virtual bool fits(const std::vector<cv::Mat>& outputs, cv::Size input) const = 0;

    /** How many classes an output that fits tells apart; nothing where its shape does not say. */
    virtual std::optional<int> classes(const cv::Mat& output) const = 0;

    /** Gives all candidates of outputs that fit to a collector. */
    virtual void read(const std::vector<cv::Mat>& outputs, cv::Size input, Collector& collector) const = 0;
};

/** All that are known. */
const std::vector<const OutputLayout*>& outputLayouts();

/**
 * Checks that a network's outputs have the layout and know class highestClass. Throws std::runtime_error naming the
 * shape that was expected and the one that came.
 */
void checkOutputs(const OutputLayout& layout, const std::vector<cv::Mat>& outputs, cv::Size input, int highestClass);

/**
 * Returns the candidates whose best class is one of classes and whose score is at least threshold; boxes are in
 * fractions of the network's input. The outputs must have passed checkOutputs.
 */
std::vector<Detection> decodeOutputs(const OutputLayout& layout, const std::vector<cv::Mat>& outputs, cv::Size input,
                                     const std::map<int, ObjectClass>& classes, float threshold);

}  // namespace desktop
