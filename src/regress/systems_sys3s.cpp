// SYS3S: from single equations to the system. Stages, rounds, autoregressive errors, restrictions.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "regress/systems.h"

namespace korvel {
namespace {

constexpr double LARGEST_RHO = 0.99999;  // of a kept first row, whose root would leave the reals

std::size_t at(int i) { return static_cast<std::size_t>(i); }

bool stop(int IFAULT, std::string_view matrix) {
  OCOM.IFAULT = IFAULT;
  MATINV(IFAULT, matrix);
  return false;
}

bool collinear(const SystemModel& model, int IFAULT, int first, std::string_view matrix) {
  stop(IFAULT, matrix);
  const int k = first + std::abs(IFAULT) - 1;
  warn<
      "(' ...WARNING..THIS USUALLY INDICATES PERFECT MULTICOLLINEARITY WITH VARIABLE ', A, "
      "' IN EQUATION', I3)">(coefficient_name(model, k), model.equation_of[at(k)] + 1);
  temporary(temporary_place("ERR")) = 6017;
  return false;
}

// Every equation by itself.
bool single_equations(const SystemModel& model, SystemFit& fit) {
  for (int i = 0; i < model.M; ++i) {
    const int IFAULT = fit.single(i);
    if (IFAULT != 0) {
      return collinear(model, IFAULT, model.equation[at(i)].first,
                       " X MATRIX OF A SINGLE EQUATION");
    }
  }
  return true;
}

// One coefficient of the errors for each equation, or the fixed one.
class Rho {
 public:
  void renew(SystemFit& fit) {
    if (SYSCOM.fixed_rho) {
      std::ranges::fill(fit.rho, SYSCOM.RHO);
    } else {
      fit.estimate_rho();
    }
    bound(fit);
  }
  void bound(SystemFit& fit) {
    for (double& r : fit.rho) {
      if (std::fabs(r) < 1.0) continue;
      if (!warned_) warn(" ...WARNING..UNSTABLE RHO..ERRORS BELOW..USE DROP OPTION");
      warned_ = true;
      if (!SYSCOM.DROP) r = std::copysign(LARGEST_RHO, r);
    }
  }

