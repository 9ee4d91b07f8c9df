// The evaluator: what each operation gives, what is printed, where a run stops.

#include "expr/trans.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "engine/options.h"
#include "expr/formula_fixture.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::FormulaRoom;
using korvel_test::holds;
using korvel_test::run_commands;
using Values = std::vector<double>;
constexpr double MISS = -99999;

class Trans : public testing::Test {
 protected:
  Trans() {
    room.sample(1, 6);
    room.series("X", {1, 4, 2, 8, 5, 7});
    room.series("Z", {0, -1, 2.5, 1e-3, -7.9, 3});
    room.series("S5", {5});
    OSCOM.OWARN = false;
  }
  FormulaRoom room;
};

struct ValueCase {
  const char* formula;
  Values values;
};

TEST_F(Trans, Values) {
  const double e = std::exp(1.0);
  const ValueCase cases[] = {
      {"X", {1, 4, 2, 8, 5, 7}},
      {"S5+X", {6, 9, 7, 13, 10, 12}},  // a scalar serves every observation
      {"LAG(X)", {0, 1, 4, 2, 8, 5}},
      {"X(-2)", {0, 0, 1, 4, 2, 8}},
      {"X(+1)", {4, 2, 8, 5, 7, 0}},
      {"LAG(X+0)", {0, 1, 4, 2, 8, 5}},
      {"LAG(LAG(X))", {0, 0, 1, 4, 2, 8}},
      {"SUM(1)", {1, 2, 3, 4, 5, 6}},
      {"SUM(X)-SUM(2*X)/2", {0, 0, 0, 0, 0, 0}},
      {"TIME(10)", {11, 12, 13, 14, 15, 16}},
      {"SEAS(4)", {1, 0, 0, 0, 1, 0}},
      {"SEAS(1)+SEAS(0)+SEAS(-3)", {0, 0, 0, 0, 0, 0}},
      {"INT(Z)", {0, -1, 2, 0, -7, 3}},
      {"RECODE(Z)", {0, 0, 3, 0, -7, 3}},  // half added, then cut toward zero
      {"DUM(Z)", {0, 0, 1, 1, 0, 1}},
      {"ABS(Z)", {0, 1, 2.5, 1e-3, 7.9, 3}},
      {"MAX(X,4)", {4, 4, 4, 8, 5, 7}},
      {"MIN(X,Z)", {0, -1, 2, 1e-3, -7.9, 3}},
      {"MOD(X,3)", {1, 1, 2, 2, 2, 1}},
      {"X(3)", {2, 2, 2, 2, 2, 2}},
      {"DATA(X,X(1))", {1, 1, 1, 1, 1, 1}},
      {"X(0)", {1, 1, 1, 1, 1, 1}},  // the number of columns
      {"DATA(X,-1)", {1. / 6, 3. / 6, 2. / 6, 1, 4. / 6, 5. / 6}},
      {"X(0-1)", {1. / 6, 3. / 6, 2. / 6, 1, 4. / 6, 5. / 6}},
      {"DATA(X,-2)", {1, 1, 2. / 3, 1, 4. / 5, 5. / 6}},
      {"DATA(X,-9)", {1. / 6, 3. / 6, 2. / 6, 1, 4. / 6, 5. / 6}},
      {"X.GT.4.AND..NOT.(Z.LT.0)", {0, 0, 0, 1, 0, 1}},
      {"X.EQ.4.OR.Z.GE.3", {0, 1, 0, 0, 0, 1}},
      {"-X**2", {-1, -16, -4, -64, -25, -49}},
      {"0**0+0**0.5", {1, 1, 1, 1, 1, 1}},
      {"2**(-2)", {.25, .25, .25, .25, .25, .25}},
      {"MISS(X)+USER(X)", {0, 0, 0, 0, 0, 0}},
      {"2E X", {20, 2e4, 200, 2e8, 2e5, 2e7}},
      {"EXP(S5/5)", {e, e, e, e, e, e}},
      {"SIN(0*X)+SIN(S5/5,-1)-SIN(1,-1)", {0, 0, 0, 0, 0, 0}},
      {"LGAM(S5)", Values(6, std::log(24.0))},
      {"NCDF(0*X)", {.5, .5, .5, .5, .5, .5}},
      {"EXP(800)+0*X", Values(6, std::exp(709.0))},
  };
  for (const ValueCase& c : cases) {
    for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
      ASSERT_TRUE(room.genr(std::string("Y=") + c.formula, path)) << c.formula;
      const Values y = room.values("Y");
      ASSERT_EQ(y.size(), c.values.size());
      for (std::size_t i = 0; i < y.size(); ++i) {
        EXPECT_NEAR(y[i], c.values[i], 2e-15 * std::fabs(c.values[i])) << c.formula << " " << i + 1;
      }
    }
  }
  room.genr("Y=LAG(X)");
  EXPECT_TRUE(std::signbit(room.values("Y")[0]));
}

