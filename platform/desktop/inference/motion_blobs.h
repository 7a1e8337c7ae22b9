#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace desktop {

/** One connected thing in one picture, in pixels of the working picture. */
struct Blob {
    cv::Rect box;
    cv::Mat mask; /**< CV_8U of the box's size, 255 inside */
    double area = 0;
};

/** Finds the things of at least smallestArea pixels in a map of PixelEvidence, largest first. */
std::vector<Blob> findBlobs(const cv::Mat& evidence, double smallestArea);

/** One blob that covers all of the given ones, which must not be none. */
Blob joinBlobs(const std::vector<const Blob*>& parts);

/**
 * Tells whether a blob is the hole that something left in the background: its outline is seen in the background's
 * brightness (CV_32F) and not in the picture's (CV_8U).
 */
bool isGhost(const Blob& blob, const cv::Mat& brightness, const cv::Mat& expectedBrightness);

}  // namespace desktop
