// DIAGNOSE: every printed number against R (tests/data/regress/diagnos_reference.txt, made by
// diagnos_reference.R beside it), kernels against fits made anew, and what can't be tested.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "harness.h"
#include "regress/diagnos.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using Reals = std::vector<double>;

std::string start(const std::string& data) {
  const std::string at = KORVEL_TEST_DATA;
  if (data == "textile") return "SAMPLE 1 17\nREAD(" + at + "/textile.dat) T C I P\n";
  return "SAMPLE 1 40\nREAD(" + at + "/regress/counts.dat) Y X1-X3 W\n";
}

// ---- Against R

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

// The numbers of a line behind its label, words left aside; what the last digit of each stands for.
struct Printed {
  double value = 0, unit = 0;
};
std::vector<Printed> numbers(const std::string& text) {
  std::vector<Printed> found;
  for (std::size_t i = 0; i < text.size();) {
    char* end = nullptr;
    const double v = std::strtod(text.c_str() + i, &end);
    const auto used = static_cast<std::size_t>(end - (text.c_str() + i));
    if (used == 0) {
      while (i < text.size() && text[i] != ' ' && text[i] != '=') ++i;
      if (i < text.size()) ++i;
      continue;
    }
    const std::string field = text.substr(i, used);
    const auto e = field.find('E');
    const std::string digits = field.substr(0, e);
    const auto point = digits.find('.');
    const auto decimals = point == std::string::npos ? 0 : digits.size() - point - 1;
    const int exponent = e == std::string::npos ? 0 : std::atoi(field.c_str() + e + 1);
    found.push_back({v, std::pow(10.0, exponent - static_cast<int>(decimals))});
    i += used;
  }
  return found;
}

// The lines of the listing from the label on are searched forward, so that their order counts too.
TEST(Diagnos, EveryPrintedNumber) {
  std::ifstream file(KORVEL_TEST_DATA "/regress/diagnos_reference.txt");
  Listing out;
  std::size_t at = 0;
  std::string which;
  int checked = 0;
  for (std::string line; std::getline(file, line);) {
    const std::vector<std::string> part = split(line.substr(1), '|');
    if (line[0] == 'C') {
      which = line.substr(1);
      out = run_commands(start(part[0]) + part[1] +
                         "\nDIAGNOS / HANSEN WHITETES\nDIAGNOS / JACKKNIF\nDIAGNOS / RECURSIV\n"
                         "DIAGNOS / RECRESID BACKWARD\nDIAGNOS / CHOWTEST\nDIAGNOS / ACF RESET\n");
      at = 0;
      EXPECT_EQ(out.status, 0) << out.text;
      continue;
    }
    const std::size_t begin = out.text.find("\n" + part[0], at);
    ASSERT_NE(begin, std::string::npos) << which << " " << part[0];
    const std::size_t from = begin + 1 + part[0].size();
    at = out.text.find('\n', from);
    const std::vector<Printed> got = numbers(out.text.substr(from, at - from));
    const std::vector<std::string> truth = split(part[1], ',');
    // The p-value of G-Q, F(6) and the like stand in one line with their text.
    ASSERT_GE(got.size(), truth.size()) << which << " " << out.text.substr(begin, at - begin);
    std::size_t g = 0;
    for (const std::string& t : truth) {
      const double v = std::strtod(t.c_str(), nullptr);
      EXPECT_LE(std::fabs(got[g].value - v), 0.5001 * got[g].unit)
          << which << " " << out.text.substr(begin, at - begin) << " " << t;
      ++g;
      ++checked;
    }
  }
  EXPECT_GT(checked, 1500);
}

// ---- Kernels against fits made anew

// A model with a trend, a level far from zero and a heavy-tailed column; y as the sum with noise.
struct Model {
  static constexpr int K = 4;
  std::int64_t N;
  Reals x, y, e, scale, q, r, b;
  DiagnosModel m;

