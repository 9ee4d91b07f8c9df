// Values and derivatives by blocks against the same list run row by row.

#include "expr/gradient_blocks.h"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "expr/genrdf.h"
#include "expr/operators.h"
#include "expr/trans_lanes.h"
#include "expr/vector_functions.h"
#include "formula_fixture.h"
#include "stats/probability.h"

namespace korvel {
namespace {

using korvel_test::FormulaRoom;

// Operands 1 and 2 are coefficients P and Q, 3 and 4 the columns X and Z.
class Blocks : public ::testing::Test {
 protected:
  Blocks() {
    for (const char* name : {"P", "Q", "X", "Z"}) room.series(name, {1.0, 2.0});
    words.resize(static_cast<std::size_t>(formula_words() + DerivativeRoom::words(2)));
    const auto n = static_cast<std::size_t>(formula_words());
    formula = carve_formula(std::span(words).first(n));
    derivatives = DerivativeRoom::carve(std::span(words).subspan(n), 2);
  }
  void data(std::size_t rows, double from = 0.5, double to = 2.0) {
    std::mt19937 draw(7);
    std::uniform_real_distribution<double> u(from, to);
    x.resize(rows);
    z.resize(rows);
    for (std::size_t i = 0; i < rows; ++i) x[i] = u(draw), z[i] = u(draw);
  }
  bool compile(const std::string& text) {
    OCOM.ODONT = OSCOM.OSCAN = false;
    line = text;
    GenrJob job;
    job.text = line;
    job.IKOD = K_TEST;
    job.listed = 4;
    for (int k = 0; k < 4; ++k) formula.list[static_cast<std::size_t>(k)] = k + 1;
    if (!GENR(room.ws, job, formula)) return false;
    formula.operand(1) = 0.7;
    formula.operand(2) = 1.3;
    return true;
  }
  // The list of value and derivatives with respect to P and Q.
  void differentiate() {
    const std::int32_t variables[] = {1, 2};
    const GradientList list =
        gradient_list(formula.list_of_quads(), variables, derivatives, derivative);
    ASSERT_GT(list.count, 0) << line;
    code = derivatives.code.first(static_cast<std::size_t>(list.count));
    value = list.value;
  }
  // The statement alone.
  void plain() {
    code = formula.list_of_quads();
    for (const Quad& q : code) {
      if (q.code != OP_END) value = q.result;
    }
  }
  BlockFormula block_formula(bool gradient) {
    columns = {nullptr, nullptr, x.data(), z.data()};
    return {.code = code,
            .operands = formula.operands,
            .columns = columns,
            .observations = {},
            .rows = static_cast<std::int64_t>(x.size()),
            .value = value,
            .derivative = gradient ? std::span<const std::int32_t>(derivative)
                                   : std::span<const std::int32_t>()};
  }
  // Plans and evaluates; f and J are filled.
  bool evaluate(bool gradient, FaultListener listener = {}) {
    const BlockFormula job = block_formula(gradient);
    plan_words.assign(static_cast<std::size_t>(GradientBlocks::plan_words(code.size(), 2)), 0.0);
    blocks.plan(job, plan_words);
    work.resize(static_cast<std::size_t>(blocks.work_words()));
    f.assign(x.size(), -777.0);
    J.assign(gradient ? 2 * x.size() : 0, -777.0);
    return blocks.evaluate(f, J, x.size(), work, listener);
  }

