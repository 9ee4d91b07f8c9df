// What NLFMIN, NLQN and the annealing have in common: evaluations, iteration prints, METHOD=.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "engine/files.h"
#include "engine/output.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nonlinear.h"
#include "platform/progress.h"

namespace korvel {
namespace {

// The values of METHOD= and their METHODCODE. GRADX, GQOPT and GQDFP are other words for BFGS.
struct MethodWord {
  std::string_view word;
  int code;
};
constexpr std::array<MethodWord, 6> METHODS = {
    {{"BFGS", 1}, {"DFP", 2}, {"GRADX", 3}, {"GQOPT", 4}, {"GQDFP", 5}, {"SA", -1}}};

constexpr int A_LINE = 5;  // values of a printed vector in one line

template <FixedText FIRST, class F>
void print_vector(std::size_t n, F&& value) {
  Line row;
  row.put<FIRST>();
  for (std::size_t i = 0; i < n; ++i) {
    if (i > 0 && i % A_LINE == 0) {
      OUTLINE();
      row = Line();
      row.put<"(13X)">();
    }
    row.put<"(G13.5)">(value(i) + 0.0);
  }
  OUTLINE();
}

}  // namespace

double dot(std::span<const double> x, std::span<const double> y) {
  return vector_lanes().dot(x.data(), y.data(), std::ssize(x));
}

bool MinimiserRun::evaluate(std::span<double> b, std::span<double> gradient, double& f) {
  ++evaluations;
  const bool own = objective.analytic;
  const Objective::Value value = objective.evaluate(b, own ? gradient : std::span<double>{});
  f = value.f;
  bool good = value.good && std::isfinite(f);
  if (good && !own && !gradient.empty()) good = NLNUM(objective, b, gradient);
  if (good) good = std::ranges::all_of(gradient, [](double g) { return std::isfinite(g); });
  NLCOM.FUNVAL = f;
  NLCOM.GOODFUN = good;
  return good;
}

bool MinimiserRun::prints(int iteration) const {
  if (!report.print || !OCOM.OPUT || NLCOM.PITER == 0) return false;
  return iteration % NLCOM.PITER == 0;
}

void MinimiserRun::print(std::string_view title, int iteration, double f, std::span<const double> b,
                         std::span<const double> gradient) const {
  if (objective.progress != nullptr) objective.progress->hide();
  if (!title.empty()) say(title);
  // Tenths of a second: a quick run prints the same lines each time.
  const double seconds = static_cast<double>(std::clock() - started) / CLOCKS_PER_SEC;
  say<"(' TIME = ', F9.1, ' SEC.   ITER. NO. ', I6, ' FUNCTION ', I8, ' EVALUATIONS ')">(
      seconds, iteration, evaluations);
  if (!report.heading.empty()) say(report.heading);
  say<"(A, G15.7)">(report.label, report.scale * f + 0.0);
  print_vector<"(' COEFFICIENTS')">(b.size(), [&](std::size_t i) { return objective.shown(b, i); });
  if (!gradient.empty()) {
    print_vector<"(' GRADIENT    ')">(gradient.size(), [&](std::size_t i) {
      return report.scale * objective.shown_slope(gradient, i);
    });
  }
  // Somebody may be watching a long search.
  if (main_output().terminal()) main_output().flush();
}

std::uint64_t search_evaluations(int n) {
  const std::int64_t search = std::int64_t{2} * std::max(NLCOM.ITER, 0) + std::int64_t{4} * n;
  const bool anneals = NLCOM.METHODCODE == 99 || NLCOM.METHODCODE == -1 || NLCOM.HYBRID;
  return static_cast<std::uint64_t>(anneals ? std::max<std::int64_t>(NLCOM.SAITER, 1) : search);
}

void leave_code(Minimum& minimum, int code) {
  minimum.ERR = code;
  temporary(temporary_place("ERR")) = code;
}

void warn_search_failed() {
  warn(" ...WARNING..FAILURE TO COMPLETE A LINE SEARCH IN 20 FUNCTION EVALUATIONS.");
  warn(" THIS IS PROBABLY BECAUSE THE FUNCTION HAS NO GLOBAL MAXIMUM");
}

void warn_no_start() {
  warn(" ...WARNING..FUNCTION HAS NO VALUE AT THE STARTING VALUES. GIVE OTHER ONES");
}

void warn_stopped() {
  warn(" ...WARNING..STOPPED BY THE USER. THE BEST COEFFICIENTS SO FAR ARE KEPT");
}

void keep_stopped(Workspace ws, std::span<const double> b) {
  if (NLCOM.COEF.text.empty()) return;
  const int var =
      NEWVAR(ws, NLCOM.COEF.typed, {.ITYPE = SERIES, .LEN = static_cast<std::int64_t>(b.size())});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  std::copy_n(b.begin(), std::min(to.size(), b.size()), to.begin());
}

bool settle_factors(HessianFactors factors) {
  if (factors.positive()) return true;
  say(" STARTING HESSIAN REJECTED-USING IDENTITY MATRIX INSTEAD");
  factors.identity();
  return false;
}

bool method_code(std::string_view byname, int standard) {
  const std::string_view word = trimmed(byname);
  if (word.empty()) {
    NLCOM.METHODCODE = standard;
    return true;
  }
  const auto found = std::ranges::find(METHODS, word, &MethodWord::word);
  if (found == METHODS.end()) return false;
  NLCOM.METHODCODE = found->code;
  return true;
}

std::int64_t minimiser_words(int n) {
  const std::int64_t final_values = std::max(1, NLCOM.SANEPS);  // of the annealing
  return std::int64_t{10} * n + final_values;
}

}  // namespace korvel