  explicit Model(int n) : N(n), scale(K, 1.0) {
    std::uint32_t s = 7;
    const auto draw = [&] {
      s = s * 1664525U + 1013904223U;
      return static_cast<double>(s) * 0x1p-31 - 1.0;
    };
    const auto rows = static_cast<std::size_t>(n);
    x.resize(rows * K);
    for (std::size_t t = 0; t < rows; ++t) {
      x[t] = 1.0;
      x[rows + t] = 1900.0 + static_cast<double>(t);
      x[2 * rows + t] = 50.0 + draw();
      x[3 * rows + t] = std::pow(draw(), 3);
      y.push_back(3.0 + 0.1 * x[rows + t] - x[2 * rows + t] + 2.0 * x[3 * rows + t] + draw());
    }
    q.resize(rows * (K + 1));
    r.resize(packed_words(K));
    m = {.N = N,
         .K = K,
         .constant = true,
         .x = x,
         .y = y,
         .e = {},
         .scale = scale,
         .q = Basis(q, N),
         .r = r};
    for (int k = 0; k < K; ++k) {
      std::ranges::copy(m.column(k), m.q.next().begin());
      EXPECT_TRUE(
          m.q.accept(MODEL_DEPENDENT,
                     std::span(r).subspan(packed(k + 1, 1), static_cast<std::size_t>(k + 1))));
    }
    b = fit(all());
    e = y;
    for (std::size_t t = 0; t < rows; ++t) e[t] -= value(b, t);
    m.e = e;
  }
  std::vector<std::size_t> all() const {
    std::vector<std::size_t> rows;
    for (std::int64_t t = 0; t < N; ++t) rows.push_back(static_cast<std::size_t>(t));
    return rows;
  }
  double value(const Reals& c, std::size_t t) const {
    double sum = 0.0;
    for (std::size_t k = 0; k < K; ++k) sum += c[k] * x[k * static_cast<std::size_t>(N) + t];
    return sum;
  }
  // Coefficients of least squares over some rows, refined in twice the precision; of `left` in
  // place of y when that is given.
  Reals fit(const std::vector<std::size_t>& rows, const Reals* left = nullptr) const {
    Reals data;
    for (std::size_t k = 0; k < K; ++k) {
      for (const std::size_t t : rows) data.push_back(x[k * static_cast<std::size_t>(N) + t]);
    }
    for (const std::size_t t : rows) data.push_back(left == nullptr ? y[t] : (*left)[t]);
    std::vector<const double*> column;
    for (std::size_t k = 0; k <= K; ++k) column.push_back(data.data() + k * rows.size());
    const ColumnList list{column, static_cast<std::int64_t>(rows.size()), nullptr, {}};
    Reals work(
        static_cast<std::size_t>(GSREG_words(K + 1, list.rows) + GSREFINE_words(K + 1, list.rows)));
    Reals factor(packed_words(K + 1)), c(K);
    EXPECT_EQ(GSREG(list, work, factor, K + 1, {}, {}), 0);
    gs_coefficients(factor, K + 1, c);
    GSREFINE(list, factor, work, c);
    return c;
  }
};

TEST(Diagnos, PassesAgainstFitsMadeAnew) {
  const Model model(60);
  Reals work(RecursivePass::words(Model::K)), change(Model::K);
  for (const bool backward : {false, true}) {
    RecursivePass pass(model.m, backward, work);
    std::vector<std::size_t> rows;
    double SSE = 0.0;
    for (std::int64_t i = 0; i < model.N; ++i) {
      const auto t = static_cast<std::size_t>(pass.obs());
      const RecursiveStep step = pass.step();
      if (i >= Model::K) {
        const double error = model.y[t] - model.value(model.fit(rows), t);
        EXPECT_NEAR(step.error, error, 1e-10 * (1.0 + std::fabs(error)));
        SSE += step.residual() * step.residual();
      }
      rows.push_back(t);
      if (i + 1 < Model::K) continue;
      pass.coefficients(change);
      const Reals truth = model.fit(rows);
      double direct = 0.0;
      for (const std::size_t s : rows) {
        direct += std::pow(model.y[s] - model.value(truth, s), 2);
      }
      EXPECT_NEAR(SSE, direct, 1e-10 * (1.0 + direct));
      EXPECT_NEAR(pass.SSE(), direct, 1e-10 * (1.0 + direct));
      for (std::size_t k = 1; k < Model::K; ++k) {
        EXPECT_NEAR(model.b[k] + change[k], truth[k], 1e-10 * (1.0 + std::fabs(truth[k])));
      }
    }
    EXPECT_EQ(pass.full(), Model::K);
  }
}

