// The derivatives of each row's residual and variance, and the sums over their squares: information
// matrix and outer product of the gradient.
//
// Rows are taken in blocks that stay in the cache. For each block the variances h and their
// derivatives come first (the recursion of Bollerslev 1986, derivatives as in Fiorentini, Calzolari
// and Panattoni 1996: values before the sample are fixed, their derivatives 0), then the logarithms
// of the block, then the sums. Sums run row by row in one order.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "expr/kernels/packed.h"
#include "expr/trans_lanes.h"
#include "nonlinear/nlhet.h"

namespace korvel {
namespace {

constexpr int ROWS = 128;  // of a block
constexpr double LN_2PI = 1.8378770664093454836;

// One pass. V: groups of a row of derivatives, 0 any number.
template <int V>
class Pass {
 public:
  Pass(const HetRows& rows, std::span<const double> b, const HetPass& pass, std::span<double> work)
      : r_(rows),
        b_(b.data()),
        pass_(pass),
        KP_(HetRows::padded(rows.K)),
        MP_(HetRows::padded(rows.M)),
        wide_(HetRows::padded(rows.P())),
        lag_(std::max(rows.p, rows.q)),
        slopes_(!pass.gradient.empty() || !pass.information.empty() || !pass.outer.empty()) {
    const auto take = [&](std::size_t n) {
      double* const from = work.data();
      work = work.subspan(n);
      return from;
    };
    const auto rows_of_block = static_cast<std::size_t>(lag_ + ROWS);
    const auto wide = static_cast<std::size_t>(wide_);
    dh_ = take(rows_of_block * wide);
    if (r_.arch_m()) de_ = take(rows_of_block * wide);
    direct_ = take(wide);
    sum_ = take(wide);
    row_ = take(wide);
    e_ = take(rows_of_block);
    e2_ = take(rows_of_block);
    h_ = take(rows_of_block);
    log_h_ = take(ROWS);
  }

  HetValue run() {
    clear();
    for (first_ = 0; first_ < r_.rows; first_ += ROWS) {
      const int n = static_cast<int>(std::min<std::int64_t>(ROWS, r_.rows - first_));
      residuals(n);
      const bool good = r_.form == HetForm::ARCH ? recursion(n) : own_form(n);
      if (!good) return value_;
      sums(n);
      keep_lags(n);
    }
    for (std::size_t k = 0; k < pass_.gradient.size(); ++k) pass_.gradient[k] = sum_[k];
    return value_;
  }

 private:
  // Elements of a row of derivatives: known when the program is built for short ones.
  int width() const { return V > 0 ? V * HetRows::GROUP : wide_; }
  double* dh(int i) const { return dh_ + std::ptrdiff_t{lag_ + i} * wide_; }
  double* de(int i) const { return de_ + std::ptrdiff_t{lag_ + i} * wide_; }
  const double* x(std::int64_t t) const { return r_.X + t * KP_; }
  const double* z(std::int64_t t) const { return r_.Z + t * MP_; }

  void clear() {
    std::ranges::fill(pass_.information, 0.0);
    std::ranges::fill(pass_.outer, 0.0);
    std::fill_n(sum_, wide_, 0.0);
    std::fill_n(direct_, wide_, 0.0);
    std::fill_n(dh_, std::ptrdiff_t{lag_ + ROWS} * wide_, 0.0);
    if (r_.arch_m()) std::fill_n(de_, std::ptrdiff_t{lag_ + ROWS} * wide_, 0.0);
    std::fill_n(e_, lag_, 0.0);
    std::fill_n(e2_, lag_, r_.presample);
    std::fill_n(h_, lag_, r_.presample);
  }

  // e = y - x'b; of ARCH-M the term of h is still to be taken off.
  void residuals(int n) {
    double* const e = e_ + lag_;
    for (int i = 0; i < n; ++i) {
      const double* const xi = x(first_ + i);
      double fit = 0.0;
      for (int k = 0; k < r_.K; ++k) fit += b_[k] * xi[k];
      e[i] = r_.y[first_ + i] - fit;
    }
  }

  bool fault(HetFault kind, int i) {
    value_.fault = kind;
    value_.row = first_ + i;
    return false;
  }
  bool check(int i) {
    const double h = h_[lag_ + i], e = e_[lag_ + i];
    const double e2 = e * e;
    e2_[lag_ + i] = e2;
    if (!(e2 < HUGE_VAL) || h == HUGE_VAL) return fault(HetFault::overflow, i);
    return h > 0.0 || fault(HetFault::variance, i);
  }

  // q(h) of the mean equation and its slope.
  double mean_term(double h, double& slope) const {
    if (r_.power == ARCHM_LOG) {
      slope = 1.0 / h;
      return std::log(h);
    }
    const double q = r_.power == 1.0 ? h : std::pow(h, r_.power);
    slope = r_.power * q / h;
    return q;
  }

