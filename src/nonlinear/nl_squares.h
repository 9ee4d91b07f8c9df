// The sum of squares of one equation, summed up block by block while the rows are evaluated:
// nothing of the length of the data is written. Sections of the rows have sums and triangles of
// their own, joined in order, so the bytes don't depend on the number of threads.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "nonlinear/damped_steps.h"
#include "nonlinear/nl_parts.h"

namespace korvel {

// One equation, analytic derivatives, no autoregressive part: what follows can be used.
bool streams(const NlModel& m);
std::int64_t stream_words(const NlModel& m);  // behind carve_pass: m.stream

// SSE at b and, unless it is empty, half of its gradient.
double stream_squares(NlModel& m, std::span<const double> b, std::span<double> gradient,
                      FaultListener listener = {});

// sum of v D_k over the rows at b, v a word a row: products[k].
void stream_products(NlModel& m, std::span<const double> b, std::span<const double> v,
                     std::span<double> products);

// The sum of squares as the least squares steps want it: of all coefficients, or of those that do
// not enter linearly, the others solved exactly at each point (variable projection).
class NlSquares final : public SquaresProblem {
 public:
  // Empty `linear`: none is solved apart.
  NlSquares(NlModel& m, std::span<const char> linear);
  bool evaluate(std::span<const double> a, std::span<double> R, double& SSE) override;
  bool enough(std::span<const double> a) override;
  // All coefficients: those of `a`, and the linear ones of the last evaluation.
  void place(std::span<const double> a, std::span<double> b) const;
  // The coefficients of the steps among all.
  void pick(std::span<const double> b, std::span<double> a) const;
  int free_ones() const { return m_.K - q_; }
  // This minimum is known: a search that comes near it may end.
  void known(std::span<const double> b) { known_ = b; }
  bool arrived() const { return arrived_; }

 private:
  bool triangle(std::span<const double> b, int columns, std::span<double> R, double& SSE);

  NlModel& m_;
  std::vector<std::int32_t> order_;  // coefficients, the linear ones first
  std::vector<double> b_, c_, whole_;
  std::span<const double> known_;
  int q_ = 0;  // linear coefficients
  bool arrived_ = false;
};

}  // namespace korvel
