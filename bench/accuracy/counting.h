#pragma once

#include <memory>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "walkers.h"

/** Who counts the crossings, and how good the count is. */
namespace accuracy {

/** A step over the line as it was counted. */
struct Count {
    double seconds = 0;
    bool entering = false;
    float along = 0; /**< where on the line, 0..1 */
};

/** Pixels of the picture that is analysed. */
inline constexpr int kPictureWidth = 960;
inline constexpr int kPictureHeight = 540;

/** The score above which a box counts. */
inline constexpr float kSensitivity = 0.35F;

/**
 * The application's own counting, from the tensors on: filter, tracker, areas, findings. Stands on the scripted
 * platform, of which there is one in a process, so that there is one of these at a time. The camera's folder
 * (OSTREL_SENVO_ROOT) must hold the model file.
 */
class ApplicationCount {
public:
    explicit ApplicationCount(const Scene& scene);
    ~ApplicationCount();
    ApplicationCount(const ApplicationCount&) = delete;
    ApplicationCount& operator=(const ApplicationCount&) = delete;

    /** One analysis cycle over these boxes, in this order; what it counted gets this time. */
    void cycle(const std::vector<desktop::Detection>& boxes, double seconds);

    const std::vector<Count>& counts() const { return m_counts; }

private:
    struct Parts;
    const bool m_lineUpright;
    std::unique_ptr<Parts> m_parts;
    std::vector<Count> m_counts;
};

/**
 * What a plain tracker makes of the same boxes, for comparison: a constant-velocity Kalman filter per box, matched by
 * overlap best first (Bewley et al., Simple online and realtime tracking, ICIP 2016, but greedily), three hits to
 * confirm, a second to live on without, and a line that counts each change of side.
 */
class PlainCount {
public:
    explicit PlainCount(const Scene& scene);
    ~PlainCount();
    PlainCount(const PlainCount&) = delete;
    PlainCount& operator=(const PlainCount&) = delete;

    void cycle(const std::vector<desktop::Detection>& boxes, double seconds);

    const std::vector<Count>& counts() const { return m_counts; }

private:
    struct Track;
    const bool m_lineUpright;
    const bool m_locatorAtBottom;
    const double m_step;
    std::vector<Track> m_tracks;
    std::vector<Count> m_counts;
};

struct Errors {
    int crossings = 0;
    int missed = 0;
    int invented = 0;

    Errors& operator+=(const Errors& other);
    /** Missed plus invented, per 100 crossings. */
    double perHundred() const;
};

/**
 * Matches counts to crossings of the same way, the nearest in time first, up to two seconds and a quarter of the line
 * apart. What is left is missed or invented.
 */
Errors compareCounts(const std::vector<Crossing>& crossings, const std::vector<Count>& counts);

}  // namespace accuracy
