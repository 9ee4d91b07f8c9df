// CONFID: confidence intervals of coefficients and of the error variance.

#include <algorithm>
#include <cmath>

#include "engine/options.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "graphics/graphics.h"
#include "regress/confid.h"
#include "regress/test_parts.h"
#include "stats/probability.h"

namespace korvel {

ConfidenceRegion REGION;

namespace {

constexpr auto CONFOPT =
    option_table(logical("GNUPLOT"), logical("GRAPHICS"), logical("APPEND"), integer("POINTS", 200),
                 real("FCRITICA"), real("DF"), real("TCRITICA"), real("COEF1"), real("COEF2"),
                 real("VAR1"), real("VAR2"), real("COVAR12"), variable("OUTPUT", "PLOT"),
                 variable("DEVICE"), variable("COMMFILE"), variable("DATAFILE"));

constexpr double TAIL = 0.025;         // beyond either end of an interval
constexpr double NORMAL_POINT = 1.96;  // for asymptotic estimates
constexpr double NORMAL_POINT_90 = 1.6448536269514722;
constexpr int LEAST_POINTS = 8;  // of an ellipse
constexpr int MOST_POINTS = 1000000;

double real_value(int place) { return OPTCOM.XOPT[static_cast<std::size_t>(place)]; }
bool real_given(int place) { return OPTCOM.xgiven[static_cast<std::size_t>(place)]; }

// The point x >= 0 beyond which a falling upper tail is p: the bracket is doubled until it holds
// the point, then halved to neighbouring doubles.
template <class UpperTail>
double upper_point(double p, UpperTail tail) {
  double low = 0.0, high = 1.0;
  while (tail(high) > p && high < 1e300) {
    low = high;
    high *= 2.0;
  }
  for (;;) {
    const double middle = low + (high - low) / 2.0;
    if (!(middle > low && middle < high)) return high;
    (tail(middle) > p ? low : high) = middle;
  }
}

double t_point(double DF, double tails) {
  const double F = upper_point(tails, [&](double f) { return f_tail(f, 1.0, DF); });
  return std::sqrt(F);
}
double chi_square_point(double upper, double DF) {
  return upper_point(upper, [&](double x) { return chi_square_tail(x, DF).value; });
}

void print_row(std::string_view name, double lower, double value, double upper) {
  say<"(1X, A8, 3G13.5)">(name, lower, value, upper);
}

void print_coefficient(Workspace ws, std::size_t i, double point) {
  const ListItem& item = SAVED.list[i];
  const int place = static_cast<int>(i) + 1;
  const double variance = SAVED.cov[packed(place, place)];
  const double half = point * (variance > 0.0 ? std::sqrt(variance) : 0.0);
  const double b = SAVED.coef[i];
  print_row(item.var != 0 ? NAME(ws, item.var) : item.name, b - half, b, b + half);
}

void print_variance(double DF) {
  const double square = DF * SAVED.sigma2;
  print_row("$SIG2", square / chi_square_point(TAIL, DF), SAVED.sigma2,
            square / chi_square_point(1.0 - TAIL, DF));
  say<"('     $SIG2 INTERVALS USE CHI-SQUARE WITH DF=', I6)">(static_cast<int>(DF));
}

// Place of a listed name among the coefficients; -1 for $SIG2, 0 after an error.
int listed_coefficient(Workspace ws, const ListItem& item) {
  if (item.var < 0) {
    if (item.name == "$SIG2") return -1;
    fail<"(' ...ERROR..', A, ' IS NOT IN EQUATION')">(item.name);
    return 0;
  }
  const int n = item.var > 2 * DATCOM.MAXVAR ? (item.var - 1) % DATCOM.MXCOL + 1 : item.column;
  const auto regressors = std::span(SAVED.list).first(SAVED.coef.size());
  const int place = find_coefficient(ws, regressors, item.name, n);
  if (place == 0) report_no_coefficient(ws, item.name, n);
  return place;
}

bool invalid_numbers() {
  for (const char* word : {"FCRITICA", "DF", "TCRITICA", "VAR1", "VAR2"}) {
    const std::string_view w(word);
    int place = 0;
    for (const OptionWord& row : CONFOPT.view()) {
      if (row.kind != OptionKind::Real) continue;
      if (row.word == w && real_given(place) && !(real_value(place) > 0.0)) return true;
      ++place;
    }
  }
  return false;
}

// What a picture of the joint region of two coefficients is made of.
bool keep_region(Workspace ws, int first, int second, double DF, double point) {
  ConfidenceRegion r;
  r.DF = DF;
  r.DN = SAVED.DN;
  r.tcritical = point;
  if (!real_given(CONFOPT.place("TCRITICA"))) {
    r.tcritical90 = r.DN ? NORMAL_POINT_90 : t_point(DF, 0.10);
  }
  if (real_given(CONFOPT.place("FCRITICA"))) r.fcritical = real_value(CONFOPT.place("FCRITICA"));
  const auto from = [](int place, double value) {
    return real_given(place) ? real_value(place) : value;
  };
  const auto coefficient = [](int i) { return SAVED.coef[static_cast<std::size_t>(i - 1)]; };
  r.coef[0] = from(CONFOPT.place("COEF1"), coefficient(first));
  r.coef[1] = from(CONFOPT.place("COEF2"), coefficient(second));
  r.var[0] = from(CONFOPT.place("VAR1"), SAVED.cov[packed(first, first)]);
  r.var[1] = from(CONFOPT.place("VAR2"), SAVED.cov[packed(second, second)]);
  r.covar = from(CONFOPT.place("COVAR12"), SAVED.cov[packed(first, second)]);
  if (!(r.var[0] > 0.0 && r.var[1] > 0.0 && r.covar * r.covar < r.var[0] * r.var[1])) {
    fail(" ...ERROR..INVALID COEFFICIENTS OR OPTIONS");
    return false;
  }
  const int places[2] = {first, second};
  for (std::size_t k = 0; k < 2; ++k) {
    const ListItem& item = SAVED.list[static_cast<std::size_t>(places[k] - 1)];
    const std::string_view name = item.var != 0 ? NAME(ws, item.var) : item.name;
    r.names[k].fill(' ');
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), KEYLEN), r.names[k].begin());
  }
  r.points = std::clamp(OPTCOM.IOPT[CONFOPT.place("POINTS")], LEAST_POINTS, MOST_POINTS);
  r.set = true;
  REGION = r;
  return true;
}

