// GME against the primal problem, which gme_reference.R solves (values in gme_reference.txt), and
// its messages.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

using Numbers = std::vector<double>;

// By case: label -> numbers.
std::map<std::string, std::map<std::string, Numbers>> read_reference() {
  std::map<std::string, std::map<std::string, Numbers>> cases;
  std::ifstream in(KORVEL_TEST_DATA "/nonlinear/gme_reference.txt");
  std::string which, label;
  for (std::string line; std::getline(in, line);) {
    if (line.find("priors") != std::string::npos) {
      which = line;
      continue;
    }
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      char* end = nullptr;
      const double value = std::strtod(word.c_str(), &end);
      if (*end == '\0')
        cases[which][label].push_back(value);
      else
        label = word;
    }
  }
  return cases;
}

const std::string DATA =
    "SAMPLE 1 12\nREAD Y X1 X2\n10.2 1 3\n12.9 2 5\n15.1 3 4\n16.8 4 6\n19.2 5 5\n22.5 6 8\n"
    "23.1 7 6\n26.9 8 9\n28.8 9 8\n30.1 10 7\n33.9 11 10\n35.2 12 9\n"
    "SAMPLE 1 3\nREAD V U\n-10 .2\n0 .6\n10 .2\n"
    "READ Z / ROWS=3 COLS=5\n-10 -5 0 5 10\n-10 -5 0 5 10\n-40 -20 0 20 40\n"
    "READ Q / ROWS=3 COLS=5\n1 1 2 3 3\n.1 .2 .4 .2 .1\n.05 .15 .5 .2 .1\n"
    "READ N / ROWS=3 COLS=2\n1 0\n1 1\n1 1\n"
    "SAMPLE 1 12\n";

Numbers variable(const char* name) {
  const std::span<double> x = elements(workspace(), VARNUM(workspace(), name));
  return {x.begin(), x.end()};
}

void expect_close(const Numbers& got, const Numbers& truth, double tolerance,
                  const std::string& where) {
  ASSERT_EQ(got.size(), truth.size()) << where;
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_NEAR(got[i], truth[i], tolerance * std::fabs(truth[i])) << where << " " << i;
  }
}

TEST(Gme, AgainstThePrimalProblem) {
  auto reference = read_reference();
  ASSERT_EQ(reference.size(), 4u);
  const std::string results = " COEF=B STDERR=S SIGMAZ=SZ COR=R PREDICT=F RESID=E PITER=0";
  for (const char* method : {"", " METHOD=BFGS", " METHOD=DFP", " NUMERIC"}) {
    for (const bool priors : {false, true}) {
      const std::string where = std::string(priors ? "priors" : "uniform") + method;
      auto& truth = reference[priors ? "priors" : "uniform priors"];
      const Listing out =
          run_commands(DATA + "GME Y X1 X2 / ZENTROPY=Z VENTROPY=V" +
                       (priors ? " QPRIOR=Q UPRIOR=U" : "") + method + results + "\n");
      ASSERT_EQ(out.status, 0) << where << out.text;
      // The starting weights of Q are not normalised; that makes no difference.
      expect_close(variable("B"), truth["b"], 1e-10, where);
      expect_close(variable("S"), truth["se"], 1e-9, where);
      expect_close(variable("SZ"), truth["variance"], 1e-9, where);
      EXPECT_NEAR(temporary(temporary_place("SSE")), truth["SSE"][0], 1e-8) << where;
      EXPECT_EQ(variable("R")[5], 1.0);
      EXPECT_NEAR(variable("F")[3] + variable("E")[3], 16.8, 1e-12);
      char line[60];
      for (const char* label : {"P", "W"}) {
        snprintf(line, sizeof line, " NORMALIZED ENTROPY FOR %s=%9.5f", label, truth[label][0]);
        EXPECT_TRUE(holds(out, line)) << line << out.text;
      }
      for (int k = 0; k < 3; ++k) {
        snprintf(line, sizeof line,
                 " =%9.5f   SIGMAZ FOR K=%4d =", truth["entropy"][static_cast<std::size_t>(k)],
                 k + 1);
        EXPECT_TRUE(holds(out, line)) << line << out.text;
      }
    }
  }
}

