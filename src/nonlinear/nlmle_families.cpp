#include "nonlinear/nlmle_families.h"

#include <cmath>
#include <limits>

#include "expr/trans_lanes.h"
#include "expr/vector_functions.h"
#include "nonlinear/nlmle_stable.h"
#include "stats/law.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double EULER = 0.57721566490153286061;
constexpr double HALF_LOG_2PI = 0.91893853320467274178;
constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

void exp_all(double* x, std::ptrdiff_t n) {
  lane_table().exp(x, x, nullptr, static_cast<std::size_t>(n));
}

// ---- Positive axis: l = log(y/s)

bool exponential(const MleTerms& t) {
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = t.log_y[i] - t.z[i];
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    t.log_f[i] = -t.z[i] - t.u[i];
    t.dz[i] = t.u[i] - 1.0;
  }
  return true;
}

bool weibull(const MleTerms& t) {
  const double c = t.shape[0];
  if (!(c > 0.0)) return false;
  const double log_c = LOG(c);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = c * (t.log_y[i] - t.z[i]);
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double l = t.log_y[i] - t.z[i];
    t.log_f[i] = log_c - t.log_y[i] + c * l - t.u[i];
    t.dz[i] = c * (t.u[i] - 1.0);
    t.dshape[0][i] = 1.0 / c + l * (1.0 - t.u[i]);
  }
  return true;
}

bool gamma(const MleTerms& t) {
  const double T = t.shape[0];
  if (!(T > 0.0)) return false;
  const double log_G = log_gamma(T), psi = digamma(T);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = t.log_y[i] - t.z[i];
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double l = t.log_y[i] - t.z[i];
    t.log_f[i] = T * l - t.log_y[i] - t.u[i] - log_G;
    t.dz[i] = t.u[i] - T;
    t.dshape[0][i] = l - psi;
  }
  return true;
}

// Stacy (1962).
bool generalised_gamma(const MleTerms& t) {
  const double c = t.shape[0], k = t.shape[1];
  if (!(c > 0.0 && k > 0.0)) return false;
  const double log_c = LOG(c), log_G = log_gamma(k), psi = digamma(k);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = c * (t.log_y[i] - t.z[i]);
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double l = t.log_y[i] - t.z[i];
    t.log_f[i] = log_c + k * c * l - t.log_y[i] - t.u[i] - log_G;
    t.dz[i] = c * (t.u[i] - k);
    t.dshape[0][i] = 1.0 / c + l * (k - t.u[i]);
    t.dshape[1][i] = c * l - psi;
  }
  return true;
}

// WEIBOT and GGBOTH: c = exp(z2). WEIBOT has k = 1.
bool both_weibull(const MleTerms& t, double k, double* dk) {
  if (!(k > 0.0)) return false;
  const double log_G = log_gamma(k), psi = digamma(k);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.v[i] = t.z2[i];
  exp_all(t.v, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = t.v[i] * (t.log_y[i] - t.z[i]);
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double c = t.v[i];
    const double cl = c * (t.log_y[i] - t.z[i]);
    t.log_f[i] = t.z2[i] + k * cl - t.log_y[i] - t.u[i] - log_G;
    t.dz[i] = c * (t.u[i] - k);
    t.dz2[i] = 1.0 + cl * (k - t.u[i]);
    if (dk != nullptr) dk[i] = cl - psi;
  }
  return true;
}
bool weibull_both(const MleTerms& t) { return both_weibull(t, 1.0, nullptr); }
bool generalised_both(const MleTerms& t) { return both_weibull(t, t.shape[0], t.dshape[0]); }

bool gamma_both(const MleTerms& t) {
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    t.u[i] = t.log_y[i] - t.z[i];
    t.v[i] = t.z2[i];
  }
  exp_all(t.u, t.rows);
  exp_all(t.v, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double T = t.v[i], l = t.log_y[i] - t.z[i];
    if (!(T > 0.0 && T < 1e300)) return false;
    t.log_f[i] = T * l - t.log_y[i] - t.u[i] - log_gamma(T);
    t.dz[i] = t.u[i] - T;
    t.dz2[i] = T * (l - digamma(T));
  }
  return true;
}

