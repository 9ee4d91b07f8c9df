// The probability is that of a quadratic form: with the n-k roots m_i of M A (M the projection on
// the residuals, A the matrix of differences), P(d' < d) = P(sum (m_i - d) z_i^2 < 0) (Imhof 1961).
// The roots themselves are not needed. A is a set of tridiagonal chains and, with N'N = I, N'X = 0
// and X orthonormal,
//     det N'(A + z I)N = det(A + z I) det X'(A + z I)^-1 X,
// which one sweep of elimination gives at every point of the contour in n k^2 steps (after Ansley,
// Kohn and Shively 1992, Journal of Econometrics 54, 277-300).
#include "stats/durbin_watson.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

#include "stats/contour.h"

namespace korvel {
namespace {

// A by rows: the partner of every row, its place in the ring of the elimination, and the diagonal.
struct Chains {
  std::size_t n;
  std::size_t order;
  const double* before;
  const double* slot;
  const double* diagonal;
  bool linked(std::size_t t) const { return before[t] >= 0.0; }
};

// work: 3 n words.
Chains make_chains(std::size_t n, const DifferenceRows& rows, double* work) {
  double* const before = work;
  double* const slot = before + n;
  double* const diagonal = slot + n;
  rows.partners({before, n});
  std::fill_n(diagonal, n, 0.0);
  for (std::size_t t = 0; t < n; ++t) {
    const auto place = rows.place.empty() ? t : static_cast<std::size_t>(rows.place[t]);
    slot[t] = static_cast<double>(place % rows.order);
    if (before[t] < 0.0) continue;
    diagonal[t] += 1.0;
    diagonal[static_cast<std::size_t>(before[t])] += 1.0;
  }
  return {n, rows.order, before, slot, diagonal};
}

// Logarithm of a product of many factors, without taking one for each. Powers of two are set aside
// to keep it in range. Of complex factors the principal logarithms are summed: what they turn past
// the negative real axis is counted.
class LogProduct {
 public:
  void take(double factor) {
    re_ *= factor;
    rescale();
  }
  void take(const std::complex<double>& factor) {
    const double re = re_ * factor.real() - im_ * factor.imag();
    const double im = re_ * factor.imag() + im_ * factor.real();
    // Both arguments lie in 0..pi, or both below: only then can their sum pass the axis.
    if ((im_ < 0.0) == (factor.imag() < 0.0) && (im < 0.0) != (im_ < 0.0)) {
      turns_ += im < 0.0 ? 1.0 : -1.0;
    }
    re_ = re;
    im_ = im;
    rescale();
  }
  void result(double& log) const { log = powers_ * LOG_STEP + std::log(std::fabs(re_)); }
  void result(std::complex<double>& log) const {
    log = {powers_ * LOG_STEP + std::log(std::hypot(re_, im_)),
           turns_ * 2.0 * PI + std::atan2(im_, re_)};
  }

 private:
  static constexpr double PI = 3.14159265358979323846;
  static constexpr double STEP = 0x1p256;
  static constexpr double LOG_STEP = 256.0 * 0.693147180559945309417;

  void rescale() {
    const double size = std::fabs(re_) + std::fabs(im_);
    if (size < STEP && size > 1.0 / STEP) return;
    const bool large = size >= STEP;
    const double by = large ? 1.0 / STEP : STEP;
    re_ *= by;
    im_ *= by;
    powers_ += large ? 1.0 : -1.0;
  }

  double re_ = 1.0;
  double im_ = 0.0;
  double powers_ = 0.0;
  double turns_ = 0.0;
};

// K(s) = -1/2 sum log(1 - 2 s (m_i - d)) by elimination in B = I - 2 s (A - d I), whose pivots are
// near 1 for many rows: their sum of logarithms keeps its digits.
class Elimination {
 public:
  // Q: n by k by rows, orthonormal columns; ring: 2 (k+1) words for each row of a chain step;
  // gram: 2 k^2 words. stop: asked between blocks of rows; once it says yes K is not a number.
  Elimination(const Chains& chains, const double* Q, std::size_t k, double d, double* ring,
              double* gram, bool (*stop)())
      : chains_(chains), Q_(Q), k_(k), d_(d), ring_(ring), gram_(gram), stop_(stop) {}

