// Correlations of a series with itself and with another one. Kernels.
#pragma once

#include <span>

namespace korvel {

struct SeriesMoments {
  double mean = 0.0;
  double variance = 0.0;  // divisor n, so that the correlation at lag 0 is 1
};
SeriesMoments series_moments(std::span<const double> x);

// x := (1 - B^lag) x; returns what is left of it (the first `lag` values are lost).
std::span<double> difference(std::span<double> x, std::size_t lag);

// Sums of x(t) x(t+k) for k = 1 .. sums.size() (below n). Centre x first to get autocovariances.
// Blocks of fixed length keep both factors in the cache.
void lagged_products(std::span<const double> x, std::span<double> sums);

// r(1), r(2), ... of x, which is centred in place about `mean`; c0 is the variance.
void autocorrelations(std::span<double> x, SeriesMoments moments, std::span<double> r);

// Bartlett (1946): error of r(k) = sqrt((1 + 2 sum_{j<k} r(j)^2) / n).
void bartlett_errors(std::span<const double> r, double n, std::span<double> errors);

// Ljung and Box (1978): Q(k) = n (n+2) sum_{j<=k} r(j)^2 / (n-j).
void ljung_box(std::span<const double> r, double n, std::span<double> Q);

// Partial autocorrelations by the recursion of Durbin (1960) and Levinson (1947); phi(p, j) of the
// last order p = out.size() are left in `phi`. `spare` is work space; all three of one length,
// which r must reach.
void BJIPAR(std::span<const double> r, std::span<double> out, std::span<double> phi,
            std::span<double> spare);

// Inverse autocorrelations 1 .. p of an AR model phi of order p: those of the moving average with
// the same coefficients (Cleveland 1972; Chatfield 1979).
void inverse_autocorrelations(std::span<const double> phi, std::span<double> out);

// Sum of x(t) y(t+k) for k >= 0, over the t that have both.
double cross_product(std::span<const double> x, std::span<const double> y, std::size_t k);

}  // namespace korvel
