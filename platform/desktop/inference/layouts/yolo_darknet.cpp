#include <algorithm>

#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& yolo_darknet();

namespace {

/** Any number of outputs; a candidate is cx, cy, w, h in fractions, objectness, final class scores. */
class YoloDarknet : public OutputLayout {
public:
    const char* name() const override { return "yolo-darknet"; }

    std::string expected(cv::Size) const override { return "outputs Nx(5+classes)"; }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size) const override {
        return !outputs.empty() && std::all_of(outputs.begin(), outputs.end(), [](const cv::Mat& output) {
            return output.dims == 2 && output.size[1] > 5;
        });
    }

    std::optional<int> classes(const cv::Mat& output) const override { return output.size[1] - 5; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size, Collector& collector) const override {
        for (const cv::Mat& output : outputs) {
            for (int row = 0; row < output.rows; ++row) {
                const auto* v = output.ptr<float>(row);
                const BestClass best = bestClass(v + 5, output.cols - 5, 1);
                collector.add(best.index, best.score, {v[0], v[1], v[2], v[3]});
            }
        }
    }
};

}  // namespace

const OutputLayout& yolo_darknet() {
    static const YoloDarknet kLayout;
    return kLayout;
}

}  // namespace desktop
