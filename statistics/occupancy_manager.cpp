#include "statistics/occupancy_manager.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "followers/follower_round.h"

namespace {

constexpr int kSecondsPerMinute = 60;
constexpr int kMostMinutes = std::numeric_limits<int>::max() / kSecondsPerMinute;  // 4,000 years

/** Does things of which none may keep the next from being done; what the first of them threw comes out in the end. */
class FirstException {
public:
    template <typename Work>
    void attempt(Work work) {
        try {
            work();
        } catch (...) {
            m_first = m_first ? m_first : std::current_exception();
        }
    }
    void rethrow() const {
        if (m_first) {
            std::rethrow_exception(m_first);
        }
    }

private:
    std::exception_ptr m_first;
};

}  // namespace

OccupancyManager::OccupancyManager(const ConfigParams& config)
    : m_archives(std::apply([](const auto&... kind) { return RecordArchives(kind.file...); }, kRecordKinds)),
      localState(config),
      remoteState(config) {}

template <typename Visit>
void OccupancyManager::forEachArchive(Visit visit) {
    std::apply(
        [&](auto&... archive) { std::apply([&](const auto&... kind) { (visit(archive, kind), ...); }, kRecordKinds); },
        m_archives);
}

void OccupancyManager::repairArchives() {
    forEachArchive([](auto& archive, const auto&) { archive.repair(); });
}

void OccupancyManager::purgeInBackground() {
    forEachArchive([this](auto& archive, const auto&) { archive.purgeOn(m_purges); });
}

bool OccupancyManager::add(const std::vector<one_find>& findings, const PeriodPartners& partners) {
    {
        const MutexLock lock(m_mutex);
        localState.add(findings);
        remoteState.add(findings);
    }
    if (!flushTimer.isExpired()) {
        return true;
    }
    partners.events.sendJSONDataEvent(getDataMap());
    partners.events.sendXMLDataEvent(getSparseDataMap());
    const std::string dateTime = OccupancyRecordBase::getCurrentDateTime();
    if (periodObserver) {
        periodObserver({dateTime, partners.cameras.thisCameraName, getSparseDataMap()});
    }
    flushLocal(dateTime, partners.cameras.thisCameraName);
    collectFromFollowers(dateTime, partners);
    flushTimer.reset(std::clamp(partners.cameras.i_PeriodTime, -kMostMinutes, kMostMinutes) * kSecondsPerMinute);
    return true;
}

void OccupancyManager::collectFromFollowers(const std::string& dateTime, const PeriodPartners& partners) {
    const CameraInfo& cameras = partners.cameras;
    struct Answer {
        std::string text;
        std::exception_ptr error;
    };
    const auto answers = askFollowers(
        [&](size_t i) {
            return cameras.followerActive[i] && isCameraCallable(partners.leaderMetrics, static_cast<int>(i));
        },
        [&](size_t i) -> Answer {
            try {
                return {partners.followers.follower_flush(cameras.followerIPAddress[i], cameras.followerLogin[i],
                                                          cameras.followerPassword[i]),
                        nullptr};
            } catch (...) {
                return {"", std::current_exception()};
            }
        });
    // All that were asked have cleared their tallies: what one of them gave must not cost the others theirs.
    FirstException troubles;
    for (size_t i = 0; i < answers.size(); ++i) {
        if (!answers[i]) {
            continue;
        }
        troubles.attempt([&] {
            if (answers[i]->error) {
                std::rethrow_exception(answers[i]->error);
            }
            archiveOfFollower(i, answers[i]->text, dateTime, cameras.followerCameraName[i]);
        });
    }
    troubles.rethrow();
}

void OccupancyManager::archiveOfFollower(size_t follower, const std::string& text, const std::string& dateTime,
                                         const std::string& cameraName) {
    PeriodRecords records;
    try {
        records = TransientState::readRecords(text, dateTime, cameraName);
    } catch (const std::logic_error& error) {
        throw std::invalid_argument("expected records from follower " + std::to_string(follower + 1) + ", " +
                                    cameraName + ", got " + std::to_string(text.size()) + " bytes that are none (" +
                                    error.what() + ")");
    }
    archive(records);
}

void OccupancyManager::archive(const PeriodRecords& records) {
    // A purge that throws in one archive must not cost the others their records.
    FirstException troubles;
    forEachArchive([&](auto& archive, const auto& kind) {
        troubles.attempt([&] { archive.addRecords(records.*kind.records, true); });
    });
    troubles.rethrow();
}

