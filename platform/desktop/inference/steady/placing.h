#pragma once

#include <vector>

#include "desktop/inference/steady/shown_object.h"

namespace desktop {

/**
 * Chooses which objects are shown in an answer, in which place of the tensors and how far each goes, so that a filter
 * and a tracker of simple rules keep them apart.
 *
 * The filter looks at twelve places, drops what covers less than 0.5 % or more than 50 % of the picture, and of two
 * boxes of a kind that share more than 40 % of the smaller one the later. The tracker gives each object it knows the
 * nearest box of its class within 100 pixels; one that finds none takes the first place by force.
 */
class Placing {
public:
    /**
     * Moves the objects to where they are shown next; returns those shown, in the order of places. step is the time
     * since the answer before, in seconds.
     */
    std::vector<Detection> place(std::vector<ShownObject>& objects, double width, double height, float sensitivity,
                                 double step);

private:
    /** An object in the answer. */
    struct Placed {
        ShownObject* object = nullptr;
        PixelBox there;   /**< where it is shown */
        PixelBox box;     /**< as it is handed on: narrowed, perhaps */
        double least = 0; /**< width to which it can be narrowed */
    };

    /** Where one was shown last that is shown no more. */
    struct Left {
        int number = 0;
        PixelBox box;
        ObjectClass objectClass = ObjectClass::Person;
        int answers = 0; /**< since */
    };

    bool isPlaced(int number) const;
    bool isTaken(const ShownObject& newcomer) const;
    bool isMistakable(const ShownObject& object, const PixelBox& there) const;
    double room(PixelBox box, double asideX, double asideY) const;
    bool move(ShownObject& object, double pictureWidth, double pictureHeight);
    bool fits(ShownObject& object, const PixelBox& where, double width, double height);
    const PixelBox* before(const ShownObject& object) const;
    void note();

    std::vector<Placed> m_placed;
    std::vector<Left> m_left;
    std::vector<Left> m_before; /**< who was shown in the answer before */
};

}  // namespace desktop
