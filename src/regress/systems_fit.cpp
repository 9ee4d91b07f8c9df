// SystemFit: single equations, residual covariances and stacked normal equations out of moments.

#include "regress/systems_fit.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/lu.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace {

constexpr double EPS = 2.220446049250313e-16;

std::size_t at(int i) { return static_cast<std::size_t>(i); }
std::size_t area(int rows, int columns) { return at(rows) * at(columns); }

double dot(const double* a, const double* b, int n) {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

}  // namespace

void solve_lower(std::span<const double> L, int n, double* x) {
  for (int i = 1; i <= n; ++i) {
    const double* row = L.data() + packed(i, 1);
    double sum = x[i - 1];
    for (int k = 0; k < i - 1; ++k) sum -= row[k] * x[k];
    x[i - 1] = sum * row[i - 1];
  }
}

void solve_upper(std::span<const double> L, int n, double* x) {
  for (int i = n; i >= 1; --i) {
    double sum = x[i - 1];
    for (int k = i + 1; k <= n; ++k) sum -= L[packed(k, i)] * x[k - 1];
    x[i - 1] = sum * L[packed(i, i)];
  }
}

LogDeterminant log_determinant(std::span<const double> a, int n, std::span<double> work) {
  LogDeterminant result;
  const std::span<double> scale = work.first(at(n));
  const std::span<double> factor = work.subspan(at(n), packed_words(n));
  for (int i = 1; i <= n; ++i) {
    const double d = a[packed(i, i)];
    if (!(d > 0.0)) return {.value = 0.0, .IFAULT = i};
    scale[at(i - 1)] = 1.0 / std::sqrt(d);
    result.value += std::log(d);
  }
  for (int i = 1; i <= n; ++i) {
    for (int j = 1; j <= i; ++j) {
      factor[packed(i, j)] = a[packed(i, j)] * scale[at(i - 1)] * scale[at(j - 1)];
    }
  }
  result.IFAULT = cholesky_factor(factor, n);
  if (result.IFAULT != 0) return result;
  for (int i = 1; i <= n; ++i) result.value -= 2.0 * std::log(factor[packed(i, i)]);
  return result;
}

std::int64_t SystemFit::words(const SystemModel& m) {
  const int K = m.K(), M = m.M, L = m.L();
  const auto p = [](int n) { return packed_words(n); };
  std::size_t n = p(K + M + L) + 3 * p(K) + 3 * at(K) + 3 * p(M) + 2 * at(M);
  n += at(M) + p(M);  // of determinants
  if (L > 0) n += p(K + M) + area(L, K + M) + p(L);
  return static_cast<std::int64_t>(n);
}

SystemFit::SystemFit(const SystemModel& model, const SystemMoments& moments, std::span<double> work)
    : model_(model), moments_(moments), S_(model.K() + model.M + model.L()) {
  const int K = model.K(), M = model.M, L = model.L();
  const auto take = [&](std::size_t n) {
    const std::span<double> part = work.first(n);
    work = work.subspan(n);
    return part;
  };
  coef = take(at(K));
  cov = take(packed_words(K));
  E = take(packed_words(M));
  sigma = take(packed_words(M));
  sigma_inverse = take(packed_words(M));
  rho = take(at(M));
  G_ = take(packed_words(S_));
  H_ = G_.first(packed_words(K + M));
  xwx_ = take(packed_words(K));
  b_ = take(at(K));
  work_ = take(packed_words(K) + at(K) + packed_words(M) + 2 * at(M));
  if (L > 0) {
    H_ = take(packed_words(K + M));
    A_ = take(area(L, K + M));
    ZZ_ = take(packed_words(L));
  }
  std::ranges::fill(coef, 0.0);
  std::ranges::fill(rho, 0.0);
}

// Slots count from 0: coefficients, then dependent variables, then instruments.
double SystemFit::slot_moment(int a, int b) const {
  const int K = model_.K(), M = model_.M, P = model_.P();
  struct Slot {
    int column;
    double r;
  };
  const auto slot = [&](int s) -> Slot {
    if (s < K) return {model_.regressor[at(s)], rho[at(model_.equation_of[at(s)])]};
    if (s < K + M) return {model_.dependent[at(s - K)], rho[at(s - K)]};
    return {model_.instrument[at(s - K - M)], 0.0};
  };
  const auto [ca, ra] = slot(a);
  const auto [cb, rb] = slot(b);
  const std::span<const double> B = moments_.base;
  double sum = B[packed(ca + 1, cb + 1)];
  if (!moments_.lagged) return sum;
  const int la = P + ca + 1, lb = P + cb + 1;
  sum += ra * rb * B[packed(la, lb)] - ra * B[packed(la, cb + 1)] - rb * B[packed(ca + 1, lb)];
  if (moments_.first.empty()) return sum;
  const double root = std::sqrt((1.0 - ra * ra) * (1.0 - rb * rb));
  return sum + root * moments_.first[at(ca)] * moments_.first[at(cb)];
}

