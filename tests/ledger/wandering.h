#pragma once

/* A camera of walkers who never were, for what is asked of a ledger: it keeps them as a real one does. */

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "failing_power.h"
#include "inquiry/recount.h"
#include "ledger/recorder.h"
#include "tracking/counting_rules.h"

namespace inquiry {

inline constexpr ledger::PictureSize kPicture = {640, 360};
inline constexpr int64_t kBegin = 1'795'300'000'000;  // 2026-11-22, UTC
inline constexpr int64_t kCycle = 100;

/** Two entrances at the picture's left and right edge, the second with a slanted line, and an area in the middle. */
inline ConfigParams oldSettings() {
    ConfigParams config;
    config.b_DetectPersons = config.b_DetectCars = config.b_DetectBicycles = true;
    config.i_EntrancesControlPoints = 4;
    config.i_Occupancy1 = {0, 0, 120, 0, 120, 360, 0, 360};
    config.i_Occupancy2 = {520, 0, 639, 0, 639, 359, 440, 359};
    config.b_Occupancy1Active = config.b_Occupancy2Active = true;
    config.i_DetectionControlPoints = 4;
    config.i_Detection1 = {200, 100, 400, 100, 400, 300, 200, 300};
    config.b_Detection1Active = true;
    return config;
}

/** A camera whose objects wander about, and everything that it keeps of them. */
class Wandering {
public:
    explicit Wandering(unsigned seed, ConfigParams settings = oldSettings())
        : m_settings(std::move(settings)), m_random(seed) {
        storeEntrances(m_settings, m_areas);
        storeDetectionAreas(m_settings, m_areas);
        m_book.open();
        begin();
    }

    void begin() {
        m_objects.clear();
        m_period.clear();
        m_book.append("start", {{"version", "1"}});
        m_recorder = std::make_unique<ledger::Recorder>(
            [this](const std::string& kind, const nlohmann::ordered_json& body) { m_book.append(kind, body); },
            [this](t_one_locator at) {
                int side = detectionAreaAt(m_areas, at);
                for (int zone = 1; zone <= 3; ++zone) {
                    side = 2 * side + (m_areas.is_in_entrance(zone, at) ? 1 : 0);
                }
                return side;
            });
    }

    void run(int cycles) {
        for (int cycle = 0; cycle < cycles; ++cycle) {
            m_now += kCycle;
            if (dice(100) < 8 && m_objects.size() < 12) {
                m_objects.push_back({m_nextId++, 20.0 + dice(600), 20.0 + dice(320), 0, 0, dice(3), {}});
            }
            std::vector<one_find> findings;
            for (Wanderer& object : m_objects) {
                findings.push_back(move(object));
            }
            m_recorder->add({findings, kPicture, now(), 0, false});
            if (!m_objects.empty() && dice(100) < 4) {
                m_objects.erase(m_objects.begin() + dice(static_cast<int>(m_objects.size())));
            }
        }
    }

    void flush(const std::string& archived) {
        nlohmann::ordered_json tallies = nlohmann::ordered_json::object();
        for (const char* const zone : {"Entrance1", "Entrance2"}) {
            for (const char* const name : {"Person", "Bicycle", "Car"}) {
                for (const char* const way : {"_Entrances_", "_Exits_"}) {
                    const std::string key = std::string(zone) + way + name;
                    tallies[key] = m_period[key];
                }
            }
        }
        m_book.append("period", {{"archived", archived}, {"camera", "Door"}, {"tallies", tallies}});
        lastPeriod = std::exchange(m_period, {});
    }

    void stop() { m_recorder->finish(now(), 0); }

    /** From here on the clock goes on from another time. */
    void setClock(int64_t utcMillis) { m_now = utcMillis; }

    /** Somebody sets the clock while it looks, by so much. */
    void setClockBy(int64_t millis) {
        m_recorder->beginParts(now());
        const int64_t before = m_now;
        m_now += millis;
        m_startedAt += millis;
        m_book.append("clock", {{"before", ledger::utcText(before)}, {"after", ledger::utcText(m_now)}});
    }

