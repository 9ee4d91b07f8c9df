// Systems of equations on Klein's Model I and Grunfeld's five firms (the data ship with gretl).
// Reference values: gretl 2022c for least squares of two and three stages and seemingly unrelated
// regressions (`estimate s method=3sls`, sur, --iterate, restrict); its iteration stops at 1e-6 or
// so. Autoregressive errors, added lags, models without constants, re-formed instruments and the
// statistics: computed by numpy 1.24 from the data matrices, row by row.
#include "regress/tests.h"  // before the macro TEST

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::temp;
using korvel_test::values;
using Reals = std::vector<double>;

const std::string KLEIN = "SAMPLE 1 23\nREAD(" KORVEL_TEST_DATA
                          "/regress/klein.dat) YEAR C P WP I K X WG G T\nGENR W=WP+WG\n"
                          "GENR A=YEAR-1931\nSAMPLE 2 23\n";
const std::string GRUNFELD = "SAMPLE 1 20\nREAD(" KORVEL_TEST_DATA
                             "/regress/grunfeld.dat) YEAR I1 F1 C1 I2 F2 C2 I3 F3 C3 I4 F4 C4 I5 "
                             "F5 C5\n";
const std::string THREE = "OLS C P P(1) W\nOLS I P P(1) K(1)\nOLS WP X X(1) A\n";
const std::string EXOGS = "T G A WG P(1) K(1) X(1)";
const std::string FIRMS = "OLS I1 F1 C1\nOLS I2 F2 C2\nOLS I3 F3 C3\nOLS I4 F4 C4\nOLS I5 F5 C5\n";

void expect_close(std::string_view name, const Reals& wanted, double relative,
                  const std::string& what) {
  const Reals got = values(name);
  ASSERT_EQ(got.size(), wanted.size()) << what << ' ' << name;
  for (std::size_t k = 0; k < got.size(); ++k) {
    EXPECT_NEAR(got[k], wanted[k], relative * std::fabs(wanted[k])) << what << ' ' << name << k;
  }
}

