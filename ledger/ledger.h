#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "ledger/disk.h"
#include "ledger/ledger_file.h"
#include "ledger/line.h"

namespace ledger {

/** What a ledger needs to know of the machine it is on. */
struct LedgerOptions {
    int64_t mostBytes = int64_t{32} << 20;  /**< all files together; the oldest days go first */
    std::function<Moment()> now;            /**< when a line is; called for each */
    std::function<std::string()> makeEpoch; /**< a random name for a new ledger */
};

/** Where a ledger ends. */
struct Position {
    std::string epoch; /**< empty before the first line */
    int64_t seq = 0;   /**< of the last line; 0 before the first */
};

/**
 * An append-only record in numbered lines, a file a UTC day.
 *
 * append writes in the caller's thread, so that a killed process loses nothing, and leaves the rest to keep, which a
 * thread of its own calls from time to time: a power cut loses what came after the last keep. What a full disk refuses
 * waits in memory, up to a limit, for the next append or keep.
 *
 * All operations from any thread, but keep and open from one at a time. No lock is held across a sync.
 */
class Ledger {
public:
    /** disk: outlives the ledger. Nothing is read before open. */
    Ledger(Disk& disk, LedgerOptions options);

    /**
     * Mends what a kill or a power cut left and finds where the ledger ends. Good lines stay; where some before them
     * are gone, lines "cut" say so. Returns what was dropped, in words, for the log; empty when all was well.
     */
    std::string open() EXCLUDES(m_mutex);

    /**
     * Adds a line. False, with errno set, when the disk refused it: it waits then, and the oldest that wait are dropped
     * beyond 1 MiB. body: the kind's own members, no more than kLongestLine has room for.
     */
    bool append(const std::string& kind, const nlohmann::ordered_json& body) EXCLUDES(m_mutex);

    /**
     * Syncs what was appended, writes what waited, and removes the oldest lines beyond the size. False, with errno set,
     * when a step failed; the next call takes it up again. Where somebody removed all files, with lines that were
     * written since, a new ledger begins with the next line.
     */
    bool keep() EXCLUDES(m_mutex);

    /** Leaves so many bytes of the size to others: the small files of the index. From the next keep on. */
    void leaveRoom(int64_t bytes) EXCLUDES(m_mutex);

    /** Where it ends. */
    [[nodiscard]] Position end() const EXCLUDES(m_mutex);

    /** The last line that a power cut would leave. */
    [[nodiscard]] int64_t safeSeq() const EXCLUDES(m_mutex);

    /** Lines that were dropped because the disk stayed full; since the start. */
    [[nodiscard]] int64_t droppedLines() const EXCLUDES(m_mutex);

    /** The files in order, as they are at this moment. */
    [[nodiscard]] std::vector<LedgerFile> files() const EXCLUDES(m_mutex);

    /**
     * The lines from a number on, ends included, as many whole ones as fit into so many bytes, at least one; empty
     * behind the end. through: the last line that may be among them. What is no line is left out, and so is what cannot
     * be read of a file; the names of such files are added to unread.
     */
    [[nodiscard]] std::string lines(int64_t fromSeq, int64_t through, int64_t mostBytes,
                                    std::set<std::string>* unread = nullptr) const EXCLUDES(m_mutex);

    /** The files that could not be read at a start and were set aside: their lines are nowhere else. */
    [[nodiscard]] std::vector<LedgerFile> setAside() const { return filesSetAside(m_disk); }

private:
    struct Waiting {
        Moment moment;
        std::string kind;
        std::string body;
    };

    bool write(const Waiting& line) REQUIRES(m_mutex);
    bool writeWaiting() REQUIRES(m_mutex);
    LedgerFile& fileFor(const Moment& moment) REQUIRES(m_mutex);
    /** What a start had to mend. */
    struct Mending {
        std::string dropped;     /**< in words */
        bool isSetAside = false; /**< a file that cannot be read: its numbers may come once more */
        std::vector<Gap> gaps;
        std::set<std::string> damaged; /**< files with something between good lines that is none */
    };

    std::optional<LineHead> mendEnd(std::vector<LedgerFile>& found, Mending& mending);
    void tellGaps(const Mending& mending) EXCLUDES(m_mutex);
    bool syncGaps() EXCLUDES(m_mutex);
    void noticeWiping() REQUIRES(m_mutex);
    bool sync() EXCLUDES(m_mutex);
    bool growUp(const LedgerFile& young) EXCLUDES(m_mutex);
    bool retain() EXCLUDES(m_mutex);
    bool dropAside(int64_t mostBytes) EXCLUDES(m_mutex);
    bool dropObjects(const LedgerFile& file) EXCLUDES(m_mutex);
    bool dropFile(const LedgerFile& file) EXCLUDES(m_mutex);
    /** What retention removes: lines of a kind, or all, between two numbers. */
    struct Cut {
        std::string removed;
        int64_t from = 0;
        int64_t through = 0;
        int64_t lines = 0; /**< of that kind between them */

        bool operator==(const Cut&) const = default;
    };

    [[nodiscard]] Waiting lineOf(const Cut& cut) const;
    bool announce(const Cut& cut) EXCLUDES(m_mutex);
    LedgerFile* known(const std::string& name) REQUIRES(m_mutex);

    Disk& m_disk;
    const LedgerOptions m_options;
    mutable Mutex m_mutex; /**< guards what follows; held while a line is written, never while one is synced */
    std::string m_epoch GUARDED_BY(m_mutex);
    int64_t m_lastSeq GUARDED_BY(m_mutex) = 0;
    int64_t m_safeSeq GUARDED_BY(m_mutex) = 0;
    int64_t m_keptSeq GUARDED_BY(m_mutex) = 0; /**< the last line at the last keep or open */
    std::vector<LedgerFile> m_files GUARDED_BY(m_mutex);
    Cut m_announced GUARDED_BY(m_mutex);                  /**< the last cut that has its line */
    std::map<std::string, int64_t> m_aside;               /**< the sizes of files set aside; open's and keep's alone */
    std::deque<Gap> m_gaps GUARDED_BY(m_mutex);           /**< found at the start, not told yet */
    std::set<std::string> m_gapFiles GUARDED_BY(m_mutex); /**< that tell of some, and are not safe yet */
    std::deque<Waiting> m_waiting GUARDED_BY(m_mutex);    /**< refused by the disk, oldest first */
    size_t m_waitingBytes GUARDED_BY(m_mutex) = 0;
    int64_t m_dropped GUARDED_BY(m_mutex) = 0;
    int64_t m_room GUARDED_BY(m_mutex) = 0; /**< left to others, bytes */
};

}  // namespace ledger
