// BJEST: the estimation stage. Start values, checks, the fit, what is kept of it.
#include <cmath>

#include "arima/bj.h"
#include "arima/bjegau.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace {

constexpr double DEFAULT_START = 0.1;  // of every AR and MA parameter
constexpr double DEFAULT_STEP = 0.01;  // of the derivatives, relative to the parameter
constexpr std::string_view BAD_START = " ...ERROR..TOO FEW COEFFICIENTS OR INVALID COEFFICIENTS";

// START=, the lines behind the command, or values that a series of that mean can start from.
bool take_start(Workspace ws, const BjOrders& o, std::span<const double> w, std::span<double> b) {
  if (BJCOM.STARTING != 0) return start_vector(ws, o, b, BJ_START, BAD_START);
  if (BJCOM.INSTART || OSCOM.OTALK) {
    return read_parameters(o, "PARAMETER STARTING VALUES NEEDED FOR:", b, BJ_START, BAD_START);
  }
  std::fill(b.begin(), b.end(), DEFAULT_START);
  if (o.constant) b.back() = series_moments(w).mean * mean_factor(o, b);
  return true;
}

void print_values(std::span<const double> values) {
  constexpr std::size_t a_line = 5;
  for (std::size_t i = 0; i < values.size(); i += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t j = i; j < std::min(i + a_line, values.size()); ++j) {
      row.put<"(G13.5)">(values[j]);
    }
    OUTLINE();
  }
}

void print_start(const BjOrders& o, std::span<const double> b) {
  say(" STARTING VALUES OF PARAMETERS ARE:");
  print_values(b);
  if (!BJCOM.RESTRICT) return;
  say(" ESTIMATION WITH ZERO RESTRICTIONS :");
  for (int i = 0; i < o.parameters(); ++i) {
    if (b[static_cast<std::size_t>(i)] == 0.0) say<"(1X, A8)">(parameter_name(o, i));
  }
}

void print_moments(const SeriesMoments& m) {
  Line a, b, c;
  a.put<"(' MEAN OF SERIES =', G13.5)">(m.mean);
  b.put<"(' VARIANCE OF SERIES =', G13.5)">(m.variance);
  c.put<"(' STANDARD DEVIATION OF SERIES =', G13.5)">(std::sqrt(m.variance));
  OUTLINE();
}

void print_fit_heading(const BjOrders& o, double h, double S0, std::size_t n) {
  Line a, b, c;
  a.put<"(' STEP-SIZE FOR NUMERICAL DERIVATIVES =', G13.5)">(h);
  b.put<"(' INITIAL SUM OF SQUARES = ', G15.7)">(S0);
  c.put<"(' NET NUMBER OF OBS IS ', I0, ' DIFFERENCING: ', I0, ' CONSECUTIVE, ', I0)">(n, o.NDIFF,
                                                                                       o.NSDIFF);
  c.put<"(' SEASONAL ', ' WITH SPAN ', I0)">(o.NSPAN);
  OUTLINE();
}

void print_step(const GaussStep& step) {
  say<"(' ITERATION NO. ', I4, ' SUM OF SQUARES = ', G15.7)">(step.iteration, step.S);
  if (BJCOM.DUMP) {
    say<"(' LAMBDA=', G13.5, ' ANGLE=', F8.3, ' GAMMA=', G13.5)">(step.lambda, step.angle,
                                                                  step.gamma);
  }
  say(" PARAMETER VALUES:");
  print_values(step.b);
}

