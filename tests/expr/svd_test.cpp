// Singular values and the eigenvalues of symmetric matrices.
#include "expr/kernels/svd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "expr/kernels/symmetric_eigen.h"

namespace korvel {
namespace {

// Indexed by ints, as the formulas are.
struct Reals : std::vector<double> {
  using vector::vector;
  double& operator[](std::ptrdiff_t i) { return data()[i]; }
  const double& operator[](std::ptrdiff_t i) const { return data()[i]; }
};

// sum over k of u(i,k) values(k) v(j,k)
double element(const Reals& u, int ldu, const Reals& values, const Reals& v, int ldv, int i,
               int j) {
  double sum = 0;
  for (int k = 0; k < static_cast<int>(values.size()); ++k) {
    sum += u[ldu * k + i] * values[k] * v[ldv * k + j];
  }
  return sum;
}

void expect_orthonormal(const Reals& u, int rows, int columns) {
  for (int k = 0; k < columns; ++k) {
    for (int l = 0; l <= k; ++l) {
      double sum = 0;
      for (int i = 0; i < rows; ++i) sum += u[rows * k + i] * u[rows * l + i];
      EXPECT_NEAR(sum, k == l ? 1.0 : 0.0, 1e-14) << k << " " << l;
    }
  }
}

Reals random_matrix(int rows, int columns) {
  std::mt19937 bits(11);
  std::normal_distribution<double> normal;
  Reals a(static_cast<std::size_t>(rows * columns));
  for (double& x : a) x = normal(bits);
  return a;
}

// U diag V' gives the matrix back, of full rank or not, at any size of its elements.
TEST(Svd, Rebuilds) {
  const struct {
    int rows, columns, rank;
    double size;
  } cases[] = {{1, 1, 1, 1.0},    {9, 9, 9, 1e-200}, {31, 7, 7, 1.0},
               {20, 6, 4, 1e250}, {8, 3, 0, 1.0},    {12, 12, 1, 1e-5}};
  for (const auto& c : cases) {
    Reals a = random_matrix(c.rows, c.columns);
    for (int j = 0; j < c.columns; ++j) {
      for (int i = 0; i < c.rows; ++i) {
        double& x = a[c.rows * j + i];
        x = j < c.rank ? x * c.size : (c.rank > 0 ? (j + 1) * a[i] : 0.0);
      }
    }
    const auto n = static_cast<std::size_t>(c.columns);
    Reals u = a, values(n), v(n * n);
    Reals work(static_cast<std::size_t>(SVD_words(c.rows, c.columns)));
    ASSERT_EQ(SVD(u.data(), c.rows, c.columns, c.rows, values, v.data(), true, work), 0);
    expect_orthonormal(u, c.rows, c.columns);
    expect_orthonormal(v, c.columns, c.columns);
    EXPECT_TRUE(std::is_sorted(values.rbegin(), values.rend()));
    const double largest = values[0];
    EXPECT_GE(values.back(), 0.0);
    EXPECT_EQ(std::ranges::count_if(values, [&](double w) { return w > 1e-13 * largest; }), c.rank);
    for (int j = 0; j < c.columns; ++j) {
      for (int i = 0; i < c.rows; ++i) {
        EXPECT_NEAR(element(u, c.rows, values, v, c.columns, i, j), a[c.rows * j + i],
                    2e-15 * c.columns * largest);
      }
    }
    Reals alone(n);
    ASSERT_EQ(SVD(a.data(), c.rows, c.columns, c.rows, alone, nullptr, false, work), 0);
    EXPECT_EQ(alone, values);
  }
}

// The matrix of Golub and Reinsch (1970): sqrt(1248), 20, sqrt(384), 0, 0.
TEST(Svd, PublishedExample) {
  const Reals by_rows = {22, 10, 2, 3,  7, 14, 7, 10, 0, 8,  -1, 13, -1, -11, 3, -3, -2, 13, -2, 4,
                         9,  8,  1, -2, 4, 9,  1, -7, 5, -1, 2,  -6, 6,  5,   1, 4,  5,  0,  -2, 2};
  Reals a(40), values(5), work(static_cast<std::size_t>(SVD_words(8, 5)));
  for (int i = 0; i < 8; ++i) {
    for (int j = 0; j < 5; ++j) a[8 * j + i] = by_rows[5 * i + j];
  }
  ASSERT_EQ(SVD(a.data(), 8, 5, 8, values, nullptr, false, work), 0);
  const double truth[] = {std::sqrt(1248.0), 20.0, std::sqrt(384.0), 0.0, 0.0};
  for (int k = 0; k < 5; ++k) EXPECT_NEAR(values[k], truth[k], 2e-14) << k;
  a[3] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(SVD(a.data(), 8, 5, 8, values, nullptr, false, work), -1);
}

struct Eigen {
  Reals values, vectors;
  int IFAULT = 0;
};
Eigen eigen(Reals a, int n) {
  Eigen e{Reals(static_cast<std::size_t>(n)), a, 0};
  Reals work(static_cast<std::size_t>(symmetric_eigen_words(n)));
  e.IFAULT = symmetric_eigen(e.vectors.data(), n, true, e.values, work);
  Reals alone(e.values.size());
  EXPECT_EQ(symmetric_eigen(a.data(), n, false, alone, work), e.IFAULT);
  EXPECT_TRUE(e.IFAULT != 0 || alone == e.values);
  return e;
}

// The differences of n points: values 2 - 2 cos(pi j / n). Hidden by a reflection, so that the
// matrix is full; the upper triangle is never read.
TEST(SymmetricEigen, KnownValues) {
  for (const int n : {1, 2, 3, 70, 150}) {
    Reals a(static_cast<std::size_t>(n * n), 0.0);
    for (int t = 1; t < n; ++t) {
      a[n * t + t] += 1;
      a[n * (t - 1) + t - 1] += 1;
      a[n * t + t - 1] = a[n * (t - 1) + t] = -1;
    }
    Reals v(static_cast<std::size_t>(n)), h(a.size());
    double square = 0;
    for (int i = 0; i < n; ++i) square += (v[i] = 1.0 + i % 3) * v[i];
    const auto reflect = [&](int i, int j) { return (i == j) - 2 * v[i] * v[j] / square; };
    Reals left(a.size());
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        for (int k = std::max(j - 1, 0); k < std::min(j + 2, n); ++k) {
          left[n * j + i] += reflect(i, k) * a[n * j + k];
        }
      }
    }
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j <= i; ++j) {
        for (int k = 0; k < n; ++k) h[n * j + i] += left[n * k + i] * reflect(k, j);
      }
    }
    Reals full = h;
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < j; ++i) {
        full[n * j + i] = h[n * i + j];
        h[n * j + i] = std::numeric_limits<double>::quiet_NaN();
      }
    }
    const Eigen e = eigen(h, n);
    ASSERT_EQ(e.IFAULT, 0);
    for (int j = 0; j < n; ++j) {
      EXPECT_NEAR(e.values[j], 2 - 2 * std::cos(3.14159265358979323846 * j / n), 1e-13) << n;
    }
    expect_orthonormal(e.vectors, n, n);
    for (int i = 0; i < n; ++i) {
      EXPECT_NEAR(element(e.vectors, n, e.values, e.vectors, n, i, n - 1), full[n * i + n - 1],
                  1e-13);
    }
  }
}

