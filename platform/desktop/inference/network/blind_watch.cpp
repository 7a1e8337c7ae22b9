#include "desktop/inference/network/blind_watch.h"

#include <opencv2/imgproc.hpp>

namespace desktop {
namespace {

constexpr int64_t kMinute = 60'000'000;
constexpr double kMuch = 0.3;  // of the cycles

}  // namespace

bool BlindWatch::moves(const cv::Mat& rgb) {
    constexpr int kContrast = 25;
    constexpr double kObject = 0.004;  // of the picture: about the smallest object that is counted
    cv::resize(rgb, m_small, {96, 54}, 0, 0, cv::INTER_AREA);
    cv::cvtColor(m_small, m_small, cv::COLOR_RGB2GRAY);
    bool changed = false;
    if (!m_before.empty()) {
        cv::Mat difference;
        cv::absdiff(m_small, m_before, difference);
        changed = cv::countNonZero(difference > kContrast) > kObject * static_cast<double>(difference.total());
    }
    m_small.copyTo(m_before);
    return changed;
}

bool BlindWatch::noticesBlindness(const cv::Mat& rgb, bool found, int64_t now) {
    if (m_told) {
        return false;
    }
    const bool moved = moves(rgb);
    if (found || m_since < 0) {
        m_since = now;
        m_cycles = 0;
        m_moving = 0;
        return false;
    }
    ++m_cycles;
    m_moving += moved ? 1 : 0;
    if (now - m_since < kMinute) {
        return false;
    }
    m_told = m_moving > kMuch * m_cycles;
    m_since = now;
    m_cycles = 0;
    m_moving = 0;
    return m_told;
}

}  // namespace desktop