struct DomainCase {
  const char* formula;
  const char* warning;  // at observation 1
};
TEST_F(Trans, DomainErrors) {
  OSCOM.OWARN = true;
  room.sample(1, 1);
  const DomainCase cases[] = {
      {"LOG(0)", "ILLEGAL LOG IN OBS    1,VALUE=  0.00    "},
      {"1/0", "ILLEGAL DIV IN OBS    1,VALUE=  0.00    "},
      {"SQRT(-4)", "ILLEGAL SQRT IN OBS    1,VALUE= -4.00    "},
      {"(-8)**(1/3)", "ILLEGAL ** IN OBS    1,VALUE= -8.00    "},
      {"0**(-1)", "ILLEGAL DIV IN OBS    1,VALUE=  0.00    "},
      {"LGAM(-1)", "ILLEGAL LGAM IN OBS    1,VALUE= -1.00    "},
      {"SIN(2,-1)", "ILLEGAL SIN IN OBS    1,VALUE=  2.00    "},
  };
  for (const DomainCase& c : cases) {
    room.printed();
    ASSERT_TRUE(room.genr(std::string("Y=5+") + c.formula)) << c.formula;
    EXPECT_EQ(room.values("Y"), Values{MISS}) << c.formula;
    EXPECT_EQ(room.printed(), std::string(" ...WARNING..") + c.warning +
                                  " USING MISSING CODE=-99999.\n ...WARNING..OBSERVATION    1 USED "
                                  "MISSING DATA CODE=-99999. TRY SKIPMISS OPTION\n");
  }
  // One warning an observation when WARNMISS is off; both steps are illegal.
  OSCOM.OMSWRN = false;
  room.genr("Y=LOG(0)+LOG(0)");
  EXPECT_EQ(room.printed(),
            " ...WARNING..ILLEGAL LOG IN OBS    1,VALUE=  0.00     USING MISSING CODE=-99999.\n");
  for (const char* formula : {"Y=MAX(3)", "Y=MOD(5,0)", "Y=MOD(5)"}) {
    ASSERT_TRUE(room.genr(formula));
    EXPECT_EQ(room.values("Y"), Values{MISS}) << formula;
  }
}

TEST_F(Trans, MissingCodes) {
  room.series("M", {1, MISS, 3, 4, MISS, 6});
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    OSCOM.OSMISS = false;
    room.genr("Y=M+1", path);
    EXPECT_EQ(room.values("Y"), (Values{2, MISS + 1, 4, 5, MISS + 1, 7}));
    OSCOM.OSMISS = true;
    room.genr("Y=M+1", path);
    EXPECT_EQ(room.values("Y"), (Values{2, MISS, 4, 5, MISS, 7}));
    room.genr("Y=MAX(M,2)", path);  // a missing argument loses
    EXPECT_EQ(room.values("Y"), (Values{2, 2, 3, 4, 2, 6}));
    room.genr("Y=M(-1)+0", path);  // the element that is read counts
    EXPECT_EQ(room.values("Y"), (Values{0, 1, MISS, 3, 4, MISS}));
    room.genr("Y=M.GT.0", path);
    EXPECT_EQ(room.values("Y"), (Values{1, MISS, 1, 1, MISS, 1}));
    room.genr("Y=0", path);
    room.run(K_IF, "(M.GT.0) Y=1", path);  // IF looks at the plain comparison
    EXPECT_EQ(room.values("Y"), (Values{1, 0, 1, 1, 0, 1}));
  }
}

