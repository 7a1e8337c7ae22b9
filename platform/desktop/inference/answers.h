#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "desktop/inference/engine/model_card.h"

namespace desktop {

struct Fetched;
class SettingsInForce;
class Steadying;

/**
 * Makes the output tensors of what an engine finds: steadied, unless the card wants it as it is. Used by one thread,
 * the one that fetches the frames.
 */
class Answers {
public:
    /** Throws std::runtime_error when the package manifest cannot be read. */
    explicit Answers(const ModelCard& card);
    ~Answers();
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    /**
     * Takes what was found in the frame that this thread fetched last. Steadied answers are for a frame of up to half a
     * second before, which is noted as the one that the thread's findings are for.
     */
    ResultTensors answer(const std::vector<Detection>& found);

private:
    Fetched newestFrame() const;

    const int m_width; /**< of the tensor, for who fetches no frames */
    const int m_height;
    std::unique_ptr<SettingsInForce> m_settings; /**< null: nothing is steadied */
    std::unique_ptr<Steadying> m_steadying;
    std::deque<Fetched> m_frames; /**< that may yet be answered for, oldest first */
};

}  // namespace desktop
