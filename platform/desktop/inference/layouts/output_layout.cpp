#include "desktop/inference/layouts/output_layout.h"

#include <algorithm>
#include <stdexcept>

namespace desktop {
namespace {

std::string shapeOf(const cv::Mat& output) {
    std::string text;
    for (int i = 0; i < output.dims; ++i) {
        text += (i == 0 ? "" : "x") + std::to_string(output.size[i]);
    }
    return text;
}

std::string shapesOf(const std::vector<cv::Mat>& outputs) {
    std::string text = std::to_string(outputs.size()) + (outputs.size() == 1 ? " output" : " outputs");
    for (const cv::Mat& output : outputs) {
        text += " " + shapeOf(output);
    }
    return text;
}

bool holdsFloats(const cv::Mat& output) {
    return output.type() == CV_32F;
}

}  // namespace

void Collector::add(int networkClass, float score, const CandidateBox& box) {
    const auto wanted = m_classes.find(networkClass);
    // written so that a score that is not a number is dropped, too
    if (wanted == m_classes.end() || !(score >= m_threshold)) {
        return;
    }
    m_found.push_back({box.centreX - box.width / 2, box.centreY - box.height / 2, box.centreX + box.width / 2,
                       box.centreY + box.height / 2, wanted->second, std::min(score, 1.0F)});
}

BestClass bestClass(const float* scores, int count, size_t step) {
    BestClass best = {0, scores[0]};
    for (int i = 1; i < count; ++i) {
        const float score = scores[static_cast<size_t>(i) * step];
        if (score > best.score) {
            best = {i, score};
        }
    }
    return best;
}

void checkOutputs(const OutputLayout& layout, const std::vector<cv::Mat>& outputs, cv::Size input, int highestClass) {
    if (!std::all_of(outputs.begin(), outputs.end(), holdsFloats) || !layout.fits(outputs, input)) {
        throw std::runtime_error(std::string("\"decoder\": ") + layout.name() + " expected " + layout.expected(input) +
                                 ", the network gave " + shapesOf(outputs));
    }
    for (const cv::Mat& output : outputs) {
        if (const std::optional<int> classes = layout.classes(output); classes && highestClass >= *classes) {
            throw std::runtime_error("\"classes\": expected indices below " + std::to_string(*classes) +
                                     ", the number of the network's classes, got " + std::to_string(highestClass));
        }
    }
}

std::vector<Detection> decodeOutputs(const OutputLayout& layout, const std::vector<cv::Mat>& outputs, cv::Size input,
                                     const std::map<int, ObjectClass>& classes, float threshold) {
    Collector collector(classes, threshold);
    layout.read(outputs, input, collector);
    return collector.take();
}

}  // namespace desktop
