// Kernels of MATRIX: products, inverse, determinant, Cholesky factor, general eigenvalues.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/dense_cholesky.h"
#include "expr/kernels/gemm.h"
#include "expr/kernels/general_eigen.h"
#include "expr/kernels/lu.h"
#include "expr/kernels/packed.h"
#include "platform/cpu.h"

namespace korvel {
namespace baseline {
const GemmLanes& gemm_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const GemmLanes& gemm_lane_set();
}
namespace avx512 {
const GemmLanes& gemm_lane_set();
}
#endif
namespace {

using Reals = std::vector<double>;
std::size_t words(std::int64_t n) { return static_cast<std::size_t>(n); }

Reals numbers(std::int64_t n, std::uint32_t s) {
  Reals x(words(n));
  for (double& v : x) {
    s = s * 1664525U + 1013904223U;
    v = static_cast<double>(s) * 0x1p-32 - 0.5;
  }
  return x;
}

// ---- Products
// ------------------------------------------------------------------------------------

// The definition: one product after the other, in the order of k.
Reals plain_product(const Strided& a, const Strided& b, const GemmShape& s, Reals c) {
  for (std::int64_t j = 0; j < s.columns; ++j) {
    for (std::int64_t i = 0; i < s.rows; ++i) {
      double sum = s.mode == GEMM_SET ? 0.0 : c[words(i + j * s.ld)];
      for (std::int64_t k = 0; k < s.inner; ++k) {
        const double x = a.data[i * a.row + k * a.column];
        sum = std::fma(s.mode == GEMM_TAKE ? -x : x, b.data[k * b.row + j * b.column], sum);
      }
      c[words(i + j * s.ld)] = sum;
    }
  }
  return c;
}

struct ProductCase {
  std::int64_t rows, columns, inner;
};
// Around the heights and widths of tiles, the length of a pass (256), the span of columns (1024)
// and the size from which threads work.
constexpr ProductCase PRODUCTS[] = {{1, 1, 1},    {1, 9, 3},     {9, 1, 300},  {23, 7, 5},
                                    {24, 8, 256}, {25, 9, 257},  {3, 1030, 2}, {49, 17, 513},
                                    {5, 4, 0},    {121, 129, 80}};

TEST(Product, IsTheDefinitionToTheLastBit) {
  for (const auto& [rows, columns, inner] : PRODUCTS) {
    const Reals a = numbers(rows * inner + 1, 1);
    const Reals b = numbers(inner * columns + 1, 2);
    const std::int64_t ld = rows + 3;
    const Reals before = numbers(ld * columns, 3);
    Reals work(words(DGMULT_words(rows, columns, inner)));
    for (int form = 0; form < 12; ++form) {
      const Strided left =
          (form & 1) != 0 ? transpose_of(a.data(), inner) : by_columns(a.data(), rows);
      const Strided right =
          (form & 2) != 0 ? transpose_of(b.data(), columns) : by_columns(b.data(), inner);
      const GemmShape shape{.rows = rows,
                            .columns = columns,
                            .inner = inner,
                            .ld = ld,
                            .mode = static_cast<GemmMode>(form / 4)};
      Reals c = before;
      ASSERT_TRUE(DGMULT(left, right, c.data(), shape, work));
      EXPECT_EQ(c, plain_product(left, right, shape, before))
          << rows << ' ' << inner << ' ' << form;
    }
  }
}

TEST(Product, OwnTransposeIsSymmetricToTheLastBit) {
  constexpr std::int64_t n = 77, k = 40;
  const Reals a = numbers(n * k, 5);
  Reals work(words(DGMULT_words(n, n, k)));
  GemmShape shape{.rows = n, .columns = n, .inner = k, .ld = n};
  Reals whole(words(n * n)), half(words(n * n));
  DGMULT(by_columns(a.data(), n), transpose_of(a.data(), n), whole.data(), shape, work);
  shape.symmetric = true;
  DGMULT(by_columns(a.data(), n), transpose_of(a.data(), n), half.data(), shape, work);
  EXPECT_EQ(whole, half);
}

// The tiles of every width that this machine has.
TEST(Product, AllWidthsGiveTheSameBits) {
  std::vector<const GemmLanes*> sets = {&baseline::gemm_lane_set()};
#if defined(__x86_64__)
  if (cpu_lanes() >= Lanes::avx2) sets.push_back(&avx2::gemm_lane_set());
  if (cpu_lanes() >= Lanes::avx512) sets.push_back(&avx512::gemm_lane_set());
#endif
  for (const GemmLanes* set : sets) {
    for (int parts = 1; parts <= MOST_PARTS; ++parts) {
      const std::int64_t height = parts * set->width;
      const Reals a = numbers(height * 19, 7);
      const Reals b = numbers(set->NR * 19, 8);
      const Reals before = numbers(height * set->NR, 9);
      for (const GemmMode mode : {GEMM_SET, GEMM_ADD, GEMM_TAKE}) {
        Reals c = before;
        set->tile[parts - 1](a.data(), b.data(), 19, c.data(), height, mode);
        const GemmShape shape{
            .rows = height, .columns = set->NR, .inner = 19, .ld = height, .mode = mode};
        EXPECT_EQ(c, plain_product({a.data(), 1, height}, {b.data(), set->NR, 1}, shape, before));
      }
    }
    const Reals x = numbers(100 * 5, 1);
    const Reals f = numbers(5, 2);
    Reals y = numbers(97, 3);
    Reals wanted = y;
    for (std::size_t j = 0; j < 5; ++j) {
      for (std::size_t i = 0; i < 97; ++i) wanted[i] = std::fma(-x[j * 100 + i], f[j], wanted[i]);
    }
    set->take_columns(x.data(), 100, f.data(), 1, 5, 97, y.data());
    EXPECT_EQ(y, wanted);
    for (std::size_t j = 0; j < 5; ++j) {
      for (std::size_t i = 0; i < 97; ++i) wanted[i] = std::fma(x[j * 100 + i], f[j], wanted[i]);
    }
    set->add_columns(x.data(), 100, f.data(), 1, 5, 97, y.data());
    EXPECT_EQ(y, wanted);
  }
}

// ---- Inverse and determinant
// ---------------------------------------------------------------------

double inverse_residual(const Reals& a, int n, ScaledProduct& det) {
  Reals x = a;
  Reals work(words(LU_words(n)));
  EXPECT_EQ(matrix_inverse(x.data(), n, det, work), 0);
  const GemmShape shape{.rows = n, .columns = n, .inner = n, .ld = n};
  const Reals unit =
      plain_product(by_columns(a.data(), n), by_columns(x.data(), n), shape, Reals(a.size()));
  double worst = 0.0;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      worst = std::max(worst, std::fabs(unit[words(i + std::int64_t{j} * n)] - (i == j ? 1 : 0)));
    }
  }
  return worst;
}

