// Davies (1980), "The distribution of a linear combination of chi-squared random variables",
// Applied Statistics 29, 323-333, algorithm AS 155. Names of the parts follow the publication.
#include "stats/davies.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double LOG2_BY_8 = 0.08664339756999316;

double square(double x) { return x * x; }
double exp1(double x) { return x < -50.0 ? 0.0 : std::exp(x); }
// log(1+x) - x
double log_rest(double x) {
  if (std::fabs(x) > 0.1) return std::log1p(x) - x;
  const double y = x / (2.0 + x);
  const double s = y * y;
  double sum = 0.0;
  for (int k = 17; k >= 3; k -= 2) sum = sum * s + 1.0 / k;
  return 2.0 * y * s * sum - x * y;
}

class Davies {
 public:
  Davies(std::span<const double> lambda, std::span<const double> df, std::span<const double> ncentr,
         double x, int limit, std::span<int> rank)
      : lambda_(lambda), df_(df), ncentr_(ncentr), x_(x), limit_(limit), rank_(rank) {}

  DaviesResult run(double sigma, double accuracy) {
    result_.value = -1.0;
    if (!moments(sigma) || !(accuracy > 0.0)) {
      result_.IFAULT = 3;
      return result_;
    }
    if (sd_ == 0.0) {
      result_.value = x_ > 0.0 ? 1.0 : 0.0;
    } else {
      invert(accuracy);
    }
    if (lost_) {
      result_.IFAULT = 4;
      result_.value = -1.0;
    }
    result_.trace.cycles = count_;
    return result_;
  }

 private:
  std::size_t size() const { return lambda_.size(); }

  // Counts the cycles of the searches. Once they are used up every search ends at its next test.
  void counter() {
    count_ += 1.0;
    if (count_ > limit_) lost_ = true;
  }

  bool moments(double sigma) {
    sigsq_ = square(sigma);
    double variance = sigsq_;
    for (std::size_t j = 0; j < size(); ++j) {
      if (!(df_[j] >= 0.0) || !(ncentr_[j] >= 0.0) || !std::isfinite(lambda_[j])) return false;
      variance += square(lambda_[j]) * (2.0 * df_[j] + 4.0 * ncentr_[j]);
      mean_ += lambda_[j] * (df_[j] + ncentr_[j]);
      lmax_ = std::max(lmax_, lambda_[j]);
      lmin_ = std::min(lmin_, lambda_[j]);
    }
    sd_ = std::sqrt(variance);
    return std::isfinite(sd_) && std::isfinite(x_) &&
           !(lmin_ == 0.0 && lmax_ == 0.0 && sigma == 0.0 && sd_ != 0.0);
  }

  // Bound on the tail beyond `cutoff` from the moment generating function at u.
  double errbd(double u, double& cutoff) {
    counter();
    double xconst = u * sigsq_;
    double sum = u * xconst;
    u *= 2.0;
    for (std::size_t j = size(); j-- > 0;) {
      const double x = u * lambda_[j];
      const double y = 1.0 - x;
      xconst += lambda_[j] * (ncentr_[j] / y + df_[j]) / y;
      sum += ncentr_[j] * square(x / y) + df_[j] * (square(x) / y + log_rest(-x));
    }
    cutoff = xconst;
    return exp1(-0.5 * sum);
  }

  // Point with P(Q > point) < accx for upn > 0, P(Q < point) < accx else; upn is moved along.
  double ctff(double accx, double& upn) {
    double u2 = upn;
    double u1 = 0.0;
    double c1 = mean_;
    double c2 = 0.0;
    const double rb = 2.0 * (u2 > 0.0 ? lmax_ : lmin_);
    while (errbd(u2 / (1.0 + u2 * rb), c2) > accx && !lost_) {
      u1 = u2;
      c1 = c2;
      u2 *= 2.0;
    }
    while ((c1 - mean_) / (c2 - mean_) < 0.9 && !lost_) {
      const double u = 0.5 * (u1 + u2);
      double middle;
      if (errbd(u / (1.0 + u * rb), middle) > accx) {
        u1 = u;
        c1 = middle;
      } else {
        u2 = u;
        c2 = middle;
      }
    }
    upn = u2;
    return c2;
  }

