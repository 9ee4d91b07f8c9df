// Names, moments and critical values of the distributions.
#include "stats/law.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace korvel {
namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

constexpr std::array<LawWord, 33> WORDS = {{
    {"NORMAL", LawType::NORMAL},
    {"T", LawType::T},
    {"F", LawType::F},
    {"CHI", LawType::CHI},
    {"BETA", LawType::BETA},
    {"GAMMA", LawType::GAMMA},
    {"IG2", LawType::IG2},
    {"GG", LawType::GG},
    {"EDGE", LawType::EDGE},
    {"BINOMIAL", LawType::BINOMIAL},
    {"IMHOF", LawType::IMHOF},
    {"BINORMAL", LawType::BINORMAL},
    {"BERNOULL", LawType::BINOMIAL},
    {"ERLANG", LawType::GAMMA},
    {"CAUCHY", LawType::T},
    {"POWER", LawType::POWER},
    {"PARETO", LawType::PARETO},
    {"WEIBULL", LawType::WEIBULL},
    {"EXTREME", LawType::EXTREME},
    {"LOGISTIC", LawType::LOGISTIC},
    {"LOGNORMA", LawType::LOGNORMA},
    {"EMPIR", LawType::EMPIR},
    {"SEMPIR", LawType::SEMPIR},
    {"DAVIES", LawType::DAVIES},
    {"GEOMETRI", LawType::NEGBIN},
    {"PASCAL", LawType::NEGBIN},
    {"NEGBIN", LawType::NEGBIN},
    {"HYPERGEO", LawType::HYPERGEO},
    {"POISSON", LawType::POISSON},
    {"EXPONENT", LawType::EXPONENT},
    {"BURRII", LawType::BURRII},
    {"BURRIII", LawType::BURRIII},
    {"BURRXII", LawType::BURRXII},
}};

double gamma_of(double x) { return std::exp(log_gamma(x)); }

// ---- Moments -----------------------------------------------------------------------------------

// r-th moment about zero of the Burr types III and XII; not a number when there is none.
double burr_moment(const Law& law, double r) {
  const double a = law.type == LawType::BURRIII ? law.K + r / law.C : 1.0 + r / law.C;
  const double b = law.type == LawType::BURRIII ? 1.0 - r / law.C : law.K - r / law.C;
  return b > 0.0 ? law.K * std::exp(log_beta(a, b)) : NONE;
}

double variance_of(double mean, double second) { return second - mean * mean; }

Moments t_moments(const Law& law) {
  const double n = law.df;
  const double ss = law.scale * law.scale;
  if (law.C == 0.0) {
    return {n > 1.0 ? law.location : NONE, n > 2.0 ? ss * n / (n - 2.0) : NONE, law.location};
  }
  const double half =
      std::sqrt(0.5 * n) * std::exp(log_gamma(0.5 * (n - 1.0)) - log_gamma(0.5 * n));
  const double mean = n > 1.0 ? law.C * half : NONE;
  const double second = n > 2.0 ? n * (1.0 + law.C * law.C) / (n - 2.0) : NONE;
  return {law.location + law.scale * mean, ss * variance_of(mean, second), NONE};
}

Moments f_moments(const Law& law) {
  const double m = law.df;
  const double n = law.df2;
  const double s = m + law.C;
  const double mean = n > 2.0 ? n * s / (m * (n - 2.0)) : NONE;
  const double variance = n > 4.0
                              ? 2.0 * (n / m) * (n / m) * (s * s + (m + 2.0 * law.C) * (n - 2.0)) /
                                    ((n - 2.0) * (n - 2.0) * (n - 4.0))
                              : NONE;
  const double mode = law.C > 0.0 ? NONE : m > 2.0 ? (m - 2.0) / m * n / (n + 2.0) : 0.0;
  return {mean, variance, mode};
}

