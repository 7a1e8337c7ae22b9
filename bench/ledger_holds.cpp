#include "ledger_holds.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "app/ledger_keeping.h"
#include "ledger/line.h"
#include "web/ledger_actions.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kDayMillis = 86'400'000;
constexpr double kMostMicros = 100'000;
constexpr int kStarts = 3;
constexpr int kAsked = 5;

/** One way to ask an action. */
struct Asked {
    const char* topic;
    LedgerQuestion question;
    bool isPost = false;
};

/** The application's ledger, as after its start. */
std::unique_ptr<LedgerKeeping> keepingOf(const std::filesystem::path& folder) {
    return std::make_unique<LedgerKeeping>(LedgerSettings{folder.string(), int64_t{1} << 40, 1, 0}, "bench", 0,
                                           [](t_one_locator) { return 0; });
}

/** Asks once; seconds that this took. */
double hold(LedgerAccess& access, const Asked& asked, LedgerAnswer& answer) {
    const Clock::time_point begin = Clock::now();
    const auto given = (asked.isPost ? answerPostToLedger : answerFromLedger)(access, asked.question);
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    if (!given) {
        throw std::runtime_error(std::string("expected an answer to ") + asked.question.action + ", got none");
    }
    answer = *given;
    return seconds.count();
}

/** Asks, and fetches the answer where it takes its time; seconds of the longest hold. */
double longestHold(LedgerAccess& access, const Asked& asked) {
    LedgerAnswer answer = {};
    double longest = hold(access, asked, answer);
    while (std::string(answer.status) == "202 Accepted") {
        const std::string job = nlohmann::json::parse(answer.body).at("job").dump();
        longest = std::max(longest, hold(access, {"", {"ledger_answer", {{"job", job}}}}, answer));
    }
    return longest;
}

std::vector<Asked> questions(int64_t until) {
    const auto since = [until](int64_t days) {
        return QueryPairs{{"from", ledger::utcText(until - days * kDayMillis)},
                          {"to", ledger::utcText(until)},
                          {"zone", "Europe/Berlin"}};
    };
    const auto with = [](QueryPairs query, const QueryPairs& more) {
        query.insert(query.end(), more.begin(), more.end());
        return query;
    };
    const char* const areas =
        R"({"entrance1":[[0,0],[0.5,0],[0.5,1],[0,1]],"detection1":[[0,0],[0.5,0],[0.5,1],[0,1]]})";
    return {{"hold of get_ledger", {"get_ledger", {{"since", "epoch:300000"}}}},
            {"hold of get_ledger, one kind", {"get_ledger", with(since(400), {{"kinds", "stop"}})}},
            {"hold of get_counts, a month", {"get_counts", with(since(30), {{"step", "day"}})}},
            {"hold of get_counts, all",
             {"get_counts", with(since(730), {{"step", "hour"}, {"by", "entrance,direction,class"}})}},
            {"hold of occupancy_before", {"occupancy_before"}},
            {"hold of stays", {"stays", since(1)}},
            {"hold of heat", {"heat", since(1)}},
            {"hold of why", {"why", since(1)}},
            {"hold of recount", {"recount", since(1), areas}, true},
            {"hold of hand_count",
             {"hand_count", {}, R"({"begin":"2026-11-21T09:00:00.000Z","end":"2026-11-21T10:00:00.000Z","taps":[]})"},
             true}};
}

}  // namespace

std::vector<Limit> registerLedgerHolds(const std::function<std::filesystem::path()>& folder, int64_t until) {
    std::vector<Limit> limits;
    const auto add = [&](const char* topic, const char* variant, const std::function<double()>& longest) {
        benchmark::RegisterBenchmark((std::string(topic) + "/" + variant).c_str(),
                                     [longest](benchmark::State& state) {
                                         for (auto _ : state) {
                                             state.SetIterationTime(longest());
                                         }
                                     })
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(1);
        limits.push_back({topic, variant, "", kMostMicros});
    };
    for (const Asked& asked : questions(until)) {
        add(asked.topic, "first", [=] {
            double longest = 0;
            for (int i = 0; i < kStarts; ++i) {
                longest = std::max(longest, longestHold(*keepingOf(folder()), asked));
            }
            return longest;
        });
        add(asked.topic, "later", [=] {
            const std::unique_ptr<LedgerKeeping> keeping = keepingOf(folder());
            longestHold(*keeping, asked);
            double longest = 0;
            for (int i = 0; i < kAsked; ++i) {
                longest = std::max(longest, longestHold(*keeping, asked));
            }
            return longest;
        });
    }
    return limits;
}
