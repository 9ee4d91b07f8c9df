// Levenberg-Marquardt and variable projection on the hard sets of the NIST archive of nonlinear
// regressions (StRD), from both published starts, and on cases that have bitten least squares.
#include "nonlinear/least_squares.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "nonlinear/row_qr.h"

namespace {

// A value with its derivatives by up to 8 coefficients.
struct Dual {
  double v = 0.0;
  std::array<double, 8> d{};
  Dual() = default;
  Dual(double value) : v(value) {}  // NOLINT: numbers mix with duals
};
Dual chain(const Dual& a, double v, double slope) {
  Dual r(v);
  for (std::size_t i = 0; i < 8; ++i) r.d[i] = slope * a.d[i];
  return r;
}
Dual operator+(const Dual& a, const Dual& b) {
  Dual r(a.v + b.v);
  for (std::size_t i = 0; i < 8; ++i) r.d[i] = a.d[i] + b.d[i];
  return r;
}
Dual operator*(const Dual& a, const Dual& b) {
  Dual r(a.v * b.v);
  for (std::size_t i = 0; i < 8; ++i) r.d[i] = a.d[i] * b.v + a.v * b.d[i];
  return r;
}
Dual operator-(const Dual& a, const Dual& b) { return a + chain(b, -b.v, -1.0); }
Dual operator/(const Dual& a, const Dual& b) { return a * chain(b, 1.0 / b.v, -1.0 / (b.v * b.v)); }
Dual exp(const Dual& a) { return chain(a, std::exp(a.v), std::exp(a.v)); }

using Coefficients = std::vector<Dual>;
using Formula = std::function<Dual(const Coefficients&, double)>;

class FormulaModel final : public korvel::ResidualModel {
 public:
  Formula f;
  std::vector<double> y, x;
  int evaluations = 0;

