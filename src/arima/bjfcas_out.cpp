// Tables of forecasts.
#include <cmath>

#include "arima/bj.h"
#include "arima/bjfmod.h"

namespace korvel {
namespace {

// The value of the series at an observation, where it is known: a missing one, or one that has no
// logarithm in a table of logs, is not.
bool known_value(const BjForecast& fc, int obs, bool logs, double& value) {
  if (obs > std::ssize(fc.all)) return false;
  value = fc.all[static_cast<std::size_t>(obs - 1)];
  if (value == MACOM.XMISS || !std::isfinite(value)) return false;
  if (!logs) return true;
  if (!(value > 0.0)) return false;
  value = std::log(value);
  return true;
}

// Columns: 2-8 observation, 9-21 lower limit, 22-34 forecast, 35-47 upper limit, 48-60 actual,
// 61-73 actual less forecast. `logs`: the series is known as it is, the forecasts in logs; the
// table is one of logs or, with `antilogs`, of what they stand for.
void print_table(const BjForecast& fc, bool logs, bool antilogs) {
  {
    const Line blank;
    Line head;
    head.put<"(' FUTURE DATE', 4X, 'LOWER', 5X, 'FORECAST', 8X, 'UPPER', 7X, 'ACTUAL', 8X)">();
    head.put<"('ERROR')">();
    OUTLINE();
  }
  for (int l = 0; l < fc.steps; ++l) {
    const auto i = static_cast<std::size_t>(l);
    std::array<double, 3> v = {fc.f[i] - LIMITS * fc.se[i], fc.f[i], fc.f[i] + LIMITS * fc.se[i]};
    if (antilogs) {
      for (double& x : v) x = std::exp(x);
    }
    const int obs = fc.origin + l + 1;
    Line row;
    row.put<"(1X, I7, 3G13.5)">(obs, v[0], v[1], v[2]);
    double actual = 0.0;
    if (known_value(fc, obs, logs && !antilogs, actual)) {
      row.put<"(2G13.5)">(actual, actual - v[1]);
    }
    OUTLINE();
  }
}

}  // namespace

void print_forecasts(const BjForecast& fc) {
  const bool logs = BJCOM.LOG;
  {
    const Line blank;
    Line head;
    head.put<"(' FROM ORIGIN DATE ', I0, ', FORECASTS ', ' ARE CALCULATED UP TO ', I0)">(fc.origin,
                                                                                         fc.steps);
    head.put<"(' STEPS AHEAD')">();
    if (logs) {
      Line kind;
      kind.put<"(24X, 'FORECAST IN LOGS')">();
    }
    OUTLINE();
  }
  print_table(fc, logs, false);
  if (logs) {
    const Line blank;
    Line kind;
    kind.put<"(24X, 'FORECAST IN ANTI-LOG (RAW) FORM')">();
    OUTLINE();
    print_table(fc, logs, true);
  }
  {
    const Line blank;
    Line head;
    head.put<"(' STEPS AHEAD', 3X, 'STD ERROR', 4X, 'PSI WT')">();
    OUTLINE();
  }
  for (int l = 0; l < fc.steps; ++l) {
    const auto i = static_cast<std::size_t>(l);
    say<"(1X, I7, G13.5, F10.4)">(l + 1, fc.se[i], fc.psi[i]);
  }
  const Line blank;
  Line a, b;
  a.put<"(' VARIANCE OF ONE-STEP-AHEAD ERRORS-SIGMA**2 =', G13.5)">(fc.sigma2);
  b.put<"(' STD.DEV. OF ONE-STEP-AHEAD ERRORS-SIGMA    =', G13.5)">(std::sqrt(fc.sigma2));
  OUTLINE();
}

void print_mean_times(std::span<const double> rho) {
  // Without correlation at lag 1 or 2 the second form is that of white noise, too.
  const double peaks = (2.0 * rho[0] - rho[1] - 1.0) / (2.0 * (1.0 - rho[0]));
  Line a, b;
  a.put<"(' MEAN TIME BETWEEN UPCROSSES =', G13.5)">(mean_time(rho[0]));
  b.put<"(' MEAN TIME BETWEEN PEAKS =', G13.5)">(mean_time(peaks));
  OUTLINE();
}

}  // namespace korvel
