// Kernels of the tests behind a least-squares estimate (DIAGNOSE). They print nothing and touch no
// shared area.
//
//   diagnos_basis.cpp      orthonormal columns, added regressors, auxiliary regressions
//   diagnos_stats.cpp      correlogram, normality, stability of coefficients
//   diagnos_recursive.cpp  recursive residuals, sums of squares of split samples, their bounds
//   diagnos_resample.cpp   fits without one row, fits to drawn residuals
// The commands' side, in diagnos_parts.h: diagnos.cpp FDIAG, the model and the order of the tests;
// diagnos_tables.cpp, diagnos_added.cpp, diagnos_passes.cpp and diagnos_samples.cpp the tables.
#pragma once

#include <cmath>
#include <cstdint>
#include <span>

#include "expr/kernels/recursive.h"

namespace korvel {

// Share of its length that an added column must keep beside the columns before it. Rounding leaves
// up to some 1e-14 of an exact combination of standardised columns; the square of a trend over a
// million rows keeps 1e-1 once it is centred.
inline constexpr double ADDED_DEPENDENT = 1e-10;
// Relative spread below which values that come from sums count as equal.
inline constexpr double NO_SPREAD = 1e-13;
// What ADDED_DEPENDENT is for the columns of a model that has been estimated already.
inline constexpr double MODEL_DEPENDENT = 1e-15;

// Orthonormal columns, grown one at a time by Gram-Schmidt taken twice over (Giraud, Langou and
// Rozloznik 2005: twice is enough), so that they are orthogonal to rounding whatever the condition
// of the columns they come from.
class Basis {
 public:
  Basis() = default;
  // room: `rows` words for each column that there will be.
  Basis(std::span<double> room, std::int64_t rows)
      : room_(room), rows_(static_cast<std::size_t>(rows)) {}

  int count() const { return count_; }
  std::int64_t rows() const { return static_cast<std::int64_t>(rows_); }
  std::span<const double> column(int j) const {
    return room_.subspan(static_cast<std::size_t>(j) * rows_, rows_);
  }
  // Where the next column is to be put before accept(); a refused one may be overwritten.
  std::span<double> next() const {
    return room_.subspan(static_cast<std::size_t>(count_) * rows_, rows_);
  }
  // All room behind the columns.
  std::span<double> rest() const { return room_.subspan(static_cast<std::size_t>(count_) * rows_); }
  // False, and the basis is as before, when the column keeps no more than the share `dependent` of
  // its length or is not finite. r (count()+1 words, may be empty) gets what was taken off along
  // each column before it and, last, the length that is left: the new column of R in X = Q R.
  bool accept(double dependent, std::span<double> r = {});
  void cut(int count) { count_ = count; }
  void adopt(const Basis& other);  // its columns as the first ones; they have the same rows
  double dot(int j, std::span<const double> v) const;
  // v := v - Q Q'v over the columns from `first` on, twice.
  void take_off(std::span<double> v, int first = 0) const;

 private:
  std::span<double> room_;
  std::size_t rows_ = 0;
  int count_ = 0;
};

// A fitted model. Rows of weight zero are left out, the others stand multiplied by the root of
// their weight. The constant, when there is one, is column 0; columns are multiplied by powers of
// two that bring them near 1, so that no square leaves the range of reals.
struct DiagnosModel {
  std::int64_t N = 0;
  int K = 0;
  bool constant = false;          // column 0 is the constant (roots of the weights if weighted)
  std::span<const double> x;      // N x K by columns
  std::span<const double> y, e;   // N: observed values and residuals
  double unit = 1.0;              // power of two that y and e were divided by
  std::span<const double> scale;  // K: what the columns were multiplied by
  Basis q;                        // orthonormal columns of x
  std::span<const double> r;      // packed K: column k of R at r[packed(k+1, 1)]..

