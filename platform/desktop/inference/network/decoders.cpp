#include "desktop/inference/network/decoders.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <string>

namespace desktop {
namespace {

constexpr std::array<int, 3> kYoloxStrides = {8, 16, 32};

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

int yoloxCells(cv::Size input) {
    int cells = 0;
    for (const int stride : kYoloxStrides) {
        cells += (input.width / stride) * (input.height / stride);
    }
    return cells;
}

struct Layout {
    const char* decoder;
    const char* expected; /**< in words */
    int dims;
    int valuesDim;  /**< which dimension holds a candidate's values; -1: the classes are not in the shape */
    int firstClass; /**< where in a candidate's values the class scores start */
};

Layout layoutOf(Decoder decoder) {
    switch (decoder) {
        case Decoder::YoloDarknet:
            return {"yolo-darknet", "outputs Nx(5+classes)", 2, 1, 5};
        case Decoder::Yolov5:
            return {"yolov5", "1 output 1xNx(5+classes)", 3, 2, 5};
        case Decoder::Yolov8:
            return {"yolov8", "1 output 1x(4+classes)xN", 3, 1, 4};
        case Decoder::Yolox:
            return {"yolox", "1 output 1xCELLSx(5+classes)", 3, 2, 5};
        case Decoder::Ssd:
            return {"ssd", "1 output 1x1xNx7", 4, -1, 0};
        case Decoder::FastestDet:
            break;
    }
    return {"fastestdet", "1 output 1x(5+classes)xHxW", 4, 1, 5};
}

struct Box {
    float centreX;
    float centreY;
    float width;
    float height;
};

/** Collects candidates that are good enough and of a class that is wanted. */
class Collector {
public:
    Collector(const std::map<int, ObjectClass>& classes, float threshold)
        : m_classes(classes), m_threshold(threshold) {}

    void add(int networkClass, float score, const Box& box) {
        const auto wanted = m_classes.find(networkClass);
        // written so that a score that is not a number is dropped, too
        if (wanted == m_classes.end() || !(score >= m_threshold)) {
            return;
        }
        m_found.push_back({box.centreX - box.width / 2, box.centreY - box.height / 2, box.centreX + box.width / 2,
                           box.centreY + box.height / 2, wanted->second, std::min(score, 1.0F)});
    }

    [[nodiscard]] float threshold() const { return m_threshold; }
    std::vector<Detection> take() { return std::move(m_found); }

private:
    const std::map<int, ObjectClass>& m_classes;
    float m_threshold;
    std::vector<Detection> m_found;
};

struct BestClass {
    int index;
    float score;
};

/** The best of count class scores that lie step values apart. */
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

void decodeYoloDarknet(const std::vector<cv::Mat>& outputs, Collector& collector) {
    for (const cv::Mat& output : outputs) {
        for (int row = 0; row < output.rows; ++row) {
            const auto* v = output.ptr<float>(row);
            const BestClass best = bestClass(v + 5, output.cols - 5, 1);
            collector.add(best.index, best.score, {v[0], v[1], v[2], v[3]});
        }
    }
}

void decodeYolov5(const cv::Mat& output, cv::Size input, Collector& collector) {
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

void decodeYolov8(const cv::Mat& output, cv::Size input, Collector& collector) {
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

void decodeYolox(const cv::Mat& output, cv::Size input, Collector& collector) {
    int row = 0;
    for (const int stride : kYoloxStrides) {
        const float cellWidth = static_cast<float>(stride) / static_cast<float>(input.width);
        const float cellHeight = static_cast<float>(stride) / static_cast<float>(input.height);
        for (int y = 0; y < input.height / stride; ++y) {
            for (int x = 0; x < input.width / stride; ++x, ++row) {
                const auto* v = output.ptr<float>(0, row);
                const BestClass best = bestClass(v + 5, output.size[2] - 5, 1);
                collector.add(best.index, v[4] * best.score,
                              {(static_cast<float>(x) + v[0]) * cellWidth, (static_cast<float>(y) + v[1]) * cellHeight,
                               std::exp(v[2]) * cellWidth, std::exp(v[3]) * cellHeight});
            }
        }
    }
}

void decodeSsd(const cv::Mat& output, Collector& collector) {
    const auto* values = output.ptr<float>();
    for (int n = 0; n < output.size[2]; ++n, values += 7) {
        const Box box = {(values[3] + values[5]) / 2, (values[4] + values[6]) / 2, values[5] - values[3],
                         values[6] - values[4]};
        collector.add(static_cast<int>(values[1]), values[2], box);
    }
}

void decodeFastestDet(const cv::Mat& output, Collector& collector) {
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

}  // namespace

void checkOutputs(Decoder decoder, const std::vector<cv::Mat>& outputs, cv::Size input, int highestClass) {
    const Layout layout = layoutOf(decoder);
    const bool countFits = decoder == Decoder::YoloDarknet ? !outputs.empty() : outputs.size() == 1;
    const bool shapesFit = std::all_of(outputs.begin(), outputs.end(), [&](const cv::Mat& output) {
        if (output.type() != CV_32F || output.dims != layout.dims || (layout.dims > 2 && output.size[0] != 1)) {
            return false;
        }
        switch (decoder) {
            case Decoder::Ssd:
                return output.size[1] == 1 && output.size[3] == 7;
            case Decoder::Yolox:
                return output.size[1] == yoloxCells(input) && output.size[2] > layout.firstClass;
            case Decoder::Yolov5:
                // The two layouts differ in the order of dimensions only; there are far more candidates than classes.
                return output.size[2] > layout.firstClass && output.size[1] > output.size[2];
            case Decoder::Yolov8:
                return output.size[1] > layout.firstClass && output.size[2] > output.size[1];
            default:
                return output.size[layout.valuesDim] > layout.firstClass;
        }
    });
    const std::string expected =
        std::string("\"decoder\": ") + layout.decoder + " expected " + layout.expected +
        (decoder == Decoder::Yolox ? " with " + std::to_string(yoloxCells(input)) + " cells" : "");
    if (!countFits || !shapesFit) {
        throw std::runtime_error(expected + ", the network gave " + shapesOf(outputs));
    }
    for (const cv::Mat& output : outputs) {
        const int classes = layout.valuesDim < 0 ? highestClass + 1 : output.size[layout.valuesDim] - layout.firstClass;
        if (highestClass >= classes) {
            throw std::runtime_error("\"classes\": expected indices below " + std::to_string(classes) +
                                     ", the number of the network's classes, got " + std::to_string(highestClass));
        }
    }
}

std::vector<Detection> decodeOutputs(Decoder decoder, const std::vector<cv::Mat>& outputs, cv::Size input,
                                     const std::map<int, ObjectClass>& classes, float threshold) {
    Collector collector(classes, threshold);
    switch (decoder) {
        case Decoder::YoloDarknet:
            decodeYoloDarknet(outputs, collector);
            break;
        case Decoder::Yolov5:
            decodeYolov5(outputs.front(), input, collector);
            break;
        case Decoder::Yolov8:
            decodeYolov8(outputs.front(), input, collector);
            break;
        case Decoder::Yolox:
            decodeYolox(outputs.front(), input, collector);
            break;
        case Decoder::Ssd:
            decodeSsd(outputs.front(), collector);
            break;
        case Decoder::FastestDet:
            decodeFastestDet(outputs.front(), collector);
            break;
    }
    return collector.take();
}

}  // namespace desktop