TEST(SymmetricEigen, Edges) {
  // Equal values, zeros, elements whose squares leave the range.
  for (const double size : {0.0, 1e-300, 1.0, 1e300}) {
    const Eigen same = eigen({size, 0, 0, 0, size, 0, 0, 0, size}, 3);
    EXPECT_EQ(same.values, Reals({size, size, size}));
    const Eigen pair = eigen({0, size, size, 0}, 2);
    EXPECT_NEAR(pair.values[0], -size, 1e-15 * size);
    EXPECT_NEAR(pair.values[1], size, 1e-15 * size);
  }
  EXPECT_EQ(eigen({1, std::numeric_limits<double>::infinity(), 0, 1}, 2).IFAULT, -1);
  // Wilkinson's matrix of order 21: pairs that agree to 14 digits; the largest from R's eigen.
  Reals w(21 * 21, 0.0);
  for (int i = 0; i < 21; ++i) {
    w[21 * i + i] = std::fabs(10.0 - i);
    if (i > 0) w[21 * (i - 1) + i] = 1;
  }
  const Eigen e = eigen(w, 21);
  ASSERT_EQ(e.IFAULT, 0);
  EXPECT_NEAR(e.values[20], 10.746194182903393, 1e-13);
  EXPECT_NEAR(e.values[19], 10.746194182903322, 1e-13);
  expect_orthonormal(e.vectors, 21, 21);
}

}  // namespace
}  // namespace korvel
