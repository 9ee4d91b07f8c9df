// TOBITL: the results of a tobit. TOBP: its fitted values and their errors.

#include <algorithm>
#include <cmath>

#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "limdep/limdep_parts.h"
#include "regress/ols_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double DENSITY = 0.3989422804014;  // 1 / root 2 pi

double side() { return LIMCOM.UPPER ? -1.0 : 1.0; }

// The dependent variable at an index z with h = 1/sigma: E(y), and E(y) off the limit.
struct Expected {
  double probability, density;  // Phi(u) of a value off the limit, phi(u)
  double all, conditional;
};
Expected expected_at(double z, double h) {
  const double c = LIMCOM.LIMIT, s = side();
  const double u = s * (z - h * c);
  Expected e{};
  e.probability = normal_cdf(u);
  e.density = DENSITY * std::exp(-u * u / 2.0);
  e.all = c * normal_cdf(-u) + (e.probability * z + s * e.density) / h;
  e.conditional = (z + s * mills_ratio(u, true)) / h;
  return e;
}

double mean_index(const LimModel& m) {
  double z = 0.0;
  for (int k = 0; k < m.K(); ++k) {
    const auto i = static_cast<std::size_t>(k);
    z += m.is_constant(k) ? m.b[i] : m.b[i] * ((m.mean[i] - m.shift[i]) * m.scale[i]);
  }
  // The constant of the iteration holds what the shift of the dependent variable leaves.
  const auto last = static_cast<std::size_t>(m.K());
  return m.units.constant >= 0 ? z - m.coef.back() * m.shift[last] : z;
}

void print_table(Workspace ws, const LimModel& m, const Expected& mean, double z) {
  const double h = m.coef.back();
  const Line blank;
  Line first, second, third;
  first.put<"(26X, 'ASYMPTOTIC')">();
  second.put<
      "(' VARIABLE', 3X, 'NORMALIZED', 5X, 'STANDARD', 6X, 'T-RATIO', 4X, 'REGRESSION', 3X, "
      "'ELASTICITY', 3X, 'ELASTICITY ')">();
  third.put<
      "(12X, 'COEFFICIENT', 5X, 'ERROR', 19X, 'COEFFICIENT', 5X, 'OF INDEX', 5X, 'OF E(Y)')">();
  OUTLINE();
  for (int i = 0; i < m.M(); ++i) {
    const double d = m.coef[static_cast<std::size_t>(i)], se = standard_error(m, i);
    Line row;
    row.put<"(1X, A8, 3G13.5)">(coefficient_name(ws, m, i), d, se, t_ratio(d, se));
    if (i < m.K()) {
      const double b = d / h, x = m.mean[static_cast<std::size_t>(i)];
      row.put<"(3G13.5)">(b, shown(b * x / (z / h)), shown(mean.probability * b * x / mean.all));
    }
    OUTLINE();
  }
}

// Share of the rows off the limit, and what the average row promises.
void print_average(const LimModel& m, const TobitCounts& counts, const Expected& mean) {
  const double share = counts.other / m.N;
  if (LIMCOM.UPPER) {
    say<"(' THE PREDICTED PROBABILITY OF Y < LIMIT GIVEN AVERAGE ', ' X(I) = ', G13.5)">(
        mean.probability);
    say<"('  THE OBSERVED FREQUENCY OF Y < LIMIT IS = ', G13.5)">(share);
  } else {
    say<"(' THE PREDICTED PROBABILITY OF Y > LIMIT GIVEN AVERAGE ', ' X(I) = ', G13.5)">(
        mean.probability);
    say<"('  THE OBSERVED FREQUENCY OF Y > LIMIT IS = ', G13.5)">(share);
  }
  say<"('  AT MEAN VALUES OF ALL X(I), E(Y) = ', G13.5)">(mean.all);
}

