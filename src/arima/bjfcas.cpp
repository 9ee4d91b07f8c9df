// BJFCAS: the forecasting stage.
#include <cmath>

#include "arima/bj.h"
#include "arima/bjfmod.h"

namespace korvel {
namespace {

constexpr std::string_view BAD_LIST = " ...ERROR..INVALID PARAMETER LIST";

// The model that is forecast from: the estimate of this command, given values, or the last estimate
// when its orders are these.
bool take_values(Workspace ws, BjValues& values) {
  const BjOrders& o = BJCOM.orders;
  values.orders = o;
  values.LOG = BJCOM.LOG;
  const std::span<double> b = values.coef();
  const auto ask = [&] {
    return read_parameters(BJCOM.orders, " PARAMETER VALUES NEEDED FOR:", b, BJ_PARAMETERS,
                           BAD_LIST);
  };
  const auto last_fits = [&] {
    return ADDCOM.IDBJ == 1 && BJCOM.last.orders == o && BJCOM.last.LOG == BJCOM.LOG;
  };
  if (!BJCOM.ESTIMATE) {
    if (BJCOM.STARTING != 0) return start_vector(ws, o, b, BJ_PARAMETERS, BAD_LIST);
    if (BJCOM.INSTART) return ask();
  }
  if (BJCOM.ESTIMATE || last_fits()) {
    values = BJCOM.last;
    return true;
  }
  if (o.parameters() == 0) return true;
  if (OSCOM.OTALK) return ask();
  fail(BAD_LIST);
  set_error(BJ_PARAMETERS);
  return false;
}

void print_parameters(const BjValues& values) {
  const BjOrders& o = values.orders;
  const Line blank;
  Line head;
  head.text(" PARAMETER VALUES ARE:");
  OUTLINE();
  int at = 0;
  const auto part = [&]<FixedText FMT>(int count, int step) {
    for (int i = 1; i <= count; ++i) {
      say<FMT>(i * step, values.b[static_cast<std::size_t>(at++)]);
    }
  };
  part.template operator()<"(' AR(', I3, ')= ', G13.5)">(o.NARP, 1);
  part.template operator()<"(' MA(', I3, ')= ', G13.5)">(o.NMA, 1);
  part.template operator()<"(' SEAS AR(', I3, ')= ', G13.5)">(o.NSARP, o.NSPAN);
  part.template operator()<"(' SEAS MA(', I3, ')= ', G13.5)">(o.NSMA, o.NSPAN);
  say<"(' CONSTANT = ', G13.5)">(o.constant ? values.b[static_cast<std::size_t>(at)] : 0.0);
}

// Variance of one-step errors: SIGMA=, the estimation's, or that of the known residuals.
bool take_variance(const BjValues& values, std::span<const double> a, std::size_t P,
                   double& sigma2) {
  if (BJCOM.SIGMA > 0.0) {
    sigma2 = BJCOM.SIGMA * BJCOM.SIGMA;
    return true;
  }
  if (values.sigma2 > 0.0) {
    sigma2 = values.sigma2;
    return true;
  }
  double S = 0.0;
  for (std::size_t t = P; t < a.size(); ++t) S += a[t] * a[t];
  const auto left = static_cast<double>(a.size() - P) - values.orders.parameters();
  if (!(left > 0.0)) return bj_fail<"(' ...ERROR..TOO FEW OBSERVATIONS')">(BJ_PARAMETERS);
  sigma2 = S / left;
  return true;
}

void store_forecasts(Workspace ws, const BjForecast& fc) {
  const BjCom& o = BJCOM;
  store_vector(ws, o.FCSE, fc.se);
  store_vector(ws, o.PSI, fc.psi);
  const std::span<double> to = store_series(ws, o.PREDICT, fc.origin + fc.steps);
  if (to.empty()) return;
  for (int l = 0; l < fc.steps; ++l) {
    const double f = fc.f[static_cast<std::size_t>(l)];
    to[static_cast<std::size_t>(fc.origin + l)] = o.LOG ? std::exp(f) : f;
  }
}

}  // namespace

// Residuals, the AR side, path, forecasts, errors, weights, autocorrelations; the path serves the
// trend, too.
std::int64_t BJFCAS_words(const BjOrders& o, std::int64_t n) {
  return n + 2 * (o.longest_ar() + o.lost()) + 3 * std::int64_t{MAXSTEPS} + THEORY_TERMS +
         THEORY_LAGS;
}

bool BJFCAS(Workspace ws, const BjSeries& series) {
  const Trace trace("BJFCAS");
  const BjOrders& o = BJCOM.orders;
  const bool print = OCOM.OPUT;
  if (print) {
    const Line blank;
    Line head;
    head.put<"(30X, 'ARIMA FORECAST ')">();
    OUTLINE();
  }
  // 1. The model.
  if (std::max(o.longest_ar(), o.longest_ma()) > PRESAMPLE) {
    return bj_fail<"(' ...ERROR..PRE-SAMPLE VALUES EXCEED 104')">(BJ_PARAMETERS);
  }
  BjValues values;
  if (!take_values(ws, values)) return false;
  if (print) print_parameters(values);
  // 2. The origin: the rows in use up to FBEG.
  int origin = 0;
  for (BjRows rows(ws); rows.next();) {
    if (rows.obs <= BJCOM.FBEG) origin = rows.row + 1;
  }
  const std::int64_t longest = o.longest_ar() + o.lost();
  if (origin < longest || origin < 1) {
    return bj_fail<"(' ...ERROR..ORIGIN DATE IS LESS THAN MAXIMUM AR LAG')">(BJ_ORIGIN);
  }
  Scratch room(ws, BJFCAS_words(o, origin));
  if (!room) return false;
  const auto P = static_cast<std::size_t>(longest);
  const auto steps = static_cast<std::size_t>(BJCOM.FEND - BJCOM.FBEG);
  const std::span<double> ar = room.take(P), a = room.take(static_cast<std::size_t>(origin));
  const std::span<double> path = room.take(P + MAXSTEPS), f = room.take(steps);
  const std::span<double> se = room.take(steps), psi = room.take(THEORY_TERMS);
  // 3. Recursions.
  BjModel model;
  make_model(o, values.coef(), false, model);
  BJFMOD(o, model.ar, ar);
  const std::span<const double> y = head(std::span<const double>(series.y), origin);
  known_residuals(y, ar, model.ma, model.c, a);
  if (stop_requested()) return false;
  forecast_steps(y, a, ar, model.ma, model.c, path, f);
  psi_weights(ar, model.ma, psi);
  BjForecast fc{.orders = o,
                .name = series.name,
                .c = model.c,
                .origin = BJCOM.FBEG,
                .steps = static_cast<int>(steps),
                .f = f,
                .se = se,
                .psi = psi.subspan(1, steps),
                .y = y,
                .all = series.length};
  if (!take_variance(values, a, P, fc.sigma2)) return false;
  double sum = 0.0;
  for (std::size_t l = 0; l < steps; ++l) {
    sum += psi[l] * psi[l];
    se[l] = std::sqrt(fc.sigma2 * sum);
    if (!std::isfinite(f[l]) || !std::isfinite(se[l])) {
      return bj_fail<"(' ...ERROR..SPECIFICATION ERROR, PLEASE CHANGE ')">(BJ_PARAMETERS);
    }
  }
  // 4. Tables.
  if (print) print_forecasts(fc);
  const std::span<double> rho = room.take(THEORY_LAGS);
  const bool stationary = o.NDIFF == 0 && o.NSDIFF == 0 && theoretical_autocorrelations(psi, rho);
  if (print && BJCOM.MEANDIST && stationary) print_mean_times(rho);
  if (BJCOM.STOCHAST && print) {
    print_trend(ws, fc, model, ar, a, mean_factor(o, values.coef()), path);
  }
  // 5. Plots and stored results.
  if (BJCOM.PLOTFORC && print) BJFPLO(fc);
  if (BJCOM.GRAPHFOR && !graph_forecasts(fc)) return false;
  if (stop_requested()) return false;
  store_forecasts(ws, fc);
  if (!BJCOM.IDENTIFY && !BJCOM.ACF.text.empty()) {
    if (stationary) {
      store_vector(ws, BJCOM.ACF, rho);
    } else {
      warn(" ...WARNING..ACF= IS NOT AVAILABLE HERE AND IS IGNORED");
    }
  }
  return !OCOM.ODONT;
}

}  // namespace korvel