double determinant_of(Reals a, int n) {
  Reals work(words(LU_words(n)));
  ScaledProduct det;
  EXPECT_EQ(determinant(a.data(), n, det, work), 0);
  EXPECT_EQ(det.decimal().power, 0);
  return det.decimal().value;
}

TEST(Inverse, TimesTheMatrixIsTheUnit) {
  for (const int n : {1, 2, 31, 32, 33, 64, 65, 130}) {
    const Reals a = numbers(std::int64_t{n} * n, 11);
    ScaledProduct det;
    EXPECT_LT(inverse_residual(a, n, det), 1e-11) << n;
    const double d = determinant_of(a, n);
    EXPECT_NEAR(det.decimal().value / d, 1.0, 1e-12) << n;
  }
}

// A matrix that needs an interchange at every step: the inverse is its transpose, exactly.
TEST(Inverse, OfAPermutation) {
  constexpr int n = 70;
  Reals a(words(n * n));
  for (std::int64_t j = 0; j < n; ++j) a[words((j * 37 + 5) % n + j * n)] = 1.0;
  ScaledProduct det;
  EXPECT_EQ(inverse_residual(a, n, det), 0.0);
  EXPECT_EQ(std::fabs(det.decimal().value), 1.0);
  EXPECT_EQ(det.decimal().value, determinant_of(a, n));
}

TEST(Inverse, SingularAtAPivotOfExactlyZero) {
  ScaledProduct det;
  Reals a = {1, 2, 2, 4};
  Reals work(words(LU_words(40)));
  EXPECT_EQ(matrix_inverse(a.data(), 2, det, work), 2);
  a = {1, 2, 2, std::nextafter(4.0, 5.0)};
  EXPECT_EQ(matrix_inverse(a.data(), 2, det, work), 0);
  Reals large = numbers(40 * 40, 1);
  std::fill_n(large.begin() + 36 * 40, 40, 0.0);  // in the second block
  EXPECT_EQ(matrix_inverse(large.data(), 40, det, work), 37);
}

