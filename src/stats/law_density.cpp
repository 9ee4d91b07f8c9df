// Densities and probabilities of the distributions, as logarithms.
#include <algorithm>
#include <cmath>
#include <limits>

#include "stats/gamma_terms.h"
#include "stats/law.h"
#include "stats/mixture.h"

namespace korvel {
namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr double NEVER = -std::numeric_limits<double>::infinity();
constexpr double HALF_LOG_2PI = 0.91893853320467274178;

// Density of the gamma distribution with shape a at x > 0, scale 1.
double gamma_log_density(double a, double x) {
  return static_cast<double>(log_gamma_term(a, x) + std::log(static_cast<long double>(a) / x));
}

// ---- Discrete probabilities --------------------------------------------------------------------

// Loader (2000): through the beta factor, with y = 1-p.
double binomial_log(double k, double n, double p) {
  if (k < 0.0 || k > n) return NEVER;
  if (p <= 0.0) return k == 0.0 ? 0.0 : NEVER;
  if (p >= 1.0) return k == n ? 0.0 : NEVER;
  const long double x = p;
  const long double y = 1.0L - x;
  return static_cast<double>(log_beta_term(k + 1.0, n - k + 1.0, x, y) -
                             std::log((n + 1.0L) * x * y));
}

double hypergeometric_log(const Law& law, double x) {
  const double others = law.BIGN - law.BIGX;
  if (x < std::max(0.0, law.N - others) || x > std::min(law.N, law.BIGX)) return NEVER;
  if (law.N == 0.0) return 0.0;
  const double p = law.N / law.BIGN;
  if (p >= 1.0) return 0.0;
  return binomial_log(x, law.BIGX, p) + binomial_log(law.N - x, others, p) -
         binomial_log(law.N, law.BIGN, p);
}

// ---- Continuous ----

double normal_log_density(const Law& law, double x) {
  const double z = (x - law.location) / law.scale;
  return -0.5 * z * z - HALF_LOG_2PI - std::log(law.scale);
}

double t_log_density(const Law& law, double x) {
  const double t = (x - law.location) / law.scale;
  if (law.C != 0.0) return mixed_t_log_density(t, law.df, law.C) - std::log(law.scale);
  const long double tt = static_cast<long double>(t) * t;
  return static_cast<double>(-0.5L * (law.df + 1.0L) * std::log1p(tt / law.df) -
                             0.5L * std::log(static_cast<long double>(law.df)) -
                             long_log_beta(0.5L, law.df / 2.0L) -
                             std::log(static_cast<long double>(law.scale)));
}

double f_log_density(const Law& law, double x) {
  if (x < 0.0) return NEVER;
  if (x == 0.0) {  // finite for df1 = 2 only
    return law.df > 2.0 ? NEVER : law.df == 2.0 ? -0.5 * law.C : -NEVER;
  }
  if (law.C > 0.0) return mixed_f_log_density(x, law.df, law.df2, law.C);
  const long double whole = static_cast<long double>(law.df) * x + law.df2;
  return static_cast<double>(
             log_beta_term(law.df / 2.0, law.df2 / 2.0, law.df * (x / whole), law.df2 / whole)) -
         std::log(x);
}

double chi_log_density(const Law& law, double x) {
  if (x < 0.0) return NEVER;
  if (x == 0.0) {
    return law.df > 2.0 ? NEVER : law.df == 2.0 ? -0.5 * law.C - std::log(2.0) : -NEVER;
  }
  if (law.C > 0.0) return mixed_chi_square_log_density(x, law.df, law.C);
  return gamma_log_density(0.5 * law.df, 0.5 * x) - std::log(2.0);
}

double beta_log_density(const Law& law, double x) {
  if (x < 0.0 || x > 1.0) return NEVER;
  if (x == 0.0 || x == 1.0) {
    const double at = x == 0.0 ? law.P : law.Q;
    const double other = x == 0.0 ? law.Q : law.P;
    return at > 1.0 ? NEVER : at == 1.0 ? std::log(other) : -NEVER;
  }
  const long double y = 1.0L - x;
  return static_cast<double>(log_beta_term(law.P, law.Q, x, y) -
                             std::log(static_cast<long double>(x) * y));
}

// Generalized gamma: x = Q g^(1/C), g gamma with shape P. GAMMA has C = 1, WEIBULL P = 1.
double generalized_gamma_log_density(double P, double Q, double C, double x) {
  if (x < 0.0) return NEVER;
  if (x == 0.0) {
    const double power = C * P;
    return power > 1.0 ? NEVER : power == 1.0 ? std::log(C / Q) - log_gamma(P) : -NEVER;
  }
  // u = log of the gamma variable, whose own value may be out of range.
  const double u = C * static_cast<double>(std::log(static_cast<long double>(x)) -
                                           std::log(static_cast<long double>(Q)));
  constexpr double out_of_range = 700.0;
  if (u > out_of_range) return NEVER;
  if (u < -out_of_range) return P * u - log_gamma(P) + std::log(C) - std::log(x);
  return gamma_log_density(P, std::pow(x / Q, C)) + std::log(C) - std::log(x) + u;
}

double edge_correction(const Law& law, double z) {
  const double g1 = law.skewness;
  const double zz = z * z;
  return 1.0 + g1 * z * (zz - 3.0) / 6.0 + law.kurtosis * ((zz - 6.0) * zz + 3.0) / 24.0 +
         g1 * g1 * (((zz - 15.0) * zz + 45.0) * zz - 15.0) / 72.0;
}

double burr_log_density(const Law& law, double x) {
  const double log_k = std::log(law.K);
  if (law.type == LawType::BURRII) {
    // (1 + e^-x) to a power, for x of either sign without overflow.
    const double log_base = x > -700.0 ? std::log1p(std::exp(-x)) : -x;
    return log_k - x - (law.K + 1.0) * log_base;
  }
  if (x < 0.0) return NEVER;
  const double C = law.C;
  const double power = law.type == LawType::BURRIII ? C * law.K : C;  // of x, near 0
  if (x == 0.0) return power > 1.0 ? NEVER : power == 1.0 ? log_k + std::log(C) : -NEVER;
  // log(1 + x^C)
  const double log_x = std::log(x);
  const double u = C * log_x;
  const double log_base = u > 700.0 ? u : std::log1p(std::exp(u));
  const double head = log_k + std::log(C) - log_x;
  return law.type == LawType::BURRIII ? head + law.K * u - (law.K + 1.0) * log_base
                                      : head + u - (law.K + 1.0) * log_base;
}

}  // namespace

