#pragma once

#include <cstddef>
#include <vector>

namespace desktop {

/** No column. */
inline constexpr size_t kUnassigned = static_cast<size_t>(-1);

/**
 * Gives each row at most one column, and each column to at most one row, so that the sum of the gains is the largest
 * (Kuhn: The Hungarian method for the assignment problem, 1955; in Munkres' form of O(n^3) with potentials). A pair
 * without a gain above 0 is never made. gains holds rows x columns values; returns each row's column or kUnassigned.
 */
std::vector<size_t> assign(const std::vector<double>& gains, size_t rows, size_t columns);

}  // namespace desktop
