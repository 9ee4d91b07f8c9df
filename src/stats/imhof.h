// Distribution of weighted sums of independent chi-squares with one degree of freedom.
#pragma once

#include <span>

#include "stats/probability.h"

namespace korvel {

struct FourierTails {
  Tails tails;
  int IFAULT = 0;  // 1: accuracy not reached, 3: no weights or a weight that is no number
};

// Both tails of Q = sum weights[i] z[i]^2 at x, z standard normal; the relative error of each is
// near 1e-13. Weights of either sign, zeros count for nothing.
FourierTails FQUAD(std::span<const double> weights, double x);

}  // namespace korvel
