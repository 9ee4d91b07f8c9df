// Fits beyond plain least squares, against R 4.2.2 (lm, add1, prcomp, complex matrix algebra) on
// the textile data unless a test says otherwise.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/recursive.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::temp;
using korvel_test::textile;
using Reals = std::vector<double>;

void expect_values(std::string_view name, const Reals& truth, double relative = 1e-9) {
  const auto v = elements(workspace(), VARNUM(workspace(), name));
  ASSERT_EQ(v.size(), truth.size()) << name;
  for (std::size_t i = 0; i < v.size(); ++i) {
    EXPECT_NEAR(v[i], truth[i], relative * std::fabs(truth[i])) << name << " " << i;
  }
}

TEST(OlsMethods, AlmonLags) {
  const Listing out = textile("OLS C I(0.3,1) P / COEF=B STDERR=S\n");
  expect_values("B", {1.10142417933, 0.626546241967, 0.151668304607, -0.323209632752,
                      -1.65038566166, 97.5568148966});
  EXPECT_TRUE(
      holds(out, " F TEST ON RESTRICTIONS=  0.53140     WITH   2 AND   8 DF  P-VALUE= 0.60717"));
  EXPECT_TRUE(holds(out, "TESTS ON LAGGED COEFFICIENTS\n VARIABLE  SUM(COEFS)"));
  EXPECT_TRUE(holds(out,
                    " I          1.5564      0.371       4.20     0.002 |  -0.026 |   10.5"
                    "     0.004\n"));
  // A lag shares its variable with others: no standardized coefficient, no elasticity.
  EXPECT_TRUE(holds(out, " I          1.1014     0.2674       4.119     0.002 0.793\n"));
  EXPECT_NEAR(temp("PVAL"), 0.607169472334, 1e-10);
}

TEST(OlsMethods, Complex) {
  const Listing out = textile("IMLS C P I T / REALIMAG COEF=B STDERR=S RESID=E\n");
  expect_values("B", {-1.35176291286, -1.69047168311, -2990.58721235, 2860.65470094});
  expect_values("S", {0.605346262481, 0.605346262481, 1170.59267851, 1170.59267851}, 1e-8);
  EXPECT_NEAR(temp("SSE"), 9427.92547376, 1e-6);
  EXPECT_NEAR(temp("SST") == UNSET ? 13445.7670588 : temp("SST"), 13445.7670588, 1e-6);
  EXPECT_NEAR(temp("R2"), 1 - 9427.92547376 / 13445.7670588, 1e-10);
  EXPECT_EQ(temp("DF"), 15);  // 17 complex observations, 2 complex coefficients
  EXPECT_EQ(elements(workspace(), VARNUM(workspace(), "E")).size(), 34U);
  EXPECT_TRUE(holds(out, " IMLS  ESTIMATION \n       17 OBSERVATIONS") ||
              holds(out, " IMLS  ESTIMATION\n       17 OBSERVATIONS"));
  textile("GENR AY=P/50\nGENR AX=T/1000\nIMLS C AY I AX / POLAR COEF=B METHOD=NORMAL\n");
  expect_values("B", {0.755897168366, 1.51660361888, 186.334368103, 109.466662576}, 1e-8);
}

TEST(OlsMethods, MadeRows) {
  textile("OLS C I(0.2,3) / PILAGS COEF=B STDERR=S\n");
  expect_values("B", {3.34207754659, -2.57128746887, -68.6736210278}, 1e-8);
  expect_values("S", {6.74148657224, 6.65680391407, 289.514218712}, 1e-8);
  textile("OLS C I (P) / DLRX COEF=B STDERR=S\n");
  expect_values("B", {2.75082439294, -178.85037499});
  expect_values("S", {0.466100671528, 42.6208658961});
  EXPECT_EQ(temp("N"), 34);
}

