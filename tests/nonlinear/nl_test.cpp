// NLINEAR: certified data, other programs' values, derivatives, stored results, bad input.
#include "regress/tests.h"  // before the macro TEST takes the name of its routine

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/output.h"
#include "engine/workspace.h"
#include "expr/kernels/packed.h"
#include "harness.h"

namespace {

using korvel::SAVED;
using korvel_test::holds;
using korvel_test::run_commands;

// A set of the NIST archive: columns, starts, certified values.
struct NistSet {
  std::string data;  // the lines behind the last "Data:"
  int rows = 0;
  std::vector<std::array<double, 4>> b;  // start 1, start 2, certified value, standard deviation
  double SSE = 0.0;
};

NistSet read_set(const std::string& name) {
  NistSet set;
  std::ifstream in(std::string(KORVEL_TEST_DATA) + "/nist/" + name + ".dat");
  std::string line;
  bool data = false;
  while (std::getline(in, line)) {
    if (line.starts_with("Data:")) {
      data = true;
      set.data.clear();
      set.rows = 0;
    } else if (data) {
      set.data += line + "\n";
      ++set.rows;
    }
    std::array<double, 4> v{};
    int k = 0;
    if (std::sscanf(line.c_str(), " b%d = %lf %lf %lf %lf", &k, &v[0], &v[1], &v[2], &v[3]) == 5) {
      set.b.push_back(v);
    }
    std::sscanf(line.c_str(), "Residual Sum of Squares: %lf", &set.SSE);
  }
  return set;
}

double digits(double value, double certified) {
  if (value == certified) return 15.0;
  return -std::log10(std::fabs(value - certified) / std::fabs(certified));
}

double se(int i) { return std::sqrt(SAVED.cov[korvel::packed(i + 1, i + 1)]); }

struct NistModel {
  const char* name;
  const char* columns;
  const char* equation;
};
constexpr NistModel MODELS[] = {
    {"Misra1a", "Y X", "Y=B1*(1-EXP(-B2*X))"},
    {"Chwirut1", "Y X", "Y=EXP(-B1*X)/(B2+B3*X)"},
    {"Chwirut2", "Y X", "Y=EXP(-B1*X)/(B2+B3*X)"},
    {"Lanczos3", "Y X", "Y=B1*EXP(-B2*X)+B3*EXP(-B4*X)+B5*EXP(-B6*X)"},
    {"Gauss1", "Y X", "Y=B1*EXP(-B2*X)+B3*EXP(-(X-B4)**2/B5**2)+B6*EXP(-(X-B7)**2/B8**2)"},
    {"Gauss2", "Y X", "Y=B1*EXP(-B2*X)+B3*EXP(-(X-B4)**2/B5**2)+B6*EXP(-(X-B7)**2/B8**2)"},
    {"DanWood", "Y X", "Y=B1*X**B2"},
    {"Kirby2", "Y X", "Y=(B1+B2*X+B3*X**2)/(1+B4*X+B5*X**2)"},
    {"Hahn1", "Y X", "Y=(B1+B2*X+B3*X**2+B4*X**3)/(1+B5*X+B6*X**2+B7*X**3)"},
    {"Nelson", "V X1 X2", "Y=B1-B2*X1*EXP(-B3*X2)"},
    {"MGH17", "Y X", "Y=B1+B2*EXP(-X*B4)+B3*EXP(-X*B5)"},
    {"Misra1c", "Y X", "Y=B1*(1-(1+2*B2*X)**(-.5))"},
    {"Eckerle4", "Y X", "Y=(B1/B2)*EXP(-0.5*((X-B3)/B2)**2)"},
    {"Thurber", "Y X", "Y=(B1+B2*X+B3*X**2+B4*X**3)/(1+B5*X+B6*X**2+B7*X**3)"},
};

// The command with start values; the data stand in front.
std::string nist_script(const NistModel& model, const NistSet& set, int start,
                        const char* options) {
  std::ostringstream out;
  out.precision(17);
  out << "SAMPLE 1 " << set.rows << "\nREAD " << model.columns << "\n" << set.data;
  if (std::string(model.name) == "Nelson") out << "GENR Y=LOG(V)\n";
  out << "?NL 1 / NCOEF=" << set.b.size() << " " << options << "\nEQ " << model.equation
      << "\nCOEF";
  for (std::size_t k = 0; k < set.b.size(); ++k) {
    out << " B" << k + 1 << " " << set.b[k][static_cast<std::size_t>(start)];
  }
  out << "\nEND\n";
  return out.str();
}

double worst_coefficient(const NistModel& model, const NistSet& set) {
  double worst = 15.0;
  for (std::size_t k = 0; k < set.b.size(); ++k) {
    // Coefficients stand in the order of the equation.
    const std::string name = "B" + std::to_string(k + 1);
    for (std::size_t i = 0; i < SAVED.coef.size(); ++i) {
      if (korvel::right_trimmed(SAVED.list[i].name) != name) continue;
      worst = std::min(worst, digits(SAVED.coef[i], set.b[k][2]));
    }
  }
  EXPECT_EQ(SAVED.coef.size(), set.b.size()) << model.name;
  return worst;
}

double worst_error(const NistSet& set) {
  double worst = 15.0;
  for (std::size_t k = 0; k < set.b.size(); ++k) {
    const std::string name = "B" + std::to_string(k + 1);
    for (std::size_t i = 0; i < SAVED.coef.size(); ++i) {
      if (korvel::right_trimmed(SAVED.list[i].name) != name) continue;
      worst = std::min(worst, digits(se(static_cast<int>(i)), set.b[k][3]));
    }
  }
  return worst;
}

TEST(Nlinear, CertifiedCoefficientsAtDefaultSettings) {
  for (const NistModel& model : MODELS) {
    const NistSet set = read_set(model.name);
    ASSERT_FALSE(set.b.empty()) << model.name;
    for (int start = 0; start < 2; ++start) {
      SAVED.coef.clear();
      const auto listing = run_commands(nist_script(model, set, start, ""));
      EXPECT_EQ(listing.status, 0) << model.name << listing.text;
      EXPECT_GE(worst_coefficient(model, set), 6.0) << model.name << " start " << start + 1;
      if (std::getenv("KORVEL_SHOW") != nullptr) {
        std::printf("%-10s %d  b %5.2f", model.name, start + 1, worst_coefficient(model, set));
      }
      run_commands(nist_script(model, set, start, "NODN NONUMCOV"));
      EXPECT_GE(worst_error(set), 4.0) << model.name << " start " << start + 1;
      if (std::getenv("KORVEL_SHOW") != nullptr) std::printf("  se %5.2f\n", worst_error(set));
    }
  }
}

// ---- Other programs' values, on one small set of made-up data (40 rows)

const std::string DATA = std::string("SAMPLE 1 40\nREAD(") + KORVEL_TEST_DATA +
                         "/nonlinear.dat) Y1 Y2 X1 X2 Z1 Z2 Z3 W\n";

struct Case {
  const char* what;
  const char* script;
  std::vector<double> coef;
  std::vector<double> errors;  // empty: not compared
  double LLF;                  // 0: not compared
  double within;               // relative
};

void expect_near(double value, double wanted, double within, const std::string& where) {
  EXPECT_NEAR(value, wanted, within * std::max(std::fabs(wanted), 1e-3)) << where;
}

TEST(Nlinear, OtherProgramsValues) {
  const std::string equation = "EQ Y1=A*EXP(B*X1)+C*X2\nCOEF A 1 B .2 C .1\nEND\n";
  const std::string two = "EQ Y1=A*EXP(B*X1)\nEQ Y2=C+D*X1\nCOEF A 1 B .2\nEND\n";
  const Case cases[] = {
      // R 4.2 nls, summary() and logLik(); nls stops at a relative offset of 1e-5.
      {"nls",
       "?NL 1 / NCOEF=3 NODN NONUMCOV\n",
       {1.6311457, 0.28757336, 0.19864889},
       {0.16418116, 0.016522822, 0.018325165},
       3.385034141,
       5e-6},
      {"weights",
       "?NL 1 / NCOEF=3 NODN NONUMCOV WEIGHT=W\n",
       {1.6469414, 0.28918538, 0.19281486},
       {0.16072164, 0.016006477, 0.017800216},
       0.0,
       1e-5},
      // nls with the lagged equation written out.
      {"AR(1)",
       "?NL 1 / NCOEF=3 NODN NONUMCOV AUTO\n",
       {1.6041685, 0.29299994, 0.19658924, 0.315188},
       {0.15103030, 0.015160180, 0.017223398, 0.15138441},
       7.90538970729,
       1e-5},
      // gretl 2022c, gmm blocks: weights (Z'Z)^-1, then the inverse of sum u^2 zz'.
      {"2SLS",
       "?NL 1 Z1 Z2 Z3 X2 / NCOEF=3\n",
       {1.635432081, 0.2887305829, 0.1963820505},
       {},
       0.0,
       1e-6},
      {"GMM",
       "?NL 1 Z1 Z2 Z3 X2 / NCOEF=3 GMM=HETCOV\n",
       {1.674827542, 0.2856866093, 0.190525866},
       {},
       0.0,
       1e-6},
  };
  for (const Case& c : cases) {
    const auto listing = run_commands(DATA + c.script + equation);
    EXPECT_EQ(listing.status, 0) << c.what << listing.text;
    ASSERT_EQ(SAVED.coef.size(), c.coef.size()) << c.what << listing.text;
    for (std::size_t i = 0; i < c.coef.size(); ++i) {
      expect_near(SAVED.coef[i], c.coef[i], c.within, c.what);
      if (!c.errors.empty()) expect_near(se(static_cast<int>(i)), c.errors[i], 2e-5, c.what);
    }
    const double LLF = korvel::temporary(korvel::temporary_place("LLF"));
    if (c.LLF != 0.0) expect_near(LLF, c.LLF, 1e-8, c.what);
  }
  // gretl 2022c: gmm blocks for two equations, weights I (x) P, S^-1 (x) P, and V^-1 with Bartlett
  // weights at two lags, J 8.073268736.
  const Case systems[] = {
      {"two stages",
       "?NL 2 Z1 Z2 Z3 / NCOEF=4 NOS3SLS\n",
       {3.529834331, 0.1790908353, -1.556793626, 0.6480706468},
       {},
       0.0,
       1e-6},
      {"three stages",
       "?NL 2 Z1 Z2 Z3 / NCOEF=4\n",
       {3.517194232, 0.1802184119, -1.568694802, 0.6521132357},
       {},
       0.0,
       1e-6},
      {"Bartlett",
       "NL 2 Z1 Z2 Z3 / NCOEF=4 GMM=BARTLETT AUTCOV=2\n",
       {3.466478085, 0.1867754441, -1.421471057, 0.5803365036},
       {},
       0.0,
       1e-6},
  };
  for (const Case& c : systems) {
    const auto listing = run_commands(DATA + c.script + two);
    ASSERT_EQ(SAVED.coef.size(), c.coef.size()) << c.what << listing.text;
    for (std::size_t i = 0; i < c.coef.size(); ++i) {
      expect_near(SAVED.coef[i], c.coef[i], c.within, c.what);
    }
    if (c.what == std::string("Bartlett")) {
      EXPECT_TRUE(holds(listing,
                        "RESTRICTIONS J=   8.0733     CHI-SQUARE WITH     4 D.F.  P-VALUE="
                        " 0.08893"))
          << listing.text;
    }
  }
  // gretl 2022c, system method=sur --iterate: linear equations without instruments.
  run_commands(DATA + "?NL 2 / NCOEF=6\nEQ Y1=A0+A1*X1+A2*X2\nEQ Y2=B0+B1*X1+B2*X2\nEND\n");
  const double sur[] = {0.8669209705, 1.145232045,  0.177888311,
                        1.618131862,  0.5495825488, -0.2746686716};
  const double sur_se[] = {0.297055799,  0.04307791709, 0.02443460342,
                           0.2577894003, 0.03738365133, 0.02120470896};
  for (std::size_t i = 0; i < 6; ++i) {
    expect_near(SAVED.coef[i], sur[i], 1e-8, "SUR");
    expect_near(se(static_cast<int>(i)), sur_se[i], 1e-4, "SUR");
  }
  expect_near(korvel::temporary(korvel::temporary_place("LLF")), -7.3228838, 1e-8, "SUR");
}

// Moments with every window, a given number of lags and the rule, and a given matrix: J,
// coefficients and standard errors of gmm.R.
TEST(Nlinear, WeightsOfMoments) {
  const std::string blocks[] = {"NL 1 Z1 Z2 Z3 X2 / ITER=1000 NCOEF=3 ",
                                "NL 2 Z1 Z2 Z3 / ITER=1000 NCOEF=4 "};
  const std::string equations[] = {"EQ Y1=A*EXP(B*X1)+C*X2\nCOEF A 1 B .2 C .1\nEND\n",
                                   "EQ Y1=A*EXP(B*X1)\nEQ Y2=C+D*X1\nCOEF A 1 B .2\nEND\n"};
  std::ifstream in(std::string(KORVEL_TEST_DATA) + "/nonlinear/gmm.txt");
  std::string line, name;
  int runs = 0, neq = 0, lags = 0;
  double J = 0.0;
  while (std::getline(in, line)) {
    const bool indefinite = line.starts_with('#');
    std::istringstream words(line.substr(indefinite ? 1 : 0));
    ASSERT_TRUE(words >> neq >> name >> lags) << line;
    std::string script = DATA;
    if (name == "WM") {
      const std::string order = neq == 1 ? "5" : "8";
      script += "SAMPLE 1 " + order + "\nGENR V=TIME(0)\nGENR O=V/V\n" +
                "MATRIX WM=1/(1+ABS(V*O'-O*V'))/10\nSAMPLE 1 40\n";
    }
    const auto at = static_cast<std::size_t>(neq) - 1;
    const std::string rule = lags < 0 ? "" : " AUTCOV=" + std::to_string(lags);
    const auto listing =
        run_commands(script + blocks[at] + "GMM=" + name + rule + "\n" + equations[at]);
    ++runs;
    if (indefinite) {
      EXPECT_TRUE(holds(listing, "WEIGHTING MATRIX") && listing.status != 0) << listing.text;
      continue;
    }
    EXPECT_EQ(listing.status, 0) << line << listing.text;
    const int K = neq == 1 ? 3 : 4;
    words >> J;
    EXPECT_EQ(SAVED.coef.size(), static_cast<std::size_t>(K));
    const std::size_t found = listing.text.find("RESTRICTIONS J=");
    ASSERT_NE(found, std::string::npos) << line << listing.text;
    expect_near(std::strtod(listing.text.substr(found + 15, 13).c_str(), nullptr), J, 6e-5, line);
    double wanted = 0.0;
    for (int i = 0; i < 2 * K; ++i) {
      ASSERT_TRUE(words >> wanted) << line;
      const auto k = static_cast<std::size_t>(i % K);
      expect_near(i < K ? SAVED.coef[k] : se(i % K), wanted, i < K ? 1e-6 : 1e-5, line);
    }
  }
  EXPECT_EQ(runs, 20);
}

// The full second derivatives: R 4.2, solve() of J'J - sum(u f'') from deriv3() at the certified
// values, times SSE/N.
TEST(Nlinear, DefaultStandardErrors) {
  const struct {
    int model;
    std::vector<double> errors;
    double within;
  } cases[] = {
      {0, {2.509773061, 6.737423184e-06}, 1e-7},
      {3,
       {0.01515431387, 0.08550423522, 0.03654217730, 0.09487142480, 0.05142801606, 0.03033384911},
       2e-4},
      {8,
       {1.698177381e-01, 1.195084291e-02, 2.242016381e-04, 2.750941600e-07, 2.437930463e-04,
        1.040261486e-05, 1.299790198e-08},
       1e-6},
  };
  for (const auto& c : cases) {
    const NistModel& model = MODELS[c.model];
    run_commands(nist_script(model, read_set(model.name), 1, ""));
    for (std::size_t i = 0; i < c.errors.size(); ++i) {
      EXPECT_NEAR(se(static_cast<int>(i)) / c.errors[i], 1.0, c.within) << model.name << i;
    }
  }
}

// One model in many ways gives one answer.
TEST(Nlinear, FormsThatMustAgree) {
  const std::string equation = "EQ Y1=A*EXP(B*X1)\nCOEF A 1 B .2\nEND\n";
  run_commands(DATA + "?NL 1 / NCOEF=2\n" + equation);
  const std::vector<double> b = SAVED.coef;
  const double errors[] = {se(0), se(1)};
  const double LLF = korvel::temporary(korvel::temporary_place("LLF"));
  const struct {
    const char* options;
    double coefficients, errors;  // relative, 0: not compared
  } ways[] = {{"NUMERIC", 1e-6, 1e-4},
              {"NONORMAL", 1e-8, 1e-6},
              {"METHOD=BFGS NUMCOV", 1e-3, 1e-2},
              {"METHOD=DFP", 1e-3, 0.0},
              {"METHOD=SA", 1e-3, 1e-2},
              {"NONUMCOV", 1e-8, 0.1},
              {"METHOD=BFGS HYBRID", 1e-3, 0.0}};
  for (const auto& way : ways) {
    run_commands(DATA + "?NL 1 / NCOEF=2 " + way.options + "\n" + equation);
    for (std::size_t i = 0; i < 2; ++i) {
      expect_near(SAVED.coef[i], b[i], way.coefficients, way.options);
      if (way.errors > 0) expect_near(se(static_cast<int>(i)), errors[i], way.errors, way.options);
    }
  }
  const char* functions[] = {"GENRVAR\nEQ M=A*EXP(B*X1)\nEQ Y1=M\nCOEF A 1 B .2\nEND\n",
                             "MINFUNC\nEQ (Y1-A*EXP(B*X1))**2\nCOEF A 1 B .2\nEND\n",
                             "MAXFUNC\nEQ -(Y1-A*EXP(B*X1))**2\nCOEF A 1 B .2\nEND\n"};
  for (const char* f : functions) {
    run_commands(DATA + "?NL 1 / NCOEF=2 " + f);
    for (std::size_t i = 0; i < 2; ++i) expect_near(SAVED.coef[i], b[i], 1e-4, f);
  }
  for (const char* f :
       {"LOGDENS\nEQ -.5*LOG(2*3.141592653589793)-LOG(S)-.5*((Y1-A*EXP(B*X1))/S)**2\n",
        "DENSITY\nEQ EXP(-.5*((Y1-A*EXP(B*X1))/S)**2)/(S*(2*3.141592653589793)**.5)\n"}) {
    run_commands(DATA + "?NL 1 / NCOEF=3 " + f + "COEF A 1 B .2 S 1\nEND\n");
    expect_near(korvel::temporary(korvel::temporary_place("LLF")), LLF, 1e-6, f);
  }
  // Long columns are summed by blocks: the same data many times over give the same coefficients.
  std::string copies = "SAMPLE 1 8000\nGENR T=MOD(TIME(-1),40)+1\n";
  run_commands(DATA + copies + "GENR LY=DATA(Y1,T)\nGENR LX=DATA(X1,T)\n?NL 1 / NCOEF=2\n" +
               "EQ LY=A*EXP(B*LX)\nCOEF A 1 B .2\nEND\n");
  for (std::size_t i = 0; i < 2; ++i) {
    expect_near(SAVED.coef[i], b[i], 1e-9, "blocks");
    expect_near(se(static_cast<int>(i)) * std::sqrt(200.0), errors[i], 1e-6, "blocks");
  }
}

// Coefficients go through a unit and through SAME without losing a bit.
TEST(Nlinear, ParametersOfARunBefore) {
  char name[] = "/tmp/korvel_nl_XXXXXX";
  close(mkstemp(name));
  const std::string equation = "EQ Y1=A*EXP(B*X1)\n";
  const std::string first =
      DATA + "FILE 12 " + name + "\n?NL 1 / NCOEF=2 OUT=12\n" + equation + "COEF A 1 B .2\nEND\n";
  run_commands(first);
  const std::vector<double> b = SAVED.coef;
  run_commands(first + "?NL 1 / NCOEF=2 IN=12 EVAL\n" + equation + "END\n");
  EXPECT_EQ(SAVED.coef, b);
  run_commands(first + "?NL 1 / NCOEF=2 SAME EVAL\n" + equation + "END\n");
  EXPECT_EQ(SAVED.coef, b);
  std::ofstream(name) << "1 two\n";
  const auto listing =
      run_commands(DATA + "FILE 12 " + name + "\nNL 1 / NCOEF=2 IN=12\n" + equation + "END\n");
  EXPECT_TRUE(holds(listing, " ...ERROR..SYNTAX ERROR")) << listing.text;
  unlink(name);
}

// A result may take the place of a variable of the model, the dependent one too.
TEST(Nlinear, ResultsInPlaceOfVariables) {
  struct Way {
    const char *command, *behind;
  };
  for (const Way way : {Way{"?NL 1 / NCOEF=2", "EQ Y1=A*EXP(B*X1)\nCOEF A 1 B .2\nEND\n"},
                        Way{"?MLE Y1 X1 / TYPE=WEIBULL", ""}, Way{"?HET Y1 X1 / ARCH=1", ""},
                        Way{"?OLS Y1 X1 /", ""}, Way{"?AUTO Y1 X1 /", ""}}) {
    const std::string command = way.command;
    const bool family = command[1] == 'N' || command[1] == 'M' || command[1] == 'H';
    const auto run = [&](const std::string& P, const std::string& R, const std::string& S) {
      return command + " PREDICT=" + P + " RESID=" + R + (family ? " STDRESID=" + S : "") + "\n" +
             way.behind;
    };
    // Fresh names first; then P in place of the dependent variable, R and S of others.
    const std::string fresh = "GENR YY=Y1\nGENR XX=X1\nGENR S=0\nGENR S2=0\n" + run("P", "R", "S");
    const auto listing = run_commands(
        DATA + fresh + run("Y1", "R2", "X1") + "GENR D1=ABS(Y1-P)+ABS(R2-R)\n" +
        (family ? "GENR D1=D1+ABS(X1-S)\n" : "") + "GENR Y1=YY\nGENR X1=XX\n" +
        run("P2", "Y1", "S2") + "GENR D2=ABS(P2-P)+ABS(Y1-R)+ABS(S2-S)\nSTAT D1 D2 / MAXIM=M\n" +
        "PRINT M\nSAMPLE 1 1\nGENR L=(M:1+M:2).LT.1E-12\nPRINT L\n");
    EXPECT_EQ(listing.status, 0) << listing.text;
    EXPECT_TRUE(holds(listing, "L\n    1.000000")) << way.command << listing.text;
  }
}

TEST(Nlinear, BadInputNamesItsCause) {
  const struct {
    const char* command;
    const char* says;
  } cases[] = {
      {"NL 1 /\nEQ Y1=A+B*X1\nEND\n", " ...ERROR..YOU FORGOT TO SPECIFY NCOEF="},
      {"NL 1 / NCOEF=1\nEQ Y1=A+B*X1\nEND\n",
       " ...ERROR..CONFLICT..  1 EQ STATEMENTS AND   2 COEFFICIENTS FOUND"},
      {"NL 2 / NCOEF=2\nEQ Y1=A+B*X1\nEND\n", " ...ERROR..CONFLICT..  1 EQ STATEMENTS AND   2"},
      {"NL 1 / NCOEF=2\nEQ Y1=A+B*X1\nCOEF X2 1\nEND\n", "X2 IS A VARIABLE, NOT A COEFFICIENT"},
      {"NL 1 / NCOEF=2\nEQ YY=A+B*X1\nEND\n", " ...ERROR..VARIABLE YY DOES NOT EXIST."},
      {"NL 1 / NCOEF=2\nEQ Y1=A+B*SQRT(X1)\nEND\n", "ILLEGAL FUNCTION IN AN EQ STATEMENTS"},
      {"NL 1 / NCOEF=2\nEQ Y1=A+*B\nEND\n", "SYNTAX ERROR WHEN GENERATING VARIABLE"},
      {"NL 1 / NCOEF=2 METHOD=FOO\nEQ Y1=A+B*X1\nEND\n", " ...ERROR METHOD=FOO   NOT VALID FOR NL"},
      {"NL 1 / NCOEF=2 CONVERGE=0\nEQ Y1=A+B*X1\nEND\n", "CONVERGENCE SET TO ZERO"},
      {"NL 1 / NCOEF=2 START=NOPE\nEQ Y1=A+B*X1\nEND\n", "START= VARIABLE DOES NOT EXIST"},
      {"NL 1 / NCOEF=2 GMM=HETCOV\nEQ Y1=A+B*X1\nEND\n",
       "GMM= OPTION REQUIRES LIST OF INSTRUMENTS"},
      {"NL 1 Z1 / NCOEF=3\nEQ Y1=A+B*X1+C*X2\nEND\n",
       "2 MOMENTS ARE NOT ENOUGH FOR 3 COEFFICIENTS"},
      {"NL 1 / NCOEF=2 SOLVE\nEQ Y1=A+B*X1\nEND\n", "SET SAMPLE COMMAND TO USE ONLY ONE"},
      {"NL 1 / NCOEF=2\nEQ Y1=A+EXP(B*X1*1000)\nCOEF B 10\nEND\n",
       "FUNCTION HAS NO VALUE AT THE STARTING VALUES"},
      {"NL 1 / NCOEF=2 IN=33\nEQ Y1=A+B*X1\nEND\n", "ATTEMPT TO USE NL PARAMETERS FROM"},
      {"NL 1 / NCOEF=2\nEQ Y1=A+B*X1\n", "END OF INPUT BEFORE THE END COMMAND"},
      {"NL 1 / NCOEF=2\nEQ Y1=A+B*X1\nFOO\nEND\n", "UNKNOWN COMMAND...FOO"},
  };
  for (const auto& c : cases) {
    // Nothing is lost: the next command runs, and the lines of the block were passed over.
    const auto listing = run_commands(DATA + "SET CONTINUE\n" + c.command + "PRINT $N\n");
    EXPECT_TRUE(holds(listing, c.says)) << c.command << listing.text;
    const bool end = std::string(c.command).find("END\n") != std::string::npos;
    EXPECT_TRUE(!end || holds(listing, "$N        40.00000")) << c.command << listing.text;
  }
  // Two runs that go on: illegal logarithms are told once a row, and a singular matrix.
  const auto logs = run_commands(DATA + "NL 1 / NCOEF=2\nEQ Y1=A+B*LOG(X1-2)\nEND\n");
  EXPECT_TRUE(holds(logs, " ...WARNING..ILLEGAL LOG IN OBS.1, VALUE REPLACED BY ZERO"));
  EXPECT_EQ(logs.text.find("ILLEGAL LOG IN OBS.5,"), logs.text.rfind("ILLEGAL LOG IN OBS.5,"));
  const auto singular = run_commands(DATA + "NL 1 / NCOEF=2\nEQ Y1=(A+B)*X1\nEND\n");
  EXPECT_TRUE(holds(singular, "COVARIANCE MATRIX AND STD ERRORS  ARE INCORRECT"));
  EXPECT_EQ(singular.status, 0);
  const auto limit = run_commands(DATA + "NL 1 / NCOEF=2 ITER=0\nEQ Y1=A+B*X1\nEND\nPRINT $ERR\n");
  EXPECT_TRUE(holds(limit, "MAXIMUM NUMBER OF ITERATIONS EXCEEDED") && holds(limit, "52027.00"));
  EXPECT_EQ(SAVED.coef, (std::vector<double>{0.1, 0.1}));
}

}  // namespace
