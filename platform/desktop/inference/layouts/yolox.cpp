#include <array>
#include <cmath>

#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& yolox();

namespace {

constexpr std::array<int, 3> kStrides = {8, 16, 32};

int cells(cv::Size input) {
    int cells = 0;
    for (const int stride : kStrides) {
        cells += (input.width / stride) * (input.height / stride);
    }
    return cells;
}

/** As yolov5's, but the box is relative to its cell in grids of these strides. */
class Yolox : public OutputLayout {
public:
    const char* name() const override { return "yolox"; }

    std::string expected(cv::Size input) const override {
        return "1 output 1xCELLSx(5+classes) with " + std::to_string(cells(input)) + " cells";
    }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size input) const override {
        return outputs.size() == 1 && outputs[0].dims == 3 && outputs[0].size[0] == 1 &&
               outputs[0].size[1] == cells(input) && outputs[0].size[2] > 5;
    }

    std::optional<int> classes(const cv::Mat& output) const override { return output.size[2] - 5; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size input, Collector& collector) const override {
        const cv::Mat& output = outputs.front();
        int row = 0;
        for (const int stride : kStrides) {
            const float cellWidth = static_cast<float>(stride) / static_cast<float>(input.width);
            const float cellHeight = static_cast<float>(stride) / static_cast<float>(input.height);
            for (int y = 0; y < input.height / stride; ++y) {
                for (int x = 0; x < input.width / stride; ++x, ++row) {
                    const auto* v = output.ptr<float>(0, row);
                    const BestClass best = bestClass(v + 5, output.size[2] - 5, 1);
                    collector.add(
                        best.index, v[4] * best.score,
                        {(static_cast<float>(x) + v[0]) * cellWidth, (static_cast<float>(y) + v[1]) * cellHeight,
                         std::exp(v[2]) * cellWidth, std::exp(v[3]) * cellHeight});
                }
            }
        }
    }
};

}  // namespace

const OutputLayout& yolox() {
    static const Yolox kLayout;
    return kLayout;
}

}  // namespace desktop
