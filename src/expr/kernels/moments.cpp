#include "expr/kernels/moments.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/packed.h"

namespace korvel {
namespace {

bool row_missing(const ColumnList& x, std::int64_t t, double code) {
  for (const double* c : x.column) {
    if (c != nullptr && c[t] == code) return true;
  }
  return false;
}

}  // namespace

double AVES(const ColumnList& x, std::span<const double> w, const MissingRule& missing,
            const Averages& out) {
  const auto weight = [&](std::int64_t t) {
    return w.empty() ? 1.0 : w[static_cast<std::size_t>(t)];
  };
  const bool rows = missing.skip && (missing.whole_row || !out.cross.empty());
  const bool values = missing.skip && !rows;
  double SWT = 0.0;
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    const auto used = [&](std::int64_t t) {
      if (rows) return !row_missing(x, t, missing.code);
      return !(values && x.at(k, t) == missing.code);
    };
    // 1. The mean.
    double sum = 0.0;
    double weights = 0.0;
    double count = 0.0;
    double least = 1e20;
    double most = -1e20;
    for (std::int64_t t = 0; t < x.rows; ++t) {
      if (missing.skip && !used(t)) continue;
      const double v = x.at(k, t);
      sum += weight(t) * v;
      weights += weight(t);
      count += 1.0;
      least = std::min(least, v);
      most = std::max(most, v);
    }
    if (k == 0) SWT = weights;
    const double mean = weights != 0.0 ? sum / weights : 0.0;
    // 2. The squares about it.
    double squares = 0.0;
    double drift = 0.0;
    for (std::int64_t t = 0; t < x.rows; ++t) {
      if (missing.skip && !used(t)) continue;
      const double d = x.at(k, t) - mean;
      squares += weight(t) * d * d;
      drift += weight(t) * d;
    }
    if (weights != 0.0) squares -= drift * drift / weights;
    if (!out.means.empty()) out.means[k] = mean;
    if (!out.squares.empty()) out.squares[k] = squares;
    if (!out.counts.empty()) out.counts[k] = count;
    if (!out.least.empty()) out.least[k] = least;
    if (!out.most.empty()) out.most[k] = most;
  }
  if (out.cross.empty()) return SWT;
  // 3. The packed triangle, in a pass of its own by rows.
  const int K = x.columns();
  std::fill(out.cross.begin(), out.cross.end(), 0.0);
  for (std::int64_t t = 0; t < x.rows; ++t) {
    if (rows && row_missing(x, t, missing.code)) continue;
    for (int i = 1; i <= K; ++i) {
      const auto ki = static_cast<std::size_t>(i - 1);
      const double d = weight(t) * (x.at(ki, t) - out.means[ki]);
      for (int j = 1; j <= i; ++j) {
        const auto kj = static_cast<std::size_t>(j - 1);
        out.cross[packed(i, j)] += d * (x.at(kj, t) - out.means[kj]);
      }
    }
  }
  return SWT;
}

void MATMOM(std::span<const double> in, std::span<double> out, int order, double w,
            std::span<const double> means, std::span<const double> variances, MomentMode mode) {
  const auto m = [&](int i) { return means[static_cast<std::size_t>(i - 1)]; };
  const auto v = [&](int i) {
    const double variance = variances[static_cast<std::size_t>(i - 1)];
    if (mode == MomentMode::RawCorrelation) return variance + m(i) * m(i) * w;
    return mode == MomentMode::ShiftedCorrelation ? w + variance : variance;
  };
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double a = in[packed(i, j)];
      double& to = out[packed(i, j)];
      switch (mode) {
        case MomentMode::Raw:
          to = a + w * m(i) * m(j);
          break;
        case MomentMode::Divide:
          to = a / w;
          break;
        case MomentMode::Add:
          to = a + w;
          break;
        case MomentMode::Correlation:
        case MomentMode::RawCorrelation:
        case MomentMode::ShiftedCorrelation: {
          const double product = v(i) * v(j);
          if (product == 0.0 || (i == j && a == 0.0)) {
            to = i == j ? 1.0 : 0.0;
          } else {
            to = a / std::sqrt(product);
            if (mode == MomentMode::Correlation) to /= w;
          }
          break;
        }
        default:
          to = a - w * m(i) * m(j);
          break;
      }
    }
  }
}

}  // namespace korvel
