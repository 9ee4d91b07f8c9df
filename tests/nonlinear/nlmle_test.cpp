// MLE: every family against R, and what the command does with weights, samples and bad data.
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
#include "nonlinear/nlmle_families.h"
#include "nonlinear/nlmle_stable.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;

const std::string DATA =
    "SAMPLE 1 120\nREAD(" KORVEL_TEST_DATA "/nonlinear/mle.dat) DUR CNT PROP LIN X1 X2 W HEAVY\n";

double llf() { return temporary(temporary_place("LLF")); }

void expect_near(const std::vector<double>& got, const double* truth, double tolerance,
                 const std::string& where) {
  for (std::size_t i = 0; i < got.size(); ++i) {
    // Values near 0 are measured against the size of the others.
    const double size = std::max(std::fabs(truth[i]), 0.01);
    EXPECT_LE(std::fabs(got[i] - truth[i]), tolerance * size) << where << " " << i;
  }
}

// mle.txt holds what mle.R beside it found: log-likelihood, coefficients, standard errors.
TEST(MLE, EveryFamilyAgreesWithR) {
  std::ifstream file(KORVEL_TEST_DATA "/nonlinear/mle.txt");
  const std::map<std::string, std::string> dependent = {
      {"EWEIBULL", "LIN"}, {"EXTREMEV", "LIN"}, {"EGAMMA", "LIN"},  {"EGG", "LIN"},
      {"EDGE", "LIN"},     {"STABLE", "HEAVY"}, {"POISSON", "CNT"}, {"WPOISSON", "CNT"},
      {"BETA", "PROP"},    {"EBETA", "PROP"},   {"MBETA", "PROP"}};
  int families = 0;
  for (std::string line; std::getline(file, line); ++families) {
    std::istringstream in(line);
    std::string type;
    in >> type;
    std::vector<double> truth;
    for (double v; in >> v;) truth.push_back(v);
    const std::size_t M = (truth.size() - 1) / 2;
    const bool weighted = type == "WPOISSON";
    const auto at = dependent.find(type);
    const std::string y = at == dependent.end() ? "DUR" : at->second;
    const Listing out = run_commands(DATA + "MLE " + y + " X1 X2 / COEF=B STDERR=S TYPE=" +
                                     (weighted ? "POISSON WEIGHT=W NONORMAL" : type) + "\n");
    ASSERT_EQ(out.status, 0) << out.text;
    const std::vector<double> b = values("B"), s = values("S");
    ASSERT_EQ(b.size(), M) << type;
    EXPECT_NEAR(llf(), truth[0], 1e-7 * std::fabs(truth[0])) << type;
    expect_near(b, truth.data() + 1, 2e-6, type + " coefficient");
    expect_near(s, truth.data() + 1 + M, 2e-5, type + " standard error");
    EXPECT_FALSE(holds(out, "WARNING")) << out.text;
  }
  EXPECT_EQ(families, 20);  // POISSON twice, EPOISSON is the same law
}

// Units of measurement and a mean far from zero must not cost digits, nor the way to the maximum.
TEST(MLE, UnitsOfColumnsDoNotMatter) {
  const std::string plain = DATA + "MLE CNT X1 X2 / TYPE=POISSON COEF=B STDERR=S\n";
  run_commands(plain);
  const std::vector<double> b = values("B"), s = values("S");
  const double L = llf();
  for (const char* option : {"", " METHOD=DFP", " NUMERIC", " OPGSTART", " NUMCOV"}) {
    const Listing out =
        run_commands(DATA + "GENR BIG=X1*100000\nGENR FAR=X2/100000+3\n" +
                     "MLE CNT BIG FAR / TYPE=EPOISSON COEF=C STDERR=T" + option + "\n");
    const std::vector<double> c = values("C"), t = values("T");
    EXPECT_NEAR(llf(), L, 1e-6) << option;
    EXPECT_NEAR(c[0] * 1e5, b[0], 2e-5 * std::fabs(b[0])) << option;
    EXPECT_NEAR(c[1] / 1e5, b[1], 2e-5 * std::fabs(b[1])) << option;
    EXPECT_NEAR(t[0] * 1e5, s[0], 1e-4 * s[0]) << option;
    EXPECT_NEAR(t[1] / 1e5, s[1], 1e-4 * s[1]) << option;
    EXPECT_FALSE(holds(out, "INCORRECT")) << out.text;
  }
}