TEST(SystemTests, Estimates) {
  const struct {
    std::string data, command, lines;
    Reals b, se;
    double relative;
  } cases[] = {
      {KLEIN,
       "SYSTEM 3 " + EXOGS + " / DN",
       THREE,
       {0.124890474784, 0.163144092783, 0.790080936444, 16.4407900643, -0.0130791824194,
        0.755723962124, -0.194848249287, 28.177846868, 0.400491879798, 0.18129101496,
        0.149674115069, 1.79721772774},
       {0.108129048181, 0.100438192787, 0.0379379054, 1.30454875812, 0.161896238758, 0.152933128575,
        0.0325306948621, 6.79377017175, 0.0318134137111, 0.034158775817, 0.0279352363824,
        1.11585498107},
       2e-10},
      {KLEIN,
       "SYSTEM 3 " + EXOGS + " / DN ITER=100 CONV=1E-10 PITER=0",
       THREE,
       {0.164509766073, 0.176564112446, 0.765801083783, 16.5589839819, -0.356532275608,
        1.0112993669, -0.260200063701, 42.8963092424, 0.374779109045, 0.19365065293, 0.167926359108,
        2.62477083807},
       {0.0961978416968, 0.0901001101869, 0.0347599302261, 1.22440134098, 0.260157128381,
        0.248774839159, 0.0508694476862, 10.5938706483, 0.0311027356703, 0.0324018209699,
        0.0289290797745, 1.19556061108},
       1e-8},
      {KLEIN,
       "2SLS C P P(1) W (" + EXOGS + ") /",
       "",
       {0.0173022117998, 0.216234040485, 0.810182697599, 16.5547557654},
       {0.131204584202, 0.1192216768, 0.044735056505, 1.46797869663},
       2e-10},
      {GRUNFELD,
       "SYSTEM 5 / DN",
       FIRMS,
       {0.12888869659, 0.375828509033, -194.263992528, 0.11690840456, 0.450321330639, 47.1725892327,
        0.0352792503392, 0.13703992324, -21.0363863484, 0.0682848191222, 0.314170405195,
        0.696189758474, 0.144410119394, 0.00692880839105, 25.0031882474},
       {0.021297950312, 0.0327336254164, 88.3984607674, 0.0566231052733, 0.121842681707,
        114.814122999, 0.0127775805151, 0.0224844673262, 26.5550214557, 0.0170288329389,
        0.0260555203413, 11.5759943943, 0.0501273803582, 0.0192620774991, 6.2393168363},
       2e-10},
      {GRUNFELD,
       "SYSTEM 5 / DN ITER=100 CONV=1E-10 PITER=0",
       FIRMS,
       {0.134618660742, 0.376477093658, -219.517333992, 0.103134477646, 0.438322795059,
        77.870190879, 0.0418058918885, 0.130881911322, -31.2425287049, 0.0652438421109,
        0.313055949059, 2.93934766664, 0.12825052639, 0.0114323121057, 26.5515012543},
       {},
       1e-6},
      {GRUNFELD,
       "SYSTEM 5 / DN ITER=200 CONV=1E-11 PITER=0 RESTRICT IR",
       FIRMS + "RESTRICT F1=F2\nRESTRICT C3:3-C4:4=0\nEND\n",
       {0.127155416331, 0.448475795434, -233.859267703, 0.127155416331, 0.367266052515,
        51.4565392781, 0.0453095026491, 0.203477406737, -67.0939893099, 0.0741455973014,
        0.203477406737, 10.0544123149, 0.12774160894, 0.00206788322448, 31.2275766009},
       {},
       2e-6},
      {KLEIN,
       "SYSTEM 3 / DN AUTO",
       THREE,
       {0.245969795672, 0.0724207167849, 0.777514063027, 16.3257509306, 0.465593763341,
        0.342554603311, -0.121006608163, 12.054641604, 0.404599521313, 0.17734384913,
        0.153298057752, 1.79714154087},
       {0.0786663655195, 0.076082835678, 0.0417284679074, 1.32698956712, 0.0864395152353,
        0.0903485182015, 0.024959138191, 5.09284057439, 0.0256315208498, 0.0282618880352,
        0.0251178564127, 1.01005360384},
       1e-9},
      {KLEIN,
       "SYSTEM 3 / DN AUTO DROP ITER=50 CONV=1E-12 PITER=0",
       THREE,
       {0.311870343571, 0.143290393113, 0.588625202087, 22.6454291871, 0.488196105647,
        0.320005685919, -0.116386016679, 11.1203054456, 0.427363529373, 0.148728262803,
        0.14181504955, 2.12563521724},
       {0.0777043500795, 0.0621756068326, 0.0738061034514, 2.68940204162, 0.0974362821626,
        0.0953636782211, 0.0309770094823, 6.50128595232, 0.0238857133624, 0.0241170917327,
        0.0171002949804, 0.712931602008},
       1e-8},
      {KLEIN,
       "SYSTEM 2 T G P(1) X(1) / AUTO ADDLAG",
       "OLS C P P(1) W\nOLS I P X(1)\n",
       {-0.332535052275, 0.545182976801, 0.737589746532, 20.1824231598, 1.01621555235,
        -0.0964050762859, -10.4156004418},
       {0.226742769604, 0.172553803178, 0.0659808573622, 2.46962778316, 0.139805393158,
        0.0543368886081, 2.4070920387},
       1e-9},
      {KLEIN,
       "SYSTEM 2 " + EXOGS + " / NOCONSTANT ITER=2 CONV=0",
       "OLS C P P(1) W\nOLS WP X X(1) A\n",
       {0.179300671627, 0.236227105409, 1.12409325973, 0.443149922546, 0.167715063682,
        0.108562249375},
       {0.364736810677, 0.332709563, 0.0984606574304, 0.039478306298, 0.0409271515013,
        0.0289461704065},
       1e-9},
      {KLEIN,
       "SYSTEM 2 " + EXOGS + " / NOCONEXOGS",
       "OLS C P P(1) W\nOLS WP X X(1)\n",
       {-0.022946938613, 0.172790588524, 0.851490099998, 16.231135169, 0.474464723929,
        0.151285336652, -0.905439951104},
       {0.138405259335, 0.125126821194, 0.0435206103911, 1.49582070077, 0.0534113011913,
        0.0609960189012, 1.55078705346},
       1e-9},
      {KLEIN,
       "SYSTEM 2 " + EXOGS + " / DN II ITER=4 CONV=0",
       "OLS C P T W\nOLS P C K(1) G\n",
       {0.140727106201, -0.0319585394202, 0.844019215453, 16.8250396254, 0.543238550226,
        -0.187610900308, -0.256245281343, 26.4020305899},
       {0.115173616988, 0.139555469958, 0.057580754583, 1.31532004214, 0.109727970239,
        0.0499527115641, 0.304744231821, 10.493122205},
       1e-9},
      // Different numbers of regressors: the divisor of a covariance is sqrt((N-Ki)(N-Kj)).
      {KLEIN,
       "SYSTEM 2 /",
       "OLS C P\nOLS I P P(1) K(1)\n",
       {1.16294571239, 34.3525312293, 0.502899425634, 0.316629286252, -0.0881358437391,
        5.25809136497},
       {0.260621881532, 4.53099967022, 0.0936326414656, 0.0956258815108, 0.0253407333938,
        5.1903787961},
       1e-9},
  };
  for (const auto& c : cases) {
    const Listing out = run_commands(c.data + "?" + c.command + " COEF=B STDERR=S\n" + c.lines);
    EXPECT_EQ(out.status, 0) << out.text;
    expect_close("B", c.b, c.relative, c.command);
    if (!c.se.empty()) expect_close("S", c.se, c.relative, c.command);
  }
}

