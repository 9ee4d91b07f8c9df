// Dense kernels: Cholesky family, moments, Gram-Schmidt least squares.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/gsreg_lanes.h"
#include "expr/kernels/moments.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace baseline {
const GsLanes& gs_lane_set();
}
namespace {

using Reals = std::vector<double>;

// ---- Cholesky
// ------------------------------------------------------------------------------------

TEST(Cholesky, OneByOne) {
  Reals a = {4.0};
  EXPECT_EQ(cholesky_factor(a, 1), 0);
  EXPECT_EQ(a[0], 0.5);  // the reciprocal of the root is kept
  a = {4.0};
  EXPECT_EQ(symmetric_inverse(a, 1), 0);
  EXPECT_EQ(a[0], 0.25);
  EXPECT_EQ(cholesky_factor(a, 0), 0);
}

TEST(Cholesky, FaultsNameTheRow) {
  Reals zero = {0.0};
  EXPECT_EQ(cholesky_factor(zero, 1), 1);
  Reals singular = {1, 1, 1};  // the second pivot is exactly 0
  EXPECT_EQ(cholesky_factor(singular, 2), 2);
  Reals almost = {1, 1, 1 + 2e-16};  // positive, but below 1/32 of rounding
  EXPECT_EQ(cholesky_factor(almost, 2), -2);
  Reals near = {1, 1, 1 + 1e-14};
  EXPECT_EQ(cholesky_factor(near, 2), 0);
  Reals indefinite = {1, 0, 1, 0, 0, -1};
  EXPECT_EQ(symmetric_inverse(indefinite, 3), 3);
}

TEST(Cholesky, InversesAndSolutions) {
  // [4 2 2; 2 5 3; 2 3 6] = L L' with L = [2; 1 2; 1 1 2]: all exact.
  const Reals matrix = {4, 2, 5, 2, 3, 6};
  Reals a = matrix;
  EXPECT_EQ(DSYMP(a, 3), 0);
  EXPECT_EQ(a, (Reals{0.5, -0.25, 0.5, -0.125, -0.25, 0.5}));
  a = matrix;
  EXPECT_EQ(symmetric_inverse(a, 3), 0);
  EXPECT_EQ(a, (Reals{0.328125, -0.09375, 0.3125, -0.0625, -0.125, 0.25}));
  a = matrix;
  Reals x = {8, 10, 11};
  EXPECT_EQ(positive_solve(a, 3, x), 0);
  EXPECT_EQ(x, (Reals{1, 1, 1}));
}

// ---- Moments
// -------------------------------------------------------------------------------------

TEST(Moments, WeightedAndMissing) {
  const Reals x = {1, 2, 3, 4}, y = {2, -99999, 6, 8}, w = {1, 1, 1, 3};
  const double* both[] = {x.data(), y.data()};
  Reals mean(2), square(2), cross(3), count(2), least(2), most(2);
  const Averages all{mean, square, {}, count, least, most};
  // A far mean costs no digits: 1e9+1..1e9+4 has the same squares as 1..4.
  Reals far = x;
  for (double& v : far) v += 1e9;
  const double* one[] = {far.data()};
  EXPECT_EQ(AVES({one, 4, nullptr}, {}, {}, {mean, square, {}, {}, {}, {}}), 4.0);
  EXPECT_EQ(mean[0], 1e9 + 2.5);
  EXPECT_EQ(square[0], 5.0);
  EXPECT_EQ(AVES({{both, 1}, 4, nullptr}, w, {}, {mean, square, {}, {}, {}, {}}), 6.0);
  EXPECT_DOUBLE_EQ(mean[0], 3.0);
  EXPECT_DOUBLE_EQ(square[0], 8.0);  // 4 + 1 + 0 + 3
  // Value by value, then by whole rows.
  const MissingRule values{true, false, -99999}, rows{true, true, -99999};
  AVES({both, 4, nullptr}, {}, values, all);
  EXPECT_EQ(mean, (Reals{2.5, 16.0 / 3}));
  EXPECT_EQ(count, (Reals{4, 3}));
  EXPECT_EQ(least, (Reals{1, 2}));
  EXPECT_EQ(most, (Reals{4, 8}));
  AVES({both, 4, nullptr}, {}, rows, {mean, square, cross, count, {}, {}});
  EXPECT_EQ(count, (Reals{3, 3}));
  EXPECT_DOUBLE_EQ(mean[0], 8.0 / 3);
  EXPECT_DOUBLE_EQ(cross[1], 2 * square[0]);  // y = 2x on the rows that are left
  EXPECT_DOUBLE_EQ(cross[2], square[1]);
}

TEST(Moments, MatmomModes) {
  const Reals in = {2, 3, 8}, mean = {1, 2}, var = {4, 9};
  const auto run = [&](const Reals& from, double w, MomentMode mode) {
    Reals out(3);
    MATMOM(from, out, 2, w, mean, var, mode);
    return out;
  };
  EXPECT_EQ(run(in, 2, MomentMode::Centred), (Reals{0, -1, 0}));
  EXPECT_EQ(run(in, 2, MomentMode::Raw), (Reals{4, 7, 16}));
  EXPECT_EQ(run(in, 2, MomentMode::Divide), (Reals{1, 1.5, 4}));
  EXPECT_EQ(run(in, 2, MomentMode::Add), (Reals{4, 5, 10}));
  EXPECT_EQ(run(in, 1, MomentMode::Correlation), (Reals{0.5, 0.5, 8.0 / 9}));
  EXPECT_EQ(run(in, 3, MomentMode::RawCorrelation),
            (Reals{2.0 / 7, 3 / std::sqrt(147.0), 8.0 / 21}));
  EXPECT_EQ(run(in, 5, MomentMode::ShiftedCorrelation),
            (Reals{2.0 / 9, 3 / std::sqrt(126.0), 8.0 / 14}));
  // Nothing to divide by: 1 on the diagonal, 0 beside it.
  Reals out(3);
  MATMOM(Reals{0, 0, 8}, out, 2, 1, mean, Reals{0, 4}, MomentMode::Correlation);
  EXPECT_EQ(out, (Reals{1, 0, 2}));
}

// ---- Gram-Schmidt
// --------------------------------------------------------------------------------

struct Fit {
  int IFAULT;
  Reals factor, mean, square, b, inverse;
};

Fit fit(const std::vector<const double*>& columns, std::int64_t rows,
        const double* root = nullptr) {
  const ColumnList x{columns, rows, root};
  const int n = x.columns();
  Fit f{};
  f.factor.resize(packed_words(n));
  f.inverse.resize(packed_words(n - 1));
  f.mean.resize(columns.size());
  f.square.resize(columns.size());
  f.b.resize(columns.size() - 1);
  Reals work(static_cast<std::size_t>(GSREG_words(n, rows)));
  f.IFAULT = GSREG(x, work, f.factor, root == nullptr ? 0 : n, f.mean, f.square);
  if (f.IFAULT == 0) {
    gs_coefficients(f.factor, n, f.b);
    gs_inverse(f.factor, n, f.inverse);
  }
  return f;
}

// Deterministic noise in (-1, 1).
Reals noise(std::int64_t n, unsigned seed) {
  Reals v(static_cast<std::size_t>(n));
  unsigned s = seed;
  for (double& e : v) {
    s = s * 1664525U + 1013904223U;
    e = static_cast<double>(s) * 0x1p-31 - 1.0;
  }
  return v;
}

TEST(Gsreg, ExactLine) {
  const Reals x = {1, 2, 3, 4, 5}, y = {3, 5, 7, 9, 11};
  const Fit f = fit({x.data(), nullptr, y.data()}, 5);
  ASSERT_EQ(f.IFAULT, 0);
  EXPECT_NEAR(f.b[0], 2.0, 1e-15);
  EXPECT_NEAR(f.b[1], 1.0, 5e-15);
  EXPECT_EQ(f.mean, (Reals{3, 1, 7}));
  EXPECT_EQ(f.square, (Reals{10, 0, 40}));  // the constant has exactly none
  // (X'X)^-1 of [55 15; 15 5]
  EXPECT_NEAR(f.inverse[0], 0.1, 1e-15);
  EXPECT_NEAR(f.inverse[1], -0.3, 1e-15);
  EXPECT_NEAR(f.inverse[2], 1.1, 5e-15);
}

TEST(Gsreg, NamesTheDependentColumn) {
  const Reals x = {1, 2, 4, 7, 11}, twice = {2, 4, 8, 14, 22}, y = {1, 0, 2, 0, 3}, none(5, 0.0);
  EXPECT_EQ(fit({x.data(), twice.data(), nullptr, y.data()}, 5).IFAULT, 2);
  EXPECT_EQ(fit({none.data(), x.data(), y.data()}, 5).IFAULT, 1);
  EXPECT_EQ(fit({x.data(), nullptr, nullptr, y.data()}, 5).IFAULT, 3);
  // The dependent variable itself is never tested: a perfect fit is one.
  EXPECT_EQ(fit({x.data(), nullptr, twice.data()}, 5).IFAULT, 0);
  EXPECT_EQ(fit({x.data(), none.data(), nullptr, y.data()}, 2).IFAULT, FEWER_ROWS);
  // As many rows as coefficients is allowed.
  EXPECT_EQ(fit({x.data(), nullptr, y.data()}, 2).IFAULT, 0);
}

// Rounding gathers with the rows; an exact combination is found all the same, and a column that
// differs from one by a part in 1e12 is a variable of its own.
TEST(Gsreg, FindsDependenceInLongData) {
  constexpr std::int64_t n = 300000;
  const Reals a = noise(n, 1), b = noise(n, 2), y = noise(n, 3), c = noise(n, 4);
  Reals sum(a.size()), almost(a.size());
  for (std::size_t t = 0; t < a.size(); ++t) {
    sum[t] = a[t] + b[t] + 3.0;
    almost[t] = sum[t] + 1e-12 * c[t];
  }
  EXPECT_EQ(fit({a.data(), b.data(), nullptr, sum.data(), y.data()}, n).IFAULT, 4);
  EXPECT_EQ(fit({a.data(), b.data(), nullptr, almost.data(), y.data()}, n).IFAULT, 0);
}

// Blocks and sections against plain sums in extended precision, at lengths round their bounds.
TEST(Gsreg, BlocksGiveTheNormalEquations) {
  for (const std::int64_t n : {7L, 255L, 256L, 257L, 16384L, 32768L, 50001L}) {
    const Reals x = noise(n, 11), z = noise(n, 12), e = noise(n, 13);
    Reals y(x.size());
    long double m[3][3] = {}, r[3] = {};
    for (std::size_t t = 0; t < x.size(); ++t) {
      y[t] = 2 * x[t] - z[t] + 5 + 0.1 * e[t];
      const long double row[3] = {x[t], z[t], 1};
      for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) m[i][j] += row[i] * row[j];
        r[i] += row[i] * y[t];
      }
    }
    const Fit f = fit({x.data(), z.data(), nullptr, y.data()}, n);
    ASSERT_EQ(f.IFAULT, 0);
    for (int i = 0; i < 3; ++i) {
      long double left = 0;
      for (int j = 0; j < 3; ++j) left += m[i][j] * f.b[static_cast<std::size_t>(j)];
      EXPECT_NEAR(static_cast<double>(left / r[i]), 1.0, 2e-14) << n;
    }
    Reals residual(x.size());
    const std::vector<const double*> columns = {x.data(), z.data(), nullptr, y.data()};
    gs_residuals({columns, n, nullptr}, f.b, residual);
    double SSE = 0;
    for (const double v : residual) SSE += v * v;
    EXPECT_NEAR(SSE / f.factor[packed(4, 4)], 1.0, 1e-12) << n;
  }
}

