// Symbolic derivatives: the rules by hand, numeric derivatives of random expressions, limits.

#include "expr/genrdf.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "expr/operators.h"
#include "formula_fixture.h"

namespace korvel {
namespace {

using korvel_test::FormulaRoom;

// A compiled expression in variables A, B, C and the room for its derivatives.
class Derivatives : public ::testing::Test {
 protected:
  Derivatives() {
    for (const char* name : {"A", "B", "C"}) room.series(name, {1.0, 2.0});
    room.sample(1, 2);
    words.resize(static_cast<std::size_t>(formula_words() + DerivativeRoom::words(3)));
    const auto n = static_cast<std::size_t>(formula_words());
    formula = carve_formula(std::span(words).first(n));
    derivative = DerivativeRoom::carve(std::span(words).subspan(n), 3);
    // One pair list for a single derivative.
    single = derivative;
    single.used = derivative.used.first(1);
  }
  // Compiles `text` with A, B, C as operands 1, 2, 3.
  bool compile(const std::string& text) {
    OCOM.ODONT = OSCOM.OSCAN = false;
    line = text;
    GenrJob job;
    job.text = line;
    job.IKOD = K_TEST;
    job.listed = 3;
    for (int k = 0; k < 3; ++k) formula.list[static_cast<std::size_t>(k)] = k + 1;
    return GENR(room.ws, job, formula);
  }
  void set(double a, double b, double c) {
    const double values[3] = {a, b, c};
    std::copy(values, values + 3, formula.operands.begin());
  }
  double value() { return run_point(formula.list_of_quads(), formula.operands).value; }
  PointValue slope(int k) {
    const int KCON = GENCOM.KCON;
    const int n = GENRDF(formula.list_of_quads(), k, single, formula.operands);
    GENCOM.KCON = KCON;
    EXPECT_GT(n, 0) << line;
    return run_point(single.code.first(static_cast<std::size_t>(n)), formula.operands);
  }

