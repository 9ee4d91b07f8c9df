// Files for gnuplot: a data file for each plot, and one command file for all plots of a command,
// written when the command ends.
#include <cmath>
#include <limits>

#include "arima/bj.h"
#include "arima/bjplot.h"
#include "data/format.h"
#include "engine/input.h"
#include "engine/units.h"

namespace korvel {
namespace {

constexpr std::string_view DEFAULT_COMMFILE = "COMM.GNU";

// Plots of the running command as they will stand in its command file.
std::string& plot_text() {
  static std::string text;
  return text;
}

// D001.GNU, C001.GNU: the numbers go on from plot to plot.
std::string numbered(char letter, int& number) {
  std::string digits = std::to_string(number++);
  while (digits.size() < 3) digits.insert(0, 1, '0');
  return letter + digits + ".GNU";
}

// Text between double quotes of a program that acts on what it reads.
std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\' || c == '`') out += '\\';
    if (static_cast<unsigned char>(c) >= 32) out += c;
  }
  return out + "\"";
}

// A column is written in F20.5 unless that would lose it: values that need all 20 places, or a
// range so small that five decimals show nothing of it. NaN is no value.
struct PlotColumn {
  double least = std::numeric_limits<double>::infinity();
  double most = -std::numeric_limits<double>::infinity();
  void see(double v) {
    if (!std::isfinite(v)) return;
    least = std::min(least, v);
    most = std::max(most, v);
  }
  bool exponent() const {
    const double range = most - least;
    return most >= 1e13 || least <= -1e12 || (range > 0.0 && range < 0.01);
  }
};

// One data file: rows of `columns` values, value(row, column).
template <class F>
bool write_data(std::string& name, std::size_t rows, std::size_t columns, F&& value) {
  constexpr std::size_t most_columns = 5;
  constexpr int width = 20;
  name = numbered('D', VPLCOM.NDATA);
  FileOutput file;
  if (!open_output_file(file, 0, name, WriteMode::replace)) return false;
  std::array<PlotColumn, most_columns> form{};
  for (std::size_t t = 0; t < rows; ++t) {
    for (std::size_t c = 0; c < columns; ++c) form[c].see(value(t, c));
  }
  std::array<char, most_columns * width + 1> line{};
  for (std::size_t t = 0; t < rows; ++t) {
    line.fill(' ');
    int at = 0;
    for (std::size_t c = 0; c < columns; ++c) {
      const double v = value(t, c);
      const int capacity = static_cast<int>(line.size());
      if (!std::isfinite(v)) {
        at = compose<"(17X, 'NaN')">(line.data(), capacity, at);
      } else if (form[c].exponent()) {
        at = compose<"(E20.11)">(line.data(), capacity, at, v);
      } else {
        at = compose<"(F20.5)">(line.data(), capacity, at, v);
      }
    }
    line[static_cast<std::size_t>(at)] = '\n';
    file.write({line.data(), static_cast<std::size_t>(at) + 1});
  }
  return commit_output_file(file);
}

std::string samples(std::size_t rows) {
  return " set samples " + std::to_string(std::max<std::size_t>(2, rows)) + "\n";
}

}  // namespace

void start_plots() { plot_text().clear(); }

bool plot_correlations(std::string_view title, std::span<const double> r,
                       std::span<const double> band) {
  std::string data;
  if (!write_data(data, r.size(), 4, [&](std::size_t t, std::size_t c) {
        if (c == 0) return static_cast<double>(t + 1);
        if (c == 1) return r[t];
        return c == 2 ? band[t] : -band[t];
      })) {
    return false;
  }
  const BjOrders& o = BJCOM.orders;
  const std::string file = quoted(data);
  std::string& text = plot_text();
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
  return true;
}

bool plot_series(std::string_view title, std::span<const double> x, int first_obs) {
  std::string data;
  if (!write_data(data, x.size(), 2, [&](std::size_t t, std::size_t c) {
        return c == 0 ? static_cast<double>(first_obs) + static_cast<double>(t) : x[t];
      })) {
    return false;
  }
  std::string& text = plot_text();
  text += samples(x.size());
  text += " set title " + quoted(title) + "\n";
  text += " set xlabel \"Observation\"\n set ylabel " + quoted(title) + "\n set nokey\n";
  text += " plot " + quoted(data) + " using 1:2 lw 2 lt 1 w line\npause -1\n";
  return true;
}

bool plot_forecasts(std::string_view title, std::string_view name,
                    std::span<const ForecastRow> rows) {
  std::string data;
  if (!write_data(data, rows.size(), 5, [&](std::size_t t, std::size_t c) {
        const ForecastRow& r = rows[t];
        const std::array<double, 5> columns = {static_cast<double>(r.obs), r.forecast, r.lower,
                                               r.upper, r.actual};
        return columns[c];
      })) {
    return false;
  }
  const std::string file = quoted(data);
  std::string& text = plot_text();
  text += samples(rows.size());
  text += " set title " + quoted(title) + "\n";
  text += " set ylabel " + quoted(name) + "\n set xlabel \"Time\"\n set key\n";
  text += " plot " + file + " using  1:5  lw 2 lt 1 w line title \"Series\", " + file +
          " using  1:2  lw 2 lt 2 w line title \"Forecast\" , " + file +
          " using  1:3  lw 2 lt 3 w line title \"Approx. 95% confidence interval\", " + file +
          " using  1:4 lw 2 lt 3 w line notitle\npause -1\n";
  return true;
}

bool finish_plots() {
  std::string& plots = plot_text();
  if (plots.empty()) return true;
  std::string name(BJCOM.COMMFILE.typed);
  if (name.empty() || BJCOM.COMMFILE.text == DEFAULT_COMMFILE) {
    name = numbered('C', VPLCOM.NCOMM);
  }
  FileOutput file;
  if (!open_output_file(file, 0, name, WriteMode::replace)) return false;
  file.write(
      "# KORVEL GLOBAL STYLES HEADER - START\n"
      "set style line 80 lt rgb \"#000000\"\n"
      "set style line 81 lt 0  # dashed\n"
      "set style line 81 lt rgb \"#808080\"  # grey\n"
      "set grid back linestyle 81\n"
      "set border 3 back linestyle 80\n"
      "set xtics nomirror\n"
      "set ytics nomirror\n"
      "# KORVEL GLOBAL STYLES HEADER - END\n"
      "set termoption noenhanced\n");
  // The command is a comment on one line; a closing backslash would join the next line to it.
  std::string echo = "# KORVEL COMMAND: ";
  for (const char c : command_text()) {
    if (static_cast<unsigned char>(c) >= 32) echo += c;
  }
  if (echo.back() == '\\') echo += ' ';
  file.write(echo + "\n" + plots + "quit\n");
  plots.clear();
  if (!commit_output_file(file)) return false;
  if (OCOM.OPUT) say<"(' ...NOTE..COMMAND FILE IS ', A)">(std::string_view(name).substr(0, 100));
  return true;
}

}  // namespace korvel
