// Variables that keep the results of an estimation. They are made after the fit, so that a model
// that can't be estimated leaves variables of these names as they were.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"

namespace korvel {

namespace {

// A series that holds value(row) at the kept rows and the missing code elsewhere. The second block
// of a fit with two rows an observation follows behind element MEND.
template <class F>
bool store_series(Workspace ws, const NameOption& option, int blocks, F&& value) {
  if (option.text.empty()) return true;
  const std::int64_t length = std::int64_t{DATCOM.MEND} * blocks;
  const int var = make_result(ws, option, SERIES, length, 1);
  if (var == 0) return false;
  const std::span<double> to = elements(ws, var);
  std::fill(to.begin(), to.begin() + std::min<std::ptrdiff_t>(length, std::ssize(to)), MACOM.XMISS);
  KeptRows rows(ws, blocks);
  while (rows.next()) {
    const std::int64_t place = std::int64_t{DATCOM.MEND} * rows.block + rows.obs - 1;
    to[static_cast<std::size_t>(place)] = value(static_cast<std::size_t>(rows.row));
  }
  return true;
}

}  // namespace

void store_results(Workspace ws, const Estimate& est, std::span<const double> hat) {
  const OlsCom& o = OLSCOM;
  const int K = est.K();
  // The dependent variable itself may be the place of a result, so what rests on it comes first.
  const std::size_t rows = o.PREDICT.text.empty() ? 0 : est.observed.size();
  Scratch room(ws, static_cast<std::int64_t>(rows));
  if (!room) return;
  const std::span<double> predicted = room.words();
  for (std::size_t t = 0; t < rows; ++t) predicted[t] = est.observed[t] - est.residual[t];
  if (!store_series(ws, o.RESID, est.blocks, [&](std::size_t t) { return est.residual[t]; }))
    return;
  if (!store_series(ws, o.PREDICT, est.blocks, [&](std::size_t t) { return predicted[t]; })) return;
  if (!hat.empty() &&
      !store_series(ws, o.HATDIAG, est.blocks, [&](std::size_t t) { return hat[t]; }))
    return;
  // Behind the coefficients of components stand those of the variables that they are made of.
  const auto all = static_cast<std::size_t>(K + component_variables(ws));
  const auto coefficient = [&](int i) {
    if (i >= K) return component_variable(ws, est, i - K);
    return ComponentVariable{est.coef[static_cast<std::size_t>(i)], standard_error(est, i)};
  };
  store_vector(ws, o.TRATIO, all, [&](int i) {
    const ComponentVariable c = coefficient(i);
    return t_ratio(c.b, c.se);
  });
  store_vector(ws, o.STDERR, all, [&](int i) { return coefficient(i).se; });
  ADDCOM.KCOEF = store_vector(ws, o.COEFFICE, all, [&](int i) { return coefficient(i).b; });
  ADDCOM.KCOV = store_symmetric(ws, o.COVARIAN, est.cov, K);
}

}  // namespace korvel
