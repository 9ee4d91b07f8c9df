// What the routines of PLOT share: the plot matrix and the options that shape the plot.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "engine/options.h"
#include "engine/workspace.h"
#include "graphics/gnuplot.h"

namespace korvel {

// How a variable is drawn: as the options say, or in its own way.
enum class PlotStyle : std::uint8_t { usual, line, points };

// A column of the plot matrix. NaN: left out of the picture and of all limits.
struct PlotVariable {
  std::span<double> value;
  std::array<char, NAMELEN> name{};
  int length = 0;
  PlotStyle style = PlotStyle::usual;
  std::string_view label() const { return {name.data(), static_cast<std::size_t>(length)}; }
  void set_label(std::string_view text);
};

// Where the x values come from.
enum class PlotX : std::uint8_t { variable, count, calendar };

// Limits that were typed.
struct PlotLimits {
  std::optional<double> XMIN, XMAX, YMIN, YMAX;
};

struct PlotSet {
  std::size_t rows = 0;
  PlotX from = PlotX::variable;
  PlotVariable x;
  std::array<PlotVariable, MAXPLOTCOLUMNS> y;
  std::size_t variables = 0;  // of y
  std::span<const PlotVariable> ys() const { return std::span(y).first(variables); }
  PlotVariable weight;  // empty: none
  std::string title;
  std::string_view y_label;  // of the vertical axis; empty: the name of the only y
  // Rows where a part of a curve begins: a line of one blank stands before it.
  std::array<std::size_t, 8> part{};
  std::size_t parts = 0;

  bool LINE = false, LINEONLY = false, AXIS = true, KEY = true, WIDE = false, FULLAXIS = false;
  bool DASH = false, PRETTY = false, MIDDLE = false, RANGE = false, THREE = false, SAME = false;
  bool HOLD = false;
  int LENGTH = 0, HEIGHT = 0, GROUPS = 6, DATAUNIT = 0;
  double SYMSIZE = 0.0, CHARSIZE = 0.0;
  char SYMBOL = '\0';  // of the first variable
  std::string TIMEFMT, AXISFMT;
  PlotLimits limits;
};

// Do five digits read alike along an axis? Those of dates like 20240131 do. Eight are shown then.
bool reads_alike(double low, double high);

// A value of the axis from `low` to `high`, without blanks around it.
class AxisText {
 public:
  AxisText() = default;
  AxisText(double v, double low, double high);
  template <FixedText FMT, class... Args>
  static AxisText composed(const Args&... args) {
    AxisText out;
    out.length_ = compose<FMT>(out.room_.data(), static_cast<int>(out.room_.size()), 0, args...);
    return out;
  }
  std::string_view text() const;
  int size() const { return static_cast<int>(text().size()); }

 private:
  std::array<char, 32> room_{};
  int length_ = 0;
};

// Least and greatest finite value; false when there is none.
bool plot_range(std::span<const double> values, double& least, double& most);

void PLOTPR(const PlotSet& set);
void PLOTHS(const PlotSet& set);
// False after a reported failure.
bool PLOTGN(const PlotSet& set, bool histogram, const PlotWords& words);

// The groups of a histogram: group k holds min + (k-1)w <= x < min + kw, the last one its upper
// limit too; what lies outside is counted into the groups at the ends.
inline constexpr int MAXGROUPS = 60;
struct Histogram {
  int groups = 6;
  double min = 0.0, max = 1.0;     // limits of the groups
  double least = 0.0, most = 0.0;  // of the data
  std::array<double, MAXGROUPS> count{};
  double total = 0.0;
  int rows = 0, below = 0, above = 0;
  double width() const { return (max - min) / groups; }
  double middle(int k) const { return min + (k + 0.5) * width(); }
};
// False after a reported failure.
bool count_groups(const PlotSet& set, const PlotVariable& y, Histogram& h);

}  // namespace korvel