int SystemFit::form() {
  const int KM = model_.K() + model_.M, L = model_.L();
  by_reduced_form_ = false;
  for (int a = 0; a < S_; ++a) {
    for (int b = 0; b <= a; ++b) G_[packed(a + 1, b + 1)] = slot_moment(a, b);
  }
  if (L == 0) return 0;
  // The factor of Z'Z, and the columns in the space of the instruments.
  for (int i = 1; i <= L; ++i) {
    for (int j = 1; j <= i; ++j) ZZ_[packed(i, j)] = G_[packed(KM + i, KM + j)];
  }
  if (const int IFAULT = cholesky_factor(ZZ_, L); IFAULT != 0) return IFAULT;
  for (int s = 0; s < KM; ++s) {
    double* a = A_.data() + area(L, s);
    for (int l = 0; l < L; ++l) a[l] = G_[packed(KM + l + 1, s + 1)];
    solve_lower(ZZ_, L, a);
  }
  // An instrument is its own projection.
  const auto own = [&](int s) {
    if (moments_.lagged || s >= model_.K()) return false;
    return std::ranges::find(model_.instrument, model_.regressor[at(s)]) != model_.instrument.end();
  };
  for (int a = 0; a < KM; ++a) {
    const bool exact = own(a);
    for (int b = 0; b <= a; ++b) {
      H_[packed(a + 1, b + 1)] = exact || own(b)
                                     ? G_[packed(a + 1, b + 1)]
                                     : dot(A_.data() + area(L, a), A_.data() + area(L, b), L);
    }
  }
  return 0;
}

// A solution in units of the moments, for coefficients first..first+K-1, as one in the user's.
void SystemFit::take_solution(std::span<const double> b, std::span<const double> C, int first,
                              int K) {
  const auto factor = [&](int k) {
    const int i = model_.equation_of[at(first + k)];
    return unit(model_.regressor[at(first + k)]) / unit(model_.dependent[at(i)]);
  };
  for (int k = 0; k < K; ++k) {
    const double f = factor(k);
    coef[at(first + k)] = b[at(k)] * f;
    if (C.empty()) continue;
    for (int l = 0; l <= k; ++l)
      cov[packed(k + 1, l + 1)] = C[packed(k + 1, l + 1)] * f * factor(l);
  }
  if (!model_.constant) return;
  for (const SavedEquation& e : model_.equation) {
    if (e.first < first || e.first >= first + K) continue;
    const int i = model_.equation_of[at(e.first)];
    double a = coef[at(e.first + e.K - 1)] + shift(model_.dependent[at(i)]);
    for (int k = e.first; k < e.first + e.K - 1; ++k) {
      a -= shift(model_.regressor[at(k)]) * coef[at(k)];
    }
    coef[at(e.first + e.K - 1)] = a;
  }
  if (!C.empty()) unshift(cov);
}

// Covariances of the constants of the user's columns from those of the shifted ones.
void SystemFit::unshift(std::span<double> V) const {
  const int K = model_.K();
  const std::span<double> v = work_.first(at(K));
  for (const SavedEquation& e : model_.equation) {
    const int c = e.first + e.K;  // from 1
    for (int q = 1; q <= K; ++q) {
      double sum = V[packed(c, q)];
      for (int k = e.first + 1; k < c; ++k) {
        sum -= shift(model_.regressor[at(k - 1)]) * V[packed(k, q)];
      }
      v[at(q - 1)] = sum;
    }
    for (int k = e.first + 1; k < c; ++k) {
      v[at(c - 1)] -= shift(model_.regressor[at(k - 1)]) * v[at(k - 1)];
    }
    for (int q = 1; q <= K; ++q) V[packed(c, q)] = v[at(q - 1)];
  }
}

int SystemFit::single(int i) {
  const SavedEquation& e = model_.equation[at(i)];
  const int y = model_.K() + i + 1;
  const std::span<double> a = work_.first(packed_words(e.K));
  const std::span<double> b = b_.first(at(e.K));
  for (int k = 1; k <= e.K; ++k) {
    for (int l = 1; l <= k; ++l) a[packed(k, l)] = H_[packed(e.first + k, e.first + l)];
    b[at(k - 1)] = H_[packed(y, e.first + k)];
  }
  const std::span<double> inverse = xwx_.first(packed_words(e.K));
  std::ranges::copy(a, inverse.begin());
  if (const int IFAULT = symmetric_inverse(inverse, e.K); IFAULT != 0) return IFAULT;
  for (int k = 1; k <= e.K; ++k) {
    condition = std::max(condition, inverse[packed(k, k)] * a[packed(k, k)]);
  }
  positive_solve(a, e.K, b);
  take_solution(b, {}, e.first, e.K);
  return 0;
}