TEST(Diagnos, ResamplingAgainstFitsMadeAnew) {
  const Model model(60);
  Reals Qe(Model::K), g(Model::K), d(Model::K);
  for (int k = 0; k < Model::K; ++k) Qe[static_cast<std::size_t>(k)] = model.m.q.dot(k, model.e);
  for (std::int64_t t = 0; t < model.N; ++t) {
    ASSERT_GT(left_out(model.m, Qe, t, g, d), 0.0);
    std::vector<std::size_t> rows = model.all();
    rows.erase(rows.begin() + t);
    const Reals truth = model.fit(rows);
    for (std::size_t k = 0; k < Model::K; ++k) {
      EXPECT_NEAR(model.b[k] + d[k], truth[k], 1e-10 * (1.0 + std::fabs(truth[k]))) << t;
    }
  }
  // Three samples of known draws.
  const auto N = static_cast<std::size_t>(model.N);
  Reals draws, room(std::size_t{3} * Model::K), result(std::size_t{3} * (Model::K + 1));
  for (std::size_t i = 0; i < 3 * N; ++i) {
    draws.push_back(std::fmod(0.5 + static_cast<double>(i) * 0.6180339887498949, 1.0));
  }
  const Reals typed = draws;
  bootstrap_fits(model.m, 3, draws, room, result);
  for (std::size_t s = 0; s < 3; ++s) {
    Reals y(N);
    for (std::size_t t = 0; t < N; ++t) {
      const double u = typed[s * N + t];
      y[t] = model.value(model.b, t) + model.e[static_cast<std::size_t>(u * 60.0)];
    }
    const Reals truth = model.fit(model.all(), &y);
    double SSE = 0.0;
    for (std::size_t t = 0; t < N; ++t) SSE += std::pow(y[t] - model.value(truth, t), 2);
    const double* own = result.data() + s * (Model::K + 1);
    for (std::size_t k = 0; k < Model::K; ++k) {
      EXPECT_NEAR(model.b[k] + own[k], truth[k], 1e-9 * (1.0 + std::fabs(truth[k])));
    }
    EXPECT_NEAR(own[Model::K], SSE, 1e-10 * SSE);
  }
}

// A dummy variable that is 0 in the first rows, and one that repeats the constant there: rows that
// raise the rank late have no residual, and the sums of squares stay those of the fits.
TEST(Diagnos, LateRank) {
  const Listing out = run_commands(start("textile") +
                                   "GENR D=DUM(T-1930)\n?OLS C I D\nDIAGNOS / RECURSIV NORESET\n"
                                   "?OLS C I\nDIAGNOS / CHOWTEST\n");
  EXPECT_TRUE(holds(out, " RECURSIVE COEFFICIENT ESTIMATES\n       9 ")) << out.text;
  EXPECT_TRUE(holds(out, " ...WARNING..RESULTS MAY BE UNRELIABLE\n")) << out.text;
  EXPECT_TRUE(holds(out, "\n     9   0.0000    ")) << out.text;
  EXPECT_EQ(out.text.find("UNRELIABLE"), out.text.rfind("UNRELIABLE"));
}

// ---- Resampling through the command

