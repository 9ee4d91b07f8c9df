// MATRIX statements: what a failure leaves behind, views, widths, room.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "expr/formula_fixture.h"
#include "expr/matrix.h"

namespace korvel {
namespace {

using Reals = std::vector<double>;

struct MatrixRoom : korvel_test::FormulaRoom {
  using FormulaRoom::FormulaRoom;
  bool matrix(std::string_view text) {
    OCOM.ODONT = OSCOM.OSCAN = false;
    GenrJob job;
    job.text = text;
    job.IKOD = K_MATRIX;
    const bool good = run_matrix(ws, job);
    EXPECT_EQ(ADDCOM.SCRTOP, ADDCOM.MAXADD) << text;
    return good;
  }
  // Columns of an expression, stacked.
  Reals value(std::string_view expression) {
    EXPECT_TRUE(matrix("RESULT=" + std::string(expression))) << expression << printed();
    return values("RESULT");
  }
};

// Everything that the user has: the words in use, the table, the generator.
struct Everything {
  Reals words;
  int NVARS = DATCOM.NVARS, NDL = DATCOM.NDL;
  RanCom random = RANCOM;
  explicit Everything(Workspace ws) : words(&ws.DATA(1), &ws.DATA(1) + ADDCOM.LASADD) {}
  bool operator==(const Everything& other) const {
    return words == other.words && NVARS == other.NVARS && NDL == other.NDL &&
           std::memcmp(&random, &other.random, sizeof random) == 0;  // NOLINT: bit for bit
  }
};

TEST(Matrix, AFailedStatementChangesNothing) {
  MatrixRoom room;
  OSCOM.ORANST = true;
  ASSERT_TRUE(room.matrix("A=VEC(1|2|3|4|5|6,2)"));
  ASSERT_TRUE(room.matrix("S=SYM(IDEN(2))"));
  ASSERT_TRUE(room.matrix("T=TRI(IDEN(2))"));
  const Everything before(room.ws);
  for (const char* text : {"A=A*A",
                           "NEW=INV(A)",
                           "NEW=INV(IDEN(3)*0)",
                           "A=NOR(A)*INV(0)",
                           "NEW=VEC(A,4)",
                           "A=A(3,1)",
                           "A=A(0)",
                           "A(3,1)=1",
                           "A(2,2)=IDEN(2)",
                           "A(7)=1",
                           "A:4=1",
                           "A:1=1|2",
                           "NEW(1,1)=5",
                           "NEW:2=5",
                           "S(1,1)=IDEN(2)",
                           "S:1=3",
                           "T(1,2)=1",
                           "$T1=A",
                           "A=IDEN(1E6)",
                           "A=IDEN(1E12)",
                           "A=IDEN(0-3)",
                           "A=IDEN(500)@IDEN(500)@IDEN(500)",
                           "NEW=A|IDEN(3)",
                           "A=MAX(1,2,3)",
                           "A=(1,2)",
                           "A=(1,2)+1",
                           "A=INV(A,A)",
                           "A=LAG(A)",
                           "A=A(-1)",
                           "A=SUM(A)",
                           "A=SAMP(A)",
                           "A=DATA(A,1)",
                           "A=RECODE(A,A)",
                           "A=CHOL(0-IDEN(2))",
                           "A=A;A",
                           "A=A**A",
                           "A=DIAG(A)",
                           "A=DIAG(IDEN(2),2)",
                           "A=A:4",
                           "A=S:3",
                           "A=A'+A",
                           "A=NOSUCH",
                           "A=A+",
                           "A=(A",
                           "A=A)",
                           "A=",
                           "=A",
                           "A=A'2"}) {
    EXPECT_FALSE(room.matrix(text)) << text;
    EXPECT_TRUE(Everything(room.ws) == before) << text;
    EXPECT_NE(room.printed().find("...ERROR.."), std::string::npos) << text;
  }
}

// A matrix may be its own target in every way.
TEST(Matrix, ItsOwnTarget) {
  const std::string setting = "A=VEC(1|2|3|4,2)";
  const struct {
    const char* statement;
    Reals wanted;
  } cases[] = {{"A=A", {1, 2, 3, 4}},
               {"A=A'", {1, 3, 2, 4}},
               {"A=A''", {1, 2, 3, 4}},
               {"A=A*A", {7, 10, 15, 22}},
               {"A=A'A", {5, 11, 11, 25}},
               {"A=A'*A'", {7, 15, 10, 22}},
               {"A=A+A'", {2, 5, 5, 8}},
               {"A=A'+A'", {2, 6, 4, 8}},
               {"A=-(A')", {-1, -3, -2, -4}},
               {"A=A:2", {3, 4}},
               {"A=VEC(A',1)", {1, 3, 2, 4}},
               {"A=A|A", {1, 2, 3, 4, 1, 2, 3, 4}},
               {"A=A(2,1)", {2}},
               {"A=SYM(A)", {1, 2, 4}},
               {"A(1,1)=A'", {1, 3, 2, 4}},
               {"A(1,2)=A:1", {1, 2, 1, 2}},
               {"A(2)=A(3)", {1, 3, 3, 4}},
               {"A:2=9", {1, 2, 9, 9}},
               {"A(2,1)=7|8", {1, 7, 3, 8}}};
  MatrixRoom room;
  for (const auto& c : cases) {
    ASSERT_TRUE(room.matrix(setting));
    EXPECT_TRUE(room.matrix(c.statement)) << room.printed();
    EXPECT_EQ(room.values("A"), c.wanted) << c.statement;
  }
}

TEST(Matrix, PackedOperandsAndKinds) {
  MatrixRoom room;
  ASSERT_TRUE(room.matrix("F=VEC(1|2|3|4|5|6|7|8|9,3)"));
  ASSERT_TRUE(room.matrix("S=SYM(F)"));
  ASSERT_TRUE(room.matrix("T=TRI(F)"));
  EXPECT_EQ(room.values("S"), (Reals{1, 2, 5, 3, 6, 9}));
  EXPECT_EQ(room.value("S+0"), (Reals{1, 2, 3, 2, 5, 6, 3, 6, 9}));
  EXPECT_EQ(room.value("T'"), (Reals{1, 0, 0, 2, 5, 0, 3, 6, 9}));
  EXPECT_EQ(room.value("S:2"), (Reals{2, 5, 6}));
  EXPECT_EQ(room.value("S(1,3)|T(1,3)|T(3,1)"), (Reals{3, 0, 3}));
  EXPECT_EQ(room.value("TRI(S)"), room.values("S"));
  const auto type = [&](const char* name) { return INFO(room.ws, VARNUM(room.ws, name)).ITYPE; };
  ASSERT_TRUE(room.matrix("U=T"));
  EXPECT_EQ(type("U"), TRIANGLE);
  ASSERT_TRUE(room.matrix("S(1,3)=8"));
  EXPECT_EQ(room.values("S"), (Reals{1, 2, 5, 8, 6, 9}));
  ASSERT_TRUE(room.matrix("S=S*2"));
  EXPECT_EQ(type("S"), MATRIX2);
  ASSERT_TRUE(room.matrix("T=SYM(4)"));
  EXPECT_EQ(type("T"), SERIES);  // 1 by 1
  room.series("X", {1, 2, 3});
  ASSERT_TRUE(room.matrix("X=X*2"));
  EXPECT_EQ(type("X"), SERIES);  // a column that was a series stays one
  ASSERT_TRUE(room.matrix("X=X|X"));
  EXPECT_EQ(type("X"), MATRIX2);
  EXPECT_EQ(temporary(temporary_place("COLS")), 2.0);
}

TEST(Matrix, Functions) {
  // R 4.2: X <- matrix(c(1,2,3,4,5,6,7,8,10,1,2,3), 4, byrow = TRUE); s <- svd(X);
  // s$v %*% (t(s$u) / s$d) has this first row.
  MatrixRoom room(40000);
  ASSERT_TRUE(room.matrix("X=VEC(1|2|3|4|5|6|7|8|10|1|2|3,3)'"));
  const Reals g = room.value("SVD(X)");
  const double row[] = {-1.0 / 3, -4.0 / 3, 1.0, -1.0 / 3};
  for (std::size_t j = 0; j < 4; ++j) EXPECT_NEAR(g[3 * j], row[j], 1e-13);
  const Reals wide = room.value("SVD(X')'");
  for (std::size_t i = 0; i < g.size(); ++i) EXPECT_NEAR(wide[i], g[i], 1e-13);
  EXPECT_EQ(room.value("RANK(X)"), Reals{3});
  EXPECT_EQ(room.value("RANK(X|X|X:1)"), Reals{3});
  EXPECT_EQ(room.value("RANK(IDEN(3)*0)"), Reals{0});
  EXPECT_EQ(room.value("CHOL(VEC(4|2|2|5,2))"), (Reals{2, 1, 0, 2}));
  EXPECT_EQ(room.value("FACT(VEC(4|2|2|5,2))"), (Reals{4, 0.5, 0, 4}));
  EXPECT_EQ(room.value("DET(7)|TRACE(7)|DET(IDEN(3)*0)"), (Reals{7, 7, 0}));
  EXPECT_NEAR(room.value("EIGVAL(VEC(2|1|1|2,2))")[1], 3.0, 1e-15);
  EXPECT_EQ(room.value("ABS(EIGVEC(VEC(2|1|1|2,2)))"), (Reals{1, 1, 1, 1}));
  EXPECT_EQ(room.value("(1;2)*VEC(1|2|3|4,2)"), (Reals{1, 4, 3, 8}));  // rows scaled
  EXPECT_EQ(room.value("(1;2)*(3;4)"), (Reals{3, 8}));
  EXPECT_EQ(room.value("(1;2)*(3|4)"), (Reals{3, 6, 4, 8}));
  EXPECT_EQ(room.value("MAX(1|5,3)"), (Reals{3, 5}));
  EXPECT_EQ(room.value("SIN(1|0,-1)"), (Reals{std::asin(1.0), 0}));
  EXPECT_EQ(room.value("(1|4|0)**0.5"), (Reals{1, 2, 0}));
  EXPECT_EQ(room.value("MOD(7|8,3)|RECODE(2.5)|MISS(3)"), (Reals{1, 2, 3, 0}));
}

// The draws of a matrix are those of single ones, column by column.
TEST(Matrix, DrawsInTheOrderOfTheColumns) {
  MatrixRoom room;
  set_ranseed(77);
  const Reals all = room.value("NOR(IDEN(2)*0+3)");
  OSCOM.ORANST = false;
  Reals single;
  for (int i = 0; i < 4; ++i) single.push_back(room.value("NOR(3)")[0]);
  EXPECT_EQ(all, single);
  OSCOM.ORANST = false;
  const Reals between = room.value("UNI(VEC(10|20,2),VEC(11|22,2))");
  EXPECT_GT(between[0], 10.0);
  EXPECT_LT(between[0], 11.0);
  EXPECT_GT(between[1], 20.0);
}

// Statements of many sizes, long enough for the threads and past all ends of chunks and sections.
TEST(Matrix, ElementsOfLongOperands) {
  MatrixRoom room(20000);
  for (const int n : {1, 511, 512, 513, 32768, 70000}) {
    Reals x(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i) - 5.0;
    room.series("X", x);
    const Reals y = room.value("SQRT(X+5)*2-X**2");
    ASSERT_EQ(y.size(), x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
      ASSERT_EQ(y[i], std::sqrt(x[i] + 5.0) * 2.0 - x[i] * x[i]) << n << ' ' << i;
    }
    room.printed();
    const Reals z = room.value("LOG(X)");
    EXPECT_EQ(z[0], MACOM.XMISS);
    const std::string said = room.printed();  // one line, however many elements
    EXPECT_EQ(said, " ...WARNING..ILLEGAL LOG, VALUE REPLACED BY -99999.\n");
  }
}

// With less and less room a statement fails with the report of memory, or works.
TEST(Matrix, NoRoom) {
  for (const int par : {20, 30, 40, 60, 100, 200}) {
    MatrixRoom room(par, 100);
    const bool made = room.matrix("A=IDEN(20)*2");
    for (const char* text : {"B=INV(A)", "B=EIGVEC(A)", "B=SVD(A|A)", "B=A@(1|2|3)", "B=A'A",
                             "B=CHOL(A)", "B=DET(A)", "A=A|A"}) {
      const Everything before(room.ws);
      if (made && !room.matrix(text)) {
        EXPECT_NE(room.printed().find("INSUFFICIENT MEMORY"), std::string::npos) << text;
        EXPECT_TRUE(Everything(room.ws) == before) << text << par;
      }
    }
  }
}

}  // namespace
}  // namespace korvel