double SystemFit::level(int i) const {
  const SavedEquation& e = model_.equation[at(i)];
  double a = coef[at(e.first + e.K - 1)] - shift(model_.dependent[at(i)]);
  for (int k = e.first; k < e.first + e.K - 1; ++k) {
    a += shift(model_.regressor[at(k)]) * coef[at(k)];
  }
  return a;
}

double SystemFit::weight(int i, int k) const {
  const SavedEquation& e = model_.equation[at(i)];
  const bool constant = model_.constant && k == e.first + e.K - 1;
  return (constant ? level(i) : coef[at(k)]) / unit(model_.regressor[at(k)]);
}

void SystemFit::residuals() {
  const int K = model_.K(), M = model_.M;
  // Weights of the coefficients in the residual, in units of the moments.
  const std::span<double> w = work_.first(at(K));
  const std::span<double> half = b_;
  for (int i = 0; i < M; ++i) {
    const SavedEquation& e = model_.equation[at(i)];
    for (int k = e.first; k < e.first + e.K; ++k) w[at(k)] = weight(i, k);
  }
  for (int i = 0; i < M; ++i) {
    const SavedEquation& ei = model_.equation[at(i)];
    const int yi = K + i + 1;
    const double ui = 1.0 / unit(model_.dependent[at(i)]);
    for (int j = 0; j <= i; ++j) {
      const SavedEquation& ej = model_.equation[at(j)];
      const int yj = K + j + 1;
      const double uj = 1.0 / unit(model_.dependent[at(j)]);
      // half(k) = x_k'e_i for the columns of equation j, then e_j'e_i.
      double sum = ui * G_[packed(yi, yj)];
      for (int l = ei.first; l < ei.first + ei.K; ++l) sum -= w[at(l)] * G_[packed(l + 1, yj)];
      sum *= uj;
      for (int k = ej.first; k < ej.first + ej.K; ++k) {
        double h = ui * G_[packed(yi, k + 1)];
        for (int l = ei.first; l < ei.first + ei.K; ++l) h -= w[at(l)] * G_[packed(l + 1, k + 1)];
        half[at(k)] = h;
      }
      for (int k = ej.first; k < ej.first + ej.K; ++k) sum -= w[at(k)] * half[at(k)];
      E[packed(i + 1, j + 1)] = sum;
    }
    E[packed(i + 1, i + 1)] = std::max(E[packed(i + 1, i + 1)], 0.0);
  }
}

void SystemFit::estimate_rho() {
  const int P = model_.P();
  const std::span<const double> B = moments_.base;
  for (int i = 0; i < model_.M; ++i) {
    const SavedEquation& e = model_.equation[at(i)];
    // e'(one row back) as sums over the columns: the dependent variable is place e.first+e.K.
    const auto column = [&](int k) {
      return k == e.first + e.K ? model_.dependent[at(i)] : model_.regressor[at(k)];
    };
    const auto w = [&](int k) {
      return k == e.first + e.K ? 1.0 / unit(model_.dependent[at(i)]) : -weight(i, k);
    };
    double product = 0.0, square = 0.0;
    for (int k = e.first; k <= e.first + e.K; ++k) {
      double now = 0.0, before = 0.0;
      for (int l = e.first; l <= e.first + e.K; ++l) {
        const int lag = P + column(l) + 1;
        now += w(l) * B[packed(column(k) + 1, lag)];
        before += w(l) * B[packed(P + column(k) + 1, lag)];
      }
      product += w(k) * now;
      square += w(k) * before;
    }
    rho[at(i)] = square > 0.0 ? product / square : 0.0;
  }
}

void SystemFit::make_sigma(bool by_rows, bool diagonal) {
  const auto divisor = [&](int i) { return by_rows ? N() : N() - model_.equation[at(i)].K; };
  for (int i = 0; i < model_.M; ++i) {
    for (int j = 0; j <= i; ++j) {
      const double by = i == j ? divisor(i) : std::sqrt(divisor(i) * divisor(j));
      const bool out = diagonal && i != j;
      sigma[packed(i + 1, j + 1)] = out ? 0.0 : E[packed(i + 1, j + 1)] / by;
    }
  }
}

