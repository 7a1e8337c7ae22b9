#pragma once

#include <array>
#include <cstdint>
#include <deque>

#include "desktop/inference/detections/detections.h"
#include "desktop/inference/steady/axis_filter.h"

namespace desktop {

/** A box by its centre and size, in pixels of the analysed picture. */
struct PixelBox {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double left() const { return x - width / 2; }
    double right() const { return x + width / 2; }
    double top() const { return y - height / 2; }
    double bottom() const { return y + height / 2; }
    double area() const { return width * height; }
};

/** Area that two boxes share. */
double commonArea(const PixelBox& a, const PixelBox& b);

/** What an engine found in one picture. */
struct SeenBox {
    PixelBox box;
    ObjectClass objectClass = ObjectClass::Person;
    float score = 0;
    bool confident = false; /**< its score is above the sensitivity */
};

/**
 * One object, followed from picture to picture: where it is expected, where it was seen, and, looking back, where it
 * was.
 *
 * Times are seconds on any clock that goes forward. Boxes are correct to a few hundredths of their height; how many is
 * measured as the object goes.
 */
class FollowedObject {
public:
    /** jitter: of boxes of other objects, as a fraction of the height, until it knows its own. */
    FollowedObject(int number, double now, const SeenBox& seen, double jitter);

    int number() const { return m_number; }

    /** Goes on to the next picture, in which it is not seen until see() is called. */
    void advance(double now);

    /** Where it is expected in the newest picture. */
    PixelBox expected() const;

    /**
     * Goes on from where another is, which turned out to be this one: what was seen, not what was expected in the gap,
     * decides (Cao et al.: Observation-centric SORT, CVPR 2023).
     */
    void adopt(const FollowedObject& other);

    /**
     * Whom it may be, if it is not an object of its own: the number of an older one beside which it began, -1 without
     * one; and in how many pictures both were seen, or the other alone.
     */
    int twin = -1;
    int together = 0;
    int otherAlone = 0;

    /** Where it was when it was seen last, by what was known then. */
    PixelBox newestPlace() const;

    /**
     * How likely a box of the newest picture is of this object: the density of its place per square pixel, and less
     * the more its size and class are others; 0 for one that cannot be. Most objects go on as they went; now and then
     * one stops, starts or turns (multiple models: Bar-Shalom, Li, Kirubarajan: Estimation, 2001, 11.6).
     */
    double likelihood(const SeenBox& seen) const;

    /**
     * Sum of the logarithms by which what was seen speaks for an object and against chance (Sittler: An optimal data
     * association problem in surveillance theory, IEEE Transactions on Military Electronics 8, 1964).
     */
    double trust = 0;

    /** Takes a box of the newest picture. */
    void see(const SeenBox& seen);

    double firstSeen() const { return m_first; }
    double lastSeen() const { return m_last; }
    double lastConfident() const { return m_lastConfident; }
    int timesSeen() const { return m_timesSeen; }
    int timesConfident() const { return m_timesConfident; }
    float lastScore() const { return m_lastScore; }

    /** Speed in pixels a second by what is known now. */
    double speedX() const { return newest().axes[0].speed; }
    double speedY() const { return newest().axes[1].speed; }

    /** The class that most of what was seen votes for, a new one only by a clear majority. */
    ObjectClass objectClass() const { return m_class; }

    /** Deviation of the boxes' places, as a fraction of the height. */
    double jitter() const { return m_jitter; }

    /** Where it was at a moment. */
    struct Look {
        PixelBox box;
        bool seen = false;   /**< in that picture, or in one before and one after it */
        bool later = false;  /**< it was seen after that moment */
        double nextSeen = 0; /**< when; only with later */
        PixelBox next;       /**< where; only with later */
    };

    /**
     * Looks back at a picture that it was advanced to, by all that was seen until now. After it was seen last, it is
     * where it was seen last.
     */
    Look lookBack(double moment) const;

    /** Forgets pictures before a moment, which are not asked for again. */
    void forgetBefore(double moment);

private:
    static constexpr size_t kAxes = 4;  // x, y, width, height

    struct Picture {
        double time = 0;
        bool seen = false;
        std::array<AxisState, kAxes> expected; /**< before it was looked at */
        std::array<AxisState, kAxes> axes;     /**< after */
    };

    const Picture& newest() const { return m_pictures.back(); }
    const Picture& lastLook() const;
    double reach() const;
    double placeLikelihood(const SeenBox& seen, double unrest) const;
    double turning(const SeenBox& seen) const;
    void believeTurn(double share);
    double noise(size_t axis) const;
    double unrest(size_t axis) const;
    double scale() const;
    void vote(const SeenBox& seen);

    int m_number;
    double m_first;
    double m_last;
    double m_lastConfident;
    int m_timesSeen = 1;
    int m_timesConfident;
    float m_lastScore;
    double m_jitter;
    ObjectClass m_class;
    std::array<double, kObjectClassCount> m_votes{};
    std::deque<Picture> m_pictures;
};

}  // namespace desktop
