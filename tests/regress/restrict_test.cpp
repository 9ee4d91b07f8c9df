// Restricted least squares: the restrictions of distributed lags, and the restricted estimate.

// Before gtest, whose macro TEST would take the command's name.
#include "regress/tests.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "harness.h"

namespace korvel {
namespace {

Workspace room() {
  std::int64_t largest = 0;
  new_workspace(2000, 100, &largest);
  OCOM = OCom{};
  OSCOM = OsCom{};
  return workspace();
}

// Lags first..first+n-1 of variable 1, the constant behind them.
std::vector<ListItem> lag_list(int first, int n, int order, int endcon) {
  std::vector<ListItem> list;
  for (int k = 0; k < n; ++k) {
    list.push_back({.var = 1, .lag = first + k, .order = order, .endcon = endcon, .name = {}});
  }
  list.push_back({.var = DATCOM.MCON, .name = {}});
  return list;
}

// Coefficients on a polynomial of the order, zero at the constrained ends, satisfy the
// restrictions; there are as many as the polynomial leaves free; another power breaks them.
TEST(LagRestrictions, HoldForThePolynomialsAndForNothingElse) {
  room();
  for (const int n : {2, 3, 7, 12, 40}) {
    for (int order = 1; order <= 6; ++order) {
      for (int endcon = 0; endcon <= 3; ++endcon) {
        const std::vector<ListItem> list = lag_list(0, n, order, endcon);
        const std::size_t K = list.size();
        Restrictions r;
        ASSERT_TRUE(lag_restrictions(list, r));
        const int ends = (endcon & 1) + (endcon >> 1);
        EXPECT_EQ(r.q, std::max(n + ends - order - 1, 0)) << n << order << endcon;
        ASSERT_EQ(r.R.size(), static_cast<std::size_t>(r.q) * K);
        const auto violation = [&](int power) {
          double worst = 0.0;
          for (std::size_t i = 0; i < static_cast<std::size_t>(r.q); ++i) {
            double sum = 0.0, size = 0.0;
            for (int k = 0; k < n; ++k) {
              const double x = 2.0 * (k + 1.0) / (n + 1.0) - 1.0;  // the ends stand at -1 and 1
              double b = std::pow(x, power);
              if ((endcon & 1) != 0) b *= 1.0 + x;
              if ((endcon & 2) != 0) b *= 1.0 - x;
              sum += r.R[i * K + static_cast<std::size_t>(k)] * b;
              size = std::max(size, std::fabs(b));
            }
            worst = std::max(worst, std::fabs(sum) / size);
            EXPECT_EQ(r.R[i * K + K - 1], 0.0);
          }
          return worst;
        };
        for (int power = 0; power + ends <= order; ++power) {
          EXPECT_LT(violation(power), 1e-13) << n << order << endcon << power;
        }
        if (r.q > 0 && order + 1 >= ends && n > order + 1) {
          EXPECT_GT(violation(order + 1 - ends), 1e-9);
        }
      }
    }
  }
}

TEST(LagRestrictions, TermsStandForThemselves) {
  room();
  // Two terms of one variable and a free lag: three groups of columns that don't mix.
  std::vector<ListItem> list = lag_list(0, 4, 1, 0);
  list.pop_back();
  for (const ListItem& item : lag_list(10, 5, 2, 0)) list.push_back(item);
  list.back() = {.var = 2, .lag = 1, .name = {}};
  Restrictions r;
  ASSERT_TRUE(lag_restrictions(list, r));
  EXPECT_EQ(r.q, 2 + 2);
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t k = 0; k < list.size(); ++k) {
      const bool own = i < 2 ? k < 4 : k >= 4 && k < 9;
      if (!own) {
        EXPECT_EQ(r.R[i * list.size() + k], 0.0);
      }
    }
  }
  for (const auto& [order, endcon] : {std::pair{2, 4}, {0, 1}, {-1, 0}}) {
    OCOM.ODONT = false;
    EXPECT_FALSE(lag_restrictions(lag_list(0, 5, order, endcon), r));
    EXPECT_TRUE(OCOM.ODONT);
  }
}

TEST(RestrictEstimate, KeepsTheRestrictionsToTheLastBits) {
  const Workspace ws = room();
  // A badly conditioned C: correlations of 0.999999 and scales from 1e-4 to 1e3.
  const int K = 4;
  const double scale[K] = {1e-4, 1.0, 30.0, 1e3};
  std::vector<double> C(packed_words(K)), b{2.0, -1.0, 0.5, 7.0};
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      C[packed(i, j)] = scale[i - 1] * scale[j - 1] * (i == j ? 1.0 : 0.999999);
    }
  }
  Restrictions r;
  r.q = 2;
  r.R = {0, 1, 1, 0, 0, 0, 0, 1};
  r.r = {3.0, -2.0};
  ASSERT_TRUE(restrict_estimate(ws, r, b, C));
  EXPECT_NEAR(b[1] + b[2], 3.0, 1e-14);
  EXPECT_NEAR(b[3], -2.0, 1e-14);
  // What a restriction fixes has no variance, and no covariance with anything.
  for (int j = 1; j <= K; ++j) EXPECT_EQ(C[packed(4, j)], 0.0);
  EXPECT_NEAR(C[packed(2, 2)], -C[packed(3, 2)], 1e-10 * C[packed(2, 2)]);
  EXPECT_NEAR(C[packed(2, 2)], C[packed(3, 3)], 1e-10 * C[packed(2, 2)]);
  EXPECT_GT(C[packed(1, 1)], 0.0);
}

TEST(RestrictEstimate, RefusesDependentRestrictions) {
  const Workspace ws = room();
  const std::vector<std::vector<double>> cases = {
      {1, 0, 0, 1, 0, 0},              // twice the same
      {1, 2, 0, 0, 1, 1, 1, 3, 1},     // the third is the sum of the others
      {0, 0, 0},                       // nothing
      {0.1, 0.2, 0.3, 0.3, 0.6, 0.9},  // a multiple, by rounding not quite
  };
  for (const auto& R : cases) {
    OCOM.ODONT = false;
    temporary(temporary_place("ERR")) = UNSET;
    Restrictions r;
    r.q = static_cast<int>(R.size() / 3);
    r.R = R;
    r.r.assign(static_cast<std::size_t>(r.q), 1.0);
    std::vector<double> b{1, 2, 3}, C{2, 0.5, 3, 0.1, 0.2, 4};
    const std::vector<double> before = C;
    EXPECT_FALSE(restrict_estimate(ws, r, b, C));
    EXPECT_EQ(temporary(temporary_place("ERR")), 15018.0);
    EXPECT_EQ(C, before);  // the unrestricted estimate stays
    EXPECT_EQ(b[2], 3.0);
  }
}

TEST(Wald, StatisticAndFaults) {
  const Workspace ws = room();
  const std::vector<double> C{4, 1, 9};
  const std::vector<double> G{1, 0, 0, 1};
  const std::vector<double> v{2, 3};
  // v' C^-1 v by hand: (9*4 - 2*6 + 4*9) / 35.
  EXPECT_NEAR(wald(v, G, C, 2, ws).W, 60.0 / 35.0, 1e-15);
  EXPECT_EQ(wald(v, std::vector<double>{1, 1, 2, 2}, C, 2, ws).IFAULT, 2);
  EXPECT_EQ(wald(v, std::vector<double>{0, 0, 0, 1}, C, 2, ws).IFAULT, 1);
  const std::vector<double> none{4, 0, 0};  // the second coefficient is fixed
  EXPECT_EQ(wald(v, G, none, 2, ws).IFAULT, 2);
}

}  // namespace
}  // namespace korvel
