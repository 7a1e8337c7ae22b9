#pragma once

#include <string>

/** Whether the host of an address is a name, or none at all. */
bool needsLookup(const std::string& url);

/**
 * Room for one name lookup, for the time of a transfer. A lookup that a transfer gives up goes on in a thread that
 * libcurl leaves behind until the machine's resolver has given up, too; so there are only so many at a time, and those
 * left behind count for a minute. Any thread.
 */
class LookupRoom {
public:
    static constexpr int kMost = 20; /**< two for each follower */

    /** Takes room, where it is wanted. */
    explicit LookupRoom(bool wanted);
    ~LookupRoom();
    LookupRoom(const LookupRoom&) = delete;
    LookupRoom& operator=(const LookupRoom&) = delete;

    /** False when there was none. */
    bool isGiven() const { return !m_wanted || m_taken; }

    /** The lookup had not ended when its transfer did. */
    void leaveBehind();

private:
    const bool m_wanted;
    bool m_taken = false;
};