Moments beta_moments(const Law& law) {
  const double n = law.P + law.Q;
  const double mean = law.P / n;
  const double variance = mean * (law.Q / n) / (n + 1.0);
  double mode = NONE;  // two ends, or flat
  if (law.P > 1.0 && law.Q > 1.0) {
    mode = (law.P - 1.0) / (n - 2.0);
  } else if (law.P != law.Q && (law.P >= 1.0 || law.Q >= 1.0)) {
    mode = law.P > law.Q ? 1.0 : 0.0;
  }
  return {mean, variance, mode};
}

Moments weibull_moments(const Law& law) {
  const double mean = law.Q * gamma_of(1.0 + 1.0 / law.P);
  const double second = law.Q * law.Q * gamma_of(1.0 + 2.0 / law.P);
  const double mode = law.P > 1.0 ? law.Q * std::pow((law.P - 1.0) / law.P, 1.0 / law.P) : 0.0;
  return {mean, variance_of(mean, second), mode};
}

constexpr double PI = 3.14159265358979323846;
constexpr double EULER = 0.57721566490153286061;

}  // namespace

const LawWord* find_law(std::string_view word) {
  const auto at = std::find_if(WORDS.begin(), WORDS.end(),
                               [&](const LawWord& w) { return w.word == word.substr(0, 8); });
  return at == WORDS.end() ? nullptr : &*at;
}

bool is_discrete(LawType type) {
  return type == LawType::BINOMIAL || type == LawType::NEGBIN || type == LawType::HYPERGEO ||
         type == LawType::POISSON;
}

bool has_density(LawType type) {
  return type != LawType::IMHOF && type != LawType::DAVIES && type != LawType::EMPIR &&
         type != LawType::SEMPIR;
}

// Recurrence up to 10, then the asymptotic series (Abramowitz and Stegun 1964, 6.3.18, 6.4.12).
double digamma(double x) {
  double sum = 0.0;
  while (x < 10.0) {
    sum -= 1.0 / x;
    x += 1.0;
  }
  const double s = 1.0 / (x * x);
  return sum + std::log(x) - 0.5 / x -
         s * (1.0 / 12.0 -
              s * (1.0 / 120.0 -
                   s * (1.0 / 252.0 -
                        s * (1.0 / 240.0 - s * (1.0 / 132.0 - s * (691.0 / 32760.0 - s / 12.0))))));
}

double trigamma(double x) {
  double sum = 0.0;
  while (x < 10.0) {
    sum += 1.0 / (x * x);
    x += 1.0;
  }
  const double r = 1.0 / x;
  const double s = r * r;
  return sum + r + 0.5 * s +
         r * s *
             (1.0 / 6.0 -
              s * (1.0 / 30.0 -
                   s * (1.0 / 42.0 - s * (1.0 / 30.0 - s * (5.0 / 66.0 - s * (691.0 / 2730.0 -
                                                                              s * 7.0 / 6.0))))));
}

double ig2_moment(const Law& law, int r) {
  if (!(law.V > r)) return NONE;
  return std::exp(log_gamma(0.5 * (law.V - r)) - log_gamma(0.5 * law.V) +
                  0.5 * r * std::log(0.5 * law.V * law.S * law.S));
}

