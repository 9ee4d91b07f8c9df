// Distribution of a linear combination of chi-squares by Davies' algorithm.
#pragma once

#include <array>
#include <span>

namespace korvel {

// What DUMP shows of a run, in the order of the published trace.
struct DaviesTrace {
  double absolute_sum = 0;
  double terms = 0;         // integration terms in all
  double integrations = 0;  // integrations
  double interval = 0;      // interval of the main integration
  double truncation = 0;    // truncation point of the first integration
  double convergence_sd = 0;
  double cycles = 0;  // cycles to locate the integration parameters
};

struct DaviesResult {
  double value = 0;
  int IFAULT = 0;  // 1: accuracy not reached, 2: round-off may count, 3: parameters, 4: not located
  DaviesTrace trace;
};

// P(Q < x), Q = sum lambda_j X_j + sigma Z: X_j chi-square with df_j degrees of freedom and
// non-centrality ncentr_j, Z standard normal. `limit` is the most integration terms, `accuracy` the
// error allowed. rank: work space, one place a weight.
DaviesResult DAVIES(std::span<const double> lambda, std::span<const double> df,
                    std::span<const double> ncentr, double sigma, double x, int limit,
                    double accuracy, std::span<int> rank);

}  // namespace korvel
