// PLOTGN: the plot matrix as data rows and plot statements for gnuplot.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

#include "engine/output.h"
#include "engine/units.h"
#include "graphics/plot.h"

namespace korvel {
namespace {

std::string number(double v) {
  std::array<char, 32> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), v);
  return {text.data(), end.ptr};
}

// Valid UTF-8 with characters beyond ASCII. Source: RFC 3629.
bool needs_utf8(std::string_view text) {
  bool beyond = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) continue;
    const std::size_t more = c >= 0xF0 ? 3U : c >= 0xE0 ? 2U : 1U;
    if (c < 0xC2 || c > 0xF4 || i + more >= text.size() + 0U) return false;
    for (std::size_t k = 1; k <= more; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    }
    i += more;
    beyond = true;
  }
  return beyond;
}

// A limit as gnuplot reads it: dates stand between quotes.
std::string limit(const std::optional<double>& v, bool dates) {
  if (!v) return "*";
  return dates ? quoted(number(*v)) : number(*v);
}
std::string range_line(char axis, const std::optional<double>& low,
                       const std::optional<double>& high, bool dates) {
  if (!low && !high) return {};
  return std::string("set ") + axis + "range [" + limit(low, dates) + ":" + limit(high, dates) +
         "]\n";
}

std::string label_line(char axis, std::string_view name) {
  return std::string(" set ") + axis + "label " + quoted(name) + "\n";
}

bool dated(const PlotSet& set, bool histogram) {
  return !set.TIMEFMT.empty() && !histogram && !set.THREE;
}

// Ticks, borders, letters and formats of time.
std::string setup_lines(const PlotSet& set, bool histogram) {
  std::string text;
  if (set.CHARSIZE > 0.0) text += "set termoption fontscale " + number(set.CHARSIZE) + "\n";
  if (set.FULLAXIS) text += "set border 31 back linestyle 80\n";
  if (!set.AXIS) text += "set nozeroaxis\nset noxtics\nset noytics\nset noborder\n";
  if (histogram || set.THREE) return text;
  if (dated(set, histogram)) {
    text += " set timefmt " + quoted(set.TIMEFMT) + "\nset xdata time\n";
  }
  if (!set.AXISFMT.empty()) text += " set format x " + quoted(set.AXISFMT) + "\n";
  return text;
}

// Samples, axes, title and key.
std::string head_lines(const PlotSet& set, std::size_t rows) {
  std::string text = samples_line(rows);
  if (set.AXIS) text += "set zeroaxis\n";
  std::string words = set.title;
  for (const PlotVariable& y : set.ys()) words += y.label();
  if (needs_utf8(words)) text += "set encoding utf8\n";
  if (!set.title.empty()) text += "set title " + quoted(set.title) + "\n";
  text += set.KEY ? KEY_LINES : "set nokey\n";
  return text;
}

std::string style(const PlotSet& set, const PlotVariable& y, std::size_t k) {
  std::string text;
  if (y.style != PlotStyle::usual) {
    text += y.style == PlotStyle::line ? " w line" : " w points";
  } else if (set.LINE) {
    text += " w linespoint";
  } else if (set.LINEONLY) {
    text += " w line";
  }
  text += " lw 2";
  if (set.DASH) text += " dt " + std::to_string(k + 1);
  if (set.SYMSIZE > 0.0) text += " ps " + number(set.SYMSIZE);
  return text;
}

// The rows once more, to the unit of DATAUNIT.
bool write_unit(const PlotSet& set, const PlotRows& rows) {
  if (set.DATAUNIT <= 0) return true;
  if (!user_unit(set.DATAUNIT)) return false;
  FileOutput file;
  if (!open_output_file(file, set.DATAUNIT, {}, WriteMode::replace)) return false;
  write_plot_rows(file, rows);
  return commit_output_file(file);
}

// x has runs of equal values: the rows are the lines of a grid, and one ends where x changes.
bool has_runs(std::span<const double> x) {
  for (std::size_t t = 1; t < x.size(); ++t) {
    if (x[t] == x[t - 1]) return true;
  }
  return false;
}

// The data sets of the last plot, for SAME: the rows, block by block, and what a plot statement
// says of each variable behind the name of the file.
struct KeptPlot {
  std::string rows;
  int blocks = 0;
  bool THREE = false;
  std::vector<std::string> clauses;
};
KeptPlot& kept_plot() {
  static KeptPlot kept;
  return kept;
}