TEST_F(Trans, CappedExpIsKeptInTheOperand) {
  room.series("B", {1, 800, 2, 3, 4, 5});
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    room.genr("Y=0*EXP(B)+B", path);
    EXPECT_EQ(room.values("Y"), (Values{1, 709, 2, 3, 4, 5}));
  }
}

TEST_F(Trans, TargetsKeepWhatIsNotStored) {
  room.sample(3, 5);
  room.genr("Y=X");
  EXPECT_EQ(room.values("Y"), (Values{0, 0, 2, 8, 5})) << "zeros in front, length MEND";
  room.sample(1, 6);
  room.genr("W=9");
  room.run(K_IF, "(X.GT.4) W=X");
  EXPECT_EQ(room.values("W"), (Values{9, 9, 9, 8, 5, 7}));
  room.run(K_IF, "(X.GT.4) NEW=X");
  EXPECT_EQ(room.values("NEW"), (Values{0, 0, 0, 8, 5, 7}));
  room.genr("X=X(-1)+1");  // reads what it has just written
  EXPECT_EQ(room.values("X"), (Values{1, 2, 3, 4, 5, 6}));
}

TEST_F(Trans, ExhaustedVariables) {
  OSCOM.OWARN = true;
  room.series("SHORT", {1, 2, 3, 4, 5});
  room.printed();
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    EXPECT_TRUE(room.genr("A=SHORT+1", path)) << "short by the last observation: a good end";
    EXPECT_EQ(room.printed(), " ...WARNING..FINISHED AT OBS    5 THE LENGTH OF SHORT\n");
    EXPECT_EQ(room.values("A"), (Values{2, 3, 4, 5, 6}));
    free_variable(room.ws, VARNUM(room.ws, "A"));
  }
  room.sample(1, 7);
  room.series("LONG", Values(7, 1.0));
  EXPECT_FALSE(room.genr("A=SHORT+LONG"));
  EXPECT_TRUE(OCOM.ODONT);
  EXPECT_EQ(VARNUM(room.ws, "A"), 0) << "a new target is not kept";
  EXPECT_FALSE(room.genr("SHORT=LONG")) << "a target is not enlarged";
  EXPECT_EQ(room.values("SHORT"), Values(5, 1.0));
  EXPECT_TRUE(room.genr("A=LONG+SHORT(2)")) << "an element does not wear out";
  EXPECT_FALSE(room.genr("A=SHORT(6)"));
  EXPECT_FALSE(room.genr("A=LAG(SHORT,2)+LONG")) << "a lag does not extend a series";
  OSCOM.OBACK = true;
  EXPECT_FALSE(room.genr("A=SHORT"));
}

TEST_F(Trans, BlockSums) {
  room.sample(1, 2);
  EXPECT_TRUE(room.genr("Y=SUM(X,3)"));
  EXPECT_EQ(room.values("Y"), (Values{7, 20}));
  room.sample(1, 3);
  room.genr("T=1");
  EXPECT_TRUE(room.genr("T=SUM(X,2)"));
  EXPECT_EQ(room.values("T"), (Values{5, 10, 12}));
  EXPECT_TRUE(room.genr("Q=SUM(X,3)")) << "exhausted at the last observation";
  EXPECT_EQ(room.values("Q"), (Values{7, 20}));
}

TEST_F(Trans, Skipping) {
  OSCOM.OWARN = true;
  temporary(temporary_place("N")) = 6;
  room.printed();
  ASSERT_TRUE(room.run(K_SKIPIF, "X.GT.4"));
  EXPECT_EQ(room.printed(),
            " ...NOTE..OBSERVATION     4 WILL BE SKIPPED\n"
            " ...NOTE..OBSERVATION     5 WILL BE SKIPPED\n"
            " ...NOTE..OBSERVATION     6 WILL BE SKIPPED\n");
  EXPECT_EQ(temporary(temporary_place("N")), 3);
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    room.genr("Y=SUM(1)", path);
    EXPECT_EQ(room.values("Y"), (Values{1, 2, 3, 0, 0, 0}));
  }
  room.series("V", Values(6, 0.0));
  OSCOM.OBACK = true;
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    room.genr("V=SUM(X)", path);
    EXPECT_EQ(room.values("V"), (Values{7, 6, 2, 0, 0, 0}));
  }
}

