#include "desktop/inference/steady/assignment.h"

#include <algorithm>
#include <limits>

namespace desktop {

std::vector<size_t> assign(const std::vector<double>& gains, size_t rows, size_t columns) {
    // Square, with pairs that are worth nothing standing for no pair at all. Rows and columns count from 1 within; row
    // and column 0 are where the search for a path begins.
    const size_t size = std::max(rows, columns);
    const auto cost = [&](size_t row, size_t column) {
        return row <= rows && column <= columns ? -std::max(0.0, gains[(row - 1) * columns + column - 1]) : 0.0;
    };
    std::vector<double> rowPotential(size + 1, 0);
    std::vector<double> columnPotential(size + 1, 0);
    std::vector<size_t> rowOf(size + 1, 0);
    std::vector<size_t> before(size + 1, 0);
    for (size_t row = 1; row <= size; ++row) {
        std::vector<double> least(size + 1, std::numeric_limits<double>::infinity());
        std::vector<bool> reached(size + 1, false);
        rowOf[0] = row;
        size_t column = 0;
        do {
            reached[column] = true;
            const size_t from = rowOf[column];
            double step = std::numeric_limits<double>::infinity();
            size_t next = 0;
            for (size_t c = 1; c <= size; ++c) {
                if (reached[c]) {
                    continue;
                }
                const double reduced = cost(from, c) - rowPotential[from] - columnPotential[c];
                if (reduced < least[c]) {
                    least[c] = reduced;
                    before[c] = column;
                }
                if (least[c] < step) {
                    step = least[c];
                    next = c;
                }
            }
            for (size_t c = 0; c <= size; ++c) {
                if (reached[c]) {
                    rowPotential[rowOf[c]] += step;
                    columnPotential[c] -= step;
                } else {
                    least[c] -= step;
                }
            }
            column = next;
        } while (rowOf[column] != 0);
        for (; column != 0; column = before[column]) {
            rowOf[column] = rowOf[before[column]];
        }
    }
    std::vector<size_t> columnOf(rows, kUnassigned);
    for (size_t c = 1; c <= columns; ++c) {
        const size_t row = rowOf[c];
        if (row >= 1 && row <= rows && cost(row, c) < 0) {
            columnOf[row - 1] = c - 1;
        }
    }
    return columnOf;
}

}  // namespace desktop
