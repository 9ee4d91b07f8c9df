// Likelihood kernels: one pass over the rows gives the log-likelihood, its gradient and minus its
// second derivatives.
//
// Rows are taken in blocks that stay in the cache. Columns enter as (x - shift) scale, which the
// caller chooses so that they are near zero mean and unit size; coefficients are those of the
// columns so scaled. Long data are cut into sections by the number of rows alone, which threads
// share and which are joined in order.
#pragma once

#include <cstdint>
#include <span>

#include "limdep/likelihood_lanes.h"

namespace korvel {

struct LikelihoodRows {
  std::span<const double* const> column;  // null: ones
  std::span<const double> shift, scale;   // a column each
  const double* y = nullptr;
  const double* weight = nullptr;  // null: 1
  double weight_factor = 1.0;
  std::int64_t rows = 0;
  int columns() const { return static_cast<int>(column.size()); }
};

enum class RowKind : std::uint8_t { linear, group, probit, logit, tobit };

// The loop of a model and its parameters, as RowTerms has them.
struct RowModel {
  RowKind kind = RowKind::probit;
  double low = 0.0, share = 1.0, side = 1.0;
};

// Work space of a pass over `columns` columns for `choices` alternatives (2: one index).
std::int64_t likelihood_words(int columns, int choices, std::int64_t rows);

// b, gradient: M = columns (choices - 1), blocks of columns one after another; information: packed
// M, minus the second derivatives. The multinomial logit has choices above 2; y is then 0, 1, 2 ...
RowSums likelihood(const LikelihoodRows& rows, const RowModel& model, int choices,
                   std::span<const double> b, std::span<double> gradient,
                   std::span<double> information, std::span<double> work);

// Sums, means and extremes of the columns; w is counted with its factor. Columns of ones stay as
// they are.
void survey_columns(const LikelihoodRows& rows, std::span<ColumnSurvey> out,
                    std::span<double> work);

// One block of a section, for passes that look at fitted values.
class RowBlock {
 public:
  static constexpr std::int64_t ROWS = 256;     // a dozen columns fill half of a first-level cache
  static constexpr std::int64_t LD = ROWS + 8;  // powers of two would share cache sets
  static std::int64_t words(int columns, int choices) { return LD * (columns + choices + 7); }

  RowBlock(double* work, int columns, int choices)
      : a(work),
        y(a + LD * columns),
        w(y + LD),
        z(w + LD),
        P0(z + LD * (choices - 1)),
        P(P0 + LD),
        Q(P + LD),
        f(Q + LD),
        scratch(f + LD) {}
  // Rows from..from+count-1, count <= ROWS; the block is filled up to a multiple of 8.
  void load(const LikelihoodRows& rows, std::int64_t from, std::int64_t count);
  // Indexes of all choices but the first.
  void index(const LikelihoodRows& rows, int choices, std::span<const double> b) const;
  RowTerms terms(const RowModel& model) const {
    return {z, y, w, f, Q, padded, model.low, model.share, model.side};
  }

  double *a, *y, *w, *z;
  double *P0, *P, *Q, *f, *scratch;
  std::int64_t n = 0;
  std::ptrdiff_t padded = 0;
};

}  // namespace korvel
