// The likelihood of models with changing variance: against the definition, its derivatives against
// differences, and the pass by rows against the pass by columns.

#include "nonlinear/nlhet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "expr/kernels/packed.h"

namespace korvel {
namespace {

struct Case {
  const char* name;
  HetForm form;
  int M;  // variance variables
  int p, q;
  double power;
  std::vector<double> b;
  bool weighted = false;
};

const Case CASES[] = {
    {"constant", HetForm::ARCH, 0, 0, 0, NO_ARCHM, {0.5, 1.0, 0.8}},
    {"ARCH(1)", HetForm::ARCH, 0, 1, 0, NO_ARCHM, {0.5, 1.0, 0.4, 0.3}},
    {"GARCH(1,1)", HetForm::ARCH, 0, 1, 1, NO_ARCHM, {0.5, 1.0, 0.2, 0.3, 0.4}},
    {"weighted", HetForm::ARCH, 0, 1, 1, NO_ARCHM, {0.5, 1.0, 0.2, 0.3, 0.4}, true},
    {"GARCH(3,2), z",
     HetForm::ARCH,
     1,
     3,
     2,
     NO_ARCHM,
     {0.5, 1.0, 0.2, 0.1, 0.2, 0.05, 0.1, 0.2, 0.15}},
    {"GARCH(1,3)", HetForm::ARCH, 0, 1, 3, NO_ARCHM, {0.5, 1.0, 0.2, 0.2, 0.2, 0.15, 0.1}},
    {"in mean, h", HetForm::ARCH, 0, 1, 1, 1.0, {0.5, 1.0, 0.3, 0.2, 0.3, 0.4}},
    {"in mean, log h", HetForm::ARCH, 1, 2, 1, 0.0, {0.5, 1.0, -0.2, 0.2, 0.1, 0.2, 0.1, 0.4}},
    {"in mean, root", HetForm::ARCH, 0, 1, 2, 0.5, {0.5, 1.0, 0.3, 0.2, 0.3, 0.2, 0.1}, true},
    {"MULT", HetForm::MULT, 2, 0, 0, NO_ARCHM, {0.5, 1.0, 0.4, -0.3}},
    {"VARLIN", HetForm::VARLIN, 2, 0, 0, NO_ARCHM, {0.5, 1.0, 0.4, 0.3}, true},
    {"STDLIN", HetForm::STDLIN, 2, 0, 0, NO_ARCHM, {0.5, 1.0, -0.4, -0.6}},
    {"DEPVAR", HetForm::DEPVAR, 0, 0, 0, NO_ARCHM, {0.5, 1.0, 0.4}},
};

// Rows of a case; 300 of them, so that passes go over the ends of their blocks.
struct Rows {
  static constexpr std::size_t n = 300;
  explicit Rows(const Case& c) : X(n * 4, 0.0), Z(n * 4, 0.0) {
    std::mt19937 draw(3);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform(0.5, 2.0);
    for (std::size_t t = 0; t < n; ++t) {
      x.push_back(uniform(draw));
      z.push_back(uniform(draw));
      w.push_back(uniform(draw));
      y.push_back(1.0 + 0.5 * x[t] + normal(draw));
      X[4 * t] = x[t];
      X[4 * t + 1] = 1.0;
      Z[4 * t] = z[t];
      if (c.M > 1) Z[4 * t + 1] = 1.0;
    }
    columns = {x.data(), nullptr, z.data(), nullptr};
    rows.form = c.form;
    rows.K = 2;
    rows.M = c.M;
    rows.p = c.p;
    rows.q = c.q;
    rows.power = c.power;
    rows.rows = n;
    rows.column = columns.data();
    rows.X = X.data();
    rows.Z = Z.data();
    rows.y = y.data();
    rows.weight = c.weighted ? w.data() : nullptr;
    rows.presample = 1.1;
    e.resize(n);
    h.resize(n);
    work.resize(static_cast<std::size_t>(std::max(het_value_words(rows), het_pass_words(rows))));
  }
  HetValue value(std::span<const double> b, std::span<double> gradient = {}) {
    return het_value(rows, b, e, h, gradient, work);
  }
  std::vector<double> x, z, w, y, X, Z, e, h, work;
  std::vector<const double*> columns;
  HetRows rows;
};

// The likelihood of one row after the other, as it is defined.
double by_definition(const Case& c, const Rows& d) {
  const std::vector<double>& b = c.b;
  std::vector<double> e(Rows::n), h(Rows::n);
  double L = 0.0;
  for (std::size_t t = 0; t < Rows::n; ++t) {
    const double mean = b[0] * d.x[t] + b[1];
    std::size_t k = c.power == NO_ARCHM ? 2 : 3;
    double g = 0.0;
    if (c.form == HetForm::ARCH) {
      h[t] = b[k++];
      if (c.M > 0) h[t] += b[k++] * d.z[t];
      for (std::size_t i = 1; i <= static_cast<std::size_t>(c.p); ++i) {
        h[t] += b[k++] * (t >= i ? e[t - i] * e[t - i] : 1.1);
      }
      for (std::size_t i = 1; i <= static_cast<std::size_t>(c.q); ++i) {
        h[t] += b[k++] * (t >= i ? h[t - i] : 1.1);
      }
      if (c.power != NO_ARCHM)
        g = b[2] * (c.power == 0.0 ? std::log(h[t]) : std::pow(h[t], c.power));
    } else {
      const double s = c.M > 1 ? b[2] * d.z[t] + b[3] : b[2] * mean;
      h[t] = c.form == HetForm::MULT ? std::exp(s) : c.form == HetForm::VARLIN ? s : s * s;
    }
    e[t] = d.y[t] - mean - g;
    const double w = c.weighted ? d.w[t] : 1.0;
    L -= 0.5 * w * (std::log(2.0 * 3.14159265358979323846 * h[t]) + e[t] * e[t] / h[t]);
  }
  return L;
}

TEST(HetLikelihood, IsThatOfTheDefinition) {
  for (const Case& c : CASES) {
    Rows d(c);
    const HetValue value = d.value(c.b);
    ASSERT_EQ(value.fault, HetFault::none) << c.name;
    const double L = by_definition(c, d);
    EXPECT_NEAR(value.L, L, 1e-12 * std::fabs(L)) << c.name;
  }
}

TEST(HetLikelihood, GradientIsThatOfDifferencesAndOfThePassByRows) {
  for (const Case& c : CASES) {
    Rows d(c);
    std::vector<double> b = c.b, gradient(b.size()), by_rows(b.size());
    ASSERT_EQ(static_cast<std::size_t>(d.rows.P()), b.size()) << c.name;
    d.value(b, gradient);
    std::vector<double> outer(packed_words(d.rows.P()));
    HetPass pass;
    pass.gradient = by_rows;
    pass.outer = outer;
    const HetValue value = het_pass(d.rows, b, pass, d.work);
    EXPECT_NEAR(value.L, d.value(b).L, 1e-12 * std::fabs(value.L)) << c.name;
    for (std::size_t k = 0; k < b.size(); ++k) {
      const double at = b[k], step = 1e-5;
      b[k] = at + step;
      const double above = d.value(b).L;
      b[k] = at - step;
      const double below = d.value(b).L;
      b[k] = at;
      const double size = 1.0 + std::fabs(gradient[k]);
      EXPECT_NEAR(gradient[k], (above - below) / (2.0 * step), 1e-6 * size) << c.name << " " << k;
      EXPECT_NEAR(gradient[k], by_rows[k], 1e-11 * size * 10.0) << c.name << " " << k;
    }
  }
}

// Against derivatives of e and h by differences of whole passes.
TEST(HetLikelihood, InformationIsTheSumOverRowsOfTheSquaredDerivatives) {
  for (const Case& c : CASES) {
    Rows d(c);
    const int P = d.rows.P();
    std::vector<double> information(packed_words(P));
    HetPass pass;
    pass.information = information;
    het_pass(d.rows, c.b, pass, d.work);
    // Derivatives of e and h of each row by differences.
    std::vector<double> expected(packed_words(P), 0.0), b = c.b;
    std::vector<std::vector<double>> de, dh;
    for (std::size_t k = 0; k < b.size(); ++k) {
      const double at = b[k], step = 1e-6;
      b[k] = at + step;
      d.value(b);
      const std::vector<double> e = d.e, h = d.h;
      b[k] = at - step;
      d.value(b);
      b[k] = at;
      de.emplace_back();
      dh.emplace_back();
      for (std::size_t t = 0; t < Rows::n; ++t) {
        de[k].push_back((e[t] - d.e[t]) / (2.0 * step));
        dh[k].push_back((h[t] - d.h[t]) / (2.0 * step));
      }
    }
    d.value(b);
    for (int i = 1; i <= P; ++i) {
      const auto I = static_cast<std::size_t>(i - 1);
      for (int j = 1; j <= i; ++j) {
        const auto J = static_cast<std::size_t>(j - 1);
        double sum = 0.0;
        for (std::size_t t = 0; t < Rows::n; ++t) {
          sum += (c.weighted ? d.w[t] : 1.0) *
                 (de[I][t] * de[J][t] / d.h[t] + 0.5 * dh[I][t] * dh[J][t] / (d.h[t] * d.h[t]));
        }
        const double found = information[packed(i, j)];
        EXPECT_NEAR(found, sum, 1e-5 * (1.0 + std::fabs(sum))) << c.name << " " << i << " " << j;
      }
    }
  }
}

TEST(HetLikelihood, EndsAtTheFirstRowWithoutAValue) {
  Rows d({"", HetForm::VARLIN, 2, 0, 0, NO_ARCHM, {}});
  d.z[77] = d.Z[std::size_t{4} * 77] = -5.0;
  const std::vector<double> b = {0.5, 1.0, 0.4, 0.3};
  HetValue value = d.value(b);
  EXPECT_EQ(value.fault, HetFault::variance);
  EXPECT_EQ(value.row, 77);
  EXPECT_EQ(het_pass(d.rows, b, {}, d.work).row, 77);
  d.y[40] = 1e200;
  value = d.value(b);
  EXPECT_EQ(value.fault, HetFault::overflow);
  EXPECT_EQ(value.row, 40);
  EXPECT_EQ(het_pass(d.rows, b, {}, d.work).fault, HetFault::overflow);
  // In the mean a variance that is none ends the recursion before the rows behind it have values.
  Rows m({"", HetForm::ARCH, 0, 1, 0, 1.0, {}});
  EXPECT_EQ(m.value(std::vector<double>{0.5, 1.0, 0.3, 0.1, -0.5}).fault, HetFault::variance);
}

}  // namespace
}  // namespace korvel
