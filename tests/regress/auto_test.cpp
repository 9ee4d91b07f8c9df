// AUTO against R's arima and against models written out in full, and its kernels at their edges.

// Before gtest, whose macro TEST would take the command's name.
#include "regress/auto.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "expr/kernels/packed.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::run_commands;

const std::string DATA = KORVEL_TEST_DATA;

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}
std::vector<double> numbers(const std::string& text) {
  std::vector<double> values;
  for (const std::string& part : split(text, ',')) values.push_back(std::stod(part));
  return values;
}
std::string lines(std::string text) {
  std::ranges::replace(text, ';', '\n');
  return text + "\n";
}

std::string start(bool textile) {
  return textile ? "SAMPLE 1 17\nREAD(" + DATA + "/textile.dat) DATE CONSUME INCOME PRICE\n"
                 : "SAMPLE 1 98\nREAD(" + DATA + "/regress/lake.dat) LEVEL YEAR LAST\n";
}

void expect_close(const std::vector<double>& want, const std::vector<double>& have,
                  double tolerance, const std::string& what) {
  ASSERT_GE(have.size(), want.size()) << what;
  for (std::size_t i = 0; i < want.size(); ++i) {
    EXPECT_NEAR(have[i], want[i], tolerance * std::max(1.0, std::fabs(want[i])))
        << what << " " << i;
  }
}

// tests/data/regress/auto_reference.R tells how the values were made.
TEST(Auto, AgreesWithReference) {
  std::ifstream in(DATA + "/regress/auto_reference.txt");
  int models = 0;
  for (std::string line; std::getline(in, line); ++models) {
    const std::vector<std::string> field = split(line, '|');
    ASSERT_EQ(field.size(), 9U) << line;
    const std::string commands =
        start(field[0] == "T") + lines(field[1]) + "AUTO " + lines(field[2]) + "STOP\n";
    const auto listing = run_commands(commands);
    ASSERT_EQ(listing.status, 0) << listing.text;
    const double tolerance = std::stod(field[3]);
    std::vector<double> errors = SAVED.rho;
    errors.insert(errors.end(), SAVED.theta.begin(), SAVED.theta.end());
    const std::vector<double> want = numbers(field[4]);
    EXPECT_EQ(errors.size(), want.size());
    expect_close(want, errors, std::max(tolerance, 1e-10), line);
    // The other values follow the coefficients of the errors with a slope of some tens.
    const double slack = std::max(1e-8, 30.0 * tolerance);
    expect_close(numbers(field[5]), SAVED.coef, slack, line);
    std::vector<double> se;
    for (int i = 1; i <= SAVED.K(); ++i) se.push_back(std::sqrt(SAVED.cov[packed(i, i)]));
    expect_close(numbers(field[6]), se, slack, line);
    expect_close(numbers(field[7]), {SAVED.SSE}, slack, line);
    // At its maximum the likelihood hardly moves.
    expect_close(numbers(field[8]), {temporary(temporary_place("LLF"))}, 1e-8 + tolerance / 5,
                 line);
  }
  EXPECT_EQ(models, 23);
}

// A row of any model is as it stands in the inverse factor of the covariance matrix of the errors.
TEST(AutoRows, FactorOfFirstRowsInvertsTheAutocovariances) {
  const std::vector<std::vector<double>> models = {{0.7}, {1.2, -0.6}, {0.5, 0.1, 0.3, -0.2}};
  for (const std::vector<double>& r : models) {
    const std::size_t p = r.size();
    std::vector<double> psi(2000, 0.0);  // weights of past u
    psi[0] = 1.0;
    for (std::size_t k = 1; k < psi.size(); ++k) {
      for (std::size_t j = 1; j <= std::min(p, k); ++j) psi[k] += r[j - 1] * psi[k - j];
    }
    const auto g = [&](std::size_t lag) {
      double sum = 0.0;
      for (std::size_t k = 0; k + lag < psi.size(); ++k) sum += psi[k] * psi[k + lag];
      return sum;
    };
    std::vector<double> P(p * p), work(p * p);
    ASSERT_TRUE(first_rows_factor(r, P, work));
    for (std::size_t i = 0; i < p; ++i) {  // P G P' = 1
      for (std::size_t j = 0; j <= i; ++j) {
        double sum = 0.0;
        for (std::size_t a = 0; a <= i; ++a) {
          for (std::size_t b = 0; b <= j; ++b) {
            sum += P[i * p + a] * g(a > b ? a - b : b - a) * P[j * p + b];
          }
        }
        EXPECT_NEAR(sum, i == j ? 1.0 : 0.0, 1e-10);
      }
    }
  }
  // Not stationary: a root on the unit circle, inside it, and one of two.
  std::vector<double> P(4), work(4);
  for (const std::vector<double>& r : std::vector<std::vector<double>>{{1.0}, {-1.5}, {0.5, 0.6}}) {
    EXPECT_FALSE(first_rows_factor(r, P, work));
  }
}

