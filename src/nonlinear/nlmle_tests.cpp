// What some families of MLE print behind their table: fit of the Poisson models, marginal effects
// of the beta models, tests between families.

#include <algorithm>
#include <cmath>

#include "data/results.h"
#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlmle_parts.h"
#include "nonlinear/nonlinear.h"
#include "regress/tests.h"
#include "stats/probability.h"

namespace korvel {
namespace {

double square(double v) { return v * v; }

// ---- Beta

// dE(y)/dz and its derivatives by z and by the shape.
struct Slope {
  double A, by_z, by_shape;
};
Slope beta_slope(MleType type, double z, double shape) {
  const auto [P, Q] = beta_parameters(type, z, shape);
  const double S = P + Q;
  if (type == MleType::BETA) {
    return {Q / (S * S), -2.0 * Q / (S * S * S), (P - Q) / (S * S * S)};
  }
  if (type == MleType::EBETA) {
    return {P * Q / (S * S), P * Q * (Q - P) / (S * S * S), P * (P - Q) / (S * S * S)};
  }
  const double mean = P / S, A = mean * (1.0 - mean);
  return {A, A * (1.0 - 2.0 * mean), 0.0};
}

// What an effect rests on: A, its derivatives by the coefficients, P, Q, E(y), V(y); at one point
// or averaged over the rows.
struct EffectSums {
  double A = 0.0, P = 0.0, Q = 0.0, E = 0.0, V = 0.0;
  std::span<double> gradient;  // M: of A