int SystemFit::invert_sigma() {
  const int M = model_.M, K = model_.K();
  const std::span<double> scale = work_.first(at(M));
  // What rounding of the moments leaves of a residual sum of squares that should be zero.
  double noise = 0.0;
  for (int i = 1; i <= M; ++i) {
    const double d = sigma[packed(i, i)];
    const double u = unit(model_.dependent[at(i - 1)]);
    const double total = G_[packed(K + i, K + i)] / (u * u);
    const double rounding = 8.0 * EPS * model_.P() * total / E[packed(i, i)];
    if (!(d > 0.0) || !(rounding < 0.01)) return i;
    noise = std::max(noise, rounding);
    scale[at(i - 1)] = 1.0 / std::sqrt(d);
  }
  for (int i = 1; i <= M; ++i) {
    for (int j = 1; j <= i; ++j) {
      sigma_inverse[packed(i, j)] = sigma[packed(i, j)] * scale[at(i - 1)] * scale[at(j - 1)];
    }
  }
  if (const int IFAULT = symmetric_inverse(sigma_inverse, M); IFAULT != 0) return IFAULT;
  for (int i = M; i >= 1; --i) {
    // 1/inverse is the share of residual i that the others don't explain.
    if (!(sigma_inverse[packed(i, i)] * noise < 0.1)) return -i;
  }
  for (int i = 1; i <= M; ++i) {
    for (int j = 1; j <= i; ++j) {
      sigma_inverse[packed(i, j)] *= scale[at(i - 1)] * scale[at(j - 1)];
    }
  }
  return 0;
}

int SystemFit::solve() {
  const int K = model_.K(), M = model_.M;
  // Sigma inverse between equations in units of the moments.
  const auto s = [&](int i, int j) {
    return sigma_inverse[packed(i + 1, j + 1)] /
           (unit(model_.dependent[at(i)]) * unit(model_.dependent[at(j)]));
  };
  const auto place = [&](int k) { return model_.equation_of[at(k)]; };
  const auto instrument = [&](int k) { return W_.data() + area(model_.L(), k); };
  const int L = model_.L(), KM = K + M;
  // z_l'x of slot x for an instrument given by its weights on Z.
  const auto with_slot = [&](const double* w, int slot) {
    double sum = 0.0;
    for (int l = 0; l < L; ++l) sum += w[l] * G_[packed(KM + l + 1, slot + 1)];
    return sum;
  };
  const auto with_dependent = [&](int k, int j) {
    return by_reduced_form_ ? with_slot(instrument(k), K + j) : H_[packed(K + j + 1, k + 1)];
  };
  for (int k = 0; k < K; ++k) {
    double sum = 0.0;
    for (int j = 0; j < M; ++j) sum += s(place(k), j) * with_dependent(k, j);
    b_[at(k)] = sum;
    for (int l = 0; l <= k; ++l) {
      double h = H_[packed(k + 1, l + 1)];
      if (by_reduced_form_) {
        h = 0.0;
        for (int z = 0; z < L; ++z) h += instrument(l)[z] * with_slot(instrument(k), KM + z);
      }
      xwx_[packed(k + 1, l + 1)] = s(place(k), place(l)) * h;
    }
  }
  // The inverse is made beside the matrix, which DUMP prints.
  const std::span<double> inverse = work_.first(packed_words(K));
  std::ranges::copy(xwx_, inverse.begin());
  if (by_reduced_form_) {
    if (const int IFAULT = symmetric_inverse(inverse, K); IFAULT != 0) return IFAULT;
    double* a = dense_.data();
    for (int l = 0; l < K; ++l) {
      for (int k = 0; k < K; ++k) {
        a[area(K, l) + at(k)] = s(place(k), place(l)) * with_slot(instrument(k), l);
      }
    }
    ScaledProduct det;
    const int IFAULT = matrix_inverse(a, K, det, dense_.subspan(area(K, K)));
    if (IFAULT != 0) return IFAULT;
    const std::span<double> rhs = work_.subspan(packed_words(K), at(K));
    std::ranges::copy(b_, rhs.begin());
    for (int k = 0; k < K; ++k) {
      double sum = 0.0;
      for (int l = 0; l < K; ++l) sum += a[area(K, l) + at(k)] * rhs[at(l)];
      b_[at(k)] = sum;
    }
  } else {
    if (const int IFAULT = cholesky_factor(inverse, K); IFAULT != 0) return IFAULT;
    solve_lower(inverse, K, b_.data());
    solve_upper(inverse, K, b_.data());
    std::ranges::copy(xwx_, inverse.begin());
    if (const int IFAULT = symmetric_inverse(inverse, K); IFAULT != 0) return IFAULT;
  }
  for (int k = 1; k <= K; ++k) {
    condition = std::max(condition, inverse[packed(k, k)] * xwx_[packed(k, k)]);
  }
  take_solution(b_, inverse, 0, K);
  return 0;
}

}  // namespace korvel