// Sums over y and E(y), both about `level`.
enum ErrorSum : std::uint8_t { S_E, S_E2, S_ABS, S_Y, S_F, S_YY, S_FF, S_YF, ERROR_SUMS };
std::int64_t error_words(int columns) {
  return (RowBlock::words(columns, 2) + ERROR_SUMS + 7) & ~std::int64_t{7};
}

// The errors e = y - E(y), a section of rows at a time; m.index gets the true index z = d'x.
void error_sums(LimModel& m, double level, double (&total)[ERROR_SUMS]) {
  const int columns = m.rows.columns();
  const std::int64_t words = error_words(columns);
  const RowSections sections(m.rows.rows);
  const double h = m.coef.back(), c = LIMCOM.LIMIT, s = side();
  sections.run([&](int section) {
    double* const work = m.work.data() + words * section;
    RowBlock block(work, columns, 2);
    double* const sum = work + RowBlock::words(columns, 2);
    std::fill_n(sum, std::size_t{ERROR_SUMS}, 0.0);
    std::int64_t from = sections.begin(section);
    for (; from < sections.end(section); from += RowBlock::ROWS) {
      block.load(m.rows, from, std::min(RowBlock::ROWS, sections.end(section) - from));
      block.index(m.rows, 2, m.b);
      for (std::int64_t t = 0; t < block.n; ++t) {
        const double y = -m.made[static_cast<std::size_t>(from + t)];
        const double z = block.z[t] + h * y;
        if (!m.index.empty()) m.index[static_cast<std::size_t>(from + t)] = z;
        block.f[t] = y - level;
        block.P0[t] = z;
        block.z[t] = s * (z - h * c);
      }
      likelihood_lanes().normal(block.terms(m.model), block.P, block.Q);
      for (std::int64_t t = 0; t < block.n; ++t) {
        const double y = block.f[t];
        const double f =
            c * (1.0 - block.P[t]) + (block.P[t] * block.P0[t] + s * block.Q[t]) / h - level;
        const double e = y - f;
        sum[S_E] += e;
        sum[S_E2] += e * e;
        sum[S_ABS] += std::fabs(e);
        sum[S_Y] += y;
        sum[S_F] += f;
        sum[S_YY] += y * y;
        sum[S_FF] += f * f;
        sum[S_YF] += y * f;
      }
    }
  });
  for (int i = 0; i < ERROR_SUMS; ++i) {
    total[i] = 0.0;
    for (int section = 0; section < sections.count; ++section) {
      total[i] +=
          m.work[static_cast<std::size_t>(words * section + RowBlock::words(columns, 2) + i)];
    }
  }
}

// Of y and E(y). Quotients, since products of the sums would leave the range; 0 where either is a
// constant but for rounding, as E(y) is without regressors.
double squared_correlation(const double (&sum)[ERROR_SUMS], double n, double level) {
  const double cross = sum[S_YF] - sum[S_Y] * (sum[S_F] / n);
  const double yy = sum[S_YY] - sum[S_Y] * (sum[S_Y] / n);
  const double ff = sum[S_FF] - sum[S_F] * (sum[S_F] / n);
  const double rounding = 1e-12 * (std::fabs(level) + std::fabs(sum[S_F] / n));
  if (!(yy > 0.0) || !(std::sqrt(ff / n) > rounding)) return 0.0;
  return (cross / yy) * (cross / ff);
}

void print_fitted(Workspace ws, const LimModel& m) {
  const double h = m.coef.back();
  say<"(1X, 'DEPENDENT VARIABLE ', A)">(NAME(ws, m.dependent().var));
  say<"(5X, '  OB   INDEX      PROB(X)     DENSITY(X)  ', "
      "' OBSERVED    EXPECTED   CONDITIONAL')">();
  KeptRows kept(ws);
  while (kept.next()) {
    if (stop_requested()) return;
    const auto t = static_cast<std::size_t>(kept.row);
    const Expected e = expected_at(m.index[t], h);
    say<"(1X, I8, 6G13.5)">(kept.obs, m.index[t], e.probability, e.density, -m.made[t], e.all,
                            e.conditional);
  }
}

}  // namespace

