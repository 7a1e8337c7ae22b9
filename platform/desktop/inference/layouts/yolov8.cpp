#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& yolov8();

namespace {

/** A candidate is a column: cx, cy, w, h in pixels, final class scores. */
class Yolov8 : public OutputLayout {
public:
    const char* name() const override { return "yolov8"; }

    std::string expected(cv::Size) const override { return "1 output 1x(4+classes)xN"; }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size) const override {
        return outputs.size() == 1 && outputs[0].dims == 3 && outputs[0].size[0] == 1 && outputs[0].size[1] > 4 &&
               outputs[0].size[2] > outputs[0].size[1];
    }

    std::optional<int> classes(const cv::Mat& output) const override { return output.size[1] - 4; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size input, Collector& collector) const override {
        const cv::Mat& output = outputs.front();
        const auto width = static_cast<float>(input.width);
        const auto height = static_cast<float>(input.height);
        const auto candidates = static_cast<size_t>(output.size[2]);
        const auto* values = output.ptr<float>();
        for (size_t n = 0; n < candidates; ++n) {
            const BestClass best = bestClass(values + 4 * candidates + n, output.size[1] - 4, candidates);
            collector.add(best.index, best.score,
                          {values[n] / width, values[candidates + n] / height, values[2 * candidates + n] / width,
                           values[3 * candidates + n] / height});
        }
    }
};

}  // namespace

const OutputLayout& yolov8() {
    static const Yolov8 kLayout;
    return kLayout;
}

}  // namespace desktop