TEST(SystemTests, Statistics) {
  const Listing out = run_commands(KLEIN + "SYSTEM 3 " + EXOGS + " / DN PSIGMA SIGMA=S\n" + THREE);
  EXPECT_TRUE(holds(out,
                    " LOG OF DETERMINANT OF SIGMA=   -1.24579\n"
                    " LOG OF LIKELIHOOD FUNCTION =   -76.1388\n"))
      << out.text;
  EXPECT_TRUE(holds(out, "\n   10.235     CHI-SQUARE WITH    3 D.F. P-VALUE= 0.01667\n"));
  EXPECT_TRUE(holds(out, "\n   18.309     CHI-SQUARE WITH    3 D.F. P-VALUE= 0.00038\n"));
  EXPECT_TRUE(holds(out,
                    " SYSTEM R-SQUARE =   0.9995\n TEST OF THE OVERALL SIGNIFICANCE =   "
                    "159.41     CHI-SQUARE WITH    9 D.F. P-VALUE= 0.00000\n"));
  EXPECT_NEAR(temp("LLF"), -76.13876531924177, 1e-9);
  EXPECT_EQ(temp("ADR2"), 9999999);
  // gretl's covariance of the residuals of two-stage least squares.
  EXPECT_NEAR(values("S")[1], 0.437847752926, 1e-10);
  EXPECT_NEAR(values("S")[5], 0.476426855681, 1e-10);
  run_commands(KLEIN + "?SYSTEM 3 / DN AUTO\n" + THREE);
  EXPECT_NEAR(temp("LLF"), -69.3222068540167, 1e-8);
  EXPECT_TRUE(holds(run_commands(KLEIN + "GENR I2=-2*I\nSYSTEM 2 / FM\nOLS I P\nOLS I2 K\n"),
                    "DUE TO SINGULAR Y TRANSPOSE Y MATRIX"));
}

// With every regressor among the instruments, and with a diagonal Sigma, each equation is as alone;
// the normal equations keep ten digits of Longley's model, whatever the means.
TEST(SystemTests, AgreesWithOls) {
  const std::string tail = " COEF=B2 STDERR=S2 COVARIAN=V2 RESID=E2 PREDICT=F2\n";
  for (const char* option : {"/ ", "/ DN ", "/ NOCONSTANT NOCONEXOGS ", "/ END=15 "}) {
    const std::string o = option;
    run_commands(
        KLEIN + "SKIPIF(C.EQ.55)\nGENR B=K+1E7\n?OLS C P B / " + (o.find("DN") < 9 ? "DN " : "") +
        (o.find("CONS") < 9 ? "NOCONSTANT " : "") + (o.find("END") < 9 ? "END=15 " : "") +
        "COEF=B1 STDERR=S1 COVARIAN=V1 RESID=E1 PREDICT=F1\n?2SLS C P B (B P) " + o + tail);
    for (const char* name : {"B", "S", "V", "E", "F"}) {
      const Reals wanted = values(name + std::string("1"));
      const Reals got = values(name + std::string("2"));
      ASSERT_EQ(got.size(), wanted.size()) << option << name;
      for (std::size_t k = 0; k < got.size(); ++k) {
        EXPECT_NEAR(got[k], wanted[k], 1e-7 * std::fabs(wanted[k]) + 1e-9) << option << name << k;
      }
    }
  }
  run_commands("SAMPLE 1 16\nREAD(" KORVEL_TEST_DATA
               "/nist/Longley.dat) Y X1-X6 / SKIPLINE=60\nGENR Z=X1\n?SYSTEM 2 / FM COEF=B\n"
               "OLS Z X2 X3\nOLS Y X1-X6\n");
  const Reals b = values("B");
  ASSERT_EQ(b.size(), 10U);
  EXPECT_NEAR(b[3], 15.0618722713733, 1e-9);
  EXPECT_NEAR(b[8], 1829.15146461355, 1e-7);
  EXPECT_NEAR(b[9], -3482258.63459582, 1e-3);
}