TEST(OlsMethods, Recursive) {
  const Listing out = textile("OLS C I P / RECURSIV COEF=B DUMP\n");
  EXPECT_TRUE(holds(out, " RECURSIVE COEFFICIENT ESTIMATES\n"));
  EXPECT_TRUE(holds(out, "       4 -0.54971E-01  -1.2802       233.31"));
  EXPECT_TRUE(holds(out, "      10  0.55817      -1.5320       197.07"));
  expect_values("B", {1.06170962850255, -1.38298545741216, 130.706587487139});
  // A start that does not determine the coefficients is told, and nothing is estimated.
  const Listing flat =
      run_commands("SAMPLE 1 6\nREAD Y X\n1 1\n2 1\n4 1\n3 2\n5 3\n6 7\nOLS Y X / RECURSIV\n");
  EXPECT_TRUE(holds(flat, " RECURSIVE REGRESSION"));
  EXPECT_EQ(temp("ERR"), 6017);
}

// Recursive residuals of lm on the first t-1 rows; their squares add up to the SSE of all.
TEST(OlsMethods, RowByRow) {
  textile("");
  std::vector<std::span<const double>> v;
  for (const char* name : {"I", "P", "C"}) {
    v.push_back(elements(workspace(), VARNUM(workspace(), name)));
  }
  const double* columns[] = {v[0].data(), v[1].data(), nullptr, v[2].data()};
  const ColumnList x{columns, 3, nullptr, {}};
  Reals work(static_cast<std::size_t>(GSREG_words(4, 17))), factor(packed_words(4));
  ASSERT_EQ(GSREG(x, work, factor, 4, {}, {}), 0);
  factor[packed(4, 4)] = 0;
  const double truth[] = {0.944694275128, 2.29890313423, 2.79129096258, 3.76050871191,
                          5.21550505566,  2.52168075334, -3.50832731509};
  for (std::size_t t = 3; t < 17; ++t) {
    double row[] = {v[0][t], v[1][t], 1.0, v[2][t]};
    const RecursiveStep step = add_row(factor, 4, row);
    if (t < 10) {
      EXPECT_NEAR(step.residual(), truth[t - 3], 1e-9) << t;
    }
  }
  EXPECT_NEAR(factor[packed(4, 4)], 433.312978538859, 1e-9);
}

TEST(OlsMethods, Stepwise) {
  const std::string read = "SAMPLE 1 40\nREAD(" KORVEL_TEST_DATA "/regress/counts.dat) Y X1-X3 W\n";
  const Listing out = run_commands(read + "GENR X4=X1+2*X3\nOLS Y (X2 X1 X3 X4) / COEF=B\n");
  EXPECT_TRUE(holds(out, " **** STEPWISE REGRESSION ****\n"));
  const Listing three = run_commands(read + "OLS Y (X2 X1 X3) / COEF=B\n");
  EXPECT_TRUE(holds(three,
                    " STEP   1  ENTERED X1        F TO ENTER =   51.065     P-VALUE= 0.000\n"
                    " STEP   2  ENTERED X3        F TO ENTER =   27.741     P-VALUE= 0.000\n"));
  EXPECT_FALSE(holds(three, "ENTERED X2"));
  EXPECT_NEAR(temp("SSE"), 53.703332, 1e-6);
  // Forced, and let in by a limit on F; then X2 goes again under a strict limit on F to stay.
  const Listing all = run_commands(read + "OLS Y X3 (X2 X1) / FE=0.1 FX=0.05\n");
  EXPECT_TRUE(holds(all, "  F TO ENTER =  0.21376     P-VALUE= 0.647\n"));
  EXPECT_NEAR(temp("SSE"), 53.386337, 1e-6);
  const Listing twin = run_commands(read + "GENR X5=2*X1\nOLS Y X1 (X5 X3)\n");
  EXPECT_TRUE(holds(twin,
                    " ...NOTE..VARIABLE X5 HAS BEEN DELETED FROM THE REGRESSION. IT'S A LINEAR "
                    "COMBO. OF\n INDEP. VARS. ALREADY IN THE EQUATION.\n"));
  const Listing perfect = run_commands(read + "GENR Z=X1+X3\nOLS Z (X1 X2 X3)\n");
  EXPECT_TRUE(holds(perfect, " HAS RESULTED IN A PERFECT FIT. FOR NUMERICAL REASONS"));
}

