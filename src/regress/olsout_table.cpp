// The coefficient table, and the covariance and correlation matrices of the coefficients.

#include <cmath>

#include "data/format.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

constexpr double INFINITE_T = 1e18;   // t-ratio of a coefficient without variance
constexpr double CERTAIN_T2 = 10000;  // above this t*t the p-value is printed as 0

// What a row shows of one coefficient.
struct CoefficientRow {
  double b, se, t, p, partial, standardized, elasticity;
  bool scale_free;  // the last two mean something
};

double elasticity(const Estimate& est, int i) {
  const OlsCom& o = OLSCOM;
  const auto k = static_cast<std::size_t>(i);
  const bool constant = est.list[k].var == DATCOM.MCON;
  double xbar = est.means[k];
  double ybar = est.means.back();
  if (o.LOGLOG || o.LOGLIN || o.LOGINVER) ybar = 1.0;
  if ((o.LININVER || o.LOGINVER) && !constant) xbar = -1.0 / xbar;
  if (o.LOGLOG || o.LINLOG) xbar = 1.0;
  return ybar != 0.0 ? est.coef[k] * xbar / ybar : 0.0;
}

std::string_view coefficient_name(Workspace ws, const Estimate& est, int i) {
  const ListItem& item = est.list[static_cast<std::size_t>(i)];
  return item.var == 0 ? item.name : NAME(ws, item.var);
}

double p_value(double t) {
  const double t2 = t * t;
  if (t2 > CERTAIN_T2) return 0.0;
  return OLSCOM.DN ? normal_two_sided(t) : f_tail(t2, 1.0, FCOM.DF);
}

CoefficientRow make_row(const Estimate& est, int i, double d0) {
  const auto k = static_cast<std::size_t>(i);
  CoefficientRow r{};
  r.b = est.coef[k];
  r.se = standard_error(est, i);
  r.t = t_ratio(r.b, r.se);
  r.p = p_value(r.t);
  const double sign = r.t > 0.0 ? 1.0 : (r.t < 0.0 ? -1.0 : 0.0);
  r.partial = d0 > 0.0 && std::fabs(r.t) < INFINITE_T ? r.t / std::sqrt(r.t * r.t + d0) : sign;
  // The sum turns the -0 of a constant with a negative coefficient into 0. A dependent variable
  // that does not vary has no standard.
  const double spread = std::sqrt(std::fabs(est.squares.back()));
  if (spread > 0.0) {
    r.standardized = r.b * std::sqrt(std::fabs(est.squares[k])) / spread + 0.0;
  }
  r.elasticity = elasticity(est, i);
  // A lag on a polynomial shares its variable with others; a part of a complex number has no mean,
  // nor has a coefficient that stands with no variable.
  r.scale_free = est.list[k].order == 0 && est.multiplicity == 1 && est.list[k].var != 0;
  return r;
}

// Heading of the table; `df` is the name of the column of t-ratios, A8.
void print_heading(const ResultProfile& profile, std::string_view df) {
  const Line blank;
  if (OLSCOM.DN) {
    Line row;
    row.put<"(30X, 'ASYMPTOTIC')">();
  }
  if (!profile.heading.empty()) {
    Line row;
    row.put<"(37X, A)">(profile.heading);
  }
  Line first, second;
  if (OSCOM.OWIDE) {
    first.put<
        "(' VARIABLE', 4X, 'ESTIMATED   STANDARD   T-RATIO', 10X, "
        "'PARTIAL STANDARDIZED ELASTICITY')">();
    second.put<
        "('   NAME     COEFFICIENT    ERROR', 3X, A8, 4X, "
        "'P-VALUE CORR.  COEFFICIENT  AT MEANS')">(df);
    const Line last;
    OUTLINE();
  } else {
    first.put<
        "(' VARIABLE', 3X, 'ESTIMATED  STANDARD   T-RATIO', 8X, "
        "'PARTIAL STANDARDIZED ELASTICITY')">();
    second.put<
        "('   NAME    COEFFICIENT   ERROR', 3X, A8, 3X, "
        "'P-VALUE CORR. COEFFICIENT  AT MEANS')">(df);
    OUTLINE();
  }
}

void print_narrow(std::string_view name, const CoefficientRow& r) {
  Line row;
  row.put<"(1X, A8, G13.5, G11.4, G12.4, F6.3)">(name, r.b, r.se, r.t, r.p);
  if (OLSCOM.DN)
    row.put<"('  ----')">();
  else
    row.put<"(F6.3)">(r.partial);
  if (r.scale_free) row.put<"(2F11.4)">(r.standardized, r.elasticity);
  OUTLINE();
}

void print_wide(std::string_view name, const CoefficientRow& r) {
  Line row;
  row.put<"(1X, A8, G13.5, G12.5, G13.5, F7.4)">(name, r.b, r.se, r.t, r.p);
  if (OLSCOM.DN)
    row.put<"('  ---- ')">();
  else
    row.put<"(F7.4)">(r.partial);
  if (r.scale_free) row.put<"(2G13.5)">(r.standardized, r.elasticity);
  OUTLINE();
}

}  // namespace

double standard_error(const Estimate& est, int i) {
  const double v = est.cov[packed(i + 1, i + 1)];
  return v > 0.0 ? std::sqrt(v) : 0.0;
}

double t_ratio(double b, double se) { return se > 0.0 ? b / se : INFINITE_T; }

void print_coefficients(Workspace ws, const Estimate& est, double d0) {
  // The degrees of freedom name the column; long samples take the room of the blank and the word.
  char df[8];
  const long count = std::lround(FCOM.DF);
  if (OLSCOM.DN) {
    compose<"('------- ')">(df, 8, 0);
  } else if (count < 100000) {
    compose<"(I5, ' DF')">(df, 8, 0, count);
  } else if (count < 1000000) {
    compose<"(I6, 'DF')">(df, 8, 0, count);
  } else {
    compose<"(I8)">(df, 8, 0, count);
  }
  print_heading(*est.profile, {df, sizeof df});
  for (int i = 0; i < est.K(); ++i) {
    if (est.mean_terms > 0 && i == 0) say<"(10X, 'MEAN EQUATION:')">();
    if (est.mean_terms > 0 && i == est.mean_terms) say<"(10X, 'VARIANCE EQUATION:')">();
    const CoefficientRow r = make_row(est, i, d0);
    const std::string_view name = coefficient_name(ws, est, i);
    if (OSCOM.OWIDE)
      print_wide(name, r);
    else
      print_narrow(name, r);
  }
}

void print_covariance(Workspace ws, const Estimate& est) {
  say(" VARIANCE-COVARIANCE MATRIX OF COEFFICIENTS");
  print_covariances(
      est.K(), [&](int i) { return coefficient_name(ws, est, i); },
      [&](int i, int j) { return est.cov[packed(i, j)]; });
}

void print_correlation(Workspace ws, const Estimate& est) {
  constexpr double none = 1e-20;
  const auto sd = [&](int i) {
    const double v = est.cov[packed(i, i)];
    return v > 0.0 ? std::sqrt(v) : none;
  };
  say(" CORRELATION MATRIX OF COEFFICIENTS");
  print_correlations(
      est.K(), [&](int i) { return coefficient_name(ws, est, i); },
      [&](int i, int j) {
        const double product = sd(i) * sd(j);
        return est.cov[packed(i, j)] / (product > 0.0 ? product : none);
      });
}

}  // namespace korvel
