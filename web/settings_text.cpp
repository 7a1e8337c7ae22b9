#include "web/settings_text.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace settings_text {
namespace {

constexpr int64_t kMillionths = 1000000;
constexpr int32_t kMillisecondsPerSecond = 1000;

std::string sixDecimals(int64_t millionths) {
    const int64_t magnitude = std::abs(millionths);
    const std::string digits = std::to_string(magnitude % kMillionths);
    return (millionths < 0 ? "-" : "") + std::to_string(magnitude / kMillionths) + "." +
           std::string(6 - digits.size(), '0') + digits;
}

int32_t cutProduct(const std::string& text, int32_t factor) {
    const float product = std::stof(text) * static_cast<float>(factor);
    constexpr float kLimit = 2147483648.0F;
    if (!(product > -kLimit && product < kLimit)) {
        throw std::out_of_range("expected a number whose " + std::to_string(factor) + "-fold fits 32 bits, got " +
                                text);
    }
    return static_cast<int32_t>(product);
}

/** The fraction wanted/factor, rounded away from zero, one step further where a float would fall short of it. */
std::string fraction(int32_t wanted, int32_t factor) {
    const int64_t rounded = (std::abs(int64_t{wanted}) * kMillionths + factor - 1) / factor;
    const int64_t millionths = wanted < 0 ? -rounded : rounded;
    const std::string text = sixDecimals(millionths);
    return cutProduct(text, factor) == wanted ? text : sixDecimals(millionths + (wanted < 0 ? -1 : 1));
}

}  // namespace

std::string coordinate(int32_t pixel, int32_t size) {
    return size > 0 ? fraction(pixel, size) : sixDecimals(0);
}

int32_t pixel(const std::string& text, int32_t size) {
    return cutProduct(text, size);
}

std::string seconds(int32_t cycles, int32_t period) {
    const int32_t perSecond = period > 0 ? kMillisecondsPerSecond / period : 0;
    if (perSecond == 0) {
        return "0";
    }
    return cycles % perSecond == 0 ? std::to_string(cycles / perSecond) : fraction(cycles, perSecond);
}

int32_t cycles(const std::string& text, int32_t period) {
    if (period == 0) {
        throw std::domain_error("expected an analysis period other than 0 ms to turn seconds into cycles");
    }
    return cutProduct(text, kMillisecondsPerSecond / period);
}

}  // namespace settings_text
