// Factors of the Hessian, the minimisers, derivatives by differences, the annealing.
#include "nonlinear/minimise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "engine/output.h"
#include "harness.h"
#include "nonlinear/nonlinear.h"
#include "nonlinear/ranmar.h"

namespace {

using korvel::HessianFactors;
using korvel::Minimum;
using korvel::NLCOM;
using Vector = std::vector<double>;

class Function final : public korvel::Objective {
 public:
  std::function<double(const double*)> f;
  std::function<void(const double*, double*)> slope;
  int values = 0;
  Value evaluate(std::span<const double> b, std::span<double> gradient) override {
    ++values;
    if (!gradient.empty()) slope(b.data(), gradient.data());
    const double v = f(b.data());
    return {v, !std::isnan(v)};
  }
};

Function rosenbrock() {
  Function r;
  r.f = [](const double* x) {
    return 100 * std::pow(x[1] - x[0] * x[0], 2) + std::pow(1 - x[0], 2);
  };
  r.slope = [](const double* x, double* g) {
    g[0] = -400 * x[0] * (x[1] - x[0] * x[0]) - 2 * (1 - x[0]);
    g[1] = 200 * (x[1] - x[0] * x[0]);
  };
  return r;
}

// Wood's function of four variables (Colville 1968), minimum 0 at (1, 1, 1, 1).
Function wood() {
  Function w;
  w.f = [](const double* x) {
    const double a = x[1] - x[0] * x[0], b = x[3] - x[2] * x[2];
    return 100 * a * a + std::pow(1 - x[0], 2) + 90 * b * b + std::pow(1 - x[2], 2) +
           10.1 * (std::pow(x[1] - 1, 2) + std::pow(x[3] - 1, 2)) + 19.8 * (x[1] - 1) * (x[3] - 1);
  };
  w.slope = [](const double* x, double* g) {
    const double a = x[1] - x[0] * x[0], b = x[3] - x[2] * x[2];
    g[0] = -400 * x[0] * a - 2 * (1 - x[0]);
    g[1] = 200 * a + 20.2 * (x[1] - 1) + 19.8 * (x[3] - 1);
    g[2] = -360 * x[2] * b - 2 * (1 - x[2]);
    g[3] = 180 * b + 20.2 * (x[3] - 1) + 19.8 * (x[1] - 1);
  };
  return w;
}

// One dimension, without a value for x below 0: x - ln x - 1.
Function logarithm() {
  Function l;
  l.f = [](const double* x) {
    return x[0] > 0 ? x[0] - std::log(x[0]) - 1 : std::numeric_limits<double>::quiet_NaN();
  };
  l.slope = [](const double* x, double* g) { g[0] = 1 - 1 / x[0]; };
  return l;
}

struct Ended {
  Minimum m;
  Vector b, g;
  double ERR = 0;
};

// METHODCODE 0: NLFMIN.
Ended minimise(
    Function f, Vector start, int method, const std::function<void()>& options = [] {},
    bool same = false) {
  NLCOM = korvel::NlCom{};
  NLCOM.PITER = 0;
  NLCOM.METHODCODE = method;
  options();
  korvel::OSCOM.OWARN = false;
  double& ERR = korvel::temporary(korvel::temporary_place("ERR"));
  ERR = 0;
  Ended r{{}, std::move(start), {}, 0};
  const int n = static_cast<int>(r.b.size());
  r.g.resize(r.b.size());
  Vector work(static_cast<std::size_t>(korvel::minimiser_words(n)));
  const HessianFactors factors = korvel::kept_factors(n, same);
  r.m = method == 0 ? korvel::NLFMIN(f, r.b, r.g, factors, {}, work)
                    : korvel::NLQN(f, r.b, r.g, factors, {}, work);
  r.ERR = ERR;
  return r;
}

// L D L' as a full matrix.
Vector full(const HessianFactors& h) {
  const auto n = static_cast<std::size_t>(h.n);
  Vector L(n * n, 0.0), A(n * n, 0.0), D(n);
  std::size_t at = 0;
  for (std::size_t j = 0; j < n; ++j) {
    D[j] = h.LD[at++];
    L[j * n + j] = 1;
    for (std::size_t i = j + 1; i < n; ++i) L[i * n + j] = h.LD[at++];
  }
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      for (std::size_t k = 0; k < n; ++k) A[i * n + j] += L[i * n + k] * D[k] * L[j * n + k];
    }
  }
  return A;
}

