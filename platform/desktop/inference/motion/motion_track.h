#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "desktop/inference/motion/motion_blobs.h"
#include "desktop/inference/motion/motion_classes.h"

namespace desktop {

/** One object over the cycles; lengths in pixels of the working picture. */
struct MotionTrack {
    explicit MotionTrack(const Blob& first, std::vector<ObjectClass> classes);

    [[nodiscard]] cv::Rect2d box() const;

    /** Where it is expected in the next picture. */
    [[nodiscard]] cv::Rect2d predictedBox() const;

    /** Whether its size is known well enough for a blob of another size to be something else as well. */
    [[nodiscard]] bool sizeKnown() const { return alone >= 3; }

    /** Whether it has come from elsewhere and rests: what stays in its place is it, and not the background. */
    [[nodiscard]] bool holdsItsPlace() const;

    /** Follows a blob that is all of it and nothing else. */
    void seeAlone(const Blob& blob, cv::Size picture);

    /** Follows its share of a blob that is others' as well: its size changes by growth only, whatever the share's. */
    void seeShare(const Blob& share, cv::Size picture, double growth = 1);

    /** Turns out to be no more than a blob: the rest was others. */
    void shrinkTo(const Blob& blob);

    /** Moves on unseen. */
    void miss();

    std::array<double, 4> edges{};  /**< left, top, right, bottom */
    std::array<double, 4> speeds{}; /**< of the edges, per cycle */
    double area = 0;                /**< of its outline, as seen alone */
    Blob blob;                      /**< as last seen */
    cv::Mat outline;                /**< normalised, as last seen */
    cv::Point2d birthplace;
    bool cameIn = false; /**< it was first seen at the picture's edge */
    ClassVote vote;
    ObjectClass objectClass = ObjectClass::Person;
    double founding = 1; /**< mean of its blobs' founding, of late */
    int seen = 0;        /**< cycles in which it was seen */
    int alone = 0;       /**< of these, those in which it was seen alone */
    int missed = 0;      /**< cycles since it was last seen */
    int ghostly = 0;     /**< cycles since its founding was last that of a thing */
    int resting = 0;     /**< cycles since it last moved */
    int crowded = 0;     /**< cycles, in a row, in which it had no room beside another */
    int oversized = 0;   /**< cycles, in a row, in which it was as large as several usually are */
    cv::Point2d restingPlace;
    cv::Point2d measuredPlace; /**< where its size was last noted */
    bool travelled = false;    /**< it has moved by its own size since it was first seen */
    bool shown = false;        /**< it has been confirmed */

private:
    void noteSeen(const Blob& part);
};

cv::Point2d centreOf(const cv::Rect2d& box);
cv::Rect2d realBox(const cv::Rect& box);

}  // namespace desktop
