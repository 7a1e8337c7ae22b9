#pragma once

#include <opencv2/core/mat.hpp>

namespace desktop {

/** Moves pictures of a camera that shakes to where its background lies. */
class MotionAlignment {
public:
    /**
     * Shifts picture (CV_8UC3: Y, Cr, Cb) so that it lies as background (CV_32FC3, of the same size) does; leaves it
     * alone where no shift makes it more like the background. Its rim is filled with its nearest pixels.
     */
    void align(cv::Mat& picture, const cv::Mat& background);

    /** Pixels at each edge of the last picture that it does not show since it was shifted. */
    [[nodiscard]] int margin() const { return m_margin; }

private:
    cv::Mat m_window;
    cv::Mat m_there;
    cv::Mat m_here;
    cv::Mat m_edgesThere; /**< overwritten by the correlation */
    cv::Mat m_edgesHere;
    cv::Mat m_moved;
    int m_margin = 0;
};

}  // namespace desktop
