#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "ledger/index.h"
#include "ledger/last_run.h"
#include "ledger/ledger.h"
#include "ledger/machine_clock.h"
#include "ledger/recorder.h"
#include "statistics/occupancy_manager.h"
#include "web/ledger_actions.h"

/** How a ledger is kept; what no environment says is a camera's. */
struct LedgerSettings {
    std::string folder;
    int64_t mostBytes = int64_t{32} << 20; /**< of all files */
    int32_t syncSeconds = 300;             /**< a power cut loses at most so much; each sync wears the flash */
    int32_t keepOccupancySeconds = 0;      /**< the occupancy of a run that ended up to so long ago goes on */

    /**
     * A camera's, in its folder, changed by the environment: OSTREL_SENVO_LEDGER_MIB, 1 to 1,048,576,
     * OSTREL_SENVO_LEDGER_SYNC, 1 to 3,600 seconds, and OSTREL_SENVO_KEEP_OCCUPANCY, 1 to 3,600 seconds. Another value
     * is logged, saying what was expected, and not taken.
     */
    static LedgerSettings fromEnvironment();
};

/**
 * The ledger of a running application: its lines are written by the thread that knows them, and synced, bounded and
 * indexed by a thread of its own.
 */
class LedgerKeeping final : public LedgerAccess {
public:
    /**
     * Opens the ledger, writes the line of the start and starts the thread. version: the application's. settingsNumber:
     * that of the settings in force. sideOf: which areas and entrances a point is in; called by the analysis.
     */
    LedgerKeeping(LedgerSettings settings, const std::string& version, uint32_t settingsNumber,
                  ledger::ObjectPath::SideOf sideOf, ledger::ClockSources clock = {});

    /** Finishes, and syncs. */
    ~LedgerKeeping() override;

    LedgerKeeping(const LedgerKeeping&) = delete;
    LedgerKeeping& operator=(const LedgerKeeping&) = delete;

    /**
     * A successful cycle. meantMillis: from one to the next, as it is set. Returns how many of the run before are
     * inside besides: those that are kept, in the cycle in which a clock that was not known at the start tells how long
     * ago that run was; otherwise 0. The analysis thread.
     */
    int32_t add(const std::vector<one_find>& findings, ledger::PictureSize picture, int32_t occupancy, bool isSlow,
                int64_t meantMillis = 0);

    /** A cycle whose model failed. The analysis thread. */
    void addFailure();

    /** A period that is over. The analysis thread. */
    void addPeriod(const EndedPeriod& period);

    /**
     * Writes what is open and the line of an orderly stop: the last there is to write, and done by the destructor where
     * there is time for that. The analysis thread.
     */
    void finish();

    /** A line of another kind. Any thread. A disk that refuses it is logged once a minute. */
    void write(const std::string& kind, const nlohmann::ordered_json& body) override;

    /** The occupancy that this run began with: nobody, or that of the run before when it is kept. */
    [[nodiscard]] int32_t firstOccupancy() const { return m_firstOccupancy; }

    // For requests; any thread but the analysis's.
    [[nodiscard]] ledger::LastRun lastRun() const override;
    [[nodiscard]] const ledger::Ledger& book() const override { return m_book; }
    void makeSafe() override;
    ledger::Index& index() override { return m_index; }
    AnswerJobs& jobs() override { return m_jobs; }
    [[nodiscard]] std::string archive() const override;
    [[nodiscard]] ledger::RunTotals totals() const override;

private:
    void run();
    void lookAtClock();
    bool learnGap();
    int32_t keptOccupancy();
    void shareTotals();
    void complain(const char* what);

    const LedgerSettings m_settings;
    ledger::MachineClock m_clock;
    const std::unique_ptr<ledger::Disk> m_disk;
    ledger::Ledger m_book;
    ledger::Index m_index;
    const ledger::Instant m_begin; /**< of this run */
    ledger::Recorder m_recorder;
    int32_t m_firstOccupancy = 0;
    int32_t m_lateOccupancy = 0;          /**< of the run before, kept but not yet told to the application */
    std::atomic<int32_t> m_occupancy = 0; /**< after the last cycle, or as somebody set it since */
    std::atomic<bool> m_isSet = false;    /**< by somebody, since the start */
    ledger::Instant m_periodBegin;        /**< of the period that goes on */
    int64_t m_watchedBefore = 0;          /**< milliseconds watched before it began */
    std::atomic<int64_t> m_nextError = 0; /**< steady second in which a refused line may be logged again */
    mutable Mutex m_mutex;                /**< guards what names it; never held over a sync */
    ledger::LastRun m_lastRun GUARDED_BY(m_mutex);
    ledger::RunTotals m_totals GUARDED_BY(m_mutex); /**< as after the last cycle */
    bool m_isEnding GUARDED_BY(m_mutex) = false;
    bool m_isHurried GUARDED_BY(m_mutex) = false; /**< somebody waits for a sync */
    int64_t m_begun GUARDED_BY(m_mutex) = 0;      /**< syncs that were begun */
    int64_t m_done GUARDED_BY(m_mutex) = 0;       /**< and that are done */
    ConditionVariable m_changed;
    std::thread m_thread;
    AnswerJobs m_jobs; /**< ends before what it reads */
};
