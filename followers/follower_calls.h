#pragma once

#include <string>

/**
 * What a leader asks of a follower camera, for those who know nothing of HTTP. Any thread; a call takes as long as the
 * follower does, up to its time limit. A number that is none throws std::invalid_argument or std::out_of_range.
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

    // Counts, with the credentials that are known for the address; -1 without an answer, or for an unknown address.
    virtual int get_occupancy_from_followerip(const std::string& ip) = 0;
    virtual int get_crowd_sum_of_3_areas_from_followerip(const std::string& ip) = 0;

    /** The follower's status code; 700 without an answer. */
    virtual int get_status_from_followerip(const std::string& ip, const std::string& login,
                                           const std::string& password) = 0;
};
