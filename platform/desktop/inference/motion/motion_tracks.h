#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "desktop/inference/engine/model_card.h"
#include "desktop/inference/motion/motion_sizes.h"
#include "desktop/inference/motion/motion_track.h"

namespace desktop {

/** Follows blobs from cycle to cycle. */
class MotionTracks {
public:
    MotionTracks(const MotionCard& card, cv::Size picture);

    /** Says what may appear from now on; not empty. Objects that are being followed are judged anew. */
    void setClasses(const std::vector<ObjectClass>& classes);

    /** Matches one cycle's blobs with the tracks, starts and ends tracks. */
    void update(std::vector<Blob> blobs);

    [[nodiscard]] std::vector<MotionTrack>& tracks() { return m_tracks; }
    [[nodiscard]] const std::vector<MotionTrack>& tracks() const { return m_tracks; }

    /** What has been learned of sizes, for finding what belongs together. */
    [[nodiscard]] const MotionSizes& sizes() const { return m_sizes; }

    /** Whether a box reaches the picture's edge. */
    [[nodiscard]] bool touchesEdge(const cv::Rect2d& box) const;

private:
    using Homes = std::vector<std::vector<size_t>>; /**< the tracks at home in each blob */

    [[nodiscard]] Homes findHomes(const std::vector<Blob>& blobs) const;
    void adoptFragments(std::vector<Blob>& blobs, Homes& homes) const;
    [[nodiscard]] std::vector<size_t> findParents(const std::vector<Blob>& blobs, const Homes& homes);
    void dropTwins(const Blob& blob, std::vector<size_t>& homed);
    void follow(const Blob& blob, std::vector<size_t> homed);
    void start(const Blob& blob);
    void startPiece(const Blob& blob, size_t parent);
    void followSharing(const Blob& blob, const std::vector<size_t>& homed, const std::vector<cv::Rect2d>& newcomers);
    [[nodiscard]] std::vector<cv::Rect2d> newcomersIn(const Blob& blob, const std::vector<size_t>& homed) const;
    [[nodiscard]] std::vector<cv::Rect2d> severalIn(const Blob& blob) const;
    [[nodiscard]] bool isUsual(const Blob& blob) const;
    [[nodiscard]] double growthOf(const MotionTrack& track) const;
    void keepOldest(const Blob& blob, std::vector<size_t>& homed);
    void followOversized(const Blob& blob, size_t track);
    [[nodiscard]] bool mayBeSeveral(const Blob& blob) const;
    void add(const Blob& blob);
    void noteSize(MotionTrack& track);
    void confirm(MotionTrack& track) const;
    [[nodiscard]] bool clings(const MotionTrack& track) const;
    void end();

    double m_smallest; /**< pixels of the smallest thing */
    cv::Size m_picture;
    std::vector<ObjectClass> m_classes;
    bool m_oneKind = true;   /**< only people, or only vehicles, may appear */
    bool m_vehicles = false; /**< vehicles may appear */
    std::vector<MotionTrack> m_tracks;
    MotionSizes m_sizes;
};

}  // namespace desktop
