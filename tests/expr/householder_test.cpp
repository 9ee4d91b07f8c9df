// Orthogonal decompositions: Householder least squares.
#include "expr/kernels/householder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace korvel {
namespace {

// Indexed by ints, as the formulas are.
struct Reals : std::vector<double> {
  using vector::vector;
  double& operator[](std::ptrdiff_t i) { return data()[i]; }
  const double& operator[](std::ptrdiff_t i) const { return data()[i]; }
};

struct Problem {
  int rows, columns;
  Reals X;  // by columns
  Reals squares() const {
    Reals s;
    for (int j = 0; j < columns; ++j) s.push_back(hh_squares(X.data() + rows * j, rows));
    return s;
  }
};

Problem random_problem(int rows, int columns) {
  std::mt19937 bits(7);
  Problem p{rows, columns, Reals(static_cast<std::size_t>(rows * columns))};
  std::normal_distribution<double> normal;
  for (double& x : p.X) x = normal(bits);
  for (int i = 0; i < rows; ++i) p.X[i] *= 1e-3;  // a short first column
  return p;
}

double dot(const double* x, const double* y, int n) {
  double sum = 0;
  for (int i = 0; i < n; ++i) sum += x[i] * y[i];
  return sum;
}

// Q R is the matrix with its columns in the order of the pivots, whose lengths fall.
TEST(Householder, PivotedDecomposition) {
  for (const int rows : {4, 5, 37}) {
    const Problem p = random_problem(rows, 4);
    Reals a = p.X, alpha(4), squares = p.squares(), work(8);
    std::vector<int> order(4);
    const HouseholderMatrix qr{a.data(), rows, 4, rows, alpha.data()};
    ASSERT_EQ(HHDCMP(qr, squares, order, work), 0);
    EXPECT_EQ(order[3], 0) << "the short column comes last";
    Reals column(static_cast<std::size_t>(rows));
    for (int j = 0; j < 4; ++j) {
      EXPECT_TRUE(j == 0 || std::fabs(alpha[j]) <= std::fabs(alpha[j - 1]) * (1 + 1e-12));
      column.assign(column.size(), 0.0);
      for (int i = 0; i < j; ++i) column[i] = qr.column(j)[i];
      column[j] = alpha[j];
      hh_product(qr, column.data());
      for (int i = 0; i < rows; ++i) {
        EXPECT_NEAR(column[i], p.X[rows * order[static_cast<std::size_t>(j)] + i], 1e-14)
            << rows << " " << j;
      }
    }
  }
}

TEST(Householder, SolvesAndLeavesResiduals) {
  const int rows = 25;
  const Problem p = random_problem(rows, 3);
  Reals y(rows), b(3), Qty(3), a = p.X, alpha(3), squares = p.squares(), work(6);
  std::vector<int> order(3);
  for (int i = 0; i < rows; ++i) {
    y[i] = 2000 * p.X[i] - p.X[rows + i] + 0.5 * p.X[2 * rows + i] + std::sin(i);
  }
  const Reals observed = y;
  const HouseholderMatrix qr{a.data(), rows, 3, rows, alpha.data()};
  ASSERT_EQ(HHDCMP(qr, squares, order, work), 0);
  const double SSE = HHSOLV(qr, order, y.data(), Qty, b);
  EXPECT_NEAR(SSE, dot(y.data(), y.data(), rows), 1e-13);
  for (int j = 0; j < 3; ++j) EXPECT_NEAR(dot(&p.X[rows * j], y.data(), rows), 0.0, 1e-13);
  for (int i = 0; i < rows; ++i) {
    double fit = 0;
    for (int j = 0; j < 3; ++j) fit += p.X[rows * j + i] * b[j];
    EXPECT_NEAR(fit + y[i], observed[i], 1e-13);
  }
}

// The last N-K rows of Q': no trace of the regressors, orthonormal. This is what makes residuals
// from them unbiased and uncorrelated with one variance.
TEST(Householder, TheRestOfQIsFreeOfTheRegressors) {
  const int rows = 12, K = 4;
  const Problem p = random_problem(rows, K);
  Reals a = p.X, alpha(K), square(rows * rows, 0.0);
  const HouseholderMatrix qr{a.data(), rows, K, rows, alpha.data()};
  HHDCMP(qr);
  for (int j = 0; j < K; ++j) {
    Reals x(&p.X[rows * j], &p.X[rows * j] + rows);
    hh_transpose(qr, x.data());
    for (int i = K; i < rows; ++i) EXPECT_NEAR(x[i], 0.0, 1e-14);
    EXPECT_EQ(alpha[j] > 0, qr.column(j)[j] < 0) << "the head grows away from zero";
  }
  for (int i = 0; i < rows; ++i) {
    square[rows * i + i] = 1.0;
    hh_transpose(qr, &square[rows * i]);
  }
  for (int s = K; s < rows; ++s) {
    for (int t = K; t < rows; ++t) {
      double sum = 0;
      for (int i = 0; i < rows; ++i) sum += square[rows * i + s] * square[rows * i + t];
      EXPECT_NEAR(sum, s == t ? 1.0 : 0.0, 1e-14);
    }
  }
  hh_columns(qr);
  for (int j = 0; j < K; ++j) {
    for (int i = 0; i < rows; ++i) EXPECT_NEAR(qr.column(j)[i], square[rows * i + j], 1e-14);
  }
}

TEST(Householder, DependentColumns) {
  for (const double scale : {1.0, 1e-6, 1e8}) {
    Problem p = random_problem(40, 4);
    for (int i = 0; i < 40; ++i) p.X[120 + i] = scale * (p.X[40 + i] - 3 * p.X[80 + i]);
    Reals alpha(4), squares = p.squares(), work(8);
    std::vector<int> order(4);
    EXPECT_EQ(HHDCMP({p.X.data(), 40, 4, 40, alpha.data()}, squares, order, work) > 0, true);
  }
  Reals zero(8, 0.0), alpha(2), squares(2, 0.0), work(4);
  std::vector<int> order(2);
  EXPECT_EQ(HHDCMP({zero.data(), 4, 2, 4, alpha.data()}, squares, order, work), 1);
}

}  // namespace
}  // namespace korvel
