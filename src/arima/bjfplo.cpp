// BJFPLO: plots of forecasts with the series before them.
#include <cmath>
#include <limits>

#include "arima/bj.h"

namespace korvel {
namespace {

constexpr int BEFORE = 24;        // observations shown before the origin
constexpr double TWO_ERRORS = 2;  // standard errors of the limits of the character plot
constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr int MOSTROWS = BEFORE + 1 + MAXSTEPS;
using Rows = std::array<ForecastRow, MOSTROWS>;

std::span<const ForecastRow> forecast_rows(const BjForecast& fc, double errors, Rows& rows) {
  std::size_t count = 0;
  for (int obs = std::max(fc.origin - BEFORE, 1); obs <= fc.origin + fc.steps; ++obs) {
    ForecastRow row{obs, NONE, NONE, NONE, NONE};
    if (obs <= std::ssize(fc.all)) {
      const double value = fc.all[static_cast<std::size_t>(obs - 1)];
      if (value != MACOM.XMISS) row.actual = value;
    }
    if (obs > fc.origin) {
      const auto l = static_cast<std::size_t>(obs - fc.origin - 1);
      const auto shown = [](double v) { return BJCOM.LOG ? std::exp(v) : v; };
      row.forecast = shown(fc.f[l]);
      row.lower = shown(fc.f[l] - errors * fc.se[l]);
      row.upper = shown(fc.f[l] + errors * fc.se[l]);
    }
    rows[count++] = row;
  }
  return std::span<const ForecastRow>(rows).first(count);
}

}  // namespace

// A row an observation: 2-6 its number, then 100 columns from the least to the largest value.
void BJFPLO(const BjForecast& fc) {
  constexpr int columns = 100;
  Rows buffer;
  const std::span<const ForecastRow> rows = forecast_rows(fc, TWO_ERRORS, buffer);
  double least = std::numeric_limits<double>::infinity(), most = -least;
  for (const ForecastRow& row : rows) {
    for (const double v : {row.actual, row.forecast, row.lower, row.upper}) {
      if (!std::isfinite(v)) continue;
      least = std::min(least, v);
      most = std::max(most, v);
    }
  }
  {
    const Line blank;
    Line a, b, c;
    a.text(" FORECASTS PLOTTED WITH (+), ACTUAL PLOTTED WITH (*) ");
    b.text(" + AND - TWO STD. ERRORS PLOTTED WITH (.)");
    c.put<"(' ORIGIN DATE IS ', I0)">(fc.origin);
    Line scale;
    scale.put<"(6X, G13.5, 74X, G13.5)">(least, most);
    OUTLINE();
  }
  for (const ForecastRow& row : rows) {
    std::array<char, columns> strip;
    strip.fill(' ');
    const auto put = [&](double v, char mark) {
      if (!std::isfinite(v)) return;
      strip[static_cast<std::size_t>(chart_column(v, least, most, columns) - 1)] = mark;
    };
    // The strongest mark last.
    put(row.lower, '.');
    put(row.upper, '.');
    put(row.forecast, '+');
    put(row.actual, '*');
    say<"(1X, I5, A)">(row.obs, std::string_view(strip.data(), strip.size()));
  }
}

bool graph_forecasts(const BjForecast& fc) {
  Rows buffer;
  return plot_forecasts("95% Forecast Confidence Interval", fc.name,
                        forecast_rows(fc, LIMITS, buffer));
}

}  // namespace korvel
