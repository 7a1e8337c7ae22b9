#include <cmath>

#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& fastestdet();

namespace {

/** A candidate is a cell: objectness, a box relative to the cell, class scores. */
class FastestDet : public OutputLayout {
public:
    const char* name() const override { return "fastestdet"; }

    std::string expected(cv::Size) const override { return "1 output 1x(5+classes)xHxW"; }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size) const override {
        return outputs.size() == 1 && outputs[0].dims == 4 && outputs[0].size[0] == 1 && outputs[0].size[1] > 5;
    }

    std::optional<int> classes(const cv::Mat& output) const override { return output.size[1] - 5; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size, Collector& collector) const override {
        const cv::Mat& output = outputs.front();
        const int gridHeight = output.size[2];
        const int gridWidth = output.size[3];
        const size_t cells = static_cast<size_t>(gridHeight) * static_cast<size_t>(gridWidth);
        const auto sigmoid = [](float v) { return 1 / (1 + std::exp(-v)); };
        const auto* values = output.ptr<float>();
        for (int y = 0; y < gridHeight; ++y) {
            for (int x = 0; x < gridWidth; ++x, ++values) {
                const BestClass best = bestClass(values + 5 * cells, output.size[1] - 5, cells);
                const float score = std::pow(values[0], 0.6F) * std::pow(best.score, 0.4F);
                collector.add(best.index, score,
                              {(static_cast<float>(x) + std::tanh(values[cells])) / static_cast<float>(gridWidth),
                               (static_cast<float>(y) + std::tanh(values[2 * cells])) / static_cast<float>(gridHeight),
                               sigmoid(values[3 * cells]), sigmoid(values[4 * cells])});
            }
        }
    }
};

}  // namespace

const OutputLayout& fastestdet() {
    static const FastestDet kLayout;
    return kLayout;
}

}  // namespace desktop
