// Plots through gnuplot: a data file for each, and one command file for all plots of a command.
#include "arima/bjplot.h"

#include "arima/bj.h"

namespace korvel {
namespace {

// The plots of the running command, opened with the first of them.
struct Plots {
  PlotJob job;
  PlotWords words;
  bool opened = false;
};
Plots& plots() {
  static Plots p;
  return p;
}

template <class F>
bool write_data(std::size_t rows, std::size_t columns, const F& value) {
  Plots& p = plots();
  if (!p.opened && !p.job.open(p.words)) return false;
  p.opened = true;
  return p.job.data(plot_rows(rows, columns, value));
}

std::string samples(std::size_t rows) { return " " + samples_line(rows); }

// How plot statements name the last data file.
std::string data_file() { return plots().job.file() + plots().job.index(); }

}  // namespace

void start_plots(const PlotWords& words) {
  plots() = Plots();
  plots().words = words;
}

bool plot_correlations(std::string_view title, std::span<const double> r,
                       std::span<const double> band) {
  if (!write_data(r.size(), 4, [&](std::size_t t, std::size_t c) {
        if (c == 0) return static_cast<double>(t + 1);
        if (c == 1) return r[t];
        return c == 2 ? band[t] : -band[t];
      })) {
    return false;
  }
  const BjOrders& o = BJCOM.orders;
  const std::string file = data_file();
  std::string text;
  text += samples(r.size());
  text += " set boxwidth 0.7\n set style fill solid 0.5\n set key\n";
  text += " set title " +
          quoted(std::string(title) + " NDIFF=" + std::to_string(o.NDIFF) +
                 " NSPAN=" + std::to_string(o.NSPAN) + " NSDIFF=" + std::to_string(o.NSDIFF)) +
          "\n";
  text += " set xlabel \"Lag\"\n set ylabel \"Correlation\"\n";
  text += " plot [] [-1:1] " + file + " using 1:2 w boxes notitle, " + file +
          " using 1:3 lw 2 lt 3 w line title \"Approx. 95% confidence interval\", " + file +
          " using 1:4 lw 2 lt 3 w line notitle\npause -1\n";
  plots().job.plot(text);
  return true;
}

bool plot_series(std::string_view title, std::span<const double> x, int first_obs) {
  if (!write_data(x.size(), 2, [&](std::size_t t, std::size_t c) {
        return c == 0 ? static_cast<double>(first_obs) + static_cast<double>(t) : x[t];
      })) {
    return false;
  }
  std::string text;
  text += samples(x.size());
  text += " set title " + quoted(title) + "\n";
  text += " set xlabel \"Observation\"\n set ylabel " + quoted(title) + "\n set nokey\n";
  text += " plot " + data_file() + " using 1:2 lw 2 lt 1 w line\npause -1\n";
  plots().job.plot(text);
  return true;
}

bool plot_forecasts(std::string_view title, std::string_view name,
                    std::span<const ForecastRow> rows) {
  if (!write_data(rows.size(), 5, [&](std::size_t t, std::size_t c) {
        const ForecastRow& r = rows[t];
        const std::array<double, 5> columns = {static_cast<double>(r.obs), r.forecast, r.lower,
                                               r.upper, r.actual};
        return columns[c];
      })) {
    return false;
  }
  const std::string file = data_file();
  std::string text;
  text += samples(rows.size());
  text += " set title " + quoted(title) + "\n";
  text += " set ylabel " + quoted(name) + "\n set xlabel \"Time\"\n set key\n";
  text += " plot " + file + " using  1:5  lw 2 lt 1 w line title \"Series\", " + file +
          " using  1:2  lw 2 lt 2 w line title \"Forecast\" , " + file +
          " using  1:3  lw 2 lt 3 w line title \"Approx. 95% confidence interval\", " + file +
          " using  1:4 lw 2 lt 3 w line notitle\npause -1\n";
  plots().job.plot(text);
  return true;
}

bool finish_plots() { return !plots().opened || plots().job.finish(); }

}  // namespace korvel
