#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/config_params.h"
#include "ledger/index.h"
#include "ledger/last_run.h"
#include "ledger/ledger.h"
#include "ledger/object_path.h"
#include "ledger/run_totals.h"
#include "web/answer_jobs.h"

/** The ledger as requests reach it. */
class LedgerAccess {
public:
    virtual ~LedgerAccess() = default;

    [[nodiscard]] virtual const ledger::Ledger& book() const = 0;

    /** Has the lines that are there by now synced; waits for it as long as a request may. */
    virtual void makeSafe() = 0;

    /** The run before this one. */
    [[nodiscard]] virtual ledger::LastRun lastRun() const = 0;

    /** The index, as far as it has come. */
    virtual ledger::Index& index() = 0;

    /** Adds a line. */
    virtual void write(const std::string& kind, const nlohmann::ordered_json& body) = 0;

    /** Makes answers that take long; ends before the ledger does. */
    virtual AnswerJobs& jobs() = 0;

    /** The archive of crossings per period, for what was before the ledger. */
    [[nodiscard]] virtual std::string archive() const = 0;

    /** What the run has seen so far. */
    [[nodiscard]] virtual ledger::RunTotals totals() const = 0;
};

/** The pairs of a request's query, decoded, in their order. */
using QueryPairs = std::vector<std::pair<std::string, std::string>>;

/** The value of the first pair of that key. */
std::string valueOf(const QueryPairs& query, const char* key, const std::string& otherwise = "");

/** A whole number; throws std::invalid_argument, saying what was expected and what came. what: its name. */
int64_t numberOf(const std::string& text, int64_t least, int64_t most, const char* what);

/** What a request asks of the ledger. */
struct LedgerQuestion {
    std::string action;
    QueryPairs query = {};
    std::string body = {}; /**< of a POST */
    std::string user = {};
    ConfigParams settings = {};       /**< in force */
    ledger::PictureSize picture = {}; /**< that their areas are drawn in */
};

/** What a request of the ledger is answered. */
struct LedgerAnswer {
    const char* contentType;
    std::string headers; /**< further ones, each with its end */
    std::string body;
    const char* status = "200 OK";
};

/** Whether one of the two below answers an action. */
bool isOfLedger(const std::string& action);

/**
 * Answers get_ledger, get_counts, occupancy_before, stays, heat, why and ledger_answer, and test_follower, which takes
 * its time like these; nothing for another action.
 * Throws std::invalid_argument, saying what was expected, for a question that makes no sense, or has to be a POST.
 *
 * Takes 100 ms at most, however large the ledger is. What takes longer is answered with a number, {"job":7} and the
 * status 202, with which ledger_answer gives the answer, or the number again.
 */
std::optional<LedgerAnswer> answerFromLedger(LedgerAccess& access, const LedgerQuestion& question);

/** The same for a POST: recount, whose body is settings, and hand_count, whose body is a count made by hand. */
std::optional<LedgerAnswer> answerPostToLedger(LedgerAccess& access, const LedgerQuestion& question);
