#pragma once

#include <cstdint>
#include <string>

/** The texts that numbers have in the settings exchange, and the way back. */
namespace settings_text {

/**
 * A pixel of a stream of so many pixels as a fraction, eight characters for 0 to 1, such as "0.500000". It is rounded
 * up where rounding down would lose the pixel on the way back. "0.000000" for a stream without size.
 */
std::string coordinate(int32_t pixel, int32_t size);

/** The way back: the fraction times the size, cut. Throws std::invalid_argument or std::out_of_range. */
int32_t pixel(const std::string& text, int32_t size);

/**
 * Cycles as seconds: a whole number where it is one, such as "2", and six decimals otherwise. "0" when the analysis
 * period (milliseconds) leaves no whole cycle in a second.
 */
std::string seconds(int32_t cycles, int32_t period);

/**
 * The way back: seconds times the whole cycles in a second, cut. Throws std::domain_error for a period of 0, and what
 * pixel() throws.
 */
int32_t cycles(const std::string& text, int32_t period);

}  // namespace settings_text