TEST(AutoRows, VarianceOverAGapIsTheSumOfPowers) {
  for (const double r : {0.0, 0.3, -0.99, 1.0, -1.0, 1.5, 1.0 - 1e-9}) {
    for (const int steps : {1, 2, 7, 40}) {
      double sum = 0.0;
      for (int k = steps - 1; k >= 0; --k) sum = 1.0 + (k < steps - 1 ? r * r * sum : 0.0);
      EXPECT_NEAR(steps_variance(r, steps) / sum, 1.0, 1e-9) << r << " " << steps;
    }
  }
}

// The closed root of the likelihood equation and the search for its maximum are the same.
TEST(AutoRows, RootAndSearchAgree) {
  const std::vector<std::vector<double>> samples = {
      {1.0, 0.5, 0.7, -0.2, -0.9, -0.1, 0.4}, {2.0, 1.9, 1.8, 1.7, 1.9, 2.1}, {1, -1, 1, -1.1, 1}};
  for (const std::vector<double>& e : samples) {
    PairSums sums[1];
    sum_pairs(e, {}, sums);
    const auto N = static_cast<double>(e.size());
    EXPECT_NEAR(rho_likelihood(sums[0], e[0], N), rho_search(sums, e[0], false, N), 1e-7);
  }
  // Nothing to divide by: no autocorrelation.
  const std::vector<double> one = {3.0, 0.0};
  PairSums sums[1];
  sum_pairs(one, {}, sums);
  EXPECT_EQ(rho_likelihood(sums[0], one[0], 2.0), 0.0);
}

// TEST, CONFID and the temporaries stand on the estimate; a later mistake leaves it alone, a model
// that can't be estimated does not.
TEST(Auto, EstimateOutlivesMistakes) {
  const std::string begin = start(true) + "GENR TWICE=2*PRICE\nSET CONTINUE\n";
  const std::string fit = "?AUTO CONSUME INCOME PRICE / DROP\n";
  for (const char* bad : {"AUTO CONSUME (INCOME PRICE)", "AUTO CONSUME / NOCONSTANT",
                          "AUTO CONSUME INCOME / LOGLOG LINLOG", "AUTO CONSUME INCOME / ITER=0",
                          "AUTO CONSUME INCOME / RHO=1", "AUTO CONSUME INCOME / GAP=17 NMISS=1",
                          "AUTO CONSUME CONSUME", "AUTO CONSUME INCOME PRICE / END=3",
                          "AUTO CONSUME INCOME / ORDER=2 GS", "AUTO CONSUME / DLAG",
                          "AUTO CONSUME INCOME / PREPER", "AUTO CONSUME INCOME / RESID="}) {
    const auto listing = run_commands(begin + fit + bad + "\nTEST INCOME=1\nSTOP\n");
    EXPECT_TRUE(holds(listing, " ...ERROR..")) << bad;
    EXPECT_TRUE(holds(listing, " TEST VALUE =  0.16814 ")) << bad << listing.text;
  }
  const auto listing =
      run_commands(begin + fit + "AUTO CONSUME PRICE TWICE\nPRINT $ERR\nTEST PRICE=1\nSTOP\n");
  EXPECT_TRUE(holds(listing, "PERFECT MULTICOLLINEARITY WITH VARIABLE TWICE"));
  EXPECT_TRUE(holds(listing, "THIS COMMAND MUST FOLLOW AN ESTIMATION COMMAND"));
  EXPECT_TRUE(holds(listing, "6017"));
}

