// CONFID: confidence intervals of coefficients and of the error variance.

#include <algorithm>
#include <array>
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

// Choice models have no error variance.
bool has_variance() { return SAVED.sigma2 >= 0.0; }

void print_variance(double DF) {
  const double square = DF * SAVED.sigma2;
  print_row("$SIG2", square / chi_square_point(TAIL, DF), SAVED.sigma2,
            square / chi_square_point(1.0 - TAIL, DF));
  say<"('     $SIG2 INTERVALS USE CHI-SQUARE WITH DF=', I6)">(static_cast<int>(DF));
}

// Place of a listed name among the coefficients; -1 for $SIG2, 0 after an error.
int listed_coefficient(Workspace ws, const ListItem& item) {
  if (item.var < 0) {
    if (item.name == "$SIG2" && has_variance()) return -1;
    fail<"(' ...ERROR..', A, ' IS NOT IN EQUATION')">(item.name);
    return 0;
  }
  const int own = owner_of(item.var).column;
  const int n = own > 0 ? own : item.column;
  const auto regressors = std::span(SAVED.list).first(SAVED.coef.size());
  const int place = find_coefficient(ws, regressors, item.name, n, SAVED.equations);
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

// Values that stand in the places of the five numbers of a region; UNSET where there is none.
struct RegionNumbers {
  std::array<std::string_view, 2> name;
  std::array<double, 2> coef{UNSET, UNSET}, var{UNSET, UNSET};
  double covar = UNSET;
};

// Two coefficients of the estimate.
RegionNumbers estimated_numbers(Workspace ws, int first, int second) {
  const int places[2] = {first, second};
  RegionNumbers r;
  for (std::size_t k = 0; k < 2; ++k) {
    const auto i = static_cast<std::size_t>(places[k] - 1);
    const ListItem& item = SAVED.list[i];
    r.name[k] = item.var != 0 ? NAME(ws, item.var) : item.name;
    r.coef[k] = SAVED.coef[i];
    r.var[k] = SAVED.cov[packed(places[k], places[k])];
  }
  r.covar = SAVED.cov[packed(first, second)];
  return r;
}

// The two values of the last joint test, when it was one of this estimate: with the degrees of
// freedom of another the region would be wrong.
RegionNumbers tested_numbers() {
  if (!SAVED.tested) return {.name = {"$VAL1", "$VAL2"}};
  return {.name = {"$VAL1", "$VAL2"},
          .coef = {temporary(temporary_place("VAL1")), temporary(temporary_place("VAL2"))},
          .var = {temporary(temporary_place("CT11")), temporary(temporary_place("CT22"))},
          .covar = temporary(temporary_place("CT12"))};
}

constexpr std::array<int, 5> NUMBER_PLACES = {CONFOPT.place("COEF1"), CONFOPT.place("COEF2"),
                                              CONFOPT.place("VAR1"), CONFOPT.place("VAR2"),
                                              CONFOPT.place("COVAR12")};

int numbers_given() { return static_cast<int>(std::ranges::count_if(NUMBER_PLACES, real_given)); }

// A region asked for without names: by numbers, or by an option that only a picture has.
bool nameless_region() {
  const auto flag = [](int place) { return OPTCOM.LOPT[static_cast<std::size_t>(place)]; };
  const auto word = [](int place, std::string_view standard) {
    return OPTCOM.VOPT[static_cast<std::size_t>(place)].text != standard;
  };
  return numbers_given() > 0 || real_given(CONFOPT.place("FCRITICA")) ||
         OPTCOM.igiven[CONFOPT.place("POINTS")] || flag(CONFOPT.place("GNUPLOT")) ||
         flag(CONFOPT.place("GRAPHICS")) || flag(CONFOPT.place("APPEND")) ||
         word(CONFOPT.place("OUTPUT"), "PLOT") || word(CONFOPT.place("DEVICE"), "") ||
         word(CONFOPT.place("COMMFILE"), "") || word(CONFOPT.place("DATAFILE"), "");
}

// What a picture of the joint region of two coefficients is made of. Options replace the numbers.
bool keep_region(RegionNumbers n, double DF, bool asymptotic, double point) {
  ConfidenceRegion r;
  r.DF = DF;
  r.DN = asymptotic;
  r.tcritical = point;
  if (!real_given(CONFOPT.place("TCRITICA"))) {
    r.tcritical90 = r.DN ? NORMAL_POINT_90 : t_point(DF, 0.10);
  }
  if (real_given(CONFOPT.place("FCRITICA"))) r.fcritical = real_value(CONFOPT.place("FCRITICA"));
  double* const numbers[] = {n.coef.data(), &n.coef[1], n.var.data(), &n.var[1], &n.covar};
  for (std::size_t i = 0; i < NUMBER_PLACES.size(); ++i) {
    if (real_given(NUMBER_PLACES[i])) *numbers[i] = real_value(NUMBER_PLACES[i]);
    if (*numbers[i] == UNSET) {
      fail(" ...ERROR..INVALID COEFFICIENTS OR OPTIONS");
      return false;
    }
  }
  r.coef = n.coef;
  r.var = n.var;
  r.covar = n.covar;
  if (!(r.var[0] > 0.0 && r.var[1] > 0.0 && r.covar * r.covar < r.var[0] * r.var[1])) {
    fail(" ...ERROR..INVALID COEFFICIENTS OR OPTIONS");
    return false;
  }
  for (std::size_t k = 0; k < 2; ++k) {
    r.names[k].fill(' ');
    std::copy_n(n.name[k].begin(), std::min<std::size_t>(n.name[k].size(), KEYLEN),
                r.names[k].begin());
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
  const bool estimated = ADDCOM.KTEST != 0;
  const bool nameless = SCNCOM.NF == 0 && nameless_region();
  const auto all = static_cast<int>(NUMBER_PLACES.size());
  if (!estimated && !(nameless && numbers_given() == all)) {
    return fail(" ...ERROR.CONFID COMMAND MUST FOLLOW ESTIMATION");
  }
  if (invalid_numbers()) return fail(" ...ERROR..INVALID COEFFICIENTS OR OPTIONS");
  // 2. The coefficients asked for, all of them checked before the first line is printed.
  int pair[2] = {0, 0};
  int coefficients = 0;
  bool variance = SCNCOM.NF == 0 && !nameless;
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
  const bool own_DF = real_given(CONFOPT.place("DF"));
  const bool asymptotic = estimated ? SAVED.DN : !own_DF;
  const double DF = own_DF ? real_value(CONFOPT.place("DF")) : estimated ? SAVED.DF : 1.0;
  const bool own_point = real_given(CONFOPT.place("TCRITICA"));
  if (!(DF > 0.0)) return warn(" ...WARNING..ZERO DEGREES OF FREEDOM LEFT");
  const double point = own_point    ? real_value(CONFOPT.place("TCRITICA"))
                       : asymptotic ? NORMAL_POINT
                                    : t_point(DF, 2.0 * TAIL);
  // 4. The joint region of two coefficients.
  const bool region = nameless || (coefficients == 2 && pair[0] != pair[1]);
  if (region) {
    RegionNumbers numbers;
    if (!nameless) {
      numbers = estimated_numbers(ws, pair[0], pair[1]);
    } else if (numbers_given() == all) {
      numbers.name = {"COEF1", "COEF2"};
    } else {
      numbers = tested_numbers();
    }
    if (!keep_region(numbers, DF, asymptotic, point)) return;
  }
  // 5. The intervals.
  if (OCOM.OPUT) {
    if (own_point) {
      say<"(' USING CRITICAL VALUE =', G13.5)">(point);
    } else {
      say(" USING 95% CONFIDENCE INTERVALS");
    }
    say(" NAME        LOWER     COEFFICIENT     UPPER");
    if (nameless) {
      for (std::size_t k = 0; k < 2; ++k) {
        const double half = point * std::sqrt(REGION.var[k]);
        print_row({REGION.names[k].data(), REGION.names[k].size()}, REGION.coef[k] - half,
                  REGION.coef[k], REGION.coef[k] + half);
      }
    } else if (SCNCOM.NF == 0) {
      for (std::size_t i = 0; i < SAVED.coef.size(); ++i) print_coefficient(ws, i, point);
    }
    for (const ListItem& item : SCNCOM.list()) {
      if (item.var < 0) continue;
      print_coefficient(ws, static_cast<std::size_t>(listed_coefficient(ws, item) - 1), point);
    }
    if (variance && has_variance()) print_variance(DF);
  }
  // 6. The picture.
  if (region) draw_region(ws);
}

}  // namespace korvel
