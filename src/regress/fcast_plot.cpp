// Charts of FCAST through gnuplot: the forecast errors, and actual against predicted values with
// the band of their standard errors.

#include <string>

#include "engine/output.h"
#include "graphics/gnuplot.h"
#include "regress/fcast_parts.h"

namespace korvel {
namespace {

constexpr double BAND = 1.96;  // standard errors on either side of a forecast: 95%

}  // namespace

void plot_forecast_rows(Workspace ws, const ForecastModel& model, const ForecastRows& rows,
                        int ESTEND) {
  // 1. Where they go.
  PlotWords words;
  if (!plot_word(ws, FcastOption::named<"DEVICE">(), "DEVICE", {}, words.DEVICE) ||
      !plot_word(ws, FcastOption::named<"OUTPUT">(), "OUTPUT", "PLOT", words.OUTPUT) ||
      !plot_word(ws, FcastOption::named<"COMMFILE">(), "COMMFILE", "COMM.GNU", words.COMMFILE)) {
    return;
  }
  words.APPEND = FcastOption::chosen<"APPEND">();
  words.WIDE = OSCOM.OWIDE;
  words.fixed_data = "DATA.GNU";
  words.fixed_commands = "COMM.GNU";
  PlotJob job;
  if (!job.open(words)) return;
  // 2. The data: residual, observed, predicted, the limits of the band, the observation.
  const bool band = !rows.se.empty();
  const auto value = [&](std::size_t t, std::size_t column) {
    const std::size_t r = rows.first + t;
    switch (column) {
      case 0:
        return rows.e(r);
      case 1:
        return rows.y[r];
      case 2:
        return rows.yhat[r];
      case 3:
        return rows.obs[r];
      case 4:
        return rows.yhat[r] - BAND * rows.se[r];
      default:
        return rows.yhat[r] + BAND * rows.se[r];
    }
  };
  const std::size_t n = rows.n - rows.first;
  PlotRows data = plot_rows(n, band ? 6 : 4, value);
  struct Edge {
    const ForecastRows& rows;
    int ESTEND;
    decltype(value)& number;
  } edge{rows, ESTEND, value};
  data.object = &edge;
  data.value = [](const void* object, std::size_t t, std::size_t column) {
    return static_cast<const Edge*>(object)->number(t, column);
  };
  data.breaks = [](const void* object, std::size_t t) {
    const Edge& at = *static_cast<const Edge*>(object);
    const std::size_t r = at.rows.first + t;
    return t > 0 && at.rows.obs[r - 1] <= at.ESTEND && at.rows.obs[r] > at.ESTEND;
  };
  if (!job.data(data)) return;
  // 3. The plots, against the observation number.
  const std::string file = job.file() + job.index();
  bool residuals = false;
  for (std::size_t r = rows.first; r < rows.n; ++r) residuals = residuals || rows.known(r);
  if (residuals) {
    job.plot("set title \"Residual Plot\"\n" + samples_line(n) + "set nokey\nset ylabel " +
             quoted(model.name) + "\nset xlabel \"Observation\"\nplot " + file +
             " using 4:1 lw 2 w line\npause -1\n");
  }
  std::string fitted = "set title \"Actual versus Fitted\"\n" + samples_line(n) +
                       KEY_LINES "set ylabel " + quoted(model.name) +
                       "\nset xlabel \"Observation\"\nplot ";
  if (residuals) fitted += file + " using 4:2 lw 2 title \"Actual\" w line, ";
  fitted += file + " using 4:3 lw 2 title \"Predicted\" w line";
  if (band) {
    fitted += ", " + file + " using 4:5 lw 1 title \"95% Limits\" w line, " + file +
              " using 4:6 lw 1 notitle w line";
  }
  job.plot(fitted + "\npause -1\n");
  job.finish();
}

}  // namespace korvel
