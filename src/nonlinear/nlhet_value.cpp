// The likelihood of a model with changing variance, and its gradient.
//
// The gradient is taken backwards: from the derivatives of the likelihood with respect to each
// row's own h and e follow, last row first, those with respect to everything that comes later,
//
//     dL/de_t = -e_t/h_t + 2 e_t sum a_i dL/dh_{t+i}
//     dL/dh_t = -(1/h_t - e_t^2/h_t^2)/2 + sum f_j dL/dh_{t+j} - g q'(h_t) dL/de_t
//
// and the gradient is one inner product a coefficient. It is the same as with the recursion for dh
// (Fiorentini, Calzolari and Panattoni 1996), without a vector for each row. Sums have a fixed
// order.

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"
#include "expr/trans_lanes.h"
#include "nonlinear/nlhet.h"

namespace korvel {
namespace {

constexpr std::int64_t BLOCK_ROWS = 256;  // of one partial sum of the likelihood
constexpr double LN_2PI = 1.8378770664093454836;

// q(h) of ARCH-M, or z'a of STDLIN, whose sign h does not have.
bool keeps_term(const HetRows& r) { return r.arch_m() || r.form == HetForm::STDLIN; }

class Likelihood {
 public:
  Likelihood(const HetRows& rows, std::span<const double> b, std::span<double> e,
             std::span<double> h, std::span<double> work)
      : r_(rows),
        n_(rows.rows),
        b_(b.data()),
        v_(b.data() + rows.mean_terms()),
        e_(e.data()),
        h_(h.data()) {
    const auto take = [&] {
      double* const from = work.data();
      work = work.subspan(static_cast<std::size_t>(n_));
      return from;
    };
    e2_ = take();
    u_ = take();
    s_ = take();
    if (keeps_term(r_)) q_ = take();
  }

  HetValue value() {
    residuals();
    if (r_.form != HetForm::ARCH)
      own_form();
    else if (r_.arch_m())
      recursion_in_mean();
    else
      recursion();
    if (!in_range()) return value_;
    for (std::int64_t t = 0; t < n_; t += BLOCK_ROWS) {
      value_.L -= 0.5 * block(t, std::min(BLOCK_ROWS, n_ - t));
    }
    return value_;
  }

  void gradient(std::span<double> g) {
    if (r_.form == HetForm::ARCH) backwards();
    const auto first = static_cast<std::size_t>(r_.mean_terms());
    if (r_.arch_m()) g[first - 1] = dot(s_, q_, n_);
    if (r_.form == HetForm::DEPVAR) {
      const double a = v_[0];
      double sum = 0.0;
      for (std::int64_t t = 0; t < n_; ++t) {
        const double m = r_.y[t] - e_[t];
        sum += u_[t] * (2.0 * a * (m * m));
        s_[t] += u_[t] * (2.0 * a * a * m);
      }
      g[first] = sum;
    }
    for (int k = 0; k < r_.K; ++k) g[static_cast<std::size_t>(k)] = dot(s_, column(k), n_);
    if (r_.form == HetForm::DEPVAR) return;
    std::size_t place = first;
    if (r_.form == HetForm::ARCH) {
      g[place++] = dot(u_, nullptr, n_);
    } else if (r_.form == HetForm::STDLIN) {
      for (std::int64_t t = 0; t < n_; ++t) u_[t] *= 2.0 * q_[t];
    } else if (r_.form == HetForm::MULT) {
      for (std::int64_t t = 0; t < n_; ++t) u_[t] *= h_[t];
    }
    for (int k = 0; k < r_.M; ++k) g[place++] = dot(u_, column(r_.K + k), n_);
    for (int k = 1; k <= r_.p; ++k) g[place++] = lagged_dot(e2_, k);
    for (int k = 1; k <= r_.q; ++k) g[place++] = lagged_dot(h_, k);
  }

 private:
  const double* column(int k) const { return r_.column[k]; }

