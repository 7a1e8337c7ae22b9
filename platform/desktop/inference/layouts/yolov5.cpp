#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& yolov5();

namespace {

/** A candidate is cx, cy, w, h in pixels, objectness, and class scores to be multiplied by it. */
class Yolov5 : public OutputLayout {
public:
    const char* name() const override { return "yolov5"; }

    std::string expected(cv::Size) const override { return "1 output 1xNx(5+classes)"; }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size) const override {
        // That of yolov8 differs in the order of dimensions only; there are far more candidates than classes.
        return outputs.size() == 1 && outputs[0].dims == 3 && outputs[0].size[0] == 1 && outputs[0].size[2] > 5 &&
               outputs[0].size[1] > outputs[0].size[2];
    }

    std::optional<int> classes(const cv::Mat& output) const override { return output.size[2] - 5; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size input, Collector& collector) const override {
        const cv::Mat& output = outputs.front();
        const auto width = static_cast<float>(input.width);
        const auto height = static_cast<float>(input.height);
        for (int row = 0; row < output.size[1]; ++row) {
            const auto* v = output.ptr<float>(0, row);
            if (v[4] < collector.threshold()) {
                continue;
            }
            const BestClass best = bestClass(v + 5, output.size[2] - 5, 1);
            collector.add(best.index, v[4] * best.score, {v[0] / width, v[1] / height, v[2] / width, v[3] / height});
        }
    }
};

}  // namespace

const OutputLayout& yolov5() {
    static const Yolov5 kLayout;
    return kLayout;
}

}  // namespace desktop
