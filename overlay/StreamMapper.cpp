#include "overlay/StreamMapper.h"

#include <cstdint>
#include <utility>

#include "config/parameter_controller.h"

namespace {

float ratio(int numerator, int denominator) {
    return static_cast<float>(numerator) / static_cast<float>(denominator);
}

/** length * numerator / denominator in whole numbers, so that the last pixel meets the last pixel exactly. */
int scaled(int length, int numerator, int denominator) {
    return static_cast<int>(int64_t{length} * numerator / denominator);
}

int truncated(float value) {
    return static_cast<int>(value);
}

int rounded(float value) {
    return truncated(value + 0.5F);
}

/** A coordinate of a picture that loses a margin at both ends before it is scaled. */
int extracted(int coordinate, float alpha, float margin, int inputLength, int outputLength) {
    const auto position = static_cast<float>(coordinate);
    if (position < margin) {
        return 0;
    }
    if (position >= static_cast<float>(inputLength) - margin) {
        return outputLength - 1;
    }
    return truncated(alpha * (position - margin));
}

}  // namespace

StreamMapper::StreamMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored)
    : HI(inputHeight), WI(inputWidth), HO(outHeight), WO(outWidth), isMirrored(mirrored) {}

int StreamMapper::_mapX(int x) const {
    return scaled(x, WO - 1, WI - 1);
}

int StreamMapper::mapY(int y) const {
    return scaled(y, HO - 1, HI - 1);
}

int StreamMapper::mapWidth(int w) const {
    return scaled(w, WO - 1, WI - 1);
}

int StreamMapper::mapHeight(int h) const {
    return scaled(h, HO - 1, HI - 1);
}

void StreamMapper::getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const {
    x0 = 0;
    y0 = 0;
    x1 = WI - 1;
    y1 = HI - 1;
}

void StreamMapper::getActiveOutputRectangle(int& x0, int& y0, int& x1, int& y1) const {
    x0 = 0;
    y0 = 0;
    x1 = WO - 1;
    y1 = HO - 1;
}

int StreamMapper::mapX(int x) const {
    const int mapped = _mapX(x);
    return isMirrored ? WO - mapped - 1 : mapped;
}

void StreamMapper::mapPoint(int& x, int& y) const {
    x = mapX(x);
    y = mapY(y);
}

ExtractionMapper::ExtractionMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored)
    : StreamMapper(inputHeight, inputWidth, outHeight, outWidth, mirrored) {
    const float rI = ratio(WI, HI);
    const float rO = ratio(WO, HO);
    if (rI >= rO) {
        alpha = ratio(HO - 1, HI - 1);
        epsilonX = (static_cast<float>(WI) - rO * static_cast<float>(HI)) / 2;
    } else {
        alpha = ratio(WO - 1, WI - 1);
        epsilonY = (static_cast<float>(HI) - static_cast<float>(WI) / rO) / 2;
    }
}

int ExtractionMapper::_mapX(int x) const {
    return extracted(x, alpha, epsilonX, WI, WO);
}

int ExtractionMapper::mapY(int y) const {
    return extracted(y, alpha, epsilonY, HI, HO);
}

int ExtractionMapper::mapWidth(int w) const {
    return truncated(alpha * static_cast<float>(w));
}

int ExtractionMapper::mapHeight(int h) const {
    return truncated(alpha * static_cast<float>(h));
}

void ExtractionMapper::getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const {
    x0 = rounded(epsilonX);
    y0 = rounded(epsilonY);
    x1 = rounded(static_cast<float>(WI - 1) - epsilonX);
    y1 = rounded(static_cast<float>(HI - 1) - epsilonY);
}

EmbeddingMapper::EmbeddingMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored)
    : StreamMapper(inputHeight, inputWidth, outHeight, outWidth, mirrored) {
    const float ax = ratio(WO - 1, WI - 1);
    const float ay = ratio(HO - 1, HI - 1);
    // The height of the scaled picture keeps its fraction and the width loses it: viewers' overlays rely on both.
    if (ax < ay) {
        alpha = ax;
        deltaY = (static_cast<float>(HO) - (alpha * static_cast<float>(HI - 1) + 1)) / 2;
    } else {
        alpha = ay;
        deltaX = static_cast<float>(WO - truncated(alpha * static_cast<float>(WI - 1) + 1)) / 2;
    }
}

int EmbeddingMapper::_mapX(int x) const {
    return rounded(alpha * static_cast<float>(x) + deltaX);
}

int EmbeddingMapper::mapY(int y) const {
    return rounded(alpha * static_cast<float>(y) + deltaY);
}

int EmbeddingMapper::mapWidth(int w) const {
    return truncated(alpha * static_cast<float>(w));
}

int EmbeddingMapper::mapHeight(int h) const {
    return truncated(alpha * static_cast<float>(h));
}

void EmbeddingMapper::getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const {
    StreamMapper::getActiveInputRectangle(x0, y0, x1, y1);
}

void EmbeddingMapper::getActiveOutputRectangle(int& x0, int& y0, int& x1, int& y1) const {
    x0 = mapX(0);
    y0 = mapY(0);
    x1 = mapX(WI - 1);
    y1 = mapY(HI - 1);
}

std::unique_ptr<StreamMapper> getStreamMapper(int HI, int WI, int HO, int WO, bool isRotated, bool isMirrored) {
    float rI = ratio(WI, HI);
    float rO = ratio(WO, HO);
    if (isRotated) {
        std::swap(rI, rO);
    }
    if ((rI <= rO) == g_SensorIs16x9) {
        return std::make_unique<EmbeddingMapper>(HI, WI, HO, WO, isMirrored);
    }
    return std::make_unique<ExtractionMapper>(HI, WI, HO, WO, isMirrored);
}
