// Kernels of the ARIMA room where a formula or a published value says what must come out.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "arima/autocorr.h"
#include "arima/bjearm.h"
#include "arima/bjfmod.h"
#include "arima/response_surface.h"

namespace korvel {
namespace {

// AR(1): the first residual of the sample is (1 - phi^2) w(1) - c (1 + phi), since back-forecasting
// reverses the recursion.
TEST(Bjearm, FirstResidualOfAnAutoregression) {
  const std::vector<double> w = {3.0, 1.0, -2.0, 0.5, 4.0};
  std::vector<double> room(arm_words(w.size())), a(PRESAMPLE + w.size());
  const ArmRoom arm(room, w.size());
  std::copy(w.begin(), w.end(), arm.w.begin() + PRESAMPLE);
  BjModel model;
  make_model({.NARP = 1}, std::array{0.6, 0.4}, false, model);
  const double S = BJEARM(model, arm, a);
  EXPECT_NEAR(a[PRESAMPLE], (1 - 0.36) * 3.0 - 0.4 * 1.6, 1e-14);
  EXPECT_NEAR(a[PRESAMPLE + 1], 1.0 - 0.4 - 0.6 * 3.0, 1e-14);
  double sum = 0;
  for (const double v : a) sum += v * v;
  EXPECT_NEAR(S, sum, 1e-12);
}

TEST(Bjearm, ExplosiveParametersGiveNoNumberToTrust) {
  const std::vector<double> w(200, 1e30);
  std::vector<double> room(arm_words(w.size())), a(PRESAMPLE + w.size());
  const ArmRoom arm(room, w.size());
  std::copy(w.begin(), w.end(), arm.w.begin() + PRESAMPLE);
  BjModel model;
  make_model({.NMA = 1, .constant = false}, std::array{50.0}, false, model);
  EXPECT_GT(BJEARM(model, arm, a), 1e38);
}

// The cross terms of the product have the other sign: lag 13 of the airline model is -theta Theta.
TEST(Bjearm, ProductOfPolynomials) {
  LagList list;
  combine_lags(std::array{0.4}, std::array{0.6}, 12, list);
  ASSERT_EQ(list.terms, 3);
  EXPECT_EQ(list.longest, 13);
  EXPECT_EQ(list.lag[0], 13);
  EXPECT_DOUBLE_EQ(list.coef[0], -0.24);
  EXPECT_EQ(list.lag[2], 1);
}

// The difference equation of (1-B)(1-B^4) y = a: y(t) = y(t-1) + y(t-4) - y(t-5).
TEST(Bjfmod, DifferencesInTheEquation) {
  const BjOrders o{.NSPAN = 4, .NDIFF = 1, .NSDIFF = 1, .constant = false};
  std::vector<double> ar(5);
  BJFMOD(o, LagList{}, ar);
  EXPECT_EQ(ar, (std::vector<double>{1, 0, 0, 1, -1}));
}

TEST(Bjfmod, MeanTimesOfAFirstOrderModel) {
  std::vector<double> psi(THEORY_TERMS), rho(THEORY_LAGS);
  psi_weights(std::array{0.5}, LagList{}, psi);
  ASSERT_TRUE(theoretical_autocorrelations(psi, rho));
  EXPECT_NEAR(rho[2], 0.125, 1e-14);
  EXPECT_NEAR(mean_time(rho[0]), 6.0, 1e-9);
  EXPECT_NEAR(mean_time((2 * rho[0] - rho[1] - 1) / (2 * (1 - rho[0]))), 3.4457, 5e-5);
  psi_weights(std::array{1.0}, LagList{}, psi);
  EXPECT_FALSE(theoretical_autocorrelations(psi, rho));
}

// Blocks of lagged products end where the series does: every length around a block against sums
// written out.
TEST(Autocorr, LaggedProducts) {
  for (const std::size_t n : {2u, 9u, 2047u, 2048u, 2049u, 2060u, 5000u}) {
    std::vector<double> x(n);
    for (std::size_t t = 0; t < n; ++t) x[t] = static_cast<double>((t * 7919) % 13) - 6.0;
    std::vector<double> got(std::min<std::size_t>(n - 1, 30));
    lagged_products(x, got);
    for (std::size_t k = 1; k <= got.size(); ++k) {
      double want = 0;
      for (std::size_t t = 0; t + k < n; ++t) want += x[t] * x[t + k];
      EXPECT_DOUBLE_EQ(got[k - 1], want) << n << " " << k;
    }
  }
}

// Critical values are quantiles of the law that the p-values come from: the two sets of surfaces,
// estimated apart, agree within their own accuracy.
TEST(ResponseSurface, CriticalValuesHaveTheirProbability) {
  constexpr double far = 1e9;
  for (int N = 1; N <= 6; ++N) {
    for (const Deterministic d : {Deterministic::constant, Deterministic::trend}) {
      const CriticalValues c = unit_root_critical(UnitRootKind::tau, d, N, far);
      ASSERT_TRUE(c.known);
      EXPECT_NEAR(unit_root_p_value(c.at[0], d, N), 0.01, 0.0007) << N;
      EXPECT_NEAR(unit_root_p_value(c.at[1], d, N), 0.05, 0.0015) << N;
      EXPECT_NEAR(unit_root_p_value(c.at[2], d, N), 0.10, 0.0025) << N;
    }
  }
  EXPECT_FALSE(unit_root_critical(UnitRootKind::tau, Deterministic::trend, 7, 100).known);
  EXPECT_LT(unit_root_p_value(-3, Deterministic::none, 2), 0.0);
  // Asymptotic p-values that gretl's adf prints for these statistics.
  EXPECT_NEAR(unit_root_p_value(-0.913323, Deterministic::none, 1), 0.3209, 0.003);
  EXPECT_NEAR(unit_root_p_value(0.108341, Deterministic::none, 1), 0.717, 0.003);
  EXPECT_NEAR(unit_root_p_value(-3.11188, Deterministic::constant, 1), 0.02571, 0.0005);
  EXPECT_NEAR(unit_root_p_value(-2.46424, Deterministic::constant, 1), 0.1244, 0.001);
  EXPECT_NEAR(unit_root_p_value(-3.78439, Deterministic::trend, 1), 0.01728, 0.0005);
  EXPECT_NEAR(unit_root_p_value(-3.27651, Deterministic::constant, 2), 0.05809, 0.001);
}

}  // namespace
}  // namespace korvel
