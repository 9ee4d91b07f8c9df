// PLOTHS: the histogram on the output channel.
#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "graphics/plot.h"

namespace korvel {
namespace {

constexpr int BARLINE = 60;    // columns of the bars
constexpr double ROWS = 20.0;  // most rows of bars

// Limits of the groups: typed ones, the data's own, or three standard deviations about the mean.
void find_limits(const PlotSet& set, std::span<const double> x, Histogram& h) {
  double n = 0.0, mean = 0.0, squares = 0.0;
  for (const double v : x) {
    if (std::isnan(v)) continue;
    n += 1.0;
    const double step = v - mean;
    mean += step / n;
    squares += step * (v - mean);
  }
  const double spread = n > 1.0 ? 3.0 * std::sqrt(squares / (n - 1.0)) : 0.0;
  // Squares of huge values have no sum: the data's own limits then.
  const bool own = set.RANGE || !std::isfinite(spread);
  h.min = own ? h.least : mean - spread;
  h.max = own ? h.most : mean + spread;
  // Half a unit is nothing beside a huge value.
  const auto half = [](double v) { return std::fabs(v) < 1e14 ? 0.5 : 0.05 * std::fabs(v); };
  if (!(h.least < h.most)) {
    h.min = h.least - half(h.least);
    h.max = h.least + half(h.least);
  }
  if (set.limits.XMIN) h.min = *set.limits.XMIN;
  if (set.limits.XMAX) h.max = *set.limits.XMAX;
  if (!(h.min < h.max)) {
    h.min -= half(h.min);
    h.max = h.min + 2.0 * half(h.min);
  }
}

// The group of a value inside the limits. The bounds decide, not the quotient: it may round up.
int group_of(const Histogram& h, double v) {
  if (!(h.width() > 0.0)) return 0;  // limits that no number lies between
  int k = static_cast<int>(std::clamp((v - h.min) / h.width(), 0.0, h.groups - 1.0));
  while (k > 0 && v < h.min + k * h.width()) --k;
  while (k + 1 < h.groups && v >= h.min + (k + 1) * h.width()) ++k;
  return k;
}

// How many observations a row stands for.
double row_height(const Histogram& h) {
  const double largest = *std::max_element(h.count.begin(), h.count.begin() + h.groups);
  return std::max(1.0, std::ceil(largest / ROWS));
}

void print_axis(const Histogram& h, bool MIDDLE) {
  const int step = BARLINE / h.groups;
  Line ticks, values;
  for (int c = 0; c < BARLINE; ++c) {
    ticks.column(c + 2);
    ticks.text(c % step == 0 ? "+" : "-");
  }
  const double centre = h.min + (h.max - h.min) / 2.0;
  const AxisText left(MIDDLE ? h.middle(0) : h.min, h.min, h.max), middle(centre, h.min, h.max),
      right(MIDDLE ? h.middle(h.groups - 1) : h.max, h.min, h.max);
  values.column(2);
  values.text(left.text());
  values.column(BARLINE / 2 + 2 - middle.size() / 2);
  values.text(middle.text());
  values.column(BARLINE + 2 - right.size());
  values.text(right.text());
  OUTLINE();
}

void print_bars(const Histogram& h, double k) {
  const int step = BARLINE / h.groups;
  const int filled = step > 1 ? step - 1 : 1;
  const double largest = *std::max_element(h.count.begin(), h.count.begin() + h.groups);
  for (int row = static_cast<int>(std::ceil(largest / k)); row >= 1; --row) {
    Line line;
    for (int g = 0; g < h.groups; ++g) {
      if (!(h.count[static_cast<std::size_t>(g)] > k * (row - 1))) continue;
      for (int c = 0; c < filled; ++c) {
        line.column(2 + g * step + c);
        line.text("X");
      }
    }
    const double N = k * row;
    line.column(BARLINE + 2);
    if (N < 99999.5) {
      line.put<"(F6.1, I5)">(100.0 * N / h.total, static_cast<std::int64_t>(N));
    } else {
      line.put<"(F6.1, 1X, I0)">(100.0 * N / h.total, static_cast<std::int64_t>(N));
    }
    OUTLINE();
  }
}

void print_counts(const Histogram& h, bool weighted) {
  say(" GROUP COUNTS");
  const int per_line = weighted ? 5 : 10;
  for (int g = 0; g < h.groups; g += per_line) {
    Line line;
    line.column(2);
    for (int k = g; k < std::min(g + per_line, h.groups); ++k) {
      const double count = h.count[static_cast<std::size_t>(k)];
      if (weighted) {
        line.put<"(G13.5)">(count);
      } else {
        line.put<"(I7)">(static_cast<std::int64_t>(count));
      }
    }
    OUTLINE();
  }
}

}  // namespace

bool count_groups(const PlotSet& set, const PlotVariable& y, Histogram& h) {
  h = Histogram();
  h.groups = set.GROUPS;
  if (!plot_range(y.value, h.least, h.most)) {
    fail(" ...ERROR..NO DATA TO PLOT");
    return false;
  }
  find_limits(set, y.value, h);
  int used = 0;
  double weights = 0.0;
  for (std::size_t t = 0; t < set.rows; ++t) {
    const double v = y.value[t];
    if (std::isnan(v)) continue;
    const double w = set.weight.value.empty() ? 1.0 : set.weight.value[t];
    if (!(w >= 0.0)) {
      fail(" ...ERROR..IN GROUP COUNT ");
      return false;
    }
    ++used;
    weights += w;
    if (v < h.min) {
      ++h.below;
    } else if (v > h.max) {
      ++h.above;
    }
    const int g = v < h.min ? 0 : v > h.max ? h.groups - 1 : group_of(h, v);
    h.count[static_cast<std::size_t>(g)] += w;
  }
  h.rows = used;
  for (int g = 0; g < h.groups; ++g) h.total += h.count[static_cast<std::size_t>(g)];
  const bool adds_up = std::fabs(h.total - weights) <= 1e-9 * weights;
  if (h.total > 0.0 && adds_up) return true;
  fail(" ...ERROR..IN GROUP COUNT ");
  return false;
}

void PLOTHS(const PlotSet& set) {
  const Trace trace("PLOTHS");
  const bool weighted = !set.weight.value.empty();
  for (const PlotVariable& y : set.ys()) {
    Histogram h;
    if (!count_groups(set, y, h)) return;
    if (!OCOM.OPUT) continue;
    if (weighted) say<"(' HISTOGRAM WEIGHTED BY VARIABLE ', A)">(set.weight.label());
    if (!set.title.empty()) say<"(1X, A)">(std::string_view(set.title).substr(0, 79));
    Line head;
    head.put<"(' HISTOGRAM - ', A)">(y.label());
    head.column(64);
    head.text("PCT.    N");
    OUTLINE();
    print_bars(h, row_height(h));
    print_axis(h, set.MIDDLE);
    print_counts(h, weighted);
    if (reads_alike(h.least, h.most)) {
      say<"(' RANGE OF DATA FOR HISTOGRAM: MINIMUM = ', G14.8, ' MAXIMUM = ', G14.8)">(h.least,
                                                                                       h.most);
    } else {
      say<"(' RANGE OF DATA FOR HISTOGRAM: MINIMUM = ', G13.5, ' MAXIMUM = ', G13.5)">(h.least,
                                                                                       h.most);
    }
    if (h.below + h.above > 0) {
      say<"(' NUMBER OF OUTLIER OBSERVATIONS: IN FIRST GROUP = ', I0, ' IN FINAL GROUP =', I0)">(
          h.below, h.above);
      say(" USE THE RANGE OPTION FOR ENTIRE RANGE OF DATA");
    }
  }
}

}  // namespace korvel