double log_density(const Law& law, double x) {
  switch (law.type) {
    case LawType::NORMAL:
      return normal_log_density(law, x);
    case LawType::EDGE: {
      const double factor = edge_correction(law, (x - law.location) / law.scale);
      return factor > 0.0 ? normal_log_density(law, x) + std::log(factor) : NEVER;
    }
    case LawType::T:
      return t_log_density(law, x);
    case LawType::F:
      return f_log_density(law, x);
    case LawType::CHI:
      return chi_log_density(law, x);
    case LawType::BETA:
      return beta_log_density(law, x);
    case LawType::GAMMA:
      return generalized_gamma_log_density(law.P, law.Q, 1.0, x);
    case LawType::GG:
      return generalized_gamma_log_density(law.P, law.Q, law.C, x);
    case LawType::WEIBULL:
      return generalized_gamma_log_density(1.0, law.Q, law.P, x);
    case LawType::EXPONENT:
      return x < 0.0 ? NEVER : -x / law.location - std::log(law.location);
    case LawType::IG2: {
      // V S^2 / (2 x^2) is gamma with shape V/2.
      if (x <= 0.0) return NEVER;
      const double g = 0.5 * law.V * (law.S / x) * (law.S / x);
      if (!(g > 0.0) || std::isinf(g)) return NEVER;
      return gamma_log_density(0.5 * law.V, g) + std::log(2.0 * g / x);
    }
    case LawType::BINOMIAL:
      return binomial_log(x, law.N, law.P);
    case LawType::NEGBIN: {
      // x trials to the K-th success: K/x times the binomial probability of K in x.
      if (x < law.K) return NEVER;
      return binomial_log(law.K, x, law.P) + std::log(law.K / x);
    }
    case LawType::HYPERGEO:
      return hypergeometric_log(law, x);
    case LawType::POISSON:
      return x < 0.0 ? NEVER : static_cast<double>(log_gamma_term(x, law.location));
    case LawType::POWER:
      if (x < 0.0 || x > 1.0) return NEVER;
      if (x == 0.0) return law.C > 1.0 ? NEVER : law.C == 1.0 ? 0.0 : -NEVER;
      return std::log(law.C) + (law.C - 1.0) * std::log(x);
    case LawType::PARETO:
      return x < law.K ? NEVER : std::log(law.C / x) + law.C * std::log(law.K / x);
    case LawType::EXTREME: {
      const double z = (x - law.location) / law.scale;
      return -z - std::exp(-z) - std::log(law.scale);
    }
    case LawType::LOGISTIC: {
      const double z = std::fabs((x - law.location) / law.scale);
      return -z - 2.0 * std::log1p(std::exp(-z)) - std::log(law.scale);
    }
    case LawType::LOGNORMA:
      return x <= 0.0 ? NEVER : normal_log_density(law, std::log(x)) - std::log(x);
    case LawType::BURRII:
    case LawType::BURRIII:
    case LawType::BURRXII:
      return burr_log_density(law, x);
    default:
      return NONE;
  }
}

}  // namespace korvel
