// PLOTPR: the character plot.
#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "graphics/plot.h"

namespace korvel {
namespace {

constexpr std::string_view SYMBOLS = "*+O%$#?X";
constexpr int MAXROWS = 200, MAXCOLUMNS = 111;
constexpr int LEFT = 17;  // column of the first cell

// A plot as it stands on the page. The last one is kept, so that SAME can draw over it.
struct Page {
  int rows = 0, columns = 0;
  double xmin = 0.0, xmax = 1.0, ymin = 0.0, ymax = 1.0;
  PlotX from = PlotX::variable;
  std::array<std::array<char, MAXCOLUMNS>, MAXROWS> cell{};  // row 0 is the lowest
  std::array<std::array<bool, MAXCOLUMNS>, MAXROWS> point{};
  std::int64_t outside = 0;
  int variables = 0;
  std::array<std::array<char, NAMELEN + 2>, 64> entry{};  // of the legend: *=NAME
  std::array<char, NAMELEN> x_name{};
};
constinit Page PAGE{};

// The cell of a place on an axis, from 0; -1: outside.
int cell_of(double v, double min, double max, int cells) {
  if (!(v >= min && v <= max)) return -1;
  const double share = v / (max - min) - min / (max - min);
  return std::clamp(static_cast<int>(std::lround(share * (cells - 1))), 0, cells - 1);
}

// The next multiple of 1, 2 or 5 times a power of ten below `low` and above `high`.
void pretty_limits(double& low, double& high, bool free_low, bool free_high) {
  const double power = std::pow(10.0, std::floor(std::log10((high - low) / 4.0)));
  double step = power;
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    step = factor * power;
    if (4.0 * step >= high - low) break;
  }
  if (free_low) low = std::floor(low / step) * step;
  if (free_high) high = std::ceil(high / step) * step;
}

// Limits of an axis: typed ones, else those of the data.
void axis_limits(std::span<const PlotVariable> variables, const std::optional<double>& low,
                 const std::optional<double>& high, bool PRETTY, double& min, double& max) {
  PlotColumn seen;
  for (const PlotVariable& v : variables) {
    for (const double value : v.value) seen.see(value);
  }
  min = low.value_or(seen.least);
  max = high.value_or(seen.most);
  if (!(min < max)) {
    const double half = std::max(0.5, 0.05 * std::fabs(low ? min : max));
    if (!low) min = (high ? max : min) - half;
    if (!high) max = (low ? min : max) + half;
  }
  if (PRETTY) pretty_limits(min, max, !low, !high);
}

void start_page(const PlotSet& set) {
  Page& p = PAGE;
  p = Page{};
  const int rows = set.LENGTH != 0 ? set.LENGTH : set.WIDE ? 41 : 21;
  const int columns = set.HEIGHT != 0 ? set.HEIGHT : set.WIDE ? 101 : 61;
  p.rows = std::clamp(rows, 5, MAXROWS);
  p.columns = std::clamp(columns, 21, set.WIDE ? MAXCOLUMNS : 61);
  p.from = set.from;
  p.x_name.fill(' ');
  std::ranges::copy(set.x.label(), p.x_name.begin());
  for (auto& row : p.cell) row.fill(' ');
  const PlotLimits& l = set.limits;
  axis_limits({&set.x, 1}, l.XMIN, l.XMAX, set.PRETTY, p.xmin, p.xmax);
  axis_limits(set.ys(), l.YMIN, l.YMAX, set.PRETTY, p.ymin, p.ymax);
  if (!set.AXIS) return;
  const int zero_row = cell_of(0.0, p.ymin, p.ymax, p.rows);
  const int zero_column = cell_of(0.0, p.xmin, p.xmax, p.columns);
  for (int c = 0; c < p.columns && zero_row >= 0; ++c) {
    p.cell[static_cast<std::size_t>(zero_row)][static_cast<std::size_t>(c)] = '-';
  }
  for (int r = 0; r < p.rows && zero_column >= 0; ++r) {
    p.cell[static_cast<std::size_t>(r)][static_cast<std::size_t>(zero_column)] = '|';
  }
}

struct Cell {
  int row = -1, column = -1;
  bool inside() const { return row >= 0 && column >= 0; }
};

Cell place(const PlotSet& set, const PlotVariable& y, std::size_t t) {
  return {cell_of(y.value[t], PAGE.ymin, PAGE.ymax, PAGE.rows),
          cell_of(set.x.value[t], PAGE.xmin, PAGE.xmax, PAGE.columns)};
}

// Dots in the cells between two points that hold no point.
void draw_line(Cell from, Cell to) {
  const int steps = std::max(std::abs(to.row - from.row), std::abs(to.column - from.column));
  for (int k = 0; k <= steps; ++k) {
    const double share = steps == 0 ? 0.0 : static_cast<double>(k) / steps;
    const auto between = [share](int a, int b) {
      return static_cast<std::size_t>(std::floor(a + share * (b - a) + 0.5));
    };
    const std::size_t r = between(from.row, to.row), c = between(from.column, to.column);
    if (!PAGE.point[r][c]) PAGE.cell[r][c] = '.';
  }
}

void draw_points(const PlotSet& set, const PlotVariable& y, char symbol, bool marks) {
  for (std::size_t t = 0; t < set.rows; ++t) {
    if (std::isnan(y.value[t]) || std::isnan(set.x.value[t])) continue;
    const Cell at = place(set, y, t);
    if (!at.inside()) {
      ++PAGE.outside;
      continue;
    }
    if (!marks) continue;
    const auto r = static_cast<std::size_t>(at.row), c = static_cast<std::size_t>(at.column);
    PAGE.cell[r][c] = PAGE.point[r][c] ? 'M' : symbol;
    PAGE.point[r][c] = true;
  }
}

void draw(const PlotSet& set) {
  Page& p = PAGE;
  const auto first = static_cast<std::size_t>(p.variables);
  for (std::size_t k = 0; k < set.variables; ++k) {
    const PlotVariable& y = set.y[k];
    const std::size_t rank = first + k;
    char symbol = SYMBOLS[rank % SYMBOLS.size()];
    if (k == 0 && set.SYMBOL != '\0') symbol = set.SYMBOL;
    const bool usual = y.style == PlotStyle::usual;
    const bool marks = usual ? !set.LINEONLY : y.style == PlotStyle::points;
    if (!marks) symbol = '.';
    if (usual ? set.LINE || set.LINEONLY : !marks) {
      Cell last;
      for (std::size_t t = 0; t < set.rows; ++t) {
        const Cell at = place(set, y, t);
        if (at.inside() && last.inside()) draw_line(last, at);
        if (at.inside() && !last.inside()) draw_line(at, at);
        last = at;
      }
    }
    draw_points(set, y, symbol, marks);
    if (rank >= p.entry.size()) continue;
    if (!set.y_label.empty() && !marks) continue;
    auto& entry = p.entry[rank];
    entry.fill(' ');
    entry[0] = symbol;
    entry[1] = '=';
    std::ranges::copy(y.label(), entry.begin() + 2);
    p.variables = static_cast<int>(rank) + 1;
  }
}

// ---- On the output channel

// An x value: a date (year.period) or a number.
AxisText x_text(double v) {
  if (PAGE.from != PlotX::calendar) return {v, PAGE.xmin, PAGE.xmax};
  const int periods = std::max(DATCOM.ITIME3, 1);
  const auto k = static_cast<std::int64_t>(std::floor(v * periods + 0.5));
  const std::int64_t year = k >= 0 ? k / periods : (k - periods + 1) / periods;
  if (periods == 1) return AxisText::composed<"(I0)">(year);
  return AxisText::composed<"(I0, '.', I0)">(year, k - year * periods + 1);
}

void print_legend() {
  constexpr std::string_view many = "M=MULTIPLE POINT";
  const Page& p = PAGE;
  const int right = LEFT + p.columns;
  Line line;
  int at = LEFT;
  const auto put = [&](std::string_view entry) {
    if (at > LEFT && at + static_cast<int>(entry.size()) > right) {
      OUTLINE();
      line = Line();
      at = LEFT;
    }
    line.column(at);
    line.text(entry);
    at += static_cast<int>(entry.size()) + 3;
  };
  for (int k = 0; k < p.variables; ++k) {
    const auto& e = p.entry[static_cast<std::size_t>(k)];
    put(trimmed({e.data(), e.size()}));
  }
  put(many);
  OUTLINE();
}

void print_page(std::string_view title) {
  const Page& p = PAGE;
  if (!title.empty()) {
    say<"(1X, A)">(title.substr(0, static_cast<std::size_t>(p.columns + LEFT)));
  }
  print_legend();
  constexpr int labelled = 5;  // every fifth row shows its value
  for (int k = 0; k < p.rows; ++k) {
    Line line;
    const bool value = k % labelled == 0 || k == p.rows - 1;
    if (value) {
      const double share = static_cast<double>(k) / (p.rows - 1);
      const double at = k == p.rows - 1 ? p.ymin : p.ymax - share * (p.ymax - p.ymin);
      if (reads_alike(p.ymin, p.ymax))
        line.put<"(1X, G14.8)">(at);
      else
        line.put<"(1X, G13.5)">(at);
    }
    line.column(LEFT - 1);
    line.text(value ? "+" : "|");
    const auto& cells = p.cell[static_cast<std::size_t>(p.rows - 1 - k)];
    line.text({cells.data(), static_cast<std::size_t>(p.columns)});
    line.column(LEFT + p.columns);
    line.text("|");
    OUTLINE();
  }
  Line ticks, values, name;
  for (int c = 0; c < p.columns; ++c) {
    ticks.column(LEFT + c);
    ticks.text(c % 10 == 0 ? "+" : "-");
  }
  const AxisText left = x_text(p.xmin), middle = x_text(p.xmin + (p.xmax - p.xmin) / 2.0),
                 right = x_text(p.xmax);
  values.column(LEFT);
  values.text(left.text());
  const int centre = LEFT + p.columns / 2;
  const int middle_at = centre - middle.size() / 2;
  const int right_at = LEFT + std::max(p.columns - right.size(), left.size() + 1);
  if (LEFT + left.size() < middle_at && middle_at + middle.size() < right_at) {
    values.column(middle_at);  // a narrow plot has no room for it
    values.text(middle.text());
  }
  values.column(right_at);
  values.text(right.text());
  const std::string_view x_name = trimmed({p.x_name.data(), p.x_name.size()});
  name.column(centre - static_cast<int>(x_name.size()) / 2);
  name.text(x_name);
  OUTLINE();
  if (p.outside > 0) say<"(1X, I0, ' POINTS OUTSIDE')">(p.outside);
}

}  // namespace

bool reads_alike(double low, double high) {
  const double size = std::max(std::fabs(low), std::fabs(high));
  return size >= 1.0 && size < 1e8 && low < high && high - low < 1e-3 * size;
}

AxisText::AxisText(double v, double low, double high) {
  *this = reads_alike(low, high) ? composed<"(G14.8)">(v) : composed<"(G13.5)">(v);
}

std::string_view AxisText::text() const {
  return trimmed({room_.data(), static_cast<std::size_t>(length_)});
}

void PLOTPR(const PlotSet& set) {
  const Trace trace("PLOTPR");
  if (!set.SAME || !VPLCOM.OPAGE) start_page(set);
  VPLCOM.OPAGE = true;
  draw(set);
  if (!set.HOLD && OCOM.OPUT) print_page(set.title);
}

}  // namespace korvel
