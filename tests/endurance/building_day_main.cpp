#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include "building_day.h"
#include "ledger/line.h"

/**
 * A building of three cameras for 24 hours around each of the nights in which clocks are changed, with kills, full
 * disks and a clock that somebody sets. Ends with 1 when anything is not as it was to be. With words it lives through
 * what they say: the night's number from 1 on, hours, and a seed.
 */
int main(int argc, char** argv) {
    const struct {
        const char* zone;
        const char* change; /**< UTC */
        const char* resetAt;
    } nights[] = {{"Europe/Berlin", "2026-03-29T01:00:00.000Z", "02:30"},
                  {"Europe/Berlin", "2026-10-25T01:00:00.000Z", "02:30"},
                  {"Australia/Lord_Howe", "2026-04-04T15:00:00.000Z", "01:45"}};
    const auto number = [&](int place, int64_t standard) {
        return argc > place ? std::strtoll(argv[place], nullptr, 10) : standard;
    };
    size_t faults = 0;
    for (int64_t i = 1; i <= static_cast<int64_t>(std::size(nights)); ++i) {
        if (number(1, i) != i) {
            continue;
        }
        const auto& night = nights[i - 1];
        building::Day day;
        day.seed = static_cast<uint32_t>(number(3, i));
        day.length = number(2, 24) * 3'600'000;
        day.begin = ledger::utcOf(night.change).value() - day.length / 2;
        day.zone = night.zone;
        day.resetAt = night.resetAt;
        const building::Watched watched = building::liveThrough(day, {.checkProgram = "senvo-ledger"});
        std::cout << night.zone << ", " << night.change << ", seed " << day.seed << '\n';
        for (const std::string& line : watched.said) {
            std::cout << "  " << line << '\n';
        }
        constexpr size_t kMostShown = 30;
        for (size_t k = 0; k < std::min(watched.faults.size(), kMostShown); ++k) {
            std::cout << "  FAULT: " << watched.faults[k] << '\n';
        }
        std::cout << std::flush;
        faults += watched.faults.size();
    }
    std::cout << faults << " faults\n";
    return faults == 0 ? 0 : 1;
}
