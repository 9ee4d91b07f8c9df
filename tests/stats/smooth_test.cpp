// SMOOTH: moving and exponential averages, seasonal factors, the Hodrick-Prescott filter.
#include <gtest/gtest.h>

#include <random>

#include "stats/hodrick.h"
#include "stats/index.h"
#include "stats_fixture.h"

namespace korvel {
namespace {

using korvel_test::expect_digits;
using korvel_test::LRE;
using korvel_test::run_commands;
using korvel_test::values;

const std::string SERIES12 =
    "TIME 1980.1 4\nSAMPLE 1 12\n?READ X\n10 12.1 10.8 12.6 13 18 18.7 20.8 21.6 26.6 27.3 "
    "30\nEND\n";
constexpr double NONE = -99999.0;

// R 4.2.2: decompose(x, "multiplicative") and "additive", quarterly.
TEST(Smooth, SeasonalFactorsAgreeWithR) {
  run_commands(SERIES12 +
               "SMOOTH X / CENTRAL MAVE=M SFAC=S SAMAVE=A\n"
               "SMOOTH X / CENTRAL ADDITIVE SFAC=SA SAMAVE=AA\n"
               "SMOOTH X / NMA=3 EMAVE=E MAVE=M3 WEIGHT=0.3\n"
               "SMOOTH X / NMA=3 CENTRAL MAVE=C3 NSPAN=2\n");
  expect_digits(
      "M", {NONE, NONE, 11.75, 12.8625, 14.5875, 16.6, 18.7, 20.85, 23, 25.225, NONE, NONE}, 14.5);
  expect_digits("S", {0.9308020, 1.0877114, 0.9759839, 1.0055027}, 7);
  const std::vector<double> x = values("X"), a = values("A"), s = values("S");
  const std::vector<double> sa = values("SA"), aa = values("AA");
  EXPECT_NEAR(sa[0] + sa[1] + sa[2] + sa[3], 0.0, 1e-13);
  EXPECT_EQ(a[5], x[5] / s[1]);
  EXPECT_EQ(aa[11], x[11] - sa[3]);
  const std::vector<double> m3 = values("M3"), c3 = values("C3"), e = values("E");
  EXPECT_EQ(m3[1], NONE);
  EXPECT_GE(LRE(m3[2], (10 + 12.1 + 10.8) / 3), 15);
  EXPECT_EQ(c3[1], m3[2]);
  EXPECT_EQ(c3[11], NONE);
  EXPECT_EQ(e[0], 10);
  EXPECT_GE(LRE(e[2], 0.3 * 10.8 + 0.7 * (0.3 * 12.1 + 0.7 * 10)), 15);
}

// A missing value becomes the mean of those before it, in the command alone; skipped rows are left
// out and the season still goes by the observation number; several series give columns.
TEST(Smooth, MissingValuesAndSkippedRows) {
  run_commands(
      "SAMPLE 1 6\n?READ X Y\n-99999 1\n2 2\n4 3\n-99999 4\n6 5\n8 6\nEND\n"
      "SET NOWARNMISS\nSMOOTH X Y / NMA=2 MAVE=M\nSKIPIF(Y.EQ.3)\n"
      "SMOOTH Y / NMA=2 MAVE=K SFAC=F\n");
  const std::vector<double> m = values("M");
  ASSERT_EQ(m.size(), 12U);
  EXPECT_EQ((std::vector<double>(m.begin(), m.begin() + 6)),
            (std::vector<double>{NONE, NONE, 3, 3.5, 4.5, 7}));
  EXPECT_EQ(m[7], 1.5);
  EXPECT_EQ(values("X")[3], NONE);
  EXPECT_EQ(values("K"), (std::vector<double>{NONE, 1.5, NONE, 3, 4.5, 5.5}));
  const double odd = 5 / 4.5, even = (2 / 1.5 + 4.0 / 3.0 + 6 / 5.5) / 3;
  expect_digits("F", {2 * odd / (odd + even), 2 * even / (odd + even)}, 14);
}

TEST(WindowSums, AgreeWithPlainSums) {
  std::mt19937_64 bits(5);
  std::vector<double> x(97), out(97), work(97);
  for (double& v : x) v = static_cast<double>(bits() % 1000);
  for (const std::int64_t w : {1, 2, 7, 50, 96, 97}) {
    window_sums(x, w, out, work);
    for (std::int64_t i = 0; i + w <= 97; ++i) {
      double sum = 0;
      for (std::int64_t k = i; k < i + w; ++k) sum += x[static_cast<std::size_t>(k)];
      EXPECT_EQ(out[static_cast<std::size_t>(i)], sum) << w << " " << i;
    }
  }
}

// mpmath 1.3 with 60 digits, the full system (I + lambda K'K) tau = x: elements 1, 2, 30, 59, 60.
TEST(Hodrick, AgreesWithExactArithmetic) {
  struct Case {
    double lambda;
    double wanted[5];
  };
  std::vector<double> x(60), trend(60);
  for (std::size_t i = 0; i < 60; ++i) x[i] = static_cast<double>((i + 1) * 7919 % 1009) / 8;
  constexpr std::size_t at[] = {0, 1, 29, 58, 59};
  for (const Case& c : {Case{1600,
                             {71.9316554240771303, 70.7597069525328173, 65.6798189724082908,
                              60.3310645289085559, 60.1013355691888787}},
                        Case{1e9,
                             {66.7502859910190184, 66.6614320850860199, 64.1735992117234274,
                              61.5968981091377812, 61.5080455065199702}},
                        Case{0.5,
                             {107.263299938124809, 86.8624024311589264, 56.0061415684339258,
                              37.2446402930726921, 92.000849099265447}}}) {
    std::vector<double> work(static_cast<std::size_t>(HPFILT_words(60, c.lambda)));
    HPFILT(x, c.lambda, trend, work);
    for (std::size_t k = 0; k < 5; ++k) EXPECT_GE(LRE(trend[at[k]], c.wanted[k]), 15) << k;
  }
}

// A straight line is its own trend at any lambda; nothing is smoothed at 0; short series. Where the
// factors have become constants the conditions still hold.
TEST(Hodrick, Limits) {
  for (const double lambda : {0.0, 0.3, 6.25, 1600.0, 1e12, 1e300}) {
    for (const std::size_t n : {1U, 2U, 3U, 4U, 5U, 5000U}) {
      std::vector<double> x(n), trend(n);
      std::vector<double> work(
          static_cast<std::size_t>(HPFILT_words(static_cast<std::int64_t>(n), lambda)));
      for (std::size_t i = 0; i < n; ++i) x[i] = 3.0 - 0.25 * static_cast<double>(i);
      HPFILT(x, lambda, trend, work);
      EXPECT_EQ(trend, x) << lambda << " " << n;
      for (std::size_t i = 0; i < n; ++i) x[i] = static_cast<double>(i * 37 % 11);
      HPFILT(x, lambda, trend, work);
      if (lambda == 0.0 || n < 3) {
        EXPECT_EQ(trend, x);
      }
      // Away from the ends: tau + lambda (1, -4, 6, -4, 1) tau = x.
      for (std::size_t i = 2; i + 2 < n && lambda <= 1600.0; ++i) {
        const double fourth =
            trend[i - 2] - 4 * trend[i - 1] + 6 * trend[i] - 4 * trend[i + 1] + trend[i + 2];
        EXPECT_NEAR(trend[i] + lambda * fourth, x[i], 1e-10) << lambda << " " << i;
      }
    }
  }
}

}  // namespace
}  // namespace korvel
