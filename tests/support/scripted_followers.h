#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "followers/follower_calls.h"

/** Followers in memory: each address answers with its text; an address without one does not answer. */
class ScriptedFollowers : public FollowerCalls {
public:
    std::map<std::string, std::string> answers;

    std::string follower_flush(const std::string& ip, const std::string& login, const std::string& password) override {
        return ask("flush " + ip + " " + login + " " + password, ip);
    }
    bool reset_occupancy_of_followerip(const std::string& ip, const std::string& login,
                                       const std::string& password) override {
        return !ask("reset " + ip + " " + login + " " + password, ip).empty();
    }
    int get_occupancy_from_followerip(const std::string&) override { return -1; }
    int get_crowd_sum_of_3_areas_from_followerip(const std::string&) override { return -1; }
    int get_status_from_followerip(const std::string&, const std::string&, const std::string&) override { return 700; }

    /** What was asked since the last call, "flush ADDRESS LOGIN PASSWORD", sorted: all are asked at once. */
    std::multiset<std::string> asked() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_asked, {});
    }

private:
    std::string ask(const std::string& call, const std::string& ip) {
        const std::lock_guard lock(m_mutex);
        m_asked.insert(call);
        const auto known = answers.find(ip);
        return known == answers.end() ? "" : known->second;
    }

    std::mutex m_mutex; /**< guards m_asked */
    std::multiset<std::string> m_asked;
};