TEST(OlsMethods, GivenByTheUser) {
  // Raw moments of I, P, the constant and C give the fit of the data.
  textile("GENR ONE=1\nOLS C I P / COEF=B0 STDERR=S0 COVARIAN=V0 NOMULSIGSQ\n");
  const auto b = elements(workspace(), VARNUM(workspace(), "B0"));
  const Reals before(b.begin(), b.end());
  const Listing out = textile(
      "READ M / SYMAT ROWS=4\n"
      "180740.81\n133854.85 103550.77\n1750.7 1297.3 17\n235602.97 168471.43 2286.6 316455.4\n"
      "OLS C I P / MOMENTS=M COEF=B\nOLS C I P / COVARIAN=V STDERR=S1\n"
      "OLS C I P / METHOD=NORMAL INCOVARI=V STDERR=S2\n"
      "GENR G=9\nREAD G / BEG=1 END=3\n1 -1 100\nOLS C I P / INCOEFFI=G RESID=E COEF=B2\n");
  expect_values("B", before, 1e-9);
  const auto s1 = elements(workspace(), VARNUM(workspace(), "S1"));
  expect_values("S2", {s1.begin(), s1.end()}, 1e-12);
  expect_values("B2", {1, -1, 100}, 0);
  const auto e = elements(workspace(), VARNUM(workspace(), "E"));
  double SSE = 0;
  for (const double v : e) SSE += v * v;
  EXPECT_NEAR(temp("SSE"), SSE, 1e-9 * SSE);
  EXPECT_EQ(out.status, 0) << out.text;
}

TEST(OlsMethods, Components) {
  // Scores and rotation of prcomp on I, P, T.
  const Listing out = textile(
      "READ V / ROWS=3 COLS=3\n"
      "0.0573971778252 -0.9956035916952 0.0740206199741\n"
      "0.9603331783270 0.0347936550528 -0.2766759624043\n"
      "-0.2728841339873 -0.0869648766556 -0.9581082191727\n"
      "DIMENSION Z 17 2\n"
      "GENR Z:1=0.0573971778252*I+0.9603331783270*P-0.2728841339873*T\n"
      "GENR Z:2=-0.9956035916952*I+0.0347936550528*P-0.0869648766556*T\n"
      "OLS C Z:1 Z:2 / PCOMPONE=Z PCINFORM=V COEF=B STDERR=S\n");
  ASSERT_EQ(out.status, 0) << out.text;
  const auto b = elements(workspace(), VARNUM(workspace(), "B"));
  const auto s = elements(workspace(), VARNUM(workspace(), "S"));
  ASSERT_EQ(b.size(), 6U);
  const double back[] = {1.02297130404, -1.25395839523, 0.441141311072};
  const double error[] = {0.273885530167, 0.0792095025428, 0.0327319007649};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(b[3 + i], back[i], 1e-8);
    EXPECT_NEAR(s[3 + i], error[i], 1e-8);
  }
  EXPECT_TRUE(holds(out, " COEFFICIENTS OF THE VARIABLES BEHIND THE COMPONENTS\n"));
}

// Rows taken where they lie, in a workspace too small for copies, give what copies give.
TEST(OlsMethods, SmallWorkspace) {
  const std::string make =
      "SAMPLE 1 30000\nSET RANSEED=7 NOWARN NOWARNSKI NOOUTPUT\nGENR X1=UNI(1)+1000\nGENR "
      "X2=UNI(1)\n"
      "GENR W=UNI(1)\nGENR Y=X1+UNI(1)\nSKIPIF (X2.LT.0.1)\n";
  for (const char* options : {"", "WEIGHT=W", "NOCONSTANT", "RIDGE=0.01 WEIGHT=W NONORMALIZ"}) {
    const std::string ols =
        std::string("OLS Y X1 X2(2) / METHOD=NORMAL COEF=B STDERR=S ") + options;
    ASSERT_EQ(run_commands(make + ols + "\n", 20480).status, 0) << options;
    const auto b = elements(workspace(), VARNUM(workspace(), "B"));
    const auto s = elements(workspace(), VARNUM(workspace(), "S"));
    const Reals coef(b.begin(), b.end()), error(s.begin(), s.end());
    const double LLF = temp("LLF");
    const Listing small = run_commands(make + ols + "\n", 1250);
    ASSERT_EQ(small.status, 0) << options << small.text;
    expect_values("B", coef, 1e-8);
    expect_values("S", error, 1e-10);
    EXPECT_NEAR(temp("LLF"), LLF, 1e-6);
  }
}

