#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace desktop {

/** Notices a network that sees nothing in a picture in which something moves: its preprocessing may be wrong. */
class BlindWatch {
public:
    /**
     * Takes note of one cycle: its picture (8-bit RGB, always of one size), whether anything was found in it, and its
     * time in microseconds. True once: when for a minute nothing was found though much of the time the picture moved.
     */
    bool noticesBlindness(const cv::Mat& rgb, bool found, int64_t now);

private:
    bool moves(const cv::Mat& rgb);

    cv::Mat m_small;
    cv::Mat m_before;
    int64_t m_since = -1; /**< when the watch began, or something was last found */
    int m_cycles = 0;     /**< since then */
    int m_moving = 0;     /**< of these, those in which the picture moved */
    bool m_told = false;
};

}  // namespace desktop
