// Residual plots: the data file and the command file for gnuplot.

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "data/format.h"
#include "engine/output.h"
#include "engine/units.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr std::string_view DATAFILE = "DATA.GNU";

// A column is written in F20.5 unless that would lose it: values that need all 20 places, or a
// range so small that five decimals show nothing of it.
struct PlotColumn {
  bool exponent = false;
  template <class F>
  PlotColumn(std::size_t n, F&& value) {
    double least = 1e300, most = -1e300;
    for (std::size_t t = 0; t < n; ++t) {
      least = std::min(least, value(t));
      most = std::max(most, value(t));
    }
    const double range = most - least;
    exponent = most >= 1e13 || least <= -1e12 || (range != 0.0 && range < 0.01);
  }
  int put(char* text, int at, double v) const {
    if (!std::isfinite(v)) return compose<"('                 NaN')">(text, 60, at);
    return exponent ? compose<"(E20.11)">(text, 60, at, v) : compose<"(F20.5)">(text, 60, at, v);
  }
};

// Text between double quotes of a program that acts on what it reads.
std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\' || c == '`') out += '\\';
    if (static_cast<unsigned char>(c) >= 32) out += c;
  }
  return out + "\"";
}

bool write_data(const Estimate& est) {
  FileOutput file;
  if (!open_output_file(file, 0, DATAFILE, WriteMode::replace)) return false;
  const std::size_t n = est.residual.size();
  const auto e = [&](std::size_t t) { return est.residual[t]; };
  const auto y = [&](std::size_t t) { return est.observed[t]; };
  const auto f = [&](std::size_t t) { return est.observed[t] - est.residual[t]; };
  const PlotColumn residual(n, e), observed(n, y), predicted(n, f);
  std::array<char, 61> line{};
  for (std::size_t t = 0; t < n; ++t) {
    int at = residual.put(line.data(), 0, e(t));
    at = observed.put(line.data(), at, y(t));
    at = predicted.put(line.data(), at, f(t));
    line[static_cast<std::size_t>(at)] = '\n';
    file.write({line.data(), static_cast<std::size_t>(at) + 1});
  }
  return commit_output_file(file);
}

bool write_commands(Workspace ws, const Estimate& est, std::string_view name) {
  FileOutput file;
  if (!open_output_file(file, 0, name, WriteMode::replace)) return false;
  const std::string data = quoted(DATAFILE);
  std::string text;
  text += "set termoption noenhanced\n";
  text += "set title \"Residual Plot\"\n";
  text += "set samples " + std::to_string(std::max<std::size_t>(2, est.residual.size())) + "\n";
  text += "set nokey\n";
  text += "set ylabel " + quoted(NAME(ws, est.dependent().var)) + "\n";
  text += "set xlabel \"Observation\"\n";
  text += "plot " + data + " using 1 lw 2 w line\n";
  text += "pause -1\n";
  text += "set title \"Actual versus Fitted\"\n";
  text += "set key\n";
  text += "plot " + data + " using 2 lw 2 title \"Actual\" w line, " + data +
          " using 3 lw 2 title \"Predicted\" w line\n";
  text += "pause -1\n";
  text += "quit\n";
  file.write(text);
  return commit_output_file(file);
}

}  // namespace

void write_residual_plots(Workspace ws, const Estimate& est) {
  if (est.residual.empty()) return;
  const std::string_view command = OLSCOM.COMMFILE.typed;
  if (!write_data(est) || !write_commands(ws, est, command)) return;
  if (OCOM.OPUT) {
    say<"(' ...NOTE..PLOT FILES ARE ', A, ' AND ', A)">(DATAFILE, command);
  }
}

}  // namespace korvel
