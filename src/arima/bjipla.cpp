// Printer charts of correlations (BJIPLA) and of series (BJEPLT).
#include <cmath>

#include "arima/bj.h"

namespace korvel {
namespace {

constexpr int COLUMNS = 61;  // of a chart
using Strip = std::array<char, COLUMNS>;

std::string_view text_of(const Strip& strip) { return {strip.data(), strip.size()}; }

char& cell(Strip& strip, int column) { return strip[static_cast<std::size_t>(column - 1)]; }

}  // namespace

int chart_column(double value, double least, double most, int columns) {
  if (!(most > least)) return (columns + 1) / 2;
  const double share = (value - least) / (most - least);
  if (!(share > 0.0)) return 1;
  if (share >= 1.0) return columns;
  return static_cast<int>(std::lround(1.0 + share * (columns - 1)));
}

// A row a lag: 2-5 lag, 6-13 value, 16-76 the chart from -1 to 1, filled from 0, ":" the limits.
void BJIPLA(std::string_view title, std::span<const double> r, std::span<const double> band) {
  {
    const Line blank;
    Line head, scale;
    head.text(title);
    scale.put<"(13X, '-1.0', 11X, '-0.5', 11X, ' 0.0', 11X, ' 0.5', 11X, ' 1.0')">();
    OUTLINE();
  }
  const int zero = chart_column(0.0, -1.0, 1.0, COLUMNS);
  for (std::size_t k = 0; k < r.size(); ++k) {
    Strip strip;
    strip.fill(' ');
    cell(strip, chart_column(band[k], -1.0, 1.0, COLUMNS)) = ':';
    cell(strip, chart_column(-band[k], -1.0, 1.0, COLUMNS)) = ':';
    const int at = chart_column(r[k], -1.0, 1.0, COLUMNS);
    for (int c = std::min(at, zero); c <= std::max(at, zero); ++c) cell(strip, c) = '*';
    if (at != zero) cell(strip, zero) = 'I';
    Line row;
    row.put<"(1X, I4, F8.3, 2X, A)">(k + 1, r[k], text_of(strip));
    OUTLINE();
  }
}

// A row an observation: 2-6 number, 7-19 value, 22-82 the plot from the least to the largest value.
void BJEPLT(std::string_view title, std::span<const double> x, int first_obs) {
  if (x.empty()) return;
  const auto [least, most] = std::ranges::minmax(x);
  const double mean = series_moments(x).mean;
  {
    const Line blank;
    Line head, names, values;
    head.text(title);
    names.put<"(21X, 'MINIMUM', 21X, 'MEAN', 22X, 'MAXIMUM')">();
    values.put<"(20X, G13.5, 12X, G13.5, 12X, G13.5)">(least, mean, most);
    OUTLINE();
  }
  for (std::size_t t = 0; t < x.size(); ++t) {
    if (stop_requested()) return;
    Strip strip;
    strip.fill(' ');
    cell(strip, chart_column(mean, least, most, COLUMNS)) = '.';
    cell(strip, chart_column(x[t], least, most, COLUMNS)) = '*';
    Line row;
    row.put<"(1X, I5, G13.5, 2X, A)">(first_obs + static_cast<int>(t), x[t], text_of(strip));
    OUTLINE();
  }
}

}  // namespace korvel
