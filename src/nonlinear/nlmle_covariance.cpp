// The covariance of the estimates of MLE, and estimates at the bounds of the stable law.

#include <algorithm>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlmle_parts.h"
#include "nonlinear/nonlinear.h"

namespace korvel {
namespace {

void tell_covariance_failed() {
  if (OCOM.OPUT) {
    warn(" ...WARNING..COVARIANCE MATRIX AND STD ERRORS ");
    warn(" ARE INCORRECT");
  }
  temporary(temporary_place("ERR")) = ERR_MLE_COVARIANCE;
}

// The likelihood with one coefficient held: a function of the others.
class HeldCoefficient final : public Objective {
 public:
  // all: room for M coefficients.
  HeldCoefficient(Objective& whole, std::size_t place, double value, std::span<double> all)
      : whole_(whole), place_(place), value_(value), all_(all) {
    analytic = false;
  }
  Value evaluate(std::span<const double> b, std::span<double> gradient) override {
    insert(b, all_);
    return whole_.evaluate(all_, gradient);
  }
  void insert(std::span<const double> b, std::span<double> all) const {
    std::copy_n(b.begin(), place_, all.begin());
    all[place_] = value_;
    std::copy(b.begin() + static_cast<std::ptrdiff_t>(place_), b.end(),
              all.begin() + static_cast<std::ptrdiff_t>(place_) + 1);
  }

 private:
  Objective& whole_;
  std::size_t place_;
  double value_;
  std::span<double> all_;
};

}  // namespace

bool mle_covariance(MleModel& m, MleLikelihood& likelihood) {
  const auto inverted = [&](bool good) { return good && symmetric_inverse(m.cov, m.M()) == 0; };
  const auto second_derivatives = [&] {
    const bool own = likelihood.analytic;
    if (NLCOM.NUMERIC || NLCOM.NUMCOV) {
      likelihood.analytic = false;
      if (OCOM.OPUT) say<"(' NUMERIC DERIVATIVES USING STEP =', G13.5)">(NLCOM.DELTA);
    }
    const bool good = numeric_hessian(likelihood, m.scaled, m.cov, m.work);
    likelihood.analytic = own;
    if (NLCOM.DUMP && good) {
      const std::span<double> second = m.work.first(m.cov.size());
      std::ranges::copy(m.cov, second.begin());
      mle_derivatives_from_units(*m.family, m.rows, second);
      say("  SECOND DERIVATIVES    ");
      print_mle_triangle(second, m.M(), -1.0);
    }
    return good;
  };
  bool good;
  if (NLCOM.OPGCOV && m.family->type != MleType::STABLE) {
    if (OCOM.OPUT) {
      say(" ASY. COVARIANCE MATRIX OF PARAMETER ESTIMATES  IS ESTIMATED USING"
          " THE OUTER PRODUCT OF THE GRADIENT");
    }
    good = inverted(likelihood.outer_product(m.scaled, m.cov));
  } else {
    good = inverted(second_derivatives());
  }
  if (stop_requested()) return false;
  if (!good) {
    if (!inverted(likelihood.outer_product(m.scaled, m.cov))) std::ranges::fill(m.cov, 0.0);
    tell_covariance_failed();
    return false;
  }
  return true;
}

bool stability_at_bound(MleModel& m, MleLikelihood& likelihood, Minimum& minimum) {
  if (m.family->type != MleType::STABLE) return false;
  const auto place = static_cast<std::size_t>(m.K());
  const double A = StableDensity::held(m.scaled[place]);
  if (A != StableDensity::HIGHEST_A && A != StableDensity::LOWEST_A) return false;
  warn<"(' ...WARNING..STABILITY PARAMETER IS HELD AT ITS BOUND', F6.2)">(A);
  const std::size_t M = m.b.size(), n = M - 1;
  std::span<double> room = m.work;
  const auto take = [&](std::size_t words) {
    const std::span<double> part = room.first(words);
    room = room.subspan(words);
    return part;
  };
  const std::span<double> all = take(M), b = take(n), gradient = take(n);
  const std::span<double> H = take(packed_words(static_cast<int>(n)));
  HeldCoefficient held(likelihood, place, A, all);
  std::copy_n(m.scaled.begin(), place, b.begin());
  std::copy(m.scaled.begin() + static_cast<std::ptrdiff_t>(place) + 1, m.scaled.end(),
            b.begin() + static_cast<std::ptrdiff_t>(place));
  minimum.f = newton_polish(held, b, gradient, room);
  held.insert(b, m.scaled);
  // The covariance of the others; that of the stability is 0.
  const bool good =
      numeric_hessian(held, b, H, room) && symmetric_inverse(H, static_cast<int>(n)) == 0;
  std::ranges::fill(m.cov, 0.0);
  const auto whole = [&](int i) { return i <= m.K() ? i : i + 1; };
  for (int i = 1; good && i <= static_cast<int>(n); ++i) {
    for (int j = 1; j <= i; ++j) m.cov[packed(whole(i), whole(j))] = H[packed(i, j)];
  }
  if (!good) tell_covariance_failed();
  std::ranges::fill(m.gradient, 0.0);
  return true;
}

}  // namespace korvel