  // A column of ones is a null pointer.
  static double dot(const double* x, const double* y, std::int64_t n) {
    if (y != nullptr) return vector_lanes().dot(x, y, n);
    double sum[4] = {};
    std::int64_t t = 0;
    for (; t + 4 <= n; t += 4) {
      for (int k = 0; k < 4; ++k) sum[k] += x[t + k];
    }
    for (; t < n; ++t) sum[0] += x[t];
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
  }
  // Sum of u_t x_{t-lag}; before the sample x has the pre-sample value.
  double lagged_dot(const double* x, std::int64_t lag) const {
    const std::int64_t before = std::min(lag, n_);
    double sum = 0.0;
    for (std::int64_t t = 0; t < before; ++t) sum += u_[t] * r_.presample;
    return sum + dot(u_ + before, x, n_ - before);
  }
  // to += c x.
  static void add(double c, const double* x, std::int64_t n, double* to) {
    if (x != nullptr) return vector_lanes().add(c, x, n, to);
    for (std::int64_t t = 0; t < n; ++t) to[t] += c;
  }
  // to_t += c x_{t-lag}.
  void add_lagged(double c, const double* x, std::int64_t lag, double* to) const {
    const std::int64_t before = std::min(lag, n_);
    for (std::int64_t t = 0; t < before; ++t) to[t] += c * r_.presample;
    vector_lanes().add(c, x, n_ - before, to + before);
  }

  // e = y - x'b, in ARCH-M without the term of h; e2 its squares.
  void residuals() {
    std::copy_n(r_.y, n_, e_);
    for (int k = 0; k < r_.K; ++k) add(-b_[k], column(k), n_, e_);
    for (std::int64_t t = 0; t < n_; ++t) e2_[t] = e_[t] * e_[t];
  }

  // a0 + z'c.
  void constant_part() {
    std::fill_n(h_, n_, v_[0]);
    for (int k = 0; k < r_.M; ++k) add(v_[1 + k], column(r_.K + k), n_, h_);
  }
  const double* a() const { return v_ + 1 + r_.M; }
  const double* f() const { return a() + r_.p; }

  void recursion() {
    constant_part();
    for (int i = 1; i <= r_.p; ++i) add_lagged(a()[i - 1], e2_, i, h_);
    if (r_.q == 1) {
      const double f1 = *f();
      double last = r_.presample;
      for (std::int64_t t = 0; t < n_; ++t) h_[t] = last = h_[t] + f1 * last;
      return;
    }
    for (std::int64_t t = 0; r_.q > 0 && t < n_; ++t) {
      for (int j = 1; j <= r_.q; ++j) {
        h_[t] += f()[j - 1] * (t >= j ? h_[t - j] : r_.presample);
      }
    }
  }
  // The term of h moves the residual: row by row. It ends at a variance that is none.
  void recursion_in_mean() {
    constant_part();
    const double g = b_[r_.K];
    for (std::int64_t t = 0; t < n_; ++t) {
      double h = h_[t];
      for (int i = 1; i <= r_.p; ++i) h += a()[i - 1] * (t >= i ? e2_[t - i] : r_.presample);
      for (int j = 1; j <= r_.q; ++j) h += f()[j - 1] * (t >= j ? h_[t - j] : r_.presample);
      h_[t] = h;
      if (!(h > 0.0)) return;
      q_[t] = r_.power == ARCHM_LOG ? std::log(h) : r_.power == 1.0 ? h : std::pow(h, r_.power);
      e_[t] -= g * q_[t];
      e2_[t] = e_[t] * e_[t];
    }
  }

  void own_form() {
    if (r_.form == HetForm::DEPVAR) {
      const double a2 = v_[0] * v_[0];
      for (std::int64_t t = 0; t < n_; ++t) {
        const double m = r_.y[t] - e_[t];
        h_[t] = a2 * (m * m);
      }
      return;
    }
    std::fill_n(h_, n_, 0.0);
    for (int k = 0; k < r_.M; ++k) add(v_[k], column(r_.K + k), n_, h_);
    if (r_.form == HetForm::MULT) {
      lane_table().exp(h_, h_, nullptr, static_cast<std::size_t>(n_));
    } else if (r_.form == HetForm::STDLIN) {
      std::copy_n(h_, n_, q_);
      for (std::int64_t t = 0; t < n_; ++t) h_[t] = q_[t] * q_[t];
    }
  }