void draw_region(Workspace ws) {
  const auto text = [&](int place, std::string_view word, std::string_view standard,
                        std::string& to) {
    return plot_word(ws, OPTCOM.VOPT[static_cast<std::size_t>(place)], word, standard, to);
  };
  PlotWords words;
  if (!text(CONFOPT.place("OUTPUT"), "OUTPUT", "PLOT", words.OUTPUT) ||
      !text(CONFOPT.place("DEVICE"), "DEVICE", {}, words.DEVICE) ||
      !text(CONFOPT.place("COMMFILE"), "COMMFILE", "COMM.GNU", words.COMMFILE) ||
      !text(CONFOPT.place("DATAFILE"), "DATAFILE", "DATA.GNU", words.DATAFILE)) {
    return;
  }
  words.APPEND = OPTCOM.LOPT[CONFOPT.place("APPEND")];
  words.WIDE = OSCOM.OWIDE;
  const bool gnuplot = OPTCOM.LOPT[CONFOPT.place("GNUPLOT")] ||
                       OPTCOM.LOPT[CONFOPT.place("GRAPHICS")] || words.APPEND || web_output() ||
                       !words.OUTPUT.empty() || !words.DEVICE.empty() || !words.COMMFILE.empty() ||
                       !words.DATAFILE.empty();
  plot_region(ws, REGION, words, gnuplot);
}

}  // namespace

void CONFID(Workspace ws) {
  const Trace trace("CONFID");
  // 1. Options.
  OPTION(ws, CONFOPT);
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  if (ADDCOM.KTEST == 0) return fail(" ...ERROR.CONFID COMMAND MUST FOLLOW ESTIMATION");
  if (invalid_numbers()) return fail(" ...ERROR..INVALID COEFFICIENTS OR OPTIONS");
  // 2. The coefficients asked for, all of them checked before the first line is printed.
  int pair[2] = {0, 0};
  int coefficients = 0;
  bool variance = SCNCOM.NF == 0;
  for (const ListItem& item : SCNCOM.list()) {
    const int place = listed_coefficient(ws, item);
    if (place == 0) return;
    if (place < 0) {
      variance = true;
    } else if (coefficients++ < 2) {
      pair[coefficients - 1] = place;
    }
  }
  // 3. Critical values.
  const double DF = real_given(CONFOPT.place("DF")) ? real_value(CONFOPT.place("DF")) : SAVED.DF;
  const bool own_point = real_given(CONFOPT.place("TCRITICA"));
  if (!(DF > 0.0)) return warn(" ...WARNING..ZERO DEGREES OF FREEDOM LEFT");
  const double point = own_point  ? real_value(CONFOPT.place("TCRITICA"))
                       : SAVED.DN ? NORMAL_POINT
                                  : t_point(DF, 2.0 * TAIL);
  // 4. The joint region of two coefficients.
  const bool region = coefficients == 2 && pair[0] != pair[1];
  if (region && !keep_region(ws, pair[0], pair[1], DF, point)) return;
  // 5. The intervals.
  if (OCOM.OPUT) {
    if (own_point) {
      say<"(' USING CRITICAL VALUE =', G13.5)">(point);
    } else {
      say(" USING 95% CONFIDENCE INTERVALS");
    }
    say(" NAME        LOWER     COEFFICIENT     UPPER");
    if (SCNCOM.NF == 0) {
      for (std::size_t i = 0; i < SAVED.coef.size(); ++i) print_coefficient(ws, i, point);
    }
    for (const ListItem& item : SCNCOM.list()) {
      if (item.var < 0) continue;
      print_coefficient(ws, static_cast<std::size_t>(listed_coefficient(ws, item) - 1), point);
    }
    if (variance) print_variance(DF);
  }
  // 6. The picture.
  if (region) draw_region(ws);
}

}  // namespace korvel
