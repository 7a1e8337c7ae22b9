// The shift is where the phases of the two pictures' spectra agree (Kuglin and Hines, "The phase correlation image
// alignment method", 1975): things that move and lamps that are switched on change it little. It is believed only when
// the shifted picture resembles the background clearly more than the one that came.

#include "desktop/inference/motion/motion_alignment.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace desktop {
namespace {

constexpr double kSmallestShift = 0.25;  // pixels: less does no harm, and shifting blurs
constexpr double kLargestPart = 0.06;    // of the picture's width
constexpr double kClearly = 0.9;         // part of the difference that must at most be left

/** How much two pictures differ, sampled; a difference that is everywhere the same does not count. */
double difference(const cv::Mat& a, const cv::Mat& b, int margin) {
    constexpr int kStep = 3;
    std::vector<float> differences;
    for (int y = margin; y < a.rows - margin; y += kStep) {
        const auto* one = a.ptr<float>(y);
        const auto* other = b.ptr<float>(y);
        for (int x = margin; x < a.cols - margin; x += kStep) {
            differences.push_back(one[x] - other[x]);
        }
    }
    if (differences.empty()) {
        return 0;
    }
    const auto middle = differences.begin() + static_cast<std::ptrdiff_t>(differences.size() / 2);
    std::nth_element(differences.begin(), middle, differences.end());
    const float usual = *middle;
    constexpr float kMost = 40;  // what belongs to objects says nothing about the shift
    double sum = 0;
    for (const float d : differences) {
        sum += static_cast<double>(std::min(std::abs(d - usual), kMost));
    }
    return sum / static_cast<double>(differences.size());
}

void edgesOf(const cv::Mat& picture, cv::Mat& edges) {
    cv::Mat down;
    cv::Sobel(picture, edges, CV_32F, 1, 0);
    cv::Sobel(picture, down, CV_32F, 0, 1);
    cv::magnitude(edges, down, edges);
}

}  // namespace

void MotionAlignment::align(cv::Mat& picture, const cv::Mat& background) {
    m_margin = 0;
    if (m_window.size() != picture.size()) {
        cv::createHanningWindow(m_window, picture.size(), CV_32F);
    }
    cv::extractChannel(background, m_there, 0);
    cv::extractChannel(picture, m_here, 0);
    m_here.convertTo(m_here, CV_32F);
    // edges, for lamps change them less than surfaces
    edgesOf(m_there, m_edgesThere);
    edgesOf(m_here, m_edgesHere);
    const cv::Point2d shift = cv::phaseCorrelate(m_edgesThere, m_edgesHere, m_window);
    const double size = std::max(std::abs(shift.x), std::abs(shift.y));
    if (size < kSmallestShift || size > kLargestPart * picture.cols) {
        return;
    }
    const cv::Matx23d back(1, 0, -shift.x, 0, 1, -shift.y);
    const int margin = static_cast<int>(std::ceil(size));
    cv::warpAffine(m_here, m_moved, back, picture.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    if (difference(m_there, m_moved, margin) > kClearly * difference(m_there, m_here, margin)) {
        return;
    }
    cv::warpAffine(picture, m_moved, back, picture.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    m_moved.copyTo(picture);
    m_margin = margin;
}

}  // namespace desktop