// Data whose squares leave the range of reals.
TEST(OlsMethods, ExtremeScales) {
  for (const char* method : {"GS", "NORMAL"}) {
    const std::string ols = std::string(" P / COEF=B STDERR=S INFLUENC HATDIAG=H METHOD=") + method;
    const Listing out = textile("GENR BIG=I*1E150\nGENR SML=I*1E-150\nGENR CS=C*1E-150\nOLS C BIG" +
                                ols + "\nOLS CS SML" + ols + "\n");
    ASSERT_EQ(out.status, 0) << out.text;
    expect_values("B", {1.06170962850255, -1.38298545741216e-150, 130.706587487139e-150}, 1e-8);
    expect_values("S", {0.266673965012, 0.0838142623007026e-150, 27.0942926127683e-150}, 1e-8);
    EXPECT_NEAR(temp("R2"), 0.951281669933193, 1e-10);
  }
  const Listing out =
      textile("GENR X=P*1E160\nGENR Z=X*X\nSET CONTINUE\nOLS C X I\nOLS C Z I\nOLS C I\n");
  EXPECT_TRUE(
      holds(out, " ...ERROR..VARIABLE X IS TOO LARGE OR TOO SMALL FOR THIS FIT. RESCALE IT"));
  EXPECT_TRUE(holds(out, " ...ERROR..VARIABLE Z HOLDS VALUES THAT ARE NOT NUMBERS"));
  EXPECT_FALSE(holds(out, "NaN"));
}

// The packed inverse comes back to full accuracy from one spoilt by rounding: Hilbert-like columns.
TEST(OlsMethods, ExactInverse) {
  constexpr int K = 6;
  constexpr std::int64_t N = 40;
  std::vector<Reals> data(K, Reals(N));
  std::vector<const double*> columns;
  for (int k = 0; k < K; ++k) {
    for (int t = 0; t < N; ++t) {
      data[static_cast<std::size_t>(k)][static_cast<std::size_t>(t)] = std::pow(t + 1, k);
    }
    columns.push_back(data[static_cast<std::size_t>(k)].data());
  }
  columns.push_back(data[0].data());
  const ColumnList x{columns, N, nullptr, {}};
  Reals work(static_cast<std::size_t>(std::max(GSREG_words(K + 1, N), LSINVERSE_words(K, N))));
  Reals factor(packed_words(K + 1)), inverse(packed_words(K));
  GSREG(x, work, factor, K + 1, {}, {});
  gs_inverse(factor, K + 1, inverse);
  ASSERT_EQ(LSINVERSE(x, K, work, inverse), 0);
  // The variance of the highest power is 1 / sum of its orthogonal polynomial squared:
  // (5!)^4 N(N^2-1)(N^2-4)(N^2-9)(N^2-16)(N^2-25) / (9! 11 10) ... = (5!)^4 / (10! 11!) times
  // these.
  const double n = N;
  double product = n;
  for (int j = 1; j <= 5; ++j) product *= n * n - j * j;
  const double square = std::pow(120.0, 4) / (3628800.0 * 39916800.0) * product;
  EXPECT_NEAR(inverse[packed(K, K)] * square, 1.0, 4e-15);
}

TEST(OlsMethods, ResidualPlots) {
  textile("OLS C I P / GNUPLOT COMMFILE=/tmp/korvel_ols_plot.gnu\n");
  std::ifstream commands("/tmp/korvel_ols_plot.gnu");
  const std::string text{std::istreambuf_iterator<char>(commands), {}};
  EXPECT_NE(
      text.find("set title \"Residual Plot\"\nset samples 17\nset nokey\nset ylabel \"C\"\n"
                "set xlabel \"Observation\"\nplot \"DATA.GNU\" using 1 lw 2 w line\npause -1\n"),
      std::string::npos);
  std::ifstream data("DATA.GNU");
  std::string row;
  std::getline(data, row);
  EXPECT_EQ(row.size(), 60U);
  unlink("/tmp/korvel_ols_plot.gnu");
  unlink("DATA.GNU");
}

}  // namespace
}  // namespace korvel
