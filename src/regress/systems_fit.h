// The arithmetic of equation systems: everything from one matrix of moments.
//
// A system has M equations y_i = X_i b_i + u_i with K coefficients in all. The moments of its data
// columns are summed once; single equations, residual covariances, the stacked normal equations and
// all further rounds are then quadratic forms of them. Columns are shifted to their means where a
// constant makes up for it, and scaled to length 1, so that the forms keep their digits.
// Autoregressive errors change the columns of an equation from z(t) to z(t) - r z(t-1): the moments
// of such columns are sums of four elements of the matrix, which then also holds the columns one
// row back. Zellner (1962), Zellner and Theil (1962), Parks (1967), Brundy and Jorgenson (1971).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "regress/tests.h"

namespace korvel {

// The equations and their data columns. Grows to the largest system of the run and stays.
struct SystemModel {
  int M = 0;                            // equations
  bool constant = true;                 // each has a constant, as its last coefficient
  bool instruments = false;             // estimated with exogenous variables
  std::vector<ListItem> list;           // regressors, equation after equation
  std::vector<SavedEquation> equation;  // M
  std::vector<ListItem> exogs;          // as listed, without a constant
  std::vector<ListItem> column;         // the different data columns, the constant last
  // Places in `column`, from 0.
  std::vector<int> regressor;    // of each coefficient
  std::vector<int> dependent;    // of each equation
  std::vector<int> instrument;   // different exogenous variables, the constant last
  std::vector<int> equation_of;  // of each coefficient: its equation, from 0

  int K() const { return static_cast<int>(list.size()); }
  int P() const { return static_cast<int>(column.size()); }
  int L() const { return instruments ? static_cast<int>(instrument.size()) : 0; }
  int constant_column() const { return P() - 1; }
};

// Moments of the P columns, and with `lagged` of the same one row back behind them; rows then begin
// with the second one, and the first row stands in `first` while it is kept.
struct SystemMoments {
  bool lagged = false;
  double rows = 0.0;               // rows that equations have, the first one included
  std::span<double> base;          // packed: shifted and scaled
  std::span<double> first;         // P, shifted and scaled; empty: dropped or not lagged
  std::span<double> shift, scale;  // P: the moments are those of (z - shift) scale
};

// One estimation of a system. The spans are laid into the caller's work space; nothing prints.
// Coefficients, residual moments and covariances are in the user's units.
class SystemFit {
 public:
  static std::int64_t words(const SystemModel& model);
  SystemFit(const SystemModel& model, const SystemMoments& moments, std::span<double> work);

  // Forms the moments of the equations' columns under the present rho; with instruments the inverse
  // of their matrix and the projections on them. IFAULT as of the Cholesky family: an instrument.
  int form();
  // One equation by itself (least squares, two-stage least squares), i from 0. IFAULT: the
  // regressor.
  int single(int i);
  // Moments E of the residuals of `coef`, packed M.
  void residuals();
  // rho of each equation from its untransformed residuals: sum e(t)e(t-1) / sum e(t-1)^2.
  void estimate_rho();
  // Sigma from E: /N with `by_rows`, else sqrt((N-K_i)(N-K_j)); `diagonal` drops the rest.
  void make_sigma(bool by_rows, bool diagonal);
  // Its inverse. IFAULT: the equation whose residuals depend on those above.
  int invert_sigma();
  // The stacked equations: coef and cov. IFAULT: a coefficient.
  int solve();
  // Instruments from the reduced form of `coef` in place of projections, for the next solve().
  // False: the coefficients have no reduced form; the projections stay.
  bool reduced_form(std::span<double> work);
  static std::int64_t reduced_form_words(const SystemModel& model);

  // The inverse of Z'Z, and the matrix of the stacked equations, in the user's units; packed.
  void instrument_inverse(std::span<double> out) const;
  void stacked_matrix(std::span<double> out) const;

  double N() const { return moments_.rows; }
  double condition = 1.0;                     // largest growth of an error of the moments, squared
  std::span<double> coef, cov;                // K, packed K
  std::span<double> E, sigma, sigma_inverse;  // packed M
  std::span<double> rho;                      // M

 private:
  double slot_moment(int a, int b) const;
  double unit(int column) const { return moments_.scale[static_cast<std::size_t>(column)]; }
  double shift(int column) const { return moments_.shift[static_cast<std::size_t>(column)]; }
  double weight(int i, int k) const;  // of coefficient k in units of the moments
  double level(int i) const;          // the constant of the shifted columns, in the user's units
  double quadratic(int i, int j) const;
  void take_solution(std::span<const double> b, std::span<const double> C, int first, int K);
  void unshift(std::span<double> V) const;

  const SystemModel& model_;
  const SystemMoments& moments_;
  int S_;  // slots: coefficients, dependent variables, instruments
  bool by_reduced_form_ = false;
  std::span<double> G_;        // packed S: moments of the slots
  std::span<double> H_;        // packed K+M: of their projections; without instruments those of G
  std::span<double> A_;        // L x (K+M) by columns: L^-1 Z'x
  std::span<double> ZZ_;       // packed L: factor of Z'Z
  std::span<double> W_;        // L x K by columns: weights of the reduced-form instruments
  std::span<double> xwx_, b_;  // packed K, K
  std::span<double> work_;     // packed K and K words
  std::span<double> dense_;    // K x K and the work space of its inverse (reduced form)
};

// x := L^-1 x and x := L'^-1 x for a packed factor of order n with reciprocals on its diagonal.
void solve_lower(std::span<const double> L, int n, double* x);
void solve_upper(std::span<const double> L, int n, double* x);

// Logarithm of the determinant of a packed positive matrix of order n; IFAULT when it has none.
// work: packed n and n words.
struct LogDeterminant {
  double value = 0.0;
  int IFAULT = 0;
};
LogDeterminant log_determinant(std::span<const double> a, int n, std::span<double> work);

}  // namespace korvel
