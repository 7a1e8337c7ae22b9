#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "desktop/inference/engine/engine.h"
#include "desktop/inference/motion/motion_alignment.h"
#include "desktop/inference/motion/motion_background.h"
#include "desktop/inference/motion/motion_tracks.h"

namespace desktop {

/** Finds what moves before a fixed camera, by background subtraction; no network. */
class MotionEngine : public Engine {
public:
    /** The classes that are counted at present. */
    using Counted = std::function<std::vector<ObjectClass>()>;

    /** counted is asked once a second or so, on the thread that calls detect; without it nothing is known of them. */
    explicit MotionEngine(const MotionCard& card, Counted counted = {});

    std::vector<Detection> detect(const cv::Mat& rgb) override;
    std::vector<Detection> unconfirmed() const override;

    /** The objects being followed, for tests and tuning. */
    [[nodiscard]] const std::vector<MotionTrack>& tracks() const { return m_tracks->tracks(); }

    /** The last picture's evidence, for tests and tuning. */
    [[nodiscard]] const cv::Mat& evidence() const { return m_background.evidence(); }

private:
    void askForClasses();
    void shrink(const cv::Mat& rgb);
    void giveBackToBackground();
    void learnAroundObjects();
    std::vector<Detection> detections(bool shown) const;

    MotionCard m_card;
    Counted m_counted;
    int m_cycles = 0;
    MotionAlignment m_alignment;
    MotionBackground m_background;
    std::unique_ptr<MotionTracks> m_tracks; /**< made for the size of the first picture */
    cv::Mat m_small;                        /**< RGB at the working size */
    cv::Mat m_picture;                      /**< Y, Cr, Cb at the working size */
    cv::Mat m_kept;                         /**< what the background does not learn */
    cv::Mat m_held;                         /**< of that, what has come and rests */
};

}  // namespace desktop