void TOBP(Workspace ws, LimModel& m) {
  const Trace trace("TOBP");
  const double level = -m.mean.back();
  double sum[ERROR_SUMS];
  error_sums(m, level, sum);
  const auto n = static_cast<double>(m.rows.rows);
  const double correlation = squared_correlation(sum, n, level);
  temporary(temporary_place("SSE")) = FCOM.SSE = sum[S_E2];
  temporary(temporary_place("R2OP")) = correlation;
  if (!OCOM.OPUT) return;
  if (LIMCOM.LIST) print_fitted(ws, m);
  Line a, b, c, d, e;
  a.put<"(' LOG-LIKELIHOOD FUNCTION=', G13.5)">(m.LLF);
  b.put<"(' MEAN-SQUARE ERROR=', G13.5)">(sum[S_E2] / n);
  c.put<"(' MEAN ERROR=', G13.5)">(sum[S_E] / n);
  d.put<"(' MEAN ABSOLUTE ERROR=', G13.5)">(sum[S_ABS] / n);
  e.put<"(' SQUARED ', ' CORRELATION BETWEEN OBSERVED AND EXPECTED VALUES=', G13.5)">(correlation);
  OUTLINE();
}

void TOBITL(Workspace ws, LimModel& m, const TobitCounts& counts) {
  const Trace trace("TOBITL");
  const double h = m.coef.back();
  const double sigma = 1.0 / h;
  clear_results();
  temporary(temporary_place("LLF")) = m.LLF;
  temporary(temporary_place("N")) = m.N;
  temporary(temporary_place("K")) = m.M();
  temporary(temporary_place("DF")) = m.N - m.M();
  temporary(temporary_place("SIG2")) = sigma * sigma;
  FCOM.ZZ = m.N;
  FCOM.DF = m.N;
  FCOM.XMAXL = m.LLF;
  // 1. The table.
  if (OCOM.OPUT) {
    Line first, second, third;
    first.put<"('  DEPENDENT VARIABLE =', A8)">(NAME(ws, m.dependent().var));
    second.put<"(' VARIANCE OF THE ESTIMATE =', G13.5)">(sigma * sigma);
    third.put<"(' STANDARD ERROR OF THE ESTIMATE =', G13.5)">(sigma);
    OUTLINE();
    const double z = mean_index(m);
    const Expected mean = expected_at(z, h);
    print_table(ws, m, mean, z);
    print_matrices(ws, m);
    print_average(m, counts, mean);
  }
  // 2. Fitted values.
  TOBP(ws, m);
  const auto expected = [&](std::size_t t) { return expected_at(m.index[t], h); };
  if (LIMCOM.RSTAT) {
    for (std::size_t t = 0; t < m.residual.size(); ++t) {
      m.fitted[t] = -m.made[t];
      m.residual[t] = -m.made[t] - expected(t).all;
    }
    residual_statistics(ws, m, m.fitted, m.residual);
  }
  // 3. Stored results: COEF= in the units of the data, all else of the normalised pair.
  const std::span<double> beta = m.scratch.first(static_cast<std::size_t>(m.K()));
  for (std::size_t k = 0; k < beta.size(); ++k) beta[k] = m.coef[k] * sigma;
  store_coefficients(ws, m, beta);
  store_rows(ws, LIMCOM.PREDICT, 1, [&](std::size_t t, int) { return expected(t).all; });
  store_rows(ws, LIMCOM.INDEX, 1, [&](std::size_t t, int) { return m.index[t]; });
  store_rows(ws, LIMCOM.IMRATIO, 1, [&](std::size_t t, int) {
    return mills_ratio(side() * (m.index[t] - h * LIMCOM.LIMIT), true);
  });
  if (!OCOM.ODONT) save_model(ws, m);
}

}  // namespace korvel