  std::span<const double> column(int k) const {
    const auto rows = static_cast<std::size_t>(N);
    return x.subspan(static_cast<std::size_t>(k) * rows, rows);
  }
  double at(int k, std::int64_t t) const { return x[static_cast<std::size_t>(k * N + t)]; }
};

// d := R^-1 g in the units of the data, K words; may be the same words.
void solve_r(const DiagnosModel& m, std::span<const double> g, std::span<double> d);

// ---- Auxiliary regressions

// The regression of v on a basis whose first column is the constant.
struct AuxiliaryFit {
  double SSR = 0.0, SST = 0.0;  // explained and total sum of squares about the mean
  int df = 0;                   // regressors beside the constant
  bool fitted = false;          // false: too few rows, no regressors, or v does not vary
  double R2() const { return SSR / SST; }
};
AuxiliaryFit auxiliary_fit(const Basis& z, std::span<double> v);  // v is destroyed

// Columns for the basis of an auxiliary regression: the constant; the regressors of the model
// beside its constant, centred and scaled; their squares; their products. With the lower ones in
// the basis centring changes no fit, and squares lose no digits to a mean far from zero. Columns
// that depend on those before them (the square of a dummy variable) are left out.
void add_constant(Basis& z);
void add_regressors(Basis& z, const DiagnosModel& m);
void add_squares(Basis& z, const DiagnosModel& m);
void add_products(Basis& z, const DiagnosModel& m);
bool add_column(Basis& z, std::span<const double> v);

// F test of columns added to the model: q is the model's basis with the added columns behind its
// own K. u: N words of work space.
struct AddedTest {
  double F = 0.0;
  int DF1 = 0, DF2 = 0;
  bool fitted = false;
};
AddedTest added_test(const DiagnosModel& m, const Basis& q, std::span<double> u);

// ---- Correlogram, normality, stability

struct LagStatistics {
  double RHO = 0.0, LM = 0.0, DW = 0.0;
};
// Lag j < N of the residuals. LM: sign(RHO) sqrt(N R^2) of e on X and e(t-j), zeros before the
// first row (Breusch 1978; Godfrey 1978). Qe: K words Q'e.
LagStatistics lag_statistics(const DiagnosModel& m, std::span<const double> Qe, int j);

// Anderson and Darling (1954) with mean and variance estimated, in the form of Stephens (1974):
// A2 (1 + 0.75/N + 2.25/N^2). e is sorted and standardised in place.
double anderson_darling(std::span<double> e);

// Hansen (1992), "Testing for parameter instability in linear models": single gets one statistic a
// coefficient and, last, that of the variance. work: packed K+1 and 4(K+1) words. IFAULT as of the
// Cholesky family: the joint statistic has no value.
struct HansenTest {
  double joint = 0.0;
  int IFAULT = 0;
};
HansenTest hansen_test(const DiagnosModel& m, std::span<double> work, std::span<double> single);

// ---- One row after the other

// Least squares over growing samples, forward or backward. The rows enter a triangular factor by
// planar rotations; regressors are taken about the first row and the residuals of the whole fit
// stand for y, so that neither a mean far from zero nor a good fit costs digits.
class RecursivePass {
 public:
  static std::size_t words(int K);
  RecursivePass(const DiagnosModel& m, bool backward, std::span<double> work);
  std::int64_t obs() const { return backward_ ? m_.N - 1 - done_ : done_; }  // row that is next
  // Takes the next row in. A row that only raises the rank has no residual: it is 0.
  RecursiveStep step();
  // How many rows the first full rank took, 0 while the rank is short of K.
  std::int64_t full() const { return full_; }
  double SSE() const;
  // Coefficients of the rows so far less those of the whole fit, K words.
  void coefficients(std::span<double> d) const;

 private:
  RecursiveStep raise_rank();
  const DiagnosModel& m_;
  bool backward_;
  std::span<double> factor_, row_, origin_;
  std::span<double> most_;  // largest element of each column so far
  std::int64_t done_ = 0, full_ = 0;
  int rank_ = 0;
};

// Sums of squared errors of the fits to the first 1, 2, .. N rows, or to the last ones; returns
// RecursivePass::full. work: as that of a pass.
std::int64_t split_sums(const DiagnosModel& m, bool backward, std::span<double> work,
                        std::span<double> SSE);

// Significance lines, level 1, 5 or 10 percent. CUSUM (Brown, Durbin and Evans 1975): at the j-th
// of n recursive residuals a sqrt(n) + 2 a j/sqrt(n). CUSUMSQ: the half width c0 of Durbin (1969),
// approximated in m = n/2 - 1; below 0 when m < 1.
double cusum_bound(int level, double n, double j);
double cusumsq_width(int level, double n);

// ---- Resampling

// Fit without row t: d (K) gets its coefficients less those of the least-squares fit of all rows.
// Returns 1 - h(t); d has no value when that is not above NO_LEVERAGE. g: K words of work space.
inline constexpr double NO_LEVERAGE = 1e-12;
double left_out(const DiagnosModel& m, std::span<const double> Qe, std::int64_t t,
                std::span<double> g, std::span<double> d);

// Fits to residuals drawn with replacement: draws holds N uniform deviates a sample, which are
// overwritten; result gets K+1 words a sample: coefficients less those of the fit, and SSE. Samples
// are independent of one another, whatever thread takes them. g: K words a sample.
void bootstrap_fits(const DiagnosModel& m, int samples, std::span<double> draws,
                    std::span<double> g, std::span<double> result);

}  // namespace korvel
