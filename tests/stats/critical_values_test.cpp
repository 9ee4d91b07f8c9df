// Inverses against R 4.2.2 (qnorm, qt, qchisq, qf, qbeta at 17 digits) and against themselves.
#include "stats/critical_values.h"

#include <gtest/gtest.h>

#include <cmath>

namespace korvel {
namespace {

void expect_digits(double value, double truth, double relative, const char* what) {
  EXPECT_LE(std::fabs(value - truth), relative * std::fabs(truth)) << what << " " << value;
}

TEST(CriticalValues, NormalClosedForm) {
  EXPECT_EQ(normal_critical(0.025), 1.96);
  EXPECT_EQ(normal_critical(1 - 0.025), -1.96);
  EXPECT_EQ(normal_critical(0.05), 1.645);
  EXPECT_EQ(normal_critical(1 - 0.05), -1.645);
  EXPECT_EQ(normal_critical(-0.1), -1e38);
  EXPECT_EQ(normal_critical(0.0), normal_critical(1e-20));
  EXPECT_EQ(normal_critical(0.5), 0.0);
  // Hastings' form at 0.005 by hand: t = root(2 log 200) = 3.2552472...
  const double t = std::sqrt(2 * std::log(200.0));
  EXPECT_NEAR(normal_critical(0.005),
              t - (2.515517 + 0.802853 * t + 0.010328 * t * t) /
                      (1 + 1.432788 * t + 0.189269 * t * t + 0.001308 * t * t * t),
              1e-14);
  EXPECT_NEAR(normal_critical(0.005), 2.5758293, 5e-4);
  EXPECT_NEAR(normal_critical(0.3), 0.52440051270804067, 1e-15);
}

TEST(CriticalValues, QuantilesAgainstR) {
  expect_digits(normal_quantile(1e-10, Side::below), -6.3613409024040557, 1e-15, "normal");
  expect_digits(normal_quantile(0.3, Side::above), 0.52440051270804067, 1e-15, "normal");
  expect_digits(t_quantile(0.001, Side::below, 3).value, -10.214531852407385, 1e-15, "t");
  expect_digits(t_quantile(0.2, Side::below, 1).value, -1.3763819204711736, 1e-15, "t");
  expect_digits(t_quantile(0.1, Side::above, 2.5).value, 1.7302509288071761, 1e-14, "t");
  expect_digits(chi_square_quantile(0.95, Side::below, 3).value, 7.8147279032511792, 1e-14, "chi");
  expect_digits(chi_square_quantile(0.001, Side::below, 1).value, 1.5707971492624904e-06, 1e-14,
                "chi");
  expect_digits(f_quantile(0.05, Side::above, 3, 20).value, 3.0983912121407795, 1e-14, "f");
  expect_digits(f_quantile(0.01, Side::below, 7, 4).value, 0.12744300169421116, 1e-14, "f");
  expect_digits(beta_quantile(0.975, Side::below, 2, 3).value, 0.80587955031675662, 1e-14, "beta");
  expect_digits(beta_quantile(0.01, Side::below, 0.5, 0.5).value, 0.00024671981713422151, 1e-13,
                "beta");
}

// Every quantile gives its probability back, far out too.
TEST(CriticalValues, ThereAndBack) {
  for (const double p : {1e-100, 1e-20, 1e-8, 0.01, 0.5, 0.95}) {
    for (const double df : {1.0, 3.0, 40.0, 1500.0}) {
      const auto back = [&](double again) { expect_digits(again, p, 2e-13, "back"); };
      back(t_tails(t_quantile(p, Side::above, df).value, df).above);
      back(chi_square_tails(chi_square_quantile(p, Side::above, df).value, df).above);
      back(chi_square_tails(chi_square_quantile(p, Side::below, df).value, df).below);
      back(f_tails(f_quantile(p, Side::below, df, 7).value, df, 7).below);
      const double x = beta_quantile(p, Side::below, df, 3).value;
      expect_digits(beta_tails(x, 1.0L - x, df, 3).below, p, 1e-12, "beta back");
    }
  }
  // The normal form of chi-square is inverted as it stands; non-central forms.
  expect_digits(chi_square_tails(chi_square_quantile(0.3, Side::below, 3000).value, 3000).below,
                0.3, 1e-12, "large df");
  expect_digits(t_cdf(t_quantile(0.975, Side::below, 10, 1).value, 10, 1), 0.975, 1e-14, "nc t");
  expect_digits(f_tails(f_quantile(0.95, Side::below, 3, 20, 4).value, 3, 20, 4).below, 0.95, 1e-14,
                "nc f");
}

TEST(CriticalValues, FClosedForms) {
  expect_digits(f_critical(0.05, 2, 20).value, 3.4928284767356343, 1e-14, "df1 2");
  expect_digits(f_critical(0.05, 5, 2).value, 19.296409652017232, 1e-14, "df2 2");
  expect_digits(f_critical(0.05, 1, 20).value, 4.3512435033292896, 1e-14, "df1 1");
  // The normal approximation by hand for 10 and 20: h 12.2143, lambda -0.048996, w 0.427066.
  EXPECT_NEAR(f_critical(0.05, 10, 20).value, 2.349333, 1e-6);
  expect_digits(f_critical(0.05, 5, 1).value, f_quantile(0.05, Side::above, 5, 1).value, 1e-15,
                "where the approximation is not defined");
}

TEST(CriticalValues, WhatHasNoValue) {
  EXPECT_EQ(t_quantile(0.0, Side::below, 5).IFAULT, 1);
  EXPECT_EQ(t_quantile(0.5, Side::below, 0).IFAULT, 1);
  EXPECT_EQ(chi_square_quantile(1.0, Side::below, 5).IFAULT, 1);
  EXPECT_EQ(chi_square_quantile(0.0, Side::below, 5).value, 0.0);
  EXPECT_EQ(chi_square_quantile(0.5, Side::below, 2e6).IFAULT, 1);  // beyond 999999
  EXPECT_EQ(beta_quantile(1.0, Side::below, 2, 3).value, 1.0);
  EXPECT_EQ(beta_quantile(std::nan(""), Side::below, 2, 3).IFAULT, 1);
}

}  // namespace
}  // namespace korvel