bool half_normal(const MleTerms& t) {
  const double constant = 0.5 * LOG(2.0 / PI);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = -2.0 * t.z[i];
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double square = t.y[i] * t.y[i] * t.u[i];
    t.log_f[i] = constant - t.z[i] - 0.5 * square;
    t.dz[i] = square - 1.0;
  }
  return true;
}

bool log_normal(const MleTerms& t) {
  const double SG = t.shape[0];
  if (!(SG > 0.0)) return false;
  const double constant = HALF_LOG_2PI + LOG(SG);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.log_y[i] - t.z[i]) / SG;
    t.log_f[i] = -constant - t.log_y[i] - 0.5 * w * w;
    t.dz[i] = w / SG;
    t.dshape[0][i] = (w * w - 1.0) / SG;
  }
  return true;
}

// ---- The whole line

// From d log f / dw to the derivatives by z and SG.
void from_standard(const MleTerms& t, std::ptrdiff_t i, double w, double dw) {
  const double SG = t.shape[0];
  t.dz[i] = -dw / SG;
  t.dshape[0][i] = -(1.0 + w * dw) / SG;
}

// Smallest extreme value: the law of the logarithm of a Weibull variable.
bool log_weibull(const MleTerms& t) {
  const double SG = t.shape[0];
  if (!(SG > 0.0)) return false;
  const double log_SG = LOG(SG);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = (t.y[i] - t.z[i]) / SG;
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.y[i] - t.z[i]) / SG;
    t.log_f[i] = w - t.u[i] - log_SG;
    from_standard(t, i, w, 1.0 - t.u[i]);
  }
  return true;
}

// Largest extreme value (Gumbel).
bool extreme_value(const MleTerms& t) {
  const double SG = t.shape[0];
  if (!(SG > 0.0)) return false;
  const double log_SG = LOG(SG);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = (t.z[i] - t.y[i]) / SG;
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.y[i] - t.z[i]) / SG;
    t.log_f[i] = -w - t.u[i] - log_SG;
    from_standard(t, i, w, t.u[i] - 1.0);
  }
  return true;
}

bool log_of_gamma(const MleTerms& t) {
  const double SG = t.shape[0], T = t.shape[1];
  if (!(SG > 0.0 && T > 0.0)) return false;
  const double constant = LOG(SG) + log_gamma(T), psi = digamma(T);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = (t.y[i] - t.z[i]) / SG;
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.y[i] - t.z[i]) / SG;
    t.log_f[i] = T * w - t.u[i] - constant;
    from_standard(t, i, w, T - t.u[i]);
    t.dshape[1][i] = w - psi;
  }
  return true;
}

// The rest of Stirling's formula, log G(m) = (m-1/2) log m - m + log(2 pi)/2 + rest(m), and its
// derivative, at m = k^-2. Small k, where the parts of the formula are large and the rest goes to
// 0, takes the series (Abramowitz and Stegun 1964, 6.1.41).
struct StirlingRest {
  double value, by_m;
};
StirlingRest stirling_rest(double m) {
  constexpr double series_from = 40.0;
  if (m > series_from) {
    const double r = 1.0 / m, s = r * r;
    return {r * (1.0 / 12.0 - s * (1.0 / 360.0 - s * (1.0 / 1260.0 - s / 1680.0))),
            -s * (1.0 / 12.0 - s * (3.0 / 360.0 - s * (5.0 / 1260.0 - s * (7.0 / 1680.0))))};
  }
  const double log_m = std::log(m);
  return {log_gamma(m) - ((m - 0.5) * log_m - m + HALF_LOG_2PI), digamma(m) - log_m + 0.5 / m};
}

