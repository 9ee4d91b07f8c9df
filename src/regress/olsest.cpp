// OLSEST: one least-squares estimation, from the columns to the stored results.

#include <algorithm>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/hhest.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {

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

namespace {

void print_header(Workspace ws, const ResultProfile& profile, const ListItem& dependent) {
  const int rows = OLSCOM.build == Build::Dlrx ? 2 * DATCOM.NOB : DATCOM.NOB;
  Line first;
  first.put<"(1X, A6, 'ESTIMATION ')">(profile.word);
  Line second;
  second.put<"(I9, ' OBSERVATIONS', 5X, 'DEPENDENT VARIABLE= ', A)">(rows, NAME(ws, dependent.var));
  OUTLINE();
  if (FCOM.RIDG != 0.0) {
    const Line blank;
    Line ridge;
    ridge.put<"('  ESTIMATING RIDGE REGRESSION FOR K=', F11.8)">(FCOM.RIDG);
    OUTLINE();
  }
  say<"(' ...NOTE..SAMPLE RANGE SET TO:', I7, ',', I7)">(DATCOM.MBEG, DATCOM.MEND);
}

void warn_dummy(const double* y, std::int64_t n) {
  if (!std::all_of(y, y + n, [](double v) { return v == 0.0 || v == 1.0; })) return;
  warn(" ...WARNING..DEPENDENT VARIABLE IS DUMMY VARIABLE");
  if (OSCOM.OWARN) say("...TRY LOGIT or PROBIT");
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

bool restricted() { return OLSCOM.RESTRICT || OLSCOM.lag_terms; }

bool wants_influence() {
  const OlsCom& o = OLSCOM;
  const bool asked = o.INFLUENC || o.DFBETAS || !o.HATDIAG.text.empty();
  return asked && !o.HETCOV && !o.weighted && !restricted() && FCOM.RIDG == 0.0 && !o.stepwise &&
         o.blocks == 1;
}

bool wants_residuals() {
  const OlsCom& o = OLSCOM;
  return o.RSTAT || o.HETCOV || !o.RESID.text.empty() || !o.PREDICT.text.empty() || restricted() ||
         wants_influence();
}

// Words of the fit's room. `rows` is left aside where rows are read in place.
std::int64_t room_words(std::int64_t n, bool in_place) {
  const OlsCom& o = OLSCOM;
  const std::span<const ListItem> list = model_list();
  const std::int64_t rows = n * o.blocks;
  const std::int64_t small = std::int64_t{8} * o.NF +
                             4 * static_cast<std::int64_t>(packed_words(o.NF)) +
                             static_cast<std::int64_t>(list.size()) + 16;
  std::int64_t kernel = fit_words(o.NF, in_place ? DATCOM.MEND - DATCOM.MBEG + 1 : rows);
  if (in_place) return small + kernel;
  if (o.HETCOV) kernel = std::max(kernel, YHATS_words(o.NF - 1, rows, o.AUTCOV));
  if (wants_influence()) kernel = std::max(kernel, GSREG_words(o.NF, rows));
  std::int64_t by_rows = std::int64_t{LOADX_copies(list)} * n;
  if (o.build != Build::Plain) by_rows += o.NF * rows + DATCOM.MEND + o.NDROP;
  if (o.weighted) by_rows += 3 * rows;
  if (wants_residuals()) by_rows += rows;
  if (wants_influence()) by_rows += rows;
  return small + kernel + by_rows;
}

// The normal equations alone can take rows where they lie; they do when copies of the columns
// would not fit.
bool read_in_place(std::int64_t n) {
  const OlsCom& o = OLSCOM;
  const bool possible = o.METHOD == Method::NORMAL && o.build == Build::Plain && !o.RECURSIV &&
                        !wants_residuals() && !(o.weighted && OSCOM.OSMISS);
  const std::int64_t free = std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD;
  return possible && room_words(n, false) > free;
}

// The robust covariance may be the one thing that does not fit; that has a message of its own.
bool room_for_robust(std::int64_t n) {
  const std::int64_t free = std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD;
  const std::int64_t words = room_words(n, false);
  if (words <= free) return true;
  const std::int64_t rows = n * OLSCOM.blocks;
  const std::int64_t robust = YHATS_words(OLSCOM.NF - 1, rows, OLSCOM.AUTCOV);
  if (words - std::max<std::int64_t>(0, robust - fit_words(OLSCOM.NF, rows)) > free) return true;
  fail(" ...ERROR..INSUFFICIENT MEMORY TO CORRECT COVARIANCE MATRIX");
  temporary(temporary_place("ERR")) = 6017;
  return false;
}

FitRoom share_room(Scratch& scratch, std::int64_t n, bool in_place) {
  const OlsCom& o = OLSCOM;
  const int K = o.NF - 1;
  const auto NF = static_cast<std::size_t>(o.NF);
  const auto rows = static_cast<std::size_t>(n * o.blocks);
  FitRoom room;
  room.coef = scratch.take(NF - 1);
  room.means = scratch.take(NF);
  room.squares = scratch.take(NF);
  room.scale = scratch.take(NF);
  room.row = scratch.take(2 * NF);
  room.factor = scratch.take(packed_words(o.NF));
  room.cov = scratch.take(packed_words(K));
  room.cross = scratch.take(packed_words(o.NF));
  room.spare = scratch.take(packed_words(o.NF));
  const std::size_t loaded = model_list().size();
  const std::span<double> places = scratch.take(loaded);
  static_assert(sizeof(const double*) <= sizeof(double));
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, loaded, nullptr);
  room.column = {pointers, loaded};
  if (!in_place) {
    room.copies = scratch.take(static_cast<std::size_t>(LOADX_copies(model_list()) * n));
    if (o.build != Build::Plain) room.built = scratch.take(NF * rows);
    if (o.build == Build::Pilags) {
      room.powers = scratch.take(static_cast<std::size_t>(DATCOM.MEND + o.NDROP));
    }
    if (o.weighted) {
      room.weight = scratch.take(rows);
      room.root = scratch.take(rows);
      room.observed = scratch.take(rows);
    }
    if (wants_residuals()) room.residual = scratch.take(rows);
    if (wants_influence()) room.hat = scratch.take(rows);
  }
  room.work = scratch.rest();
  return room;
}

bool weights_finite(Workspace ws, const double* weight, std::int64_t n) {
  const bool good = std::all_of(weight, weight + n, [](double w) { return std::isfinite(w); });
  return good || refuse_values(ws, OLSCOM.KWT);
}

// Loads the columns, makes those that have to be made, and gives the rows their weights.
bool load_data(Workspace ws, FitRoom& room, FitData& data, std::int64_t n) {
  const OlsCom& o = OLSCOM;
  const auto columns = static_cast<std::size_t>(o.NF);
  const std::span<const ListItem> list = model_list();
  data.rows = n * o.blocks;
  FCOM.XMAXL = 0.0;
  FCOM.ZZ = static_cast<double>(o.build == Build::Dlrx ? data.rows : n);
  FCOM.SWT = FCOM.ZZ;
  if (data.in_place) {
    if (!LOADX_in_place(ws, list, room.column)) return false;
    data.raw = {room.column.first(columns), DATCOM.MEND - DATCOM.MBEG + 1, nullptr, {}};
    data.x = data.raw;
    if (o.weighted) {
      data.weight = room.column.back();
      if (!weights_finite(ws, data.weight, data.raw.rows)) return false;
    }
    if (o.skips) {
      const std::span<const double> marks = skip_vector(ws);
      const auto from = std::min(marks.size(), static_cast<std::size_t>(DATCOM.MBEG - 1));
      data.skip = marks.subspan(from);
    }
    return true;
  }
  if (!LOADX(ws, list, room.copies, room.column)) return false;
  build_rows(ws, list.first(columns), n, room.powers, room.built, room.column);
  data.raw = {room.column.first(columns), data.rows, nullptr, {}};
  data.x = data.raw;
  if (OCOM.OPUT && OSCOM.OWARN) warn_dummy(data.raw.column.back(), data.rows);
  if (o.DUMP) dump_matrix(data.raw);
  if (o.weighted) {
    if (!weights_finite(ws, room.column.back(), n)) return false;
    for (int b = 0; b < o.blocks; ++b) {
      std::copy_n(room.column.back(), n, room.weight.data() + b * n);
    }
    WEIGHTS(ws, data.raw, room.weight, room.root, room.means, room.squares);
    data.x.root = room.root.data();
  }
  return true;
}

// Reads the restrictions and brings the coefficients under them. False when the command has failed.
bool restrict_fit(Workspace ws, FitRoom& room) {
  static Restrictions all;
  static Restrictions lags;
  all.q = 0;
  all.R.clear();
  all.r.clear();
  const std::span<const ListItem> regressors =
      model_list().first(static_cast<std::size_t>(OLSCOM.NF - 1));
  if (OLSCOM.RESTRICT) {
    if (OSCOM.OTALK) say(" ENTER RESTRICT COMMANDS, THEN TYPE END");
    if (!read_restrictions(ws, regressors, all)) return false;
  }
  if (OLSCOM.lag_terms) {
    lags.q = 0;
    lags.R.clear();
    lags.r.clear();
    if (!lag_restrictions(regressors, lags)) return false;
    all.q += lags.q;
    all.R.insert(all.R.end(), lags.R.begin(), lags.R.end());
    all.r.insert(all.r.end(), lags.r.begin(), lags.r.end());
  }
  if (all.q == 0) return true;
  if (restrict_estimate(ws, all, room.coef, room.cov)) FCOM.NQ = all.q;
  return !OCOM.ODONT;
}

double weighted_squares(std::span<const double> e, const double* root) {
  double sum = 0.0;
  for (std::size_t t = 0; t < e.size(); ++t) {
    const double v = root == nullptr ? e[t] : root[t] * e[t];
    sum += v * v;
  }
  return sum;
}

}  // namespace

