// The compiler: text to code lists and to errors.

#include "expr/genr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "expr/formula_fixture.h"
#include "expr/operators.h"

namespace korvel {
namespace {

using korvel_test::FormulaRoom;

// Operand numbers with their kind: v1 a place of the list, t1 a temporary, c1 a constant.
std::string operand_name(int k) {
  if (k <= 0) return k == 0 ? "" : std::to_string(k);
  if (k >= first_constant()) return "c" + std::to_string(k - first_constant() + 1);
  if (k > DATCOM.MCON) return "t" + std::to_string(k - DATCOM.MCON);
  return "v" + std::to_string(k);
}

struct Compiled {
  bool good = false;
  std::string code;  // "ADD v2,c1 t1; END v1 0"
  std::string printed;
};

Compiled compile(FormulaRoom& room, const std::string& text, int ikod = K_GENR) {
  Scratch words(room.ws, formula_words());
  const Formula formula = carve_formula(words.words());
  GenrJob job;
  job.text = text;
  job.IKOD = ikod;
  Compiled c;
  room.printed();
  c.good = GENR(room.ws, job, formula);
  c.printed = room.printed();
  if (!c.good) return c;
  for (const Quad& q : formula.list_of_quads()) {
    if (!c.code.empty()) c.code += "; ";
    c.code += q.code == OP_EQUAL ? "=" : std::string(operator_row(q.code).symbol);
    if (q.code == OP_END) {
      c.code = c.code.substr(0, c.code.size() - 1) + "END " + operand_name(q.right) + " " +
               std::to_string(q.result);
      continue;
    }
    c.code += " " + operand_name(q.left) + (q.left > 0 ? "," : "") + operand_name(q.right) + " " +
              operand_name(q.result);
  }
  return c;
}

class Genr : public testing::Test {
 protected:
  Genr() {
    room.series("X", {1, 2, 3});
    room.series("Z", {4, 5, 6});
    room.series("SUM", {7, 8, 9});
    OSCOM.OWARN = false;
  }
  FormulaRoom room;
};

struct CodeCase {
  const char* text;
  const char* code;
  int ikod = K_GENR;
};

TEST_F(Genr, CodeLists) {
  const CodeCase cases[] = {
      {"Y=X", "= v2 t1; END v1 0"},
      {"Y=1", "= c1 t1; END v1 0"},
      {"Y = X + 2 * Z", "* c1,v3 t1; + v2,t1 t2; END v1 0"},
      {"X=X-X-X", "- v1,v1 t1; - t1,v1 t2; END v1 0"},
      {"Y=X**Z**2", "** v2,v3 t1; ** t1,c1 t2; END v1 0"},  // to the left
      {"Y=(X+Z)(2)", "+ v2,v3 t1; * t1,c1 t2; END v1 0"},
      {"Y=+X", "= v2 t1; END v1 0"},
      {"Y=(+X)*-Z", "- v3 t1; * v2,t1 t2; END v1 0"},  // prefixes wait for their operand
      {"Y=X*2E-2", "* v2,c1 t1; END v1 0"},
      {"Y=-X**2", "** v2,c1 t1; - t1 t2; END v1 0"},  // UMINUS is on
      {"Y=2 E X", "E c1,v2 t1; END v1 0"},
      {"Y=2E(X)", "E c1,v2 t1; END v1 0"},
      {"Y=1.EQ.2", "EQ c1,c2 t1; END v1 0"},
      {"Y=1.OR.X", "OR c1,v2 t1; END v1 0"},
      {"Y=1.5.LT.X", "LT c1,v2 t1; END v1 0"},
      {"Y=.NOT.X.GT.1.", "GT v2,c1 t1; NOT t1 t2; END v1 0"},
      {"Y=X(-1)", ", v2,c1 t1; LAG t1 t2; END v1 0"},
      {"Y=LAG(X,1)", ", v2,c1 t1; LAG t1 t2; END v1 0"},
      {"Y=X(+1)", "- c1 t1; , v2,t1 t2; LAG t2 t3; END v1 0"},
      {"Y=X(Z+1)", "+ v3,c1 t1; = v2,t1 t2; END v1 0"},
      {"Y=MAX(X,Z)+1", ", v2,v3 t1; MAX t1 t2; + t2,c1 t3; END v1 0"},
      {"Y=RECODE(X)+1", "+ v2,c1 t1; RECODE t1 t2; END v1 0"},  // the lowest priority
      {"Y=SUM+SUM(X)", "SUM v3 t1; + v2,t1 t2; END v1 0"},      // a name without a bracket
      {"SUM=X", "= v2 t1; END v1 0"},
      {"Y=1+1.0+1E0+10E-1", "+ c1,c1 t1; + t1,c1 t2; + t2,c1 t3; END v1 0"},
      {"2+3", "+ c1,c2 t1; END -2 6"},
      {"X", "= v1 t1; END -2 6"},
      {"X:2=1", "= c1 t1; END v1 0"},
      {"$T1=X", "= v2 t1; END v1 0"},
      {"(X.GT.1)", "GT v1,c1 t1; END -10 2", K_IF},
      {"(X.GT.1)Y=2", "GT v1,c1 t1; END -10 2; = c2 t2; END v2 0", K_IF},
      {"(X) 2", "= v1 t1; END -10 2; = c1 t2; END -2 6", K_IF},
      {"(X).OR.(Z)", "OR v1,v2 t1; END -11 1", K_SKIPIF},
      {"X", "= v1 t1; END -62 5", K_ENDIF},
      {"X=Z", "- v1,v2 t1; END -15 3", K_TEST},
      {"X*2=Z+1", "* v1,c1 t1; + v2,c2 t2; - t1,t2 t3; END -15 3", K_TEST},
  };
  for (const CodeCase& c : cases) {
    const Compiled got = compile(room, c.text, c.ikod);
    EXPECT_TRUE(got.good) << c.text << "\n" << got.printed;
    EXPECT_EQ(got.code, c.code) << c.text;
  }
  EXPECT_EQ(compile(room, "Y=X.EQ..NOT.Z").code, "NOT v3 t1; EQ v2,t1 t2; END v1 0");
}

TEST_F(Genr, MatrixOperators) {
  const Compiled got = compile(room, "Y=X'Z@X|Z", K_MATRIX);
  EXPECT_TRUE(got.good) << got.printed;
  // A variable is its own number; the dummy behind the transpose is operand 1.
  EXPECT_EQ(got.code, "' v1,v1 t1; * t1,v2 t2; @ t2,v1 t3; | t3,v2 t4; END v4 0");
  EXPECT_TRUE(compile(room, "Y(2,3)=INV(X)'", K_MATRIX).good);
  EXPECT_EQ(GENCOM.LHSROW, 2);
  EXPECT_EQ(GENCOM.LHSCOL, 3);
  EXPECT_FALSE(compile(room, "Y=INV(X)").good) << "no function outside MATRIX";
}

TEST_F(Genr, UnaryMinusBeforePower) {
  OSCOM.OUMIN = false;
  EXPECT_EQ(compile(room, "Y=-X**2").code, "- v2 t1; ** t1,c1 t2; END v1 0");
}

struct ErrorCase {
  const char* text;
  int code;
  int marker;  // column of the "$" from 0 in the text, -1 none
  int ikod = K_GENR;
};

TEST_F(Genr, Errors) {
  const ErrorCase cases[] = {
      {"Y=(X", 2001, -1},
      {"Y=X)", 2001, -1},
      {"Y=A+1", 2003, 3},
      {"Y=X**-2", 2003, 5},
      {"Y=2*+3", 2003, 4},
      {"Y=X*", 2003, 4},
      {"Y=", 2003, 2},
      {"", 2003, 0},
      {"Y=2(3)", 2003, 3},
      {"Y=2X", 2003, 3},
      {"Y=(X)Z", 2003, 5},
      {"Y=()", 2003, 3},
      {"Y=X,Z", 2003, 3},
      {"Y=2E+3", 2003, 4},
      {"Y=1E", 2003, 4},
      {"Y=1E999", 2003, 7},
      {"Y=X=Z", 2003, 3},
      {"Y=X.FOO.Z", 2003, 7},
      {"Y=X.EQZ", 2003, 7},
      {"Y=X***Z", 2003, 5},
      {"Y=--X", 2003, 3},
      {"X(1)=2", 2003, 1},
      {"Y=\"ABC", 2003, 6},
      {"Y=$NONE", 2003, 7},
      {"Y=$R2", 2002, -1},
      {"$FOO=1", 2003, 4},
      {"X:0=1", 2003, 1},
      {"Y=X:9999", 2003, 8},
      {"Y=X;Z", 2003, 3},
      {"Y=X&", 2003, 3},
      {"X.GT.1", 2003, 0, K_IF},
      {"(X.GT.1", 2001, -1, K_IF},
      {"(X)IF(Z)Y=1", 2003, 5, K_IF},
      {"(X)PRINT Z", 2003, 8, K_IF},
      {"X=Z=1", 2003, 3, K_TEST},
  };
  for (const ErrorCase& c : cases) {
    OCOM.ODONT = OSCOM.OSCAN = false;
    temporary(temporary_place("ERR")) = 0;
    const Compiled got = compile(room, c.text, c.ikod);
    EXPECT_FALSE(got.good) << c.text << " gives " << got.code;
    EXPECT_EQ(temporary(temporary_place("ERR")), c.code) << c.text << "\n" << got.printed;
    EXPECT_TRUE(OCOM.ODONT);
    EXPECT_EQ(OSCOM.OSCAN, c.ikod != K_TEST) << c.text;
    if (c.marker >= 0) {
      EXPECT_EQ(got.printed, std::string(static_cast<std::size_t>(c.marker), ' ') +
                                 "$\n ...ERROR..SYNTAX ERROR WHEN GENERATING VARIABLE\n")
          << c.text;
    }
  }
}

TEST_F(Genr, MarkerCountsTheEcho) {
  INPCOM.IECHO = 2;
  EXPECT_EQ(compile(room, "Y=A").printed.substr(0, 6), "     $");
  const std::string far(200, ' ');  // wraps at column 130
  const std::string printed = compile(room, far + "Y=A").printed;
  EXPECT_EQ(printed.find('$'), (2 + 200 + 3) % 130);
}

TEST_F(Genr, Limits) {
  // 0.6 * 200 temporaries: 120 operations are taken, 121 are not.
  const auto sum_of = [](int n) {
    std::string text = "Y=X";
    for (int i = 0; i < n; ++i) text += "+X";
    return text;
  };
  EXPECT_TRUE(compile(room, sum_of(120)).good);
  EXPECT_FALSE(compile(room, sum_of(121)).good);
  EXPECT_EQ(temporary(temporary_place("ERR")), 2005);
  // 400 - 321 = 79 constants; the lag takes one slot for its state.
  const auto constants = [](int n, const std::string& end) {
    std::string text = "Y=X";
    for (int i = 0; i < n; ++i) text += "+" + std::to_string(i);
    return text + end;
  };
  EXPECT_TRUE(compile(room, constants(79, "")).good);
  EXPECT_FALSE(compile(room, constants(80, "")).good);
  EXPECT_EQ(temporary(temporary_place("ERR")), 2004);
  EXPECT_TRUE(compile(room, constants(78, "+LAG(X+X)")).good);
  EXPECT_FALSE(compile(room, constants(79, "+LAG(X+X)")).good);
  EXPECT_EQ(temporary(temporary_place("ERR")), 2004);
  // A formula as deep as the line is long.
  const std::string deep(LINMAX / 2 - 10, '(');
  EXPECT_TRUE(compile(room, "Y=" + deep + "X" + std::string(deep.size(), ')')).good);
  EXPECT_FALSE(compile(room, "Y=" + deep + deep + deep).good);
  EXPECT_EQ(temporary(temporary_place("ERR")), 2006);
}

TEST_F(Genr, FullTableOfVariables) {
  while (DATCOM.NVARS < DATCOM.MAXVAR) {
    room.series("V" + std::to_string(DATCOM.NVARS), {1});
  }
  EXPECT_FALSE(compile(room, "NEW=1").good);
  EXPECT_EQ(temporary(temporary_place("ERR")), 2008);
  EXPECT_TRUE(compile(room, "X=1").good);
}

TEST_F(Genr, Notes) {
  OSCOM.OWARN = true;
  EXPECT_EQ(compile(room, "Y=X(-1)").printed,
            " ...NOTE..LAG VALUE IN UNDEFINED OBSERVATIONS SET TO ZERO\n");
  EXPECT_EQ(compile(room, "LONGTARGET=X").printed,
            " ...WARNING..VAR LONGER THAN 8 CHARACTERS TRUNCATED TO:LONGTARG\n");
  temporary(temporary_place("R2")) = 0.5;
  EXPECT_EQ(compile(room, "Y=$R2").printed, " ...NOTE..CURRENT VALUE OF $R2=  0.5000000\n");
}

TEST_F(Genr, CharacterConstantsKeepTheirBits) {
  Scratch words(room.ws, formula_words());
  const Formula formula = carve_formula(words.words());
  GenrJob job;
  job.text = "Y=\"AB\"";
  job.IKOD = K_GENR;
  ASSERT_TRUE(GENR(room.ws, job, formula));
  EXPECT_EQ(0, std::memcmp(&formula.operand(first_constant()), "AB      ", 8));
}

}  // namespace
}  // namespace korvel