TEST(Gsreg, RootsScaleTheRows) {
  const Reals x = {1, 2, 3, 5}, y = {2, 1, 5, 4}, root = {1, 2, 3, 4};
  Reals wx(4), wy(4);
  for (std::size_t t = 0; t < 4; ++t) {
    wx[t] = root[t] * x[t];
    wy[t] = root[t] * y[t];
  }
  const Fit scaled = fit({x.data(), nullptr, y.data()}, 4, root.data());
  const Fit by_hand = fit({wx.data(), root.data(), wy.data()}, 4);
  EXPECT_EQ(scaled.b, by_hand.b);
  EXPECT_EQ(scaled.factor, by_hand.factor);
}

// Every vector width gives the same bytes.
TEST(Gsreg, WidthsAgree) {
  const Reals data = noise(std::int64_t{7} * 264, 5);
  Reals a = data, b = data, fa(28), fb(28);
  gs_lanes().orthogonalise(a.data(), 7, 264, 256, fa.data());
  baseline::gs_lane_set().orthogonalise(b.data(), 7, 264, 256, fb.data());
  EXPECT_EQ(0, std::memcmp(fa.data(), fb.data(), fa.size() * sizeof(double)));
  EXPECT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * sizeof(double)));
  Reals e(512), g(96, 0.0), ge(512), gg(96, 0.0);
  const Reals c = noise(12, 6);
  gs_lanes().refine_block(data.data(), 6, 264, 256, c.data(), c.data() + 6, e.data(), g.data(),
                          g.data() + 48);
  baseline::gs_lane_set().refine_block(data.data(), 6, 264, 256, c.data(), c.data() + 6, ge.data(),
                                       gg.data(), gg.data() + 48);
  EXPECT_EQ(0, std::memcmp(g.data(), gg.data(), g.size() * sizeof(double)));
}

