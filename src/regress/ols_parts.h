// Pieces of OLSEST, OLSOUT and OLSRES that lie in files of their own.
#pragma once

#include <span>

#include "expr/kernels/columns.h"
#include "regress/regress.h"

namespace korvel {

// olsweigh.cpp: moments under the weights, FCOM.SWT, ZZ and XMAXL, and the root of every weight.
// The weights are scaled in `weight` (a copy). means and squares get all columns of x.
void WEIGHTS(Workspace ws, const ColumnList& x, std::span<double> weight, std::span<double> root,
             std::span<double> means, std::span<double> squares);

// yhats.cpp: C := C S C with S from the residuals e = y - Xb (White 1980; Newey and West 1987).
// moment has room for two packed matrices, row for 2K reals.
void YHATS(const ColumnList& x, std::span<const double> e, int lags, std::span<double> cov,
           std::span<double> moment, std::span<double> row);

// olsinflu.cpp: the listing of influence statistics; hat gets the diagonal of the hat matrix.
void INFLUE(Workspace ws, const Estimate& est, const ColumnList& x, std::span<const double> factor,
            std::span<double> hat, std::span<double> row);

// olsout_anova.cpp
void print_model_selection(int K, double SSE, double sigma2);
void print_anova(const Estimate& est, double SSE, double sigma2, double raw_sum);

// olsout_table.cpp
void print_coefficients(Workspace ws, const Estimate& est, double d0);
void print_covariance(Workspace ws, const Estimate& est);
void print_correlation(Workspace ws, const Estimate& est);

// Standard error and t-ratio of coefficient i (from 0); 1E18 stands for b/0.
double standard_error(const Estimate& est, int i);
double t_ratio(double b, double se);

// Sums over the kept rows, made by OLSRES.
struct ResidualSums {
  double n = 0;  // n': rows as the statistics count them
  double e = 0, e2 = 0, e3 = 0, e4 = 0, absolute = 0;
  double cross = 0, change2 = 0, last2 = 0;  // e(t)e(t-1), (e(t)-e(t-1))^2, e(T)^2
  int positive = 0, negative = 0, zero = 0, runs = 1;
  int cell[60] = {};  // residuals by tenths of sigma
};

// olsres_list.cpp
void print_listing(Workspace ws, const Estimate& est);

// olsres_normal.cpp
void test_normality(const Estimate& est, const ResidualSums& sums);
void test_hall_pagan(const Estimate& est, const ResidualSums& sums);

// olsstore.cpp: the variables of RESID=, PREDICT=, HATDIAG=, TRATIO=, STDERR=, COEF= and COVARIAN=.
void store_results(Workspace ws, const Estimate& est, std::span<const double> hat);

}  // namespace korvel