  // Bound on the error of ending the integral at u.
  double truncation(double u, double tausq) {
    counter();
    double sum1 = 0.0;
    double prod2 = 0.0;
    double prod3 = 0.0;
    double s = 0.0;
    const double sum2 = (sigsq_ + tausq) * square(u);
    double prod1 = 2.0 * sum2;
    u *= 2.0;
    for (std::size_t j = 0; j < size(); ++j) {
      const double x = square(u * lambda_[j]);
      sum1 += ncentr_[j] * x / (1.0 + x);
      if (x > 1.0) {
        prod2 += df_[j] * std::log(x);
        prod3 += df_[j] * std::log1p(x);
        s += df_[j];
      } else {
        prod1 += df_[j] * std::log1p(x);
      }
    }
    sum1 *= 0.5;
    prod2 += prod1;
    prod3 += prod1;
    const double x = exp1(-sum1 - 0.25 * prod2) / PI;
    const double y = exp1(-sum1 - 0.25 * prod3) / PI;
    const double err1 = std::min(s == 0.0 ? 1.0 : 2.0 * x / s, prod3 > 1.0 ? 2.5 * y : 1.0);
    return std::min(err1, 0.5 * sum2 <= y ? 1.0 : y / (0.5 * sum2));
  }

  // u with truncation(u) < accx and truncation(u/1.2) > accx.
  void findu(double& utx, double accx) {
    double ut = utx;
    double u = ut / 4.0;
    if (truncation(u, 0.0) > accx) {
      for (u = ut; truncation(u, 0.0) > accx && !lost_; u = ut) ut *= 4.0;
    } else {
      ut = u;
      for (u /= 4.0; truncation(u, 0.0) <= accx && !lost_; u /= 4.0) ut = u;
    }
    for (const double divisor : {2.0, 1.4, 1.2, 1.1}) {
      if (truncation(ut / divisor, 0.0) <= accx) ut /= divisor;
    }
    utx = ut;
  }

  // Trapezoidal rule with nterm+1 terms; an auxiliary integration takes the part that the
  // convergence factor tausq leaves out.
  void integrate(int nterm, double interval, double tausq, bool main) {
    const double inpi = interval / PI;
    for (int k = nterm; k >= 0; --k) {
      const double u = (k + 0.5) * interval;
      double sum1 = -2.0 * u * x_;
      double sum2 = std::fabs(sum1);
      double sum3 = -0.5 * sigsq_ * square(u);
      for (std::size_t j = size(); j-- > 0;) {
        const double x = 2.0 * lambda_[j] * u;
        const double y = square(x);
        sum3 -= 0.25 * df_[j] * std::log1p(y);
        const double shift = ncentr_[j] * x / (1.0 + y);
        const double z = df_[j] * std::atan(x) + shift;
        sum1 += z;
        sum2 += std::fabs(z);
        sum3 -= 0.5 * x * shift;
      }
      double weight = inpi * exp1(sum3) / u;
      if (!main) weight *= 1.0 - exp1(-0.5 * tausq * square(u));
      integral_ += std::sin(0.5 * sum1) * weight;
      result_.trace.absolute_sum += 0.5 * sum2 * weight;
    }
    result_.trace.integrations += 1.0;
    result_.trace.terms += nterm + 1.0;
  }

  // Factor of tausq in the error that the convergence factor makes at x; `failed` when too large.
  double cfe(double x, bool& failed) {
    counter();
    if (!ranked_) {
      std::iota(rank_.begin(), rank_.end(), 0);
      std::sort(rank_.begin(), rank_.end(), [&](int i, int j) {
        const double a = std::fabs(lambda_[static_cast<std::size_t>(i)]);
        const double b = std::fabs(lambda_[static_cast<std::size_t>(j)]);
        return a != b ? a > b : i < j;
      });
      ranked_ = true;
    }
    const auto weight = [&](std::size_t j) {
      const auto t = static_cast<std::size_t>(rank_[j]);
      return df_[t] + ncentr_[t];
    };
    double axl = std::fabs(x);
    const double sign = x > 0.0 ? 1.0 : -1.0;
    double sum = 0.0;
    for (std::size_t j = size(); j-- > 0;) {
      const double signed_lambda = lambda_[static_cast<std::size_t>(rank_[j])];
      if (signed_lambda * sign <= 0.0) continue;
      const double lj = std::fabs(signed_lambda);
      const double axl1 = axl - lj * weight(j);
      const double axl2 = lj / LOG2_BY_8;
      if (axl1 > axl2) {
        axl = axl1;
        continue;
      }
      axl = std::min(axl, axl2);
      sum = (axl - axl1) / lj;
      for (std::size_t k = 0; k < j; ++k) sum += weight(k);
      break;
    }
    failed = sum > 100.0;
    return failed ? 1.0 : std::exp2(sum / 4.0) / (PI * square(axl));
  }

