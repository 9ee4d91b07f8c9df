// The covariance of the coefficients of HETERO, and the last steps to the maximum, which need the
// same matrices.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlhet.h"

namespace korvel {
namespace {

// Parameters of differences are coefficients over this many standard errors. Steps of second
// derivatives, DELTA times 0.01 at least, are then 0.001 standard errors with the usual DELTA:
// enough for values that are good to rounding, few enough for curvature of higher order, and
// whatever the units of the data.
constexpr double UNIT = 1000.0;
// The likelihood that a further Newton step would add, relative to its size, at a maximum.
constexpr double REACHED = 1e-6;
// The last steps: at most so many, and none that adds less than this, relative to the likelihood;
// then the coefficients are right to about 1e-9 standard errors.
constexpr int MOST_STEPS = 5;
constexpr double LEAST_GAIN = 1e-21;

bool invert(std::span<double> a, int order) { return symmetric_inverse(a, order) == 0; }

// Second derivatives of minus the likelihood, in the units of m.scale and back.
bool second_derivatives(HetModel& m, HetFunction& f) {
  const auto P = static_cast<std::size_t>(m.P());
  const std::span<double> x = m.room.first(P), b = m.room.subspan(P, P);
  for (std::size_t i = 0; i < P; ++i) x[i] = m.b[i] / m.scale[i];
  HetScaled scaled(f, m.scale, b);
  if (!numeric_hessian(scaled, x, m.cov, m.room.subspan(2 * P, 2 * P))) return false;
  for (int i = 1; i <= m.P(); ++i) {
    for (int j = 1; j <= i; ++j) {
      m.cov[packed(i, j)] /=
          m.scale[static_cast<std::size_t>(i - 1)] * m.scale[static_cast<std::size_t>(j - 1)];
    }
  }
  return true;
}

}  // namespace

std::int64_t het_cov_words(int P) {
  return std::int64_t{7} * P + static_cast<std::int64_t>(packed_words(P));
}

bool at_maximum(HetModel& m) {
  const std::span<double> C = m.room.first(packed_words(m.P()));
  if (!FUNCHF(m, C, {}) || !invert(C, m.P())) return false;
  double gain = 0.0;
  for (int i = 1; i <= m.P(); ++i) {
    for (int j = 1; j <= m.P(); ++j) {
      gain += 0.5 * m.gradient[static_cast<std::size_t>(i - 1)] * C[packed(i, j)] *
              m.gradient[static_cast<std::size_t>(j - 1)];
    }
  }
  return gain <= REACHED * (1.0 + std::fabs(m.LLF));
}

void set_scales(HetModel& m) {
  const bool good = FUNCHF(m, m.cov, {});
  for (int i = 1; i <= m.P(); ++i) {
    const double information = m.cov[packed(i, i)];
    const double scale = UNIT / std::sqrt(information);
    const auto k = static_cast<std::size_t>(i - 1);
    m.scale[k] = good && information > 0.0 && std::isfinite(scale) && scale > 0.0
                     ? scale
                     : std::max(1.0, std::fabs(m.b[k]));
  }
}

void het_polish(HetModel& m, HetFunction& f) {
  set_scales(m);
  const auto P = static_cast<std::size_t>(m.P());
  const std::size_t words = packed_words(m.P());
  std::span<double> room = m.room;
  const auto take = [&](std::size_t n) {
    const std::span<double> taken = room.first(n);
    room = room.subspan(n);
    return taken;
  };
  const HessianFactors factors{.LD = take(words), .n = m.P()};
  const std::span<double> b = take(P), x = take(P), s = take(P), old_x = take(P), old_g = take(P);
  HetScaled scaled(f, m.scale, b);
  for (std::size_t i = 0; i < P; ++i) x[i] = m.b[i] / m.scale[i];
  const auto value_at = [&](double& value) {
    const Objective::Value v =
        scaled.evaluate(x, scaled.analytic ? m.gradient : std::span<double>{});
    value = v.f;
    return v.good && (scaled.analytic || NLNUM(scaled, x, m.gradient, true));
  };
  // The matrix is made once: close to the maximum it hardly changes from step to step.
  double value = 0.0;
  const bool good = value_at(value) && numeric_hessian(scaled, x, m.cov, take(2 * P)) &&
                    HessianFactors(factors).factorise(m.cov);
  for (int step = 0; good && step < MOST_STEPS && !stop_requested(); ++step) {
    factors.direction(m.gradient, s);
    double gain = 0.0;
    for (std::size_t i = 0; i < P; ++i) gain -= 0.5 * s[i] * m.gradient[i];
    if (!(gain > LEAST_GAIN * (1.0 + std::fabs(value)))) break;
    std::ranges::copy(x, old_x.begin());
    std::ranges::copy(m.gradient, old_g.begin());
    for (std::size_t i = 0; i < P; ++i) x[i] += s[i];
    double trial = 0.0;
    if (!value_at(trial) || trial > value) {
      std::ranges::copy(old_x, x.begin());
      std::ranges::copy(old_g, m.gradient.begin());
      break;
    }
    value = trial;
  }
  for (std::size_t i = 0; i < P; ++i) {
    m.b[i] = x[i] * m.scale[i];
    m.gradient[i] /= m.scale[i];
  }
}

HetCovariance het_covariance(HetModel& m, HetFunction& f, bool at_start, bool annealed,
                             HessianFactors factors) {
  const bool opg = NLCOM.OPGCOV && !annealed;
  if (NLCOM.OPGCOV && annealed) warn(" ...WARNING..OPGCOV OPTION IGNORED");
  HetCovariance kind = at_start ? HetCovariance::Start : HetCovariance::Information;
  if (OCOM.OPUT) say(" ...NOTE..ATTEMPTING INVERSION OF HESSIAN FOR COVARIANCE MATRIX");
  bool good = false;
  if (!at_start && opg) {
    kind = HetCovariance::Outer;
    good = FUNCHF(m, {}, m.cov);
  } else if (!at_start && (NLCOM.NUMCOV || NLCOM.NUMERIC || annealed)) {
    kind = HetCovariance::Numeric;
    set_scales(m);
    good = second_derivatives(m, f);
  } else {
    good = FUNCHF(m, m.cov, {});
  }
  if (stop_requested() || (good && invert(m.cov, m.P()))) return kind;
  warn<"(' ...WARNING..COVARIANCE MATRIX AND STD ERRORS ', ' ARE INCORRECT')">();
  if (!factors.LD.empty() && factors.positive()) {
    factors.inverse(m.cov);
  } else {
    std::ranges::fill(m.cov, 0.0);
  }
  return HetCovariance::Algorithm;
}

}  // namespace korvel
