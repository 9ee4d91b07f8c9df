// Pieces of the MLE command that lie in files of their own.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/options.h"
#include "engine/workspace.h"
#include "nonlinear/minimise.h"
#include "nonlinear/nlmle_families.h"
#include "nonlinear/nlmle_stable.h"
#include "regress/regress.h"

namespace korvel {

// The data of a likelihood, kept rows only. Coefficients: K of the index, K of the second index
// where the family has one, then the shapes.
struct MleRows {
  std::span<const double* const> column;  // K; null: ones
  // Units of the iteration: column k counts as (x - shift) scale. `constant`: the column of ones,
  // -1 none.
  std::span<const double> shift, scale;
  int constant = -1;
  const double* y = nullptr;
  const double* log_y = nullptr;     // log y, for counts log y!
  const double* log_rest = nullptr;  // log(1-y) of proportions
  const double* weight = nullptr;    // null: 1
  double weight_factor = 1.0;
  std::int64_t rows = 0;
  int K() const { return static_cast<int>(column.size()); }
  double weight_at(std::size_t t) const {
    return weight == nullptr ? 1.0 : weight[t] * weight_factor;
  }
};
inline int mle_coefficients(const MleFamily& family, int K) {
  return K * (family.both ? 2 : 1) + family.shapes;
}

// Minus the log-likelihood with its gradient, a pass over the rows in blocks. Sections depend on
// the number of rows alone and are joined in order. Coefficients are those of the columns in the
// units of the iteration.
class MleLikelihood final : public Objective {
 public:
  static std::int64_t words(const MleFamily& family, int K, std::int64_t rows);
  MleLikelihood(const MleFamily& family, const MleRows& rows, std::span<double> work);
  Value evaluate(std::span<const double> b, std::span<double> gradient) override;
  bool breaks_off = false;  // a stop by the user ends an evaluation between sections of the rows
  // packed := sum of w g g', g the gradient of one row's log density. False: no value at b,
  // or the family has no derivatives of its own.
  bool outer_product(std::span<const double> b, std::span<double> product);
  double shown(std::span<const double> b, std::size_t i) const override;
  double shown_slope(std::span<const double> g, std::size_t i) const override;

 private:
  bool settle_stable(std::span<const double> b);
  const MleFamily& family_;
  const MleRows& rows_;
  std::span<double> work_;
  std::span<double> table_;  // of the stable density
  StableDensity stable_;
};

// One estimation. All spans lie in one scratch area. M coefficients.
struct MleModel {
  const MleFamily* family = nullptr;
  MleRows rows;
  std::span<const ListItem> list;      // K regressors, dependent variable
  std::span<double> b;                 // M
  std::span<double> scaled, gradient;  // M: b and the gradient in the units of the iteration
  std::span<double> cov;               // packed M
  std::span<double> shift, scale;      // K: what the rows show of them
  std::span<double> means, squares;    // M+1: of the columns, 0 beyond K; the last of y
  std::span<double> log_y, log_rest;   // by rows, as the family needs them
  std::span<double> fitted, residual;  // by rows
  std::span<double> work;              // of start, likelihood and minimisers
  std::span<double> likelihood_work;
  double N = 0.0;  // rows, or the sum of weights that are replications
  double LLF = 0.0;
  int K() const { return rows.K(); }
  int M() const { return static_cast<int>(b.size()); }
  std::span<const double> shape() const { return b.last(static_cast<std::size_t>(family->shapes)); }
};
// Indexes of one row.
struct MleIndexes {
  double z, z2;
};
MleIndexes mle_indexes(const MleModel& m, std::size_t t);

inline constexpr int ERR_MLE_SEARCH = 52025, ERR_MLE_COVARIANCE = 52026;

// ---- nlmle_start.cpp

std::int64_t mle_start_words(int K, std::int64_t rows);
// Checks the range of y, fills log_y and log_rest. False after an error.
bool settle_dependent(Workspace ws, MleModel& m);
// Weighted means and sums of squares of all columns.
void settle_moments(MleModel& m);
// Start values in b. False after an error.
bool mle_start(Workspace ws, MleModel& m);

// ---- nlmle_units.cpp

// Chooses shift and scale of the columns.
void settle_units(MleModel& m);
// Coefficients of the columns as they are, and back.
void mle_from_units(const MleFamily& family, const MleRows& rows, std::span<const double> scaled,
                    std::span<double> b);
void mle_to_units(const MleFamily& family, const MleRows& rows, std::span<const double> b,
                  std::span<double> scaled);
// Packed M, in place: the covariance, and second derivatives, of the columns as they are.
void mle_covariance_from_units(const MleFamily& family, const MleRows& rows, std::span<double> cov);
void mle_derivatives_from_units(const MleFamily& family, const MleRows& rows,
                                std::span<double> second);

// ---- nlmle_covariance.cpp: both in the units of the iteration

// C from the second derivatives at the solution or, with OPGCOV, from the outer product. False when
// the matrix has no inverse; the other form stands in then, or zeros.
bool mle_covariance(MleModel& m, MleLikelihood& likelihood);
// The stable law has its normal and its heavy end: a likelihood that grows up to one of them has no
// maximum inside. The stability is then held there and the rest estimated under it. False: it is
// inside.
bool stability_at_bound(MleModel& m, MleLikelihood& likelihood, Minimum& minimum);

// ---- nlmle_tables.cpp

// Coefficient i (from 0): the name under which tables and TEST know it.
std::string_view mle_name(Workspace ws, const MleModel& m, int i);
void tell_shapes(Workspace ws, const MleModel& m);
// Fitted means and residuals, FCOM; then the tables, those of LM included, and the stored results.
void mle_results(Workspace ws, MleModel& m);

// ---- nlmle_tests.cpp

// A packed lower triangle times `factor`, nine numbers a line.
void print_mle_triangle(std::span<const double> a, int order, double factor);
void print_poisson(const MleModel& m);
void print_beta(Workspace ws, const MleModel& m);
// LM and WALD lines of the families that contain this one or that it contains.
void mle_tests(Workspace ws, MleModel& m);

}  // namespace korvel