// (e^x - 1)/x, (e^x - 1 - x)/x^2 and the derivative of the latter, smooth through 0.
struct ExpQuotients {
  double first, second, slope;
};
ExpQuotients exp_quotients(double x) {
  if (std::fabs(x) > 0.5) {
    const double e = std::expm1(x);
    const double first = e / x, second = (e - x) / (x * x);
    return {first, second, (first - 2.0 * second) / x};
  }
  // Sums of x^j/(j+1)!, x^j/(j+2)! and (j+1) x^j/(j+3)!, of which the last term is below 1e-17.
  double first = 0.0, second = 0.0, slope = 0.0;
  double term = 1.0;  // x^j/(j+1)!
  for (int j = 0; j < 16; ++j) {
    first += term;
    second += term / (j + 2.0);
    slope += (j + 1.0) * term / ((j + 2.0) * (j + 3.0));
    term *= x / (j + 2.0);
  }
  return {first, second, slope};
}

// Prentice (1974): |k| m^m exp[m (k w - exp(k w))] / (SG G(m)), m = k^-2, written so that nothing
// grows as k goes to 0, the normal law.
bool log_generalised_gamma(const MleTerms& t) {
  const double SG = t.shape[0], k = t.shape[1];
  if (!(SG > 0.0) || !(std::fabs(k) < 1e100)) return false;
  StirlingRest rest{0.0, -1.0 / 12.0};
  double rest_by_k = 0.0;
  if (std::fabs(k) > 1e-100) {
    rest = stirling_rest(1.0 / (k * k));
    rest_by_k = rest.by_m * (-2.0 / (k * k * k));
    if (std::fabs(k) < 1e-3) rest_by_k = k / 6.0;  // next term below 1e-16
  }
  const double constant = HALF_LOG_2PI + LOG(SG) + rest.value;
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.y[i] - t.z[i]) / SG;
    const ExpQuotients q = exp_quotients(k * w);
    t.log_f[i] = -constant - w * w * q.second;
    from_standard(t, i, w, -w * q.first);
    t.dshape[1][i] = -rest_by_k - w * w * w * q.slope;
  }
  return true;
}

double hermite3(double w) { return w * (w * w - 3.0); }
double hermite4(double w) { return w * w * (w * w - 6.0) + 3.0; }
double hermite6(double w) { return w * w * (w * w * (w * w - 15.0) + 45.0) - 15.0; }

// Edgeworth: n(w)/SG times the series (Kendall and Stuart).
bool edgeworth(const MleTerms& t) {
  const double SG = t.shape[0], K3 = t.shape[1], K4 = t.shape[2];
  if (!(SG > 0.0)) return false;
  const double constant = HALF_LOG_2PI + LOG(SG);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double w = (t.y[i] - t.z[i]) / SG;
    const double w2 = w * w;
    const double H2 = w2 - 1.0, H3 = hermite3(w), H4 = hermite4(w), H6 = hermite6(w);
    const double H5 = w * (w2 * (w2 - 10.0) + 15.0);
    const double bracket = edgeworth_series(w, K3, K4);
    if (!(bracket > 0.0)) return false;
    const double slope = K3 / 2.0 * H2 + K4 / 6.0 * H3 + K3 * K3 / 12.0 * H5;
    t.log_f[i] = -constant - 0.5 * w2 + LOG(bracket);
    from_standard(t, i, w, slope / bracket - w);
    t.dshape[1][i] = (H3 / 6.0 + K3 / 36.0 * H6) / bracket;
    t.dshape[2][i] = H4 / 24.0 / bracket;
  }
  return true;
}

// Shapes A (stability) and S (scale). Derivatives are taken numerically.
bool stable(const MleTerms& t) {
  const double S = t.shape[1];
  if (!(S > 0.0) || t.stable == nullptr) return false;
  const double log_S = LOG(S);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    t.log_f[i] = t.stable->log_density((t.y[i] - t.z[i]) / S) - log_S;
  }
  return true;
}

// ---- Counts

bool poisson(const MleTerms& t) {
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) t.u[i] = t.z[i];
  exp_all(t.u, t.rows);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    t.log_f[i] = t.y[i] * t.z[i] - t.u[i] - t.log_y[i];
    t.dz[i] = t.y[i] - t.u[i];
  }
  return true;
}

// ---- Proportions