  bool in_range() {
    bool good = true;
    for (std::int64_t t = 0; t < n_; ++t) {
      good &= (h_[t] > 0.0) & (h_[t] < HUGE_VAL) & (e2_[t] < HUGE_VAL);
    }
    if (good) return true;
    for (std::int64_t t = 0; t < n_; ++t) {
      value_.row = t;
      if (!(e2_[t] < HUGE_VAL) || h_[t] == HUGE_VAL) {
        value_.fault = HetFault::overflow;
        return false;
      }
      if (!(h_[t] > 0.0)) {
        value_.fault = HetFault::variance;
        return false;
      }
    }
    return true;
  }

  // Sum of w [log h + e^2/h + log 2pi]; u = dL/dh and s = e/h of the rows, times w.
  double block(std::int64_t first, std::int64_t n) {
    double logs[BLOCK_ROWS];
    lane_table().log(logs, h_ + first, nullptr, static_cast<std::size_t>(n));
    double sum[4] = {};
    const double *const e = e_ + first, *const e2 = e2_ + first, *const h = h_ + first;
    const double* const w = r_.weight == nullptr ? nullptr : r_.weight + first;
    double *const u = u_ + first, *const s = s_ + first;
    double terms[BLOCK_ROWS];
    for (std::int64_t t = 0; t < n; ++t) {
      const double inverse = 1.0 / h[t];
      terms[t] = logs[t] + e2[t] * inverse + LN_2PI;
      u[t] = -0.5 * (inverse - e2[t] * inverse * inverse);
      s[t] = e[t] * inverse;
    }
    if (w != nullptr) {
      for (std::int64_t t = 0; t < n; ++t) {
        terms[t] *= w[t];
        u[t] *= w[t];
        s[t] *= w[t];
      }
    }
    std::int64_t t = 0;
    for (; t + 4 <= n; t += 4) {
      for (int k = 0; k < 4; ++k) sum[k] += terms[t + k];
    }
    for (; t < n; ++t) sum[0] += terms[t];
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
  }

  // u_t := dL/dh_t and s_t := -dL/de_t with all that follows from them.
  void backwards() {
    if (!r_.arch_m()) {
      if (r_.q == 1) {
        const double f1 = *f();
        double next = 0.0;
        for (std::int64_t t = n_ - 1; t >= 0; --t) u_[t] = next = u_[t] + f1 * next;
      } else if (r_.q > 1) {
        for (std::int64_t t = n_ - 1; t >= 0; --t) u_[t] += later(f(), r_.q, t);
      }
      for (int i = 1; i <= r_.p; ++i) {
        const double c = 2.0 * a()[i - 1];
        for (std::int64_t t = 0; t < n_ - i; ++t) s_[t] -= c * e_[t] * u_[t + i];
      }
      return;
    }
    const double g = b_[r_.K];
    for (std::int64_t t = n_ - 1; t >= 0; --t) {
      s_[t] -= 2.0 * e_[t] * later(a(), r_.p, t);
      const double slope = r_.power == ARCHM_LOG ? 1.0 / h_[t] : r_.power * q_[t] / h_[t];
      u_[t] += later(f(), r_.q, t) + g * slope * s_[t];
    }
  }
  // Sum of c_i u_{t+i}.
  double later(const double* c, int count, std::int64_t t) const {
    double sum = 0.0;
    for (int i = 1; i <= count && t + i < n_; ++i) sum += c[i - 1] * u_[t + i];
    return sum;
  }

  const HetRows& r_;
  const std::int64_t n_;
  const double *b_, *v_;  // all coefficients; those of the variance
  double *e_, *h_;
  double *e2_ = nullptr, *u_ = nullptr, *s_ = nullptr, *q_ = nullptr;
  HetValue value_;
};

}  // namespace

std::int64_t het_value_words(const HetRows& rows) { return rows.rows * (keeps_term(rows) ? 4 : 3); }

HetValue het_value(const HetRows& rows, std::span<const double> b, std::span<double> e,
                   std::span<double> h, std::span<double> gradient, std::span<double> work) {
  Likelihood likelihood(rows, b, e, h, work);
  const HetValue value = likelihood.value();
  if (value.fault == HetFault::none && !gradient.empty()) likelihood.gradient(gradient);
  return value;
}

}  // namespace korvel
