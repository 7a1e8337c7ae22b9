#pragma once

#include <string>

/**
 * What a leader asks of a follower camera beyond its counts, for those who know nothing of HTTP. Any thread; a call
 * takes as long as the follower does, up to its time limit.
 */
class FollowerCalls {
public:
    virtual ~FollowerCalls() = default;

    /** The follower's statistics since it was last asked, as text; empty when it does not answer. */
    virtual std::string follower_flush(const std::string& ip, const std::string& login,
                                       const std::string& password) = 0;

    /** Sets the follower's occupancy to nobody; false when it does not answer. */
    virtual bool reset_occupancy_of_followerip(const std::string& ip, const std::string& login,
                                               const std::string& password) = 0;
};