// How the fit ended; the codes of an end without convergence.
void report_stop(const GaussFit& fit) {
  const bool print = OCOM.OPUT;
  switch (fit.stop) {
    case GaussStop::parameters:
    case GaussStop::squares:
      if (!print) return;
      if (fit.stop == GaussStop::parameters) {
        say<"(' ITERATION STOPS - RELATIVE CHANGE IN EACH PARAMETER ', ' LESS THAN ', F8.4)">(
            GAUSS_TOLERANCE);
      } else {
        say<"(' ITERATION STOPS - RELATIVE CHANGE IN SUM OF SQUARES ', 'LESS THAN ', F8.4)">(
            GAUSS_TOLERANCE);
      }
      say<"(' CONVERGENCE AFTER ', I4, ' ITERATIONS ', ' INITIAL SUM OF SQS=', G15.7, "
          "' FINAL SUM OF SQS=', G15.7)">(fit.iterations, fit.S0, fit.S);
      return;
    case GaussStop::limit:
      set_error(BJ_LIMIT);
      if (print) {
        say<"(' NO CONVERGENCE AFTER ', I4, ' ITERATIONS ', ' INITIAL SUM OF SQS=', G15.7, "
            "' FINAL SUM OF SQS=', G15.7)">(fit.iterations, fit.S0, fit.S);
      }
      return;
    default:
      set_error(BJ_NO_STEP);
      warn<
          "(' ...WARNING..FAILED TO REDUCE SSE FURTHER AFTER ', I4, ' ITERATIONS ', "
          "' INITIAL SSE=', G15.7, 'FINAL SSE=', G15.7)">(fit.iterations, fit.S0, fit.S);
  }
}

// Sums of the polynomials that reach 1.
void warn_of_roots(const BjOrders& o, std::span<const double> b) {
  const auto sum = [&](int first, int count, int seasonal, int seasonal_count) {
    double total = 0.0;
    for (int i = 0; i < count; ++i) total += b[static_cast<std::size_t>(first + i)];
    for (int i = 0; i < seasonal_count; ++i) total += b[static_cast<std::size_t>(seasonal + i)];
    return total;
  };
  const int seasonal = o.NARP + o.NMA;
  if (sum(0, o.NARP, seasonal, o.NSARP) > 1.0) {
    warn(" ...WARNING..SUM OF AR EXCEEDS 1.0");
    if (OSCOM.OWARN) say(" NONSTATIONARY MODEL");
  }
  if (sum(o.NARP, o.NMA, seasonal + o.NSARP, o.NSMA) > 1.0) {
    warn(" ...WARNING..SUM OF MA EXCEEDS 1.0");
    if (OSCOM.OWARN) say(" NONINVERTIBLE MODEL");
  }
}

// What the results stage of the other estimators leaves: the band from $R2 to $ZANF is cleared.
void set_temporaries(const BjEstimate& est) {
  constexpr int first = temporary_place("R2"), last = temporary_place("ZANF");
  for (int p = first; p <= last; ++p) temporary(p) = UNSET;
  temporary(temporary_place("RHO")) = temporary(temporary_place("JB")) = UNSET;
  const double SST = est.moments.variance * est.n;
  const double R2 = 1.0 - est.S / SST;
  temporary(temporary_place("N")) = est.n;
  temporary(temporary_place("K")) = est.k;
  temporary(temporary_place("DF")) = BJCOM.DN ? est.n : est.n - est.k;
  temporary(temporary_place("SSE")) = est.S;
  temporary(temporary_place("SIG2")) = est.sigma2;
  temporary(temporary_place("R2")) = R2;
  temporary(temporary_place("ADR2")) = 1.0 - (est.n - 1.0) / (est.n - est.k) * (1.0 - R2);
}

}  // namespace

// Residuals, covariance, the fit, and for the tables behind it the centred residuals with three
// vectors of lags.
std::int64_t BJEST_words(int k, std::int64_t n) {
  const auto rows = static_cast<std::size_t>(n);
  return static_cast<std::int64_t>(PRESAMPLE + rows + packed_words(k) + BJEGAU_words(k, rows) +
                                   rows) +
         3 * std::int64_t{BJCOM.NLAG};
}

