// The W statistic of Shapiro and Wilk (1965) for normality, with Royston's approximation of its
// weights: Algorithm AS R94 (Royston 1995, Applied Statistics 44).
#pragma once

#include <span>

namespace korvel {

// x: at least 3 values in rising order; weights: half as many words of work space. 0 when all
// values are equal.
double shapiro_wilk(std::span<const double> x, std::span<double> weights);

}  // namespace korvel