// What FCAST takes, and the rows that the results belong to.
TEST(Auto, KeepsWhatForecastsNeed) {
  run_commands(start(true) + "AUTO CONSUME INCOME PRICE / ORDER=2 DROP RESID=U\nSTOP\n");
  EXPECT_EQ(SAVED.rho.size(), 2U);
  EXPECT_FALSE(SAVED.first_rows);
  EXPECT_EQ(SAVED.MBEG, 3);
  EXPECT_EQ(SAVED.N, 15.0);
  run_commands(start(true) + "AUTO CONSUME INCOME PRICE / NUMARMA=1 ORDER=1\nSTOP\n");
  EXPECT_EQ(SAVED.rho.size(), 1U);
  EXPECT_EQ(SAVED.theta.size(), 1U);
  EXPECT_TRUE(SAVED.first_rows);
}

// A root at the edge is told once and held; with DROP it may pass it.
TEST(Auto, HoldsTheEdgeOfTheStableRange) {
  std::string data = "SAMPLE 1 30\nGENR T=TIME(0)\nGENR Y=1.2**T\nGENR X=(-1)**T\n";
  auto listing = run_commands(data + "AUTO Y X / NOCONSTANT\nPRINT $RHO\nSTOP\n");
  EXPECT_TRUE(holds(listing, " ...WARNING..UNSTABLE RHO..ERRORS BELOW..USE DROP OPTION"));
  EXPECT_DOUBLE_EQ(SAVED.rho.at(0), 0.99999);
  listing = run_commands(data + "AUTO Y X / DROP NOCONSTANT\nSTOP\n");
  EXPECT_NEAR(SAVED.rho.at(0), 1.2, 0.01);
}

// What is left of y is rounding: no autocorrelation, and no round after round in search of one.
TEST(Auto, PerfectFitHasNoAutocorrelation) {
  for (const char* options : {"", " / ML", " / ORDER=2", " / NUMARMA=1", " / DROP"}) {
    const auto listing =
        run_commands(start(true) + "GENR EX=2+3*PRICE\nAUTO EX PRICE" + options + "\nSTOP\n");
    EXPECT_FALSE(holds(listing, "WARNING")) << listing.text;
    EXPECT_NEAR(SAVED.coef.at(0), 3.0, 1e-12);
    for (const double r : SAVED.rho) EXPECT_EQ(r, 0.0);
  }
}

// The columns of a fit with 100,000 rows are made on threads, with the numbers of plain code.
TEST(AutoRows, LongColumns) {
  const std::size_t n = 100000;
  std::vector<double> z(n);
  for (std::size_t t = 0; t < n; ++t) z[t] = std::sin(0.37 * static_cast<double>(t));
  const double* columns[] = {z.data(), nullptr, z.data()};
  const ColumnList x{columns, static_cast<std::int64_t>(n), nullptr, {}};
  const Gap gaps[] = {{.row = 500, .steps = 3.0, .lengths = 1}};
  for (const bool drop : {false, true}) {
    const std::size_t rows = n - (drop ? 1 : 0);
    std::vector<double> out(3 * rows);
    transform_first(x, 0.5, drop, gaps, out);
    const std::size_t at = drop ? 1 : 0;
    EXPECT_EQ(out[777 - at], z[777] - 0.5 * z[776]);
    EXPECT_EQ(out[2 * rows + n - 1 - at], z[n - 1] - 0.5 * z[n - 2]);
    EXPECT_EQ(out[rows + 777 - at], 0.5);
    EXPECT_DOUBLE_EQ(out[rows + 500 - at], (1.0 - 0.125) / std::sqrt(1.0 + 0.25 + 0.0625));
    EXPECT_DOUBLE_EQ(out[500 - at], (z[500] - 0.125 * z[499]) / std::sqrt(1.3125));
    if (!drop) {
      EXPECT_DOUBLE_EQ(out[rows], std::sqrt(0.75));
    }
  }
}

}  // namespace
}  // namespace korvel
