#pragma once

#include <cmath>
#include <opencv2/imgproc.hpp>

/** Tiny drawn pictures of 960x540 for the engine that sees motion. */
namespace desktop {

/** A paved ground with some texture, the same in every call. */
inline cv::Mat pavement() {
    cv::Mat picture(540, 960, CV_8UC3, cv::Scalar(120, 118, 115));
    for (int x = -300; x < 960; x += 90) {
        cv::line(picture, {x, 0}, {x + 200, 540}, cv::Scalar(96, 97, 95), 4);
    }
    for (int y = 30; y < 540; y += 110) {
        cv::line(picture, {0, y}, {960, y}, cv::Scalar(100, 100, 98), 4);
    }
    cv::rectangle(picture, {0, 0}, {960, 40}, cv::Scalar(190, 190, 185), cv::FILLED);
    return picture;
}

/** A person of 60x150 pixels; step moves the legs. */
inline void drawWalker(cv::Mat& picture, int left, int top, int step, const cv::Scalar& coat = {40, 45, 50}) {
    const int swing = static_cast<int>(std::lround(18 * std::sin(step * 0.9)));
    cv::circle(picture, {left + 30, top + 14}, 14, cv::Scalar(60, 40, 30), cv::FILLED);
    cv::rectangle(picture, cv::Rect(left + 6, top + 28, 48, 62), coat, cv::FILLED);
    cv::line(picture, {left + 26, top + 88}, {left + 26 - swing, top + 148}, coat, 16);
    cv::line(picture, {left + 34, top + 88}, {left + 34 + swing, top + 148}, coat, 16);
}

/** A person of about 90x80 pixels seen from above. */
inline void drawWalkerFromAbove(cv::Mat& picture, int left, int top, int step) {
    const int swing = static_cast<int>(std::lround(20 * std::sin(step * 0.9)));
    cv::line(picture, {left + 32, top + 40}, {left + 32, top + 40 + swing}, cv::Scalar(30, 30, 60), 18);
    cv::line(picture, {left + 58, top + 40}, {left + 58, top + 40 - swing}, cv::Scalar(30, 30, 60), 18);
    cv::ellipse(picture, {left + 45, top + 40}, {44, 22}, 0, 0, 360, cv::Scalar(170, 40, 40), cv::FILLED);
    cv::circle(picture, {left + 45, top + 38}, 15, cv::Scalar(40, 30, 25), cv::FILLED);
}

/** A car of 110x90 pixels, seen from ahead, with a window. */
inline void drawOncomingCar(cv::Mat& picture, int left, int top, const cv::Scalar& colour) {
    cv::rectangle(picture, cv::Rect(left, top, 110, 90), colour, cv::FILLED);
    cv::rectangle(picture, cv::Rect(left + 20, top + 10, 70, 30), cv::Scalar(60, 70, 80), cv::FILLED);
}

}  // namespace desktop
