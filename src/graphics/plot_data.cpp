// Data rows for gnuplot: 50F20.5, and what F20.5 would lose.
#include <algorithm>

#include "graphics/gnuplot.h"

namespace korvel {

void write_plot_rows(FileOutput& file, const PlotRows& rows) {
  std::array<PlotColumn, MAXPLOTCOLUMNS> seen{};
  std::array<bool, MAXPLOTCOLUMNS> exponent{};
  for (std::size_t t = 0; t < rows.rows; ++t) {
    for (std::size_t c = 0; c < rows.columns; ++c) seen[c].see(rows.value(rows.object, t, c));
  }
  for (std::size_t c = 0; c < rows.columns; ++c) exponent[c] = seen[c].exponent();
  constexpr int capacity = static_cast<int>(MAXPLOTCOLUMNS) * PLOTWIDTH;
  std::array<char, capacity + 1> line;
  for (std::size_t t = 0; t < rows.rows; ++t) {
    if (rows.breaks != nullptr && rows.breaks(rows.object, t)) file.write(" \n");
    line.fill(' ');
    int at = 0;
    for (std::size_t c = 0; c < rows.columns; ++c) {
      const double v = rows.value(rows.object, t, c);
      if (!std::isfinite(v)) {
        at = compose<"(17X, 'NaN')">(line.data(), capacity, at);
      } else if (exponent[c]) {
        at = compose<"(E20.11)">(line.data(), capacity, at, v);
      } else {
        at = compose<"(F20.5)">(line.data(), capacity, at, v);
      }
    }
    line[static_cast<std::size_t>(at)] = '\n';
    file.write({line.data(), static_cast<std::size_t>(at) + 1});
  }
}

}  // namespace korvel
