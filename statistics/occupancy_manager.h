#pragma once

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "config/config_params.h"
#include "events/event_manager.h"
#include "finding/finding.h"
#include "followers/follower_calls.h"
#include "statistics/countdown_timer.h"
#include "statistics/purge_queue.h"
#include "statistics/record_archive.h"
#include "statistics/record_kinds.h"
#include "statistics/report_stream.h"
#include "statistics/transient_state.h"

/** Where a period's tallies go besides the archives, and where a leader gets those of its followers. */
struct PeriodPartners {
    const CameraInfo& cameras;
    EventManager& events;
    FollowerCalls& followers;
    const LeaderMetricsParams& leaderMetrics; /**< which followers can be called */
};

/** A period that is over. */
struct EndedPeriod {
    std::string dateTime;                       /**< its date in the archives */
    std::string camera;                         /**< this camera's name there */
    std::map<std::string, std::string> tallies; /**< by name; of what is monitored */
};

/**
 * Turns every cycle's findings into per-period tallies; at the end of each period publishes them as data events and
 * appends them to the archives, on a leader together with its followers'. A second set of tallies waits for a leader to
 * fetch it.
 *
 * Main-loop thread, but for what says otherwise.
 */
class OccupancyManager {
public:
    /** config: the live record; it says what is monitored. The first period lasts 60 seconds. */
    explicit OccupancyManager(const ConfigParams& config);

    /** Mends the archives after a process that was killed; for start-up. */
    void repairArchives();

    /** From now on the flushes of add leave the purging of archives to a thread of its own; for a running application.
     */
    void purgeInBackground();

    /** Throws what such a purge threw since the last call. */
    void rethrowPurge() { m_purges.rethrow(); }

    /**
     * Adds a cycle's findings and, when the period is over, publishes and archives it. True. Throws what
     * deserializeRecords throws when a follower answers nonsense, the first of several, once the others' are archived.
     */
    bool add(const std::vector<one_find>& findings, const PeriodPartners& partners) EXCLUDES(m_mutex);

    /** Asks for a call at the end of each period, on the thread of add. */
    void onPeriod(std::function<void(const EndedPeriod&)> observer) { periodObserver = std::move(observer); }

    // The same operation on both sets of tallies. Any thread.
    void reset() EXCLUDES(m_mutex);
    void resetEntranceActivity() EXCLUDES(m_mutex);
    void resetCrowdCounts() EXCLUDES(m_mutex);
    void resetCumulativeCrowdCounts() EXCLUDES(m_mutex);
    void resetOccupancy() EXCLUDES(m_mutex);

    std::map<std::string, std::string> getDataMap() const EXCLUDES(m_mutex);
    std::map<std::string, std::string> getSparseDataMap() const EXCLUDES(m_mutex);

    /** Whether anybody was counted in or out here since the last flush or reset. */
    bool hasCounted() const EXCLUDES(m_mutex);

    /** Whether a frame was added since the last flush. */
    bool hasFrames() const EXCLUDES(m_mutex);

    /** Appends this camera's tallies to the archives and clears them, but for the occupancy. True. */
    bool flushLocal(const std::string& dateTime, const std::string& cameraName) EXCLUDES(m_mutex);

    /**
     * The tallies since a leader last fetched them, as text; clears them, but for the occupancy. config says what is
     * monitored: the caller's own record, since this is for any thread.
     */
    std::string followerFlush(const ConfigParams& config) EXCLUDES(m_mutex);

    /** TransientState::deserializeRecords, for the text that a follower's followerFlush returned. */
    static void deserializeRecords(const std::string& text, const std::string& dateTime, const std::string& camera,
                                   std::vector<CrowdCountRecord>& crowd, std::vector<EntranceActivityRecord>& activity,
                                   std::vector<OccupancyObjectRecord>& occupants,
                                   std::vector<CrowdCountRecord>& average);

    std::vector<CrowdCountRecord> getArchivedCrowdCountRecords() const;
    std::vector<CrowdCountRecord> getArchivedAverageCrowdCountRecords() const;
    std::vector<EntranceActivityRecord> getArchivedEntranceActivityRecords() const;
    std::vector<OccupancyObjectRecord> getArchivedOccupancyObjectRecords() const;

    // The archives as one table. Any thread. Throw what std::stoi throws over an archive with words for numbers.
    std::string getSummaryReportCSV() const;
    std::string getSummaryReportHTML() const;
    void writeSummaryReportCSV(const std::string& path) const;

    /** Starts a period of so many seconds. */
    void setFlushInterval(int seconds);
    int getFlushInterval() const { return flushInterval; }

private:
    template <typename... Kinds>
    static std::tuple<RecordArchive<typename Kinds::Record>...> archivesFor(const std::tuple<Kinds...>& kinds);
    using RecordArchives = decltype(archivesFor(kRecordKinds));

    /** Calls visit for each archive and its kind, in order. */
    template <typename Visit>
    void forEachArchive(Visit visit);
    void collectFromFollowers(const std::string& dateTime, const PeriodPartners& partners);
    void archiveOfFollower(size_t follower, const std::string& text, const std::string& dateTime,
                           const std::string& cameraName);
    void archive(const PeriodRecords& records);
    report_stream::Archives archives() const;

    RecordArchives m_archives;
    std::function<void(const EndedPeriod&)> periodObserver;
    int flushInterval = 60; /**< seconds */
    CountdownTimer flushTimer{flushInterval};
    mutable Mutex m_mutex; /**< guards the tallies, which the web service resets and fetches; never held over a disk */
    TransientState localState GUARDED_BY(m_mutex);  /**< flushed by the period timer */
    TransientState remoteState GUARDED_BY(m_mutex); /**< fetched by a leader */
    PurgeQueue m_purges;                            /**< after the archives, which it works on to its end */
};