  FormulaRoom room{4000, 1000};
  std::vector<double> words;
  Formula formula;
  DerivativeRoom derivative, single;
  std::string line;
};

// The list of a derivative, an operation a letter.
std::string shape(std::span<const Quad> code) {
  std::string text;
  for (const Quad& q : code) text += std::string(operator_row(q.code).dump) + " ";
  return text;
}

TEST_F(Derivatives, ListsAreWrittenByTheRules) {
  struct Case {
    const char* text;
    const char* list;  // what is left of it, derivative with respect to A
    double slope;      // at A = 3, B = 2, C = 5
  };
  const Case cases[] = {
      {"A+B", "= ", 1.0},
      {"B-A", "- ", -1.0},
      {"A*A", "MULT MULT ADD ", 6.0},
      {"A/B", "DIV ", 0.5},
      {"B/A", "- MULT DIV DIV ", -2.0 / 9.0},
      {"A**2", "** MULT DIV MULT ", 6.0},
      {"2**A", "** LOG MULT MULT ", 8.0 * std::log(2.0)},
      {"A**A", "** MULT DIV LOG MULT ADD MULT ", 27.0 * (1.0 + std::log(3.0))},
      {"EXP(A)", "EXP MULT ", std::exp(3.0)},
      {"LOG(A)", "DIV ", 1.0 / 3.0},
      {"ABS(-A)", "- - ABS DIV MULT ", 1.0},
      {"B*C", "SUB ", 0.0},
      {"7", "SUB ", 0.0},
      {"A", "= ", 1.0},
      {"A=B", "= ", 1.0},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(compile(c.text)) << c.text;
    set(3.0, 2.0, 5.0);
    value();
    const PointValue d = slope(1);
    const int n = GENRDF(formula.list_of_quads(), 1, single);
    EXPECT_EQ(shape(single.code.first(static_cast<std::size_t>(n))), c.list) << c.text;
    EXPECT_NEAR(d.value, c.slope, 1e-14 * std::fabs(c.slope)) << c.text;
    EXPECT_EQ(d.fault, 0) << c.text;
  }
  // A step without a left operand is marked as such.
  ASSERT_TRUE(compile("A+B"));
  GENRDF(formula.list_of_quads(), 1, single);
  EXPECT_EQ(single.code[0].left, -999);
  EXPECT_EQ(single.code[0].right, operand_one());
}

TEST_F(Derivatives, ZeroIsGoodWhereTheRuleDividesByIt) {
  set(0.0, 0.0, 0.0);
  for (const char* text : {"A**2", "ABS(A)", "A**0.5"}) {
    ASSERT_TRUE(compile(text));
    set(0.0, 0.0, 0.0);
    value();
    const PointValue d = slope(1);
    EXPECT_EQ(d.value, 0.0) << text;
    EXPECT_EQ(d.fault, 0) << text;
  }
  ASSERT_TRUE(compile("B+A**1"));  // the limit of the rule is not 0 here
  set(0.0, 1.0, 1.0);
  value();
  EXPECT_EQ(slope(1).value, 1.0);
  ASSERT_TRUE(compile("LOG(A)"));
  set(0.0, 0.0, 0.0);
  EXPECT_EQ(slope(1).fault, OP_DIV);
  EXPECT_EQ(run_point(formula.list_of_quads(), formula.operands).fault, OP_LOG);
}

// A random expression of the differentiable operations that is defined for A, B, C in 0.5..2: every
// part is positive, so powers and logarithms are too.
std::string random_expression(std::mt19937& draw, int depth) {
  const auto pick = [&](int n) { return static_cast<int>(draw() % static_cast<unsigned>(n)); };
  if (depth == 0) {
    const char* leaves[] = {"A", "B", "C", "1.5", "2", "A", "B"};
    return leaves[pick(7)];
  }
  const std::string x = random_expression(draw, depth - 1);
  const std::string y = random_expression(draw, depth - 1 - (depth > 1 ? pick(2) : 0));
  switch (pick(9)) {
    case 0:
      return "(" + x + "+" + y + ")";
    case 1:
      return "ABS(" + x + "-" + y + "*0.37)";
    case 2:
      return "(" + x + "*" + y + ")";
    case 3:
      return "(" + x + "/" + y + ")";
    case 4:
      return "((0.2+" + x + ")**(0.1*" + y + "))";
    case 5:
      return "EXP(-(" + x + ")/(1+" + y + "))";
    case 6:
      return "LOG(1+" + x + ")";
    case 7:
      return "(" + x + "**2+0.01)";
    default:
      return "(0.5-(-(" + x + ")))";
  }
}

TEST_F(Derivatives, AgreeWithNumericOnesOnRandomExpressions) {
  std::mt19937 draw(20240911);
  std::uniform_real_distribution<double> point(0.5, 2.0);
  int compared = 0;
  for (int trial = 0; trial < 400; ++trial) {
    ASSERT_TRUE(compile(random_expression(draw, 1 + trial % 5))) << line;
    double x[3] = {point(draw), point(draw), point(draw)};
    const std::int32_t variables[3] = {1, 2, 3};
    std::int32_t places[3];
    const int KCON = GENCOM.KCON;
    const GradientList all = gradient_list(formula.list_of_quads(), variables, derivative, places);
    GENCOM.KCON = KCON;
    ASSERT_GT(all.count, 0) << line;
    set(x[0], x[1], x[2]);
    run_point(derivative.code.first(static_cast<std::size_t>(all.count)), formula.operands);
    const double f = formula.operand(all.value);
    double together[3];
    for (int k = 0; k < 3; ++k) together[k] = places[k] == 0 ? 0.0 : formula.operand(places[k]);
    EXPECT_EQ(f, value()) << line;
    for (int k = 0; k < 3; ++k) {
      // Richardson's extrapolation of central differences: error of order h^4.
      const auto central = [&](double h) {
        double t[3] = {x[0], x[1], x[2]};
        t[k] = x[k] + h;
        set(t[0], t[1], t[2]);
        const double above = value();
        t[k] = x[k] - h;
        set(t[0], t[1], t[2]);
        return (above - value()) / (2.0 * h);
      };
      const double h = 1e-3;
      const double wide = central(h);
      const double numeric = (4.0 * central(h / 2.0) - wide) / 3.0;
      set(x[0], x[1], x[2]);
      const double exact = slope(k + 1).value;
      EXPECT_NEAR(exact, together[k], 1e-13 * std::fabs(exact)) << line;
      // Next to a kink of ABS, or where the function is steep, the numeric one is no measure.
      const double doubt = std::fabs(numeric - wide);
      if (!std::isfinite(exact) || doubt > 1e-4 * (1.0 + std::fabs(wide))) continue;
      EXPECT_NEAR(exact, numeric, 1e-6 * (1.0 + std::fabs(exact)) + doubt) << line << " by " << k;
      ++compared;
    }
  }
  EXPECT_GT(compared, 1000);
}

// A list runs over columns as the compiled one does, by blocks too: there a temporary that several
// steps read must keep its buffer.
TEST_F(Derivatives, RunOverColumnsInBlocks) {
  constexpr int N = 1300;
  std::vector<double> a(N), b(N);
  for (int i = 0; i < N; ++i) {
    a[static_cast<std::size_t>(i)] = 0.5 + 0.001 * i;
    b[static_cast<std::size_t>(i)] = 2.0 - 0.001 * i;
  }
  room.series("A", a);
  room.series("B", b);
  room.series("D", std::vector<double>(N));
  room.sample(1, N);
  for (const TransPath path : {TransPath::automatic, TransPath::scalar}) {
    OCOM.ODONT = false;
    DATCOM.MBEG = 1;
    DATCOM.MEND = N;
    GenrJob job;
    job.text = "D=EXP(A*B)**2/(A+EXP(A*B))";
    job.IKOD = K_GENR;
    ASSERT_TRUE(GENR(room.ws, job, formula));
    const auto quads = formula.list_of_quads();
    const Quad end = quads.back();
    int A = 0;
    for (int k = 1; k <= GENCOM.LHS; ++k) {
      if (formula.entry(k) == VARNUM(room.ws, "A")) A = k;
    }
    const int n = GENRDF(quads, A, single);
    ASSERT_GT(n, 0);
    std::copy_n(single.code.begin(), n, formula.code.begin());
    formula.code[static_cast<std::size_t>(n)] = end;
    GENCOM.MGE = 4 * (n + 1);
    TransJob run;
    run.IKOD = K_GENR;
    run.path = path;
    ASSERT_TRUE(TRANS(room.ws, formula, run));
    const std::vector<double> d = room.values("D");
    for (std::size_t i = 0; i < N; i += 97) {
      const double e = std::exp(a[i] * b[i]);
      const double expected =
          (2.0 * b[i] * e * e * (a[i] + e) - e * e * (1.0 + b[i] * e)) / ((a[i] + e) * (a[i] + e));
      EXPECT_NEAR(d[i], expected, 1e-12 * std::fabs(expected)) << i;
    }
  }
}

TEST_F(Derivatives, RefuseWhatHasNoRule) {
  for (const char* text : {"SQRT(A)", "INT(B)", "MAX(A,B)", "A.GT.B", "A(1)", "LAG(A)"}) {
    ASSERT_TRUE(compile(text)) << text;
    EXPECT_EQ(GENRDF(formula.list_of_quads(), 1, single), 0) << text;
    EXPECT_TRUE(OCOM.ODONT);
    EXPECT_NE(room.printed().find(" ...ERROR..ILLEGAL FUNCTION IN AN EQ STATEMENTS"),
              std::string::npos)
        << text;
  }
}

// MAXVAR 1000 leaves 600 temporaries: a list that fits is differentiated, a longer one refused, and
// nothing is written beyond the table.
TEST_F(Derivatives, StopAtTheLastTemporary) {
  std::string text = "A";
  int longest = 0;
  for (int n = 1; n < 300; ++n) {
    text += "*A";
    ASSERT_TRUE(compile(text));
    const int KCON = GENCOM.KCON;
    const int count = GENRDF(formula.list_of_quads(), 1, single);
    EXPECT_LE(GENCOM.KCON, last_temporary());
    GENCOM.KCON = KCON;
    if (count == 0) {
      EXPECT_NE(room.printed().find(" ...ERROR..INSUFFICIENT SPACE..USE SIZE COMMAND"),
                std::string::npos);
      break;
    }
    longest = n;
  }
  EXPECT_EQ(longest, 148);  // n products and 3 steps for each, 7 temporaries kept free
}

}  // namespace
}  // namespace korvel
