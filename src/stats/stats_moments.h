// Moments of series and of common rows, the numbers under STAT and PCOMP.
//
// Means and sums of squares are made in two passes over the data (Chan, Golub and LeVeque 1983):
// the second one takes the deviations' own mean off again, which also gives the digits of the mean
// that a real cannot hold (`low`), so that differences of means keep theirs. Partial sums over
// short blocks are joined with their rounding errors (Neumaier 1974). Long series are cut into
// sections that threads share; the result does not depend on their number.
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// A series and the rows of it that count.
struct SeriesRows {
  const double* x = nullptr;
  std::int64_t rows = 0;
  const double* weight = nullptr;   // by row, above 0 at every row that counts; null: 1
  std::span<const double> marks{};  // rows with a mark above 0 are passed over; empty: none are
  bool missing = false;             // rows whose value is `code` are passed over
  double code = 0.0;
};

// NaN and infinite values never count: no_number tells how many there were.
struct SeriesMoments {
  std::int64_t n = 0;
  double SWT = 0.0;   // sum of the weights
  double sum = 0.0;   // sum of w x
  double mean = 0.0;  // the mean is mean + low
  double low = 0.0;
  double squares = 0.0;  // sum of w (x - mean)^2, times 4**-exponent
  int exponent = 0;      // not 0 only where squares would leave the range of reals
  double least = 0.0;
  double most = 0.0;
  std::int64_t no_number = 0;
};

std::int64_t series_moments_words(std::int64_t columns, std::int64_t rows);
void series_moments(std::span<const SeriesRows> series, std::span<SeriesMoments> out,
                    std::span<double> work);

// Columns of one table.
struct CommonRows {
  std::span<const double* const> x;
  std::int64_t rows = 0;
  const double* weight = nullptr;
  std::span<const double> marks{};
};

// Marks the rows of t that some column spoils: with `missing` by the code, always by a value that
// is no number. Marks that are there stay. Returns the rows that are left.
std::int64_t mark_common(const CommonRows& t, bool missing, double code, std::span<double> marks);

// Packed sums of w (x_i - mean_i)(x_j - mean_j), element (i, j) times 2**-(exponent_i +
// exponent_j). m: moments of the same rows.
std::int64_t common_cross_words(std::int64_t columns, std::int64_t rows);
void common_cross(const CommonRows& t, std::span<const SeriesMoments> m, std::span<double> work,
                  std::span<double> cross);

// Sums of products or covariances to correlations, in place (MATMOM, whatever the size of the
// variances). variances: K words of work space.
void correlations(std::span<double> a, int K, std::span<double> variances);

}  // namespace korvel
