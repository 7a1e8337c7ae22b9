#pragma once

#include <cstdint>
#include <ctime>
#include <functional>

/**
 * The one clock of the application. Everything that asks for the time asks here, so that tests and offline runs decide
 * what time it is.
 */

/** Wall-clock time, microseconds since 1970. Any thread. */
int64_t clockNowMicros();

/** Wall-clock time, whole seconds since 1970. Any thread. */
time_t clockNow();

/** Microseconds since some moment before the start, which go on evenly however the wall clock is set. Any thread. */
int64_t steadyNowMicros();

/** The same in whole seconds. Any thread. */
time_t steadyNow();

/** The calendar time of a moment in the machine's time zone, as that is set now. Any thread. */
std::tm localTime(time_t moment);

/** The moment of a calendar time in that zone; its fields are brought into their ranges first. Any thread. */
time_t fromLocalTime(std::tm calendar);

/**
 * Replaces the time source; an empty function brings the system's clocks back. Without a second one, the first stands
 * for the steady clock, too. Call before threads that read it start.
 */
void setClock(std::function<int64_t()> nowMicros, std::function<int64_t()> steadyMicros = {});
