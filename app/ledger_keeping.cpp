#include "app/ledger_keeping.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <utility>

#include "base/camera_paths.h"
#include "base/clock.h"
#include "log/Logger.h"

namespace {

using nlohmann::ordered_json;

constexpr const char* kFolder = "/usr/local/packages/ostrel_senvo/localdata/ledger";
constexpr const char* kArchive = "/usr/local/packages/ostrel_senvo/localdata/EntranceActivityTidy.csv";
constexpr int64_t kMostMebibytes = int64_t{1} << 20;
constexpr int64_t kLongestSync = 3'600;
constexpr int64_t kLongestKept = 3'600;
constexpr int64_t kErrorInterval = 60;
constexpr int64_t kIndexStep = int64_t{1} << 20;    // bytes between two looks whether the process ends
constexpr std::chrono::milliseconds kPatience(50);  // of a request, for a sync

/** A number from the environment; nothing, logged, for one outside its range. */
std::optional<int64_t> numberFrom(const char* variable, int64_t most) {
    const char* const text = std::getenv(variable);
    if (text == nullptr) {
        return std::nullopt;
    }
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    if (end == text || *end != '\0' || number < 1 || number > most) {
        applicationLog().error(std::string("fromEnvironment: expected ") + variable + " from 1 to " +
                               std::to_string(most) + ", got \"" + text + "\"");
        return std::nullopt;
    }
    return number;
}

std::string randomEpoch() {
    constexpr char kDigits[] = "0123456789abcdef";
    std::random_device random;
    std::string epoch;
    for (int i = 0; i < 16; ++i) {
        epoch += kDigits[random() % 16];
    }
    return epoch;
}

int64_t zoneOffsetSeconds() {
    return localTime(clockNow()).tm_gmtoff;
}

}  // namespace

LedgerSettings LedgerSettings::fromEnvironment() {
    LedgerSettings settings;
    settings.folder = cameraPath(kFolder);
    if (const std::optional<int64_t> mebibytes = numberFrom("OSTREL_SENVO_LEDGER_MIB", kMostMebibytes)) {
        settings.mostBytes = *mebibytes << 20;
    }
    if (const std::optional<int64_t> seconds = numberFrom("OSTREL_SENVO_LEDGER_SYNC", kLongestSync)) {
        settings.syncSeconds = static_cast<int32_t>(*seconds);
    }
    if (const std::optional<int64_t> seconds = numberFrom("OSTREL_SENVO_KEEP_OCCUPANCY", kLongestKept)) {
        settings.keepOccupancySeconds = static_cast<int32_t>(*seconds);
    }
    return settings;
}

LedgerKeeping::LedgerKeeping(LedgerSettings settings, const std::string& version, uint32_t settingsNumber,
                             ledger::ObjectPath::SideOf sideOf, ledger::ClockSources clock)
    : m_settings(std::move(settings)),
      m_clock(std::move(clock)),
      m_disk(ledger::openFolder(m_settings.folder)),
      m_book(*m_disk, {m_settings.mostBytes, [this] { return m_clock.moment(); }, randomEpoch}),
      m_index(*m_disk, m_book),
      m_begin(m_clock.now()),
      m_recorder([this](const std::string& kind, const ordered_json& body) { write(kind, body); }, std::move(sideOf)),
      m_periodBegin(m_begin) {
    if (const std::string dropped = m_book.open(); !dropped.empty()) {
        applicationLog().warning("LedgerKeeping: mended the ledger, dropping " + dropped);
    }
    m_lastRun = ledger::lastRunOf(*m_disk, m_book.files(), m_begin, m_clock.boot());
    m_firstOccupancy = keptOccupancy();
    m_occupancy = m_firstOccupancy;
    ordered_json start = {{"version", version},
                          {"settings", settingsNumber},
                          {"last_run", m_lastRun.ending},
                          {"occupancy", m_firstOccupancy}};
    if (m_begin.isDated) {
        start["boot"] = m_clock.boot();  // else the line begins with it
    }
    write("start", start);
    if (m_begin.isDated) {
        // Dates what a run before this one wrote without knowing the time, and says what there is to hold of this one.
        write("clock", m_clock.known());
    }
    m_thread = std::thread([this] { run(); });
}

void LedgerKeeping::finish() {
    m_recorder.finish(m_clock.now(), m_occupancy);
    write("stop", {{"reason", "stopped in order"}, {"occupancy", m_occupancy.load()}});
}