TEST_F(Trans, Recode) {
  room.series("T", {0, 3, 3, 2, 5, 4, 10, 20, 30});  // lower, upper, new
  room.ws.DATA(room.ws.KADD(VARNUM(room.ws, "T")) + 1) = MATRIX2;
  room.ws.DATA(room.ws.KADD(VARNUM(room.ws, "T")) + 3) = 3;
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    ASSERT_TRUE(room.genr("Y=RECODE(X,T)", path));
    EXPECT_EQ(room.values("Y"), (Values{10, 30, 10, 8, 20, 7})) << "the last row that matches";
  }
  EXPECT_FALSE(room.genr("Y=RECODE(X,Z)"));
  EXPECT_FALSE(room.genr("Y=T+1")) << "a matrix is no series";
  EXPECT_TRUE(room.genr("Y=T:3(2)"));
  EXPECT_EQ(room.values("Y")[0], 20);
  room.sample(1, 3);
  EXPECT_TRUE(room.genr("T:2=X*100"));
  EXPECT_EQ(room.values("T"), (Values{0, 3, 3, 100, 400, 200, 10, 20, 30}));
  EXPECT_FALSE(room.genr("T:4=1"));
  EXPECT_TRUE(room.genr("NEWM:2=X"));
  EXPECT_EQ(room.values("NEWM"), (Values{0, 0, 0, 1, 4, 2}));
}

TEST_F(Trans, Sampling) {
  OSCOM.ORANST = true;
  RANCOM = RanCom{};
  const auto total = [&](const Values& v) {
    double t = 0;
    for (const double x : v) t += x;
    return t;
  };
  ASSERT_TRUE(room.genr("Y=SAMP(4)"));
  EXPECT_EQ(total(room.values("Y")), 4);
  for (const double v : room.values("Y")) EXPECT_LE(v, 1);
  ASSERT_TRUE(room.genr("Y=SAMP(-1000)"));
  EXPECT_EQ(total(room.values("Y")), 1000);
  ASSERT_TRUE(room.genr("Y=SAMP(6)"));
  EXPECT_EQ(room.values("Y"), Values(6, 1.0));
  EXPECT_FALSE(room.genr("Y=SAMP(7)"));
  EXPECT_FALSE(room.genr("Y=SAMP(3)+1"));
  ASSERT_TRUE(room.genr("Y=SAMP(X)"));
  for (const double v : room.values("Y")) {
    EXPECT_TRUE(v == 1 || v == 4 || v == 2 || v == 8 || v == 5 || v == 7);
  }
}

TEST_F(Trans, FunctionsThatWantVariables) {
  for (const char* text :
       {"Y=LAG(X+1,1)", "Y=SUM(X+1,2)", "Y=DATA(X+1,2)", "Y=DATA(X)", "Y=MAX(1,2,3)"}) {
    room.printed();
    EXPECT_FALSE(room.genr(text)) << text;
    EXPECT_EQ(room.printed(), std::string(text).find("MAX") != std::string::npos
                                  ? " ...ERROR..ONLY ONE COMMA IS PERMITTED\n"
                                  : " ...ERROR..ABOVE FUNCTION REQUIRES PRE-DEFINED VARIABLE\n");
  }
}

TEST_F(Trans, EmpiricalDistributionOfALongSeries) {
  // The tree against counting: the target itself is counted element by element.
  room.sample(1, 3000);
  RANCOM = RanCom{};
  OSCOM.ORANST = true;
  room.genr("U=INT(UNI(50))");
  for (const char* kind : {"-1", "-2"}) {
    room.genr(std::string("A=DATA(U,") + kind + ")");
    const Values u = room.values("U"), a = room.values("A");
    for (std::size_t i = 0; i < u.size(); i += 7) {
      const std::size_t last = kind[1] == '1' ? u.size() : i + 1;
      double n = 0;
      for (std::size_t j = 0; j < last; ++j) n += u[j] <= u[i];
      ASSERT_EQ(a[i], n / static_cast<double>(last)) << kind << " " << i;
    }
  }
}