Moments law_moments(const Law& law) {
  switch (law.type) {
    case LawType::T:
      return t_moments(law);
    case LawType::F:
      return f_moments(law);
    case LawType::CHI:
      return {law.df + law.C, 2.0 * (law.df + 2.0 * law.C),
              law.C > 0.0 ? NONE : std::max(law.df - 2.0, 0.0)};
    case LawType::BETA:
      return beta_moments(law);
    case LawType::GAMMA:
      return {law.P * law.Q, law.P * law.Q * law.Q, std::max((law.P - 1.0) * law.Q, 0.0)};
    case LawType::GG: {
      const double first = law.Q * std::exp(log_gamma(law.P + 1.0 / law.C) - log_gamma(law.P));
      const double second =
          law.Q * law.Q * std::exp(log_gamma(law.P + 2.0 / law.C) - log_gamma(law.P));
      const double inner = law.P - 1.0 / law.C;
      return {first, variance_of(first, second),
              inner > 0.0 ? law.Q * std::pow(inner, 1.0 / law.C) : 0.0};
    }
    case LawType::IG2: {
      const double mean = ig2_moment(law, 1);
      return {mean, variance_of(mean, ig2_moment(law, 2)),
              law.S * std::sqrt(law.V / (law.V + 1.0))};
    }
    case LawType::WEIBULL:
      return weibull_moments(law);
    case LawType::BINOMIAL:
      return {law.N * law.P, law.N * law.P * (1.0 - law.P), NONE};
    case LawType::NEGBIN:
      return {law.K / law.P, law.K * (1.0 - law.P) / (law.P * law.P), NONE};
    case LawType::POISSON:
      return {law.location, law.location, NONE};
    case LawType::EXPONENT:
      return {law.location, law.location * law.location, 0.0};
    case LawType::HYPERGEO: {
      const double p = law.BIGX / law.BIGN;
      const double rest = law.BIGN > 1.0 ? (law.BIGN - law.N) / (law.BIGN - 1.0) : 0.0;
      return {law.N * p, law.N * p * (1.0 - p) * rest, NONE};
    }
    case LawType::POWER:
      return {law.C / (law.C + 1.0), law.C / ((law.C + 1.0) * (law.C + 1.0) * (law.C + 2.0)), NONE};
    case LawType::PARETO: {
      const double mean = law.C > 1.0 ? law.C * law.K / (law.C - 1.0) : NONE;
      const double variance = law.C > 2.0 ? mean * mean / (law.C * (law.C - 2.0)) : NONE;
      return {mean, variance, law.K};
    }
    case LawType::BURRII:
      return {digamma(law.K) + EULER, trigamma(law.K) + PI * PI / 6.0, NONE};
    case LawType::BURRIII:
    case LawType::BURRXII: {
      const double mean = burr_moment(law, 1.0);
      return {mean, variance_of(mean, burr_moment(law, 2.0)), NONE};
    }
    case LawType::EXTREME:
      return {law.location + EULER * law.scale, PI * PI / 6.0 * law.scale * law.scale,
              law.location};
    case LawType::LOGISTIC:
      return {law.location, PI * PI / 3.0 * law.scale * law.scale, law.location};
    case LawType::LOGNORMA: {
      const double ss = law.scale * law.scale;
      const double mean = std::exp(law.location + 0.5 * ss);
      return {mean, mean * mean * std::expm1(ss), std::exp(law.location - ss)};
    }
    case LawType::IMHOF:
    case LawType::DAVIES: {
      double mean = 0.0;
      double variance = law.S * law.S;
      for (std::size_t i = 0; i < law.weights.size(); ++i) {
        const double w = law.weights[i];
        const double n = law.dfs.empty() ? 1.0 : law.dfs[i];
        const double c = law.ncentr.empty() ? 0.0 : law.ncentr[i];
        mean += w * (n + c);
        variance += 2.0 * w * w * (n + 2.0 * c);
      }
      return {mean, variance, NONE};
    }
    default:
      return {law.location, law.scale * law.scale, law.location};
  }
}

// ---- Inverse -----------------------------------------------------------------------------------

bool has_inverse(LawType type) {
  return type == LawType::NORMAL || type == LawType::T || type == LawType::F ||
         type == LawType::CHI || type == LawType::BETA;
}

Critical law_critical(const Law& law, double p) {
  switch (law.type) {
    case LawType::T: {
      const Critical t = t_quantile(p, Side::below, law.df, law.C);
      return {law.location + law.scale * t.value, t.IFAULT};
    }
    case LawType::F:
      if (law.C > 0.0) return f_quantile(p, Side::below, law.df, law.df2, law.C);
      // Below one half through 1/F, so that 1-p does not swallow a small p.
      if (p < 0.5 && p > 0.0) {
        const Critical f = f_critical(p, law.df2, law.df);
        return {1.0 / f.value, f.IFAULT};
      }
      return f_critical(1.0 - p, law.df, law.df2);
    case LawType::CHI:
      return chi_square_quantile(p, Side::below, law.df, law.C);
    case LawType::BETA:
      return beta_quantile(p, Side::below, law.P, law.Q);
    default:
      return {law.location - law.scale * normal_critical(p), 0};
  }
}

}  // namespace korvel
