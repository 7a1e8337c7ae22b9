#pragma once

#include "desktop/inference/steady/followed_object.h"

namespace desktop {

/**
 * What is shown of an object: a path without leaps along the one it went. It waits where it cannot be shown, stands
 * where the object was seen last, rests while the object does, and catches up afterwards.
 */
class ShownObject {
public:
    explicit ShownObject(int of) : number(of) {}

    int number; /**< the followed object's */
    ObjectClass objectClass = ObjectClass::Person;
    float score = 0;
    bool begun = false;     /**< it has a place */
    bool visible = false;   /**< it was in the answer before */
    bool shownOnce = false; /**< it was visible already */
    double hidden = 0;      /**< seconds for which it has not been visible */
    bool ended = false;     /**< the object is followed no more; it goes to where that was seen last and ends */
    double over = 0;        /**< seconds since */
    PixelBox box;           /**< where it is shown, or was last, but for the step aside */
    double asideX = 0;      /**< pixels that it stands beside its way, to let others pass */
    double asideY = 0;
    double speedX = 0; /**< of the object, in pixels a second */
    double speedY = 0;
    PixelBox wanted; /**< where it would go next */

    /** Works out where it would go in the answer for a moment. step is the time since the answer before, in seconds. */
    void aim(const FollowedObject& object, double moment, double step);

    /** The same for an object that has ended. */
    void aimAtEnd(double step);

    /** Whether it stands still for a while. */
    bool isResting() const { return m_resting; }

    /** Whether there is anything left to show. */
    bool hasArrived() const;

private:
    void rest(double moment, double jitter);
    void approach(PixelBox target, double most);

    PixelBox m_target;
    bool m_stood = false; /**< it stands in a gap */
    bool m_resting = false;
    PixelBox m_anchor;     /**< where it has been for a while */
    double m_anchored = 0; /**< since when */
};

}  // namespace desktop