  double operator()(double s) const { return -0.5 * log_determinant(s, ring_, gram_); }
  // Above the real axis: A + z I, z = -(1/(2s) + d), has a positive imaginary part, and so have its
  // pivots; times -2s, whose argument is below 0, none of them is negative: principal logarithms
  // add up without a jump.
  std::complex<double> operator()(std::complex<double> s) const {
    return -0.5 * log_determinant(s, reinterpret_cast<std::complex<double>*>(ring_),
                                  reinterpret_cast<std::complex<double>*>(gram_));
  }

 private:
  static double product(double a, double b) { return a * b; }
  // Without the tests for infinity that the operators of std::complex make.
  static std::complex<double> product(const std::complex<double>& a,
                                      const std::complex<double>& b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
  }
  static double reciprocal(double a) { return 1.0 / a; }
  static std::complex<double> reciprocal(const std::complex<double>& a) {
    const double scale = 1.0 / std::max(std::fabs(a.real()), std::fabs(a.imag()));
    const double re = a.real() * scale;
    const double im = a.imag() * scale;
    const double by = scale / (re * re + im * im);
    return {re * by, -im * by};
  }

  // log det B + log det Q'B^-1 Q. A row of the ring holds 2s over the pivot, and the eliminated row
  // of Q.
  template <class T>
  T log_determinant(T s, T* ring, T* gram) const {
    constexpr std::size_t block = 65536;
    const T twice = 2.0 * s;
    const T own = 1.0 + twice * d_;
    LogProduct pivots;
    std::fill_n(gram, k_ * k_, T{});
    for (std::size_t from = 0; from < chains_.n; from += block) {
      if (stop_ != nullptr && stop_()) return std::numeric_limits<double>::quiet_NaN();
      for (std::size_t t = from; t < std::min(from + block, chains_.n); ++t) {
        T* const row = ring + static_cast<std::size_t>(chains_.slot[t]) * (k_ + 1);
        T pivot = own - twice * chains_.diagonal[t];
        const double* const q = Q_ + t * k_;
        if (chains_.linked(t)) {
          const T before = row[0];
          pivot -= product(before, twice);
          for (std::size_t j = 0; j < k_; ++j) row[j + 1] = q[j] - product(before, row[j + 1]);
        } else {
          for (std::size_t j = 0; j < k_; ++j) row[j + 1] = q[j];
        }
        pivots.take(pivot);
        const T inverse = reciprocal(pivot);
        row[0] = product(twice, inverse);
        for (std::size_t i = 0; i < k_; ++i) {
          const T scaled = product(row[i + 1], inverse);
          for (std::size_t j = 0; j <= i; ++j) gram[i * k_ + j] += product(scaled, row[j + 1]);
        }
      }
    }
    // Pivots of the small matrix.
    for (std::size_t p = 0; p < k_; ++p) {
      const T pivot = gram[p * k_ + p];
      pivots.take(pivot);
      for (std::size_t i = p + 1; i < k_; ++i) {
        const T factor = gram[i * k_ + p] / pivot;
        for (std::size_t j = p + 1; j <= i; ++j) {
          gram[i * k_ + j] -= product(factor, gram[j * k_ + p]);
        }
      }
    }
    T log;
    pivots.result(log);
    return log;
  }

