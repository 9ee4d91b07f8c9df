// SystemFit: instruments from the reduced form, and the matrices that DUMP prints.

#include <algorithm>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/lu.h"
#include "expr/kernels/packed.h"
#include "regress/systems_fit.h"

namespace korvel {
namespace {

std::size_t at(int i) { return static_cast<std::size_t>(i); }
std::size_t area(int rows, int columns) { return at(rows) * at(columns); }

// Element a of the user's columns from the matrix of shifted ones: x + s c for the constant c.
double unshifted(std::span<const double> a, int i, int j, double si, double sj, int ci, int cj) {
  return a[packed(i, j)] + si * a[packed(ci, j)] + sj * a[packed(i, cj)] +
         si * sj * a[packed(ci, cj)];
}

}  // namespace

std::int64_t SystemFit::reduced_form_words(const SystemModel& m) {
  const int K = m.K(), M = m.M, L = m.L();
  const auto room = std::max(area(K, K) + static_cast<std::size_t>(LU_words(K)),
                             2 * area(M, M) + area(L, M) + static_cast<std::size_t>(LU_words(M)));
  return static_cast<std::int64_t>(area(L, K) + at(L) + room + at(K));
}

bool SystemFit::reduced_form(std::span<double> work) {
  const int K = model_.K(), M = model_.M, L = model_.L();
  W_ = work.first(area(L, K));
  const std::span<double> y = work.subspan(area(L, K), at(K));  // slopes in units of the moments
  dense_ = work.subspan(area(L, K) + at(K));
  const std::span<double> left = dense_.first(area(M, M));
  const std::span<double> right = dense_.subspan(area(M, M), area(L, M));
  const std::span<double> rest = dense_.subspan(area(M, M) + area(L, M));
  // 1. Each regressor: an instrument, another equation's dependent variable, or neither; the last
  //    are taken at their least-squares projection.
  const auto equation_of_column = [&](int column) {
    const auto found = std::ranges::find(model_.dependent, column);
    return found == model_.dependent.end() ? -1
                                           : static_cast<int>(found - model_.dependent.begin());
  };
  for (int k = 0; k < K; ++k) {
    double* w = W_.data() + area(L, k);
    const auto own = std::ranges::find(model_.instrument, model_.regressor[at(k)]);
    if (own != model_.instrument.end()) {
      std::fill_n(w, L, 0.0);
      w[own - model_.instrument.begin()] = 1.0;
    } else {
      std::copy_n(A_.data() + area(L, k), L, w);
      solve_upper(ZZ_, L, w);
    }
  }
  // 2. (I - C) P = R: C the coefficients among dependent variables, R those on instruments.
  std::ranges::fill(left, 0.0);
  std::ranges::fill(right, 0.0);
  for (int i = 0; i < M; ++i) {
    const SavedEquation& e = model_.equation[at(i)];
    left[area(M, i) + at(i)] = 1.0;
    for (int k = e.first; k < e.first + e.K; ++k) {
      y[at(k)] = weight(i, k) * unit(model_.dependent[at(i)]);
      const int j = equation_of_column(model_.regressor[at(k)]);
      const double* w = W_.data() + area(L, k);
      if (j >= 0) {
        left[area(M, j) + at(i)] -= y[at(k)];
      } else {
        for (int l = 0; l < L; ++l) right[area(L, i) + at(l)] += y[at(k)] * w[l];
      }
    }
  }
  ScaledProduct det;
  if (matrix_inverse(left.data(), M, det, rest) != 0) return false;
  // 3. Dependent variables on the right side take their reduced form.
  for (int k = 0; k < K; ++k) {
    const int j = equation_of_column(model_.regressor[at(k)]);
    if (j < 0) continue;
    double* w = W_.data() + area(L, k);
    for (int l = 0; l < L; ++l) {
      double sum = 0.0;
      for (int i = 0; i < M; ++i) sum += left[area(M, i) + at(j)] * right[area(L, i) + at(l)];
      w[l] = sum;
    }
  }
  by_reduced_form_ = true;
  return true;
}

void SystemFit::instrument_inverse(std::span<double> out) const {
  const int L = model_.L(), KM = model_.K() + model_.M;
  for (int i = 1; i <= L; ++i) {
    for (int j = 1; j <= i; ++j) out[packed(i, j)] = G_[packed(KM + i, KM + j)];
  }
  symmetric_inverse(out, L);
  for (int i = 1; i <= L; ++i) {
    for (int j = 1; j <= i; ++j) {
      out[packed(i, j)] *= unit(model_.instrument[at(i - 1)]) * unit(model_.instrument[at(j - 1)]);
    }
  }
  // The constant, the last one where there is a shift, takes it back.
  double corner = out[packed(L, L)];
  for (int i = 1; i < L; ++i) {
    const double si = shift(model_.instrument[at(i - 1)]);
    corner -= 2.0 * si * out[packed(L, i)];
    for (int j = 1; j < L; ++j) {
      corner += si * shift(model_.instrument[at(j - 1)]) * out[packed(i, j)];
    }
  }
  for (int i = 1; i < L; ++i) {
    double sum = out[packed(L, i)];
    for (int j = 1; j < L; ++j) sum -= shift(model_.instrument[at(j - 1)]) * out[packed(i, j)];
    out[packed(L, i)] = sum;
  }
  out[packed(L, L)] = corner;
}

void SystemFit::stacked_matrix(std::span<double> out) const {
  const int K = model_.K();
  const auto size = [&](int k) {
    const int i = model_.equation_of[at(k - 1)];
    return unit(model_.dependent[at(i)]) / unit(model_.regressor[at(k - 1)]);
  };
  const std::span<double> scaled = work_.first(packed_words(K));
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      scaled[packed(i, j)] = xwx_[packed(i, j)] * size(i) * size(j);
    }
  }
  const auto constant_of = [&](int k) {
    const SavedEquation& e = model_.equation[at(model_.equation_of[at(k - 1)])];
    return e.first + e.K;
  };
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      const int ci = constant_of(i), cj = constant_of(j);
      const double si = i == ci ? 0.0 : shift(model_.regressor[at(i - 1)]);
      const double sj = j == cj ? 0.0 : shift(model_.regressor[at(j - 1)]);
      out[packed(i, j)] =
          model_.constant ? unshifted(scaled, i, j, si, sj, ci, cj) : scaled[packed(i, j)];
    }
  }
}

}  // namespace korvel
