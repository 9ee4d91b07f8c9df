// What the minimisers share: one evaluation, what they print, the codes they leave.
#pragma once

#include <ctime>
#include <span>
#include <string_view>

#include "engine/output.h"
#include "nonlinear/minimise.h"

namespace korvel {

inline constexpr int ERR_SEARCH = 52023;     // no step of the line search was good enough
inline constexpr int ERR_LIMIT = 52027;      // ITER was reached
inline constexpr int ERR_HESSIAN = 52029;    // the factors at the start are not positive
inline constexpr int ERR_SIGN = 52030;       // the direction does not lead down
inline constexpr int MOST_EVALUATIONS = 20;  // of one line search

inline constexpr int CONVERGED = 2, AT_LIMIT = 3;  // NLSTAT

double dot(std::span<const double> x, std::span<const double> y);

// One run of a minimiser: the objective, the clock and the count of points.
struct MinimiserRun {
  Objective& objective;
  const MinimiserReport& report;
  std::clock_t started = std::clock();
  int evaluations = 0;

  // f and gradient (n words or none) at b, the latter by differences when the objective has none.
  // False when either is no number. Sets FUNVAL and GOODFUN.
  bool evaluate(std::span<double> b, std::span<double> gradient, double& f);
  // Iteration i is one of those that PITER asks for.
  bool prints(int iteration) const;
  // A block of statistics under a title, which may be empty.
  void print(std::string_view title, int iteration, double f, std::span<const double> b,
             std::span<const double> gradient) const;
};

// Evaluations that a run of n parameters may take, for its progress: about two an iteration and the
// second derivatives; annealing as many as it may have.
std::uint64_t search_evaluations(int n);

// Sets $ERR and the code of the run.
void leave_code(Minimum& minimum, int code);
// The messages of more than one minimiser.
void warn_search_failed();
void warn_no_start();
void warn_stopped();
// What a run leaves that the user has stopped: the message, the best coefficients b printed under
// the names name(i) (i from 0) and kept in COEF=. They have no standard errors.
void keep_stopped(Workspace ws, std::span<const double> b);
template <class Name>
void leave_stopped(Workspace ws, std::span<const double> b, Name&& name) {
  warn_stopped();
  if (OCOM.OPUT) {
    const Line blank;
    say("          COEFFICIENT");
    for (std::size_t i = 0; i < b.size(); ++i) say<"(1X, A8, G13.5)">(name(i), b[i]);
  }
  keep_stopped(ws, b);
}
// Makes factors that are not positive the identity. False when they were not.
bool settle_factors(HessianFactors factors);

}  // namespace korvel