  FormulaRoom room{4000, 1000};
  std::vector<double> words, x, z, plan_words, work, f, J;
  std::vector<const double*> columns;
  Formula formula;
  DerivativeRoom derivatives;
  std::span<const Quad> code;
  std::array<std::int32_t, 2> derivative{};
  int value = 0;
  GradientBlocks blocks;
  std::string line;
};

struct Told {
  std::vector<std::pair<int, std::int64_t>> list;
  FaultListener listener() {
    return {[](void* self, int op, std::int64_t row) {
              static_cast<Told*>(self)->list.emplace_back(op, row);
            },
            this};
  }
};

bool same_bits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

TEST_F(Blocks, GiveWhatTheListGivesRowByRow) {
  const char* const texts[] = {
      "P*EXP(Q*X)",
      "X*P",
      "P",
      "X",
      "7",
      "P*X+Q*Z",
      "P*(1-EXP(-Q*X))/(Z+P)",
      "LOG(P*X)/(1+Q*Z)+P**2",
      "EXP(P*Q)*X+LOG(Q)",
      "X**P+Z**Q+X**2+Z**(-3)+X**0.5+Q**X",
      "(P+X)**70",
      "ABS(P-X)*EXP(900*Q*X)",
      "P*X/(Q-Q)",
      "LOG(X-1)*P+Q/X",
      "X**2*P+(X-1)**P+0*Q",
      "((P*X+Q)/(Z+P*X))**2+EXP(-((X-P)*(X-P))/(2*Q*Q))/(Q*Z+P/(X+Q/(Z+P)))",
  };
  for (const std::size_t rows : {std::size_t{1}, std::size_t{7}, std::size_t{515}}) {
    data(rows);
    x[0] = 0.0;
    z[rows / 2] = -0.0;
    for (const char* text : texts) {
      ASSERT_TRUE(compile(text)) << text;
      differentiate();
      Told told;
      const bool clean = evaluate(true, told.listener());
      const std::vector<double> with_gradient = f;
      const std::vector<double> slopes = J;
      bool rows_clean = true;
      for (std::size_t i = 0; i < rows; ++i) {
        formula.operand(3) = x[i];
        formula.operand(4) = z[i];
        run_point(code, formula.operands);
        EXPECT_TRUE(same_bits(with_gradient[i], formula.operand(value))) << text << " row " << i;
        for (std::size_t k = 0; k < 2; ++k) {
          const double d = derivative[k] == 0 ? 0.0 : formula.operand(derivative[k]);
          EXPECT_TRUE(same_bits(slopes[k * rows + i], d)) << text << " row " << i << " " << k;
        }
        rows_clean &= run_point(formula.list_of_quads(), formula.operands).fault == 0;
      }
      EXPECT_EQ(clean, rows_clean) << text;
      EXPECT_EQ(told.list.empty(), clean) << text;
      // The value alone: by the same plan, and by a plan of the statement.
      f.assign(rows, -777.0);
      EXPECT_EQ(blocks.evaluate(f, {}, 0, work), clean) << text;
      EXPECT_EQ(f, with_gradient) << text;
      plain();
      EXPECT_EQ(evaluate(false), clean) << text;
      EXPECT_EQ(f, with_gradient) << text;
    }
  }
}

TEST_F(Blocks, FollowNewCoefficientsAndNewData) {
  data(300);
  ASSERT_TRUE(compile("EXP(P*Q)*X**P"));
  differentiate();
  evaluate(true);
  formula.operand(1) = 2.0;  // the exponent becomes a whole number
  x[17] = 3.0;
  EXPECT_TRUE(blocks.evaluate(f, J, x.size(), work));
  EXPECT_TRUE(same_bits(f[17], EXP(2.0 * 1.3) * 9.0));
  EXPECT_NEAR(J[17], f[17] * (1.3 + std::log(3.0)), 1e-13 * f[17]);
  EXPECT_NEAR(J[300 + 17], 2.0 * f[17], 1e-13 * f[17]);
}

TEST_F(Blocks, FunctionsWithoutDerivativesRunToo) {
  data(300, 0.1, 0.9);
  struct Case {
    const char* text;
    double (*of)(double x, double z);
  };
  const Case cases[] = {
      {"SQRT(X)", [](double a, double) { return std::sqrt(a); }},
      {"SIN(X*Z)", [](double a, double b) { return std::sin(a * b); }},
      {"SIN(X,-1)", [](double a, double) { return std::asin(a); }},
      {"NCDF(X-Z)", [](double a, double b) { return NCDF(a - b); }},
      {"LGAM(X)+Z", [](double a, double b) { return log_gamma(a) + b; }},
      {"INT(5*X)", [](double a, double) { return std::trunc(5.0 * a); }},
      {"NCDF(P)*X", [](double a, double) { return NCDF(0.7) * a; }},
      {"MISS(X)+1", [](double, double) { return 1.0; }},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(compile(c.text)) << c.text;
    plain();
    EXPECT_TRUE(evaluate(false)) << c.text;
    for (std::size_t i = 0; i < x.size(); ++i) {
      EXPECT_TRUE(same_bits(f[i], c.of(x[i], z[i]))) << c.text << " row " << i;
    }
  }
  // TIME counts observations, which need not be the rows.
  ASSERT_TRUE(compile("TIME(0)*X"));
  plain();
  evaluate(false);
  EXPECT_EQ(f[299], 300.0 * x[299]);
  std::vector<std::int32_t> observations(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) observations[i] = static_cast<std::int32_t>(2 * i + 5);
  BlockFormula job = block_formula(false);
  job.observations = observations;
  blocks.plan(job, plan_words);
  blocks.evaluate(f, {}, 0, work);
  EXPECT_EQ(f[299], 603.0 * x[299]);
}

TEST_F(Blocks, FaultsAreToldOnceForEachRowInOrder) {
  using List = std::vector<std::pair<int, std::int64_t>>;
  data(600);
  x[3] = -1.0;
  x[400] = 0.0;
  struct Case {
    const char* text;
    List told;
  };
  const Case cases[] = {
      {"P+LOG(X)", {{OP_LOG, 3}, {OP_LOG, 400}}},
      {"P+SQRT(X)*0", {{OP_SQRT, 3}}},
      {"P/X", {{OP_DIV, 400}}},
      {"X**0.5+P", {{OP_POWER, 3}}},
      {"X**(-1)+P", {{OP_POWER, 400}}},
      {"LGAM(X)", {{OP_LGAM, 3}, {OP_LGAM, 400}}},
      {"SIN(X-1.5,-1)", {{OP_SIN, 3}, {OP_SIN, 400}}},
      {"LOG(P-P)+X", {{OP_LOG, 0}}},
      {"X.GT.1", {{OP_GT, 0}}},
      {"LAG(X)", {{OP_LAG, 0}}},
  };
  for (const Case& c : cases) {
    ASSERT_TRUE(compile(c.text)) << c.text;
    plain();
    Told told;
    EXPECT_FALSE(evaluate(false, told.listener())) << c.text;
    EXPECT_EQ(told.list, c.told) << c.text;
  }
  // The derivative of X**P takes LOG(X): silent, and 0 there.
  ASSERT_TRUE(compile("Z**P"));
  z[5] = 0.0;
  differentiate();
  Told told;
  EXPECT_TRUE(evaluate(true, told.listener()));
  EXPECT_TRUE(told.list.empty());
  EXPECT_EQ(J[5], 0.0);
}

TEST_F(Blocks, SectionsOnThreadsGiveTheSame) {
  data(50000);
  x[33333] = -1.0;
  x[12] = 0.0;
  ASSERT_TRUE(compile("P*LOG(X)+Z**Q"));
  differentiate();
  Told told;
  EXPECT_FALSE(evaluate(true, told.listener()));
  const std::vector<std::pair<int, std::int64_t>> faults = {{OP_LOG, 12}, {OP_LOG, 33333}};
  EXPECT_EQ(told.list, faults);
  for (std::size_t i = 0; i < x.size(); i += 997) {
    formula.operand(3) = x[i];
    formula.operand(4) = z[i];
    run_point(code, formula.operands);
    EXPECT_TRUE(same_bits(f[i], formula.operand(value))) << i;
    EXPECT_TRUE(same_bits(J[50000 + i], formula.operand(derivative[1]))) << i;
  }
}

// The time of y = P*exp(Q*x) with both derivatives in passes of exp: KORVEL_TIMES=1 prints it.
TEST_F(Blocks, CostLittleMoreThanTheirFunctions) {
  if (std::getenv("KORVEL_TIMES") == nullptr) GTEST_SKIP();
  data(100000);
  ASSERT_TRUE(compile("P*EXP(Q*X)"));
  differentiate();
  evaluate(true);
  const auto best_of = [](auto&& body) {
    double best = 1e9;
    for (int i = 0; i < 200; ++i) {
      const auto start = std::chrono::steady_clock::now();
      body();
      const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
      best = std::min(best, taken.count());
    }
    return best * 1e6;
  };
  const double whole = best_of([&] { blocks.evaluate(f, J, x.size(), work); });
  const double value_only = best_of([&] { blocks.evaluate(f, {}, 0, work); });
  const double pass = best_of([&] { lane_table().exp(f.data(), x.data(), nullptr, x.size()); });
  std::printf("value and gradient %.0f us, value %.0f us, one pass of exp %.0f us\n", whole,
              value_only, pass);
}

}  // namespace
}  // namespace korvel
