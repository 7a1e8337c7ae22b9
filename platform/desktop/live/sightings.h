#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "base/mutex.h"
#include "desktop/frames/last_fetched.h"

namespace desktop {

/** What has to be covered on a picture: a box, and how much further on every side, in longer sides of the box. */
struct Mask {
    FoundBox box;
    double reach = 0.0;
};

/**
 * Where objects were found on the frames that were analysed, one after another, and what follows from that for the
 * frames between. An object is in the picture before it is found for the first time, and often stays after it was found
 * for the last time; meanwhile it cannot be farther away than it goes, or walks. So a picture is shown only when the
 * analysis has looked at what came behind it, and is covered where somebody is about to be found, and where somebody
 * was lost. Thread-safe.
 */
class Sightings {
public:
    /** Notes a frame that was analysed, and what was found on it. One that is not younger than the last is known. */
    void add(const Fetched& frame);

    /**
     * Whether enough frames behind the one of this time were looked at: three, one of them a
     * second younger, and one more, which tells how fast those go who were found only then.
     */
    bool isSettled(int64_t micros) const;

    /** What covers the frame of this time, beside what was found on it. */
    std::vector<Mask> around(int64_t micros) const;

private:
    struct Sighting {
        int64_t micros = 0; /**< of the frame, see Fetched */
        double ratio = 1;   /**< of its width, once it is turned, to its height */
        FoundBoxes found;
    };

    mutable Mutex m_mutex;  // guards what follows
    std::deque<Sighting> m_sightings GUARDED_BY(m_mutex);
};

}  // namespace desktop
