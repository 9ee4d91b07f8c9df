// AUTO: linear models whose errors are autoregressive or moving averages.
//
//   auto.cpp         AUTC, the command routine: options, list, sample, restrictions
//   auto_first.cpp   AUTO: errors of first order; auto_rows.cpp the rows, RHO and the likelihood
//   auto_higher.cpp  AUT2: higher orders and moving averages; auto_filter.cpp their rows
//   auto_out.cpp     tables of the iteration and of RHO, and the way into the results stage
//
// The model is y(t) = x(t)'b + e(t), e(t) = r(1) e(t-1) + .. + u(t) + m(1) u(t-1) + ..; z(t) stands
// for a row of regressors and dependent variable. The command owns AUTCOM; like OLS it fills OLSCOM
// for the results stage and uses the model list and the fits of the room.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/workspace.h"
#include "expr/kernels/columns.h"
#include "regress/ols_parts.h"
#include "regress/regress.h"
#include "regress/tests.h"

namespace korvel {

// Options that only AUTO has, and its plan. Set by AUTC.
struct AutCom {
  bool ML = false;      // maximum likelihood, else least squares
  bool GS = false;      // grid search
  bool DROP = false;    // the first ORDER rows are left out, else they are scaled
  bool MISS = false;    // gaps in the series count with their length
  bool PREPER = false;  // errors u before the sample are estimated
  bool PAGAN = false;   // Gauss-Newton for first order too
  bool PITER = false;   // the iterations are printed
  int GAP = 0;          // one gap behind that kept row, 0: those of the sample
  int NMISS = 0;        // ... of that many observations
  int ITER = 100;
  int ORDER = 1, NUMARMA = 0;      // autoregressive and moving-average coefficients
  double CONV = 0.001;             // change of the coefficients that ends the iteration
  double RHO = 0.0, SRHO = 0.0;    // start of the first and of the second one
  Restrictions* limits = nullptr;  // on b, null none
};
inline constinit AutCom AUTCOM{};

void AUTC(Workspace ws);
void AUTO(Workspace ws);
void AUT2(Workspace ws);

// ---- auto_rows.cpp: errors of first order

// A kept row whose predecessor lies more than one observation back.
struct Gap {
  std::int64_t row = 0;     // from 0
  double steps = 1.0;       // observations from the kept row before it
  std::size_t lengths = 0;  // place of its length in the table of PairSums
};

// Sums over pairs of neighbouring residuals that lie the same number of steps apart.
struct PairSums {
  double steps = 1.0;
  double count = 0.0;
  double cross = 0.0, before2 = 0.0, after2 = 0.0;  // e(t)e(t-1), e(t-1)^2, e(t)^2
};

// The variance of an error `steps` observations behind a known one, that of u being 1:
// 1 + r^2 + .. + r^(2 steps - 2). Works for every r.
double steps_variance(double r, double steps);

// Rows z(t) - r z(t-1), the first one times sqrt(1 - r^2) or, with `drop`, left out; a row behind a
// gap of s steps is (z(t) - r^s z(t-1)) / sqrt(steps_variance) (Savin and White 1978). Long data
// are made column by column on all threads. out: rows (less 1 with drop) words a column.
void transform_first(const ColumnList& z, double r, bool drop, std::span<const Gap> gaps,
                     std::span<double> out);

// Log of the Jacobian of those rows.
double first_jacobian(double r, bool drop, std::span<const PairSums> sums);

// Sums over the residuals e. sums[0] holds the pairs of direct neighbours; its like of every length
// of gap follow, their steps set by the caller.
void sum_pairs(std::span<const double> e, std::span<const Gap> gaps, std::span<PairSums> sums);

// RHO of direct neighbours: sum e(t)e(t-1) / sum e(t-1)^2 (Cochrane and Orcutt 1949).
double rho_least_squares(const PairSums& neighbours);
// The root of the likelihood equation without gaps, N rows, first residual e1 (Beach and MacKinnon
// 1978).
double rho_likelihood(const PairSums& neighbours, double e1, double N);
// The maximum of the likelihood given the residuals: a grid, then golden section.
double rho_search(std::span<const PairSums> sums, double e1, bool drop, double N);

// ---- auto_filter.cpp: higher orders

// Orders and coefficients of the errors, with the factor of the first p rows.
struct ErrorModel {
  std::span<double> r, m;   // p autoregressive, q moving-average coefficients
  std::span<double> first;  // p x p by rows, lower triangle: inverse factor of the autocovariances
  bool drop = false;        // the first p rows are left out
  int p() const { return static_cast<int>(r.size()); }
  int q() const { return static_cast<int>(m.size()); }
  // The first rows are weighted by their joint distribution: no moving average stands behind them.
  bool exact() const { return q() == 0 && !drop; }
  std::int64_t lost() const { return drop ? p() : 0; }
};

// The lower triangle P (p x p by rows) with P'P the inverse of the autocovariance matrix of p
// errors, that of u being 1: Siddiqui (1958). work: p x p. False when the process is not
// stationary.
bool first_rows_factor(std::span<const double> r, std::span<double> P, std::span<double> work);

// Filters one column (null: ones) of n rows into n - lost words: P times the first p rows, then
// z(t) - sum r z(t-j) - sum m out(t-j). Values before the sample are 0.
void filter_column(const ErrorModel& model, const double* z, std::int64_t n, std::span<double> out);

// Minus the derivative of u with respect to r(j) and m(j), j from 1. e: n residuals of the
// equation; u: n - lost errors behind them; before: u(0), u(-1), .. as far as they are estimated.
// dP: derivative of P with respect to r(j), for exact models.
void derivative_r(const ErrorModel& model, int j, std::span<const double> e,
                  std::span<const double> dP, std::span<double> out);
void derivative_m(const ErrorModel& model, int j, std::span<const double> u,
                  std::span<const double> before, std::span<double> out);
// Minus the derivative of u with respect to u(1-k), an error before the sample, k from 1.
void derivative_before(const ErrorModel& model, int k, std::span<double> out);

// ---- Common to both routines

// The data of the model and the room of its fits, all in one scratch area.
struct AutoRoom {
  FitRoom data;     // moments of the used rows as they are
  FitRoom fit;      // the fit of the transformed rows
  ColumnList raw;   // all kept rows
  ColumnList used;  // without those that DROP leaves out
  FitData rows;     // transformed: the columns of the model in `star`
  std::span<double> star;
  std::span<const double*> star_column;
  std::span<double> e;  // residuals of the equation, every kept row
  std::span<double> u;  // residuals of the transformed rows
  std::int64_t N() const { return used.rows; }
};

// Words of AutoRoom, with `extra` more transformed columns.
std::int64_t auto_words(std::int64_t n, int lost, int extra);
// Shares the room, loads the columns, takes the moments of the used rows; a singular model or
// values that can't be fitted end here. False after an error.
bool load_auto(Workspace ws, Scratch& scratch, int lost, int extra, AutoRoom& room);
// A fit of the transformed rows, with the restrictions: coefficients, covariance, FCOM.SSE, u.
bool fit_rows(Workspace ws, AutoRoom& room);
// False for columns with squares out of range; `all` or the dependent variable alone.
bool auto_range(Workspace ws, const AutoRoom& room, bool all);

// True when the residuals e are nothing but rounding of y: a perfect fit has no autocorrelation.
bool only_rounding(const AutoRoom& room);

// -(N/2) ln(2 pi SSE/N) - N/2 + jacobian; 0 for a perfect fit.
double auto_likelihood(double N, double SSE, double jacobian);
// RHO as an iteration may use it: one that leaves (-1, 1) is told once and, when the first rows
// are kept, brought back.
double stable_rho(double r, bool& told);
void warn_unstable(bool& told);

// ---- auto_out.cpp

struct AutoResult {
  std::span<const double> r, m;      // coefficients of the errors
  std::span<const double> variance;  // of r, then of m; 0: none
  double jacobian = 0.0;             // log of the Jacobian of the rows
  std::span<const double> before{};  // PREPER: u(0), u(-1), ..
  // DLAG, unscaled: what the estimated RHO adds to the variance of the first coefficient, and the
  // covariance of the two.
  double lag_variance = 0.0, lag_covariance = 0.0;
};
void print_auto_header(Workspace ws, std::int64_t N, bool gauss_newton, std::span<const Gap> gaps);
// PITER: the heading, and the lines of first and of higher order.
void print_auto_heading(bool higher);
void print_auto_iteration(int iteration, double r, double L);
void print_auto_iteration(int iteration, std::span<const double> coefficients);
void print_auto_rho(const AutoResult& result, double N);
// Dhrymes (1971): the covariance of b when RHO is estimated with it. cross: K sums of x*(t)e(t-1);
// square: sum of e(t-1)^2; work: K words. Changes room.fit.cov. False after an error.
bool adjust_dhrymes(std::span<const double> cross, double square, std::span<double> work,
                    AutoRoom& room, AutoResult& result);
bool dhrymes_failed();  // the error; false
void print_dhrymes(const AutoResult& result, double b1);
// Sets the areas of the results stage and calls it; stores the results and keeps the estimate.
void finish_auto(Workspace ws, AutoRoom& room, const ResultProfile& profile,
                 const AutoResult& result);

}  // namespace korvel