// Weights as replications count like the rows written out; of mean one they leave N as it is; a
// sample with gaps is the sample of the rows that are left.
TEST(MLE, WeightsAndSamples) {
  run_commands(DATA + "MLE DUR X1 / TYPE=GAMMA WEIGHT=W COEF=B STDERR=S\n");
  const std::vector<double> b = values("B"), s = values("S");
  EXPECT_EQ(temporary(temporary_place("N")), 120.0);
  run_commands(DATA + "MLE DUR X1 / TYPE=GAMMA WEIGHT=W COEF=B STDERR=S NOPWEIGHT\n");
  const std::vector<double> replicated = values("S");
  const double N = temporary(temporary_place("N"));
  EXPECT_GT(N, 200.0);
  expect_near(values("B"), b.data(), 1e-7, "same estimates");
  for (std::size_t i = 0; i < s.size(); ++i) {
    EXPECT_NEAR(replicated[i] * std::sqrt(N / 120.0), s[i], 1e-6 * s[i]);
  }
  run_commands(DATA + "SKIPIF(X2.GT.3)\nMLE DUR X1 / TYPE=WEIBULL RESID=E COEF=B\n");
  const std::vector<double> skipped = values("B"), e = values("E"), x2 = values("X2");
  for (std::size_t t = 0; t < e.size(); ++t) EXPECT_EQ(e[t] == MACOM.XMISS, x2[t] > 3.0) << t;
  run_commands(DATA + "GENR Z=(X2.LE.3)\nMLE DUR X1 / TYPE=WEIBULL WEIGHT=Z NONORMAL COEF=B\n");
  expect_near(values("B"), skipped.data(), 1e-6, "weights of 0");
}

// START=, SAME and EVAL begin where they are told to; ITER=0 and EVAL stay there.
TEST(MLE, StartValues) {
  const Listing out =
      run_commands(DATA +
                   "?MLE DUR X1 X2 / COEF=B\nGENR L0=$LLF\nMLE DUR X1 X2 / START=B EVAL COEF=C\n"
                   "GENR L1=$LLF\nMLE DUR X1 X2 / SAME ITER=0 COEF=D\nGENR L2=$LLF\n");
  const std::vector<double> b = values("B");
  expect_near(values("C"), b.data(), 0.0, "EVAL");
  expect_near(values("D"), b.data(), 0.0, "SAME");
  EXPECT_EQ(values("L0")[0], values("L1")[0]) << out.text;
  EXPECT_EQ(values("L0")[0], values("L2")[0]);
  EXPECT_TRUE(holds(run_commands(DATA + "?MLE DUR X1 / COEF=B\nMLE DUR X1 X2 / START=B\n"),
                    "3 STARTING VALUES FOR 4 COEFFICIENTS"));
}

// Coefficients of the second index, shapes and the constant are known to TEST by name.
TEST(MLE, TestKnowsEveryCoefficient) {
  const std::string model = DATA + "?MLE DUR X1 X2 / TYPE=GGBOTH COEF=B STDERR=S\nTEST ";
  struct Case {
    const char* hypothesis;
    std::size_t place;
    double value;
  };
  for (const Case& c : {Case{"X2=0", 1, 0.0}, Case{"X2:2=0", 4, 0.0}, Case{"CONSTANT:2=1", 5, 1.0},
                        Case{"K=1", 6, 1.0}}) {
    const Listing out = run_commands(model + c.hypothesis + "\n");
    ASSERT_EQ(out.status, 0) << out.text;
    const double t = (values("B")[c.place] - c.value) / values("S")[c.place];
    EXPECT_NEAR(temporary(temporary_place("CHI")), t * t, 1e-8 * (1.0 + t * t)) << c.hypothesis;
  }
}

