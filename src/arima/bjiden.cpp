// BJIDEN: the identification stage. Differences, moments, autocorrelations and their tests,
// partial and inverse autocorrelations, charts.
#include <cmath>

#include "arima/bj.h"
#include "data/data.h"

namespace korvel {
namespace {

constexpr double NO_VARIANCE = 1e-30;  // relative to the square of the mean: rounding alone

void print_moments(const BjOrders& o, std::size_t n, const SeriesMoments& m) {
  const Line blank;
  Line title, mean;
  title.put<"(' SERIES  ', A, '  ')">(difference_title(o));
  title.put<"('   NET NUMBER OF OBSERVATIONS = ', I0)">(n);
  mean.put<"(' MEAN=  ', G13.5, ' VARIANCE=  ', G13.5, ' STANDARD DEV.= ', G13.5)">(
      m.mean, m.variance, std::sqrt(m.variance));
  OUTLINE();
}

// Identification alone needs no series behind it: it centres the one it was given.
bool keeps_series() { return BJCOM.ESTIMATE || BJCOM.FORECAST; }

}  // namespace

bool varies(const SeriesMoments& m) {
  return m.variance > NO_VARIANCE * std::max(1.0, m.mean * m.mean);
}

// Centred series, correlations with errors and statistics, partial and inverse ones with two
// vectors of the recursion.
std::int64_t BJIDEN_words(std::int64_t n) {
  return (keeps_series() ? n : 0) + 3 * std::int64_t{BJCOM.NLAG} + 5 * std::int64_t{BJCOM.NLAGP};
}

bool BJIDEN(Workspace ws, const BjSeries& series) {
  const Trace trace("BJIDEN");
  const BjCom& o = BJCOM;
  const bool print = OCOM.OPUT;
  const auto n = static_cast<double>(series.w.size());
  Scratch room(ws, BJIDEN_words(std::ssize(series.w)));
  if (!room) return false;
  // 1. The series: title, moments, plots.
  if (print) {
    const Line blank;
    Line head;
    head.put<"(1X, 'IDENTIFICATION SECTION - VARIABLE=', A8)">(series.name);
    head.put<"(' NUMBER OF AUTOCORRELATIONS =', I4)">(o.NLAG);
    head.put<"(' NUMBER OF PARTIAL AUTOCORRELATIONS =', I4)">(o.NLAGP);
    OUTLINE();
  }
  const SeriesMoments moments = series_moments(series.w);
  if (print) print_moments(o.orders, series.w.size(), moments);
  const std::string title = difference_title(o.orders);
  const int first_obs = DATCOM.MBEG + static_cast<int>(o.orders.lost());
  if (o.PLOTDATA && print) BJEPLT(" SERIES  " + title, series.w, first_obs);
  if (o.GRAPHDAT && !plot_series(std::string(series.name) + " " + title, series.w, first_obs)) {
    return false;
  }
  // 2. Without variance there is nothing to correlate.
  if (!varies(moments)) {
    warn(" ...WARNING..VARIANCE OF SERIES IS ZERO");
    return true;
  }
  // 3. Autocorrelations and their tests.
  const auto nlag = static_cast<std::size_t>(o.NLAG), nlagp = static_cast<std::size_t>(o.NLAGP);
  const std::span<double> centred = keeps_series() ? room.take(series.w.size()) : series.w;
  const std::span<double> r = room.take(nlag), errors = room.take(nlag), Q = room.take(nlag);
  if (keeps_series()) std::copy(series.w.begin(), series.w.end(), centred.begin());
  autocorrelations(centred, moments, r);
  if (stop_requested()) return false;
  bartlett_errors(r, n, errors);
  ljung_box(r, n, Q);
  if (print && o.TABLE) {
    BJISER("AUTOCORRELATIONS", r, errors);
    print_ljung_box(Q, 0);
  }
  for (double& e : errors) e *= 2.0;  // the band of the charts
  const std::string ac_title = " AUTOCORRELATION FUNCTION OF THE SERIES    " + title;
  if (o.PLOTAC && print) BJIPLA(ac_title, r, errors);
  if (o.GRAPHAC && !plot_correlations("AUTOCORRELATION FUNCTION", r, errors)) return false;
  // 4. Partial autocorrelations, and the inverse ones of the AR model that they end with.
  const std::span<double> partial = room.take(nlagp), phi = room.take(nlagp);
  const std::span<double> inverse = room.take(nlagp), band = room.take(nlagp);
  BJIPAR(r, partial, phi, inverse);
  std::fill(band.begin(), band.end(), 1.0 / std::sqrt(n));
  if (print && o.TABLE && o.NLAGP > 0) BJISER("PARTIAL AUTOCORRELATIONS", partial, band);
  if (o.IAC && o.NLAGP > 0) {
    inverse_autocorrelations(phi, inverse);
    if (print) {
      say<"(' ORDER OF AR', I5)">(o.NLAGP);
      BJISER("INVERSE AUTOCORRELATIONS", inverse, band);
    }
  }
  for (double& e : band) e *= 2.0;
  if (o.PLOTPAC && print) {
    BJIPLA(" PARTIAL AUTOCORRELATION FUNCTION OF THE SERIES  " + title, partial, band);
  }
  if (o.GRAPHPAC && !plot_correlations("PARTIAL AUTOCORRELATION FUNCTION", partial, band)) {
    return false;
  }
  // 5. Stored results.
  store_vector(ws, o.ACF, r);
  store_vector(ws, o.PACF, partial);
  store_vector(ws, o.TESTSTAT, Q);
  return !OCOM.ODONT;
}

}  // namespace korvel
