#include "desktop/inference/answers.h"

#include <chrono>

#include "desktop/config/desktop_config.h"
#include "desktop/frames/last_fetched.h"
#include "desktop/inference/engine/settings_in_force.h"
#include "desktop/inference/steady/steadying.h"

namespace desktop {

Answers::Answers(const ModelCard& card) : m_width(card.tensorWidth), m_height(card.tensorHeight) {
    if (card.steady) {
        m_settings = std::make_unique<SettingsInForce>();
        m_steadying = std::make_unique<Steadying>();
    }
}

Answers::~Answers() = default;

Fetched Answers::newestFrame() const {
    Fetched frame = lastFetched();
    if (frame.width == 0) {
        frame.width = m_width;
        frame.height = m_height;
        frame.micros =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
                .count();
    }
    if (desktopConfig().liveSocket.empty()) {
        frame.picture.reset();  // nobody can watch, so that it need not be kept
    }
    return frame;
}

ResultTensors Answers::answer(const std::vector<Detection>& found) {
    if (!m_steadying) {
        return packResultTensors(found);
    }
    const Fetched frame = newestFrame();
    const bool turned = frame.rotation % 180 != 0;
    const std::vector<Detection> steadied =
        m_steadying->next(found, {frame.micros, turned ? frame.height : frame.width,
                                  turned ? frame.width : frame.height, m_settings->sensitivity()});
    m_frames.push_back(frame);
    while (m_frames.front().micros < m_steadying->answered()) {
        m_frames.pop_front();
    }
    Fetched answered = m_frames.front();
    answered.lag = frame.micros - answered.micros;
    noteFetched(std::move(answered));
    return packInOrder(steadied);
}

}  // namespace desktop