TEST(Factors, FactoriseUpdateInvert) {
  const Vector matrix = {4, 1, 3, -1, 0.5, 5, 0.2, -0.3, 1, 2};  // packed by rows
  Vector LD(10);
  HessianFactors h{.LD = LD, .n = 4};
  ASSERT_TRUE(h.factorise(matrix));
  const auto at = [&](std::size_t i, std::size_t j) {
    return i < j ? matrix[j * (j + 1) / 2 + i] : matrix[i * (i + 1) / 2 + j];
  };
  const auto expect = [&](double factor, const Vector& v) {
    const Vector A = full(h);
    for (std::size_t i = 0; i < 4; ++i) {
      for (std::size_t j = 0; j < 4; ++j) {
        EXPECT_NEAR(A[i * 4 + j], at(i, j) + factor * v[i] * v[j], 1e-13);
      }
    }
  };
  const Vector v = {1, -2, 0.5, 3};
  expect(0, v);
  // Up and down again; the way down has a factor that the matrix just bears.
  Vector copy = v;
  ASSERT_TRUE(h.update(copy, 0.7));
  expect(0.7, v);
  copy = v;
  ASSERT_TRUE(h.update(copy, -0.7));
  expect(0, v);
  // v'A^-1 v, found by the inverse: at minus its reciprocal the matrix stops being definite.
  Vector inverse(10), s(4);
  h.inverse(inverse);
  h.direction(v, s);
  double form = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    double row = 0;
    for (std::size_t j = 0; j < 4; ++j) {
      row += (i < j ? inverse[j * (j + 1) / 2 + i] : inverse[i * (i + 1) / 2 + j]) * v[j];
    }
    EXPECT_NEAR(row, -s[i], 1e-13);
    form += row * v[i];
  }
  const Vector before = LD;
  copy = v;
  EXPECT_FALSE(h.update(copy, -1.001 / form));
  EXPECT_EQ(LD, before);
  copy = v;
  EXPECT_TRUE(h.update(copy, -0.999 / form));
  EXPECT_TRUE(h.positive());
  copy[2] = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(h.update(copy, 1.0));
  EXPECT_FALSE(h.factorise(Vector{1, 1, 1, 0, 0, 1, 0, 0, 0, 1}));
}

TEST(Minimisers, ReachKnownMinima) {
  for (const int method : {0, 1, 2, 3}) {
    for (const bool analytic : {true, false}) {
      const std::string where = std::to_string(method) + (analytic ? "" : " numeric");
      Function r = rosenbrock(), w = wood(), l = logarithm();
      r.analytic = w.analytic = l.analytic = analytic;
      const auto tight = [] {
        NLCOM.CONV = NLCOM.METHODCODE == 0 ? 1e-6 : 1e-14;
        NLCOM.STEPSIZE = 1e-6;
      };
      const Ended a = minimise(r, {-1.2, 1}, method, tight);
      EXPECT_TRUE(a.m.converged) << where;
      EXPECT_EQ(a.ERR, 0) << where;
      EXPECT_NEAR(a.b[0], 1, 1e-5) << where;
      EXPECT_NEAR(a.b[1], 1, 1e-5) << where;
      EXPECT_EQ(NLCOM.NLSTAT, 2);
      const Ended b = minimise(w, {-3, -1, -3, -1}, method, tight);
      for (const double x : b.b) EXPECT_NEAR(x, 1, 1e-4) << where;
      EXPECT_NEAR(b.m.f, 0, 1e-9) << where;
      // The first steps leave the domain.
      const Ended c = minimise(l, {0.05}, method, tight);
      EXPECT_NEAR(c.b[0], 1, 1e-5) << where;
    }
  }
}

