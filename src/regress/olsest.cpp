// OLSEST: one least-squares estimation, from the columns to the stored results.

#include <algorithm>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

constexpr int ERR_COLLINEAR = 6017;

void print_header(Workspace ws, const ResultProfile& profile, const ListItem& dependent) {
  Line first;
  first.put<"(1X, A6, 'ESTIMATION ')">(profile.word);
  Line second;
  second.put<"(I9, ' OBSERVATIONS', 5X, 'DEPENDENT VARIABLE= ', A)">(DATCOM.NOB,
                                                                     NAME(ws, dependent.var));
  OUTLINE();
  say<"(' ...NOTE..SAMPLE RANGE SET TO:', I7, ',', I7)">(DATCOM.MBEG, DATCOM.MEND);
}

void warn_dummy(const double* y, std::int64_t n) {
  if (!std::all_of(y, y + n, [](double v) { return v == 0.0 || v == 1.0; })) return;
  warn(" ...WARNING..DEPENDENT VARIABLE IS DUMMY VARIABLE");
  if (OSCOM.OWARN) say("...TRY LOGIT or PROBIT");
}

void dump_matrix(const ColumnList& x) {
  for (std::int64_t t = 0; t < x.rows; ++t) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t c = 0; c < x.column.size(); ++c) {
      if (c > 0 && c % 8 == 0) {
        OUTLINE();
        row = Line();
        row.put<"(1X)">();
      }
      row.put<"(G15.7)">(x.at(c, t));
    }
    OUTLINE();
  }
}

// The fit failed: the reason, the variable that brought it about, the code for scripts.
void report_fault(Workspace ws, int IFAULT, std::span<const ListItem> list) {
  OCOM.IFAULT = IFAULT;
  if (IFAULT == FEWER_ROWS) {
    fail<"(' ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:', I10)">(DATCOM.NOB);
  } else {
    MATINV(IFAULT, "GRAM-SCHMIDT REGRESSION");
    warn<"(' ...WARNING..THIS USUALLY INDICATES PERFECT MULTICOLLINEARITY WITH VARIABLE ', A)">(
        NAME(ws, list[static_cast<std::size_t>(IFAULT - 1)].var));
  }
  temporary(temporary_place("ERR")) = ERR_COLLINEAR;
}

void print_auxiliary(Workspace ws, const Estimate& est) {
  for (int j = 1; j <= est.K(); ++j) {
    const auto k = static_cast<std::size_t>(j - 1);
    if (est.list[k].var == DATCOM.MCON) continue;
    const double p = est.cov[packed(j, j)] * est.squares[k];
    const double R2 = p == 0.0 ? 0.0 : 1.0 - 1.0 / p;
    say<"(' R-SQUARE OF ', A, ' ON OTHER INDEPENDENT VARIABLES =', F9.4)">(
        NAME(ws, est.list[k].var), R2);
  }
}

// Pieces of one scratch area.
struct Room {
  std::span<double> coef, means, squares, factor, cov, work, copies, weight, root, residual,
      observed, hat, robust, row;
};

bool wants_influence() {
  const OlsCom& o = OLSCOM;
  const bool asked = o.INFLUENC || o.DFBETAS || !o.HATDIAG.text.empty();
  return asked && !o.HETCOV && !o.weighted;
}

bool wants_residuals() {
  const OlsCom& o = OLSCOM;
  return o.RSTAT || o.HETCOV || !o.RESID.text.empty() || !o.PREDICT.text.empty() ||
         wants_influence();
}

}  // namespace

