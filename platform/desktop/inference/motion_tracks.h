#pragma once

#include <array>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "model_card.h"
#include "motion_blobs.h"
#include "motion_classes.h"

namespace desktop {

/** One object over the cycles; lengths in pixels of the working picture. */
struct MotionTrack {
    explicit MotionTrack(const Blob& first, std::vector<ObjectClass> classes);

    [[nodiscard]] cv::Rect2d box() const;
    [[nodiscard]] cv::Rect2d predictedBox() const;

    std::array<double, 4> edges{};  /**< left, top, right, bottom */
    std::array<double, 4> speeds{}; /**< of the edges, per cycle */
    Blob blob;                      /**< as last seen */
    cv::Mat outline;                /**< normalised, as last seen */
    cv::Point2d birthplace;
    bool cameIn = false; /**< it was first seen at the picture's edge */
    ClassVote vote;
    ObjectClass objectClass = ObjectClass::Person;
    double founding = 1; /**< mean of its blobs' founding, of late */
    int seen = 0;        /**< cycles in which it was seen */
    int missed = 0;      /**< cycles since it was last seen */
    int ghostly = 0;     /**< cycles since its founding was last that of a thing */
    int resting = 0;     /**< cycles since it last moved */
    cv::Point2d restingPlace;
    bool shown = false; /**< it has been confirmed */
};

/** Follows blobs from cycle to cycle. */
class MotionTracks {
public:
    MotionTracks(const MotionCard& card, cv::Size picture);

    /** Matches one cycle's blobs with the tracks, starts and ends tracks. */
    void update(std::vector<Blob> blobs);

    [[nodiscard]] std::vector<MotionTrack>& tracks() { return m_tracks; }
    [[nodiscard]] const std::vector<MotionTrack>& tracks() const { return m_tracks; }

    /** Whether a box reaches the picture's edge. */
    [[nodiscard]] bool touchesEdge(const cv::Rect2d& box) const;

private:
    std::vector<Blob> splitSharedBlobs(std::vector<Blob> blobs) const;
    void see(MotionTrack& track, const Blob& blob) const;
    void miss(MotionTrack& track) const;
    void confirm(MotionTrack& track) const;

    MotionCard m_card;
    cv::Size m_picture;
    std::vector<MotionTrack> m_tracks;
};

}  // namespace desktop