bool BJEST(Workspace ws, const BjSeries& series) {
  const Trace trace("BJEST");
  const BjOrders& o = BJCOM.orders;
  const bool print = OCOM.OPUT;
  const std::span<const double> w = series.w;
  const int k = o.parameters();
  if (print) {
    const Line blank;
    Line head;
    head.put<"(30X, ' ESTIMATION PROCEDURE')">();
    OUTLINE();
  }
  // 1. The model and its start values.
  const bool too_long = std::max(o.longest_ar(), o.longest_ma()) > PRESAMPLE;
  if (k == 0) {
    return bj_fail<"(' ...ERROR..SPECIFICATION ERROR, PLEASE CHANGE ')">(BJ_START);
  }
  if (k > MAXBJ) return bj_fail<"(' ...ERROR..PRE-SAMPLE VALUES EXCEED 104')">(BJ_PRESAMPLE);
  BjValues values{.orders = o, .LOG = BJCOM.LOG};
  const std::span<double> b = values.coef();
  if (!take_start(ws, o, w, b)) return false;
  if (print) print_start(o, b);
  if (too_long) return bj_fail<"(' ...ERROR..PRE-SAMPLE VALUES EXCEED 104')">(BJ_PRESAMPLE);
  // 2. The series.
  BjEstimate est;
  est.n = static_cast<int>(w.size());
  est.k = k;
  if (BJCOM.RESTRICT) est.k -= static_cast<int>(std::ranges::count(b, 0.0));
  if (est.n <= est.k || est.n <= o.longest_ar()) {
    return bj_fail<"(' ...ERROR..TOO FEW OBSERVATIONS')">(BJ_TOO_FEW);
  }
  est.moments = series_moments(w);
  if (print) print_moments(est.moments);
  if (!varies(est.moments)) {
    return bj_fail<"(' ...ERROR..VARIANCE OF SERIES IS ZERO')">(BJ_TOO_FEW);
  }
  // 3. The fit.
  Scratch room(ws, BJEST_words(k, est.n));
  if (!room) return false;
  const std::span<double> a = room.take(PRESAMPLE + w.size());
  const std::span<double> cov = room.take(packed_words(k));
  const GaussProblem problem{o, BJCOM.STEPSIZE != 0.0 ? BJCOM.STEPSIZE : DEFAULT_STEP, BJCOM.ITER};
  const auto watch = [&](const GaussStep& step) {
    if (print && (BJCOM.PITER || BJCOM.DUMP)) print_step(step);
    return !stop_requested();
  };
  const double S0 = BJEGAU_start(problem, w, b, a, room.rest());
  if (!(S0 <= arm_limit(w))) {
    fail(BAD_START);
    set_error(BJ_START);
    return false;
  }
  if (print) print_fit_heading(o, problem.h, S0, w.size());
  const GaussFit fit = BJEGAU(problem, w, b, a, cov, room.take(BJEGAU_words(k, w.size())), watch);
  if (fit.stop == GaussStop::asked) return false;
  report_stop(fit);
  if (fit.singular) {
    set_error(BJ_NO_STEP);
    warn(" ...WARNING..MATRIX IS SINGULAR, NO STANDARD ERRORS");
  }
  // 4. What is kept.
  est.S = fit.S;
  est.sigma2 = est.S / (BJCOM.DN ? est.n : est.n - est.k);
  for (double& c : cov) c *= est.sigma2;
  est.w = w;
  est.e = a.last(w.size());
  est.b = b;
  est.cov = cov;
  set_temporaries(est);
  values.sigma2 = est.sigma2;
  BJCOM.last = values;
  ADDCOM.IDBJ = 1;
  clear_estimate();
  // 5. Tables and stored results.
  warn_of_roots(o, b);
  if (print) print_estimate(est);
  examine_residuals(ws, est, room.rest());
  if (OCOM.ODONT || stop_requested()) return false;
  store_estimate(ws, series, est);
  return !OCOM.ODONT;
}

}  // namespace korvel
