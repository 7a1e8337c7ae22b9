#include "ledger_flash.h"

#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

#include "ledger/index.h"
#include "ledger/ledger.h"
#include "ledger/recorder.h"
#include "statistics/occupancy_records.h"
#include "test_folder.h"

namespace {

constexpr int64_t kMidnight = 1'795'305'600'000;  // 2026-11-22, UTC
constexpr int64_t kDayMillis = 86'400'000;
constexpr int64_t kCycle = 100;
constexpr int64_t kPeople = 5'000;
constexpr int64_t kSync = 300'000;
constexpr int64_t kPeriod = 900'000;
constexpr int64_t kReader = 60'000;
constexpr int64_t kMostBytes = int64_t{32} << 20;
constexpr size_t kDays = 25;  // until objects are left in the newest files only

/** A folder that counts the pages of flash that are written: each sync writes every page that was touched since. */
class Pages : public ledger::Disk {
public:
    explicit Pages(const std::filesystem::path& folder) : m_disk(ledger::openFolder(folder.string())) {}

    [[nodiscard]] int64_t bytes() const { return m_pages * kPage; }

    std::vector<std::string> list() override { return m_disk->list(); }
    bool append(const std::string& name, std::string_view text) override { return m_disk->append(name, text); }
    bool sync(const std::string& name) override {
        const int64_t now = m_disk->size(name).value_or(0);
        int64_t& before = m_synced[name];
        m_pages += now > before ? (now + kPage - 1) / kPage - before / kPage : 0;
        before = now;
        return m_disk->sync(name);
    }
    bool truncate(const std::string& name, int64_t size) override { return m_disk->truncate(name, size); }
    bool replace(const std::string& name, std::string_view content) override {
        const auto size = static_cast<int64_t>(content.size());
        m_pages += (size + kPage - 1) / kPage;
        m_synced[name] = size;
        return m_disk->replace(name, content);
    }
    bool rename(const std::string& from, const std::string& to) override {
        m_synced[to] = m_synced[from];
        return m_disk->rename(from, to);
    }
    bool remove(const std::string& name) override { return m_disk->remove(name); }
    std::optional<int64_t> size(const std::string& name) override { return m_disk->size(name); }
    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        return m_disk->read(name, from, most);
    }

private:
    static constexpr int64_t kPage = 4096;
    std::unique_ptr<ledger::Disk> m_disk;
    std::map<std::string, int64_t> m_synced; /**< sizes */
    int64_t m_pages = 0;
};

int sideOf(t_one_locator at) {
    return at.first < 320 ? 0 : 1;
}

/** A camera's ledger, and the people that it sees. */
class Camera {
public:
    Camera() { m_book.open(); }

    /** A day of people; returns what it wrote, in bytes. */
    int64_t liveADay() {
        const int64_t before = m_disk.bytes();
        for (int64_t since = 0; since < kDayMillis; since += kCycle, m_now += kCycle) {
            m_recorder.add({seenAt(since), {640, 360}, {m_now, 0, true}, 0, false});
            if (since % kPeriod == 0) {
                writePeriod();
            }
            // When it is time since the last one, and when somebody reads the new lines behind a period.
            if (m_now - m_keptAt >= kSync || since % kPeriod == kReader) {
                m_keptAt = m_now;
                keep();
            }
        }
        while (!m_index.update(int64_t{1} << 20)) {
        }
        return m_disk.bytes() - before;
    }

    /** Whether the oldest lines had to go. */
    [[nodiscard]] bool isFull() const { return m_isFull; }

    /** The crossings of the day that ended last. */
    [[nodiscard]] int64_t crossings() const {
        int64_t crossings = 0;
        const int64_t quarter = m_now / ledger::kQuarterMillis;
        for (const auto& [number, counted] : m_index.quarters(quarter - 96, quarter)) {
            for (const auto& [key, count] : counted.crossings) {
                crossings += count;
            }
        }
        return crossings;
    }

private:
    /** Everybody who is there so long after midnight. */
    std::vector<one_find> seenAt(int64_t since) {
        constexpr int64_t kApart = kDayMillis / kPeople;
        const int64_t walked = since % kApart;
        if (walked >= 10'000) {
            return {};
        }
        one_find finding;
        finding.id = static_cast<int32_t>(since / kApart);
        finding.locator = {static_cast<int32_t>(20 + static_cast<double>(walked) * 0.06 + m_sway(m_random)),
                           static_cast<int32_t>(180 + m_sway(m_random))};
        finding.entranceAct =
            walked >= 5'000 && walked < 5'000 + kCycle ? entranceActivity::enterEntrance1 : entranceActivity::unknown;
        finding.footing = sideOf(finding.locator) == 1 ? footings::in_AOI1_briefly : footings::not_in_AOI;
        return {finding};
    }

    /** People at three entrances and in three areas, as an archive has them. */
    void writePeriod() {
        nlohmann::ordered_json tallies = nlohmann::ordered_json::object();
        for (size_t i = 0; i < entranceNames.size(); ++i) {
            for (const char* const direction : {"_Entrances_", "_Exits_"}) {
                tallies[std::string(entranceNames.at(i)) + direction + "Person"] = 17;
            }
            for (const char* const kind : {"", "Average"}) {
                tallies[kind + std::string(aoiNames.at(i)) + "_Person"] = 2;
            }
        }
        tallies["Occupancy_Person"] = 12;
        m_book.append("period", {{"begin", ledger::utcText(m_now - kPeriod)},
                                 {"end", ledger::utcText(m_now)},
                                 {"offset", 3600},
                                 {"archived", "2026-11-22 08:15:00"},
                                 {"camera", "Front door"},
                                 {"coverage", 0.9987654321},
                                 {"tallies", std::move(tallies)}});
    }

    void keep() {
        m_book.keep();
        while (!m_index.update(int64_t{1} << 20)) {
        }
        m_index.save();
        m_book.leaveRoom(m_index.savedBytes());
        const std::vector<ledger::LedgerFile> files = m_book.files();
        m_isFull = m_isFull || files.front().firstSeq > 1 || files.front().version > 0;
    }

    const TestFolder m_folder;
    Pages m_disk{m_folder.path() / "ledger"};
    int64_t m_now = kMidnight;
    int64_t m_keptAt = kMidnight;
    ledger::Ledger m_book{m_disk,
                          {kMostBytes,
                           [this] {
                               return ledger::Moment{m_now, "", 0};
                           },
                           [] { return std::string("f963ba5f450c209a"); }}};
    ledger::Index m_index{m_disk, m_book};
    ledger::Recorder m_recorder{
        [this](const std::string& kind, const nlohmann::ordered_json& body) { m_book.append(kind, body); }, sideOf};
    std::mt19937 m_random{1};
    std::normal_distribution<double> m_sway{0, 2};
    bool m_isFull = false;
};

}  // namespace

std::vector<double> ledgerOnTheFlash() {
    Camera camera;
    while (!camera.isFull()) {
        camera.liveADay();
    }
    std::vector<double> days;
    while (days.size() < kDays) {
        days.push_back(static_cast<double>(camera.liveADay()) / 1e6);
        if (camera.crossings() < kPeople - 10) {
            throw std::runtime_error("expected 5000 crossings of a day in the ledger, got " +
                                     std::to_string(camera.crossings()));
        }
    }
    return days;
}