// The updates are secant updates: runs on a quadratic that go on with the kept factors end with its
// Hessian.
TEST(Minimisers, KeptFactorsBecomeTheHessian) {
  Function q;
  q.f = [](const double* x) { return x[0] * x[0] + 2 * x[1] * x[1] + x[0] * x[1] - x[0]; };
  q.slope = [](const double* x, double* g) {
    g[0] = 2 * x[0] + x[1] - 1;
    g[1] = 4 * x[1] + x[0];
  };
  for (const int method : {0, 1, 2}) {
    bool same = false;
    for (const Vector& start : {Vector{7, -5}, Vector{-3, 8}, Vector{2, 9}}) {
      const auto tight = [] { NLCOM.CONV = NLCOM.METHODCODE == 0 ? 1e-9 : 1e-18; };
      EXPECT_TRUE(minimise(q, start, method, tight, same).m.converged);
      same = true;
    }
    const Vector A = full(korvel::kept_factors(2, true));
    const Vector H = {2, 1, 1, 4};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(A[i], H[i], 1e-3) << method;
  }
  // Another order finds no factors.
  EXPECT_EQ(full(korvel::kept_factors(3, true)), (Vector{1, 0, 0, 0, 1, 0, 0, 0, 1}));
}

TEST(Minimisers, EndsAndTheirCodes) {
  // ITER=0 is one evaluation.
  for (const int method : {0, 1}) {
    const Ended r = minimise(rosenbrock(), {-1.2, 1}, method, [] { NLCOM.ITER = 0; });
    EXPECT_EQ(r.m.evaluations, 1);
    EXPECT_EQ(r.ERR, 52027);
    EXPECT_EQ(NLCOM.NLSTAT, 3);
    EXPECT_EQ(r.b[0], -1.2);
    // A start at the solution is a clean end.
    const Ended s = minimise(rosenbrock(), {1, 1}, method);
    EXPECT_TRUE(s.m.converged);
    EXPECT_EQ(s.ERR, 0);
    EXPECT_EQ(s.m.iterations, 0);
    // A function without a minimum ends in a failed search or at the limit of the reals, with the
    // lowest point seen.
    Function line;
    line.f = [](const double* x) { return -std::exp(x[0]); };
    line.slope = [](const double* x, double* g) { g[0] = -std::exp(x[0]); };
    const Ended t = minimise(line, {1}, method);
    EXPECT_EQ(t.ERR, 52023) << method;
    EXPECT_LT(t.m.f, -std::exp(1.0));
    EXPECT_DOUBLE_EQ(line.f(t.b.data()), t.m.f);
    // No value at the start.
    const Ended u = minimise(logarithm(), {-1}, method);
    EXPECT_FALSE(NLCOM.GOODFUN);
    EXPECT_EQ(u.b[0], -1);
    EXPECT_NE(u.ERR, 0);
  }
}

TEST(Derivatives, GradientAndHessian) {
  NLCOM = korvel::NlCom{};
  Function w = wood();
  Vector b = {0.3, -0.8, 1.5, 2}, g(4), exact(4), H(10), H2(10), work(8);
  w.slope(b.data(), exact.data());
  ASSERT_TRUE(korvel::NLNUM(w, b, g));
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(g[i], exact[i], 1e-4);
  EXPECT_EQ(b[2], 1.5);
  ASSERT_TRUE(korvel::numeric_hessian(w, b, H, work));
  w.analytic = false;
  ASSERT_TRUE(korvel::numeric_hessian(w, b, H2, work));
  // d2f/dx0^2 = 1200 x0^2 - 400 x1 + 2; the rest likewise.
  const Vector expected = {1200 * 0.09 + 320 + 2, -120, 220.2, 0,    0,
                           1080 * 2.25 - 720 + 2, 0,    19.8,  -540, 200.2};
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_NEAR(H[i], expected[i], 1e-3);
    EXPECT_NEAR(H2[i], expected[i], 1e-2);
  }
  // Newton steps from nearby end at the minimum.
  w.analytic = true;
  Vector c = {1.01, 1.02, 0.99, 0.98};
  Vector room(static_cast<std::size_t>(korvel::newton_words(4)));
  EXPECT_NEAR(korvel::newton_polish(w, c, g, room), 0.0, 1e-20);
  for (const double x : c) EXPECT_NEAR(x, 1.0, 1e-10);
}