double matrix_value(const void* object, std::size_t t, std::size_t c) {
  const PlotSet& set = *static_cast<const PlotSet*>(object);
  return c == 0 ? set.x.value[t] : set.y[c - 1].value[t];
}
bool begins_part(const void* object, std::size_t t) {
  const PlotSet& set = *static_cast<const PlotSet*>(object);
  const auto part = std::span(set.part).first(set.parts);
  return t > 0 && std::ranges::find(part, t) != part.end();
}
bool x_changes(const void* object, std::size_t t) {
  return t > 0 && matrix_value(object, t, 0) != matrix_value(object, t - 1, 0);
}

bool plot_variables(const PlotSet& set, PlotJob& job) {
  // 1. The data: x, then every y.
  KeptPlot& kept = kept_plot();
  const bool over = set.SAME && VPLCOM.OKEPT && job.alone() && kept.THREE == set.THREE;
  if (!over) kept = KeptPlot();
  PlotRows rows = {set.rows, set.variables + 1, &set, matrix_value, nullptr, {}};
  if (over) rows.before = kept.rows;
  kept.THREE = set.THREE;
  if (set.THREE && has_runs(set.x.value)) rows.breaks = x_changes;
  if (set.parts > 0) rows.breaks = begins_part;
  if (!job.data(rows) || !write_unit(set, rows)) return false;
  // 2. What is drawn.
  const bool dates = dated(set, false);
  std::string text = head_lines(set, set.rows);
  if (set.THREE) text += "set parametric\nset isosamples 2\n";
  text += range_line('x', set.limits.XMIN, set.limits.XMAX, dates);
  text += range_line('y', set.limits.YMIN, set.limits.YMAX, false);
  text += label_line('x', set.x.label());
  if (set.THREE || set.variables == 1 || !set.y_label.empty()) {
    text += label_line('y', set.y_label.empty() ? set.y[0].label() : set.y_label);
  }
  if (set.THREE) text += label_line('z', set.y[1].label()) + "set zlabel rotate by 90\n";
  // 3. The plot statement: a clause for each variable.
  text += set.THREE ? " splot  " : " plot  ";
  const std::size_t first = set.THREE ? 1 : 0;
  const std::string block = over ? " index " + std::to_string(kept.blocks) : job.index();
  for (std::size_t k = first; k < set.variables; ++k) {
    std::string clause = " using     1:";
    if (set.THREE) clause += "2:";
    clause += std::to_string(k + 2) + style(set, set.y[k], k - first) + " title " +
              quoted(set.y[k].label());
    kept.clauses.push_back(block + clause);
  }
  for (std::size_t k = 0; k < kept.clauses.size(); ++k) {
    if (k > 0) text += ",\\\n";
    text += job.file() + kept.clauses[k];
  }
  job.plot(text + "\n");
  // 4. Kept for SAME; the first block has no index as long as it is alone.
  if (kept.blocks == 0) {
    for (std::string& clause : kept.clauses) clause.insert(0, " index 0");
  }
  ++kept.blocks;
  kept.rows = job.data_text();
  VPLCOM.OKEPT = !kept.rows.empty();
  return true;
}

bool plot_histogram(const PlotSet& set, const PlotVariable& y, PlotJob& job) {
  Histogram h;
  if (!count_groups(set, y, h)) return false;
  const auto value = [&](std::size_t k, std::size_t c) {
    return c == 0 ? h.middle(static_cast<int>(k)) : h.count[k];
  };
  const PlotRows rows = plot_rows(static_cast<std::size_t>(h.groups), 2, value);
  if (!job.data(rows) || !write_unit(set, rows)) return false;
  std::string text = head_lines(set, rows.rows);
  text += "set boxwidth 0.9 relative\nset style fill solid 0.4\nset yrange [0:*]\n";
  text += label_line('x', y.label()) + "set ylabel \"frequency\"\n";
  text += " plot  " + job.file() + job.index() + " using     1:2 w boxes lw 2 title " +
          quoted(y.label()) + "\n";
  job.plot(text);
  return true;
}

}  // namespace

bool PLOTGN(const PlotSet& set, bool histogram, const PlotWords& words) {
  const Trace trace("PLOTGN");
  PlotJob job;
  if (!job.open(words)) return false;
  job.setup(setup_lines(set, histogram));
  if (histogram) {
    for (const PlotVariable& y : set.ys()) {
      if (!plot_histogram(set, y, job)) return false;
    }
  } else if (!plot_variables(set, job)) {
    return false;
  }
  return job.finish();
}

}  // namespace korvel
