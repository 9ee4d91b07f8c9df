// Nonlinear sums of squares: Levenberg-Marquardt steps by QR, and variable projection for
// coefficients that enter linearly.
//
// More (1978), Nielsen (1999); Golub and Pereyra (1973), Kaufman (1975). No normal equations: each
// step solves the stacked matrix [J/D; sqrt(mu) I] by Householder QR.
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// The residuals u(b) of n rows and J = du/db.
class ResidualModel {
 public:
  // J: n x K by columns with leading dimension n, or empty when only u is wanted. False: no value
  // at this point; it is then not taken.
  virtual bool evaluate(std::span<const double> b, std::span<double> u, std::span<double> J) = 0;

 protected:
  ~ResidualModel() = default;
};

struct SquaresFit {
  double SSE = 0.0;
  int steps = 0;
  bool converged = false;
  bool good = false;     // SSE is a number
  bool stopped = false;  // by the user
};

// Words of work space for n rows and K coefficients.
std::int64_t least_squares_words(std::int64_t n, int K);

// From b to the minimum, at most 400 steps.
SquaresFit levenberg_marquardt(ResidualModel& model, std::int64_t n, std::span<double> b,
                               std::span<double> work);
// The same with the coefficients marked in `linear` solved exactly at each step, followed by full
// steps. linear: one mark a coefficient; at least one of them, and one that is not marked.
SquaresFit variable_projection(ResidualModel& model, std::int64_t n, std::span<double> b,
                               std::span<const bool> linear, std::span<double> work);

}  // namespace korvel
