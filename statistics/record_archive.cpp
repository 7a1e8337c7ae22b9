#include "statistics/record_archive.h"

#include "base/atomic_file.h"
#include "base/camera_paths.h"
#include "base/clock.h"

RecordArchiveBase::RecordArchiveBase(const std::string& fileName)
    : archiveFilename(cameraPath("/usr/local/packages/ostrel_senvo/localdata/") + fileName), nextPurgeDate(clockNow()) {
    incrementNextPurgeDate();
}

time_t RecordArchiveBase::incrementNextPurgeDate() {
    nextPurgeDate += purgeInterval * kSecondsPerDay;
    return nextPurgeDate;
}

void RecordArchiveBase::clearArchive() {
    awaitPurge();
    replaceFile(archiveFilename, "");
}

void RecordArchiveBase::purgeArchive() {
    if (clockNow() < nextPurgeDate) {
        return;
    }
    if (m_queue == nullptr) {
        purgeRecords();
    } else {
        const PurgeCut cut = {daysAgo(purgeHorizon), OccupancyRecordBase::getCurrentDateTime()};
        {
            const MutexLock lock(m_mutex);
            if (m_pending) {
                return;  // still at the one before; the next append asks again
            }
            m_pending = cut;
        }
        try {
            m_queue->post([this, cut](const std::atomic<bool>& stop) {
                try {
                    purgeFile(cut, stop);
                } catch (...) {
                    endPurge();
                    throw;
                }
                endPurge();
            });
        } catch (...) {
            endPurge();
            throw;
        }
    }
    incrementNextPurgeDate();
}

std::optional<PurgeCut> RecordArchiveBase::pendingPurge() const {
    const MutexLock lock(m_mutex);
    return m_pending;
}

time_t RecordArchiveBase::daysAgo(int days) {
    // Through the text form and back, so that the moment is read as the records' own dates are.
    return OccupancyRecordBase::stringToTime(OccupancyRecordBase::getCurrentDateTime()) - days * kSecondsPerDay;
}

void RecordArchiveBase::awaitPurge() const {
    m_mutex.lock();
    while (m_pending) {
        m_purged.wait(m_mutex);
    }
    m_mutex.unlock();
}

void RecordArchiveBase::endPurge() {
    {
        const MutexLock lock(m_mutex);
        m_pending.reset();
    }
    m_purged.notifyAll();
}