TEST(Diagnos, SamplesByTheirSeed) {
  const auto run = [](const std::string& more) {
    return run_commands(start("counts") + "SET RANSEED=7\n?OLS Y X1-X3\n" + more).text;
  };
  const std::string once = run("DIAGNOS / BOOTSAMP=300\nDIAGNOS / BOOTSAMP=300\n");
  EXPECT_EQ(once, run("DIAGNOS / BOOTSAMP=300\nDIAGNOS / BOOTSAMP=300\n"));
  const std::size_t first = once.find(" COEFFICIENT"), second = once.rfind(" COEFFICIENT");
  EXPECT_NE(once.substr(first, 200), once.substr(second, 200));
  // Standard errors of least squares, with N in place of N-K, are what they estimate: to 3% with
  // 20,000 samples. Values of R: sqrt(diag(vcov(lm)) * 36/40).
  const std::string many = run("DIAGNOS / BOOTSAMP=20000\n");
  const Reals truth = {0.12151584, 0.20179278, 0.11497598, 0.61584830};
  std::size_t i = 0;
  for (const char* name : {"\n X1 ", "\n X2 ", "\n X3 ", "\n CONSTANT"}) {
    const std::size_t at = many.find(name, many.find("AVERAGE"));
    const std::vector<Printed> row = numbers(many.substr(at + 10, 40));
    ASSERT_EQ(row.size(), 2U) << many;
    EXPECT_NEAR(row[1].value, truth[i], 0.03 * truth[i]) << name;
    ++i;
  }
}

// Files with all digits: the squares of the recursive residuals sum to SSE, whatever weights and
// skipped rows the estimate had; samples keep their order.
TEST(Diagnos, Units) {
  const std::string at = "/tmp/korvel_diagnos_" + std::to_string(getpid());
  const Listing out = run_commands(
      start("counts") + "SKIPIF(X3.GT.4)\nSAMPLE 1 10 15 40\nGENR V=W*(X1.GT.3)\nFILE 21 " + at +
      ".r\nFILE 22 " + at + ".b\n?OLS Y X1 X2(0.2) / WEIGHT=V\n" +
      "DIAGNOS / RECRESID RECUNIT=21 BACKWARD\nDIAGNOS / BOOTUNIT=22 BOOTSAMP=7\n");
  EXPECT_EQ(out.status, 0) << out.text;
  double squares = 0.0;
  int rows = 0;
  std::ifstream file(at + ".r");
  for (std::string line; std::getline(file, line); ++rows) {
    const std::vector<Printed> row = numbers(line);
    ASSERT_EQ(row.size(), 2U + 5U) << line;
    squares += row[1].value * row[1].value;
  }
  EXPECT_GT(rows, 15);
  EXPECT_NEAR(squares, FCOM.SSE, 1e-11 * FCOM.SSE);
  rows = 0;
  std::ifstream samples(at + ".b");
  for (std::string line; std::getline(samples, line); ++rows) EXPECT_EQ(numbers(line).size(), 6U);
  EXPECT_EQ(rows, 7);
  unlink((at + ".r").c_str());
  unlink((at + ".b").c_str());
}

// ---- What can't be done