  void invert(double accuracy) {
    double acc1 = accuracy;
    double xlim = limit_;
    double utx = 16.0 / sd_;
    double up = 4.5 / sd_;
    double un = -up;
    bool failed = false;
    // 1. Truncation point without a convergence factor; does one help?
    findu(utx, 0.5 * acc1);
    if (lost_) return;
    if (x_ != 0.0 && std::max(lmax_, -lmin_) > 0.07 * sd_) {
      const double tausq = 0.25 * acc1 / cfe(x_, failed);
      if (!failed && truncation(utx, tausq) < 0.2 * acc1) {
        sigsq_ += tausq;
        findu(utx, 0.25 * acc1);
        result_.trace.convergence_sd = std::sqrt(tausq);
      }
    }
    result_.trace.truncation = utx;
    acc1 *= 0.5;
    double interval = 0.0;
    double xnt = 0.0;
    while (true) {
      // 2. Range of the distribution; outside it nothing is left to be computed.
      const double d1 = ctff(acc1, up) - x_;
      if (lost_) return;
      if (d1 < 0.0) {
        result_.value = 1.0;
        return;
      }
      const double d2 = x_ - ctff(acc1, un);
      if (lost_) return;
      if (d2 < 0.0) {
        result_.value = 0.0;
        return;
      }
      // 3. Interval and number of terms; an auxiliary integration when there would be too many.
      interval = 2.0 * PI / std::max(d1, d2);
      xnt = utx / interval;
      const double xntm = 3.0 / std::sqrt(acc1);
      if (!(xnt > 1.5 * xntm)) break;
      if (xntm > xlim) {
        result_.IFAULT = 1;
        return;
      }
      const int ntm = static_cast<int>(std::floor(xntm + 0.5));
      const double interval1 = utx / ntm;
      const double x = 2.0 * PI / interval1;
      if (x <= std::fabs(x_)) break;
      bool failed1 = false;
      bool failed2 = false;
      const double tausq = 0.33 * acc1 / (1.1 * (cfe(x_ - x, failed1) + cfe(x_ + x, failed2)));
      if (lost_) return;
      if (failed1 || failed2) break;
      acc1 *= 0.67;
      integrate(ntm, interval1, tausq, false);
      xlim -= xntm;
      sigsq_ += tausq;
      findu(utx, 0.25 * acc1);
      if (lost_) return;
      acc1 *= 0.75;
    }
    // 4. The main integration.
    result_.trace.interval = interval;
    if (!(xnt <= xlim)) {
      result_.IFAULT = 1;
      return;
    }
    integrate(static_cast<int>(std::floor(xnt + 0.5)), interval, 0.0, true);
    result_.value = std::clamp(0.5 - integral_, 0.0, 1.0);
    // 5. Could round-off count? The absolute sum must not drown a tenth of the accuracy.
    const double sum = result_.trace.absolute_sum;
    if (sum + accuracy / 10.0 == sum) result_.IFAULT = 2;
  }

  std::span<const double> lambda_, df_, ncentr_;
  double x_;
  int limit_;
  std::span<int> rank_;
  bool ranked_ = false;
  bool lost_ = false;
  double sigsq_ = 0, sd_ = 0, mean_ = 0, lmax_ = 0, lmin_ = 0;
  double integral_ = 0;
  double count_ = 0;
  DaviesResult result_;
};

}  // namespace

DaviesResult DAVIES(std::span<const double> lambda, std::span<const double> df,
                    std::span<const double> ncentr, double sigma, double x, int limit,
                    double accuracy, std::span<int> rank) {
  return Davies(lambda, df, ncentr, x, limit, rank.first(lambda.size())).run(sigma, accuracy);
}

}  // namespace korvel
