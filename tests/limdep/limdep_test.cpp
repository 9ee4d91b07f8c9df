// What goes wrong in PROBIT, LOGIT and TOBIT, and what a run has left when it has.
#include <gtest/gtest.h>

#include <string>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

const std::string DATA =
    "SET CONTINUE\nSAMPLE 1 12\nREAD Y X Z D\n0 1 5 0\n0 2 3 0\n1 3 6 1\n0 4 4 0\n1 5 7 1\n"
    "0 6 5 0\n1 7 8 1\n1 8 6 0\n1 9 9 1\n0 10 7 0\n1 11 9 1\n1 12 8 0\n"
    "GENR ONES=1\nGENR NIL=0\nGENR W=X-2\nGENR S=X+100*Y\nGENR X2=2*X-3\nGENR FAR=1E9+X\n"
    "GENR BIG=X*1E307\nGENR INF=BIG*BIG\nGENR TINY=1E-9*X\nGENR LEAST=1E-300*X\n"
    "GENR B=99\n";

double temp(int place) { return temporary(place); }

TEST(Limdep, RefusedModels) {
  const struct {
    std::string command, line;
    double ERR;  // 0: not looked at
  } cases[] = {
      {"PROBIT ONES X", " ...ERROR..DEPENDENT VARIABLE IS A CONSTANT", 0},
      {"PROBIT X Z", " ...ERROR..OB NO. 2 HAS ILLEGAL DEP. VAR.", 0},
      {"LOGIT INF Z", " ...ERROR..OB NO. 1 HAS ILLEGAL DEP. VAR.", 0},
      {"LOGIT Y X / CHOICES=3", " ...ERROR..NO OBSERVATIONS AT   2: ITS COEFFICIENTS", 0},
      {"PROBIT Y S", " PERFECT FIT DUE TO EXACT LINK BETWEEN Y AND S", 55015},
      {"LOGIT Y X X2", "PERFECT MULTICOLLINEARITY  WITH VARIABLE X2", 55012},
      {"LOGIT Y ONES X", "PERFECT MULTICOLLINEARITY  WITH VARIABLE ONES", 55012},
      {"PROBIT Y X / WEIGHT=NIL", " ...ERROR..WEIGHTS OF NIL HAVE NO USABLE SUM", 0},
      {"PROBIT Y X / WEIGHT=W", " ...ERROR..OB NO. 1 HAS A NEGATIVE WEIGHT", 0},
      {"PROBIT Y BIG", " ...ERROR..VALUES OF BIG ARE TOO LARGE TO BE SUMMED", 0},
      {"PROBIT Y LEAST", " ...ERROR..VARIABLE LEAST IS TOO LARGE OR TOO SMALL FOR THIS FIT", 0},
      {"PROBIT Y INF", " ...ERROR..VARIABLE INF HOLDS VALUES THAT ARE NOT NUMBERS", 0},
      {"TOBIT INF Z", " ...ERROR..VARIABLE INF HOLDS VALUES THAT ARE NOT NUMBERS", 0},
      {"PROBIT Y X / INCOEF=X", " ...ERROR..WRONG SIZE INCOEF", 0},
      {"PROBIT Y X / CHOICES=3", " ...ERROR..INCOMPATIBLE OPTIONS", 0},
      {"PROBIT Y X / LIMIT=3", " ...ERROR..INCOMPATIBLE OPTIONS", 0},
      {"LOGIT Y X / LOWRESP=.6 UPRESP=.5", " ...ERROR..INCOMPATIBLE OPTIONS", 0},
      {"PROBIT Y X / ITER=-1", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..ITER", 0},
      {"PROBIT Y Y", " ...ERROR..VARIABLE Y IS ON BOTH SIDES OF EQUATION", 0},
      {"PROBIT Y X(1.4,2)", " ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES", 0},
      {"PROBIT Y X Z D / BEG=3 END=5", " ...ERROR.. 3 OBSERVATIONS IS NOT ENOUGH FOR PROBIT EST",
       0},
      {"TOBIT ONES X", " ...NOTE..ALL OBSERVATIONS ARE AT THE LIMIT", 0},
      {"TOBIT X Z / LIMIT=100", " ...WARNING..OBS      1 IS    1.0000     LIMIT IS    100.00", 0},
      {"TOBIT X Z / LIMIT=100", " ...NOTE..ALL OBSERVATIONS ARE AT THE LIMIT", 0},
      {"TOBIT X X2", " ...NOTE..THE ROWS OFF THE LIMIT ARE FITTED EXACTLY", 55015},
      {"TOBIT X Z ONES / LIMIT=3", "PERFECT MULTICOLLINEARITY  WITH VARIABLE ONES", 55012}};
  for (const auto& c : cases) {
    temporary(temporary_place("ERR")) = UNSET;
    const bool options = c.command.find('/') != std::string::npos;
    const Listing out = run_commands(DATA + c.command + (options ? "" : " /") +
                                     " COEF=B PREDICT=P\nPRINT B\nTEST X=0\n");
    EXPECT_TRUE(holds(out, c.line)) << c.command << out.text;
    if (c.ERR != 0) {
      EXPECT_EQ(temp(temporary_place("ERR")), c.ERR) << c.command;
    }
    // Nothing was stored, no variable was lost, and there is no estimate to test.
    EXPECT_EQ(elements(workspace(), VARNUM(workspace(), "B"))[3], 99.0) << c.command;
    EXPECT_EQ(VARNUM(workspace(), "P"), 0) << c.command;
    EXPECT_TRUE(holds(out, " ...ERROR..THIS COMMAND MUST FOLLOW AN ESTIMATION COMMAND"));
    EXPECT_FALSE(holds(out, "NaN") || holds(out, "Inf")) << c.command;
  }
}

TEST(Limdep, EndsOfTheIteration) {
  const struct {
    std::string command, line;
    double ERR;
  } cases[] = {{"PROBIT Y X / ITER=0", " BELOW UNRELIABLE", 55013},
               {"TOBIT X Z / LIMIT=3 ITER=0", " BELOW UNRELIABLE", 55013},
               {"LOGIT Y D X", " ...WARNING..D ALONE PARTS ONES FROM ZEROS BUT FOR TIES", 55013},
               // Two regressors together part the observations.
               {"GENR V=10*Y-X\nGENR U=SIN(X)\nGENR A=V+U\nLOGIT Y A U X", " ..PERFECT FIT", 55015},
               {"DIMENSION G 2\nGEN1 G:1=-1000\nLOGIT Y X / INCOEF=G",
                " ...IN OBS 1 MODEL HAS BLOWN UP WITH -XB=   1000.0", 55015},
               {"DIMENSION G 2\nGEN1 G:1=1000\nLOGIT Y X / INCOEF=G",
                " ...NOTE..THE REGRESSORS ARE NOT COLLINEAR", 55012}};
  for (const auto& c : cases) {
    temporary(temporary_place("ERR")) = UNSET;
    const Listing out = run_commands(DATA + c.command + "\nPRINT X\n");
    EXPECT_TRUE(holds(out, c.line)) << c.command << out.text;
    EXPECT_EQ(temp(temporary_place("ERR")), c.ERR) << c.command;
    EXPECT_FALSE(holds(out, "NaN") || holds(out, "Inf")) << c.command << out.text;
  }
}

TEST(Limdep, UnitsOfTheDataDoNotMatter) {
  // A mean far from zero or a small unit changes neither the likelihood nor the ratios.
  for (const std::string word : {"PROBIT Y ", "LOGIT Y ", "TOBIT Z "}) {
    double LLF = 0.0, t = 0.0;
    for (const std::string x : {"X", "FAR", "TINY"}) {
      run_commands(DATA + word + x + " / LIMIT=4 TRATIO=T\n" + word + x + " / TRATIO=T\n");
      const double L = temp(temporary_place("LLF"));
      const double ratio = elements(workspace(), VARNUM(workspace(), "T"))[0];
      if (x == "X") {
        LLF = L;
        t = ratio;
      }
      EXPECT_NEAR(L, LLF, 1e-9) << word << x;
      EXPECT_NEAR(ratio, t, 1e-5) << word << x;
    }
  }
}

TEST(Limdep, SkippedAndWeightlessRows) {
  // Skipped rows are missing in the results; rows of weight 0 are counted and add nothing.
  const Listing skipped = run_commands(DATA + "SKIPIF(X.LE.2)\nLOGIT Y X / COEF=A INDEX=I\n");
  const double LLF = temp(temporary_place("LLF"));
  const auto index = elements(workspace(), VARNUM(workspace(), "I"));
  EXPECT_EQ(index[1], MACOM.XMISS);
  EXPECT_NE(index[2], MACOM.XMISS);
  const auto a = elements(workspace(), VARNUM(workspace(), "A"));
  const double slope = a[0];
  const Listing weighted = run_commands(DATA + "GENR V=X.GT.2\nLOGIT Y X / WEIGHT=V COEF=A\n");
  EXPECT_TRUE(holds(weighted, " TOTAL OBSERVATIONS            12")) << weighted.text;
  EXPECT_NEAR(temp(temporary_place("LLF")), LLF, 1e-11);
  EXPECT_NEAR(elements(workspace(), VARNUM(workspace(), "A"))[0], slope, 1e-7);
}

}  // namespace
}  // namespace korvel