    /** The machine is started again, and nobody knows the time yet, or somebody does. */
    void startMachine(const std::string& boot, bool knowsTime) {
        m_boot = boot;
        m_startedAt = m_now - 5000;
        m_knowsTime = knowsTime;
    }

    /** From here on the time is known, and a line says so. */
    void learnTime() {
        m_knowsTime = true;
        m_book.append("clock", {{"boot", m_boot}, {"mono", m_now - m_startedAt}, {"synchronised", true}});
    }

    Recounted recount(const ConfigParams& settings, const Span& span = {}) {
        return recountOf(chunksOf(disk, readToRecount(span)), settingsInForce(settings, kPicture), span);
    }

    ledger::Ledger& book() { return m_book; }
    [[nodiscard]] int64_t time() const { return m_now; }

    FailingPower disk{1};
    Counts counted;                            /**< what the camera counted */
    std::map<std::string, int64_t> lastPeriod; /**< by the tallies' names */

private:
    struct Wanderer {
        int32_t id;
        double x;
        double y;
        double dx;
        double dy;
        int classId;
        entrances state;
    };

    int dice(int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(m_random); }

    [[nodiscard]] ledger::Instant now() const { return {m_now - m_startedAt, m_startedAt, m_knowsTime}; }

    one_find move(Wanderer& object) {
        // Long straight ways, sharp turns, and rests.
        if (dice(100) < 5) {
            object.dx = dice(3) == 0 ? 0 : dice(31) - 15;
            object.dy = object.dx == 0 ? 0 : dice(21) - 10;
        }
        object.x = std::clamp(object.x + object.dx, 0.0, 639.0);
        object.y = std::clamp(object.y + object.dy, 0.0, 359.0);
        one_find finding;
        finding.id = object.id;
        // Now and then it looks like something else.
        finding.detect.ClassId = dice(10) == 0 ? (object.classId + 1) % 3 : object.classId;
        finding.locator = {static_cast<int32_t>(object.x), static_cast<int32_t>(object.y)};
        finding.entrance = entranceAt(m_areas, finding.locator);
        const int area = detectionAreaAt(m_areas, finding.locator);
        finding.footing = area == 0 ? footings::not_in_AOI : static_cast<footings>(2 * area - 1);
        finding.entranceAct = entranceActivityOf(object.state, finding.entrance, m_settings.b_IsCameraInside);
        if (finding.entranceAct != entranceActivity::unknown) {
            const int activity = static_cast<int>(finding.entranceAct);
            ++counted[{activity / 2 + 1, activity % 2 == 0, finding.detect.ClassId}];
            ++m_period["Entrance" + std::to_string(activity / 2 + 1) + (activity % 2 == 0 ? "_Entrances_" : "_Exits_") +
                       class_index_to_label(finding.detect.ClassId)];
        }
        object.state = finding.entrance;
        return finding;
    }

    const ConfigParams m_settings;
    area_of_interest m_areas{m_settings};
    std::mt19937 m_random;
    int64_t m_now = kBegin;
    std::string m_boot;
    int64_t m_startedAt = 0;
    bool m_knowsTime = true;
    ledger::Ledger m_book{
        disk,
        {int64_t{1} << 30,
         [this] {
             return m_knowsTime ? ledger::Moment{m_now, "", 0} : ledger::Moment{0, m_boot, m_now - m_startedAt};
         },
         [] { return std::string("epoch"); }}};
    std::unique_ptr<ledger::Recorder> m_recorder;
    std::vector<Wanderer> m_objects;
    int32_t m_nextId = 0;
    std::map<std::string, int64_t> m_period;
};

inline int64_t sumOf(const Counts& counts) {
    int64_t sum = 0;
    for (const auto& [key, count] : counts) {
        sum += count;
    }
    return sum;
}

}  // namespace inquiry
