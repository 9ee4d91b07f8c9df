// Error statistics of forecasts and the two decompositions of their mean square (Theil 1966).

#include <cmath>

#include "engine/output.h"
#include "regress/fcast_parts.h"

namespace korvel {
namespace {

// Stands for 2 sf sy where one of them is 0.
constexpr double NO_SPREAD = 1e-10;

struct Spread {
  double mean = 0.0, deviation = 0.0;
};

// Mean and standard deviation (divisor n) of value(row) over the rows that count.
template <class F>
Spread spread(const ForecastRows& rows, double n, F&& value) {
  Spread s;
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (rows.known(r)) s.mean += value(r);
  }
  s.mean /= n;
  double squares = 0.0;
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (rows.known(r)) squares += (value(r) - s.mean) * (value(r) - s.mean);
  }
  s.deviation = std::sqrt(std::fabs(squares / n));
  return s;
}

// The third of three shares, none of which is negative but by rounding.
double last_share(double first, double second) {
  const double share = 1.0 - first - second;
  return share < 1e-12 ? 0.0 : share;
}

}  // namespace

ErrorStatistics error_statistics(const ForecastRows& rows, int section) {
  ErrorStatistics s;
  double sum = 0.0, absolute = 0.0, percent = 0.0;
  double later = 0.0, changes = 0.0;  // e(t)^2 and (y(t)-y(t-1))^2 from the second row on
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (!rows.known(r)) continue;
    const double e = rows.e(r);
    s.n += 1.0;
    sum += e;
    s.SSE += e * e;
    absolute += std::fabs(e);
    if (rows.y[r] != 0.0) percent += (100.0 * e / rows.y[r]) * (100.0 * e / rows.y[r]);
    const bool starts = section > 0 && r % static_cast<std::size_t>(section) == 0;
    if (r == rows.first || starts || !rows.known(r - 1)) continue;
    later += e * e;
    changes += (rows.y[r] - rows.y[r - 1]) * (rows.y[r] - rows.y[r - 1]);
  }
  if (s.n == 0.0) return s;
  s.ME = sum / s.n;
  s.MSE = s.SSE / s.n;
  s.MAE = absolute / s.n;
  s.RMSE = std::sqrt(s.MSE);
  s.MSPE = percent / s.n;
  s.U = later > 0.0 ? std::sqrt(later / changes) : 0.0;  // infinite when y stays the same
  const Spread y = spread(rows, s.n, [&](std::size_t r) { return rows.y[r]; });
  const Spread f = spread(rows, s.n, [&](std::size_t r) { return rows.yhat[r]; });
  const double M = s.MSE;
  if (M > 0.0) {
    s.bias = (f.mean - y.mean) * (f.mean - y.mean) / M;
    s.variance = (f.deviation - y.deviation) * (f.deviation - y.deviation) / M;
  }
  s.covariance = last_share(s.bias, s.variance);
  double p = 2.0 * f.deviation * y.deviation;
  if (p == 0.0) p = NO_SPREAD;
  if (M > 0.0) {
    const double left = f.deviation - (1.0 - s.covariance * M / p) * y.deviation;
    s.regression = left * left / M;
  }
  s.disturbance = last_share(s.bias, s.regression);
  return s;
}

void print_error_statistics(const ErrorStatistics& s) {
  if (s.n == 0.0) return say(" ...NOTE..NO VALUE OF THE DEPENDENT VARIABLE IS KNOWN");
  {
    Line a, b, c, d, e, f;
    a.put<"(' MEAN ERROR =', G13.5)">(s.ME);
    b.put<"(' SUM-SQUARED ERRORS =', G13.5)">(s.SSE);
    c.put<"(' MEAN SQUARE ERROR =', G13.5)">(s.MSE);
    d.put<"(' MEAN ABSOLUTE ERROR=', G13.5)">(s.MAE);
    e.put<"(' ROOT MEAN SQUARE ERROR =', G13.5)">(s.RMSE);
    f.put<"(' MEAN SQUARED PERCENTAGE ERROR=', G13.5)">(s.MSPE);
    OUTLINE();
  }
  if (std::isfinite(s.U)) say<"(' THEIL INEQUALITY COEFFICIENT U =', F6.3)">(s.U);
  Line a, b, c, d, e, f, g, h;
  a.text("   DECOMPOSITION");
  b.put<"('      PROPORTION DUE TO BIAS =', G13.5)">(s.bias);
  c.put<"('      PROPORTION DUE TO VARIANCE =', G13.5)">(s.variance);
  d.put<"('      PROPORTION DUE TO COVARIANCE =', G13.5)">(s.covariance);
  e.text("   DECOMPOSITION");
  f.put<"('      PROPORTION DUE TO BIAS =', G13.5)">(s.bias);
  g.put<"('      PROPORTION DUE TO REGRESSION =', G13.5)">(s.regression);
  h.put<"('      PROPORTION DUE TO DISTURBANCE =', G13.5)">(s.disturbance);
  OUTLINE();
}

}  // namespace korvel
