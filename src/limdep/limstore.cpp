// Variables that keep results of probit, logit and tobit, and the estimate for the commands behind.

#include <cmath>
#include <vector>

#include "engine/commands.h"
#include "expr/kernels/packed.h"
#include "limdep/limdep_parts.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"
#include "stats/probability.h"

namespace korvel {
namespace {

Estimate estimate_of(const LimModel& m, std::span<const ListItem> list,
                     std::span<const double> means) {
  return {.profile = nullptr,
          .list = list,
          .coef = m.coef,
          .cov = m.cov,
          .means = means,
          .squares = {},
          .observed = {},
          .residual = {},
          .multiplicity = 1,
          .blocks = 1};
}

}  // namespace

void clear_results() {
  for (int p = temporary_place("R2"); p <= temporary_place("ZANF"); ++p) temporary(p) = UNSET;
  temporary(temporary_place("RHO")) = UNSET;
  temporary(temporary_place("JB")) = UNSET;
}

double standard_error(const LimModel& m, int i) {
  const double v = m.cov[packed(i + 1, i + 1)];
  return v > 0.0 ? std::sqrt(v) : 0.0;
}

double mills_ratio(double z, bool one) {
  const double v = one ? z : -z;
  double ratio = 0.0;
  if (v > -5.0) {
    constexpr double density = 0.3989422804014;
    ratio = density * std::exp(-v * v / 2.0) / normal_cdf(v);
  } else {
    // Far out both go to 0; their quotient is a continued fraction (Abramowitz and Stegun 26.2.14).
    constexpr int terms = 60;
    ratio = -v;
    for (int k = terms; k >= 1; --k) ratio = -v + k / ratio;
  }
  return one ? ratio : -ratio;
}

void store_coefficients(Workspace ws, const LimModel& m, std::span<const double> coef) {
  const auto M = static_cast<std::size_t>(m.M());
  ADDCOM.KCOEF = store_vector(ws, LIMCOM.COEFFICI, coef.size(),
                              [&](int i) { return coef[static_cast<std::size_t>(i)]; });
  store_vector(ws, LIMCOM.STDERR, M, [&](int i) { return standard_error(m, i); });
  store_vector(ws, LIMCOM.TRATIO, M, [&](int i) {
    return t_ratio(m.coef[static_cast<std::size_t>(i)], standard_error(m, i));
  });
  ADDCOM.KCOV = store_symmetric(ws, LIMCOM.COVARIAN, m.cov, m.M());
}

void save_model(Workspace ws, const LimModel& m) {
  // Lists of several choices name each regressor once a block; a tobit has ND behind its own.
  static std::vector<ListItem> list;
  static std::vector<double> means;
  list.clear();
  means.clear();
  for (int i = 0; i < m.M(); ++i) {
    const auto k = static_cast<std::size_t>(i % m.K());
    if (i >= m.K() && m.choices == 2) {
      list.push_back(ListItem{.name = "ND"});
      means.push_back(0.0);
    } else {
      list.push_back(m.list[k]);
      means.push_back(m.mean[k]);
    }
  }
  list.push_back(m.dependent());
  double ybar = 0.0;
  if (INPCOM.IKOD == K_TOBIT) {
    ybar = -m.mean.back();
  } else {
    for (std::size_t j = 0; j < m.observed.size(); ++j) {
      ybar += static_cast<double>(j) * m.observed[j] / m.N;
    }
  }
  means.push_back(ybar);
  save_estimate(ws, estimate_of(m, list, means));
  SAVED.choices = m.choices;
  SAVED.low = m.model.low;
  SAVED.share = m.model.share;
  SAVED.limit = LIMCOM.LIMIT;
  SAVED.upper = LIMCOM.UPPER;
}

void residual_statistics(Workspace ws, const LimModel& m, std::span<const double> observed,
                         std::span<const double> residual) {
  Estimate est = estimate_of(m, m.list, m.mean);
  est.observed = observed;
  est.residual = residual;
  OLSRES(ws, est);
}

}  // namespace korvel
