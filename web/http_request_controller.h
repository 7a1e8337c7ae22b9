#pragma once

#include <chrono>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "base/mutex.h"
#include "followers/follower_calls.h"

/** The address of an action on a follower. The follower's address is used as it was written in the settings. */
std::string makeRequest(const std::string& ip, const std::string& action);

/**
 * Fetches an address with HTTP digest authentication and returns the body of the answer; empty when there is none,
 * when the HTTP status is an error, or when the body has the word "error" in it.
 *
 * Takes 5 seconds at most, and none while a lookup of the host's name hangs. Only http and https, redirects are not
 * followed, an answer above 1 MiB is none, and so is one that asks to log in again and again. Cookies that are set are
 * kept in "cookie.txt" in the working folder. Any thread.
 */
std::string send_request_text(const std::string& url, const std::string& login, const std::string& password);

/** What came of a request to a follower. */
struct FollowerReply {
    bool isFound = false;    /**< its name has an address, or is one */
    int status = 0;          /**< the HTTP status; 0 when nothing answered */
    bool isComplete = false; /**< a good answer came, to its end */
    std::string role;        /**< what the login may do there, where the follower's web server says so */
    std::string body;
};

/** Makes the request that send_request_text makes, within such a time, and tells how it went. Any thread. */
FollowerReply askFollower(const std::string& url, const std::string& login, const std::string& password,
                          std::chrono::microseconds limit);

/** For libcurl: appends size * count bytes to the std::string userData and returns their number. */
size_t WriteCallback(const char* data, size_t size, size_t count, void* userData);

/**
 * A leader's HTTP client: asks its followers, which run this same application, for their counts, and tells them to
 * reset.
 *
 * Numbers are read with std::stoi; an answer that is not empty and no number throws std::invalid_argument or
 * std::out_of_range, saying who was asked for what. Any thread.
 */
class http_request_controller : public FollowerCalls {
public:
    static constexpr int kNoCount = -1;
    static constexpr int kNoConnection = 700;

    http_request_controller();
    ~http_request_controller() override;

    void init(const std::string& appName) EXCLUDES(m_mutex);

    /** Keeps the credentials for an address, instead of those it had. */
    void set_followerip(const std::string& ip, const std::string& login, const std::string& password) EXCLUDES(m_mutex);

    /** Forgets an address; logs an error for one that is not known. */
    void remove_followerip(const std::string& ip) EXCLUDES(m_mutex);

    // Counts, with the credentials that were set for the address; -1 without an answer, or for an unknown address.
    int get_occupancy_from_followerip(const std::string& ip) override;
    int get_crowd_sum_of_3_areas_from_followerip(const std::string& ip) override;
    /** area is 1..3; -1 for any other. */
    int get_crowd_per_area_from_followerip(const std::string& ip, int area);

    /** The follower's status code; 700 without an answer. */
    int get_status_from_followerip(const std::string& ip, const std::string& login,
                                   const std::string& password) override;

    bool reset_occupancy_of_followerip(const std::string& ip, const std::string& login,
                                       const std::string& password) override;
    std::string follower_flush(const std::string& ip, const std::string& login, const std::string& password) override;

private:
    int askCount(const std::string& ip, const char* action) EXCLUDES(m_mutex);

    Mutex m_mutex; /**< guards what is known of the followers; never held while one is asked */
    std::string m_AppName GUARDED_BY(m_mutex);
    /** Credentials by address: an object, which this header need not know. */
    const std::unique_ptr<nlohmann::json> m_FollowerIPs GUARDED_BY(m_mutex);
};
