// Maximum entropy in the linear model: y = X Z p + V w. Golan, Judge and Miller (1996), Maximum
// Entropy Econometrics, chapters 5 and 6.
//
// The weights p of the coefficients' support points and w of the errors' maximise their entropy (or
// are nearest to prior weights) subject to the data. The dual problem is free of constraints, has
// one multiplier a row, and is convex:
//     min  y'l + sum_k ln sum_m q_km exp(-z_km x_k'l) + sum_t ln sum_j u_tj exp(-v_tj l_t)
// with p and w as the normalised terms of the two sums.
//
//   gme.cpp       GME: checks, sample, data; gme_dual.cpp the function and its minimum
//   gme_out.cpp   covariance, tables, stored results
#pragma once

#include <span>

#include "nonlinear/minimise.h"
#include "regress/regress.h"

namespace korvel {

// Points of `count` distributions, or of one that all share, with their prior weights. Matrices by
// columns, one row a distribution.
struct Support {
  std::span<const double> points;
  std::span<const double> priors;  // empty: uniform
  int size = 0;                    // points of each
  int rows = 1, prior_rows = 1;    // 1: shared

  double point(std::size_t i, int m) const { return at(points, rows, i, m); }
  double prior(std::size_t i, int m) const {
    return priors.empty() ? 1.0 : at(priors, prior_rows, i, m);
  }

 private:
  static double at(std::span<const double> matrix, int rows, std::size_t i, int m) {
    const std::size_t row = rows == 1 ? 0 : i;
    return matrix[static_cast<std::size_t>(m) * static_cast<std::size_t>(rows) + row];
  }
};

struct GmeModel {
  int T = 0, K = 0;
  std::span<const double*> column;  // K regressors, then the dependent variable; T words each
  Support Z, V;
  std::span<double> lambda;                 // T
  std::span<double> gradient;               // T
  std::span<double> b, variance;            // K: coefficients, variances of their distributions
  std::span<double> p;                      // K x M by rows
  std::span<double> e, spread;              // T: errors, variances of their distributions
  double P_entropy = 0.0, W_entropy = 0.0;  // averages of the normalised entropies
  std::span<double> entropy;                // K: normalised
  bool cross = false;                       // prior weights were given

  const double* y() const { return column.back(); }
  std::string_view heading() const {
    return cross ? " GENERALIZED CROSS ENTROPY" : " GENERALIZED MAXIMUM ENTROPY";
  }
};

// The dual function. Every evaluation leaves b, p, e and their variances in the model.
class GmeDual final : public Objective {
 public:
  explicit GmeDual(GmeModel& model) : m_(model) {}
  Value evaluate(std::span<const double> lambda, std::span<double> gradient) override;

 private:
  GmeModel& m_;
};

// Newton steps to the minimum from m.lambda. The Hessian is diagonal but for K directions, so a
// step costs T K^2 operations. False when the minimum was not reached.
std::int64_t gme_newton_words(int T, int K);
bool gme_newton(GmeModel& m, GmeDual& dual, std::span<double> work);

// The entropies at the solution.
void gme_entropies(GmeModel& m);

// Covariance, tables, variables. work: gme_out_words.
std::int64_t gme_out_words(int T, int K);
void gme_results(Workspace ws, GmeModel& m, std::span<double> work);

}  // namespace korvel
