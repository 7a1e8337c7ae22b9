#pragma once

#include <opencv2/core/types.hpp>
#include <vector>

#include "desktop/inference/motion/motion_blobs.h"

namespace desktop {

/**
 * Deals a blob's pixels out to boxes: each pixel goes to the box to whose middle it is closest, measured in the box's
 * own sizes. Pixels far from every box go to none. The shares come in the boxes' order; one may be empty (area 0).
 */
std::vector<Blob> shareOut(const Blob& blob, const std::vector<cv::Rect2d>& boxes);

/** The pixels of a blob that lie in none of the boxes. */
cv::Mat pixelsOutside(const Blob& blob, const std::vector<cv::Rect2d>& boxes);

/**
 * Finds count boxes of one size that share a mask's pixels among them (k-means, begun along the mask's longest
 * direction). origin is where the mask lies in the picture. The mask must have at least count pixels.
 */
std::vector<cv::Rect2d> placeBoxes(const cv::Mat& mask, const cv::Point& origin, int count, const cv::Size2d& size);

}  // namespace desktop
