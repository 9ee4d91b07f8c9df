// Tests of the residuals' normality: skewness, kurtosis, Jarque-Bera (1980), goodness of fit; and
// the test of Hall and Pagan for heteroskedasticity.

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/output.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

// Normal probabilities of cells a tenth of sigma wide, from the lower tail up to the mean; the
// upper half is their mirror.
constexpr std::array<double, 30> CELL_PROBABILITY = {
    0.0019, 0.0007, 0.0009, 0.0012, 0.0015, 0.0020, 0.0025, 0.0032, 0.0040, 0.0049,
    0.0059, 0.0072, 0.0087, 0.0102, 0.0120, 0.0140, 0.0160, 0.0183, 0.0206, 0.0230,
    0.0254, 0.0278, 0.0301, 0.0323, 0.0342, 0.0361, 0.0375, 0.0386, 0.0395, 0.0398};
constexpr int CELLS = 60;

// Groups for K coefficients and N rows: the first step that holds.
int group_count(int K, double N) {
  struct Step {
    int below_K;
    double most_rows;
    int groups;
  };
  constexpr Step ladder[] = {{4, 100, 6},   {8, 120, 10},  {10, 150, 12},
                             {13, 200, 15}, {18, 300, 20}, {28, 600, 30}};
  for (const Step& s : ladder) {
    if (K < s.below_K && N <= s.most_rows) return s.groups;
  }
  return CELLS;
}

// A row of numbers of the groups, twenty a line.
void print_counts(std::string_view label, std::span<const double> values) {
  Line row;
  row.text(label);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0 && i % 20 == 0) {
      OUTLINE();
      row = Line();
      row.column(10);
    }
    row.put<"(F5.1)">(values[i]);
  }
  OUTLINE();
}

void print_chi_square(double chi, int df) {
  say<"(' CHI-SQUARE =', F10.4, ' WITH', I3, ' DEGREES OF FREEDOM,', ' P-VALUE=', F6.3)">(
      chi, df, PCHI(chi, df));
}

void goodness_of_fit(const Estimate& est, const ResidualSums& s) {
  if (!OCOM.OPUT) return;
  const int groups = group_count(est.K(), FCOM.ZZ);
  const int width = CELLS / groups;
  std::array<double, CELLS> seen{};
  std::array<double, CELLS> expected{};
  for (int c = 0; c < CELLS; ++c) {
    const auto g = static_cast<std::size_t>(c / width);
    const int mirror = std::min(c, CELLS - 1 - c);
    seen[g] += s.cell[c];
    expected[g] += s.n * CELL_PROBABILITY[static_cast<std::size_t>(mirror)];
  }
  double chi = 0.0;
  for (std::size_t g = 0; g < static_cast<std::size_t>(groups); ++g) {
    const double d = seen[g] - expected[g];
    chi += d * d / expected[g];
  }
  say<"(6X, 'GOODNESS OF FIT TEST FOR NORMALITY OF RESIDUALS - ', I2, ' GROUPS')">(groups);
  print_counts(" OBSERVED", std::span(seen).first(static_cast<std::size_t>(groups)));
  print_counts(" EXPECTED", std::span(expected).first(static_cast<std::size_t>(groups)));
  if (const int df = groups - est.K() - 2; df >= 1) print_chi_square(chi, df);
}

}  // namespace

void test_normality(const Estimate& est, const ResidualSums& s) {
  const double n = s.n;
  const double m1 = s.e / n;
  const double m2 = s.e2 / n;
  const double m3 = s.e3 / n;
  const double m4 = s.e4 / n;
  if (m2 > 0.0) {
    // The last two terms vanish for a model with a constant.
    const double kurtosis = m4 / (m2 * m2) - 3.0;
    const double JB = n * (m3 * m3 / (6.0 * m2 * m2 * m2) + kurtosis * kurtosis / 24.0 +
                           1.5 * m1 * m1 / m2 - m3 * m1 / (m2 * m2));
    temporary(temporary_place("JB")) = JB;
    if (n > 3.0 && m2 > m1 * m1 && OCOM.OPUT) {
      const double s2 = n * (m2 - m1 * m1) / (n - 1.0);
      const double g1 = n * n / ((n - 1.0) * (n - 2.0)) *
                        (m3 - 3.0 * m1 * m2 + 2.0 * m1 * m1 * m1) / (std::sqrt(s2) * s2);
      const double spread = m2 - m1 * m1;
      const double fourth = m4 - 4.0 * m1 * m3 + 6.0 * m2 * m1 * m1 - 3.0 * m1 * m1 * m1 * m1;
      const double g2 = n * n / ((n - 1.0) * (n - 2.0) * (n - 3.0)) *
                        ((n + 1.0) * fourth - 3.0 * (n - 1.0) * spread * spread) / (s2 * s2);
      const double d1 = std::sqrt(6.0 * n * (n - 1.0) / ((n - 2.0) * (n + 1.0) * (n + 3.0)));
      const double d2 = std::sqrt(24.0 * n * (n - 1.0) * (n - 1.0) /
                                  ((n - 3.0) * (n - 2.0) * (n + 3.0) * (n + 5.0)));
      Line first, second;
      first.put<"(' COEFFICIENT OF SKEWNESS =', F9.4, ' WITH STANDARD', ' DEVIATION OF', F7.4)">(
          g1, d1);
      second
          .put<"(' COEFFICIENT OF EXCESS KURTOSIS =', F9.4, ' WITH STANDARD DEVIATION OF', F7.4)">(
              g2, d2);
      OUTLINE();
    }
    if (OLSCOM.CONSTANT && OCOM.OPUT) {
      say<"(' JARQUE-BERA NORMALITY TEST- CHI-SQUARE(2 DF)=', F10.4, ' P-VALUE=', F6.3)">(
          JB, PCHI(std::max(JB, 0.0), 2.0));
    }
  }
  if (OLSCOM.GF) goodness_of_fit(est, s);
}

void test_hall_pagan(const Estimate& est, const ResidualSums& s) {
  double L1 = 0.0, L2 = 0.0, cross = 0.0;
  for (std::size_t t = 0; t < est.residual.size(); ++t) {
    const double e = est.residual[t];
    const double predicted = est.observed[t] - e;
    if (predicted == 0.0) return;
    const double L = 2.0 * std::log(std::fabs(predicted));
    L1 += L;
    L2 += L * L;
    cross += e * e * L;
  }
  const double n = s.n;
  const double Lbar = L1 / n;
  const double m2 = s.e2 / n;
  const double a = cross - n * m2 * Lbar;
  const double product = (s.e4 - n * m2 * m2) * (L2 - n * Lbar * Lbar);
  if (!(product > 0.0) || !OCOM.OPUT) return;
  say(" HALL-PAGAN ASYMPTOTIC LM HETEROSKEDASTICITY TEST");
  print_chi_square(FCOM.ZZ * (a * a / product), 1);
}

}  // namespace korvel
