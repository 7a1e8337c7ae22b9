#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "desktop/inference/motion/motion_sizes.h"

namespace desktop {

/** One connected thing in one picture, in pixels of the working picture. */
struct Blob {
    cv::Rect box;
    cv::Mat mask; /**< CV_8U of the box's size, 255 inside */
    double area = 0;

    /**
     * Where its outline is to be seen: about 1 for a thing, whose outline is in the picture and not in the background;
     * about -1 for a ghost, the hole that something left in the background; about 0 for a patch of light.
     */
    double founding = 1;
};

/** Finds the things of at least smallestArea pixels in a map of PixelEvidence, largest first. */
std::vector<Blob> findBlobs(const cv::Mat& evidence, double smallestArea, const MotionSizes& sizes);

/**
 * Whether two fragments can be parts of one object: two that are both as large as things (pixels), and alike in size,
 * are two. What is usual at the place (null: nothing is known) bounds what they may become.
 */
bool mayBeOne(const Blob& a, const Blob& b, const UsualSize* usual, double thing);

/** One blob that covers all of the given ones, which must not be none. */
Blob joinBlobs(const std::vector<const Blob*>& parts);

/** Measures a blob's founding by the picture (CV_8UC3) and the background expected behind it (CV_32FC3). */
double measureFounding(const Blob& blob, const cv::Mat& picture, const cv::Mat& expectedPicture);

}  // namespace desktop
