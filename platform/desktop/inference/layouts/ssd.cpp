#include "desktop/inference/layouts/output_layout.h"

namespace desktop {

const OutputLayout& ssd();

namespace {

/** A candidate is picture, class, score, left, top, right, bottom, the last four in fractions. */
class Ssd : public OutputLayout {
public:
    const char* name() const override { return "ssd"; }

    std::string expected(cv::Size) const override { return "1 output 1x1xNx7"; }

    bool fits(const std::vector<cv::Mat>& outputs, cv::Size) const override {
        return outputs.size() == 1 && outputs[0].dims == 4 && outputs[0].size[0] == 1 && outputs[0].size[1] == 1 &&
               outputs[0].size[3] == 7;
    }

    std::optional<int> classes(const cv::Mat&) const override { return std::nullopt; }

    void read(const std::vector<cv::Mat>& outputs, cv::Size, Collector& collector) const override {
        const cv::Mat& output = outputs.front();
        const auto* values = output.ptr<float>();
        for (int n = 0; n < output.size[2]; ++n, values += 7) {
            collector.add(static_cast<int>(values[1]), values[2],
                          {(values[3] + values[5]) / 2, (values[4] + values[6]) / 2, values[5] - values[3],
                           values[6] - values[4]});
        }
    }
};

}  // namespace

const OutputLayout& ssd() {
    static const Ssd kLayout;
    return kLayout;
}

}  // namespace desktop