TEST(Annealing, PublishedRandomNumbers) {
  // Marsaglia, Zaman and Tsang (1990): after 20000 numbers from the seeds 1802 and 9373.
  korvel::Ranmar random;
  ASSERT_TRUE(random.start(1802, 9373));
  for (int i = 0; i < 20000; ++i) random();
  for (const double value : {6533892.0, 14220222.0, 7275067.0, 6172232.0, 8354498.0, 10633180.0}) {
    EXPECT_EQ(random() * 4096 * 4096, value);
  }
}

TEST(Annealing, LeavesALocalMinimum) {
  // Two wells; the start is in the higher one, from which the other minimisers can't get out.
  Function f;
  f.f = [](const double* x) {
    return std::pow(x[0] * x[0] - 9, 2) / 20 + x[0] / 2 + std::pow(x[1] - 2, 2);
  };
  f.slope = [](const double* x, double* g) {
    g[0] = x[0] * (x[0] * x[0] - 9) / 5 + 0.5;
    g[1] = 2 * (x[1] - 2);
  };
  EXPECT_GT(minimise(f, {2.5, 1}, 0).b[0], 2.0);
  NLCOM = korvel::NlCom{};
  NLCOM.PITER = 0;
  NLCOM.SANT = 10;
  Vector b = {2.5, 1}, work(static_cast<std::size_t>(korvel::minimiser_words(2)));
  const korvel::Annealed a = korvel::ANNEAL({}, f, b, work, {});
  EXPECT_EQ(a.IER, 0);
  EXPECT_NEAR(b[0], -3.130279650, 1e-2);  // the root of x*x*x - 9 x + 2.5 = 0 below 0
  EXPECT_NEAR(b[1], 2.0, 1e-2);
  EXPECT_EQ(f.f(b.data()), a.minimum.f);
  // The limit of evaluations keeps the best point so far.
  NLCOM.SAITER = 1000;
  Vector c = {2.5, 1};
  EXPECT_EQ(korvel::ANNEAL({}, f, c, work, {}).IER, 1);
  EXPECT_LE(f.f(c.data()), f.f(Vector{2.5, 1}.data()));
}

// What can't be annealed ends the command with a line, and the start is left as it was.
TEST(Annealing, Refusals) {
  const struct {
    const char* options;
    const char* line;
  } cases[] = {
      {"SAITER=999", " ... ERROR.. SAITER TOO SMALL MUST BE AT LEAST 1000"},
      {"SALOWER=LO", " ...ERROR..SA BOUNDS MATRIX... LO HAS WRONG DIMENSIONS"},
      {"SALOWER=ONES SAUPPER=ONES", " ...ERROR..SA INITIAL CONDITIONS INCONSISTENT WITH"},
      {"SALOWER=ONES SAUPPER=TWOS", " THE STARTING VALUE (X) IS OUTSIDE THE BOUNDS"},
      {"SALOWER=ONES SAUPPER=TWOS", " BOUNDS OF COEFFICIENT   1:    1.0000     TO    2.0000"},
      {"SALOWER=TWOS SAUPPER=ONES", " THE STARTING VALUE (X) IS OUTSIDE THE BOUNDS"},
  };
  for (const auto& c : cases) {
    const auto out = korvel_test::run_commands(
        "SAMPLE 1 4\nREAD Y X\n1 1\n2 2\n3 2\n5 4\nGENR ONES=1\nGENR TWOS=2\nSAMPLE 1 3\n"
        "GENR LO=1\nSAMPLE 1 4\nDIM Z 2\nGME Y / ZENTROPY=Y VENTROPY=X METHOD=SA PITER=0 " +
        std::string(c.options) + "\n");
    EXPECT_NE(out.status, 0) << c.options;
    EXPECT_TRUE(korvel_test::holds(out, c.line)) << c.options << out.text;
  }
}

TEST(Methods, Names) {
  EXPECT_TRUE(korvel::method_code("", 0));
  EXPECT_EQ(NLCOM.METHODCODE, 0);
  EXPECT_TRUE(korvel::method_code("GQDFP   ", 1));
  EXPECT_EQ(NLCOM.METHODCODE, 5);
  EXPECT_TRUE(korvel::method_code("SA", 1));
  EXPECT_EQ(NLCOM.METHODCODE, -1);
  EXPECT_FALSE(korvel::method_code("NEWTON", 1));
}

}  // namespace