// mle_tests.R computed these from scores, residuals and numeric derivatives of its own.
TEST(MLE, LinesBehindTheTable) {
  struct Case {
    const char *command, *line;
  };
  const Case cases[] = {
      {"MLE DUR X1 X2 / LM", " LM TEST OF WEIBULL AGAINST GG   CHI-SQUARE =  0.22409E-03 WITH 1 D"},
      {"MLE DUR X1 X2 / TYPE=EXP LM",
       " AGAINST WEIBULL   CHI-SQUARE =   20.742     WITH 1 D.F. PV"},
      {"MLE DUR X1 X2 / TYPE=EXP LM",
       " AGAINST GAMMA   CHI-SQUARE =   15.368     WITH 1 D.F. PVAL"},
      {"MLE LIN X1 X2 / TYPE=EWEIBULL LM", " AGAINST EGAMMA   CHI-SQUARE =  0.50541E-01 WITH 1 D"},
      {"MLE LIN X1 X2 / TYPE=EWEIBULL LM", " AGAINST EGG   CHI-SQUARE =  0.50541E-01 WITH 1 D.F."},
      {"MLE CNT X1 X2 / TYPE=POISSON",
       " POISSON R-SQUARE(p) =   0.4737\n POISSON R-SQUARE(d) ="
       "   0.3552\n POISSON G-SQUARE =   166.51"},
      {"MLE PROP X1 X2 / TYPE=BETA", " X1        1.863        0.71539E-01 0.7399E-02"},
      {"MLE PROP X1 X2 / TYPE=BETA", " X1        1.863        0.83626E-01 0.9217E-02"},
      {"MLE PROP X1 X2 / TYPE=EBETA", " X1        1.863        0.10230     0.1433E-01"},
      {"MLE PROP X1 X2 / TYPE=EBETA", " X1        1.863        0.95354E-01 0.1247E-01"},
      {"MLE PROP X1 X2 / TYPE=MBETA", " X1        1.863        0.11337     0.1544E-01"},
      {"MLE PROP X1 X2 / TYPE=MBETA", " X1        1.863        0.10395     0.1288E-01"},
  };
  for (const Case& c : cases) {
    const Listing out = run_commands(DATA + c.command + "\n");
    EXPECT_TRUE(holds(out, c.line)) << c.line << "\n" << out.text;
  }
  // A Wald line is the test of the same hypothesis.
  const Listing gg = run_commands(DATA +
                                  "MLE DUR X1 X2 / TYPE=GG LM\nTEST\nTEST C=1\nTEST K=1\n"
                                  "END\n");
  const std::string label = " WALD TEST OF EXP-CHI-SQUARE =";
  const auto at = gg.text.find(label);
  ASSERT_NE(at, std::string::npos) << gg.text;
  EXPECT_NEAR(std::stod(gg.text.substr(at + label.size())), temporary(temporary_place("CHI")), 1e-3)
      << gg.text;
}

TEST(MLE, Refusals) {
  struct Case {
    const char *commands, *message;
  };
  const Case cases[] = {
      {"GENR Y=DUR-1\nMLE Y X1", " ...ERROR..DEP VAR IN OB. NO. "},
      {"GENR Y=CNT+0.5\nMLE Y X1 / TYPE=POISSON", " ...ERROR..DEP VAR IN OB. NO. 1 OUT OF RANGE"},
      {"SMPL 3 50\nGENR Y=PROP\nSMPL 1 120\nMLE DUR X1 / TYPE=BETA BEG=5",
       " ...ERROR..DEP VAR IN OB. NO. 5 OUT OF RANGE"},
      {"MLE DUR X1 / TYPE=GAMBOTH", " ...ERROR..TYPE= OPTION NOT ALLOWED"},
      {"MLE DUR X1 / METHOD=NEWTON", " ...ERROR METHOD=NEWTON   NOT VALID FOR MLE"},
      {"MLE DUR X1 (X2)", " ...ERROR..EXOGENOUS VARIABLES NOT ALLOWED"},
      {"MLE DUR X1 / ARCH=1", " ...ERROR..ARCH ERRORS NOT ALLOWED"},
      {"GENR X3=2*X1\nMLE DUR X1 X3", " ...WARNING..VARIABLE X3 IS A LINEAR COMBINATION"},
      {"GENR Z=-X1-9\nMLE DUR X1 / WEIGHT=Z", " HAS A NEGATIVE WEIGHT"},
  };
  for (const Case& c : cases) {
    const Listing out = run_commands(DATA + c.commands + "\n");
    EXPECT_TRUE(holds(out, c.message)) << c.commands << "\n" << out.text;
  }
}

