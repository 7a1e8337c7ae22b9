#include "ledger/ledger.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/atomic_file.h"

namespace ledger {

namespace {

constexpr size_t kMostWaitingBytes = size_t{1} << 20U;
constexpr int64_t kLeastFileBytes = 1024;              // so that a file's going frees more than the word about it takes
constexpr int64_t kMostFileBytes = int64_t{16} << 20;  // retention holds one in memory
constexpr int64_t kFilesOfAFullLedger = 32;
constexpr const char* kObject = "object";
constexpr const char* kEverything = "all";

int64_t totalBytes(const std::vector<LedgerFile>& files) {
    int64_t total = 0;
    for (const LedgerFile& file : files) {
        total += file.bytes;
    }
    return total;
}

/**
 * The size that decides on objects: what still holds some counts twice. Dropping them frees more than they take then,
 * so that no more than a few days' files are rewritten while as many come, also on the way from a ledger full of
 * objects to one that has no room for any.
 */
int64_t weightOf(const std::vector<LedgerFile>& files) {
    int64_t weight = 0;
    for (const LedgerFile& file : files) {
        weight += file.bytes * (file.hasObjects ? 2 : 1);
    }
    return weight;
}

/** Whether retention left all files alone, but for lines added at the end and files that grew up. */
bool untouched(const std::vector<LedgerFile>& before, const std::vector<LedgerFile>& after) {
    return before.size() <= after.size() &&
           std::equal(before.begin(), before.end(), after.begin(), [](const LedgerFile& was, const LedgerFile& is) {
               return was.name == is.name && was.version == is.version;
           });
}

}  // namespace

Ledger::Ledger(Disk& disk, LedgerOptions options) : m_disk(disk), m_options(std::move(options)) {}

std::string Ledger::open() {
    std::vector<LedgerFile> found;
    for (const std::string& name : m_disk.list()) {
        if (std::optional<LedgerFile> file = fileOf(name)) {
            file->bytes = m_disk.size(name).value_or(0);
            found.push_back(std::move(*file));
        }
    }
    Mending mending;
    std::optional<LineHead> last;
    while (!last && !found.empty()) {
        last = mendEnd(found, mending);
    }
    for (size_t i = 0; i + 1 < found.size(); ++i) {
        found[i].lastSeq = std::max(found[i].firstSeq, found[i + 1].firstSeq - 1);
    }
    m_aside.clear();
    for (const std::string& name : m_disk.list()) {
        if (name.ends_with(kAsideEnding)) {
            m_aside[name] = m_disk.size(name).value_or(0);
        } else if (name.ends_with(Replacement::beside(""))) {
            m_disk.remove(name);  // whoever was writing it was killed
        }
    }
    // What lies before the last file that is not young has reached the disk.
    size_t first = found.empty() ? 0 : found.size() - 1;
    while (first > 0 && found[first].isYoung()) {
        --first;
    }
    {
        const MutexLock lock(m_mutex);
        m_safeSeq = first > 0 ? found[first - 1].lastSeq : 0;
        m_files = std::move(found);
        if (last) {
            // Under another epoch no line has the name of one that was set aside.
            m_epoch = mending.isSetAside ? m_options.makeEpoch() : last->epoch;
            m_lastSeq = m_files.back().lastSeq;
        }
        m_keptSeq = m_lastSeq;
    }
    tellGaps(mending);
    return mending.dropped;
}

/**
 * Tells which lines are gone, and then lets what is left of them go. Before that reached the disk no file grows up: the
 * next start finds the gap again.
 */
void Ledger::tellGaps(const Mending& mending) {
    {
        const MutexLock lock(m_mutex);
        m_gaps.assign(mending.gaps.begin(), mending.gaps.end());
        if (!writeWaiting()) {
            return;
        }
    }
    if (!syncGaps()) {
        return;
    }
    for (LedgerFile file : files()) {
        if (mending.damaged.contains(file.name) && dropDamage(m_disk, file)) {
            const MutexLock lock(m_mutex);
            known(file.name)->bytes = file.bytes;
        }
    }
}

bool Ledger::syncGaps() {
    std::set<std::string> names;
    {
        const MutexLock lock(m_mutex);
        names = m_gapFiles;
    }
    for (const std::string& name : names) {
        if (!m_disk.sync(name)) {
            return false;
        }
    }
    const MutexLock lock(m_mutex);
    m_gapFiles.clear();
    return true;
}

/**
 * Mends the last file found, and from the one before the first young one on: none of them may ever have reached the
 * disk as it was written. Returns how the last line begins; nothing when none of them holds any, and they are gone.
 */
std::optional<LineHead> Ledger::mendEnd(std::vector<LedgerFile>& found, Mending& mending) {
    std::string& dropped = mending.dropped;
    const auto add = [&](const std::string& words) { dropped += (dropped.empty() ? "" : "; ") + words; };
    const auto note = [&](const LedgerFile& file, int64_t bytes, const char* why) {
        if (bytes > 0) {
            add(std::to_string(bytes) + " bytes of " + file.name + ", " + why);
        }
    };
    size_t first = found.size() - 1;
    while (first > 0 && found[first].isYoung()) {
        --first;
    }
    std::vector<LedgerFile> ends(found.begin() + static_cast<std::ptrdiff_t>(first), found.end());
    found.resize(first);
    int64_t next = ends.front().firstSeq;
    std::optional<LineHead> last;
    for (size_t i = 0; i < ends.size(); ++i) {
        const MendedFile mended = mendFile(m_disk, ends[i]);
        if (!mended.isRead) {
            // What cannot be read now may be read by somebody later.
            mending.isSetAside = true;
            for (; i < ends.size(); ++i) {
                note(ends[i], ends[i].bytes, "which cannot be read and was set aside");
                m_disk.rename(ends[i].name, ends[i].name + kAsideEnding);
            }
            break;
        }
        note(mended.file, mended.dropped, "torn");
        if (!mended.last) {
            m_disk.remove(ends[i].name);
            continue;
        }
        std::vector<Gap> gaps = mended.gaps;
        if (mended.file.firstSeq > next) {
            gaps.insert(gaps.begin(), {next, mended.file.firstSeq - 1});
        }
        for (const Gap& gap : gaps) {
            add("lines " + std::to_string(gap.from) + " to " + std::to_string(gap.through) + ", lost before others");
        }
        mending.gaps.insert(mending.gaps.end(), gaps.begin(), gaps.end());
        if (mended.isDamaged) {
            mending.damaged.insert(mended.file.name);
        }
        found.push_back(mended.file);
        next = mended.file.lastSeq + 1;
        last = mended.last;
    }
    return last;
}

Position Ledger::end() const {
    const MutexLock lock(m_mutex);
    return {m_epoch, m_lastSeq};
}

int64_t Ledger::safeSeq() const {
    const MutexLock lock(m_mutex);
    return m_safeSeq;
}

void Ledger::leaveRoom(int64_t bytes) {
    const MutexLock lock(m_mutex);
    m_room = bytes;
}

int64_t Ledger::droppedLines() const {
    const MutexLock lock(m_mutex);
    return m_dropped;
}

std::vector<LedgerFile> Ledger::files() const {
    const MutexLock lock(m_mutex);
    return m_files;
}

bool Ledger::append(const std::string& kind, const nlohmann::ordered_json& body) {
    Waiting line = {m_options.now(), kind, bodyText(body)};
    const MutexLock lock(m_mutex);
    m_waitingBytes += line.body.size();
    m_waiting.push_back(std::move(line));
    return writeWaiting();
}

bool Ledger::writeWaiting() {
    bool isWritten = true;
    while (isWritten && !m_gaps.empty()) {
        isWritten = write(lineOf({kEverything, m_gaps.front().from, m_gaps.front().through, 0}));
        if (isWritten) {
            m_gapFiles.insert(m_files.back().name);
            m_gaps.pop_front();
        }
    }
    while (isWritten && !m_waiting.empty()) {
        isWritten = write(m_waiting.front());
        if (isWritten) {
            m_waitingBytes -= m_waiting.front().body.size();
            m_waiting.pop_front();
        }
    }
    const int reason = errno;
    for (; !isWritten && m_waitingBytes > kMostWaitingBytes; ++m_dropped) {
        m_waitingBytes -= m_waiting.front().body.size();
        m_waiting.pop_front();
    }
    errno = reason;
    return isWritten;
}

bool Ledger::write(const Waiting& line) {
    if (m_epoch.empty()) {
        m_epoch = m_options.makeEpoch();
    }
    LedgerFile& file = fileFor(line.moment);
    const std::string text = lineText({m_lastSeq + 1, m_epoch, line.moment, line.kind}, line.body);
    if (!m_disk.append(file.name, text)) {
        return false;
    }
    file.bytes += static_cast<int64_t>(text.size());
    file.lastSeq = ++m_lastSeq;
    return true;
}

LedgerFile& Ledger::fileFor(const Moment& moment) {
    // What nobody can date yet goes where the lines before it are.
    const std::string day = moment.isDated()  ? utcDay(moment.utcMillis)
                            : m_files.empty() ? "undated"
                                              : m_files.back().day;
    const int64_t mostBytes = std::clamp(m_options.mostBytes / kFilesOfAFullLedger, kLeastFileBytes, kMostFileBytes);
    if (!m_files.empty() && m_files.back().lastSeq == 0) {
        m_files.pop_back();  // the disk refused its first line
    }
    if (m_files.empty() || m_files.back().day != day || m_files.back().bytes >= mostBytes || m_files.back().isClosed) {
        LedgerFile file;
        file.firstSeq = m_lastSeq + 1;
        file.day = day;
        file.name = fileName(file.firstSeq, day, !m_files.empty());
        m_files.push_back(std::move(file));
    }
    return m_files.back();
}

LedgerFile* Ledger::known(const std::string& name) {
    const auto at = std::find_if(m_files.begin(), m_files.end(), [&](const auto& file) { return file.name == name; });
    return at == m_files.end() ? nullptr : &*at;
}

bool Ledger::keep() {
    bool written = true;
    {
        const MutexLock lock(m_mutex);
        noticeWiping();
        written = writeWaiting();
        if (!m_gaps.empty()) {
            return false;
        }
    }
    return syncGaps() && sync() && retain() && written;
}

/** Whoever removed all files left of them at most what was written since, in files made anew or begun since then. */
void Ledger::noticeWiping() {
    const int64_t kept = std::exchange(m_keptSeq, m_lastSeq);
    const auto wasThere = [kept](const LedgerFile& file) { return file.firstSeq <= kept && file.bytes > 0; };
    const auto newest = std::find_if(m_files.rbegin(), m_files.rend(), wasThere);
    if (newest == m_files.rend()) {
        return;
    }
    const std::optional<int64_t> size = m_disk.size(newest->name);
    if ((!size && errno != ENOENT) || size.value_or(0) >= newest->bytes) {
        return;
    }
    m_gapFiles.clear();
    const std::vector<std::string> names = m_disk.list();
    const bool isAlone = std::any_of(m_files.begin(), m_files.end(), [&](const LedgerFile& file) {
        return wasThere(file) && file.name != newest->name && std::binary_search(names.begin(), names.end(), file.name);
    });
    if (isAlone && size) {
        newest->bytes = *size;  // made anew by the lines since
        ++newest->version;
    } else if (isAlone) {
        m_files.erase(std::next(newest).base());
    } else {
        for (const LedgerFile& file : m_files) {
            // A new one may get this name; the next start removes what is left.
            m_disk.truncate(file.name, 0);
            m_disk.rename(file.name, file.name + Replacement::beside(""));
        }
        m_files.clear();
        m_epoch = m_options.makeEpoch();  // at once: a reader may ask where the ledger ends
        m_lastSeq = m_safeSeq = m_keptSeq = 0;
        m_announced = {};
    }
}

bool Ledger::sync() {
    std::vector<LedgerFile> dirty;
    int64_t through = 0;
    {
        const MutexLock lock(m_mutex);
        through = m_lastSeq;
        std::copy_if(m_files.begin(), m_files.end(), std::back_inserter(dirty),
                     [this](const LedgerFile& file) REQUIRES(m_mutex) { return file.lastSeq > m_safeSeq; });
    }
    // In their order, so that no file is safe before the one that it continues.
    for (const LedgerFile& file : dirty) {
        if (!m_disk.sync(file.name) || (file.isYoung() && !growUp(file))) {
            return false;
        }
    }
    const MutexLock lock(m_mutex);
    m_safeSeq = through;
    return true;
}

bool Ledger::growUp(const LedgerFile& young) {
    const std::string name = fileName(young.firstSeq, young.day, false);
    {
        // A line may be on its way into the file.
        const MutexLock lock(m_mutex);
        if (!m_disk.rename(young.name, name)) {
            return false;
        }
        known(young.name)->name = name;
    }
    return m_disk.sync(name);
}

/** What nobody could read goes before everything else. */
bool Ledger::dropAside(int64_t mostBytes) {
    int64_t bytes = 0;
    for (const auto& [name, size] : m_aside) {
        bytes += size;
    }
    while (!m_aside.empty() && totalBytes(files()) + bytes > mostBytes) {
        const auto oldest = m_aside.begin();
        if (!m_disk.remove(oldest->first)) {
            return false;
        }
        bytes -= oldest->second;
        m_aside.erase(oldest);
    }
    return true;
}

bool Ledger::retain() {
    int64_t mostBytes = m_options.mostBytes;
    {
        const MutexLock lock(m_mutex);
        mostBytes -= m_room;
    }
    if (!dropAside(mostBytes)) {
        return false;
    }
    for (;;) {
        const std::vector<LedgerFile> all = files();
        if (weightOf(all) <= mostBytes || all.size() < 2) {
            return true;
        }
        const auto closed = all.end() - 1;
        const auto withObjects = std::find_if(all.begin(), closed, [](const auto& file) { return file.hasObjects; });
        if (withObjects == closed && totalBytes(all) <= mostBytes) {
            return true;
        }
        if (!(withObjects != closed ? dropObjects(*withObjects) : dropFile(all.front()))) {
            return false;
        }
    }
}

Ledger::Waiting Ledger::lineOf(const Cut& cut) const {
    nlohmann::ordered_json body = {{"removed", cut.removed}, {"from", cut.from}, {"through", cut.through}};
    if (cut.removed == kObject) {
        body["lines"] = cut.lines;
    }
    return {m_options.now(), "cut", bodyText(body)};
}

/**
 * Sees to it that the word about a cut has reached the disk. It has one line, however often the deed fails behind it,
 * and never waits among those that the disk refused: it could be dropped there, or make others be.
 */
bool Ledger::announce(const Cut& cut) {
    const Waiting line = lineOf(cut);
    {
        const MutexLock lock(m_mutex);
        if (cut != m_announced) {
            if (!writeWaiting() || !write(line)) {
                return false;
            }
            m_announced = cut;
        }
    }
    return sync();
}

bool Ledger::dropObjects(const LedgerFile& file) {
    std::string kept;
    Cut cut = {kObject};
    const bool read = forEachLine(m_disk, file, 0, [&](std::string_view line, int64_t) {
        const std::optional<LineHead> head = headOf(line);
        if (head && head->kind == kObject) {
            cut.from = cut.from == 0 ? head->seq : cut.from;
            cut.through = head->seq;
            ++cut.lines;
        } else {
            kept += line;
            kept += '\n';
        }
        return true;
    });
    const bool isLess = read && cut.lines != 0;
    const std::string beside = Replacement::beside(file.name);
    // The word goes before the deed: a power cut in between leaves lines that nobody misses.
    if (isLess && (!announce(cut) || !m_disk.replace(beside, kept))) {
        return false;
    }
    {
        // Whoever is reading the file finds it as it was, or that it is another one.
        const MutexLock lock(m_mutex);
        LedgerFile* const here = known(file.name);
        if (isLess) {
            if (!m_disk.rename(beside, file.name)) {
                return false;
            }
            here->bytes = static_cast<int64_t>(kept.size());
            ++here->version;
        }
        here->hasObjects = false;  // also where nothing can be read: it goes whole, once it is the oldest
    }
    return !isLess || m_disk.sync(file.name);
}

bool Ledger::dropFile(const LedgerFile& file) {
    // All from the beginning on: the words about what went earlier may go with this file.
    if (!announce({kEverything, 1, file.lastSeq, 0}) || !m_disk.remove(file.name)) {
        return false;
    }
    const MutexLock lock(m_mutex);
    m_files.erase(m_files.begin());
    return true;
}

std::string Ledger::lines(int64_t fromSeq, int64_t through, int64_t mostBytes, std::set<std::string>* unread) const {
    for (;;) {
        const std::vector<LedgerFile> before = files();
        std::string text;
        std::set<std::string> leftOut;
        bool goesOn = true;
        for (auto file = before.begin(); file != before.end() && goesOn; ++file) {
            if (file->lastSeq < fromSeq || file->bytes == 0) {
                continue;
            }
            const std::optional<int64_t> from = file->firstSeq < fromSeq ? findLine(m_disk, *file, fromSeq) : 0;
            const bool isRead = from && forEachLine(m_disk, *file, *from, [&](std::string_view line, int64_t) {
                                    const std::optional<LineHead> head = headOf(line);
                                    if (!head) {
                                        leftOut.insert(file->name);
                                        return true;
                                    }
                                    const bool fits =
                                        text.empty() || static_cast<int64_t>(text.size() + line.size()) < mostBytes;
                                    goesOn = fits && head->seq <= through;
                                    if (goesOn) {
                                        text += line;
                                        text += '\n';
                                    }
                                    return goesOn;
                                });
            if (!isRead) {
                leftOut.insert(file->name);
            }
        }
        // A file that was rewritten or removed meanwhile may have been read half and half.
        const std::vector<LedgerFile> after = files();
        if (untouched(before, after)) {
            if (unread != nullptr) {
                unread->merge(leftOut);
            }
            return text;
        }
    }
}

}  // namespace ledger
