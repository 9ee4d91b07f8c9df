// Tables of AUTO: header, iterations, the coefficients of the errors; and its way into the results
// stage, which works on the variables as they were listed.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/auto.h"

namespace korvel {
namespace {

constexpr int MOST_GAPS = 20;  // that are listed

// The errors behind the fit have one variance: sigma squared as the results stage will print it.
double error_variance() {
  const double DF = OLSCOM.DN ? FCOM.ZZ : FCOM.ZZ - (OLSCOM.NF - 1) + FCOM.NQ;
  return DF > 0.0 ? FCOM.SSE / DF : FCOM.SSE;
}

// The observation that stands `rank` kept rows behind the first one.
int observation_of(Workspace ws, std::int64_t rank) {
  KeptRows rows(ws);
  while (rows.next() && rows.row < rank) continue;
  return rows.obs;
}

void print_gaps(Workspace ws, std::span<const Gap> gaps) {
  const auto line = [](double missing, int row) {
    say<"(' ESTIMATES ADJUSTED FOR', I6, ' MISSING OBS. AFTER ', ' OB. NO.', I7)">(
        std::lround(missing), row);
  };
  if (AUTCOM.GAP > 0) return line(AUTCOM.NMISS, AUTCOM.GAP);
  KeptRows rows(ws);
  int listed = 0;
  for (const Gap& gap : gaps) {
    if (++listed > MOST_GAPS) {
      say<"(' ...NOTE..', I0, ' MORE GAPS ARE NOT LISTED')">(std::ssize(gaps) - MOST_GAPS);
      return;
    }
    while (rows.row < gap.row - 1 && rows.next()) continue;
    line(gap.steps - 1.0, rows.obs);
  }
}

// DROP: the rows of the results begin behind those that were left out.
void shift_range(Workspace ws, std::int64_t lost) {
  if (lost == 0) return;
  DATCOM.MBEG = observation_of(ws, lost);
  DATCOM.NOB -= static_cast<int>(lost);
}

void print_likelihood(const AutoResult& result, double N) {
  constexpr std::size_t on_line = 7;
  Line row;
  row.put<"('  LOG L.F. =', G13.5)">(auto_likelihood(N, FCOM.SSE, result.jacobian));
  if (!result.r.empty()) row.put<"('    AT RHO =')">();
  for (std::size_t j = 0; j < std::min(result.r.size(), on_line); ++j) {
    row.put<"(F10.5)">(result.r[j]);
  }
  OUTLINE();
}

void print_rho_row(std::string_view kind, int number, double estimate, double variance) {
  Line row;
  if (number == 0)
    row.put<"(1X, A, 2X)">(kind);
  else
    row.put<"(1X, A, I0)">(kind, number);
  row.column(7);
  row.put<"(G14.5)">(estimate);
  // A value that was set, at the edge of the stable range or beyond it, has no variance.
  if (variance > 0.0) {
    const double se = std::sqrt(variance);
    row.put<"(3G14.5)">(variance, se, estimate / se);
  }
  OUTLINE();
}

}  // namespace

void print_auto_header(Workspace ws, std::int64_t N, bool gauss_newton, std::span<const Gap> gaps) {
  if (!OCOM.OPUT) return;
  const OlsCom& o = OLSCOM;
  say<"(' DEPENDENT VARIABLE = ', A)">(
      NAME(ws, model_list()[static_cast<std::size_t>(o.NF - 1)].var));
  if (o.RESTRICT || o.RSTAT || o.ANOVA) {
    say(" ...NOTE..R-SQUARE,ANOVA,RESIDUALS DONE ON ORIGINAL VARS");
  }
  if (o.skips) say<"(' NUMBER OF SKIPPED OBSERVATIONS =', I7)">(DATCOM.NSKIP);
  if (o.DLAG) {
    say(" DLAG OPTION IN EFFECT - FIRST INDEPENDENT VARIABLE MUST BE LAGGED DEP. VAR.");
    say("   VARIANCES COMPUTED USING DHRYMES THEOREM");
  }
  if (o.DN) say(" DN OPTION IN EFFECT - DIVISOR IS N");
  print_gaps(ws, gaps);
  if (AUTCOM.ML)
    say<"(' MAXIMUM LIKELIHOOD ESTIMATION', I9, ' OBSERVATIONS')">(N);
  else
    say<"(' LEAST SQUARES ESTIMATION', I9, ' OBSERVATIONS')">(N);
  if (AUTCOM.GS) {
    say(" BY GRID SEARCH TO ACCURACY OF .01");
  } else if (gauss_newton) {
    say<"(' BY GAUSS-NEWTON PROCEDURE WITH CONVERGENCE =', G13.5)">(AUTCOM.CONV);
  } else {
    say<"(' BY COCHRANE-ORCUTT TYPE PROCEDURE WITH CONVERGENCE =', G13.5)">(AUTCOM.CONV);
  }
}

void print_auto_heading(bool higher) {
  if (!OCOM.OPUT || !AUTCOM.PITER) return;
  const Line blank;
  Line row;
  if (higher)
    row.put<"(1X, 'ITERATION', 10X, 'RHO1', 10X, 'RHO2', 10X, 'SSE')">();
  else
    row.put<"(1X, 'ITERATION', 11X, 'RHO', 5X, 'LOG L.F.', 14X, 'SSE')">();
  OUTLINE();
}

void print_auto_iteration(int iteration, double r, double L) {
  if (!OCOM.OPUT || !AUTCOM.PITER) return;
  say<"(I10, F14.5, 2G17.5)">(iteration, r, L, FCOM.SSE);
}

void print_auto_iteration(int iteration, std::span<const double> coefficients) {
  if (!OCOM.OPUT || !AUTCOM.PITER) return;
  Line row;
  row.put<"(I10, F14.5)">(iteration, coefficients[0]);
  if (coefficients.size() > 1) row.put<"(F14.5)">(coefficients[1]);
  row.column(39);
  row.put<"(G17.5)">(FCOM.SSE);
  OUTLINE();
}

void print_auto_rho(const AutoResult& result, double N) {
  if (!OCOM.OPUT) return;
  print_likelihood(result, N);
  const Line blank;
  Line first, second;
  first.put<"(20X, 'ASYMPTOTIC', 4X, 'ASYMPTOTIC', 4X, 'ASYMPTOTIC')">();
  second.put<"(8X, 'ESTIMATE', 6X, 'VARIANCE', 6X, 'ST.ERROR', 7X, 'T-RATIO')">();
  OUTLINE();
  const std::size_t p = result.r.size();
  const bool numbered = p + result.m.size() > 1;
  for (std::size_t j = 0; j < p; ++j) {
    print_rho_row("RHO", numbered ? static_cast<int>(j) + 1 : 0, result.r[j], result.variance[j]);
  }
  for (std::size_t j = 0; j < result.m.size(); ++j) {
    print_rho_row("MA", static_cast<int>(j) + 1, result.m[j], result.variance[p + j]);
  }
}

bool dhrymes_failed() {
  fail(
      " ...ERROR..MATRIX INVERSION FAILED DURING DHRYMES ADJUSTMENT PROBABLY DUE TO CORRELATION "
      "BETWEEN RHO AND COEFFICIENTS");
  return false;
}

bool adjust_dhrymes(std::span<const double> cross, double square, std::span<double> work,
                    AutoRoom& room, AutoResult& result) {
  // The inverse of [X'X a; a'd], a the cross-products and d the square, by the block formula:
  // (X'X)^-1 grows by c c'/s with c = (X'X)^-1 a, s = d - a'c.
  const std::span<double> C = room.fit.cov;
  const std::span<double> c = work.first(cross.size());
  const int K = static_cast<int>(cross.size());
  double s = square;
  for (int i = 1; i <= K; ++i) {
    const auto at = static_cast<std::size_t>(i - 1);
    c[at] = 0.0;
    for (int j = 1; j <= K; ++j) {
      c[at] += C[packed(std::max(i, j), std::min(i, j))] * cross[static_cast<std::size_t>(j - 1)];
    }
    s -= c[at] * cross[at];
  }
  // Below this share only rounding is left of RHO beside the coefficients; above it the printed
  // digits hold.
  constexpr double rounding = 1e-10;
  if (!(s > rounding * square)) return dhrymes_failed();
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      C[packed(i, j)] +=
          c[static_cast<std::size_t>(i - 1)] * c[static_cast<std::size_t>(j - 1)] / s;
    }
  }
  result.lag_variance = c[0] * c[0] / s;
  result.lag_covariance = -c[0] / s;
  return true;
}

