// HHEST: the Householder fit; HHCON: what it is asked for. The tests are in hhlsm.cpp.
#include "regress/hhest.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "engine/options.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/gsreg_lanes.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/moments.h"
#include "expr/kernels/packed.h"
#include "stats/durbin_watson.h"
#include "stats/durbin_watson_ar.h"

namespace korvel {
namespace {

// Columns begin on 64-byte steps from one another, and not a power of two apart.
std::int64_t leading(std::int64_t rows) { return (rows + 7) / 8 * 8 + 8; }

// Words behind the decomposition: the refinement, or the tests.
std::int64_t rest_words(int NF, std::int64_t rows) {
  const int K = NF - 1;
  const std::int64_t fit =
      std::max(GSREFINE_words(NF, rows), LSINVERSE_words(std::min(K, MOST_EXACT), rows)) + NF;
  if (!OLSCOM.DWPVALUE && !OLSCOM.PLUSH) return fit;
  const auto n = static_cast<std::size_t>(rows);
  const auto k = static_cast<std::size_t>(K);
  // An order that no pair of rows has needs no room: there is no test then.
  const bool possible = OLSCOM.ORDER >= 1 && OLSCOM.ORDER < rows;
  const DifferenceRows pairs{.order = possible ? static_cast<std::size_t>(OLSCOM.ORDER) : 1};
  std::size_t test = durbin_watson_words(n, k, pairs);
  if (OLSCOM.RHO != 0.0) test = std::max(test, durbin_watson_ar_words(n, k));
  return std::max(fit, 2 * rows + static_cast<std::int64_t>(test));
}

void print_values(std::span<const double> values) {
  constexpr std::size_t a_line = 5;
  for (std::size_t k = 0; k < values.size(); k += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t i = k; i < std::min(k + a_line, values.size()); ++i) {
      row.put<"(G15.7)">(values[i]);
    }
    OUTLINE();
  }
}

void dump_fit(const HouseholderWork& work, std::span<const double> coef, double SSE) {
  const std::int64_t left = work.x.rows - work.x.columns;
  say<"(' SSE=', G15.7)">(SSE);
  say<"(' RVAR=', G15.7)">(left > 0 ? SSE / static_cast<double>(left) : 0.0);
  say(" PIVOT ORDERING");
  constexpr std::size_t a_line = 10;
  for (std::size_t k = 0; k < work.order.size(); k += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t i = k; i < std::min(k + a_line, work.order.size()); ++i) {
      row.put<"(I6)">(work.order[i] + 1);
    }
    OUTLINE();
  }
  say(" COEFFICIENTS");
  print_values(coef);
  say(" RESIDUALS");
  print_values({work.y, static_cast<std::size_t>(work.x.rows)});
  say(" R, EXCEPT THE DIAGONAL IS IN ALPHA");
  for (int j = 1; j < work.x.columns; ++j) {
    print_values({work.x.column(j), static_cast<std::size_t>(j)});
  }
  say(" ALPHA");
  print_values({work.x.alpha, work.order.size()});
}

// R as the packed factor that the refinement reads (gsreg.h), the columns in the order of the
// pivots.
void pack_factor(const HouseholderWork& work, double SSE, std::span<double> factor) {
  const int K = work.x.columns;
  for (int k = 1; k <= K; ++k) {
    const double* column = work.x.column(k - 1);
    for (int j = 1; j < k; ++j) factor[packed(k, j)] = column[j - 1] / work.x.alpha[j - 1];
    factor[packed(k, k)] = work.x.alpha[k - 1] * work.x.alpha[k - 1];
    factor[packed(K + 1, k)] = work.Qty[static_cast<std::size_t>(k - 1)] / work.x.alpha[k - 1];
  }
  factor[packed(K + 1, K + 1)] = SSE;
}

