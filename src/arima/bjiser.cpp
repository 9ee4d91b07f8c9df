// Tables of correlations and of Ljung-Box statistics.
#include <cmath>

#include "arima/bj.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr std::size_t LAGS_A_ROW = 12;

}  // namespace

// Columns: 2-4 first lag, 7-9 last lag, 10-81 values, 82-89 the row's error under ALL.
void BJISER(std::string_view title, std::span<const double> r, std::span<const double> errors) {
  const bool one_error = BJCOM.ALL && !errors.empty();
  {
    const Line blank;
    Line head;
    head.put<"('   LAGS', 26X, A)">(title);
    if (one_error) {
      head.column(78);
      head.text("EST. STD ERROR");
      Line below;
      below.put<"(84X, 'FOR ROW')">();
    }
    OUTLINE();
  }
  for (std::size_t first = 0; first < r.size(); first += LAGS_A_ROW) {
    const std::size_t last = std::min(first + LAGS_A_ROW, r.size());
    Line row;
    row.put<"(1X, I3, ' -', I3)">(first + 1, last);
    for (std::size_t k = first; k < last; ++k) row.put<"(F6.2)">(r[k]);
    if (one_error) {
      row.column(82);
      row.put<"(F8.2)">(errors[first]);
    } else if (!errors.empty()) {
      Line below;
      below.put<"(1X, A8)">("STD ERR");
      for (std::size_t k = first; k < last; ++k) below.put<"(F6.2)">(errors[k]);
    }
    OUTLINE();
  }
}

// Two groups of 2X I4 F10.2 F8.3 (lag, Q, p), the lower half of the lags beside the upper one.
void print_ljung_box(std::span<const double> Q, int m) {
  const int count = static_cast<int>(Q.size()) - m;
  if (count < 1) return;
  {
    const Line blank;
    Line title, head;
    title.text(" MODIFIED BOX-PIERCE (LJUNG-BOX-PIERCE) STATISTICS  (CHI-SQUARE)");
    head.put<"(3X, 'LAG        Q  P-VALUE')">();
    if (count > 1) head.put<"(3X, 'LAG        Q  P-VALUE')">();
    OUTLINE();
  }
  constexpr double widest = 9999999.0;  // in F10.2
  const int half = (count + 1) / 2;
  for (int i = 1; i <= half; ++i) {
    Line row;
    for (int lag = m + i; lag <= m + count; lag += half) {
      const double q = Q[static_cast<std::size_t>(lag - 1)];
      row.put<"(2X, I4)">(lag);
      if (q > widest) {
        row.put<"(G10.4)">(q);
      } else {
        row.put<"(F10.2)">(q);
      }
      row.put<"(F8.3)">(chi_square_tail(q, lag - m).value);
    }
    OUTLINE();
  }
}

void BJECRO(std::span<const double> w, std::span<const double> e, int lags) {
  const SeriesMoments mw = series_moments(w), me = series_moments(e);
  const auto n = static_cast<double>(w.size());
  const double scale = n * std::sqrt(mw.variance * me.variance);
  // sum (w(t) - wbar)(e(t-k) - ebar) for k >= 0, (w(t) - wbar)(e(t+k) - ebar) for leads
  const auto correlation = [&](std::span<const double> early, double early_mean,
                               std::span<const double> late, double late_mean, std::size_t k) {
    double sum = 0.0;
    for (std::size_t t = 0; t + k < late.size(); ++t) {
      sum += (early[t] - early_mean) * (late[t + k] - late_mean);
    }
    return scale > 0.0 ? sum / scale : 0.0;
  };
  std::array<double, LAGS_A_ROW> r{};
  const std::span<double> used = head(std::span<double>(r), lags);
  {
    const Line blank;
    Line title, below, zero;
    title.text(" CROSS-CORRELATIONS BETWEEN RESIDUALS AND");
    below.text(" (DIFFERENCED) SERIES");
    zero.put<"(' CROSS-CORRELATION AT ZERO LAG = ', F6.2)">(correlation(e, me.mean, w, mw.mean, 0));
    OUTLINE();
  }
  for (std::size_t k = 1; k <= used.size(); ++k)
    used[k - 1] = correlation(e, me.mean, w, mw.mean, k);
  BJISER("CROSS CORRELATIONS Y(T),E(T-K)", used, {});
  for (std::size_t k = 1; k <= used.size(); ++k)
    used[k - 1] = correlation(w, mw.mean, e, me.mean, k);
  {
    const Line blank;
    Line head_row;
    head_row.put<"('  LEADS', 26X, 'CROSS CORRELATIONS Y(T),E(T+K)')">();
    Line row;
    row.put<"(1X, I3, ' -', I3)">(1, used.size());
    for (const double v : used) row.put<"(F6.2)">(v);
    OUTLINE();
  }
}

}  // namespace korvel
