// The linear regression sets of the US National Institute of Standards and Technology, through OLS.
// Accuracy is the log relative error, about the number of right digits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using Reals = std::vector<double>;

struct Certified {
  Reals coefficient, error;  // in the order of the file: constant first
  double deviation = 0, R2 = 0;
};

Certified read_set(const std::string& name) {
  std::ifstream file(KORVEL_TEST_DATA "/nist/" + name + ".dat");
  EXPECT_TRUE(file.good()) << name;
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  Certified set;
  for (const std::string& line : lines) {
    std::istringstream in(line);
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
  int N;
  const char* variables;  // of the file, the dependent one first
  const char* model;
  bool constant;
  double coefficient, error;  // digits that exact arithmetic on the data gives, less half a digit
};

// Polynomials: the powers of X.
constexpr const char* POWERS = "GENR X2=X*X\nGENR X3=X2*X\nGENR X4=X3*X\nGENR X5=X4*X\n";

class Nist : public testing::TestWithParam<std::tuple<Case, const char*>> {};

TEST_P(Nist, Digits) {
  const Case& c = std::get<0>(GetParam());
  const std::string method = std::get<1>(GetParam());
  const Certified set = read_set(c.name);
  const std::size_t K = set.coefficient.size();
  const std::string N = std::to_string(c.N);
  korvel_test::run_commands("SAMPLE 1 " + N + "\nREAD(" KORVEL_TEST_DATA "/nist/" +
                            std::string(c.name) + ".dat) " + c.variables + " / SKIPLINE=60\n" +
                            (c.variables == std::string("Y X") ? POWERS : "") + "?OLS " + c.model +
                            " COEF=B STDERR=SE METHOD=" + method + "\n");
  const auto b = elements(workspace(), VARNUM(workspace(), "B"));
  const auto se = elements(workspace(), VARNUM(workspace(), "SE"));
  ASSERT_EQ(b.size(), K);
  ASSERT_EQ(se.size(), K);
  for (std::size_t j = 0; j < K; ++j) {
    // The file gives the constant first, the model has it last.
    const std::size_t place = c.constant ? (j == 0 ? K - 1 : j - 1) : j;
    EXPECT_GE(LRE(b[place], set.coefficient[j]), c.coefficient) << c.name << " B" << j;
    EXPECT_GE(LRE(se[place], set.error[j]), c.error) << c.name << " B" << j;
  }
  EXPECT_GE(LRE(std::sqrt(temporary(temporary_place("SIG2"))), set.deviation), c.error) << c.name;
  if (c.constant) {
    EXPECT_GE(LRE(temporary(temporary_place("R2")), set.R2), 14.0) << c.name;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Linear, Nist,
    testing::Combine(testing::Values(Case{"Norris", 36, "Y X", "Y X /", true, 13.6, 13.4},
                                     Case{"Pontius", 40, "Y X", "Y X X2 /", true, 13.0, 13.3},
                                     Case{"NoInt1", 11, "Y X", "Y X / NOCONSTANT", false, 14.2,
                                          14.5},
                                     Case{"Longley", 16, "Y X1-X6", "Y X1-X6 /", true, 14.1, 14.4},
                                     Case{"Wampler1", 21, "Y X", "Y X X2-X5 /", true, 14.5, 14.5},
                                     Case{"Wampler2", 21, "Y X", "Y X X2-X5 /", true, 12.7, 14.5},
                                     Case{"Wampler3", 21, "Y X", "Y X X2-X5 /", true, 14.5, 14.0}),
                     testing::Values("GS", "HH")),
    [](const auto& param) {
      return std::string(std::get<0>(param.param).name) + std::get<1>(param.param);
    });

// The normal equations keep fewer digits and say so.
TEST(NistNormal, LosesDigitsAndWarns) {
  const Certified set = read_set("Longley");
  const auto out = korvel_test::run_commands(
      "SAMPLE 1 16\nREAD(" KORVEL_TEST_DATA
      "/nist/Longley.dat) Y X1-X6 / SKIPLINE=60\n"
      "OLS Y X1-X6 / COEF=B METHOD=NORMAL\nGENR X7=X2+1E-4*X3\nOLS Y X1-X7 / METHOD=NORMAL\n");
  const auto b = elements(workspace(), VARNUM(workspace(), "B"));
  ASSERT_EQ(b.size(), 7U);
  for (std::size_t j = 1; j < 7; ++j) EXPECT_GE(LRE(b[j - 1], set.coefficient[j]), 10.0) << j;
  EXPECT_FALSE(korvel_test::holds(out, "NORMAL EQUATIONS KEEP ABOUT 1"));
  EXPECT_TRUE(korvel_test::holds(out, "MULTICOLLINEARITY WITH VARIABLE X7"));
}

}  // namespace
}  // namespace korvel