// The column at `place` (from 1) is a combination of those before it: the last regressor of the
// model (from 1) that takes part, which is the one that METHOD=GS would name.
int last_of_combination(HouseholderWork& work, int place) {
  const HouseholderMatrix& x = work.x;
  const int n = place - 1;
  const double* column = x.column(n);
  int last = work.order[static_cast<std::size_t>(n)];
  const auto length = [&](int j) {
    const auto k = static_cast<std::size_t>(work.order[static_cast<std::size_t>(j)]);
    return std::sqrt(work.squares[k]);
  };
  for (int j = n - 1; j >= 0; --j) {
    double c = column[j];
    for (int k = j + 1; k < n; ++k) c -= x.column(k)[j] * work.b[static_cast<std::size_t>(k)];
    c /= x.alpha[j];
    work.b[static_cast<std::size_t>(j)] = c;
    constexpr double rounding = 1e-10;
    if (std::fabs(c) * length(j) > rounding * length(n)) {
      last = std::max(last, work.order[static_cast<std::size_t>(j)]);
    }
  }
  return last + 1;
}

// Rounding over many rows can leave more of an exact combination than the limit: the column at
// place j is fitted on those before it once more, with refined residuals. True when it is one.
bool dependent(const ColumnList& x, int j, double T, std::span<double> factor,
               std::span<double> work) {
  double& S = factor[packed(j, j)];
  if (S > HH_DOUBTFUL * T) return false;
  const auto order = static_cast<std::size_t>(j);
  ColumnList part{x.column.first(order), x.rows, x.root};
  if (!x.scale.empty()) part.scale = x.scale.first(order);
  const std::span<double> b = work.first(order);
  gs_coefficients(factor, j, b);
  const Refinement fit = GSREFINE(part, factor, work.subspan(order), b);
  if (fit.IFAULT == 0) S = fit.SSE;
  return !(S > HH_DEPENDENT * T);
}

}  // namespace

std::int64_t HHEST_words(int NF, std::int64_t rows) {
  const std::int64_t K = NF - 1;
  return leading(rows) * NF + 8 + 10 * (K + 1) + rest_words(NF, rows);
}

HouseholderWork share_householder(std::span<double> work, int NF, std::int64_t rows) {
  const auto columns = static_cast<std::size_t>(NF);
  const std::size_t K = columns - 1;
  const auto take = [&work](std::size_t n) {
    const std::span<double> part = work.first(n);
    work = work.subspan(n);
    return part;
  };
  HouseholderWork w;
  const std::int64_t ld = leading(rows);
  double* const a = take(static_cast<std::size_t>(ld * NF)).data();
  w.x = {a, rows, NF - 1, ld, take(K).data()};
  w.y = a + ld * (NF - 1);
  w.squares = take(columns);
  w.norms = take(3 * K);
  w.Qty = take(K);
  w.b = take(K);
  w.scale = take(columns);
  static_assert(sizeof(const double*) <= sizeof(double) && sizeof(int) <= sizeof(double));
  auto* const places = reinterpret_cast<int*>(take(K).data());
  std::uninitialized_fill_n(places, K, 0);
  w.order = {places, K};
  auto* const pointers = reinterpret_cast<const double**>(take(columns).data());
  std::uninitialized_fill_n(pointers, columns, nullptr);
  w.column = {pointers, columns};
  w.rest = work;
  return w;
}

void tell_householder_space(std::int64_t words) {
  if (words <= std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) return;
  error_line(" ...ERROR..INSUFFICIENT SPACE FOR HOUSEHOLDER METHOD");
}

void warn_unused_tests() {
  const OlsCom& o = OLSCOM;
  const bool off = !o.DWPVALUE;
  const IdleOption options[] = {{off && o.ORDER != 1, "ORDER", "DWPVALUE"},
                                {off && o.GAP != 0, "GAP", "DWPVALUE"},
                                {off && o.NMISS != 0, "NMISS", "DWPVALUE"},
                                {off && o.MISS, "MISS", "DWPVALUE"},
                                {off && o.INDW != 0.0, "INDW", "DWPVALUE"},
                                {off && o.RHO != 0.0, "RHO", "DWPVALUE"},
                                {o.PLUSH && o.METHOD != Method::HH, "PLUSH", "METHOD=HH"}};
  warn_idle_options(options);
}

