#include "occupancy_manager.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <optional>
#include <utility>

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

bool OccupancyManager::add(const std::vector<one_find>& findings, const CameraInfo& cameraInfo, EventManager& events) {
    localState.add(findings);
    remoteState.add(findings);
    if (!flushTimer.isExpired()) {
        return true;
    }
    events.sendJSONDataEvent(getDataMap());
    events.sendXMLDataEvent(getSparseDataMap());
    flushLocal(OccupancyRecordBase::getCurrentDateTime(), cameraInfo.thisCameraName);
    flushTimer.reset(std::clamp(cameraInfo.i_PeriodTime, -kMostMinutes, kMostMinutes) * kSecondsPerMinute);
    return true;
}

void OccupancyManager::reset() {
    localState.reset();
    remoteState.reset();
}

void OccupancyManager::resetEntranceActivity() {
    localState.resetEntranceActivity();
    remoteState.resetEntranceActivity();
}

void OccupancyManager::resetCrowdCounts() {
    localState.resetCrowdCounts();
    remoteState.resetCrowdCounts();
}

void OccupancyManager::resetCumulativeCrowdCounts() {
    localState.resetCumulativeCrowdCounts();
    remoteState.resetCumulativeCrowdCounts();
}

void OccupancyManager::resetOccupancy() {
    localState.resetOccupancy();
    remoteState.resetOccupancy();
}

bool OccupancyManager::flushLocal(const std::string& dateTime, const std::string& cameraName) {
    crowdCountRecordArchive.addRecords(localState.getCrowdCountRecords(dateTime, cameraName), true);
    entranceActivityRecordArchive.addRecords(localState.getEntranceActivityRecords(dateTime, cameraName), true);
    occupancyObjectRecordArchive.addRecords(localState.getOccupancyObjectRecords(dateTime, cameraName), true);
    averageCrowdCountRecordArchive.addRecords(localState.getAverageCrowdCountRecords(dateTime, cameraName), true);
    localState.reset();
    return true;
}

std::string OccupancyManager::followerFlush() {
    std::string text = remoteState.getSerializedRecords();
    remoteState.reset();
    return text;
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