// Q is a constant; P = x'b or, with `log_link`, exp(x'b).
bool beta_terms(const MleTerms& t, bool log_link) {
  const double Q = t.shape[0];
  if (!(Q > 0.0)) return false;
  const double log_GQ = log_gamma(Q), psi_Q = digamma(Q);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double P = log_link ? EXP(t.z[i]) : t.z[i];
    if (!(P > 0.0 && P < 1e300)) return false;
    const double psi = digamma(P + Q);
    t.log_f[i] = (P - 1.0) * t.log_y[i] + (Q - 1.0) * t.log_rest[i] - log_gamma(P) - log_GQ +
                 log_gamma(P + Q);
    const double dP = t.log_y[i] - digamma(P) + psi;
    t.dz[i] = log_link ? P * dP : dP;
    t.dshape[0][i] = t.log_rest[i] - psi_Q + psi;
  }
  return true;
}
bool beta(const MleTerms& t) { return beta_terms(t, false); }
bool beta_exp(const MleTerms& t) { return beta_terms(t, true); }

double logistic(double z) {
  const double e = EXP(-std::fabs(z));
  return z >= 0.0 ? 1.0 / (1.0 + e) : e / (1.0 + e);
}

// P = m F, Q = (1-m) F (Ferrari and Cribari-Neto 2004).
bool beta_mean(const MleTerms& t) {
  const double F = t.shape[0];
  if (!(F > 0.0)) return false;
  const double log_GF = log_gamma(F), psi_F = digamma(F);
  for (std::ptrdiff_t i = 0; i < t.rows; ++i) {
    const double m = logistic(t.z[i]), rest = logistic(-t.z[i]);
    const double P = m * F, Q = rest * F;
    if (!(P > 0.0 && Q > 0.0)) return false;
    t.log_f[i] =
        (P - 1.0) * t.log_y[i] + (Q - 1.0) * t.log_rest[i] - log_gamma(P) - log_gamma(Q) + log_GF;
    const double dP = t.log_y[i] - digamma(P) + psi_F;
    const double dQ = t.log_rest[i] - digamma(Q) + psi_F;
    t.dz[i] = F * m * rest * (dP - dQ);
    t.dshape[0][i] = m * dP + rest * dQ;
  }
  return true;
}

using M = MleType;
using R = MleRange;
constexpr MleFamily FAMILIES[] = {
    {M::WEIBULL, "WEIBULL", R::positive, false, 1, {"C"}, weibull},
    {M::EXP, "EXP", R::positive, false, 0, {}, exponential},
    {M::GAMMA, "GAMMA", R::positive, false, 1, {"T"}, gamma},
    {M::GAMBOT, "GAMBOT", R::positive, true, 0, {}, gamma_both},
    {M::WEIBOT, "WEIBOT", R::positive, true, 0, {}, weibull_both},
    {M::GG, "GG", R::positive, false, 2, {"C", "K"}, generalised_gamma},
    {M::GGBOTH, "GGBOTH", R::positive, true, 1, {"K"}, generalised_both},
    {M::HALFNORM, "HALFNORM", R::zero_up, false, 0, {}, half_normal},
    {M::LOGNORM, "LOGNORM", R::positive, false, 1, {"SG"}, log_normal},
    {M::BETA, "BETA", R::unit, false, 1, {"Q"}, beta},
    {M::EDGE, "EDGE", R::real, false, 3, {"SG", "K3", "K4"}, edgeworth},
    {M::EWEIBULL, "EWEIBULL", R::real, false, 1, {"SG"}, log_weibull},
    {M::EXTREMEV, "EXTREMEV", R::real, false, 1, {"SG"}, extreme_value},
    {M::EGAMMA, "EGAMMA", R::real, false, 2, {"SG", "T"}, log_of_gamma},
    {M::EGG, "EGG", R::real, false, 2, {"SG", "K"}, log_generalised_gamma},
    {M::STABLE, "STABLE", R::real, false, 2, {"A", "S"}, stable},
    {M::POISSON, "POISSON", R::counts, false, 0, {}, poisson},
    {M::EPOISSON, "EPOISSON", R::counts, false, 0, {}, poisson},
    {M::EBETA, "EBETA", R::unit, false, 1, {"Q"}, beta_exp},
    {M::MBETA, "MBETA", R::unit, false, 1, {"F"}, beta_mean},
};