TEST(Determinant, OutOfRangeIsScaledByTen) {
  const auto scaled = [](double factor, int times) {
    ScaledProduct p;
    for (int i = 0; i < times; ++i) p.times(factor);
    return p.decimal();
  };
  EXPECT_EQ(scaled(2.0, 1023).power, 0);
  EXPECT_EQ(scaled(2.0, 1023).value, 0x1p1023);
  EXPECT_EQ(scaled(0.5, 1022).value, 0x1p-1022);
  // 2^5000 = 1.41246703213942603e1505, 2^-5001 = 3.53990563052408645e-1506 (exact arithmetic).
  EXPECT_EQ(scaled(2.0, 5000).power, 1505);
  EXPECT_NEAR(scaled(2.0, 5000).value, 1.41246703213942603, 1e-14);
  EXPECT_EQ(scaled(-0.5, 5001).power, -1506);
  EXPECT_NEAR(scaled(-0.5, 5001).value, -3.53990563052408645, 1e-13);
  EXPECT_EQ(scaled(0.0, 3).value, 0.0);
  // Hilbert's matrix of order 8: 1 / 365356847125734485878112256000000 (exact arithmetic).
  Reals h(64);
  for (std::size_t i = 0; i < 64; ++i) h[i] = 1.0 / static_cast<double>(i % 8 + i / 8 + 1);
  EXPECT_NEAR(determinant_of(h, 8) * 365356847125734485878112256000000.0, 1.0, 1e-6);
}

// ---- Cholesky
// ------------------------------------------------------------------------------------

TEST(DenseCholesky, AgreesWithThePackedForm) {
  for (const int n : {1, 5, 32, 33, 70}) {
    const Reals x = numbers(std::int64_t{n} * n, 21);
    const GemmShape shape{.rows = n, .columns = n, .inner = n, .ld = n};
    Reals a =
        plain_product(by_columns(x.data(), n), transpose_of(x.data(), n), shape, Reals(x.size()));
    for (std::int64_t i = 0; i < n; ++i) a[words(i * (n + 1))] += 1.0;
    Reals small(packed_words(n));
    for (int i = 1; i <= n; ++i) {
      for (int j = 1; j <= i; ++j) small[packed(i, j)] = a[words(i - 1 + (j - 1LL) * n)];
    }
    ASSERT_EQ(cholesky_factor(small, n), 0);
    Reals work(words(dense_cholesky_words(n)));
    ASSERT_EQ(dense_cholesky(a.data(), n, work), 0);
    for (int i = 1; i <= n; ++i) {
      for (int j = 1; j <= n; ++j) {
        const double l = a[words(i - 1 + (j - 1LL) * n)];
        const double wanted = j > i    ? 0.0
                              : j == i ? 1.0 / small[packed(i, i)]
                                       : small[packed(i, j)];
        EXPECT_NEAR(l, wanted, 1e-13);
      }
    }
  }
  Reals work(words(dense_cholesky_words(2)));
  Reals singular = {1, 1, 1, 1};
  EXPECT_EQ(dense_cholesky(singular.data(), 2, work), 2);
  Reals almost = {1, 1, 1, 1 + 2e-16};
  EXPECT_EQ(dense_cholesky(almost.data(), 2, work), -2);
}

// ---- General eigenvalues
// -------------------------------------------------------------------------

struct Eigen {
  Reals re, im, z;
  int IFAULT = 0;
};
Eigen eigen(Reals a, int n, bool vectors = true) {
  Eigen e{.re = Reals(words(n)), .im = Reals(words(n)), .z = Reals(words(n * n))};
  Reals work(words(general_eigen_words(n)));
  e.IFAULT = general_eigen(a.data(), n, e.re, e.im, vectors ? e.z.data() : nullptr, work);
  return e;
}

