// Influence of single observations on the fit: RSTUDENT, hat diagonal, COVRATIO, DFFITS, DFBETAS
// (Belsley, Kuh and Welsch 1980) and the prediction-error sums.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr int DFBETAS_A_LINE = 7;
constexpr double FITTED = 1e-12;  // 1-h of a row with a coefficient of its own

void print_names(Workspace ws, const Estimate& est) {
  Line head;
  head.put<"(' DFBETAS:    ')">();
  for (int j = 0; j < est.K(); ++j) {
    if (j > 0 && j % DFBETAS_A_LINE == 0) {
      OUTLINE();
      head = Line();
      head.column(14);
    }
    head.put<"(1X, A8)">(NAME(ws, est.list[static_cast<std::size_t>(j)].var));
  }
  OUTLINE();
}

void print_dfbetas(int obs, std::span<const double> values) {
  Line row;
  row.put<"(I5, 8X)">(obs);
  for (std::size_t j = 0; j < values.size(); ++j) {
    if (j > 0 && j % DFBETAS_A_LINE == 0) {
      OUTLINE();
      row = Line();
      row.column(14);
    }
    row.put<"(F9.4)">(values[j]);
  }
  OUTLINE();
}

// z := (X'X)^-1 x by the factor, and h = x'(X'X)^-1 x on the way.
double solve_row(std::span<const double> factor, int K, std::span<double> z) {
  double h = 0.0;
  for (int j = 1; j <= K; ++j) {
    double value = z[static_cast<std::size_t>(j - 1)];
    for (int l = 1; l < j; ++l) value -= factor[packed(j, l)] * z[static_cast<std::size_t>(l - 1)];
    z[static_cast<std::size_t>(j - 1)] = value;
    h += value * value / factor[packed(j, j)];
  }
  for (int j = K; j >= 1; --j) {
    double value = z[static_cast<std::size_t>(j - 1)] / factor[packed(j, j)];
    for (int k = j + 1; k <= K; ++k)
      value -= factor[packed(k, j)] * z[static_cast<std::size_t>(k - 1)];
    z[static_cast<std::size_t>(j - 1)] = value;
  }
  return h;
}

}  // namespace

void INFLUE(Workspace ws, const Estimate& est, const ColumnList& x, std::span<const double> factor,
            std::span<double> hat, std::span<double> row) {
  const Trace trace("INFLUE");
  const int K = est.K();
  const auto order = static_cast<std::size_t>(K);
  const bool print = OCOM.OPUT && (OLSCOM.INFLUENC || OLSCOM.DFBETAS);
  const double DF = FCOM.DF;
  const double v = DF - 1.0;
  const double s2 = DF > 0.0 ? FCOM.SSE / DF : 0.0;
  // (X'X)^-1 is the printed covariance without its scale.
  const double scale = OLSCOM.MULSIGSQ ? temporary(temporary_place("SIG2")) : 1.0;
  const std::span<double> z = row.first(order);
  double SSPE = 0.0;
  double schmidt = 0.0;
  double stone = 0.0;
  if (print) {
    say<"(8X, 'RESIDUAL    RSTUDENT    HT    COVRAT     DFFITS  ', ' DFFIT ')">();
    if (OLSCOM.DFBETAS) print_names(ws, est);
  }
  KeptRows rows(ws);
  while (rows.next()) {
    const auto t = static_cast<std::size_t>(rows.row);
    for (std::size_t k = 0; k < order; ++k) z[k] = x.at(k, rows.row);
    const double h = solve_row(factor, K, z);
    hat[t] = h;
    if (!print) continue;
    const double e = est.residual[t];
    // A row that the fit must pass through has no residual of its own: what is left of 1-h is
    // rounding, and everything divided by it is given as 0.
    const double rest = 1.0 - h > FITTED ? 1.0 - h : 0.0;
    double s = rest > 0.0 && v != 0.0 ? s2 * DF / v - e * e / (rest * v) : 0.0;
    if (s >= 0.0) s = std::sqrt(s);
    const double share = rest > 0.0 ? 1.0 / rest : 0.0;
    const double deviation = s * std::sqrt(rest);
    const double RSTUDENT = deviation > 0.0 ? e / deviation : e;
    const double DFFITS = std::sqrt(std::max(h, 0.0) * share) * RSTUDENT;
    const double DFFIT = h * e * share;
    const double spread = DF > 0.0 ? RSTUDENT * RSTUDENT / DF + (DF - 1.0) / DF : 0.0;
    const double COVRAT = spread > 0.0 ? share / std::pow(spread, K) : 0.0;
    SSPE += e * e * share * share;
    schmidt += e * e * share;
    stone += rest * rest;
    say<"(I5, G13.5, 4F9.4, G13.5)">(rows.obs, e, RSTUDENT, h, COVRAT, DFFITS, DFFIT);
    if (OLSCOM.DFBETAS) {
      for (int j = 1; j <= K; ++j) {
        const double sd = std::sqrt(est.cov[packed(j, j)] / scale);
        z[static_cast<std::size_t>(j - 1)] *= s * sd != 0.0 ? e * share / (s * sd) : 0.0;
      }
      print_dfbetas(rows.obs, z);
    }
  }
  if (!print) return;
  Line first;
  first.put<"(' SUM-OF-SQUARED PREDICTION ERRORS SSPE,PRESS,CV=', G13.5)">(SSPE);
  Line second;
  second.put<"(' SCHMIDT(1974) SUM OF SQUARES OF STANDARDIZED PREDICTION ERRORS=', G13.5)">(
      schmidt);
  Line third;
  third.put<"(' STONE(1974) CROSS-VALIDATION=', G13.5)">(stone > 0.0 ? FCOM.SSE / stone : 0.0);
  OUTLINE();
}

}  // namespace korvel
