// Weighted sums of chi-squares and the exact Durbin-Watson distribution.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <vector>

#include "stats/davies.h"
#include "stats/durbin_watson.h"
#include "stats/imhof.h"
#include "stats/probability.h"

namespace korvel {
namespace {

void expect_digits(double value, double truth, double relative, const char* what) {
  EXPECT_LE(std::fabs(value - truth), relative * std::fabs(truth)) << what << " " << value;
}

// Equal weights are chi-square, pairs of weights have a closed form, a difference of two sums is F.
TEST(QuadraticForms, KnownDistributions) {
  for (const double x : {1e-6, 0.5, 3.0, 40.0, 400.0}) {
    const std::vector<double> equal(3, 2.0);
    const Tails chi = gamma_tails(1.5, x / 4);
    expect_digits(FQUAD(equal, x).tails.below, chi.below, 1e-13, "chi below");
    expect_digits(FQUAD(equal, x).tails.above, chi.above, 1e-13, "chi above");
    const double truth = (3 * std::exp(-x / 6) - std::exp(-x / 2)) / 2;
    expect_digits(FQUAD(std::vector<double>{3, 3, 1, 1}, x).tails.above, truth, 1e-13, "pairs");
  }
  for (const double f : {1e-4, 0.3, 2.0, 80.0}) {
    const std::vector<double> w = {0.5, 0.5, -f / 3, -f / 3, -f / 3};
    expect_digits(FQUAD(w, 0).tails.below, f_tails(f, 2, 3).below, 1e-13, "F");
    expect_digits(FQUAD(w, 0).tails.above, f_tails(f, 2, 3).above, 1e-13, "F");
  }
  // Imhof (1961), table 1, first form.
  const std::vector<double> imhof = {0.6, 0.3, 0.1};
  EXPECT_NEAR(FQUAD(imhof, 0.1).tails.above, 0.9458, 5e-5);
  EXPECT_NEAR(FQUAD(imhof, 0.7).tails.above, 0.5064, 5e-5);
  EXPECT_NEAR(FQUAD(imhof, 2.0).tails.above, 0.1240, 5e-5);
}

TEST(QuadraticForms, Edges) {
  EXPECT_EQ(FQUAD(std::vector<double>{1, 2}, -1).tails.below, 0.0);
  EXPECT_EQ(FQUAD(std::vector<double>{-1, -2}, 1).tails.below, 1.0);
  EXPECT_EQ(FQUAD(std::vector<double>{0, 0}, 1).tails.below, 1.0);
  EXPECT_EQ(FQUAD({}, 1).IFAULT, 3);
  EXPECT_EQ(FQUAD(std::vector<double>{1, NAN}, 1).IFAULT, 3);
  EXPECT_EQ(FQUAD(std::vector<double>{1, 1}, NAN).IFAULT, 3);
}

// The values published with the algorithm, for its parameters.
TEST(QuadraticForms, Davies) {
  std::vector<int> rank(3);
  const std::vector<double> lambda = {7, 3}, df = {6, 2}, nc = {6, 2};
  EXPECT_NEAR(DAVIES(lambda, df, nc, 0, 20, 1000, 1e-4, rank).value, 0.0061, 1e-4);
  EXPECT_NEAR(DAVIES(lambda, df, nc, 0, 100, 1000, 1e-4, rank).value, 0.5913, 1e-4);
  EXPECT_NEAR(DAVIES(lambda, df, nc, 0, 200, 1000, 1e-4, rank).value, 0.9779, 1e-4);
  const std::vector<double> w = {6, 3, 1}, one = {1, 1, 1}, zero = {0, 0, 0};
  EXPECT_NEAR(DAVIES(w, one, zero, 0, 7, 100000, 1e-7, rank).value, FQUAD(w, 7).tails.below, 1e-7);
  // A normal term alone, and what cannot be done.
  EXPECT_NEAR(DAVIES(std::vector<double>{0}, one, zero, 2, 2, 1000, 1e-6, rank).value,
              normal_cdf(1.0), 1e-6);
  EXPECT_EQ(DAVIES(w, one, zero, 0, 7, 2, 1e-7, rank).IFAULT, 4);
  EXPECT_EQ(DAVIES(w, one, zero, 0, 1, 3000, 1e-6, rank).IFAULT, 1);
  EXPECT_EQ(DAVIES(w, std::vector<double>{1, -1, 1}, zero, 0, 7, 1000, 1e-6, rank).IFAULT, 3);
}

DurbinWatsonTails durbin_watson(const std::vector<double>& X, std::size_t n, double d,
                                DifferenceRows rows = {}) {
  const std::size_t k = n > 0 ? X.size() / n : 0;
  std::vector<double> work(durbin_watson_words(n, k, rows));
  return durbin_watson_tails(X, n, k, n, d, rows, work);
}

// Without regressors and with a constant the roots are 2 - 2 cos(pi j / n), from j = 0 and 1 on.
TEST(QuadraticForms, DurbinWatsonWithKnownRoots) {
  for (const std::size_t n : {5u, 40u}) {
    for (const double d : {0.5, 1.3, 2.0, 3.1}) {
      std::vector<double> roots(n);
      for (std::size_t j = 0; j < n; ++j) {
        roots[j] = 2 - 2 * std::cos(3.14159265358979323846 * double(j) / double(n)) - d;
      }
      expect_digits(durbin_watson({}, n, d).positive, FQUAD(roots, 0).tails.below, 1e-12, "none");
      roots.erase(roots.begin());
      const DurbinWatsonTails p = durbin_watson(std::vector<double>(n, 3.0), n, d);
      expect_digits(p.positive, FQUAD(roots, 0).tails.below, 1e-12, "constant");
      expect_digits(p.negative, FQUAD(roots, 0).tails.above, 1e-12, "constant");
      EXPECT_EQ(p.IFAULT, 0);
    }
  }
}

// Textile data (constant, income, price). R 4.2.2: roots of N'AN by eigen, Imhof's integral by
// integrate with rel.tol 1e-12.
TEST(QuadraticForms, DurbinWatsonOfTheTextileData) {
  std::ifstream file(KORVEL_TEST_DATA "/textile.dat");
  std::vector<double> X(std::size_t{17} * 3, 1.0);
  double year, consume;
  for (std::size_t t = 0; t < 17; ++t) file >> year >> consume >> X[17 + t] >> X[34 + t];
  ASSERT_TRUE(file);
  const auto positive = [&](double d, DifferenceRows rows = {}) {
    return durbin_watson(X, 17, d, rows).positive;
  };
  EXPECT_NEAR(positive(2.0185491087410417), 0.301264821821344, 1e-11);
  EXPECT_NEAR(positive(1.2), 0.00887635092663713, 1e-11);
  EXPECT_NEAR(positive(2.9), 0.930449771085505, 1e-11);
  EXPECT_NEAR(positive(1.5, {.order = 2}), 0.125604982701742, 1e-11);
  EXPECT_NEAR(positive(1.5, {.order = 4}), 0.391823715185398, 1e-11);
  EXPECT_NEAR(positive(1.7, {.gap = 8}), 0.185356667647226, 1e-11);
  EXPECT_NEAR(positive(1.7, {.order = 2, .gap = 8}), 0.432617242689582, 1e-11);
  // A column twice changes nothing.
  std::vector<double> twice = X;
  for (std::size_t t = 0; t < 17; ++t) twice.push_back(X[17 + t] - 2 * X[34 + t]);
  EXPECT_NEAR(durbin_watson(twice, 17, 1.2).positive, 0.00887635092663713, 1e-11);
}

TEST(QuadraticForms, DurbinWatsonEdges) {
  EXPECT_EQ(durbin_watson(std::vector<double>(1, 1.0), 1, 2).IFAULT, 2);
  EXPECT_EQ(durbin_watson({}, 5, 0).positive, 0.0);
  EXPECT_EQ(durbin_watson({}, 5, 4).negative, 0.0);
  EXPECT_LT(durbin_watson(std::vector<double>(5, 1.0), 5, 0.05).positive,
            1e-15);  // below all roots
  EXPECT_EQ(durbin_watson({1, 2, NAN, 4, 5}, 5, 2).IFAULT, 3);
  // Many rows: no matrix of n by n, symmetric about 2.
  const DurbinWatsonTails many = durbin_watson(std::vector<double>(50000, 1.0), 50000, 2.0);
  EXPECT_NEAR(many.positive, 0.5, 1e-12);
  EXPECT_EQ(many.IFAULT, 0);
  std::vector<double> ones(9, 1.0), work(durbin_watson_words(9, 1));
  EXPECT_EQ(durbin_watson_tails(ones, 9, 1, 9, 2.0, {}, work, [] { return true; }).IFAULT, 4);
}

}  // namespace
}  // namespace korvel
