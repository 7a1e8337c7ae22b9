#include "desktop/inference/motion/motion_shares.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace desktop {
namespace {

cv::Point2d middleOf(const cv::Rect2d& box) {
    return {box.x + box.width / 2, box.y + box.height / 2};
}

double square(double value) {
    return value * value;
}

std::vector<cv::Point2d> pixelsOf(const cv::Mat& mask, const cv::Point& origin) {
    std::vector<cv::Point2d> pixels;
    for (int y = 0; y < mask.rows; ++y) {
        const auto* row = mask.ptr<unsigned char>(y);
        for (int x = 0; x < mask.cols; ++x) {
            if (row[x] != 0) {
                pixels.emplace_back(origin.x + x + 0.5, origin.y + y + 0.5);
            }
        }
    }
    return pixels;
}

/** Pixels sorted along the direction in which they reach farthest, measured in a box's size. */
void sortAlong(std::vector<cv::Point2d>& pixels, const cv::Size2d& size) {
    cv::Point2d mean;
    for (const cv::Point2d& p : pixels) {
        mean += p;
    }
    mean /= static_cast<double>(pixels.size());
    double xx = 0;
    double yy = 0;
    double xy = 0;
    for (const cv::Point2d& p : pixels) {
        const double x = (p.x - mean.x) / size.width;
        const double y = (p.y - mean.y) / size.height;
        xx += x * x;
        yy += y * y;
        xy += x * y;
    }
    const double angle = 0.5 * std::atan2(2 * xy, xx - yy);
    const double cosine = std::cos(angle) / size.width;
    const double sine = std::sin(angle) / size.height;
    std::stable_sort(pixels.begin(), pixels.end(), [&](const cv::Point2d& a, const cv::Point2d& b) {
        return a.x * cosine + a.y * sine < b.x * cosine + b.y * sine;
    });
}

}  // namespace

std::vector<Blob> shareOut(const Blob& blob, const std::vector<cv::Rect2d>& boxes) {
    constexpr double kFarthest = 0.75;  // half of the box, and some room for its growth
    std::vector<cv::Mat> masks(boxes.size());
    for (cv::Mat& mask : masks) {
        mask = cv::Mat::zeros(blob.mask.size(), CV_8U);
    }
    for (int y = 0; y < blob.mask.rows; ++y) {
        const auto* row = blob.mask.ptr<unsigned char>(y);
        for (int x = 0; x < blob.mask.cols; ++x) {
            if (row[x] == 0) {
                continue;
            }
            double nearest = kFarthest;
            size_t owner = boxes.size();
            for (size_t i = 0; i < boxes.size(); ++i) {
                const cv::Point2d middle = middleOf(boxes[i]);
                const double distance = std::max(std::abs(blob.box.x + x + 0.5 - middle.x) / boxes[i].width,
                                                 std::abs(blob.box.y + y + 0.5 - middle.y) / boxes[i].height);
                if (distance < nearest) {
                    nearest = distance;
                    owner = i;
                }
            }
            if (owner < boxes.size()) {
                masks[owner].at<unsigned char>(y, x) = 255;
            }
        }
    }
    std::vector<Blob> shares;
    for (const cv::Mat& mask : masks) {
        Blob share;
        share.founding = blob.founding;
        const cv::Rect inner = cv::boundingRect(mask);
        share.box = inner + blob.box.tl();
        share.mask = mask(inner).clone();
        share.area = cv::countNonZero(share.mask);
        shares.push_back(std::move(share));
    }
    return shares;
}

cv::Mat pixelsOutside(const Blob& blob, const std::vector<cv::Rect2d>& boxes) {
    cv::Mat outside = blob.mask.clone();
    for (const cv::Rect2d& box : boxes) {
        const cv::Rect covered(static_cast<int>(std::floor(box.x)), static_cast<int>(std::floor(box.y)),
                               static_cast<int>(std::ceil(box.width)), static_cast<int>(std::ceil(box.height)));
        const cv::Rect inside = (covered & blob.box) - blob.box.tl();
        if (inside.area() > 0) {
            outside(inside).setTo(0);
        }
    }
    return outside;
}

std::vector<cv::Rect2d> placeBoxes(const cv::Mat& mask, const cv::Point& origin, int count, const cv::Size2d& size) {
    std::vector<cv::Point2d> pixels = pixelsOf(mask, origin);
    sortAlong(pixels, size);
    const auto number = static_cast<size_t>(count);
    std::vector<cv::Point2d> middles;
    for (size_t i = 0; i < number; ++i) {
        middles.push_back(pixels[(2 * i + 1) * pixels.size() / (2 * number)]);
    }
    constexpr int kRounds = 8;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<cv::Point2d> sums(number);
        std::vector<double> counts(number);
        for (const cv::Point2d& p : pixels) {
            size_t nearest = 0;
            double least = 1e12;
            for (size_t i = 0; i < number; ++i) {
                const double distance =
                    square((p.x - middles[i].x) / size.width) + square((p.y - middles[i].y) / size.height);
                if (distance < least) {
                    least = distance;
                    nearest = i;
                }
            }
            sums[nearest] += p;
            counts[nearest] += 1;
        }
        for (size_t i = 0; i < number; ++i) {
            if (counts[i] > 0) {
                middles[i] = sums[i] / counts[i];
            }
        }
    }
    std::vector<cv::Rect2d> boxes;
    for (const cv::Point2d& middle : middles) {
        boxes.emplace_back(middle.x - size.width / 2, middle.y - size.height / 2, size.width, size.height);
    }
    return boxes;
}

}  // namespace desktop
