#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "desktop/inference/steady/follower.h"
#include "desktop/inference/steady/placing.h"
#include "desktop/inference/steady/shown_object.h"

namespace desktop {

/** What is known of a picture besides what was found in it. */
struct AnalysedPicture {
    int64_t micros = 0; /**< when it was taken, on a clock that goes forward */
    int width = 0;      /**< pixels of the picture that the application analyses */
    int height = 0;
    float sensitivity = 0; /**< the setting in force: a box of a higher score is confident */
};

/**
 * Between an engine and those who track its boxes by rules of their own: follows the objects itself and hands on boxes
 * that cannot be misread. Each object is there in every picture from its first to its last, once, with one class, a
 * score above the sensitivity, and a locator (centre and middle of the bottom edge alike) that stands still while the
 * object does and never leaps.
 *
 * It answers for a picture of up to half a second ago, so that it knows what comes after: whether something is noise,
 * and where an object goes that cannot be seen for a moment. What it was never told it does not invent: whoever is out
 * of sight stands where he was seen last, and goes on only when he is seen again.
 */
class Steadying {
public:
    /** Longest time between a picture and the answer for it. */
    static constexpr int64_t kLag = 500000;

    /**
     * Takes what was found in the next picture. Returns the boxes of the picture taken at answered(), those first that
     * were there in the answer before.
     */
    std::vector<Detection> next(const std::vector<Detection>& found, const AnalysedPicture& picture);

    /** Which picture the last answer is for: when it was taken. */
    int64_t answered() const { return m_pictures.front(); }

    /** Who is followed, for tests and tuning. */
    const std::vector<FollowedObject>& followed() const { return m_follower.objects(); }

    /** What is shown and what waits to be, for tests and tuning. */
    const std::vector<ShownObject>& shown() const { return m_shown; }

private:
    Follower m_follower;
    std::vector<FollowedObject> m_gone; /**< followed no more, and not yet shown where they were seen last */
    std::deque<int64_t> m_pictures;     /**< from the one answered for to the newest */
    std::vector<ShownObject> m_shown;
    Placing m_placing;
};

}  // namespace desktop
