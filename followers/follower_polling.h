#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <string>

#include "config/config_params.h"
#include "followers/follower_calls.h"

/**
 * Asks a leader's followers for their counts and their status, each on a schedule of its own, and adds the counts up.
 *
 * The followers of one question are asked all at once, so that silent ones hold the analysis for five seconds at most
 * per question. A follower that answers a question with anything but a number throws out of here.
 * Main-loop thread.
 */
class FollowerPolling {
public:
    /** All outlive it. config: the live record. */
    FollowerPolling(const ConfigParams& config, const MetricsParams& metrics, LeaderMetricsParams& leaderMetrics,
                    FollowerCalls& followers);

    /** Starts both schedules: the first status in 30 seconds, the first counts in 60. */
    void start(time_t now);

    /** The totals of occupancy and crowd, when they are due: every 3 seconds. */
    void query_follower_cameras();

    /** The followers' status codes, when they are due: every 60 seconds. */
    void check_follower_status();

private:
    int64_t calculate_total_follower_occupancy();
    int64_t calculate_total_follower_AOI();
    bool isAsked(size_t follower) const;

    /** When a camera last answered says nothing of one that has taken its place, nor of one that is asked no more. */
    void forgetFormerFollowers();

    const ConfigParams& m_config;
    const MetricsParams& m_metrics;
    LeaderMetricsParams& m_leaderMetrics;
    FollowerCalls& m_followers;
    /** Where each follower's last answer came from. */
    std::array<std::string, CameraInfo::kFollowers> m_answeredFrom;
    time_t m_nextStatus = 0;
    time_t m_nextQuery = 0;
};