  bool recursion(int n) {
    const int v0 = r_.mean_terms();
    const double* const a0 = b_ + v0;
    const double* const c = a0 + 1;
    const double* const a = c + r_.M;
    const double* const f = a + r_.p;
    for (int i = 0; i < n; ++i) {
      const int at = lag_ + i;
      double h = *a0;
      if (r_.M > 0) {
        const double* const zi = z(first_ + i);
        for (int k = 0; k < r_.M; ++k) h += c[k] * zi[k];
      }
      for (int k = 0; k < r_.p; ++k) h += a[k] * e2_[at - 1 - k];
      for (int k = 0; k < r_.q; ++k) h += f[k] * h_[at - 1 - k];
      h_[at] = h;
      if (!(h > 0.0)) return check(i);
      double q = 0.0, q_slope = 0.0;
      if (r_.arch_m()) {
        q = mean_term(h, q_slope);
        e_[at] -= b_[r_.K] * q;
      }
      if (!check(i)) return false;
      if (slopes_) variance_slopes(i, a, f);
      if (slopes_ && r_.arch_m()) mean_slopes(i, q, q_slope);
    }
    return true;
  }

  // dh = (0, 1, z, e^2 lags, h lags) + sum 2 a e de + sum f dh.
  void variance_slopes(int i, const double* a, const double* f) {
    const int at = lag_ + i;
    double* place = direct_ + r_.mean_terms();
    *place++ = 1.0;
    if (r_.M > 0) {
      const double* const zi = z(first_ + i);
      for (int k = 0; k < r_.M; ++k) *place++ = zi[k];
    }
    for (int k = 0; k < r_.p; ++k) *place++ = e2_[at - 1 - k];
    for (int k = 0; k < r_.q; ++k) *place++ = h_[at - 1 - k];
    double* const row = dh(i);
    const int w = width();
    if constexpr (V > 0) {
      double s[static_cast<std::size_t>(V * HetRows::GROUP)];
      for (int j = 0; j < w; ++j) s[j] = direct_[j];
      add_lags(i, a, f, s);
      for (int j = 0; j < w; ++j) row[j] = s[j];
    } else {
      std::copy_n(direct_, w, row);
      add_lags(i, a, f, row);
    }
  }
  void add_lags(int i, const double* a, const double* f, double* s) {
    const int w = width();
    for (int k = 0; k < r_.p; ++k) {
      const int before = i - 1 - k;
      const double c = 2.0 * a[k] * e_[lag_ + before];
      if (r_.arch_m()) {
        const double* const d = de(before);
        for (int j = 0; j < w; ++j) s[j] += c * d[j];
      } else if (first_ + before >= 0) {
        const double* const d = x(first_ + before);
        for (int g = 0; g < KP_; g += HetRows::GROUP) {
          for (int j = g; j < g + HetRows::GROUP; ++j) s[j] -= c * d[j];
        }
      }
    }
    for (int k = 0; k < r_.q; ++k) {
      const double* const d = dh(i - 1 - k);
      for (int j = 0; j < w; ++j) s[j] += f[k] * d[j];
    }
  }
  // de = -x - q - g q' dh.
  void mean_slopes(int i, double q, double q_slope) {
    double* const row = de(i);
    const double* const d = dh(i);
    const double c = b_[r_.K] * q_slope;
    for (int j = 0; j < width(); ++j) row[j] = -(c * d[j]);
    const double* const xi = x(first_ + i);
    for (int k = 0; k < r_.K; ++k) row[k] -= xi[k];
    row[r_.K] -= q;
  }

  // The forms without memory.
  bool own_form(int n) {
    const double* const a = b_ + r_.K;
    for (int i = 0; i < n; ++i) {
      double s = 0.0;  // z'a, or x'b for DEPVAR
      if (r_.form == HetForm::DEPVAR) {
        s = r_.y[first_ + i] - e_[lag_ + i];
      } else {
        const double* const zi = z(first_ + i);
        for (int k = 0; k < r_.M; ++k) s += a[k] * zi[k];
      }
      log_h_[i] = s;
    }
    double* const h = h_ + lag_;
    const auto size = static_cast<std::size_t>(n);
    if (r_.form == HetForm::MULT) lane_table().exp(h, log_h_, nullptr, size);
    for (int i = 0; i < n; ++i) {
      const double s = log_h_[i];
      double slope = 1.0;  // dh/ds
      switch (r_.form) {
        case HetForm::MULT:
          slope = h[i];
          break;
        case HetForm::STDLIN:
          h[i] = s * s;
          slope = 2.0 * s;
          break;
        case HetForm::DEPVAR:
          h[i] = a[0] * a[0] * (s * s);
          slope = 2.0 * a[0] * a[0] * s;
          break;
        default:
          h[i] = s;
          break;
      }
      if (!check(i)) return false;
      if (!slopes_) continue;
      double* const row = dh(i);
      if (r_.form == HetForm::DEPVAR) {
        const double* const xi = x(first_ + i);
        for (int k = 0; k < r_.K; ++k) row[k] = slope * xi[k];
        row[r_.K] = 2.0 * a[0] * (s * s);
      } else {
        const double* const zi = z(first_ + i);
        for (int k = 0; k < r_.M; ++k) row[r_.K + k] = slope * zi[k];
      }
    }
    return true;
  }