  Chains chains_;
  const double* Q_;
  std::size_t k_;
  double d_;
  double* ring_;
  double* gram_;
  bool (*stop_)();
};

constexpr std::size_t NOT_NUMBERS = static_cast<std::size_t>(-1);

// Orthonormal columns that span those of X, by rows; returns their number, or NOT_NUMBERS.
// Gram-Schmidt with every projection taken twice, which leaves them orthogonal to rounding (Giraud,
// Langou and Rozloznik 2005). A column that keeps less than 1e-11 of its length depends on those
// before it.
std::size_t orthonormal(std::span<const double> X, std::size_t n, std::size_t k, std::size_t ld,
                        double* Q) {
  constexpr double dependent = 1e-11;
  std::size_t rank = 0;
  for (std::size_t c = 0; c < k; ++c) {
    const double* const x = X.data() + c * ld;
    double scale = 0.0;
    for (std::size_t t = 0; t < n; ++t) scale = std::max(scale, std::fabs(x[t]));
    if (scale == 0.0) scale = 1.0;  // a NaN does not show in the scale
    double length = 0.0;
    for (std::size_t t = 0; t < n; ++t) {
      Q[t * k + rank] = x[t] / scale;
      length += Q[t * k + rank] * Q[t * k + rank];
    }
    if (!std::isfinite(length)) return NOT_NUMBERS;
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t j = 0; j < rank; ++j) {
        double dot = 0.0;
        for (std::size_t t = 0; t < n; ++t) dot += Q[t * k + j] * Q[t * k + rank];
        for (std::size_t t = 0; t < n; ++t) Q[t * k + rank] -= dot * Q[t * k + j];
      }
    }
    double rest = 0.0;
    for (std::size_t t = 0; t < n; ++t) rest += Q[t * k + rank] * Q[t * k + rank];
    if (!(rest > dependent * dependent * length)) continue;
    const double unit = 1.0 / std::sqrt(rest);
    for (std::size_t t = 0; t < n; ++t) Q[t * k + rank] *= unit;
    ++rank;
  }
  // Rows close up when columns were dropped.
  if (rank < k) {
    for (std::size_t t = 0; t < n; ++t) {
      for (std::size_t j = 0; j < rank; ++j) Q[t * rank + j] = Q[t * k + j];
    }
  }
  return rank;
}

}  // namespace

void DifferenceRows::partners(std::span<double> before) const {
  const auto at = [&](std::size_t t) {
    return place.empty() ? t : static_cast<std::size_t>(place[t]);
  };
  std::size_t s = 0;
  for (std::size_t t = 0; t < before.size(); ++t) {
    while (at(s) + order < at(t)) ++s;
    const bool linked = at(s) + order == at(t) && !(at(s) < gap && at(t) >= gap);
    before[t] = linked ? static_cast<double>(s) : -1.0;
  }
}

std::size_t durbin_watson_words(std::size_t n, std::size_t k, const DifferenceRows& rows) {
  return 3 * n + n * k + 2 * (k + 1) * std::max<std::size_t>(rows.order, 1) + 2 * k * k;
}

DurbinWatsonTails durbin_watson_tails(std::span<const double> X, std::size_t n, std::size_t k,
                                      std::size_t ld, double d, const DifferenceRows& rows,
                                      std::span<double> work, bool (*stop)()) {
  if (n <= k || rows.order < 1 || rows.order >= n) return {.IFAULT = 2};
  double* const Q = work.data();
  double* const ring = Q + n * k;
  double* const gram = ring + 2 * (k + 1) * rows.order;
  const std::size_t rank = orthonormal(X, n, k, ld, Q);
  if (rank == NOT_NUMBERS) return {.IFAULT = 3};
  const Chains chains = make_chains(n, rows, gram + 2 * k * k);
  // Mean of the form: trace of M A less (n-k) d. The nearer tail is integrated.
  double mean = -static_cast<double>(n - rank) * d;
  for (std::size_t t = 0; t < n; ++t) {
    if (!chains.linked(t)) continue;
    mean += 2.0;
    const auto s = static_cast<std::size_t>(chains.before[t]);
    for (std::size_t j = 0; j < rank; ++j) {
      const double gap = Q[t * rank + j] - Q[s * rank + j];
      mean -= gap * gap;
    }
  }
  if (std::isnan(d)) return {.IFAULT = 3};
  // The roots lie in 0..4.
  if (d <= 0.0) return {.positive = 0.0, .negative = 1.0};
  if (d >= 4.0) return {.positive = 1.0, .negative = 0.0};
  const Elimination K(chains, Q, rank, d, ring, gram, stop);
  const bool above = mean < 0.0;
  const ContourTail tail = contour_tail(K, -0.5 / d, 0.5 / (4.0 - d), 0.0, above);
  if (stop != nullptr && stop()) return {.IFAULT = 4};
  const double other = 1.0 - tail.value;
  return {.positive = above ? other : tail.value,
          .negative = above ? tail.value : other,
          .IFAULT = tail.IFAULT};
}

}  // namespace korvel