void HHCON() {
  const OlsCom& o = OLSCOM;
  if (!OCOM.OPUT || !o.DWPVALUE) return;
  if (o.ORDER != 1) say<"(1X, I0, ' ORDER TEST')">(o.ORDER);
  if (o.GAP != 0) say<"(' GAP AFTER OB. NO.', I6)">(o.GAP);
  const int missing = o.NMISS == 0 && o.MISS && o.skips ? DATCOM.NSKIP : o.NMISS;
  if (missing != 0) say<"(1X, I0, ' MISSING OBS')">(missing);
  if (o.RHO != 0.0) say<"(' USING RHO=', F9.5)">(o.RHO);
  if (o.INDW != 0.0) say<"(' USING DW=', F9.5)">(o.INDW);
}

void load_householder(const ColumnList& x, HouseholderWork& work) {
  const GsLanes& lanes = gs_lanes();
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    double* to = work.x.a + work.x.ld * static_cast<std::int64_t>(k);
    lanes.load_column(x.column[k], x.root, x.rows, to);
    if (!x.scale.empty() && x.scale[k] != 1.0) {
      for (std::int64_t t = 0; t < x.rows; ++t) to[t] *= x.scale[k];
    }
    work.squares[k] = hh_squares(to, x.rows);
  }
}

void householder_moments(HouseholderWork& work, std::span<double> means,
                         std::span<double> squares) {
  for (std::size_t k = 0; k < work.column.size(); ++k) {
    work.column[k] = work.x.a + work.x.ld * static_cast<std::int64_t>(k);
  }
  AVES({work.column, work.x.rows, nullptr, {}}, {}, {}, {.means = means, .squares = squares});
}

int HHEST(const ColumnList& x, HouseholderWork& work, FitRoom& room) {
  const Trace trace("HHEST");
  const int NF = x.columns();
  const int K = NF - 1;
  const auto columns = static_cast<std::size_t>(K);
  // 1. Decomposition and solution.
  const std::span<double> squares = work.norms.first(columns);
  std::copy_n(work.squares.begin(), K, squares.begin());
  const int place = HHDCMP(work.x, squares, work.order, work.norms.subspan(columns));
  const auto model = [&](int j) {
    return static_cast<std::size_t>(work.order[std::size_t(j - 1)]);
  };
  if (place != 0) return last_of_combination(work, place);
  FCOM.SSE = HHSOLV(work.x, work.order, work.y, work.Qty, room.coef);
  // 2. The columns in the order of the pivots, for the routines that read the packed factor.
  ColumnList pivoted{work.column, x.rows, x.root, {}};
  if (!x.scale.empty()) pivoted.scale = work.scale;
  for (int j = 1; j <= NF; ++j) {
    const auto from = j <= K ? model(j) : columns;
    work.column[static_cast<std::size_t>(j - 1)] = x.column[from];
    if (!x.scale.empty()) work.scale[static_cast<std::size_t>(j - 1)] = x.scale[from];
  }
  pack_factor(work, FCOM.SSE, room.factor);
  for (int j = 2; j <= K; ++j) {
    if (dependent(pivoted, j, work.squares[model(j)], room.factor, work.rest)) {
      return last_of_combination(work, j);
    }
  }
  // 3. (X'X)^-1 = (R'R)^-1.
  const std::span<double> inverse = room.cross.first(packed_words(K));
  gs_inverse(room.factor, NF, inverse);
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      room.cov[packed(static_cast<int>(model(i)) + 1, static_cast<int>(model(j)) + 1)] =
          inverse[packed(i, j)];
    }
  }
  // 4. Refined like the fit by METHOD=GS; short data always are, since one further sweep is nothing
  // beside the command around it and brings the last digit.
  constexpr std::int64_t short_words = 50000;
  if (NF * x.rows <= short_words ||
      worth_refining(gs_condition(room.factor, inverse, NF), NF, x.rows)) {
    for (int j = 1; j <= K; ++j) work.b[static_cast<std::size_t>(j - 1)] = room.coef[model(j)];
    const Refinement fit = GSREFINE(pivoted, room.factor, work.rest, work.b);
    if (fit.IFAULT == 0) {
      FCOM.SSE = fit.SSE;
      for (int j = 1; j <= K; ++j) room.coef[model(j)] = work.b[static_cast<std::size_t>(j - 1)];
    }
    if (K <= MOST_EXACT) LSINVERSE(x, K, work.rest, room.cov);
  }
  if (OLSCOM.DUMP && OCOM.OPUT) dump_fit(work, room.coef, FCOM.SSE);
  return 0;
}

}  // namespace korvel