  void add(MleType type, double z, double shape, double w, std::span<const double> x) {
    const Slope slope = beta_slope(type, z, shape);
    const BetaParameters p = beta_parameters(type, z, shape);
    const double S = p.P + p.Q;
    A += w * slope.A;
    P += w * p.P;
    Q += w * p.Q;
    E += w * p.P / S;
    V += w * p.P * p.Q / (S * S * (S + 1.0));
    for (std::size_t k = 0; k < x.size(); ++k) gradient[k] += w * slope.by_z * x[k];
    gradient.back() += w * slope.by_shape;
  }
};

// Effect b_k A: its variance is h'C h with h = A e_k + b_k dA.
double effect_error(const MleModel& m, const EffectSums& s, int k) {
  double v = 0.0;
  const auto h = [&](int i) {
    const double own = i == k ? s.A : 0.0;
    return own + m.b[static_cast<std::size_t>(k)] * s.gradient[static_cast<std::size_t>(i)];
  };
  for (int i = 0; i < m.M(); ++i) {
    for (int j = 0; j < m.M(); ++j) v += h(i) * m.cov[packed(i + 1, j + 1)] * h(j);
  }
  return v > 0.0 ? std::sqrt(v) : 0.0;
}

void print_effects(Workspace ws, const MleModel& m, const EffectSums& s) {
  say<"(' VARIABLE   MEAN    MARGINAL EFFECT', ' S.E.      T-RATIO     ST.DEV.     2STD M.E.  "
      "2STD S.E.')">();
  for (int k = 0; k < m.K(); ++k) {
    const auto i = static_cast<std::size_t>(k);
    if (m.rows.column[i] == nullptr) continue;
    const double effect = m.b[i] * s.A, se = effect_error(m, s, k);
    const double sd = m.N > 1.0 ? std::sqrt(m.squares[i] / (m.N - 1.0)) : 0.0;
    say<"(1X, A8, G11.4, G15.5, 2G11.4, G12.4, 2G11.4)">(mle_name(ws, m, k), m.means[i], effect, se,
                                                         se > 0.0 ? effect / se : 1e18, sd,
                                                         2.0 * sd * effect, 2.0 * sd * se);
  }
}

// ---- Tests between families

// The small family is the large one with shape `place` of the latter at 1.
struct Nesting {
  MleType small, large;
  int place;
};
constexpr Nesting NESTINGS[] = {
    {MleType::EXP, MleType::WEIBULL, 0},   {MleType::EXP, MleType::GAMMA, 0},
    {MleType::WEIBULL, MleType::GG, 1},    {MleType::GAMMA, MleType::GG, 0},
    {MleType::WEIBOT, MleType::GGBOTH, 0}, {MleType::EWEIBULL, MleType::EGAMMA, 1},
    {MleType::EWEIBULL, MleType::EGG, 1},
};

// Score test of the small family: g'C g, C the inverse of the outer product of the gradient, both
// of the large family at the estimates of the small one.
void lm_test(MleModel& m, const Nesting& nesting) {
  const MleFamily& large = mle_family(nesting.large);
  const int M = mle_coefficients(large, m.K());
  const auto size = static_cast<std::size_t>(M);
  const std::span<double> b = m.work.first(size), g = m.work.subspan(size, size);
  const std::span<double> C = m.work.subspan(2 * size, packed_words(M));
  const std::size_t added = size - static_cast<std::size_t>(large.shapes - nesting.place);
  std::copy_n(m.scaled.begin(), added, b.begin());
  b[added] = 1.0;
  std::copy(m.scaled.begin() + static_cast<std::ptrdiff_t>(added), m.scaled.end(),
            b.begin() + static_cast<std::ptrdiff_t>(added) + 1);
  MleLikelihood likelihood(large, m.rows, m.likelihood_work);
  const bool good = likelihood.evaluate(b, g).good && likelihood.outer_product(b, C);
  if (OCOM.OPUT) say(" ...NOTE..ATTEMPTING INVERSION FOR LM TEST ");
  if (NLCOM.DUMP && good) {
    Line head;
    head.text("   LM GRADIENT");
    for (std::size_t i = 0; i < std::min<std::size_t>(size, 8); ++i) {
      head.put<"(G13.5)">(-likelihood.shown_slope(g, i));
    }
    OUTLINE();
    say("   LM SECOND DERIVATIVES");
    const std::span<double> second = m.work.subspan(2 * size + C.size(), C.size());
    std::ranges::copy(C, second.begin());
    mle_derivatives_from_units(large, m.rows, second);
    print_mle_triangle(second, M, -1.0);
  }
  if (!good || symmetric_inverse(C, M) != 0) {
    if (OCOM.OPUT) warn(" ...WARNING..NO INVERSE, THE LM TEST IS LEFT OUT");
    return;
  }
  double statistic = 0.0;
  for (int i = 1; i <= M; ++i) {
    for (int j = 1; j <= M; ++j) {
      statistic +=
          g[static_cast<std::size_t>(i) - 1] * C[packed(i, j)] * g[static_cast<std::size_t>(j) - 1];
    }
  }
  temporary(temporary_place("CHI")) = statistic;
  temporary(temporary_place("PVAL")) = PCHI(statistic, 1.0);
  if (!OCOM.OPUT) return;
  Line row;
  row.put<"(' LM TEST OF ', A, ' AGAINST ', A)">(m.family->word, large.word);
  row.put<"('   CHI-SQUARE =', G13.5, ' WITH 1 D.F. PVALUE=', F8.5)">(statistic,
                                                                      PCHI(statistic, 1.0));
  OUTLINE();
}

// Coefficients `from` .. `from`+count-1 (those marked, when there are marks) have the value v.
struct Restriction {
  std::string_view name;
  int from, count;
  double value;
  bool slopes = false;  // of the second index: the constant is left out
};

void wald_test(Workspace ws, MleModel& m, const Restriction& r) {
  const int M = m.M();
  const auto size = static_cast<std::size_t>(M);
  std::span<double> v = m.work.first(size);
  const std::span<double> G = m.work.subspan(size, size * size);
  std::ranges::fill(G, 0.0);
  std::size_t q = 0;
  for (int i = r.from; i < r.from + r.count; ++i) {
    const auto k = static_cast<std::size_t>(i);
    if (r.slopes && m.rows.column[k - m.rows.column.size()] == nullptr) continue;
    G[q * size + k] = 1.0;
    v[q++] = m.b[k] - r.value;
  }
  if (q == 0) return;
  const WaldTest test = wald(v.first(q), G.first(q * size), m.cov, M, ws);
  if (test.IFAULT != 0 || !OCOM.OPUT) return;
  say<"(' WALD TEST OF ', A, '-CHI-SQUARE =', G13.5, ' WITH ', I0, ' DF')">(r.name, test.W,
                                                                            static_cast<int>(q));
}

}  // namespace

void print_mle_triangle(std::span<const double> a, int order, double factor) {
  print_bare_triangle(a, order, 9, 0, factor);
}

// Cameron and Windmeijer (1996): R-squares of Pearson residuals and of deviances.
void print_poisson(const MleModel& m) {
  const double ybar = m.means.back();
  double pearson = 0.0, deviance = 0.0, total = 0.0, null = 0.0;
  for (std::size_t t = 0; t < m.fitted.size(); ++t) {
    const double w = m.rows.weight_at(t), y = m.rows.y[t], f = m.fitted[t];
    pearson += w * square(y - f) / f;
    total += w * square(y - ybar) / ybar;
    deviance += w * ((y > 0.0 ? y * std::log(y / f) : 0.0) - (y - f));
    if (y > 0.0) null += w * y * std::log(y / ybar);
  }
  deviance *= 2.0;
  null *= 2.0;
  Line a, b, c;
  a.put<"(' POISSON R-SQUARE(p) =', F9.4)">(total > 0.0 ? 1.0 - pearson / total : 0.0);
  b.put<"(' POISSON R-SQUARE(d) =', F9.4)">(null > 0.0 ? 1.0 - deviance / null : 0.0);
  c.put<"(' POISSON G-SQUARE =', G13.5)">(deviance);
  OUTLINE();
}

void print_beta(Workspace ws, const MleModel& m) {
  const MleType type = m.family->type;
  const auto M = static_cast<std::size_t>(m.M());
  const std::size_t K = m.rows.column.size();
  const double shape = m.b.back();
  // 1. At the means.
  EffectSums at_means{.gradient = m.work.first(M)};
  EffectSums average{.gradient = m.work.subspan(M, M)};
  const std::span<double> x = m.work.subspan(2 * M, K);
  std::ranges::fill(at_means.gradient, 0.0);
  std::ranges::fill(average.gradient, 0.0);
  double z = 0.0;
  for (std::size_t k = 0; k < K; ++k) z += m.b[k] * m.means[k];
  at_means.add(type, z, shape, 1.0, m.means.first(K));
  // 2. Averaged over the rows.
  for (std::size_t t = 0; t < m.fitted.size(); ++t) {
    for (std::size_t k = 0; k < K; ++k) {
      x[k] = m.rows.column[k] == nullptr ? 1.0 : m.rows.column[k][t];
    }
    average.add(type, mle_indexes(m, t).z, shape, m.rows.weight_at(t) / m.N, x);
  }
  say("       AT MEANS");
  print_effects(ws, m, at_means);
  say("       AVERAGE OVER ALL OBS");
  print_effects(ws, m, average);
  say("       AT MEANS        AVERAGE OVER ALL OBS");
  say<"('     P  ', G13.5, 7X, G13.5)">(at_means.P, average.P);
  say<"('     Q  ', G13.5, 7X, G13.5)">(at_means.Q, average.Q);
  say<"('    E(Y) ', G12.5, 7X, G13.5)">(at_means.E, average.E);
  say<"('    V(Y) ', G12.5, 7X, G13.5)">(at_means.V, average.V);
}

void mle_tests(Workspace ws, MleModel& m) {
  // 1. Against larger families.
  bool tested = false;
  for (const Nesting& nesting : NESTINGS) {
    if (nesting.small != m.family->type) continue;
    lm_test(m, nesting);
    tested = true;
  }
  // 2. Families that this one contains.
  const int K = m.K();
  const bool constant = std::ranges::find(m.rows.column, nullptr) != m.rows.column.end();
  const auto wald_of = [&](const Restriction& r) { wald_test(ws, m, r); };
  switch (m.family->type) {
    case MleType::WEIBULL:
    case MleType::GAMMA:
      return wald_of({"EXP", K, 1, 1.0});
    case MleType::GG:
      wald_of({"WEIBULL", K + 1, 1, 1.0});
      wald_of({"GAMMA", K, 1, 1.0});
      return wald_of({"EXP", K, 2, 1.0});
    case MleType::WEIBOT:
      if (constant) wald_of({"WEIBULL", K, K, 0.0, true});
      return;
    case MleType::GAMBOT:
      if (constant) wald_of({"GAMMA", K, K, 0.0, true});
      return;
    case MleType::GGBOTH:
      if (constant) wald_of({"GG", K, K, 0.0, true});
      return wald_of({"WEIBOT", 2 * K, 1, 1.0});
    case MleType::EGAMMA:
      return wald_of({"EWEIBULL", K + 1, 1, 1.0});
    case MleType::EGG:
      wald_of({"EWEIBULL", K + 1, 1, 1.0});
      return wald_of({"NORMAL", K + 1, 1, 0.0});
    case MleType::EDGE:
      return wald_of({"NORMAL", K + 1, 2, 0.0});
    default:
      if (!tested) {
        warn<"(' ...WARNING..', A, ' HAS NO FAMILY TO BE TESTED AGAINST, LM HAS NO EFFECT')">(
            m.family->word);
      }
      return;
  }
}

}  // namespace korvel
