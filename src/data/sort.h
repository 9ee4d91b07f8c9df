// SORTSH, the sort kernel of SORT, of medians and quartiles, and of ranks.
//
// The order of the rows is found first, from the key alone, and the columns are then moved into it
// one by one. Equal keys keep their order, also when the order is falling; 0.0 and -0.0 are equal;
// NaN stands behind all numbers in either direction. No number is changed, only moved. The result
// is the same for any number of threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace korvel {

// The rows that take part: first to last, counted from 0, last not included, without those whose
// mark in `skip` is above 0 (rows beyond its end are in use). The others stay where they are.
struct SortRows {
  std::size_t first = 0;
  std::size_t last = 0;
  std::span<const double> skip{};
  bool used(std::size_t row) const { return row >= skip.size() || !(skip[row] > 0.0); }
};
std::size_t count_rows(const SortRows& rows);

// Words of work space with which n rows are sorted at full speed. n words are enough for all that
// follows here, at a tenth of the speed.
std::size_t SORTSH_words(std::size_t n);

// Sorts rows by the column key, falling with `descend`, and moves every column of `columns` (the
// key among them or not; none twice). Columns hold at least rows.last elements, and at most 2**31.
// work: SORTSH_words(n) words, or at least n. IFAULT 1: less than that, nothing has been moved.
int SORTSH(std::span<const double> key, std::span<double* const> columns, const SortRows& rows,
           bool descend, std::span<double> work);

// Sorts one column upward.
int SORTSH(std::span<double> x, std::span<double> work);

// The order alone, for ranks: order[k] is the place (from 0) of the k-th smallest of x. It lies in
// the work space, as above. Empty when that is too short.
std::span<const std::uint64_t> sort_order(std::span<const double> x, std::span<double> work);

// Order statistics of a sorted column. Quartiles are interpolated between the order statistics
// around 1+(n-1)p: Hyndman and Fan (1996), The American Statistician 50, 361-365, definition 7;
// the median of an even count is the mean of the two in the middle.
struct SortStatistics {
  double median = 0;
  double lower = 0;  // quartiles
  double upper = 0;
  double mode = 0;            // the smallest of the most frequent values
  std::size_t frequency = 0;  // observations at the mode; 1: there is no mode
  std::size_t modes = 0;      // values that are so frequent
};
// x: sorted upward, at least one number; NaN at its end is left out.
SortStatistics sort_statistics(std::span<const double> x);
// Prints them: the MEDIAN line, and the MODE line or that it is not applicable.
void print_sort_statistics(const SortStatistics& s);

}  // namespace korvel
