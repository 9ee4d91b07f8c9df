// Inner loops of the likelihoods. One set for each vector width; likelihood_lanes() is the one for
// this machine. Arrays of a block have room for a multiple of 8 rows; the rows behind the last one
// have weight 0 and zeros in their columns.
#pragma once

#include <cstddef>

namespace korvel {

// One block as the loops of a model take it: `rows` is a multiple of 8.
struct RowTerms {
  const double* z;    // index
  const double* y;    // 0 or 1
  const double* w;    // weight, 0 or more
  double* gradient;   // out: w d log P / dz
  double* curvature;  // out: -w d2 log P / dz2
  std::ptrdiff_t rows;
  double low, share;  // P(y=1) = low + share F(z)
  double side;        // tobit: 1 censored below, -1 above
};

// Sums of a block, and its extremes over the rows of positive weight.
struct RowSums {
  double LLF = 0.0;     // sum of w log P(y)
  double worst = 0.0;   // largest 1 - P(y)
  double lowest = 0.0;  // lowest index, 0 when none is below
};

using TermLoop = void (*)(const RowTerms&, RowSums&);

// What is to be known of a column before the fit. Extremes by group leave out rows of weight 0.
struct ColumnSurvey {
  double sum = 0.0;  // of w x
  double low = 0.0, high = 0.0;
  double low_at_zero = 0.0, high_at_zero = 0.0;  // where y is 0
  double low_at_one = 0.0, high_at_one = 0.0;    // elsewhere
  bool dummy = true;                             // holds only 0 and 1
  bool finite = true;
};

struct LikelihoodLanes {
  // to := (x - shift) scale for n values, then zeros up to a multiple of 8; x null: ones.
  void (*load)(const double* x, double shift, double scale, std::ptrdiff_t n, double* to);
  // z := sum of b_k a_k over columns that stand ld apart.
  void (*index)(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows,
                const double* b, double* z);
  TermLoop probit, logit, tobit;
  TermLoop linear;  // gradient w (y - low - z), curvature w: least squares from 0
  TermLoop group;   // curvature w where y = side, gradient w elsewhere
  // z: indexes of the choices 1..others, ld apart; they become probabilities, P0 that of choice 0.
  void (*choices)(double* z, int others, std::ptrdiff_t ld, const RowTerms& in, double* P0,
                  RowSums& out);
  // to := w (1(y=choice) - P); to := w P (1 - P) or -w P Q when Q is another one.
  void (*choice_gradient)(const RowTerms& in, const double* P, double choice, double* to);
  void (*choice_curvature)(const RowTerms& in, const double* P, const double* Q, double* to);
  // out[k] += sum of v a_k; packed out += sum of v a_i a_j (scaled: ld words of work space).
  void (*dots)(const double* v, const double* a, int columns, std::ptrdiff_t ld,
               std::ptrdiff_t rows, double* out);
  void (*cross)(const double* v, const double* a, int columns, std::ptrdiff_t ld,
                std::ptrdiff_t rows, double* scaled, double* out);
  // P(y=1), P(y=0) and the derivative of P(y=1) at in.z.
  void (*fitted_probit)(const RowTerms& in, double* P, double* Q, double* f);
  void (*fitted_logit)(const RowTerms& in, double* P, double* Q, double* f);
  // Normal distribution function and density at in.z.
  void (*normal)(const RowTerms& in, double* below, double* density);
  // Adds n values to the survey, which starts with the extremes of an empty set.
  void (*survey)(const double* x, const double* y, const double* w, std::ptrdiff_t n,
                 ColumnSurvey& out);
};

const LikelihoodLanes& likelihood_lanes();

}  // namespace korvel
