// Both tails of the distributions.
#include <algorithm>
#include <cmath>

#include "stats/davies.h"
#include "stats/imhof.h"
#include "stats/law.h"

namespace korvel {
namespace {

// Sum of the probabilities from x on, away from the middle: they fall faster than a geometric
// series. step is 1 or -1.
double hypergeometric_sum(const Law& law, double x, double step) {
  const double others = law.BIGN - law.BIGX;
  double term = std::exp(log_density(law, x));
  double sum = 0.0;
  while (term > 0.0) {
    sum += term;
    const double up = (law.BIGX - x) * (law.N - x) / ((x + 1.0) * (others - law.N + x + 1.0));
    const double down = x * (others - law.N + x) / ((law.BIGX - x + 1.0) * (law.N - x + 1.0));
    term *= step > 0.0 ? up : down;
    x += step;
    if (term <= 1e-18 * sum) break;
  }
  return std::min(sum, 1.0);
}

Tails hypergeometric_tails(const Law& law, double x) {
  const double low = std::max(0.0, law.N - (law.BIGN - law.BIGX));
  const double high = std::min(law.N, law.BIGX);
  if (x < low) return {0.0, 1.0};
  if (x >= high) return {1.0, 0.0};
  if (x < law.N * law.BIGX / law.BIGN) {
    const double below = hypergeometric_sum(law, x, -1.0);
    return {below, 1.0 - below};
  }
  const double above = hypergeometric_sum(law, x + 1.0, 1.0);
  return {1.0 - above, above};
}

// From the logarithm of one of the two tails.
Tails from_log_below(double log_below) { return {std::exp(log_below), -std::expm1(log_below)}; }
Tails from_log_above(double log_above) { return {-std::expm1(log_above), std::exp(log_above)}; }

Tails swapped(Tails t) { return {t.above, t.below}; }

Tails edge_tails(const Law& law, double x) {
  const double z = (x - law.location) / law.scale;
  const double zz = z * z;
  const double n = 0.39894228040143267794 * std::exp(-0.5 * zz);
  const double g1 = law.skewness;
  const double shift = n * (g1 * (zz - 1.0) / 6.0 + law.kurtosis * z * (zz - 3.0) / 24.0 +
                            g1 * g1 * z * ((zz - 10.0) * zz + 15.0) / 72.0);
  const Tails normal = normal_tails(z);
  return {normal.below - shift, normal.above + shift};
}

// Log of the distribution function of BURRII and BURRIII, of the tail of BURRXII.
double burr_log_tail(const Law& law, double x) {
  const double u = law.type == LawType::BURRII ? -x : law.C * std::log(x);
  const double v = law.type == LawType::BURRIII ? -u : u;
  return -law.K * (v > 700.0 ? v : std::log1p(std::exp(v)));
}

Tails binomial_tails(double k, double n, double p) {
  if (k < 0.0) return {0.0, 1.0};
  if (k >= n) return {1.0, 0.0};
  const long double x = p;
  return swapped(beta_tails(x, 1.0L - x, k + 1.0, n - k));
}

LawTails davies_tails(const Law& law, double x) {
  const DaviesResult r =
      DAVIES(law.weights, law.dfs, law.ncentr, law.S, x, law.limit, law.accuracy, law.rank);
  return {{r.value, 1.0 - r.value}, r.IFAULT, r.trace};
}

}  // namespace

LawTails law_tails(const Law& law, double x) {
  const double z = (x - law.location) / law.scale;
  switch (law.type) {
    case LawType::T:
      return {t_tails(z, law.df, law.C)};
    case LawType::F:
      return {f_tails(x, law.df, law.df2, law.C)};
    case LawType::CHI:
      return {chi_square_tails(x, law.df, law.C)};
    case LawType::BETA:
      return {beta_tails(x, 1.0L - x, law.P, law.Q)};
    case LawType::GAMMA:
      return {gamma_tails(law.P, x / law.Q)};
    case LawType::GG:
      return {x <= 0.0 ? Tails{} : gamma_tails(law.P, std::pow(x / law.Q, law.C))};
    case LawType::WEIBULL:
      return {x <= 0.0 ? Tails{} : from_log_above(-std::pow(x / law.Q, law.P))};
    case LawType::EXPONENT:
      return {x <= 0.0 ? Tails{} : from_log_above(-x / law.location)};
    case LawType::IG2:
      return {x <= 0.0
                  ? Tails{}
                  : swapped(gamma_tails(0.5 * law.V, 0.5 * law.V * (law.S / x) * (law.S / x)))};
    case LawType::EDGE:
      return {edge_tails(law, x)};
    case LawType::BINOMIAL:
      return {binomial_tails(x, law.N, law.P)};
    case LawType::NEGBIN: {
      if (x < law.K) return {};
      const long double p = law.P;
      return {beta_tails(p, 1.0L - p, law.K, x - law.K + 1.0)};
    }
    case LawType::HYPERGEO:
      return {hypergeometric_tails(law, x)};
    case LawType::POISSON:
      return {x < 0.0 ? Tails{} : swapped(gamma_tails(x + 1.0, law.location))};
    case LawType::POWER:
      return {x <= 0.0 ? Tails{} : from_log_below(law.C * std::log(std::min(x, 1.0)))};
    case LawType::PARETO:
      return {x <= law.K ? Tails{} : from_log_above(law.C * std::log(law.K / x))};
    case LawType::EXTREME:
      return {from_log_below(-std::exp(-z))};
    case LawType::LOGISTIC:
      return {{1.0 / (1.0 + std::exp(-z)), 1.0 / (1.0 + std::exp(z))}};
    case LawType::LOGNORMA:
      return {x <= 0.0 ? Tails{} : normal_tails((std::log(x) - law.location) / law.scale)};
    case LawType::BURRII:
      return {from_log_below(burr_log_tail(law, x))};
    case LawType::BURRIII:
      return {x <= 0.0 ? Tails{} : from_log_below(burr_log_tail(law, x))};
    case LawType::BURRXII:
      return {x <= 0.0 ? Tails{} : from_log_above(burr_log_tail(law, x))};
    case LawType::IMHOF: {
      const FourierTails q = FQUAD(law.weights, x);
      return {q.tails, q.IFAULT};
    }
    case LawType::DAVIES:
      return davies_tails(law, x);
    default:
      return {normal_tails(z)};
  }
}

}  // namespace korvel