// Rows of the two equations solved for consumption and profits (numpy, at the coefficients of the
// table above's three-stage fit).
TEST(SystemTests, Simulation) {
  const Listing out = run_commands(KLEIN + "SYSTEM 2 " + EXOGS +
                                   " / DN SIMULATE CONV=1E-10\nOLS C P T W\nOLS P C K(1) G\n");
  EXPECT_TRUE(holds(out, " DANGEROUS SIMULATION OF MODEL\n OB=      3 IT= ")) << out.text;
  for (const char* values : {"YHAT=   42.352       13.603\n", "YHAT=   46.272       16.232\n",
                             "YHAT=   71.839       23.081\n"}) {
    EXPECT_TRUE(holds(out, values)) << out.text;
  }
}

TEST(SystemTests, StoredResults) {
  run_commands(KLEIN + "?SYSTEM 3 / DN AUTO DROP RESID=E PREDICT=F COEFMATR=M COEF=B\n" + THREE);
  const Reals e = values("E"), f = values("F"), c = values("C"), m = values("M");
  ASSERT_EQ(e.size(), 69U);
  ASSERT_EQ(m.size(), 12U);
  EXPECT_EQ(m, values("B"));
  // Row 3, the first with a lag, is dropped; residuals are those of the transformed equation.
  EXPECT_EQ(e[2], MACOM.XMISS);
  EXPECT_NEAR(e[3], -1.43361455695, 1e-9);
  EXPECT_NEAR(e[5], -0.279735481664, 1e-9);
  EXPECT_NEAR(f[3] + e[3], c[3], 1e-12);
  ASSERT_EQ(SAVED.equations.size(), 3U);
  EXPECT_EQ(SAVED.equations[2].first, 8);
  EXPECT_EQ(SAVED.equations[2].dependent.name, "WP");
  EXPECT_EQ(SAVED.list[11].name, "CONSTANT");
}

TEST(SystemTests, NamesAcrossEquations) {
  const Listing out =
      run_commands(KLEIN + "?SYSTEM 3 / RESTRICT COEF=B\n" + THREE +
                   "RESTRICT P=P:2\nRESTRICT CONSTANT:3=1\nEND\n"
                   "TEST P:1-P:2\nTEST CONSTANT:3=1\nTEST K\n?TEST X=.4\nTEST X:1\n");
  const Reals b = values("B");
  EXPECT_NEAR(b[0], b[4], 1e-12);
  EXPECT_NEAR(b[11], 1.0, 1e-12);
  EXPECT_NEAR(temp("VAL"), b[8] - 0.4, 1e-14);
  EXPECT_EQ(temp("DF2"), 3 * 21 - 12 + 2);
  EXPECT_TRUE(holds(out, "|_TEST CONSTANT:3=1\n ...WARNING..TEST COULD NOT BE DONE\n|_TEST K\n"))
      << out.text;
  EXPECT_TRUE(holds(out, " ...ERROR..X:1 IS NOT IN EQUATION\n"));
}

TEST(SystemTests, MomentFiles) {
  char folder[] = "/tmp/korvel_moments_XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string file = std::string("FILE 21 ") + folder + "/moments\n";
  const std::string lines = "OLS C P\nOLS I P K\n";
  const Listing out = run_commands(KLEIN + file + "SYSTEM 2 T G K / OUT=21 COEF=B\n" + lines +
                                   "?SYSTEM 2 T G K / IN=21 COEF=B2 STDERR=S2\n" + lines);
  EXPECT_EQ(out.status, 0) << out.text;
  // C, I, T, G, K, P and the constant: 28 elements.
  EXPECT_TRUE(holds(out, " ..THE OUT OPTION REQUIRES A FILE WITH SIZE=224\n"));
  EXPECT_EQ(values("B"), values("B2"));
  // As many columns in another order.
  const Listing other = run_commands(KLEIN + file + "SYSTEM 2 T G / IN=21\n" + lines);
  EXPECT_TRUE(holds(other, " ...ERROR..UNIT 21 DOES NOT HOLD THE MOMENTS OF THIS SYSTEM: 224"))
      << other.text;
  unlink((std::string(folder) + "/moments").c_str());
  rmdir(folder);
}