 private:
  bool warned_ = false;
};

// RHOMIN..RHOMAX: the common coefficient whose transformed equations have residuals of the least
// generalised variance. Ties take the one nearer to zero.
bool search_rho(Workspace ws, const SystemModel& model, SystemFit& fit, std::span<double> work) {
  const auto steps =
      static_cast<int>(std::floor((SYSCOM.RHOMAX - SYSCOM.RHOMIN) / SYSCOM.RHOINC + 1e-9));
  double best = 0.0, least = 0.0;
  bool any = false;
  for (int s = 0; s <= steps; ++s) {
    if (stop_requested()) return false;
    const double r = SYSCOM.RHOMIN + s * SYSCOM.RHOINC;
    std::ranges::fill(fit.rho, r);
    if (!SYSXOG(ws, model, fit) || !single_equations(model, fit)) return false;
    fit.residuals();
    fit.make_sigma(true, SYSCOM.FM);
    const LogDeterminant det = log_determinant(fit.sigma, model.M, work);
    if (det.IFAULT != 0) return stop(det.IFAULT, " SIGMA                  ");
    if (OCOM.OPUT) {
      say<"(' RHO =', F9.5, '   LOG OF DETERMINANT OF SIGMA=', G15.6)">(r, det.value);
    }
    const bool nearer = det.value == least && std::fabs(r) < std::fabs(best);
    if (!any || det.value < least || nearer) {
      best = r;
      least = det.value;
    }
    any = true;
  }
  SYSCOM.RHO = best;
  SYSCOM.fixed_rho = true;
  return true;
}

// Largest relative change of a coefficient.
double largest_change(std::span<const double> now, std::span<const double> before) {
  double largest = 0.0;
  for (std::size_t k = 0; k < now.size(); ++k) {
    largest =
        std::max(largest, std::fabs(now[k] - before[k]) / std::max(std::fabs(before[k]), 1e-10));
  }
  return largest;
}

// Rounds that ended before the coefficients came to rest. A single one is wanted for itself.
void warn_moving(int rounds, double change) {
  constexpr double rounding = 1e-10;  // a smaller CONV asks for more than there is
  if (change < rounding) return;
  warn<
      "(' ...WARNING..NO CONVERGENCE AFTER', I6, ' ITERATIONS. LARGEST RELATIVE CHANGE OF A "
      "COEFFICIENT', G13.5)">(rounds, change);
}

// Digits that rounding in the moments leaves of the coefficients, told when few.
void warn_lost_digits(double condition) {
  if (!OCOM.OPUT) return;
  constexpr double enough = 8.0;
  const double digits = 15.65 - std::log10(std::max(condition, 1.0));
  if (digits >= enough) return;
  warn<
      "(' ...WARNING..NORMAL EQUATIONS KEEP ABOUT', I3, ' DIGITS HERE. THE VARIABLES ARE NEARLY "
      "COLLINEAR')">(std::max(0, static_cast<int>(digits)));
}

void dump_equations(Workspace ws, const SystemModel& model, const SystemFit& fit) {
  const int K = model.K();
  Scratch room(ws, static_cast<std::int64_t>(packed_words(K)));
  if (!room) return;
  fit.stacked_matrix(room.words());
  print_system_matrix(" XWX MATRIX             ", room.words(), K, coefficient_name, false);
  print_system_matrix(" XWX INVERSE MATRIX     ", fit.cov, K, coefficient_name, false);
}

// The order condition of every equation, and dependent variables among the instruments.
bool check_equations(const SystemModel& model, double rows) {
  for (int i = 0; i < model.M; ++i) {
    const SavedEquation& e = model.equation[at(i)];
    if (rows - e.K <= 0.0 || rows < model.L()) {
      fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(
          static_cast<int>(rows));
      return false;
    }
    if (!model.instruments) continue;
    if (e.K > model.L()) {
      fail<"(' ...ERROR..EQUATION ', I0, ' IS UNDERIDENTIFIED')">(i + 1);
      return false;
    }
    if (std::ranges::find(model.instrument, model.dependent[at(i)]) != model.instrument.end()) {
      warn(" ...WARNING..DEPENDENT VARIABLE LISTED AS EXOGENOUS");
    }
  }
  return true;
}

double log_likelihood(const SystemModel& model, const SystemFit& fit, bool first_row_kept,
                      std::span<double> work) {
  constexpr double LOG_2PI = 1.8378770664093453;
  const LogDeterminant det = log_determinant(fit.E, model.M, work);
  if (det.IFAULT != 0) return UNSET;
  const double N = fit.N();
  double L = -0.5 * model.M * N * (1.0 + LOG_2PI) - 0.5 * N * (det.value - model.M * std::log(N));
  // A kept first row has the root of 1-r^2 as its measure.
  if (first_row_kept) {
    for (const double r : fit.rho) L += 0.5 * std::log(1.0 - r * r);
  }
  return L;
}

}  // namespace

std::int64_t SYS3S_words(const SystemModel& model) {
  const std::int64_t rounds = SYSCOM.II ? SystemFit::reduced_form_words(model) : 0;
  return model.K() + 3 * static_cast<std::int64_t>(packed_words(model.M)) + model.M + rounds;
}

bool SYS3S(Workspace ws, const SystemModel& model, const SystemMoments& moments,
           const Restrictions& restrictions, SystemFit& fit, std::span<double> work,
           SystemOutcome& outcome) {
  const Trace trace("SYS3S");
  const SysCom& o = SYSCOM;
  const auto take = [&](std::size_t n) {
    const std::span<double> part = work.first(n);
    work = work.subspan(n);
    return part;
  };
  const std::span<double> before = take(at(model.K()));
  outcome.used = take(packed_words(model.M));
  outcome.tested = take(packed_words(model.M));
  const std::span<double> determinant = take(packed_words(model.M) + at(model.M));
  outcome.restrictions = restrictions.q;
  const bool told = OCOM.OPUT && (o.ITER > 0 || o.AUTO);
  const auto restrict = [&] {
    return restrictions.q == 0 || restrict_estimate(ws, restrictions, fit.coef, fit.cov);
  };

  // 1. Single equations; with AUTO their autoregressive coefficients, and the equations once more.
  if (!check_equations(model, fit.N())) return false;
  Rho rho;
  if (o.AUTO && o.grid && !search_rho(ws, model, fit, determinant)) return false;
  std::ranges::fill(fit.rho, 0.0);
  if (o.AUTO && o.fixed_rho) rho.renew(fit);
  if (!SYSXOG(ws, model, fit) || !single_equations(model, fit)) return false;
  if (o.AUTO && !o.fixed_rho) {
    rho.renew(fit);
    if (!SYSXOG(ws, model, fit) || !single_equations(model, fit)) return false;
  }
  fit.residuals();
  if (told) print_iteration(model, fit, 0);

  // 2. Sigma, the stacked equations, and rounds until the coefficients rest.
  for (int round = 0;; ++round) {
    if (stop_requested()) {
      OCOM.ODONT = true;
      return false;
    }
    fit.make_sigma(OLSCOM.DN, o.FM);
    std::ranges::copy(fit.sigma, outcome.used.begin());
    std::ranges::copy(fit.E, outcome.tested.begin());
    int IFAULT = fit.invert_sigma();
    if (IFAULT != 0) return stop(IFAULT, " SIGMA                  ");
    std::ranges::copy(fit.coef, before.begin());
    if (o.II && round > 0 && !fit.reduced_form(work)) {
      warn(" ...WARNING..THE EQUATIONS HAVE NO REDUCED FORM..II HAS NO EFFECT");
    }
    IFAULT = fit.solve();
    if (IFAULT != 0) return collinear(model, IFAULT, 0, " XWX MATRIX             ");
    if (OLSCOM.DUMP) dump_equations(ws, model, fit);
    if (o.IR && !restrict()) return false;
    fit.residuals();
    if (told && round > 0) print_iteration(model, fit, round);
    const double change = round > 0 ? largest_change(fit.coef, before) : 0.0;
    if (round > 0 && change < o.CONV) break;
    if (round == o.ITER) {
      if (round > 1) warn_moving(round, change);
      break;
    }
    if (!o.AUTO) continue;
    rho.renew(fit);
    if (!SYSXOG(ws, model, fit)) return false;
    fit.residuals();
  }
  if (!o.IR && !restrict()) return false;
  warn_lost_digits(fit.condition);

  // 3. The residuals of the estimate, and what the likelihood makes of them.
  fit.residuals();
  outcome.log_likelihood = log_likelihood(model, fit, moments.lagged && !o.DROP, determinant);
  outcome.log_determinant = log_determinant(outcome.used, model.M, determinant).value;
  return true;
}

}  // namespace korvel
