#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "desktop/mqtt/line_files.h"

namespace desktop {

/** A message for the broker, below the camera's prefix. */
struct LineMessage {
    std::string topic; /**< "ledger", "recent" or "live" */
    std::string payload;
    bool isRetained = false;
};

struct LineForwarderSettings {
    std::string folder;                          /**< where the files of lines are */
    std::string positionFile;                    /**< keeps what is confirmed; written beside itself, synced, renamed */
    std::vector<std::string> liveMembers;        /**< members of lines whose newest values are told to who looks on */
    int64_t batchBytes = int64_t{128} << 10;     /**< most lines of a message, but at least one line */
    int64_t windowBytes = int64_t{1} << 20;      /**< most that is under way without being confirmed */
    int64_t bytesASecond = int64_t{256} << 10;   /**< most that is sent over a time */
    int64_t resendMillis = 30000;                /**< what is not confirmed for so long is sent again */
    int64_t longestJitterMillis = 10000;         /**< most that a new connection waits: all cameras' come at once */
    int64_t liveMillis = 5000;                   /**< between two messages for who looks on */
    std::function<int64_t()> steadyMillis;       /**< a clock that goes on evenly */
    std::function<int64_t(int64_t)> random;      /**< a number from 0 to below another */
    std::function<void(const std::string&)> say; /**< told what goes wrong, a line each */
};

/**
 * Decides which lines a broker is given, and when: all in order, from behind the last that was confirmed. A broker's
 * own word moves nothing. Nothing is kept but the confirmed position: the files are the outbox. One thread; knows no
 * broker.
 */
class LineForwarder {
public:
    /** Reads the position; a file that is no position is told of, and all lines are sent again. */
    explicit LineForwarder(LineForwarderSettings settings);

    /** A connection was made: whatever was under way is not, and begins again after the jitter. */
    void connected();

    /**
     * Takes a confirmation, {"epoch":TEXT,"through":NUMBER}; another text is told of and changes nothing, nor does one
     * of an epoch while lines of the one before are not confirmed.
     */
    void confirmed(std::string_view payload);

    /** What is to be sent now, in this order. Call it about once a second, and after a confirmation. */
    std::vector<LineMessage> due();

    /** Up to where all is confirmed. */
    const LinePosition& position() const { return m_confirmed; }

private:
    struct Sent {
        LinePosition last;
        int64_t bytes;
    };

    void readPosition();
    bool mayConfirm(const LinePosition& position) const;
    void noteLive(const LineRun& run);
    void addRecent(std::vector<LineMessage>& messages);
    void addLedger(std::vector<LineMessage>& messages, int64_t now);
    void addLive(std::vector<LineMessage>& messages, int64_t now);

    const LineForwarderSettings m_settings;
    LinePosition m_confirmed;
    LineFiles m_ordered;           // what goes in order
    LineFiles m_newest;            // what was written last
    bool m_isAtNewest = false;     // m_newest has begun
    std::vector<Sent> m_underWay;  // sent and not confirmed, in order
    int64_t m_progress;            // when something was confirmed last, or sent while nothing was under way
    int64_t m_notBefore = 0;       // the end of the jitter
    int64_t m_refilled;            // when m_allowance was reckoned
    int64_t m_allowance;           // bytes that may be sent
    int64_t m_nextLive = 0;
    std::map<std::string, std::string> m_live;  // a member's newest value, as JSON
};

}  // namespace desktop
