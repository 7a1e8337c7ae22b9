#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "index.h"
#include "last_run.h"
#include "ledger.h"

/** The ledger as requests reach it. */
class LedgerAccess {
public:
    virtual ~LedgerAccess() = default;

    /**
     * Whole lines from a number on, as many as fit into so many bytes, synced before where that does not take long:
     * what was handed out once is never lost.
     */
    virtual std::string safeLines(int64_t fromSeq, int64_t mostBytes) = 0;

    [[nodiscard]] virtual const ledger::Ledger& book() const = 0;

    /** The run before this one. */
    [[nodiscard]] virtual const ledger::LastRun& lastRun() const = 0;

    /** The index, with what was written until now. */
    virtual const ledger::Index& index() = 0;
};

/** The pairs of a request's query, decoded, in their order. */
using QueryPairs = std::vector<std::pair<std::string, std::string>>;

/** The value of the first pair of that key. */
std::string valueOf(const QueryPairs& query, const char* key, const std::string& otherwise = "");

/** A whole number; throws std::invalid_argument, saying what was expected and what came. what: its name. */
int64_t numberOf(const std::string& text, int64_t least, int64_t most, const char* what);

/** What a request of the ledger is answered. */
struct LedgerAnswer {
    const char* contentType;
    std::string headers; /**< further ones, each with its end */
    std::string body;
};

/**
 * Answers get_ledger, get_counts and occupancy_before; nothing for another action. Throws std::invalid_argument, saying
 * what was expected, for a question that makes no sense. Takes milliseconds, however large the ledger is.
 */
std::optional<LedgerAnswer> answerFromLedger(LedgerAccess& access, const std::string& action, const QueryPairs& query);
