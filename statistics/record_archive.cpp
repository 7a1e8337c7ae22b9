#include "record_archive.h"

#include "atomic_file.h"
#include "camera_paths.h"
#include "clock.h"

RecordArchiveBase::RecordArchiveBase(const std::string& fileName)
    : archiveFilename(cameraPath("/usr/local/packages/ostrel_senvo/localdata/") + fileName), nextPurgeDate(clockNow()) {
    incrementNextPurgeDate();
}

time_t RecordArchiveBase::incrementNextPurgeDate() {
    nextPurgeDate += purgeInterval * kSecondsPerDay;
    return nextPurgeDate;
}

void RecordArchiveBase::clearArchive() {
    replaceFile(archiveFilename, "");
}

void RecordArchiveBase::purgeArchive() {
    if (clockNow() >= nextPurgeDate) {
        purgeRecords();
        incrementNextPurgeDate();
    }
}