LedgerKeeping::~LedgerKeeping() {
    finish();
    {
        const MutexLock lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notifyAll();
    m_thread.join();
}

void LedgerKeeping::lookAtClock() {
    const std::optional<ordered_json> change = m_clock.look([this] { m_recorder.beginParts(m_clock.now()); });
    if (!change) {
        return;
    }
    write("clock", *change);
    // A clock that is taken as it is says nothing of how long the machine was off.
    if (change->value("synchronised", false) && learnGap()) {
        m_lateOccupancy = keptOccupancy();
    }
}

bool LedgerKeeping::learnGap() {
    const int64_t begin = m_begin.monoMillis + m_clock.now().utcOffset;
    const MutexLock lock(m_mutex);
    if (m_lastRun.gapMillis || !m_lastRun.lastLine || !m_lastRun.lastLine->isDated()) {
        return false;
    }
    m_lastRun.gapMillis = begin - m_lastRun.lastLine->utcMillis;
    return true;
}

int32_t LedgerKeeping::keptOccupancy() {
    const MutexLock lock(m_mutex);
    const int64_t most = int64_t{1000} * m_settings.keepOccupancySeconds;
    const bool isKept =
        m_lastRun.occupancy && m_lastRun.gapMillis && *m_lastRun.gapMillis >= 0 && *m_lastRun.gapMillis < most;
    return isKept ? static_cast<int32_t>(*m_lastRun.occupancy) : 0;
}

int32_t LedgerKeeping::add(const std::vector<one_find>& findings, ledger::PictureSize picture, int32_t occupancy,
                           bool isSlow, int64_t meantMillis) {
    lookAtClock();
    m_occupancy = occupancy;
    m_recorder.add({findings, picture, m_clock.now(), occupancy, isSlow, meantMillis});
    shareTotals();
    return m_isSet ? 0 : std::exchange(m_lateOccupancy, 0);
}

void LedgerKeeping::addFailure() {
    lookAtClock();
    m_recorder.addFailure(m_clock.now(), m_occupancy);
    shareTotals();
}

void LedgerKeeping::shareTotals() {
    const MutexLock lock(m_mutex);
    m_totals = m_recorder.totals();
}

ledger::RunTotals LedgerKeeping::totals() const {
    const MutexLock lock(m_mutex);
    return m_totals;
}

void LedgerKeeping::addPeriod(const EndedPeriod& period) {
    const ledger::Instant now = m_clock.now();
    const int64_t length = now.monoMillis - m_periodBegin.monoMillis;
    const int64_t watched = m_recorder.totals().watchedMillis - m_watchedBefore;
    ordered_json numbers = ordered_json::object();
    for (const auto& [name, text] : period.tallies) {
        numbers[name] = std::strtoll(text.c_str(), nullptr, 10);
    }
    const auto timeOf = [&](int64_t mono) {
        return now.isDated ? ordered_json(ledger::utcText(mono + now.utcOffset)) : ordered_json(mono);
    };
    write("period",
          {{"begin", timeOf(m_periodBegin.monoMillis)},
           {"end", timeOf(now.monoMillis)},
           {"offset", zoneOffsetSeconds()},
           {"archived", period.dateTime},
           {"camera", period.camera},
           {"coverage", length > 0 ? std::min(1.0, static_cast<double>(watched) / static_cast<double>(length)) : 0},
           {"tallies", std::move(numbers)}});
    m_periodBegin = now;
    m_watchedBefore = m_recorder.totals().watchedMillis;
}

void LedgerKeeping::write(const std::string& kind, const ordered_json& body) {
    if (kind == "reset" || kind == "corrected") {
        const auto to = body.find("to");
        m_occupancy = to == body.end() ? 0 : to->get<int32_t>();
        m_isSet = true;
    }
    if (!m_book.append(kind, body)) {
        complain("write to");
    }
}

void LedgerKeeping::complain(const char* what) {
    const std::string reason = std::strerror(errno);
    const int64_t now = steadyNowMicros() / 1'000'000;  // whatever somebody does to the clock
    int64_t next = m_nextError;
    if (now >= next && m_nextError.compare_exchange_strong(next, now + kErrorInterval)) {
        applicationLog().error(std::string("LedgerKeeping: cannot ") + what + " " + m_settings.folder + ": " + reason +
                               "; " + std::to_string(m_book.droppedLines()) + " lines are lost so far");
    }
}

void LedgerKeeping::run() {
    const int64_t interval = int64_t{m_settings.syncSeconds} * 1'000'000;
    int64_t due = steadyNowMicros() + interval;
    for (bool isEnding = false; !isEnding;) {
        {
            MutexLock lock(m_mutex);
            const auto end = std::chrono::steady_clock::now() +
                             std::chrono::microseconds(std::clamp(due - steadyNowMicros(), int64_t{0}, interval));
            while (!m_isEnding && !m_isHurried && m_changed.waitUntil(m_mutex, end)) {
            }
            isEnding = m_isEnding;
            m_isHurried = false;
            ++m_begun;
        }
        due = steadyNowMicros() + interval;
        const std::string epoch = m_book.end().epoch;
        if (!m_book.keep()) {
            complain("keep");
        }
        if (m_book.end().epoch != epoch) {
            applicationLog().warning("LedgerKeeping: somebody removed the files of " + m_settings.folder +
                                     "; a new ledger begins");
        }
        {
            const MutexLock lock(m_mutex);
            m_done = m_begun;
        }
        m_changed.notifyAll();
        // Reading what others wrote long ago keeps no sync waiting.
        bool isInterrupted = isEnding;
        while (!isInterrupted && !m_index.update(kIndexStep)) {
            const MutexLock lock(m_mutex);
            isInterrupted = m_isEnding || m_isHurried || steadyNowMicros() >= due;
        }
        m_index.save();
        m_book.leaveRoom(m_index.savedBytes());
    }
}

ledger::LastRun LedgerKeeping::lastRun() const {
    const MutexLock lock(m_mutex);
    return m_lastRun;
}

void LedgerKeeping::makeSafe() {
    if (m_book.safeSeq() == m_book.end().seq) {
        return;
    }
    MutexLock lock(m_mutex);
    // The one that goes on may have begun before the newest line.
    const int64_t enough = m_begun + 1;
    m_isHurried = true;
    m_changed.notifyAll();
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (m_done < enough && !m_isEnding && m_changed.waitUntil(m_mutex, end)) {
    }
}

std::string LedgerKeeping::archive() const {
    return cameraPath(kArchive);
}