void OLSEST(Workspace ws, const ResultProfile& profile) {
  const Trace trace("OLSEST");
  const int NF = OLSCOM.NF;
  const int K = NF - 1;
  const auto columns = static_cast<std::size_t>(NF);
  const auto N = static_cast<std::size_t>(DATCOM.NOB);
  const bool weighted = OLSCOM.weighted;
  const std::span<const ListItem> loaded = SCNCOM.INLIST.first(columns + (weighted ? 1 : 0));
  const std::span<const ListItem> list = loaded.first(columns);
  const bool residuals = wants_residuals();
  const bool influence = wants_influence();
  if (OCOM.OPUT) print_header(ws, profile, list.back());

  // 1. Room: small vectors and matrices, the kernel's work space, and columns of N words only where
  // they are needed.
  const std::int64_t n = DATCOM.NOB;
  const auto triangle = static_cast<std::int64_t>(packed_words(NF));
  const std::int64_t copies = LOADX_copies(loaded) * n;
  const std::int64_t words = std::int64_t{7} * NF + 4 * triangle + GSREG_words(NF, n) + copies + 8 +
                             (weighted ? 3 * n : 0) + (residuals ? n : 0) + (influence ? n : 0);
  Scratch scratch(ws, words);
  if (!scratch) return;
  Room room;
  room.coef = scratch.take(static_cast<std::size_t>(K));
  room.means = scratch.take(columns);
  room.squares = scratch.take(columns);
  room.factor = scratch.take(packed_words(NF));
  room.cov = scratch.take(packed_words(K));
  room.work = scratch.take(static_cast<std::size_t>(GSREG_words(NF, n)));
  room.copies = scratch.take(static_cast<std::size_t>(copies));
  if (weighted) {
    room.weight = scratch.take(N);
    room.root = scratch.take(N);
    room.observed = scratch.take(N);
  }
  if (residuals) room.residual = scratch.take(N);
  if (influence) room.hat = scratch.take(N);
  if (OLSCOM.HETCOV) room.robust = scratch.take(2 * packed_words(K));
  room.row = scratch.take(2 * columns);

  // 2. The columns.
  const std::span<double> places = scratch.take(columns + 1);
  static_assert(sizeof(const double*) <= sizeof(double));
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, columns + 1, nullptr);
  if (!LOADX(ws, loaded, room.copies, {pointers, loaded.size()})) return;
  ColumnList x{{pointers, columns}, n, nullptr};
  const ColumnList raw = x;
  const double* y = x.column.back();
  if (OCOM.OPUT && OSCOM.OWARN) warn_dummy(y, n);
  if (OLSCOM.DUMP) dump_matrix(raw);

  // 3. Weights, and the fit. Without weights the fit's own pass over the data gives the moments.
  FCOM.SSE = 0.0;
  FCOM.XMAXL = 0.0;
  FCOM.ZZ = static_cast<double>(DATCOM.NOB);
  FCOM.SWT = FCOM.ZZ;
  int first = OCOM.OPUT || OLSCOM.AUXRSQR ? 0 : K;
  if (weighted) {
    std::copy_n(pointers[columns], N, room.weight.data());
    WEIGHTS(ws, raw, room.weight, room.root, room.means, room.squares);
    x.root = room.root.data();
    first = NF;
  }
  const int IFAULT = GSREG(x, room.work, room.factor, first, room.means, room.squares);
  if (OCOM.OPUT && OSCOM.OWARN && IFAULT != FEWER_ROWS) {
    for (std::size_t k = 0; k < columns - 1; ++k) {
      if (room.squares[k] == 0.0 && list[k].var != DATCOM.MCON) {
        warn<"(' ...WARNING..VARIABLE ', A, ' IS A CONSTANT')">(NAME(ws, list[k].var));
      }
    }
  }
  if (IFAULT != 0) return report_fault(ws, IFAULT, list);
  gs_coefficients(room.factor, NF, room.coef);
  gs_inverse(room.factor, NF, room.cov);
  FCOM.SSE = room.factor[packed(NF, NF)];
  if (gs_condition(room.factor, room.cov, NF) > REFINE_ABOVE) {
    const Refinement fit = GSREFINE(x, room.factor, room.work, room.coef);
    if (fit.IFAULT == 0) FCOM.SSE = fit.SSE;
  }

  // 4. Residuals, when somebody asks for them; the robust covariance.
  std::span<const double> observed(y, N);
  if (residuals) {
    gs_residuals(raw, room.coef, room.residual);
    if (OLSCOM.HETCOV) {
      YHATS(x, room.residual, OLSCOM.AUTCOV, room.cov, room.robust, room.row);
      OLSCOM.MULSIGSQ = false;
    }
    if (weighted && !OLSCOM.UT) {
      for (std::size_t t = 0; t < N; ++t) {
        room.residual[t] *= room.root[t];
        room.observed[t] = room.root[t] * y[t];
      }
      observed = room.observed;
    }
  }

  // 5. Statistics.
  const double ybar = room.means.back();
  const double W = OLSCOM.NORMALIZ ? FCOM.ZZ : FCOM.SWT;
  FCOM.SST = room.squares.back();
  FCOM.RAW = FCOM.SST + ybar * ybar * W;
  FCOM.DF = OLSCOM.DN ? FCOM.ZZ : FCOM.ZZ - K + FCOM.NQ;
  if (OLSCOM.INSIG2 > 0.0) FCOM.SSE = OLSCOM.INSIG2 * FCOM.DF;
  FCOM.SEPLOT = FCOM.DF > 0.0 ? std::sqrt(std::fabs(FCOM.SSE / FCOM.DF)) : 1.0;
  Estimate est{.profile = &profile,
               .list = list,
               .coef = room.coef,
               .cov = room.cov,
               .means = room.means,
               .squares = room.squares,
               .observed = {},
               .residual = {}};
  if (residuals) {
    est.observed = observed;
    est.residual = room.residual;
  }
  if (OLSCOM.AUXRSQR && OLSCOM.CONSTANT && OCOM.OPUT) print_auxiliary(ws, est);

  // 6. Results: tables, influence of single rows, variables.
  OLSOUT(ws, est);
  if (influence) INFLUE(ws, est, raw, room.factor, room.hat, room.row);
  store_results(ws, est, room.hat);
  OCOM.OMEAN = false;
}

}  // namespace korvel
