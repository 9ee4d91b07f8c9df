// The picture of the joint confidence region of two coefficients: ellipses, the boxes of the two
// intervals, and the estimate.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/output.h"
#include "graphics/graphics.h"
#include "graphics/plot.h"

namespace korvel {
namespace {

// Upper points of F with 2 and DF degrees of freedom and of chi-square with 2; both tails have a
// closed form.
double f_point(double p, double DF) { return DF / 2.0 * (std::pow(p, -2.0 / DF) - 1.0); }
double chi_square_point(double p) { return -2.0 * std::log(p); }

constexpr std::size_t CORNERS = 5;  // of a box, the first one again at the end
constexpr int LEVELS = 2;
constexpr double TAILS[LEVELS] = {0.05, 0.10};
constexpr std::string_view ELLIPSES[LEVELS] = {"95% F", "90% F"};
constexpr std::string_view ELLIPSES_DN[LEVELS] = {"95% CHI2", "90% CHI2"};
constexpr std::string_view BOXES[LEVELS] = {"95% BOX", "90% BOX"};

// Rows of the plot matrix are handed out part by part; a part has values in one column alone.
class Parts {
 public:
  Parts(PlotSet& set, std::span<double> x) : set_(set), x_(x) {}
  PlotVariable& column(std::string_view name, std::span<double> room, bool line) {
    PlotVariable& y = set_.y[set_.variables++];
    std::ranges::fill(room, MACOM.XNAN);
    y.value = room;
    y.set_label(name);
    y.style = line ? PlotStyle::line : PlotStyle::points;
    return y;
  }
  void begin() { set_.part[set_.parts++] = row_; }
  void put(PlotVariable& y, double x, double value) {
    x_[row_] = x;
    y.value[row_++] = value;
  }

 private:
  PlotSet& set_;
  std::span<double> x_;
  std::size_t row_ = 0;
};

// Where (b - coef)' V^-1 (b - coef) = radius^2: V = L L', b = coef + radius L (cos a, sin a)'.
void put_ellipse(Parts& parts, PlotVariable& y, const ConfidenceRegion& r, double radius) {
  const double l11 = std::sqrt(r.var[0]), l21 = r.covar / l11;
  const double l22 = std::sqrt(r.var[1] - l21 * l21);
  parts.begin();
  for (int k = 0; k <= r.points; ++k) {
    const double angle = 2.0 * std::numbers::pi * (k % r.points) / r.points;
    const double c = radius * std::cos(angle), s = radius * std::sin(angle);
    parts.put(y, r.coef[0] + l11 * c, r.coef[1] + l21 * c + l22 * s);
  }
}

void put_box(Parts& parts, PlotVariable& y, const ConfidenceRegion& r, double t) {
  constexpr double corner[CORNERS][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}, {-1, -1}};
  parts.begin();
  for (const auto& at : corner) {
    parts.put(y, r.coef[0] + at[0] * t * std::sqrt(r.var[0]),
              r.coef[1] + at[1] * t * std::sqrt(r.var[1]));
  }
}

// The value of F or chi-square of a level; FCRITICA stands for the only one.
double critical_value(const ConfidenceRegion& r, int level) {
  if (r.fcritical > 0.0) return r.fcritical;
  return r.DN ? chi_square_point(TAILS[level]) : f_point(TAILS[level], r.DF);
}

std::string_view name_of(const ConfidenceRegion& r, std::size_t k) {
  return trimmed({r.names[k].data(), r.names[k].size()});
}

void print_heading(const ConfidenceRegion& r) {
  say<"(' CONFIDENCE REGION PLOT FOR ', A, ' AND ', A)">(name_of(r, 0), name_of(r, 1));
  if (r.DN) {
    say<"(' USING CHI-SQUARE DISTRIBUTION WITH CRITICAL VALUE=', G13.5)">(critical_value(r, 0));
  } else {
    say<"('  USING F DISTRIBUTION WITH 2 AND ', I0, ' D.F. F-VALUE =', G13.5)">(
        static_cast<std::int64_t>(r.DF), critical_value(r, 0));
  }
  if (!(r.fcritical > 0.0) && r.tcritical90 > 0.0) {
    say(" USING 95% AND 90% CONFIDENCE INTERVALS");
  }
}

}  // namespace

bool plot_region(Workspace ws, const ConfidenceRegion& r, const PlotWords& words, bool gnuplot) {
  const Trace trace("PLOTC");
  // 1. Room for x and six columns.
  const int ellipses = r.fcritical > 0.0 ? 1 : LEVELS, boxes = r.tcritical90 > 0.0 ? LEVELS : 1;
  PlotSet set;
  set.rows = static_cast<std::size_t>(ellipses) * (static_cast<std::size_t>(r.points) + 1) +
             static_cast<std::size_t>(boxes) * CORNERS + 1;
  Scratch room(ws, static_cast<std::int64_t>(set.rows) * (2 + ellipses + boxes));
  if (!room) return false;
  set.x.value = room.take(set.rows);
  set.x.set_label(name_of(r, 0));
  set.y_label = name_of(r, 1);
  set.WIDE = words.WIDE;
  // 2. The curves, then the estimate.
  Parts parts(set, set.x.value);
  PlotVariable& centre = parts.column("ESTIMATE", room.take(set.rows), false);
  for (int k = 0; k < ellipses; ++k) {
    const std::string_view name = ellipses == 1 ? "REGION" : r.DN ? ELLIPSES_DN[k] : ELLIPSES[k];
    PlotVariable& y = parts.column(name, room.take(set.rows), true);
    put_ellipse(parts, y, r, std::sqrt((r.DN ? 1.0 : 2.0) * critical_value(r, k)));
  }
  for (int k = 0; k < boxes; ++k) {
    const std::string_view name = boxes == 1 ? "INTERVAL" : BOXES[k];
    PlotVariable& y = parts.column(name, room.take(set.rows), true);
    put_box(parts, y, r, k == 0 ? r.tcritical : r.tcritical90);
  }
  parts.begin();
  parts.put(centre, r.coef[0], r.coef[1]);
  // 3. The plot.
  if (OCOM.OPUT) print_heading(r);
  if (gnuplot) return PLOTGN(set, false, words);
  PLOTPR(set);
  return true;
}

}  // namespace korvel