// Normal errors have no maximum inside the range of the stability.
TEST(MLE, StabilityAtItsBound) {
  const Listing out = run_commands(DATA + "MLE LIN X1 X2 / TYPE=STABLE COEF=B STDERR=S\n" +
                                   "?OLS LIN X1 X2 / COEF=C STDERR=T DN\n");
  EXPECT_TRUE(holds(out, "STABILITY PARAMETER IS HELD AT ITS BOUND  2.00")) << out.text;
  const std::vector<double> b = values("B"), s = values("S"), c = values("C"), t = values("T");
  expect_near({b[0], b[1], b[2]}, c.data(), 1e-6, "least squares");
  expect_near({s[0], s[1], s[2]}, t.data(), 1e-5, "their errors");
  EXPECT_EQ(b[3], 2.0);
}

// Heavy tails drive the cumulants of Edgeworth's series up without end; the law is none then.
TEST(MLE, EdgeworthSeriesBelowZero) {
  const std::string line = "NO DENSITY: IT IS NEGATIVE WITHIN THE RANGE OF THE RESIDUALS";
  EXPECT_TRUE(holds(run_commands(DATA + "MLE HEAVY X1 X2 / TYPE=EDGE\n"), line));
  EXPECT_FALSE(holds(run_commands(DATA + "MLE LIN X1 X2 / TYPE=EDGE\n"), line));
}

// stable.R beside the values made them from another integral.
TEST(StableDensity, AgainstOtherIntegral) {
  struct Case {
    double A, w, log_f;
  };
  const Case cases[] = {
#include "../data/nonlinear/stable.inc"
  };
  std::vector<double> room(StableDensity::words());
  StableDensity density;
  for (const Case& c : cases) {
    ASSERT_TRUE(density.prepare(c.A, room));
    EXPECT_NEAR(density.log_density(c.w), c.log_f, 2e-9) << c.A << " " << c.w;
    EXPECT_EQ(density.log_density(-c.w), density.log_density(c.w));
  }
  EXPECT_FALSE(density.prepare(0.83, room));
}

// The gradients of every family against differences of its log density, in the far corners too.
TEST(MleFamilies, GradientsMatchDifferences) {
  const double z = 0.3, z2 = -0.2;
  for (int type = 0; type <= static_cast<int>(MleType::MBETA); ++type) {
    const MleFamily& f = mle_family(static_cast<MleType>(type));
    if (f.type == MleType::STABLE) continue;
    for (const double y0 : {0.02, 0.4, 0.95}) {
      for (const double k : {0.9, 1e-4, 2.5}) {
        const bool small = f.type == MleType::EGG;  // its K may come near to 0
        if (!small && k < 0.1) continue;
        const double y = f.count() ? std::round(10.0 * y0) : y0;
        const double l = f.count() ? std::lgamma(y + 1.0) : std::log(y), r = std::log1p(-y);
        double p[5] = {z, z2, small ? 0.8 : k, k, 0.1};
        if (f.type == MleType::EDGE) p[3] = 0.1 * k;
        const auto log_f = [&](std::vector<double>* slope) {
          double out[8], room[2];
          MleTerms t{.rows = 1, .z = &p[0], .z2 = &p[1], .y = &y, .log_y = &l, .log_rest = &r};
          t.shape = p + 2;
          t.log_f = out;
          t.dz = out + 1;
          t.dz2 = out + 2;
          for (std::size_t j = 0; j < MOST_SHAPES; ++j) t.dshape[j] = out + 3 + j;
          t.u = room;
          t.v = room + 1;
          EXPECT_TRUE(f.terms(t)) << f.word;
          if (slope != nullptr) slope->assign(out + 1, out + 6);
          return out[0];
        };
        std::vector<double> slope;
        log_f(&slope);
        for (std::size_t i = 0; i < 2 + static_cast<std::size_t>(f.shapes); ++i) {
          if (i == 1 && !f.both) continue;
          const double at = p[i], h = 1e-5;
          p[i] = at + h;
          const double up = log_f(nullptr);
          p[i] = at - h;
          const double down = log_f(nullptr);
          p[i] = at;
          const double d = (up - down) / (2.0 * h);
          EXPECT_NEAR(slope[i], d, 2e-6 * std::max(1.0, std::fabs(d))) << f.word << " " << i;
        }
      }
    }
  }
}

}  // namespace
}  // namespace korvel
