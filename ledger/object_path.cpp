#include "object_path.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace ledger {

namespace {

constexpr double kFarthest = 0.01;   // of the picture's width and height
constexpr double kLongestOff = 500;  // milliseconds
constexpr size_t kMostWaiting = 64;

int32_t between(int32_t from, int32_t to, int64_t i, int64_t steps) {
    return static_cast<int32_t>(from + std::llround(static_cast<double>(i) * (to - from) / static_cast<double>(steps)));
}

}  // namespace

t_one_locator pointBetween(t_one_locator from, t_one_locator to, int32_t i, int32_t leftOut) {
    return {between(from.first, to.first, i, leftOut + 1), between(from.second, to.second, i, leftOut + 1)};
}

void ObjectPath::add(t_one_locator at, int64_t millis) {
    if (m_kept.empty()) {
        m_begin = millis;
        keep({0, at, (*m_sideOf)(at)}, 0);
        return;
    }
    m_newestMillis = std::max(m_newestMillis, millis - m_begin);
    const Sample newest = {m_newestMillis, at, (*m_sideOf)(at)};
    const int sideBefore = m_waiting.empty() ? m_keptSide : m_waiting.back().side;
    if (!m_waiting.empty() && (newest.side != sideBefore || !isStraightTo(newest))) {
        keep(m_waiting.back(), m_waiting.size() - 1);
    }
    if (newest.side != m_keptSide && m_waiting.empty()) {
        keep(newest, 0);
        return;
    }
    m_waiting.push_back(newest);
    if (m_waiting.size() > kMostWaiting) {
        keep(newest, m_waiting.size() - 1);
    }
}

void ObjectPath::keep(const Sample& sample, size_t leftOut) {
    m_kept.push_back({sample.millis, sample.at, static_cast<int32_t>(leftOut)});
    m_keptSide = sample.side;
    m_waiting.clear();
}

bool ObjectPath::isStraightTo(const Sample& newest) const {
    const PathPoint& from = m_kept.back();
    const auto leftOut = static_cast<int32_t>(m_waiting.size());
    const double across = kFarthest * m_picture.width;
    const double down = kFarthest * m_picture.height;
    for (int32_t i = 1; i <= leftOut; ++i) {
        const Sample& sample = m_waiting[static_cast<size_t>(i - 1)];
        const t_one_locator put = pointBetween(from.at, newest.at, i, leftOut);
        const double millis =
            static_cast<double>(from.millis) + static_cast<double>(newest.millis - from.millis) * i / (leftOut + 1);
        if (std::abs(put.first - sample.at.first) > across || std::abs(put.second - sample.at.second) > down ||
            std::abs(millis - static_cast<double>(sample.millis)) > kLongestOff || (*m_sideOf)(put) != sample.side) {
            return false;
        }
    }
    return true;
}

std::vector<PathPoint> ObjectPath::take() {
    if (!m_waiting.empty()) {
        keep(m_waiting.back(), m_waiting.size() - 1);
    }
    std::vector<PathPoint> path = std::move(m_kept);
    m_kept.clear();
    if (!path.empty()) {
        m_kept.push_back({0, path.back().at, 0});
        m_begin += m_newestMillis;
        m_newestMillis = 0;
    }
    return path;
}

}  // namespace ledger