// The estimate before a system that fails stays: TEST P=1 is then that of OLS C P.
TEST(SystemTests, Failures) {
  const std::string two = "OLS C P\nOLS I P\n";
  const struct {
    std::string commands;
    const char* message;
  } cases[] = {
      {"SYSTEM C P / DN\n", " ...ERROR..NO. OF EQUATIONS NOT GIVEN ON SYSTEM COMMAND\n"},
      {"SYSTEM 2.5\n", " ...ERROR..NO. OF EQUATIONS NOT GIVEN ON SYSTEM COMMAND\n"},
      {"SYSTEM 2\nOLS C P\nGENR Z=1\n",
       "|_GENR Z=1\n ...ERROR..ABOVE COMMAND IGNORED, IS NOT ALLOWED AT THIS TIME\n"},
      {"SYSTEM 2\nOLS C P (W)\n", " ...ERROR..PARENTHESES ARE NOT ALLOWED IN AN EQUATION"},
      {"SYSTEM 2\nOLS C P(0.3,2)\n", " ...ERROR..LAGS OF P ON A POLYNOMIAL ARE NOT ALLOWED HERE\n"},
      {"SYSTEM 2\nOLS C P C\n", " ...ERROR..VARIABLE C IS ON BOTH SIDES OF EQUATION\n"},
      {"SYSTEM 2 T G\nOLS I P\nOLS C P W K\n", " ...ERROR..EQUATION 2 IS UNDERIDENTIFIED\n"},
      {"2SLS C P\n", " ...ERROR..EQUATION 1 IS UNDERIDENTIFIED\n"},
      {"GENR U=.1\n?OLS C P\nSYSTEM 2 T U\n" + two,
       " ...ERROR..EXOG. VAR. U IS A CONSTANT... A CONSTANT IS AUTOMATICALLY INCLUDED\n"},
      {"SYSTEM 2 T C\n" + two, " ...WARNING..DEPENDENT VARIABLE LISTED AS EXOGENOUS\n"},
      {"SYSTEM 2 / LIST\nOLS C P / DN\nOLS I P\n",
       "|_OLS C P / DN\n ...WARNING..ALL OPTIONS MUST BE ON SYSTEM COMMAND\n"},
      {"GENR Q=3-2*C\n?OLS C P\nSYSTEM 2\nOLS C P\nOLS Q P\n",
       " ...ERROR..MATRIX INVERSION FAILED IN ROW    2\n  SIGMA"},
      {"GENR Q=2*P\n?OLS C P\nSYSTEM 1\nOLS C P Q\n",
       "MULTICOLLINEARITY WITH VARIABLE Q IN EQUATION  1\n"},
      {"SYSTEM 2 / OUT=8\n", " ...ERROR..UNIT 8 IS RESERVED FOR INTERNAL USE\n"},
      {"SYSTEM 2 / HAUSMAN\n", " ...ERROR..INVALID OPTION..HAUSMAN\n"},
      {"SYSTEM 2 / AUTO RHO=1\n" + two,
       " ...WARNING..UNSTABLE RHO..ERRORS BELOW..USE DROP OPTION\n"},
      {"SYSTEM 2 / RESTRICT\n" + two + "RESTRICT P:3=1\nEND\n",
       " ...ERROR..P:3 IS NOT IN EQUATION\n"},
      {"SYSTEM 2\nOLS C P\n", " ...ERROR..END OF INPUT BEFORE THE LAST EQUATION"},
      {"SAMPLE 2 3\n?OLS C P\nSYSTEM 2\n" + two, " ...ERROR..     2 OBSERVATIONS IS NOT ENOUGH"},
  };
  for (const auto& c : cases) {
    const Listing out = run_commands(KLEIN + "?OLS C P\n" + c.commands);
    EXPECT_TRUE(holds(out, c.message)) << c.commands << out.text;
    EXPECT_EQ(ADDCOM.KTEST, holds(out, "BOTH SIDES") ? ADDCOM.KTEST : 1) << c.commands;
  }
  run_commands(KLEIN + "?OLS C P\nSYSTEM 2 T G\nOLS I P\nOLS C P W K\n");
  EXPECT_EQ(SAVED.coef.size(), 2U);
  // In a talking run a wrong word is typed again; under SET CONTINUE a failure ends nothing.
  EXPECT_EQ(run_commands(KLEIN + "SET CONTINUE\nSYSTEM 2\nOLS C P P\nOLS I P\n?OLS C P\nPRINT C\n")
                .text.find("SCAN"),
            std::string::npos);
}

}  // namespace
}  // namespace korvel