// The lines of an iteration, which the heading of the command opens.
TEST(Gme, PrintedIterations) {
  const Listing out = run_commands(DATA + "GME Y X1 X2 / ZENTROPY=Z VENTROPY=V ITER=2 PITER=1\n");
  const std::string block =
      " INITIAL STATISTICS :\n"
      " TIME =       0.0 SEC.   ITER. NO.      0 FUNCTION        1 EVALUATIONS\n"
      " GENERALIZED MAXIMUM ENTROPY\n"
      " FUNCTION VALUE=    18.01166\n"
      " COEFFICIENTS   0.0000       0.0000       0.0000       0.0000       0.0000\n"
      "                0.0000       0.0000       0.0000       0.0000       0.0000\n"
      "                0.0000       0.0000\n"
      " GRADIENT       10.200       12.900       15.100       16.800       19.200\n";
  EXPECT_TRUE(holds(out, block)) << out.text;
  EXPECT_TRUE(holds(out, "ITER. NO.      1 FUNCTION")) << out.text;
  EXPECT_TRUE(holds(out, " FINAL STATISTICS :\n")) << out.text;
  EXPECT_TRUE(holds(out, " ...WARNING..MAXIMUM NUMBER OF ITERATIONS EXCEEDED\n")) << out.text;
  EXPECT_EQ(temporary(temporary_place("ERR")), 52027);
}

// Rows that are passed over, one row of points for all, a collinear regressor: the fit stands, its
// covariance does not.
TEST(Gme, RowsAndColumns) {
  auto reference = read_reference();
  const Listing out = run_commands(DATA +
                                   "GENR X3=2*X1\nSAMPLE 1 5\nREAD ZR\n-20\n-10\n0\n10\n20\n"
                                   "SAMPLE 1 12\n"
                                   "GME Y X1 X3 / ZENTROPY=ZR VENTROPY=V COEF=B2 PITER=0\n"
                                   "SKIPIF(X1.EQ.5)\n"
                                   "GME Y X1 X2 / ZENTROPY=ZR VENTROPY=V COEF=B1 PITER=0\n");
  ASSERT_EQ(out.status, 0) << out.text;
  EXPECT_TRUE(holds(out, "       11 OBSERVATIONS"));
  EXPECT_TRUE(holds(out, " ...WARNING..COVARIANCE MATRIX AND STD ERRORS  ARE INCORRECT"));
  expect_close(variable("B2"), reference["collinear, uniform priors"]["b"], 1e-10, "collinear");
  expect_close(variable("B1"), reference["no row 5, uniform priors"]["b"], 1e-10, "rows");
}

TEST(Gme, Messages) {
  const struct {
    const char* options;
    const char* message;
  } cases[] = {
      {"VENTROPY=V", "GME NEEDS THE SUPPORT POINTS"},
      {"ZENTROPY=N VENTROPY=V NOCONSTANT", " ...ERROR..WRONG LENGTH ZENTROPY"},
      {"ZENTROPY=Z VENTROPY=N", " ...ERROR..WRONG LENGTH VENTROPY"},
      {"ZENTROPY=NONE VENTROPY=V", " ...ERROR..VARIABLE NONE IS NOT VALID"},
      {"ZENTROPY=Z VENTROPY=V QPRIOR=V", " ...ERROR..QPRIOR DIM DOES NOT MATCH ZENTROPY"},
      {"ZENTROPY=Z VENTROPY=V UPRIOR=Y", " ...ERROR..UPRIOR DIM DOES NOT MATCH VENTROPY"},
      {"ZENTROPY=Z VENTROPY=V UPRIOR=Z", " ...ERROR..WRONG LENGTH UPRIOR"},
      {"ZENTROPY=N VENTROPY=V QPRIOR=N", " ...ERROR..QPRIOR HOLDS WEIGHTS THAT ARE NOT POSITIVE"},
      {"ZENTROPY=Z VENTROPY=V METHOD=XX", " ...ERROR METHOD=XX   NOT VALID FOR NL"},
      {"ZENTROPY=Z VENTROPY=V CONVERGE=0", " ...ERROR..CONVERGENCE SET TO ZERO"},
  };
  for (const auto& c : cases) {
    const Listing out = run_commands(DATA + "GME Y X1 X2 / " + c.options + "\n");
    EXPECT_NE(out.status, 0) << c.options;
    EXPECT_TRUE(holds(out, c.message)) << c.options << out.text;
  }
  // No weights can reach the data: errors of at most 0.1 and coefficients of at most 1.
  const Listing out = run_commands(DATA +
                                   "SAMPLE 1 3\nGENR VS=V/100\nGENR ZS=V/10\nSAMPLE 1 12\n"
                                   "GME Y X1 X2 / ZENTROPY=ZS VENTROPY=VS PITER=0\n");
  const bool told = holds(out, " GME STOPPED BECAUSE P(") ||
                    holds(out, " THE DATA MAY LIE BEYOND WHAT THE SUPPORT POINTS ALLOW");
  EXPECT_TRUE(told) << out.text;
  EXPECT_EQ(temporary(temporary_place("ERR")), 52027);
}

}  // namespace
}  // namespace korvel
