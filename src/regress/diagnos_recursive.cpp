// Fits to growing samples: recursive residuals, split samples, bounds of their sums.

#include <algorithm>
#include <array>

#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/diagnos.h"

namespace korvel {
namespace {

// What an element may be of the largest of its column so far and still be taken for the rounding of
// a zero, while the first rows are looked through for a full rank. Larger would miss the curvature
// of a trend between neighbouring rows.
constexpr double ROUNDING = 1e-11;

struct Level {
  int percent;
  double cusum;
  double a, b, c, d;  // of the CUSUMSQ width
};
constexpr std::array<Level, 3> LEVELS = {{
    {1, 1.143, 0.0062052, 0.18134, 0.00091809, 0.79203},
    {5, 0.948, 0.004865, 0.14596, 0.00071789, 0.64438},
    {10, 0.85, 0.0040717, 0.12704, 0.00059758, 0.56795},
}};
const Level& level_of(int percent) {
  const auto at = std::ranges::find(LEVELS, percent, &Level::percent);
  return at == LEVELS.end() ? LEVELS[1] : *at;
}

}  // namespace

std::size_t RecursivePass::words(int K) {
  return packed_words(K + 1) + 3 * static_cast<std::size_t>(K) + 1;
}

RecursivePass::RecursivePass(const DiagnosModel& m, bool backward, std::span<double> work)
    : m_(m), backward_(backward) {
  const auto K = static_cast<std::size_t>(m.K);
  std::ranges::fill(work.first(words(m.K)), 0.0);
  factor_ = work.first(packed_words(m.K + 1));
  row_ = work.subspan(factor_.size(), K + 1);
  origin_ = work.subspan(factor_.size() + K + 1, K);
  most_ = work.subspan(factor_.size() + 2 * K + 1, K);
  if (!m.constant) return;
  // x(j) - c(j) x(0) with c from the first row, whose share of the constant is never 0.
  const std::int64_t first = obs();
  for (int k = 1; k < m.K; ++k) {
    origin_[static_cast<std::size_t>(k)] = m.at(k, first) / m.at(0, first);
  }
}

// As add_row, for a factor that some pivots have not entered yet: they hold 0.
RecursiveStep RecursivePass::raise_rank() {
  const int columns = m_.K + 1;
  double w = 1.0;
  for (int i = 1; i < columns && w > 0.0; ++i) {
    double& d = factor_[packed(i, i)];
    const double x = row_[static_cast<std::size_t>(i - 1)];
    if (d == 0.0) {
      if (std::fabs(x) <= ROUNDING * most_[static_cast<std::size_t>(i - 1)]) continue;
      d = w * x * x;
      for (int k = i + 1; k <= columns; ++k) {
        factor_[packed(k, i)] = row_[static_cast<std::size_t>(k - 1)] / x;
      }
      ++rank_;
      return {.error = 0.0, .variance = 0.0};
    }
    rotate_row(factor_, columns, i, row_, w);
  }
  return close_row(factor_, columns, row_, w);
}

RecursiveStep RecursivePass::step() {
  const std::int64_t t = obs();
  const auto K = static_cast<std::size_t>(m_.K);
  const double one = m_.at(0, t);
  for (std::size_t k = 0; k < K; ++k) row_[k] = m_.at(static_cast<int>(k), t) - origin_[k] * one;
  row_[K] = m_.e[static_cast<std::size_t>(t)];
  const bool ranked = rank_ == m_.K;
  for (std::size_t k = 0; k < K && !ranked; ++k) most_[k] = std::max(most_[k], std::fabs(row_[k]));
  const RecursiveStep step = ranked ? add_row(factor_, m_.K + 1, row_) : raise_rank();
  ++done_;
  if (!ranked && rank_ == m_.K) full_ = done_;
  return step;
}

double RecursivePass::SSE() const { return factor_[packed(m_.K + 1, m_.K + 1)]; }

void RecursivePass::coefficients(std::span<double> d) const {
  gs_coefficients(factor_, m_.K + 1, d);
  for (std::size_t k = 1; k < d.size(); ++k) d[0] -= origin_[k] * d[k];
  for (std::size_t k = 0; k < d.size(); ++k) d[k] *= m_.scale[k] * m_.unit;
}

std::int64_t split_sums(const DiagnosModel& m, bool backward, std::span<double> work,
                        std::span<double> SSE) {
  RecursivePass pass(m, backward, work);
  for (double& s : SSE) {
    pass.step();
    s = pass.SSE();
  }
  return pass.full();
}

double cusum_bound(int level, double n, double j) {
  const double a = level_of(level).cusum;
  return a * std::sqrt(n) + 2.0 * a * j / std::sqrt(n);
}

double cusumsq_width(int level, double n) {
  const Level& l = level_of(level);
  const double m = n / 2.0 - 1.0;
  if (m < 1.0) return -1.0;
  return l.d - l.b * std::log(m) + l.a * m - l.c * m * std::log(m);
}

}  // namespace korvel
