// Residual plots through gnuplot: the residuals, and observed against predicted.

#include <string>

#include "engine/output.h"
#include "graphics/gnuplot.h"
#include "regress/ols_parts.h"

namespace korvel {

void write_residual_plots(Workspace ws, const Estimate& est) {
  if (est.residual.empty()) return;
  // 1. Where they go.
  const OlsCom& o = OLSCOM;
  PlotWords words;
  if (!plot_word(ws, o.DEVICE, "DEVICE", {}, words.DEVICE) ||
      !plot_word(ws, o.OUTPUT, "OUTPUT", "PLOT", words.OUTPUT) ||
      !plot_word(ws, o.COMMFILE, "COMMFILE", "COMM.GNU", words.COMMFILE)) {
    return;
  }
  words.APPEND = o.APPEND;
  words.WIDE = OSCOM.OWIDE;
  words.fixed_data = "DATA.GNU";
  words.fixed_commands = "COMM.GNU";
  PlotJob job;
  if (!job.open(words)) return;
  // 2. The data: residual, observed, predicted.
  const auto value = [&](std::size_t t, std::size_t column) {
    if (column == 0) return est.residual[t];
    return column == 1 ? est.observed[t] : est.observed[t] - est.residual[t];
  };
  const std::size_t n = est.residual.size();
  if (!job.data(plot_rows(n, 3, value))) return;
  // 3. The plots.
  const std::string data = job.file() + job.index();
  job.plot("set title \"Residual Plot\"\n" + samples_line(n) + "set nokey\nset ylabel " +
           quoted(NAME(ws, est.dependent().var)) + "\nset xlabel \"Observation\"\nplot " + data +
           " using 1 lw 2 w line\npause -1\n");
  job.plot("set title \"Actual versus Fitted\"\n" KEY_LINES "plot " + data +
           " using 2 lw 2 title \"Actual\" w line, " + data +
           " using 3 lw 2 title \"Predicted\" w line\npause -1\n");
  job.finish();
}

}  // namespace korvel