  void sums(int n) {
    lane_table().log(log_h_, h_ + lag_, nullptr, static_cast<std::size_t>(n));
    double L = 0.0;
    for (int i = 0; i < n; ++i) {
      const double w = r_.weight == nullptr ? 1.0 : r_.weight[first_ + i];
      const double e = e_[lag_ + i], e2 = e2_[lag_ + i];
      const double inverse = 1.0 / h_[lag_ + i];
      L += w * (log_h_[i] + e2 * inverse + LN_2PI);
      if (!slopes_) continue;
      // Gradient of the row: u dh - v de.
      const double u = -0.5 * (inverse - e2 * inverse * inverse);
      const double v = e * inverse;
      if (!pass_.gradient.empty()) add_gradient(i, w * u, w * v, sum_);
      if (!pass_.outer.empty()) add_outer(i, w, u, v);
      if (!pass_.information.empty()) add_information(i, w, inverse);
    }
    value_.L -= 0.5 * L;
  }
  void add_gradient(int i, double u, double v, double* to) const {
    const double* const d = dh(i);
    for (int j = 0; j < width(); ++j) to[j] += u * d[j];
    if (r_.arch_m()) {
      const double* const s = de(i);
      for (int j = 0; j < width(); ++j) to[j] -= v * s[j];
    } else {
      const double* const xi = x(first_ + i);
      for (int g = 0; g < KP_; g += HetRows::GROUP) {
        for (int j = g; j < g + HetRows::GROUP; ++j) to[j] += v * xi[j];
      }
    }
  }
  void add_outer(int i, double w, double u, double v) {
    std::fill_n(row_, wide_, 0.0);
    add_gradient(i, u, v, row_);
    add_square(row_, r_.P(), w, pass_.outer);
  }
  void add_information(int i, double w, double inverse) {
    add_square(dh(i), r_.P(), 0.5 * w * inverse * inverse, pass_.information);
    // Without ARCH-M the residual depends on b alone.
    if (r_.arch_m())
      add_square(de(i), r_.P(), w * inverse, pass_.information);
    else
      add_square(x(first_ + i), r_.K, w * inverse, pass_.information);
  }
  static void add_square(const double* row, int n, double c, std::span<double> to) {
    std::size_t at = 0;
    for (int i = 0; i < n; ++i) {
      const double ci = c * row[i];
      for (int j = 0; j <= i; ++j) to[at++] += ci * row[j];
    }
  }

  // The last rows stand in front of the next block.
  void keep_lags(int n) {
    const auto lags = static_cast<std::size_t>(lag_);
    const auto wide = static_cast<std::size_t>(wide_);
    for (double* values : {e_, e2_, h_}) {
      std::memmove(values, values + n, lags * sizeof(double));
    }
    std::memmove(dh_, dh_ + std::ptrdiff_t{n} * wide_, lags * wide * sizeof(double));
    if (r_.arch_m()) {
      std::memmove(de_, de_ + std::ptrdiff_t{n} * wide_, lags * wide * sizeof(double));
    }
  }

  const HetRows& r_;
  const double* b_;
  const HetPass& pass_;
  const int KP_, MP_, wide_, lag_;
  const bool slopes_;
  double *dh_ = nullptr, *de_ = nullptr;  // derivatives of h and e, rows of `wide`
  double *direct_ = nullptr, *sum_ = nullptr, *row_ = nullptr;
  double *e_ = nullptr, *e2_ = nullptr, *h_ = nullptr, *log_h_ = nullptr;
  std::int64_t first_ = 0;
  HetValue value_;
};

}  // namespace

std::int64_t het_pass_words(const HetRows& rows) {
  const std::int64_t wide = HetRows::padded(rows.P());
  const std::int64_t rows_of_block = std::max(rows.p, rows.q) + ROWS;
  return rows_of_block * wide * (rows.arch_m() ? 2 : 1) + 3 * wide + 3 * rows_of_block + ROWS;
}

HetValue het_pass(const HetRows& rows, std::span<const double> b, const HetPass& pass,
                  std::span<double> work) {
  switch (HetRows::padded(rows.P()) / HetRows::GROUP) {
    case 1:
      return Pass<1>(rows, b, pass, work).run();
    case 2:
      return Pass<2>(rows, b, pass, work).run();
    case 3:
      return Pass<3>(rows, b, pass, work).run();
    default:
      return Pass<0>(rows, b, pass, work).run();
  }
}

}  // namespace korvel