// x near 1e6 with unit spread, twice: coefficients keep their digits only with refinement.
TEST(Gsreg, RefinementRecoversDigits) {
  constexpr std::int64_t n = 1000;
  Reals x = noise(n, 21), z = noise(n, 22), y(x.size());
  for (std::size_t t = 0; t < x.size(); ++t) {
    x[t] = 1e6 + std::round(8 * x[t]);
    z[t] = x[t] + std::round(8 * z[t]) * 0x1p-10;
    y[t] = 3 * x[t] - 2 * z[t] + 7;  // exact in doubles
  }
  const std::vector<const double*> columns = {x.data(), z.data(), nullptr, y.data()};
  Fit f = fit(columns, n);
  ASSERT_EQ(f.IFAULT, 0);
  EXPECT_GT(gs_condition(f.factor, f.inverse, 4), REFINE_ABOVE);
  Reals work(static_cast<std::size_t>(GSREFINE_words(4, n)));
  const Refinement r = GSREFINE({columns, n, nullptr}, f.factor, work, f.b);
  EXPECT_EQ(r.IFAULT, 0);
  EXPECT_EQ(f.b[0], 3.0);
  EXPECT_EQ(f.b[1], -2.0);
  EXPECT_NEAR(f.b[2], 7.0, 1e-9);
  EXPECT_LT(r.SSE, 1e-20);
}

}  // namespace
}  // namespace korvel
