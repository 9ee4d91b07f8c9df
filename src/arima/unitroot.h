// Statistics of tests for a unit root. Kernels.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "arima/response_surface.h"

namespace korvel {

inline constexpr int MAXLAGS = 250;  // lagged differences of a test

// Work space of all routines here, for a series of T values and p lags.
std::int64_t unit_root_words(std::int64_t T, int p);

// Dickey and Fuller (1979, 1981), Said and Dickey (1984): the regression of y(t)-y(t-1) on y(t-1),
// p lagged differences and the deterministic terms, for t = p+2 .. T.
struct DickeyFuller {
  int n = 0;         // observations of the regression
  double tau = 0.0;  // t-statistic of y(t-1)
  double z = 0.0;    // n alpha / (1 - sum of the lag coefficients)
  // F statistics: constant: 0 = alpha = constant (phi1); trend: 0 = alpha = constant = trend
  // (phi2), 0 = alpha = trend (phi3).
  double phi1 = 0.0, phi2 = 0.0, phi3 = 0.0;
  double t_last = 0.0;  // t-statistic of the longest lag
  // 1: too few observations; 2: the regressors are collinear; 3: nothing is left to be explained.
  int IFAULT = 0;
};
DickeyFuller DICKEYF(std::span<const double> y, int p, Deterministic terms, std::span<double> work);

// Phillips and Perron (1988) with L lags in the Newey-West (1987) variance; Phillips and Ouliaris
// (1990) when y are residuals of a cointegrating regression and there are no deterministic terms.
struct PhillipsPerron {
  int n = 0;
  double zt = 0.0, za = 0.0;
  int IFAULT = 0;  // as above
};
PhillipsPerron PHILLIPP(std::span<const double> y, int L, Deterministic terms,
                        std::span<double> work);

// A regression by columns, the dependent one last; a null pointer is a column of ones.
struct SmallFit {
  double SSE = 0.0;
  int IFAULT = 0;
};
// b: a coefficient a regressor; inverse: packed (X'X)^-1 of that order, or empty when not wanted.
SmallFit small_fit(std::span<const double* const> columns, std::int64_t rows,
                   std::span<double> work, std::span<double> b, std::span<double> inverse);

}  // namespace korvel
