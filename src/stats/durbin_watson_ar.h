// Exact distribution of the Durbin-Watson statistic when the errors are autocorrelated.
#pragma once

#include <cstddef>
#include <span>

#include "stats/durbin_watson.h"

namespace korvel {

// Errors u(t) = rho u(t - rows.order) + e(t), stationary; e independent normal.
struct AutoregressiveErrors {
  double rho = 0.0;  // between -1 and 1
  // Observations missing behind rows.gap; 0: nobody knows, the errors on both sides are
  // independent.
  std::size_t missing = 0;
};

// Words of work space.
std::size_t durbin_watson_ar_words(std::size_t n, std::size_t k);

// Q: orthonormal columns of the regressors, element (i, j) at Q[j * ld + i]. The n roots of the
// quadratic form are computed: time grows as n^3, space as n^2.
DurbinWatsonTails durbin_watson_ar(const double* Q, std::size_t n, std::size_t k, std::size_t ld,
                                   double d, const DifferenceRows& rows,
                                   const AutoregressiveErrors& errors, std::span<double> work);

}  // namespace korvel