void OLSEST(Workspace ws, const ResultProfile& profile) {
  const Trace trace("OLSEST");
  const OlsCom& o = OLSCOM;
  const std::int64_t n = DATCOM.NOB;
  if (OCOM.OPUT) print_header(ws, profile, model_list()[static_cast<std::size_t>(o.NF - 1)]);

  // 1. Room, columns, weights.
  FitData data;
  data.in_place = read_in_place(n);
  if (o.HETCOV && !room_for_robust(n)) return;
  const std::int64_t words = room_words(n, data.in_place);
  if (o.METHOD == Method::HH) tell_householder_space(words);
  Scratch scratch(ws, words);
  if (!scratch) return;
  FitRoom room = share_room(scratch, n, data.in_place);
  if (!load_data(ws, room, data, n)) return;
  // A sample larger than its population would have a negative variance.
  if (o.NPOP > 0 && FCOM.ZZ > o.NPOP) {
    bad_option_value("NPOP");
    return;
  }

  // 2. The fit, then its restrictions.
  FCOM.SSE = 0.0;
  if (!fit_model(ws, data, room)) return;
  const int NF = o.NF;
  const int K = NF - 1;
  const double SSE_free = FCOM.SSE;
  if (restricted() && !restrict_fit(ws, room)) return;

  // 3. Residuals, when somebody asks for them; the robust covariance.
  const double* y = data.raw.column.back();
  const auto rows = static_cast<std::size_t>(data.rows);
  std::span<const double> observed(y, rows);
  if (!room.residual.empty()) {
    gs_residuals(data.raw, room.coef, room.residual);
    if (FCOM.NQ > 0) FCOM.SSE = weighted_squares(room.residual, data.x.root);
    if (o.HETCOV) {
      YHATS(data.x, room.residual, o.REPLICAT, o.AUTCOV, room.cov, room.work);
      OLSCOM.MULSIGSQ = false;
    }
    if (o.weighted && !o.UT) {
      for (std::size_t t = 0; t < rows; ++t) {
        room.residual[t] *= room.root[t];
        room.observed[t] = room.root[t] * y[t];
      }
      observed = room.observed;
    }
  }
  if (o.INCOVARI != 0 && !take_covariance(ws, room.cov, K)) return;

  // 4. Statistics.
  const double ybar = room.means.back();
  const double W = o.NORMALIZ ? FCOM.ZZ : FCOM.SWT;
  FCOM.SST = room.squares.back();
  FCOM.RAW = FCOM.SST + ybar * ybar * W;
  if (o.build == Build::Imls) {
    FCOM.RAW = complex_moments(data.raw, room.means, room.squares);
    FCOM.SST = room.squares.back();
    // The error variance is that of a complex number; each part has half of it. A covariance from
    // the residuals of the parts, or a given one, does not rest on it.
    if (!o.HETCOV && o.INCOVARI == 0) {
      for (double& c : room.cov) c *= 0.5;
    }
  }
  const int free = K / o.multiplicity;  // coefficients without their second parts
  const double d0 = FCOM.ZZ - free + FCOM.NQ;
  FCOM.DF = o.DN ? FCOM.ZZ : d0;
  if (o.INSIG2 > 0.0) FCOM.SSE = o.INSIG2 * FCOM.DF;
  FCOM.SEPLOT = FCOM.DF > 0.0 ? std::sqrt(std::fabs(FCOM.SSE / FCOM.DF)) : 1.0;
  Estimate est{.profile = &profile,
               .list = model_list().first(static_cast<std::size_t>(NF)),
               .coef = room.coef,
               .cov = room.cov,
               .means = room.means,
               .squares = room.squares,
               .observed = {},
               .residual = {},
               .multiplicity = o.multiplicity,
               .blocks = o.blocks};
  if (!room.residual.empty()) {
    est.observed = observed;
    est.residual = room.residual;
  }
  const bool plain = !restricted() && FCOM.RIDG == 0.0 && !o.stepwise;
  if (o.AUXRSQR && o.CONSTANT && plain && OCOM.OPUT) print_auxiliary(ws, est);
  if (FCOM.NQ > 0) test_restrictions(SSE_free, K);

  // 5. Results: tables, influence of single rows, variables, the estimate for TEST and its like.
  OLSOUT(ws, est);
  if (!room.hat.empty()) {
    if (o.METHOD != Method::GS) GSREG(data.x, room.work, room.factor, NF, {}, {});
    INFLUE(ws, est, data.raw, room.factor, room.hat, room.row);
  }
  store_results(ws, est, room.hat);
  OCOM.OMEAN = false;
  if (OCOM.ODONT) return;
  save_estimate(ws, est);
  SAVED.least_squares = o.build == Build::Plain;
  SAVED.plain = SAVED.least_squares && plain && o.INCOEFFI == 0 && o.MOMENTS == 0 && !o.REPLICAT;
  SAVED.KWT = o.KWT;
  SAVED.NORMALIZ = o.NORMALIZ;
}

}  // namespace korvel