TEST(TransCommands, WholeCommands) {
  auto run = run_commands("GENR Y=1\n");
  EXPECT_TRUE(holds(run, " ...ERROR..SAMPLE RANGE HAS NOT YET BEEN DEFINED"));
  run = run_commands("GEN1 2+3\nGEN1 A=7\nGEN1 $T1=A*2\nGEN1 $T1\n");
  EXPECT_TRUE(holds(run, "|_GEN1 2+3\n   5.0000000\n"));
  EXPECT_TRUE(holds(run, "  14.000000\n"));
  // A lone IF drops the next command when it is true nowhere.
  run = run_commands(
      "SAMPLE 1 3\nGENR X=TIME(0)\nIF(X.GT.3)\nGEN1 111\nIF(X.GT.2)\nGEN1 222\n"
      "IF (X.GT.3) X=0\nGEN1 333\nIF1 (X.GT.1)\nGEN1 444\n");
  EXPECT_FALSE(holds(run, "111.00000"));
  EXPECT_TRUE(holds(run, "222.00000"));
  EXPECT_TRUE(holds(run, "333.00000"));
  EXPECT_FALSE(holds(run, "444.00000"));
  run = run_commands("SAMPLE 1 4\nGENR X=TIME(0)\nENDIF(X.GE.3)\n");
  EXPECT_TRUE(holds(run, " ...NOTE..ENDIF IS TRUE AT OBSERVATION         3\n"));
  EXPECT_FALSE(holds(run, "OBSERVATION         4"));
}

TEST(TransCommands, Calculus) {
  auto run =
      run_commands("SAMPLE 1 3\nGENR X=TIME(0)\nINTEGRATE T 0 X G=EXP(T)\nINTEGRATE T 2 1 H=T\n");
  EXPECT_TRUE(holds(run, " OBSERVATION  LOWERBOUND    UPPERBOUND     INTEGRAL\n"));
  EXPECT_TRUE(holds(run, "          1   0.0000000      1.0000000      1.7182818\n"));
  EXPECT_TRUE(holds(run, "          3   0.0000000      3.0000000      19.085537\n"));
  EXPECT_TRUE(holds(run, " ...ERROR..INCONSISTENT INTEGRATION RANGE"));
  run = run_commands("SAMPLE 1 2\nDERIVATIVE NONE D=1\n");
  EXPECT_TRUE(holds(run, " ...ERROR..NONE DOES NOT EXIST"));
  run = run_commands("SAMPLE 1 1\nINTEGRATE T 0 1 G=1/SQRT(T+1E-12)\nINTEGRATE T 0 B G=T\n");
  EXPECT_TRUE(holds(run, " ...ERROR..TOO MANY INTEGRATION STEPS IN OBS.    1"));
  EXPECT_TRUE(holds(run, " ...ERROR..UNDEFINED VARIABLE..B"));
  run = run_commands("SAMPLE 1 1\nINTEGRATE T 0 1 G=LOG(T)\nPRINT G\n");
  EXPECT_TRUE(holds(run, " ...WARNING..OBSERVATION    1 IS ASSIGNED MISSING CODE=-99999."));
}

TEST(TransCommands, DerivativeIsAForwardDifference) {
  FormulaRoom room;
  OSCOM.OWARN = false;
  room.sample(1, 3);
  room.series("X", {1, 2, 3});
  ASSERT_TRUE(room.genr("D=X*X"));
  DATCOM.MBEG = 1;
  DATCOM.MEND = 3;
  GenrJob job;
  job.text = "D=X*X";
  job.IKOD = K_DERIVATI;
  TransJob trans;
  trans.IKOD = K_DERIVATI;
  trans.variable = VARNUM(room.ws, "X");
  ASSERT_TRUE(run_formula(room.ws, job, trans));
  const double step = 2.0 * 1e-06;
  Values want;
  for (const double x : {1.0, 2.0, 3.0}) {
    want.push_back(((x + step) * (x + step) - x * x) / step);
  }
  EXPECT_EQ(room.values("D"), want);
  EXPECT_EQ(room.values("X"), (Values{1, 2, 3}));
}

}  // namespace
}  // namespace korvel
