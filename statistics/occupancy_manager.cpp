#include "occupancy_manager.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "follower_round.h"

namespace {

constexpr int kSecondsPerMinute = 60;
constexpr int kMostMinutes = std::numeric_limits<int>::max() / kSecondsPerMinute;  // 4,000 years

}  // namespace

OccupancyManager::OccupancyManager(const ConfigParams& config, const ArchiveFileNames& files)
    : crowdCountRecordArchive(files.crowdCount),
      entranceActivityRecordArchive(files.entranceActivity),
      occupancyObjectRecordArchive(files.occupancy),
      averageCrowdCountRecordArchive(files.averageCrowdCount),
      localState(config),
      remoteState(config) {}

void OccupancyManager::repairArchives() {
    crowdCountRecordArchive.repair();
    entranceActivityRecordArchive.repair();
    occupancyObjectRecordArchive.repair();
    averageCrowdCountRecordArchive.repair();
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
    flushLocal(dateTime, partners.cameras.thisCameraName);
    collectFromFollowers(dateTime, partners);
    flushTimer.reset(std::clamp(partners.cameras.i_PeriodTime, -kMostMinutes, kMostMinutes) * kSecondsPerMinute);
    return true;
}

void OccupancyManager::collectFromFollowers(const std::string& dateTime, const PeriodPartners& partners) {
    const CameraInfo& cameras = partners.cameras;
    const auto texts = askFollowers(
        [&](size_t i) {
            return cameras.followerActive[i] && isCameraCallable(partners.leaderMetrics, static_cast<int>(i));
        },
        [&](size_t i) {
            return partners.followers.follower_flush(cameras.followerIPAddress[i], cameras.followerLogin[i],
                                                     cameras.followerPassword[i]);
        });
    for (size_t i = 0; i < texts.size(); ++i) {
        if (!texts[i]) {
            continue;
        }
        std::vector<CrowdCountRecord> crowd;
        std::vector<EntranceActivityRecord> activity;
        std::vector<OccupancyObjectRecord> occupants;
        std::vector<CrowdCountRecord> average;
        try {
            TransientState::deserializeRecords(*texts[i], dateTime, cameras.followerCameraName[i], crowd, activity,
                                               occupants, average);
        } catch (const std::logic_error& error) {
            throw std::invalid_argument("expected records from follower " + std::to_string(i + 1) + ", " +
                                        cameras.followerCameraName[i] + ", got " + std::to_string(texts[i]->size()) +
                                        " bytes that are none (" + error.what() + ")");
        }
        crowdCountRecordArchive.addRecords(crowd, true);
        entranceActivityRecordArchive.addRecords(activity, true);
        occupancyObjectRecordArchive.addRecords(occupants, true);
        averageCrowdCountRecordArchive.addRecords(average, true);
    }
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
    crowdCountRecordArchive.addRecords(period.getCrowdCountRecords(dateTime, cameraName), true);
    entranceActivityRecordArchive.addRecords(period.getEntranceActivityRecords(dateTime, cameraName), true);
    occupancyObjectRecordArchive.addRecords(period.getOccupancyObjectRecords(dateTime, cameraName), true);
    averageCrowdCountRecordArchive.addRecords(period.getAverageCrowdCountRecords(dateTime, cameraName), true);
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
    return crowdCountRecordArchive.getRecords();
}

std::vector<CrowdCountRecord> OccupancyManager::getArchivedAverageCrowdCountRecords() const {
    return averageCrowdCountRecordArchive.getRecords();
}

std::vector<EntranceActivityRecord> OccupancyManager::getArchivedEntranceActivityRecords() const {
    return entranceActivityRecordArchive.getRecords();
}

std::vector<OccupancyObjectRecord> OccupancyManager::getArchivedOccupancyObjectRecords() const {
    return occupancyObjectRecordArchive.getRecords();
}

SummaryReport OccupancyManager::summaryReport() const {
    SummaryReport report;
    report.add(getArchivedCrowdCountRecords());
    report.add(getArchivedEntranceActivityRecords());
    report.add(getArchivedOccupancyObjectRecords());
    report.addAverage(getArchivedAverageCrowdCountRecords());
    return report;
}

report_stream::Archives OccupancyManager::archivePaths() const {
    return {crowdCountRecordArchive.path(), entranceActivityRecordArchive.path(), occupancyObjectRecordArchive.path(),
            averageCrowdCountRecordArchive.path()};
}

std::string OccupancyManager::getSummaryReportCSV() const {
    std::optional<std::string> text = report_stream::write(archivePaths(), report_stream::Form::Csv);
    return text ? std::move(*text) : summaryReport().getCSVAsString();
}

std::string OccupancyManager::getSummaryReportHTML() const {
    std::optional<std::string> text = report_stream::write(archivePaths(), report_stream::Form::Html);
    return text ? std::move(*text) : summaryReport().getHTMLAsString();
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
