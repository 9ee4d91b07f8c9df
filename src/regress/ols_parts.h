// Pieces of OLSEST, OLSOUT and OLSRES that lie in files of their own.
#pragma once

#include <array>
#include <span>

#include "data/results.h"
#include "expr/kernels/columns.h"
#include "regress/regress.h"

namespace korvel {

class Line;

// olslist.cpp: turns the listed variables into the model list. Returns the largest lag, -1 after an
// error. The weight comes last.
int collect_variables(Workspace ws);
void add_weight(int var);

// Columns and work space of one fit; all spans lie in one scratch area.
struct FitRoom {
  std::span<double> coef, means, squares;       // K, NF, NF
  std::span<double> scale;                      // NF: scales of data beyond the range of squares
  std::span<double> factor, cov, cross, spare;  // packed NF, K, NF, NF
  std::span<double> work;                       // of the kernels
  std::span<double> copies, built;              // columns without skipped rows; made columns
  std::span<double> weight, root, residual, observed, hat;  // by rows
  std::span<double> powers;                                 // of Build::Pilags
  std::span<double> row;                                    // 2 NF
  std::span<const double*> column;                          // every loaded column
};

// The data as the fits read them.
struct FitData {
  ColumnList raw;         // regressors, constant, dependent variable
  ColumnList x;           // the same times the roots of the weights
  std::int64_t rows = 0;  // rows in use
  bool again = false;     // a further fit of the same variables: no moments, no warnings
  // Rows in place, read by the sweep of METHOD=NORMAL alone.
  bool in_place = false;
  const double* weight = nullptr;  // in place
  std::span<const double> skip{};  // marks of the rows of MBEG..MEND
};

// olsbuild.cpp: makes the columns of Build::Imls, Dlrx and Pilags from n observations of the
// loaded ones; `column` then points to them. weight: one word an observation from MBEG-NDROP on.
void build_rows(Workspace ws, std::span<const ListItem> list, std::int64_t n,
                std::span<double> weight, std::span<double> to, std::span<const double*> column);
// Means of the real parts, sums of squares about the complex mean. Returns the raw sum of the last
// column.
double complex_moments(const ColumnList& x, std::span<double> means, std::span<double> squares);

// olsest.cpp: the rows as a fit reads them (DUMP).
void dump_matrix(const ColumnList& x);

// olsweigh.cpp: moments under the weights, FCOM.SWT, ZZ and XMAXL, and the root of every weight.
// The weights are scaled in `weight` (a copy). means and squares get all columns of x.
void WEIGHTS(Workspace ws, const ColumnList& x, std::span<double> weight, std::span<double> root,
             std::span<double> means, std::span<double> squares);
// The same for weights in place, without moments. Returns what they are to be divided by.
double weights_in_place(Workspace ws, const double* weight);
// The sum of the weights of rows `first` and on, in variable var: all of them finite, none
// negative. 0 after an error (reported), also when the sum is not positive.
double usable_weights(Workspace ws, std::span<const double> weight, int var,
                      std::int64_t first = 0);

// olsfit.cpp: the method branch. Sets coef, cov, means, squares and FCOM.SSE; a stepwise choice
// shortens list and columns (OLSCOM.NF). False after a failure that has been reported.
bool refuse_values(Workspace ws, int var);  // false: the variable holds NaN or infinite values
bool refuse_size(Workspace ws, int var);    // false: its squares leave the range of reals
std::int64_t fit_words(int NF, std::int64_t rows);
bool fit_model(Workspace ws, FitData& data, FitRoom& room);
// INCOVARI=: the user's covariance matrix in place of the fit's, as it stands.
bool take_covariance(Workspace ws, std::span<double> cov, int K);

// stepwise.cpp: chooses regressors on the moment matrix (packed NF, destroyed). `chosen` gets the
// places (from 0) of the columns of the model that is left, the dependent variable last; start is
// work space; both NF words. Returns their number, 0 after a failure that has been reported.
int STEPWISE(Workspace ws, std::span<double> moments, std::span<double> start,
             std::span<double> chosen);

// recursive.cpp: prints the coefficients of the first K+1, K+2, ... rows. False after a failure
// that has been reported.
bool print_recursive(Workspace ws, const FitData& data, FitRoom& room);
// A row of such a listing: the coefficients with the observations up to obs.
void print_coefficient_row(int obs, std::span<const double> b);

// olslags.cpp
void test_restrictions(double SSE_free, int K);
void print_lag_tests(Workspace ws, const Estimate& est);

// olspc.cpp: coefficients of the variables behind principal components.
// Their number is 0 without PCINFORM=.
struct ComponentVariable {
  double b = 0.0, se = 0.0;
};
int component_variables(Workspace ws);
ComponentVariable component_variable(Workspace ws, const Estimate& est, int row);
bool check_component_weights(Workspace ws);  // after a failure that has been reported: false
void print_component_variables(Workspace ws, const Estimate& est);

// yhats.cpp: C := C S C with S from the residuals e = y - Xb (White 1980; Newey and West 1987).
std::int64_t YHATS_words(int K, std::int64_t rows, int lags);
void YHATS(const ColumnList& x, std::span<const double> e, bool counted, int lags,
           std::span<double> cov, std::span<double> work);

// olsinflu.cpp: the listing of influence statistics; hat gets the diagonal of the hat matrix.
void INFLUE(Workspace ws, const Estimate& est, const ColumnList& x, std::span<const double> factor,
            std::span<double> hat, std::span<double> row);

// olsout_anova.cpp
void print_model_selection(int K, double SSE, double sigma2);
// coefficients: those that count, less the restrictions.
void print_anova(const Estimate& est, int coefficients, double SSE, double sigma2, double raw_sum);

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
// Its pieces, for forecasts. `probabilities` adds the legend of their plot to a wide heading.
void print_listing_heading(std::string_view residual, bool probabilities = false);
void put_identifier(Line& row, double value);
// `columns` columns (at most 60): blank, or with I in the middle, * at the residual e, X at an edge
// that it passes. One sigma is a sixth of the width.
struct ListingStrip {
  std::array<char, 60> text;
  int width;
  explicit ListingStrip(int columns);
  ListingStrip(double e, double sigma, int columns);
  std::string_view view() const { return {text.data(), static_cast<std::size_t>(width)}; }
};

// olsres_normal.cpp
void test_normality(const Estimate& est, const ResidualSums& sums);
void test_hall_pagan(const Estimate& est, const ResidualSums& sums);

// olsres_plot.cpp: the data file and the command file of the residual plots.
void write_residual_plots(Workspace ws, const Estimate& est);

// olsstore.cpp: the variables of RESID=, PREDICT=, HATDIAG=, TRATIO=, STDERR=, COEF= and COVARIAN=.
void store_results(Workspace ws, const Estimate& est, std::span<const double> hat);

}  // namespace korvel