  bool evaluate(std::span<const double> b, std::span<double> u, std::span<double> J) override {
    ++evaluations;
    Coefficients c(b.size());
    for (std::size_t j = 0; j < b.size(); ++j) {
      c[j].v = b[j];
      c[j].d[j] = 1.0;
    }
    for (std::size_t t = 0; t < y.size(); ++t) {
      const Dual e = Dual(y[t]) - f(c, x[t]);
      u[t] = e.v;
      if (!std::isfinite(e.v)) return false;
      if (J.empty()) continue;
      for (std::size_t j = 0; j < b.size(); ++j) J[j * y.size() + t] = e.d[j];
    }
    return true;
  }
};

struct NistSet {
  FormulaModel model;
  std::vector<double> start[2], certified;
  double SSE = 0.0;
};

NistSet read_set(const std::string& name, const Formula& f) {
  NistSet set;
  set.model.f = f;
  std::ifstream in(std::string(KORVEL_TEST_DATA) + "/nist/" + name + ".dat");
  std::string line;
  bool data = false;
  for (int number = 1; std::getline(in, line); ++number) {
    std::istringstream words(line);
    if (data) {
      double y = 0.0, x = 0.0;
      if (words >> y >> x) {
        set.model.y.push_back(y);
        set.model.x.push_back(x);
      }
      continue;
    }
    if (line.rfind("Data:", 0) == 0 && number > 55) data = true;
    if (const auto at = line.find("Residual Sum of Squares:"); at != std::string::npos) {
      set.SSE = std::stod(line.substr(at + 24));
    }
    std::string word, equals;
    double first = 0.0, second = 0.0, value = 0.0;
    if (number > 38 && words >> word && word[0] == 'b' &&
        words >> equals >> first >> second >> value) {
      set.start[0].push_back(first);
      set.start[1].push_back(second);
      set.certified.push_back(value);
    }
  }
  return set;
}

// Correct digits of the worst coefficient.
double digits(const std::vector<double>& b, const std::vector<double>& certified) {
  double worst = 15.0;
  for (std::size_t j = 0; j < b.size(); ++j) {
    const double error = std::fabs(b[j] - certified[j]) / std::fabs(certified[j]);
    worst = std::min(worst, error > 0.0 ? -std::log10(error) : 15.0);
  }
  return worst;
}

Dual rational(const Coefficients& b, double x, std::size_t top) {
  Dual above = 0.0, below = 0.0;
  for (std::size_t j = top; j > 0; --j) above = above * x + b[j - 1];
  for (std::size_t j = b.size(); j > top; --j) below = below * x + b[j - 1];
  return above / (below * x + 1.0);
}

struct Case {
  std::string name;
  Formula f;
  std::vector<std::size_t> linear;  // places of the coefficients that enter linearly
  int lost = -1;  // the start from which the plain steps do not find the certified minimum
};

const Case CASES[] = {
    {"MGH17",
     [](const Coefficients& b, double x) {
       return b[0] + b[1] * exp(Dual(-x) * b[3]) + b[2] * exp(Dual(-x) * b[4]);
     },
     {0, 1, 2},
     0},
    {"Lanczos3",
     [](const Coefficients& b, double x) {
       return b[0] * exp(Dual(-x) * b[1]) + b[2] * exp(Dual(-x) * b[3]) +
              b[4] * exp(Dual(-x) * b[5]);
     },
     {0, 2, 4}},
    {"Thurber", [](const Coefficients& b, double x) { return rational(b, x, 4); }, {0, 1, 2, 3}},
    {"Eckerle4",
     [](const Coefficients& b, double x) {
       const Dual z = (Dual(x) - b[2]) / b[1];
       return b[0] / b[1] * exp(Dual(-0.5) * z * z);
     },
     {0}},
    {"Hahn1", [](const Coefficients& b, double x) { return rational(b, x, 4); }, {0, 1, 2, 3}},
    {"Gauss2",
     [](const Coefficients& b, double x) {
       const Dual z = (Dual(x) - b[3]) / b[4], w = (Dual(x) - b[6]) / b[7];
       return b[0] * exp(Dual(-x) * b[1]) + b[2] * exp(Dual(-1.0) * z * z) +
              b[5] * exp(Dual(-1.0) * w * w);
     },
     {0, 2, 5}},
};

TEST(LeastSquares, NistSetsFromBothStarts) {
  for (const Case& c : CASES) {
    NistSet set = read_set(c.name, c.f);
    const auto n = static_cast<std::int64_t>(set.model.y.size());
    const int K = static_cast<int>(set.certified.size());
    ASSERT_GT(K, 0) << c.name;
    std::vector<double> work(static_cast<std::size_t>(korvel::least_squares_words(n, K)));
    const auto linear = std::make_unique<bool[]>(static_cast<std::size_t>(K));
    for (const std::size_t j : c.linear) linear[j] = true;
    for (int start = 0; start < 2; ++start) {
      for (const bool project : {false, true}) {
        std::vector<double> b = set.start[start];
        set.model.evaluations = 0;
        const korvel::SquaresFit fit =
            project ? korvel::variable_projection(set.model, n, b,
                                                  {linear.get(), static_cast<std::size_t>(K)}, work)
                    : korvel::levenberg_marquardt(set.model, n, b, work);
        const double right = digits(b, set.certified);
        const std::string where = c.name + " start " + std::to_string(start + 1) +
                                  (project ? " projection" : " steps") + ", digits " +
                                  std::to_string(right);
        if (!project && c.lost == start) continue;
        EXPECT_TRUE(fit.good && fit.converged) << where;
        EXPECT_GE(right, 7.5) << where;
        EXPECT_NEAR(fit.SSE, set.SSE, 1e-9 * set.SSE) << where;
      }
    }
  }
}

// The triangle of a matrix with rows of very different size, against the same reflections of the
// whole matrix at once; blocks of rows make no difference beyond rounding.
TEST(LeastSquares, TriangleByBlocks) {
  constexpr std::size_t n = 700, K = 3;
  std::vector<std::vector<double>> columns(K + 1, std::vector<double>(n));
  for (std::size_t t = 0; t < n; ++t) {
    const double x = static_cast<double>(t) / n;
    columns[0][t] = 1.0;
    columns[1][t] = x;
    columns[2][t] = std::exp(3.0 * x);
    columns[3][t] = 2.0 - x + 0.5 * columns[2][t] + (t % 2 == 0 ? 1e-3 : -1e-3);
  }
  std::vector<const double*> pointers;
  pointers.reserve(columns.size());
  for (const auto& c : columns) pointers.push_back(c.data());
  std::vector<double> R(korvel::triangle_words(K)), b(K);
  std::vector<double> work(static_cast<std::size_t>(korvel::factor_words(K)));
  korvel::factor_rows(R, pointers, n, work);
  korvel::solve_triangle(R, K, K, b, 1e-14);
  EXPECT_NEAR(b[0], -2.0, 1e-4);
  EXPECT_NEAR(b[1], 1.0, 1e-4);
  EXPECT_NEAR(b[2], -0.5, 1e-4);
  for (std::size_t i = 0; i < K; ++i) {
    for (std::size_t j = i; j < K; ++j) {
      double moment = 0.0, product = 0.0;
      for (std::size_t t = 0; t < n; ++t) moment += columns[i][t] * columns[j][t];
      for (std::size_t k = 0; k <= i; ++k) product += R[i * K + k] * R[j * K + k];
      EXPECT_NEAR(product, moment, 1e-12 * moment);
    }
  }
  // A column that repeats another one gets 0.
  pointers[1] = pointers[0];
  korvel::factor_rows(R, pointers, n, work);
  korvel::solve_triangle(R, K, K, b, 1e-14);
  EXPECT_EQ(b[1], 0.0);
}

// A coefficient that is 0, a model that fits exactly, a start without a value.
TEST(LeastSquares, EdgesOfTheSearch) {
  FormulaModel line;
  line.f = [](const Coefficients& b, double x) { return b[0] + b[1] * x + exp(b[2] * x); };
  for (int t = 0; t < 20; ++t) {
    line.x.push_back(t * 0.1);
    line.y.push_back(1.0 + std::exp(0.3 * t * 0.1));
  }
  std::vector<double> work(static_cast<std::size_t>(korvel::least_squares_words(20, 3)));
  std::vector<double> b = {5.0, -2.0, 0.0};
  const korvel::SquaresFit fit = korvel::levenberg_marquardt(line, 20, b, work);
  EXPECT_TRUE(fit.converged);
  EXPECT_NEAR(b[0], 1.0, 1e-10);
  EXPECT_NEAR(b[1], 0.0, 1e-10);
  EXPECT_NEAR(b[2], 0.3, 1e-10);
  EXPECT_LT(fit.SSE, 1e-24);
  std::vector<double> outside = {1.0, 1.0, 1e6};
  EXPECT_FALSE(korvel::levenberg_marquardt(line, 20, outside, work).good);
  EXPECT_EQ(outside[2], 1e6);
}

}  // namespace
