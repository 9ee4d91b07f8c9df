// The kernels: the same bytes in every vector width, the probability functions at their edges, and
// derivatives against differences of the likelihood.
#include "limdep/likelihood.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "expr/kernels/packed.h"
#include "limdep/newton.h"
#include "platform/cpu.h"
#include "stats/probability.h"

namespace korvel {
namespace baseline {
const LikelihoodLanes& likelihood_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const LikelihoodLanes& likelihood_lane_set();
}
namespace avx512 {
const LikelihoodLanes& likelihood_lane_set();
}
#endif
namespace {

std::vector<const LikelihoodLanes*> widths() {
  std::vector<const LikelihoodLanes*> all = {&baseline::likelihood_lane_set()};
#if defined(__x86_64__)
  if (cpu_lanes() != Lanes::baseline) all.push_back(&avx2::likelihood_lane_set());
  if (cpu_lanes() == Lanes::avx512) all.push_back(&avx512::likelihood_lane_set());
#endif
  return all;
}

constexpr double EDGES[] = {0.0,   -0.0,    1e-300, 0.5,    -0.5, 0.66291, 5.65685,
                            -5.66, 13.9999, 14.0,   -14.0,  14.5, -38.0,   40.0,
                            -87.9, -89.0,   700.0,  -750.0, 1e6,  -1e6};

struct Block {
  std::vector<double> z, y, w, g, h;
  Block() : z(64), y(64), w(64), g(64), h(64) {
    for (std::size_t i = 0; i < 64; ++i) {
      z[i] = i < 40 ? EDGES[i / 2] : 0.37 * static_cast<double>(i) - 19.0;
      y[i] = static_cast<double>(i % 2);
      w[i] = i % 7 == 3 ? 0.0 : 0.25 * static_cast<double>(i % 5 + 1);
    }
  }
  RowTerms terms(double low, double share, double side) {
    return {z.data(), y.data(), w.data(), g.data(), h.data(), 64, low, share, side};
  }
};

TEST(Likelihood, EveryWidthGivesTheSameBytes) {
  using Loop = TermLoop LikelihoodLanes::*;
  for (const Loop loop :
       {&LikelihoodLanes::probit, &LikelihoodLanes::logit, &LikelihoodLanes::tobit}) {
    for (const double share : {1.0, 0.9}) {
      std::vector<double> first;
      for (const LikelihoodLanes* lanes : widths()) {
        Block b;
        RowSums sums;
        (lanes->*loop)(b.terms(share < 1.0 ? 0.04 : 0.0, share, -1.0), sums);
        std::vector<double> all = {sums.LLF, sums.worst, sums.lowest};
        all.insert(all.end(), b.g.begin(), b.g.end());
        all.insert(all.end(), b.h.begin(), b.h.end());
        for (const double v : all) EXPECT_TRUE(std::isfinite(v));
        if (first.empty()) first = all;
        EXPECT_EQ(std::memcmp(first.data(), all.data(), all.size() * sizeof(double)), 0);
      }
    }
  }
}

TEST(Likelihood, ProbitPolynomial) {
  // The value written with one digit of its own, and the bound at 14 on either side.
  const auto tail = [](double a) {
    const double t = 1.0 / (1.0 + 0.231649 * a);
    return 0.3989423 * std::exp(-a * a / 2.0) *
           (0.319381 * t - 0.35656378 * t * t + 1.781479 * std::pow(t, 3) -
            1.821256 * std::pow(t, 4) + 1.3302744 * std::pow(t, 5));
  };
  Block b;
  std::vector<double> P(64), Q(64), f(64);
  likelihood_lanes().fitted_probit(b.terms(0.0, 1.0, 1.0), P.data(), Q.data(), f.data());
  for (std::size_t i = 0; i < 64; ++i) {
    const double z = std::fmin(std::fmax(b.z[i], -14.0), 14.0), q = tail(std::fabs(z));
    EXPECT_NEAR(z >= 0.0 ? Q[i] : P[i], q, 1e-14 * q) << b.z[i];
    EXPECT_EQ(z >= 0.0 ? P[i] : Q[i], 1.0 - (z >= 0.0 ? Q[i] : P[i]));
    EXPECT_NEAR(f[i], std::exp(-z * z / 2.0) / 2.506628274631, 1e-14 * f[i]);
  }
}

TEST(Likelihood, NormalFunctionIsThatOfDistrib) {
  Block b;
  std::vector<double> below(64), density(64);
  for (std::size_t i = 0; i < 64; ++i) b.z[i] = 0.55 * static_cast<double>(i) - 18.3;
  likelihood_lanes().normal(b.terms(0.0, 1.0, 1.0), below.data(), density.data());
  for (std::size_t i = 0; i < 64; ++i) {
    const double truth = normal_cdf(b.z[i]);
    EXPECT_NEAR(below[i], truth, 1e-13 * truth) << b.z[i];
  }
  // Far out a tobit keeps its Mills ratio: n(v)/N(v) at -40 is 40.02496884720 (R: exp(dnorm(40,
  // log=TRUE) - pnorm(-40, log.p=TRUE))).
  b.z[0] = 40.0;
  b.y[0] = b.w[0] = 1.0;
  RowSums sums;
  likelihood_lanes().tobit(b.terms(0.0, 1.0, 1.0), sums);
  EXPECT_NEAR(b.g[0], -40.02496884720, 1e-10);
}

// Three columns, one of ones, and a y for every model.
struct Model {
  std::vector<double> x, y, gradient, information, work, shift, scale;
  const double* columns[3];
  LikelihoodRows rows;
  explicit Model(int choices) {
    constexpr std::int64_t n = 40001;  // more than one section, and a rest
    std::uint32_t s = 7;
    for (std::int64_t t = 0; t < 2 * n; ++t) {
      s = s * 1664525U + 1013904223U;
      x.push_back(static_cast<double>(s) * 0x1p-31 - 1.0);
    }
    for (std::int64_t t = 0; t < n; ++t) {
      s = s * 1664525U + 1013904223U;
      y.push_back(static_cast<double>((s >> 16U) % static_cast<std::uint32_t>(choices)));
    }
    columns[0] = x.data();
    columns[1] = x.data() + n;
    columns[2] = nullptr;
    shift = {0.1, 0.0, 0.0};
    scale = {2.0, 1.0, 1.0};
    rows = {columns, shift, scale, y.data(), nullptr, 1.0, n};
    const auto M = static_cast<std::size_t>(3 * (choices - 1));
    gradient.resize(M);
    information.resize(packed_words(static_cast<int>(M)));
    work.resize(static_cast<std::size_t>(likelihood_words(3, choices, n)));
  }
  double at(const RowModel& model, int choices, const std::vector<double>& b) {
    return likelihood(rows, model, choices, b, gradient, information, work).LLF;
  }
};

TEST(Likelihood, DerivativesAgreeWithDifferences) {
  const struct {
    RowModel model;
    int choices;
    double tolerance;  // the polynomial is only near the function that its derivatives are of
  } cases[] = {
      {{RowKind::logit, 0.0, 1.0, 1.0}, 2, 1e-7},  {{RowKind::logit, 0.05, 0.85, 1.0}, 2, 1e-7},
      {{RowKind::tobit, 0.0, 1.0, 1.0}, 2, 1e-7},  {{RowKind::tobit, 0.0, 1.0, -1.0}, 2, 1e-7},
      {{RowKind::probit, 0.0, 1.0, 1.0}, 2, 1e-3}, {{RowKind::logit, 0.0, 1.0, 1.0}, 4, 1e-7}};
  for (const auto& c : cases) {
    Model m(c.choices);
    const std::size_t M = m.gradient.size();
    std::vector<double> b(M);
    for (std::size_t i = 0; i < M; ++i) b[i] = 0.3 - 0.17 * static_cast<double>(i % 4);
    m.at(c.model, c.choices, b);
    const std::vector<double> g = m.gradient, H = m.information;
    const double size = std::fabs(H[0]);
    for (std::size_t i = 0; i < M; ++i) {
      constexpr double h = 1e-4;
      std::vector<double> up = b, down = b;
      up[i] += h;
      down[i] -= h;
      const double high = m.at(c.model, c.choices, up);
      const std::vector<double> g_high = m.gradient;
      const double low = m.at(c.model, c.choices, down);
      EXPECT_NEAR((high - low) / (2.0 * h), g[i], c.tolerance * size);
      for (std::size_t j = 0; j < M; ++j) {
        const double slope = (g_high[j] - m.gradient[j]) / (2.0 * h);
        const double truth = -H[packed(static_cast<int>(i) + 1, static_cast<int>(j) + 1)];
        EXPECT_NEAR(slope, truth, c.tolerance * size) << i << j;
      }
    }
  }
}

TEST(Newton, InverseAndUnits) {
  // By rows: 4; 2 -3; 1 5 2 (indefinite). Inverse by hand: determinant -136... checked as A A^-1 =
  // I.
  const std::vector<double> a = {4e10, 2e5, -3, 1e5, 5, 2};
  std::vector<double> inverse = a, d(3);
  ASSERT_EQ(pivot_inverse(inverse, 3, d), 0);
  for (int i = 1; i <= 3; ++i) {
    for (int j = 1; j <= 3; ++j) {
      double sum = 0.0;
      for (int k = 1; k <= 3; ++k) sum += a[packed(i, k)] * inverse[packed(k, j)];
      EXPECT_NEAR(sum, i == j ? 1.0 : 0.0, 1e-9);
    }
  }
  std::vector<double> singular = {1e-20, 1e-10, 1, 3e-10, 3, 9};
  EXPECT_EQ(pivot_inverse(singular, 3, d), 2);
  // Coefficients there and back; variances of b = A b' for shift 5, scale 2 and a constant.
  const std::vector<double> shift = {5.0, 0.0}, scale = {2.0, 1.0};
  const Units units{shift, scale, 1};
  std::vector<double> b = {3.0, 7.0}, scaled(2), back(2), column(2), cov(3);
  to_units(units, b, scaled);
  EXPECT_EQ(scaled, (std::vector<double>{1.5, 22.0}));
  from_units(units, scaled, back);
  EXPECT_EQ(back, b);
  covariance_from_units(units, std::vector<double>{1.0, 0.5, 2.0}, column, cov);
  EXPECT_EQ(cov, (std::vector<double>{4.0, -19.0, 92.0}));
}

}  // namespace
}  // namespace korvel