void OccupancyManager::reset() {
    const MutexLock lock(m_mutex);
    localState.reset();
    remoteState.reset();
}

void OccupancyManager::resetEntranceActivity() {
    const MutexLock lock(m_mutex);
    localState.resetEntranceActivity();
    remoteState.resetEntranceActivity();
}

void OccupancyManager::resetCrowdCounts() {
    const MutexLock lock(m_mutex);
    localState.resetCrowdCounts();
    remoteState.resetCrowdCounts();
}

void OccupancyManager::resetCumulativeCrowdCounts() {
    const MutexLock lock(m_mutex);
    localState.resetCumulativeCrowdCounts();
    remoteState.resetCumulativeCrowdCounts();
}

void OccupancyManager::resetOccupancy() {
    const MutexLock lock(m_mutex);
    localState.resetOccupancy();
    remoteState.resetOccupancy();
}

std::map<std::string, std::string> OccupancyManager::getDataMap() const {
    const MutexLock lock(m_mutex);
    return localState.getDataMap();
}

std::map<std::string, std::string> OccupancyManager::getSparseDataMap() const {
    const MutexLock lock(m_mutex);
    return localState.getSparseDataMap();
}

bool OccupancyManager::hasCounted() const {
    const MutexLock lock(m_mutex);
    return localState.hasCounted();
}

bool OccupancyManager::hasFrames() const {
    const MutexLock lock(m_mutex);
    return localState.getNumberOfFrames() > 0;
}

bool OccupancyManager::flushLocal(const std::string& dateTime, const std::string& cameraName) {
    const TransientState period = [this] {
        const MutexLock lock(m_mutex);
        TransientState tallies = localState;
        localState.reset();
        return tallies;
    }();
    archive(period.getRecords(dateTime, cameraName));
    return true;
}

std::string OccupancyManager::followerFlush(const ConfigParams& config) {
    const TransientState fetched = [&] {
        const MutexLock lock(m_mutex);
        TransientState tallies(remoteState, config);
        remoteState.reset();
        return tallies;
    }();
    return fetched.getSerializedRecords();
}

void OccupancyManager::deserializeRecords(const std::string& text, const std::string& dateTime,
                                          const std::string& camera, std::vector<CrowdCountRecord>& crowd,
                                          std::vector<EntranceActivityRecord>& activity,
                                          std::vector<OccupancyObjectRecord>& occupants,
                                          std::vector<CrowdCountRecord>& average) {
    TransientState::deserializeRecords(text, dateTime, camera, crowd, activity, occupants, average);
}

std::vector<CrowdCountRecord> OccupancyManager::getArchivedCrowdCountRecords() const {
    return std::get<0>(m_archives).getRecords();
}

std::vector<CrowdCountRecord> OccupancyManager::getArchivedAverageCrowdCountRecords() const {
    return std::get<3>(m_archives).getRecords();
}

std::vector<EntranceActivityRecord> OccupancyManager::getArchivedEntranceActivityRecords() const {
    return std::get<1>(m_archives).getRecords();
}

std::vector<OccupancyObjectRecord> OccupancyManager::getArchivedOccupancyObjectRecords() const {
    return std::get<2>(m_archives).getRecords();
}

report_stream::Archives OccupancyManager::archives() const {
    const auto of = [](const RecordArchiveBase& archive) -> report_stream::Archive {
        const std::optional<PurgeCut> purge = archive.pendingPurge();
        return {archive.path(), purge ? std::optional(purge->before) : std::nullopt};
    };
    return std::apply([&](const auto&... archive) { return report_stream::Archives{of(archive)...}; }, m_archives);
}

std::string OccupancyManager::getSummaryReportCSV() const {
    return report_stream::write(archives(), report_stream::Form::Csv);
}

std::string OccupancyManager::getSummaryReportHTML() const {
    return report_stream::write(archives(), report_stream::Form::Html);
}

void OccupancyManager::writeSummaryReportCSV(const std::string& path) const {
    std::ofstream file(path, std::ios::trunc);
    if (file) {
        file << getSummaryReportCSV();
    }
}

void OccupancyManager::setFlushInterval(int seconds) {
    flushInterval = seconds;
    flushTimer.reset(seconds);
}
