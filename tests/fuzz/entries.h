#pragma once

#include <stdexcept>
#include <string>
#include <vector>

/**
 * Reads what may come from outside or be left by a crash, whatever it holds. Each entry takes any bytes and throws a
 * Violation when something that always has to be true is not.
 */
namespace fuzz {

class Violation : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** One line as a record of every kind. */
void record(const std::string& text);

/** A follower's answer. */
void exchange(const std::string& text);

/** A log file. */
void log(const std::string& text);

/** The four archives, one after the other with a byte 0x1D between them: reading, mending, purging, the report. */
void archives(const std::string& text);

/** A file of a ledger: mending, going on, indexing, checking, and all that is asked of its lines. */
void ledger(const std::string& text);

struct Entry {
    const char* name; /**< its folder in the corpus */
    void (*run)(const std::string& text);
};
inline constexpr Entry kEntries[] = {
    {"record", record}, {"exchange", exchange}, {"log", log}, {"archives", archives}, {"ledger", ledger}};

}  // namespace fuzz