double square(double v) { return v * v; }
double gamma_ratio(double a, double b) { return std::exp(log_gamma(a) - log_gamma(b)); }

// s^r times the r-th moment of a generalised gamma variable of scale 1.
MleMoments generalised_moments(double s, double c, double k) {
  const double mean = gamma_ratio(k + 1.0 / c, k);
  const double second = gamma_ratio(k + 2.0 / c, k);
  return {s * mean, s * s * (second - mean * mean)};
}

MleMoments log_generalised_moments(double z, double SG, double k) {
  if (std::fabs(k) < 1e-3) {  // the terms left out are below 1e-9
    return {z - SG * k / 2.0, SG * SG * (1.0 + k * k / 2.0)};
  }
  const double m = 1.0 / (k * k);
  return {z + SG / k * (digamma(m) - std::log(m)), square(SG / k) * trigamma(m)};
}

}  // namespace

const MleFamily* find_mle_family(std::string_view word) {
  if (word.empty()) return &FAMILIES[0];
  for (const MleFamily& f : FAMILIES) {
    if (f.word == word) return &f;
  }
  return nullptr;
}

const MleFamily& mle_family(MleType type) { return FAMILIES[static_cast<std::size_t>(type)]; }

double edgeworth_series(double w, double K3, double K4) {
  return 1.0 + K3 / 6.0 * hermite3(w) + K4 / 24.0 * hermite4(w) + K3 * K3 / 72.0 * hermite6(w);
}

BetaParameters beta_parameters(MleType type, double z, double Q) {
  if (type == M::BETA) return {z, Q};
  if (type == M::EBETA) return {std::exp(z), Q};
  return {logistic(z) * Q, logistic(-z) * Q};
}

MleMoments mle_moments(MleType type, double z, double z2, std::span<const double> shape) {
  const double s = std::exp(z);
  switch (type) {
    case M::WEIBULL:
      return generalised_moments(s, shape[0], 1.0);
    case M::EXP:
      return {s, s * s};
    case M::GAMMA:
      return {shape[0] * s, shape[0] * s * s};
    case M::GAMBOT:
      return {std::exp(z2) * s, std::exp(z2) * s * s};
    case M::WEIBOT:
      return generalised_moments(s, std::exp(z2), 1.0);
    case M::GG:
      return generalised_moments(s, shape[0], shape[1]);
    case M::GGBOTH:
      return generalised_moments(s, std::exp(z2), shape[0]);
    case M::HALFNORM:
      return {s * std::sqrt(2.0 / PI), s * s * (1.0 - 2.0 / PI)};
    case M::LOGNORM: {
      const double v = square(shape[0]);
      return {std::exp(z + 0.5 * v), std::exp(2.0 * z + v) * std::expm1(v)};
    }
    case M::EDGE:
      return {z, square(shape[0])};
    case M::EWEIBULL:
      return {z - EULER * shape[0], square(PI * shape[0]) / 6.0};
    case M::EXTREMEV:
      return {z + EULER * shape[0], square(PI * shape[0]) / 6.0};
    case M::EGAMMA:
      return {z + shape[0] * digamma(shape[1]), square(shape[0]) * trigamma(shape[1])};
    case M::EGG:
      return log_generalised_moments(z, shape[0], shape[1]);
    case M::STABLE:
      return {z, shape[0] < 2.0 ? NONE : 2.0 * square(shape[1])};
    case M::POISSON:
    case M::EPOISSON:
      return {s, s};
    case M::BETA:
    case M::EBETA:
    case M::MBETA:
      break;
  }
  const BetaParameters b = beta_parameters(type, z, shape[0]);
  const double sum = b.P + b.Q;
  return {b.P / sum, b.P * b.Q / (sum * sum * (sum + 1.0))};
}

}  // namespace korvel
