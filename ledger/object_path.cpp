#include "ledger/object_path.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace ledger {

namespace {

constexpr double kFarthest = 0.01;   // of the picture's width and height
constexpr double kLongestOff = 500;  // milliseconds
constexpr size_t kMostWaiting = 64;
constexpr size_t kMostSwaying = 16;  // points in a row

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
    if (newest.side != (m_waiting.empty() ? m_keptSide : m_waiting.back().side)) {
        while (!m_waiting.empty()) {
            keepStraight();
        }
        keep(newest, 0);
        return;
    }
    m_waiting.push_back(newest);
    if (isStraight(m_waiting.size())) {
        m_straight = m_waiting.size();
    }
    if (m_waiting.size() > kMostWaiting || m_waiting.size() - m_straight >= kMostSwaying) {
        keepStraight();
    }
}

void ObjectPath::keep(const Sample& sample, size_t leftOut) {
    m_kept.push_back({sample.millis, sample.at, static_cast<int32_t>(leftOut)});
    m_keptSide = sample.side;
}

/** Keeps the end of the straight way, and finds how far one leads from there. */
void ObjectPath::keepStraight() {
    keep(m_waiting[m_straight - 1], m_straight - 1);
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + static_cast<std::ptrdiff_t>(m_straight));
    m_straight = m_waiting.size();
    while (m_straight > 1 && !isStraight(m_straight)) {
        --m_straight;
    }
}

/** Whether so many of the waiting points lie on the straight way to the last of these. */
bool ObjectPath::isStraight(size_t count) const {
    const PathPoint& from = m_kept.back();
    const Sample& to = m_waiting[count - 1];
    const auto leftOut = static_cast<int32_t>(count - 1);
    const double across = kFarthest * m_picture.width;
    const double down = kFarthest * m_picture.height;
    for (int32_t i = 1; i <= leftOut; ++i) {
        const Sample& sample = m_waiting[static_cast<size_t>(i - 1)];
        const t_one_locator put = pointBetween(from.at, to.at, i, leftOut);
        const double millis =
            static_cast<double>(from.millis) + static_cast<double>(to.millis - from.millis) * i / (leftOut + 1);
        if (std::abs(put.first - sample.at.first) > across || std::abs(put.second - sample.at.second) > down ||
            std::abs(millis - static_cast<double>(sample.millis)) > kLongestOff || (*m_sideOf)(put) != sample.side) {
            return false;
        }
    }
    return true;
}

std::vector<PathPoint> ObjectPath::take() {
    while (!m_waiting.empty()) {
        keepStraight();
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
