// The linear regression sets of the US National Institute of Standards and Technology, through the
// kernel as OLSEST uses it. Accuracy is the log relative error, about the number of right digits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "harness.h"

namespace korvel {
namespace {

using Reals = std::vector<double>;

struct Certified {
  Reals coefficient, error;  // in the order of the file: constant first
  double deviation = 0, R2 = 0;
  std::vector<Reals> rows;
};

Certified read_set(const std::string& name) {
  std::ifstream file(KORVEL_TEST_DATA "/nist/" + name + ".dat");
  EXPECT_TRUE(file.good()) << name;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  std::size_t data = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].rfind("Data:", 0) == 0) data = i;
  }
  Certified set;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::istringstream in(lines[i]);
    if (i > data) {
      Reals row;
      for (double v; in >> v;) row.push_back(v);
      if (!row.empty()) set.rows.push_back(row);
      continue;
    }
    std::string word, second;
    in >> word;
    double value = 0, error = 0;
    if (word.size() == 2 && word[0] == 'B' && in >> value >> error) {
      set.coefficient.push_back(value);
      set.error.push_back(error);
    } else if (word == "R-Squared") {
      in >> set.R2;
    } else if (word == "Standard" && in >> second && second == "Deviation") {
      in >> set.deviation;
    }
  }
  return set;
}

double LRE(double value, double certified) {
  if (value == certified) return 15.0;
  const double size = certified == 0.0 ? 1.0 : std::fabs(certified);
  return std::min(15.0, -std::log10(std::fabs(value - certified) / size));
}

struct Case {
  const char* name;
  int powers;  // x, x^2 .. x^powers; 0: the columns of the file
  bool constant;
  double coefficient, error;  // digits asked for
};

class Nist : public testing::TestWithParam<Case> {};

TEST_P(Nist, Digits) {
  const Case& c = GetParam();
  const Certified set = read_set(c.name);
  const std::size_t N = set.rows.size();
  const std::size_t K = set.coefficient.size();
  const std::size_t regressors = K - (c.constant ? 1 : 0);
  std::vector<Reals> column(regressors + 1, Reals(N));
  for (std::size_t t = 0; t < N; ++t) {
    double power = 1.0;
    for (std::size_t j = 0; j < regressors; ++j) {
      power *= set.rows[t][1];
      column[j][t] = c.powers > 0 ? power : set.rows[t][j + 1];
    }
    column[regressors][t] = set.rows[t][0];
  }
  std::vector<const double*> pointers;
  for (std::size_t j = 0; j < regressors; ++j) pointers.push_back(column[j].data());
  if (c.constant) pointers.push_back(nullptr);
  pointers.push_back(column[regressors].data());

  const ColumnList x{pointers, static_cast<std::int64_t>(N), nullptr};
  const int columns = x.columns();
  Reals work(static_cast<std::size_t>(GSREG_words(columns, x.rows)));
  Reals factor(packed_words(columns)), inverse(packed_words(columns - 1)), b(K), mean(K + 1),
      square(K + 1);
  ASSERT_EQ(GSREG(x, work, factor, 0, mean, square), 0);
  gs_coefficients(factor, columns, b);
  gs_inverse(factor, columns, inverse);
  double SSE = factor[packed(columns, columns)];
  if (gs_condition(factor, inverse, columns) > REFINE_ABOVE) {
    const Refinement refined = GSREFINE(x, factor, work, b);
    EXPECT_EQ(refined.IFAULT, 0);
    SSE = refined.SSE;
  }
  const double sigma2 = SSE / static_cast<double>(N - K);
  for (std::size_t j = 0; j < K; ++j) {
    // The file gives the constant first, the model has it last.
    const std::size_t place = c.constant ? (j == 0 ? K - 1 : j - 1) : j;
    const int i = static_cast<int>(place) + 1;
    EXPECT_GE(LRE(b[place], set.coefficient[j]), c.coefficient) << c.name << " B" << j;
    EXPECT_GE(LRE(std::sqrt(sigma2 * inverse[packed(i, i)]), set.error[j]), c.error)
        << c.name << " B" << j;
  }
  EXPECT_GE(LRE(std::sqrt(sigma2), set.deviation), c.error) << c.name;
  if (c.constant) {
    EXPECT_GE(LRE(1 - SSE / square.back(), set.R2), 14.0) << c.name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Linear, Nist,
    testing::Values(Case{"Norris", 1, true, 13, 13}, Case{"Pontius", 2, true, 12, 13},
                    Case{"NoInt1", 0, false, 14, 14}, Case{"Longley", 0, true, 13, 11},
                    Case{"Wampler1", 5, true, 14, 12}, Case{"Wampler2", 5, true, 12.9, 12},
                    Case{"Wampler3", 5, true, 13, 12}),
    [](const auto& param) { return std::string(param.param.name); });

// The command itself: temporaries and stored results.
TEST(NistCommand, Longley) {
  const Certified set = read_set("Longley");
  korvel_test::run_commands("SAMPLE 1 16\nREAD(" KORVEL_TEST_DATA
                            "/nist/Longley.dat) Y X1-X6 / SKIPLINE=60\n"
                            "OLS Y X1-X6 / COEF=B STDERR=SE\n");
  const auto b = elements(workspace(), VARNUM(workspace(), "B"));
  const auto se = elements(workspace(), VARNUM(workspace(), "SE"));
  ASSERT_EQ(b.size(), 7U);
  ASSERT_EQ(se.size(), 7U);
  for (std::size_t j = 0; j < 7; ++j) {
    const std::size_t place = j == 0 ? 6 : j - 1;
    EXPECT_GE(LRE(b[place], set.coefficient[j]), 13.0) << j;
    EXPECT_GE(LRE(se[place], set.error[j]), 11.0) << j;
  }
  EXPECT_GE(LRE(temporary(temporary_place("R2")), set.R2), 14.0);
  EXPECT_GE(LRE(std::sqrt(temporary(temporary_place("SIG2"))), set.deviation), 13.0);
}

}  // namespace
}  // namespace korvel
