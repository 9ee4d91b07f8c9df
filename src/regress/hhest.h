// METHOD=HH of OLS: Householder least squares, and the exact tests for autocorrelation of its
// residuals that DWPVALUE and PLUSH ask for.
#pragma once

#include <cstdint>
#include <span>

#include "expr/kernels/householder.h"
#include "regress/ols_parts.h"

namespace korvel {

// Work space of the path, laid into the room of the fit's kernels.
struct HouseholderWork {
  HouseholderMatrix x;              // the K regressors, then their decomposition
  double* y = nullptr;              // one word a row
  std::span<double> squares;        // NF: sums of squares of the columns
  std::span<double> norms;          // 3 K, of the decomposition
  std::span<double> Qty;            // K
  std::span<double> b;              // K: coefficients in the order of the pivots
  std::span<double> scale;          // NF: scales of the columns in that order
  std::span<int> order;             // K: column (from 0) of the model at each place
  std::span<const double*> column;  // NF: the columns in that order
  std::span<double> rest;           // refinement, tests
};
std::int64_t HHEST_words(int NF, std::int64_t rows);
HouseholderWork share_householder(std::span<double> work, int NF, std::int64_t rows);

// A fit of that many words that has no room: names the method; what is wanted follows from NOCORE.
void tell_householder_space(std::int64_t words);

// Options that only the exact tests read: a warning when they were given and the tests are not run.
void warn_unused_tests();

// Which test was asked for, line by line.
void HHCON();

// Copies the columns times the roots of the weights (and x.scale); sums their squares.
void load_householder(const ColumnList& x, HouseholderWork& work);
// Means and sums of squares about them of the columns just loaded.
void householder_moments(HouseholderWork& work, std::span<double> means, std::span<double> squares);

// The fit of the loaded columns: coef and cov of the room, FCOM.SSE; prints what DUMP shows.
// Returns 0, or the place (from 1) of a regressor that is a combination of the others.
int HHEST(const ColumnList& x, HouseholderWork& work, FitRoom& room);

// The tests, behind the fit; the decomposition is used up. $PVAL gets the p-value against positive
// autocorrelation.
void HHLSM(Workspace ws, const FitData& data, const FitRoom& room, HouseholderWork& work);

}  // namespace korvel