void print_dhrymes(const AutoResult& result, double b1) {
  if (std::fabs(b1) >= 1.0) {
    warn(
        " ...WARNING..COEFFICIENT ON LAGGED DEP. VAR IS"
        " OUTSIDE OF STABLE RANGE");
  }
  if (!OCOM.OPUT) return;
  const double sigma2 = error_variance();
  say<"(' THEORETICAL DIFFERENCE DUE TO DHRYMES ADJUSTMENT=', G13.5)">(sigma2 *
                                                                       result.lag_variance);
  say<"(' COVARIANCE BETWEEN RHO AND LAGGED DEPVAR=', G13.5)">(sigma2 * result.lag_covariance);
}

void finish_auto(Workspace ws, AutoRoom& room, const ResultProfile& profile,
                 const AutoResult& result) {
  const std::int64_t lost = room.raw.rows - room.used.rows;
  const int gap_obs = AUTCOM.GAP > 0 ? observation_of(ws, AUTCOM.GAP) : 0;
  if (OLSCOM.DUMP && OCOM.OPUT) dump_matrix(room.rows.x);
  shift_range(ws, lost);
  // Sums of squares and means are those of the variables as listed, the errors those behind the
  // fit.
  const double ybar = room.data.means.back();
  FCOM.SST = room.data.squares.back();
  FCOM.RAW = FCOM.SST + ybar * ybar * FCOM.ZZ;
  FCOM.DF = OLSCOM.DN ? FCOM.ZZ : FCOM.ZZ - (OLSCOM.NF - 1) + FCOM.NQ;
  FCOM.SEPLOT = FCOM.DF > 0.0 ? std::sqrt(std::fabs(FCOM.SSE / FCOM.DF)) : 1.0;
  FCOM.XMAXL = result.jacobian;
  FCOM.RHO = result.r.empty() ? 0.0 : result.r[0];
  FCOM.RHO2 = result.r.size() < 2 ? 0.0 : result.r[1];
  Estimate est{.profile = &profile,
               .list = model_list().first(static_cast<std::size_t>(OLSCOM.NF)),
               .coef = room.fit.coef,
               .cov = room.fit.cov,
               .means = room.data.means,
               .squares = room.data.squares,
               .observed = {room.used.column.back(), static_cast<std::size_t>(room.used.rows)},
               .residual = room.u};
  OLSOUT(ws, est);
  if (!result.r.empty()) temporary(temporary_place("RHO")) = result.r[0];
  store_results(ws, est, {});
  if (OCOM.ODONT) return;
  save_estimate(ws, est);
  SAVED.rho.assign(result.r.begin(), result.r.end());
  SAVED.theta.assign(result.m.begin(), result.m.end());
  SAVED.before.assign(result.before.begin(), result.before.end());
  SAVED.first_rows = lost == 0;
  SAVED.gaps = AUTCOM.MISS;
  SAVED.gap_obs = gap_obs;
  SAVED.gap_steps = AUTCOM.NMISS + 1.0;
}

}  // namespace korvel