TEST(Diagnos, FitsThatFail) {
  struct Case {
    const char* commands;
    const char* line;
    bool failed = false;
  };
  const Case cases[] = {
      {"?OLS C I P\nDIAGNOS / LAG=99\n", " ...WARNING..LAG=99 IS TOO LARGE, 16 LAGS ARE USED\n"},
      {"?OLS C I P\nDIAGNOS / LAG=0\n", "OPTION..LAG=0, IT MUST BE 1 TO", true},
      {"?OLS C I P\nDIAGNOS / CHOWONE=3\n", "OPTION..CHOWONE=3, IT MUST BE 4 TO 13\n", true},
      {"?OLS C I P\nDIAGNOS / CHOWONE=14\n", "OPTION..CHOWONE=14, IT MUST BE 4 TO 13\n", true},
      {"?OLS C I P\nDIAGNOS / SIGLEVEL=7\n", "SIGLEVEL=7 IS NOT AVAILABLE, IT MUST BE 1, 5 OR 10",
       true},
      {"?OLS C I P\nDIAGNOS / BOOTSAMP=-1\n", "OPTION..BOOTSAMP=-1, IT MUST BE 1 TO", true},
      {"?OLS C I P\nDIAGNOS / MHET=8\n", "THE HARVEY-PHILLIPS TEST COULD NOT BE FITTED"},
      {"?OLS C I P\nDIAGNOS / ACF DYNAMIC\n", "THE DYNAMIC OPTION HAS NO EFFECT ON DIAGNOSE"},
      {"?OLS C I P\nDIAGNOS / CTEST\n", "THE PINKSE INDEPENDENCE TEST IS NOT AVAILABLE"},
      {"GENR Z=2*I+1\n?OLS Z I\nDIAGNOS\n", "FITS WITHOUT ERRORS, NO TEST CAN BE DONE\n"},
      {"?OLS C I P / BEG=1 END=3\nDIAGNOS\n", " ...ERROR..YOU DO NOT HAVE ENOUGH OBSERVATIONS\n",
       true},
      {"?OLS C I P / BEG=1 END=7\nDIAGNOS / CHOWTEST\n",
       " ...WARNING..THE SEQUENTIAL CHOW TEST COULD NOT BE FITTED\n"},
      // A mean alone: nothing to regress on, the past can be.
      {"?OLS C\nDIAGNOS\n", " ...WARNING..E**2 ON YHAT COULD NOT BE FITTED\n"},
      {"?OLS C\nDIAGNOS\n", " E**2 ON LAG(E**2) ARCH TEST:"},
      {"?OLS C\nDIAGNOS\n", " ...WARNING..RESET(2) COULD NOT BE FITTED\n"},
      // Residuals of one size: no square differs from the others.
      {"GENR S=1-2*MOD(TIME(0),2)\nSAMPLE 1 16\n?OLS S\nDIAGNOS / HETEROSC\n",
       " ...WARNING..E**2 ON LAG(E**2) ARCH TEST COULD NOT BE FITTED\n"},
      // A dummy variable is its own square: five regressors become four.
      {"GENR D=DUM(T-1930)\n?OLS C I P D\nDIAGNOS / HETEROSC\n",
       "B-P-G (SSR) :             ", false},
      {"GENR D=0\nIF(T.EQ.1930) D=1\n?OLS C I D\nDIAGNOS / JACKKNIF\n",
       " ...WARNING..WITHOUT OBSERVATION      8 A COEFFICIENT IS NOT DETERMINED\n"},
      {"?OLS C I P / RIDGE=0.1\nDIAGNOS / ACF\n",
       " ...WARNING..DIAGNOSTIC TESTS MAY ONLY BE VALID FOR UNRESTRICTED OLS REGRESSIONS\n"},
      // Beyond the range of squares.
      {"GENR C=C*1E100\nGENR I=I*1E-100\n?OLS C I P\nDIAGNOS / HETEROSC\n",
       " E**2 ON YHAT:                       2.495     1    0.11424\n"},
      {"GENR D=MOD(TIME(0),2)\n?PROBIT D I P\nDIAGNOS / ACF\n",
       " ...NOTE..TESTS USE THE LEAST SQUARES FIT OF"},
      {"DIAGNOS\n", "ABOVE COMMAND MUST IMMEDIATELY FOLLOW AN ESTIMATION COMMAND\n", true},
  };
  for (const Case& c : cases) {
    const Listing out = run_commands(start("textile") + c.commands);
    EXPECT_TRUE(holds(out, c.line)) << c.commands << out.text;
    EXPECT_EQ(out.status != 0, c.failed) << c.commands << out.text;
  }
}

// More parameters than the table of the joint statistic has; its edge.
TEST(Diagnos, Hansen) {
  std::string many = start("counts");
  std::string names;
  for (int k = 1; k <= 20; ++k) {
    many += "GENR Z" + std::to_string(k) + "=SIN(" + std::to_string(k) + "*TIME(0))\n";
    names += " Z" + std::to_string(k);
  }
  EXPECT_TRUE(holds(run_commands(many + "?OLS Y" + names + "\nDIAGNOS / HANSEN\n"),
                    " ...WARNING..RESULTS OF THIS TEST ARE UNRELIABLE\n"));
  const Listing few = run_commands(many + "?OLS Y Z1\nDIAGNOS / HANSEN\n");
  EXPECT_FALSE(holds(few, "UNRELIABLE"));
}

}  // namespace
}  // namespace korvel