// Largest |A v - value v| against |A| |v|, over all values.
double eigen_residual(const Reals& a, int n, const Eigen& e) {
  double worst = 0.0;
  for (int j = 0; j < n; ++j) {
    const bool complex = e.im[words(j)] != 0.0;
    const double* x = e.z.data() + std::ptrdiff_t{j} * n;
    const auto v = [&](int i) { return std::complex<double>(x[i], complex ? x[n + i] : 0.0); };
    const std::complex<double> value(e.re[words(j)], e.im[words(j)]);
    double size = 0.0;
    double norm = 0.0;
    for (int i = 0; i < n; ++i) size = std::max(size, std::abs(v(i)));
    EXPECT_GT(size, 0.0);
    for (const double w : a) norm = std::max(norm, std::fabs(w));
    for (int i = 0; i < n; ++i) {
      std::complex<double> r = -value * v(i);
      for (int k = 0; k < n; ++k) r += a[words(i + k * n)] * v(k);
      worst = std::max(worst, std::abs(r) / (norm * size));
    }
    if (complex) {
      EXPECT_EQ(e.im[words(j)], -e.im[words(j + 1)]);
      ++j;
    }
  }
  return worst;
}

TEST(GeneralEigen, ValuesOfR) {
  // R 4.2: eigen(matrix(c(4,-2,1,3, 1,5,-3,2, 2,-1,6,-4, -5,3,2,7), 4, byrow = TRUE)).
  const Reals a = {4, 1, 2, -5, -2, 5, -1, 3, 1, -3, 6, 2, 3, 2, -4, 7};
  const Eigen e = eigen(a, 4);
  ASSERT_EQ(e.IFAULT, 0);
  Reals re = e.re;
  std::ranges::sort(re);
  const double wanted[] = {3.8217595099155268, 3.8217595099155268, 4.7836213870712907,
                           9.5728595930976486};
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(re[i], wanted[i], 1e-13);
  EXPECT_NEAR(std::ranges::max(e.im), 4.7819643383899821, 1e-13);
  EXPECT_LT(eigen_residual(a, 4, e), 1e-14);
  EXPECT_EQ(eigen(a, 4, false).IFAULT, 0);
}

TEST(GeneralEigen, VectorsSolveTheEquation) {
  for (const int n : {1, 2, 3, 10, 60}) {
    const Reals a = numbers(n * n, 31);
    const Eigen e = eigen(a, n);
    EXPECT_EQ(e.IFAULT, 0);
    EXPECT_LT(eigen_residual(a, n, e), 1e-13) << n;
    // Without vectors the same values, in another rounding.
    Eigen v = eigen(a, n, false);
    Reals re = e.re;
    std::ranges::sort(re);
    std::ranges::sort(v.re);
    for (std::size_t i = 0; i < re.size(); ++i) EXPECT_NEAR(re[i], v.re[i], 1e-12);
  }
}

TEST(GeneralEigen, SpecialMatrices) {
  EXPECT_EQ(eigen(Reals(9), 3).re, Reals(3));  // zero
  EXPECT_EQ(eigen({5}, 1).re[0], 5.0);
  const Reals jordan = {2, 0, 0, 1, 2, 0, 0, 1, 2};  // one vector only
  const Eigen e = eigen(jordan, 3);
  EXPECT_EQ(e.re, Reals(3, 2.0));
  EXPECT_LT(eigen_residual(jordan, 3, e), 1e-15);
  // A cycle: all shifts of the ordinary kind leave it as it is; the exceptional ones do not.
  Reals cycle(16);
  for (std::size_t i = 0; i < 4; ++i) cycle[(i + 1) % 4 + i * 4] = 1.0;
  const Eigen c = eigen(cycle, 4);
  EXPECT_EQ(c.IFAULT, 0);
  EXPECT_LT(eigen_residual(cycle, 4, c), 1e-14);
  // Rows and columns of very different size.
  const Reals scaled = {1, 1e-9, 0, 1e9, 2, 1e-9, 0, 1e9, 3};
  Reals re = eigen(scaled, 3).re;
  std::ranges::sort(re);
  EXPECT_NEAR(re[0], 2 - std::sqrt(3.0), 1e-13);
  EXPECT_NEAR(re[1], 2.0, 1e-13);
  EXPECT_NEAR(re[2], 2 + std::sqrt(3.0), 1e-13);
  EXPECT_EQ(eigen({1, 2, NAN, 4}, 2).IFAULT, -1);
  EXPECT_EQ(eigen({1, 2, INFINITY, 4}, 2).IFAULT, -1);
}

}  // namespace
}  // namespace korvel
