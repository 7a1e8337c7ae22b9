#pragma once

#include <array>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "desktop/inference/motion/motion_blobs.h"

namespace desktop {

/** What the outline of a blob tells about its class. */
struct Shape {
    double tallness = 1;      /**< height over width */
    double solidity = 1;      /**< area over the area of the convex hull */
    double rectangular = 1;   /**< area over the area of the smallest rectangle, in any direction, around it */
    double headWidth = 1;     /**< width of the top eighth over the largest width */
    double covered = 0;       /**< its box's part of the picture's area */
    double detail = 1;        /**< how much the outline tells: 1, or less for an object of few pixels */
    bool cutAtTop = false;    /**< the picture's upper edge cuts it: its head is not seen */
    bool cutInWidth = false;  /**< the picture's left or right edge cuts it: it is wider than seen */
    bool cutInHeight = false; /**< the upper or lower edge cuts it: it is taller than seen */

    /** Whether all of it is seen. */
    [[nodiscard]] bool whole() const { return !cutInWidth && !cutInHeight; }
};

Shape describeShape(const Blob& blob, cv::Size picture);

/** The outline at a fixed small size, to compare it from cycle to cycle. */
cv::Mat normalisedOutline(const Blob& blob);

/** How much two normalised outlines differ: 0 for the same, 1 for nothing in common. */
double outlineChange(const cv::Mat& a, const cv::Mat& b);

/** Collects over an object's life what speaks for each class. */
class ClassVote {
public:
    explicit ClassVote(std::vector<ObjectClass> allowed);

    /** Adds one cycle's shape. */
    void add(const Shape& shape);

    /** Adds how much the outline changed since the cycle before, while the object moved. */
    void addOutlineChange(double change);

    /** The likeliest class so far; once decided it only changes against clear evidence. */
    ObjectClass decide();

    /** By how much the class stands out from the next best, in units of evidence; 0 or more, 10 without another. */
    [[nodiscard]] double lead() const;

    /** Whether the object was seen well enough for its class to be relied on. */
    [[nodiscard]] bool decided() const { return m_decided; }

    /** How much the outline changed from cycle to cycle while the object moved, of late; 0 without enough looks. */
    [[nodiscard]] double meanOutlineChange() const;

    /** The present mean value of the evidence for a class (a logarithm; higher is likelier), for tuning. */
    [[nodiscard]] double evidenceFor(ObjectClass objectClass) const;

private:
    std::vector<ObjectClass> m_allowed;
    std::array<double, kObjectClassCount> m_sums{};
    double m_weight = 0;
    double m_changeSum = 0;
    double m_changeWeight = 0;
    bool m_seenWhole = false;
    bool m_decided = false;
    ObjectClass m_class = ObjectClass::Person;
};

}  // namespace desktop
