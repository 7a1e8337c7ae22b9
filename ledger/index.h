#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "ledger/ledger.h"

namespace ledger {

/** What is counted: which way through which entrance, by which class. */
struct CountKey {
    int entrance = 1; /**< 1..3 */
    bool isIn = true;
    int classId = 0; /**< 0..8 */

    auto operator<=>(const CountKey&) const = default;  // NOLINT(modernize-use-nullptr): a comparison with 0
};

/** A quarter of an hour of UTC: what crossed and how much was watched. */
struct Quarter {
    std::map<CountKey, int64_t> crossings;
    int64_t watchedMillis = 0;
};

inline constexpr int64_t kQuarterMillis = int64_t{15} * 60 * 1000;

/** Quarters by their number since 1970. */
using Quarters = std::map<int64_t, Quarter>;

/**
 * The ledger's crossings and watched minutes by the quarter of an hour, which is what every time zone's hours and days
 * are made of. What closed files hold is kept in a small file beside each, so that a start reads the newest lines only;
 * it is made again from the lines where the small file does not fit.
 *
 * Any thread.
 */
class Index {
public:
    /** disk, book: outlive the index. */
    Index(Disk& disk, const Ledger& book) : m_disk(disk), m_book(book) {}

    /** Reads what the ledger holds and the index does not yet, up to about so many bytes; true when nothing is left. */
    bool update(int64_t mostBytes) EXCLUDES(m_updating, m_mutex);

    /** The same, but false at once while another thread reads, which may take as long as a slow disk does. */
    bool updateUnlessBusy(int64_t mostBytes) EXCLUDES(m_updating, m_mutex);

    /** Writes the small files that are missing and removes those of files that are gone. */
    void save() EXCLUDES(m_updating, m_mutex);

    /** The quarters from..before, numbers since 1970, as far as update has come. */
    [[nodiscard]] Quarters quarters(int64_t from, int64_t before) const EXCLUDES(m_mutex);

    /**
     * The UTC of the earliest line that begins a file and tells it, in milliseconds; nothing while there is none. What
     * was dated by a clock that nobody had set does not count.
     */
    [[nodiscard]] std::optional<int64_t> begin() const EXCLUDES(m_mutex);

    /** The ledger's files that could not be read to the end when that was last tried; what they hold is not counted. */
    [[nodiscard]] std::vector<LedgerFile> unreadable() const EXCLUDES(m_mutex);

    /** What the small files take together, in bytes. */
    [[nodiscard]] int64_t savedBytes() const EXCLUDES(m_mutex);

private:
    /** What one file holds. */
    struct Part {
        int64_t bytes = 0; /**< of the file that were read */
        int64_t lastSeq = 0;
        int version = 0;
        std::optional<int64_t> begin; /**< UTC of its first dated line */
        Quarters quarters;
        bool hasUndated = false; /**< lines whose time a later file tells */
        bool isSaved = false;
        int64_t savedBytes = 0; /**< of the small file */
        std::string unread;     /**< the file's name when it could not be read to the end */
    };
    /** A line from before the clock was known. */
    struct Undated {
        std::string boot;
        int64_t monoMillis; /**< when; of a watched minute, its begin */
        std::optional<CountKey> crossing;
        int32_t watchedMillis;
    };

    bool readAll(int64_t mostBytes) REQUIRES(m_updating) EXCLUDES(m_mutex);
    int64_t read(const LedgerFile& file, int64_t mostBytes) REQUIRES(m_updating) EXCLUDES(m_mutex);
    int64_t load(const LedgerFile& file, Part& part);
    void removeOthers(std::set<std::string> names) EXCLUDES(m_mutex);
    void take(std::string_view line, Part& part) REQUIRES(m_updating);
    void date(const BootTime& time, Part& part) REQUIRES(m_updating);

    Disk& m_disk;
    const Ledger& m_book;
    Mutex m_updating;                           /**< lets one thread read lines; held over reads, never over a sync */
    std::string m_epoch GUARDED_BY(m_updating); /**< of the ledger that was read */
    std::vector<Undated> m_undated GUARDED_BY(m_updating);
    mutable Mutex m_mutex;                               /**< guards what follows */
    std::map<int64_t, Part> m_parts GUARDED_BY(m_mutex); /**< by the number of the file's first line */
    /** The small files that may be there, when no others were; empty when that has to be looked up. */
    std::set<std::string> m_cleanFor GUARDED_BY(m_mutex);
};

}  // namespace ledger
