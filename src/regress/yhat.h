// YHAT: predictions row by row, from the coefficients of a linear index.
//
// The index may hold lags of the dependent variable and have autocorrelated errors; behind the
// estimate forecasts can take the place of values and errors that are not known yet. With a
// covariance matrix the variance of every forecast comes along (delta method).
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// What an index z says of the dependent variable.
enum class LinkKind : std::uint8_t { identity, box, probit, logit, tobit };
struct Link {
  LinkKind kind = LinkKind::identity;
  double lambda = 0.0;             // box
  double low = 0.0, share = 1.0;   // probit, logit: low + share F(z)
  double limit = 0.0, side = 1.0;  // tobit
  double h = 1.0;                  // tobit: 1/sigma
  struct Value {
    double mean = 0.0;
    double slope = 1.0;  // of the mean by z
    double by_h = 0.0;   // tobit: of the mean by h
    bool defined = true;
  };
  Value at(double z) const;
};

// d'C d for a packed C.
double packed_form(std::span<const double> C, std::span<const double> d);

struct YhatModel {
  std::span<const double> b;  // K
  std::span<const int> lag;   // K: observations that the regressor lies behind the dependent
                              // variable, 0 another variable; empty: none is looked for
  std::span<const double> rho, theta;  // of the errors; empty: they don't enter
  std::span<const double> shift;       // one a row, added to the index; empty: none
  Link link;
  bool fitted_start = false;  // the first rho.size() rows are the first of the estimate, which kept
                              // them: their errors are those of the transformed rows
  // First order only: rows are as far apart as their observations; with gap_obs above 0 only that
  // observation lies gap_steps behind the row before it. Up to fitted_end rows behind a gap show
  // the fitted value of the estimate, whose error has the variance of all others.
  bool gaps = false;
  int gap_obs = 0;
  double gap_steps = 1.0;
  int fitted_end = 0;
  bool iterate = false;  // behind ESTEND errors are forecast, not taken from the data
  bool dynamic = false;  // behind ESTEND lags of the dependent variable are forecasts
  int ESTEND = 0;
  int first_u = 0;                 // disturbances of observations before it count as 0, but for
  std::span<const double> before;  // these, the last one first
  std::int64_t section = 0;        // rows of a cross-section: errors don't pass on; 0: one section
  double XMISS = -99999.0;         // missing code of regressors
};

// Variances: sigma2 times the squared weights of the disturbances that a forecast doesn't know, and
// d'Cd for the derivatives d of the forecast by the coefficients.
struct YhatVariance {
  std::span<const double> C;  // packed K (tobit K+1); empty: none
  double sigma2 = 0.0;        // 0: the variance of the mean alone
  double rho_rows = 0.0;      // above 0: rho was estimated from so many rows (first order only)
};

struct YhatResult {
  int IFAULT = 0;          // 1: no value for that row (box); 2: stopped by the user
  std::int64_t row = 0;    // of the fault
  std::int64_t whole = 0;  // first row whose errors before are all there
};

// n rows. x: K columns, null for a column of ones; obs: observation numbers, rising; y: NaN where
// not known. A row with a missing regressor gets NaN. Sets yhat, index and, unless empty, variance.
// work: YHAT_words.
std::int64_t YHAT_words(int K, std::int64_t rows, const YhatModel& model, bool variance);
YhatResult YHAT(std::span<const double* const> x, std::span<const double> obs,
                std::span<const double> y, const YhatModel& model, const YhatVariance& variance,
                std::span<double> yhat, std::span<double> index, std::span<double> var,
                std::span<double> work);

}  // namespace korvel
