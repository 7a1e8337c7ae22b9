// The engine for fixed cameras: background (motion_background), blobs (motion_blobs), tracks (motion_tracks) and
// classes (motion_classes), in this order once per cycle, on a picture of about 320 pixels' width.
//
// The engine knows cycles, not time: with cycles of 100 ms "absorbCycles" of 3000 are five minutes.

#include "desktop/inference/motion/motion_engine.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "desktop/inference/engine/settings_in_force.h"

namespace desktop {
namespace {

constexpr int kWorkingSide = 320;  // the longer side of the working picture
constexpr int kLongestGhost = 5;   // cycles
constexpr int kRestOfLight = 25;   // cycles after which a patch of light goes
constexpr double kLight = 0.1;

cv::Size workingSize(cv::Size picture) {
    const double factor = std::min(1.0, static_cast<double>(kWorkingSide) / std::max(picture.width, picture.height));
    return {std::max(1, static_cast<int>(std::lround(picture.width * factor))),
            std::max(1, static_cast<int>(std::lround(picture.height * factor)))};
}

/** 0.5..0.99, so that what is shown passes usual thresholds. */
float scoreOf(const MotionTrack& track) {
    const double life = std::min(1.0, track.seen / 10.0);
    const double score = 0.5 + 0.24 * life + 0.25 * std::min(1.0, track.vote.lead() / 4) - 0.05 * track.missed;
    return static_cast<float>(std::clamp(score, 0.5, 0.99));
}

}  // namespace

MotionEngine::MotionEngine(const MotionCard& card, Counted counted)
    : m_card(card), m_counted(std::move(counted)), m_background(card) {}

void MotionEngine::askForClasses() {
    constexpr int kBetween = 10;  // cycles
    if (m_counted && m_cycles++ % kBetween == 0) {
        m_tracks->setClasses(classesToExpect(m_card.classes, m_counted()));
    }
}

void MotionEngine::shrink(const cv::Mat& rgb) {
    const cv::Size size = workingSize(rgb.size());
    cv::resize(rgb, m_small, size, 0, 0, cv::INTER_AREA);
    if (!m_tracks) {
        m_tracks = std::make_unique<MotionTracks>(m_card, size);
        m_tracks->setClasses(classesToExpect(m_card.classes, {}));
    }
    cv::cvtColor(m_small, m_picture, cv::COLOR_RGB2YCrCb);
    cv::blur(m_picture, m_picture, {3, 3});
}

std::vector<Detection> MotionEngine::detect(const cv::Mat& rgb) {
    shrink(rgb);
    askForClasses();
    if (!m_background.mean().empty()) {
        m_alignment.align(m_picture, m_background.mean());
    }
    m_background.compare(m_picture, m_alignment.margin());
    std::vector<Blob> blobs = findBlobs(m_background.evidence(),
                                        m_card.smallestArea * static_cast<double>(m_small.total()), m_tracks->sizes());
    for (Blob& blob : blobs) {
        blob.founding = measureFounding(blob, m_picture, m_background.expectedPicture());
    }
    m_tracks->update(std::move(blobs));
    giveBackToBackground();
    learnAroundObjects();

    return detections(true);
}

std::vector<Detection> MotionEngine::unconfirmed() const {
    return detections(false);
}

std::vector<Detection> MotionEngine::detections(bool shown) const {
    std::vector<Detection> found;
    const auto width = static_cast<float>(m_small.cols);
    const auto height = static_cast<float>(m_small.rows);
    for (const MotionTrack& track : m_tracks->tracks()) {
        if (track.shown == shown) {
            found.push_back({static_cast<float>(track.edges[0]) / width, static_cast<float>(track.edges[1]) / height,
                             static_cast<float>(track.edges[2]) / width, static_cast<float>(track.edges[3]) / height,
                             track.objectClass, scoreOf(track)});
        }
    }
    return found;
}

void MotionEngine::giveBackToBackground() {
    for (MotionTrack& track : m_tracks->tracks()) {
        const bool ghost = track.ghostly >= kLongestGhost;
        const bool light = track.resting >= kRestOfLight && track.founding < kLight;
        if (track.missed == 0 && (ghost || light || track.resting >= m_card.absorbCycles)) {
            m_background.replace(track.blob.mask, track.blob.box);
            track.shown = false;
        }
    }
}

void MotionEngine::learnAroundObjects() {
    m_kept.create(m_small.size(), CV_8U);
    m_kept.setTo(0);
    m_held.create(m_small.size(), CV_8U);
    m_held.setTo(0);
    for (const MotionTrack& track : m_tracks->tracks()) {
        if (track.missed == 0) {
            m_kept(track.blob.box).setTo(255, track.blob.mask);
            if (track.holdsItsPlace()) {
                m_held(track.blob.box).setTo(255, track.blob.mask);
            }
        }
    }
    static const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, {7, 7});
    cv::dilate(m_kept, m_kept, element);
    cv::dilate(m_held, m_held, element);
    m_kept.setTo(MotionBackground::kLooseObject, m_kept);
    m_kept.setTo(MotionBackground::kHeldObject, m_held);
    m_background.learn(m_kept);
}

}  // namespace desktop
