#include "ledger/index.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "finding/finding.h"

namespace ledger {

namespace {

constexpr double kMinuteSeconds = 60;
constexpr std::string_view kEnding = ".index";
constexpr int64_t kEarliest = 1'577'836'800'000;  // 2020: a clock that says less was never set
constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
constexpr int64_t kMostMillis = int64_t{1} << 53;  // since 1970, beyond every year that is told
constexpr auto kLastClass = static_cast<int64_t>(objects::boat);

std::string indexName(const LedgerFile& file) {
    return fileName(file.firstSeq, file.day, false) + std::string(kEnding);
}

int64_t quarterOf(int64_t utcMillis) {
    return utcMillis / kQuarterMillis;
}

/** A number of a saved index; throws std::out_of_range for one that none has. */
int64_t wholeFrom(const nlohmann::json& value, int64_t least, int64_t most) {
    if (!value.is_number_integer() || value < least || value > most) {
        throw std::out_of_range("expected a number of an index");
    }
    return value.get<int64_t>();
}

/** What one line adds to the index. */
struct Addition {
    std::optional<CountKey> crossing;
    int32_t watchedMillis = 0;
};

std::optional<Addition> additionOf(const nlohmann::json& line, const std::string& kind) {
    Addition addition;
    if (kind == "crossing") {
        const int64_t entrance = numberIn(line, "entrance");
        const std::optional<int32_t> classId = label_to_class_index(textIn(line, "class"));
        if (entrance < 1 || entrance > 3 || !classId) {
            return std::nullopt;
        }
        addition.crossing = {static_cast<int>(entrance), textIn(line, "direction") == "in", *classId};
    } else {
        const auto seconds = line.find("seconds");
        const double watched = seconds != line.end() && seconds->is_number() ? seconds->get<double>() : 0;
        addition.watchedMillis = static_cast<int32_t>(std::clamp(watched, 0.0, kMinuteSeconds) * 1000);
    }
    return addition;
}

void add(Quarters& quarters, int64_t utcMillis, const std::optional<CountKey>& crossing, int32_t watchedMillis) {
    Quarter& quarter = quarters[quarterOf(utcMillis)];
    if (crossing) {
        ++quarter.crossings[*crossing];
    }
    quarter.watchedMillis += watchedMillis;
}

}  // namespace

bool Index::update(int64_t mostBytes) {
    const MutexLock updating(m_updating);
    return readAll(mostBytes);
}

bool Index::updateUnlessBusy(int64_t mostBytes) {
    if (!m_updating.try_lock()) {
        return false;
    }
    const MutexLock updating(m_updating, std::adopt_lock);
    return readAll(mostBytes);
}

bool Index::readAll(int64_t mostBytes) {
    if (const std::string epoch = m_book.end().epoch; epoch != m_epoch) {
        m_epoch = epoch;
        m_undated.clear();
        const MutexLock lock(m_mutex);
        m_parts.clear();
        m_cleanFor.clear();
    }
    for (const LedgerFile& file : m_book.files()) {
        if (mostBytes <= 0) {
            return false;
        }
        mostBytes -= read(file, mostBytes);
    }
    return mostBytes > 0;
}

/** Brings a file's part up to the file; returns how many bytes that took, all of them where that has to come again. */
int64_t Index::read(const LedgerFile& file, int64_t mostBytes) {
    Part part;
    {
        // A copy: who asks meanwhile is told what was known before.
        const MutexLock lock(m_mutex);
        const Part& known = m_parts[file.firstSeq];
        if (known.version == file.version && known.bytes >= file.bytes) {
            return 0;
        }
        part = known;
    }
    const int64_t knownSeq = part.lastSeq;
    if (part.version != file.version) {
        // Retention takes lines that the index does not count.
        part = part.lastSeq == file.lastSeq ? std::move(part) : Part{};
        part.bytes = part.lastSeq == file.lastSeq ? file.bytes : 0;
        part.version = file.version;
        part.isSaved = false;
    }
    const std::vector<Undated> undated = m_undated;
    const int64_t loaded = part.bytes == 0 ? load(file, part) : 0;
    const int64_t before = part.bytes;
    if (part.bytes < file.bytes && mostBytes > 0) {
        const auto visit = [&](std::string_view line, int64_t at) REQUIRES(m_updating) {
            // A file that is read again is read as far as it was, so that no count goes back.
            if (at - before >= mostBytes && part.lastSeq >= knownSeq) {
                return false;
            }
            take(line, part);
            part.bytes = at + static_cast<int64_t>(line.size()) + 1;
            return true;
        };
        part.unread = forEachLine(m_disk, file, part.bytes, visit) ? "" : file.name;
        part.isSaved = false;
    }
    const std::vector<LedgerFile> files = m_book.files();
    const bool isAsItWas = std::any_of(files.begin(), files.end(), [&](const LedgerFile& now) {
        return now.firstSeq == file.firstSeq && now.version == file.version;
    });
    if (!isAsItWas) {
        // What retention rewrites meanwhile is read half and half: this is for the next time.
        m_undated = undated;
        return mostBytes;
    }
    const int64_t taken = loaded + part.bytes - before;
    const MutexLock lock(m_mutex);
    m_parts[file.firstSeq] = std::move(part);
    return taken;
}

void Index::take(std::string_view line, Part& part) {
    const std::optional<LineHead> head = headOf(line);
    if (!head) {
        return;
    }
    const Moment& moment = head->moment;
    if (moment.isDated() && !part.begin) {
        part.begin = moment.utcMillis;
    } else if (!moment.isDated() && part.lastSeq == 0) {
        // It begins the file, and a line behind it may tell when that was.
        part.hasUndated = true;
        m_undated.push_back({moment.boot, moment.monoMillis, std::nullopt, 0});
    }
    part.lastSeq = head->seq;
    const bool counts = head->kind == "crossing" || head->kind == "watched";
    if (!counts && head->kind != "clock") {
        return;
    }
    const nlohmann::json parsed = parseLine(line);
    if (parsed.is_discarded()) {
        return;
    }
    if (!counts) {
        if (const std::optional<BootTime> known = bootTimeOf(*head, parsed)) {
            date(*known, part);
        }
        return;
    }
    const std::optional<Addition> addition = additionOf(parsed, head->kind);
    if (!addition) {
        return;
    }
    // A minute's line is written when the next one has begun.
    const bool isMinute = head->kind == "watched";
    if (!moment.isDated()) {
        part.hasUndated = true;
        const int64_t at = isMinute ? std::min(numberIn(parsed, "minute"), moment.monoMillis) : moment.monoMillis;
        m_undated.push_back({moment.boot, at, addition->crossing, addition->watchedMillis});
        return;
    }
    const std::optional<int64_t> minute = isMinute ? utcOf(textIn(parsed, "minute")) : std::nullopt;
    add(part.quarters, minute.value_or(moment.utcMillis), addition->crossing, addition->watchedMillis);
}

/** Counts what was seen since a start of the machine whose time is known now. */
void Index::date(const BootTime& time, Part& part) {
    const auto known = std::stable_partition(m_undated.begin(), m_undated.end(),
                                             [&](const Undated& line) { return line.boot != time.boot; });
    for (auto line = known; line != m_undated.end(); ++line) {
        const int64_t utcMillis = time.utcMillis + line->monoMillis;
        part.begin = std::min(part.begin.value_or(utcMillis), utcMillis);
        add(part.quarters, utcMillis, line->crossing, line->watchedMillis);
    }
    // Without the lines of the file before, this part cannot be had again.
    part.hasUndated = part.hasUndated || known != m_undated.end();
    m_undated.erase(known, m_undated.end());
}

/** Takes a file's part from the small file, where that fits; returns how many bytes it read. */
int64_t Index::load(const LedgerFile& file, Part& part) {
    const std::string name = indexName(file);
    const std::optional<int64_t> size = m_disk.size(name);
    const std::optional<std::string> text = size ? m_disk.read(name, 0, *size) : std::nullopt;
    const nlohmann::json saved = text ? nlohmann::json::parse(*text, nullptr, false) : nlohmann::json();
    try {
        if (!saved.is_object() || saved.at("bytes") != file.bytes || saved.at("last_seq") != file.lastSeq) {
            return size.value_or(0);
        }
        Part loaded;
        for (const nlohmann::json& entry : saved.at("quarters")) {
            Quarter& quarter = loaded.quarters[wholeFrom(entry.at(0), -kMostMillis, kMostMillis)];
            quarter.watchedMillis = wholeFrom(entry.at(1), 0, kMost);
            for (const nlohmann::json& count : entry.at(2)) {
                const auto entrance = static_cast<int>(wholeFrom(count.at(0), 1, 3));
                const auto classId = static_cast<int>(wholeFrom(count.at(2), 0, kLastClass));
                quarter.crossings[{entrance, count.at(1), classId}] = wholeFrom(count.at(3), 1, kMost);
            }
        }
        if (saved.contains("begin")) {
            loaded.begin = wholeFrom(saved.at("begin"), -kMostMillis, kMostMillis);
        }
        loaded.bytes = file.bytes;
        loaded.lastSeq = file.lastSeq;
        loaded.version = file.version;
        loaded.isSaved = true;
        loaded.savedBytes = *size;
        part = std::move(loaded);
    } catch (const std::exception&) {
        // Made by nobody that we know; the lines tell.
    }
    return size.value_or(0);
}

void Index::save() {
    const std::vector<LedgerFile> files = m_book.files();
    std::vector<std::pair<const LedgerFile*, Part>> unsaved;
    {
        const MutexLock lock(m_mutex);
        for (size_t i = 0; i + 1 < files.size(); ++i) {
            const Part& part = m_parts[files[i].firstSeq];
            if (!part.isSaved && !part.hasUndated && part.bytes == files[i].bytes) {
                unsaved.emplace_back(&files[i], part);
            }
        }
    }
    for (const auto& [file, part] : unsaved) {
        nlohmann::json quarters = nlohmann::json::array();
        for (const auto& [number, quarter] : part.quarters) {
            nlohmann::json counts = nlohmann::json::array();
            for (const auto& [key, count] : quarter.crossings) {
                counts.push_back({key.entrance, key.isIn, key.classId, count});
            }
            quarters.push_back({number, quarter.watchedMillis, std::move(counts)});
        }
        nlohmann::json saved = {{"bytes", part.bytes}, {"last_seq", part.lastSeq}, {"quarters", std::move(quarters)}};
        if (part.begin) {
            saved["begin"] = *part.begin;
        }
        const std::string text = saved.dump();
        const bool isWritten = m_disk.replace(indexName(*file), text);
        const MutexLock lock(m_mutex);
        Part& known = m_parts[file->firstSeq];
        known.isSaved = isWritten;
        known.savedBytes = isWritten ? static_cast<int64_t>(text.size()) : known.savedBytes;
    }
    std::set<std::string> names;
    for (const LedgerFile& file : files) {
        names.insert(indexName(file));
    }
    removeOthers(std::move(names));
    // Files may have begun meanwhile, and been read.
    std::set<int64_t> known;
    for (const LedgerFile& file : m_book.files()) {
        known.insert(file.firstSeq);
    }
    const MutexLock lock(m_mutex);
    std::erase_if(m_parts, [&](const auto& part) { return !known.contains(part.first); });
}

/** Removes the small files of ledger files that are gone; the folder is looked at only when others than before are
 * left. */
void Index::removeOthers(std::set<std::string> names) {
    {
        const MutexLock lock(m_mutex);
        if (names == m_cleanFor) {
            return;
        }
    }
    bool isClean = true;
    for (const std::string& name : m_disk.list()) {
        if (name.ends_with(kEnding) && !names.contains(name)) {
            isClean = m_disk.remove(name) && isClean;
        }
    }
    const MutexLock lock(m_mutex);
    m_cleanFor = isClean ? std::move(names) : std::set<std::string>();
}

Quarters Index::quarters(int64_t from, int64_t before) const {
    Quarters result;
    const MutexLock lock(m_mutex);
    for (const auto& [firstSeq, part] : m_parts) {
        for (auto at = part.quarters.lower_bound(from); at != part.quarters.end() && at->first < before; ++at) {
            Quarter& quarter = result[at->first];
            quarter.watchedMillis += at->second.watchedMillis;
            for (const auto& [key, count] : at->second.crossings) {
                quarter.crossings[key] += count;
            }
        }
    }
    return result;
}

std::optional<int64_t> Index::begin() const {
    std::optional<int64_t> earliest;
    const MutexLock lock(m_mutex);
    for (const auto& [firstSeq, part] : m_parts) {
        if (part.begin && *part.begin >= kEarliest && (!earliest || *part.begin < *earliest)) {
            earliest = part.begin;
        }
    }
    return earliest;
}

std::vector<LedgerFile> Index::unreadable() const {
    std::vector<LedgerFile> files = m_book.files();
    const MutexLock lock(m_mutex);
    std::erase_if(files, [this](const LedgerFile& file) REQUIRES(m_mutex) {
        // By its name of now: a file that grew up meanwhile is not at fault.
        const auto part = m_parts.find(file.firstSeq);
        return part == m_parts.end() || part->second.unread != file.name;
    });
    return files;
}

int64_t Index::savedBytes() const {
    const MutexLock lock(m_mutex);
    return std::accumulate(m_parts.begin(), m_parts.end(), int64_t{0},
                           [](int64_t sum, const auto& part) { return sum + part.second.savedBytes; });
}

}  // namespace ledger
