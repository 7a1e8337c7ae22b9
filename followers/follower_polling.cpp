#include "followers/follower_polling.h"

#include <algorithm>
#include <limits>

#include "base/clock.h"
#include "followers/follower_round.h"

namespace {

constexpr time_t kFirstStatus = 30;
constexpr time_t kFirstQuery = 60;
constexpr time_t kStatusInterval = 60;
constexpr time_t kQueryInterval = 3;

/** A total as it is shown: followers may tell any number. */
int32_t shownTotal(int64_t total) {
    return static_cast<int32_t>(std::clamp<int64_t>(total, 0, std::numeric_limits<int32_t>::max()));
}

}  // namespace

FollowerPolling::FollowerPolling(const ConfigParams& config, const MetricsParams& metrics,
                                 LeaderMetricsParams& leaderMetrics, FollowerCalls& followers)
    : m_config(config), m_metrics(metrics), m_leaderMetrics(leaderMetrics), m_followers(followers) {}

void FollowerPolling::start(time_t now) {
    m_nextStatus = now + kFirstStatus;
    m_nextQuery = now + kFirstQuery;
}

bool FollowerPolling::isAsked(size_t follower) const {
    return m_config.cameraInfo.followerActive[follower] &&
           isCameraCallable(m_leaderMetrics, static_cast<int>(follower));
}

void FollowerPolling::forgetFormerFollowers() {
    const CameraInfo& cameras = m_config.cameraInfo;
    for (size_t i = 0; i < m_answeredFrom.size(); ++i) {
        if (!cameras.followerActive[i] || cameras.followerIPAddress[i] != m_answeredFrom[i]) {
            m_leaderMetrics.followerAnswered[i] = 0;
        }
    }
}

int64_t FollowerPolling::calculate_total_follower_AOI() {
    const auto addresses = m_config.cameraInfo.followerIPAddress;
    const auto crowds =
        askFollowers([&](size_t i) { return isAsked(i); },
                     [&](size_t i) { return m_followers.get_crowd_sum_of_3_areas_from_followerip(addresses[i]); });
    int64_t sum = 0;
    for (size_t i = 0; i < crowds.size(); ++i) {
        // The -1 of a follower without answer counts like any other number.
        m_leaderMetrics.followerCrowdCount[i] = crowds[i].value_or(0);
        if (crowds[i].value_or(-1) >= 0) {
            m_leaderMetrics.followerAnswered[i] = steadyNow();
            m_answeredFrom[i] = addresses[i];
        }
        sum += crowds[i].value_or(0);
    }
    return sum;
}

int64_t FollowerPolling::calculate_total_follower_occupancy() {
    const auto occupants = askFollowers(
        [&](size_t i) { return isAsked(i); },
        [&](size_t i) { return m_followers.get_occupancy_from_followerip(m_config.cameraInfo.followerIPAddress[i]); });
    int64_t sum = 0;
    for (const std::optional<int>& occupancy : occupants) {
        sum += std::max(0, occupancy.value_or(0));
    }
    return sum;
}

void FollowerPolling::query_follower_cameras() {
    forgetFormerFollowers();
    if (clockNow() < m_nextQuery) {
        return;
    }
    const int64_t occupancy = calculate_total_follower_occupancy();
    const int64_t crowd = calculate_total_follower_AOI();
    const int64_t ownCrowd = int64_t{m_metrics.crowdCount1} + m_metrics.crowdCount2 + m_metrics.crowdCount3;
    m_leaderMetrics.totalOccupancy = shownTotal(m_metrics.occupancyCount + occupancy);
    m_leaderMetrics.totalCrowdCount = shownTotal(ownCrowd + crowd);
    m_nextQuery += kQueryInterval;
}

void FollowerPolling::check_follower_status() {
    if (clockNow() < m_nextStatus) {
        return;
    }
    const CameraInfo& cameras = m_config.cameraInfo;
    const auto statuses =
        askFollowers([&](size_t i) { return cameras.followerActive[i]; },
                     [&](size_t i) {
                         return m_followers.get_status_from_followerip(
                             cameras.followerIPAddress[i], cameras.followerLogin[i], cameras.followerPassword[i]);
                     });
    for (size_t i = 0; i < statuses.size(); ++i) {
        if (statuses[i]) {
            m_leaderMetrics.followerStatus[i] = *statuses[i];
        }
    }
    m_nextStatus += kStatusInterval;
}
