// AUTC: the command routine of AUTO. Options, the list of the model, the sample, the restrictions;
// and what both estimation routines share: the room, the columns, a fit of transformed rows.

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/auto.h"
#include "regress/result_options.h"

namespace korvel {
namespace {

constexpr auto AUTOOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("DUMP"), logical("LIST"), logical("RSTAT"),
    logical("LOGLOG"), logical("LOGLIN"), logical("LINLOG"), logical("PCOV"), logical("PCOR"),
    logical("ANOVA"), logical("DN"), logical("DLAG"), logical("GF"), logical("ML"),
    logical("RESTRICT"), logical("GS"), logical("DROP"), logical("MISS"), logical("II"),
    logical("PREPER"), logical("PAGAN"), logical("LM"), logical("PITER"), logical("LININVER"),
    logical("LOGINVER"), integer("BEG"), integer("END"), integer("OBS"), integer("GAP"),
    integer("NMISS"), integer("ITER", 100), integer("ORDER", 1), integer("NUMARMA"),
    real("CONV", 0.001), real("RHO"), real("SRHO"), variable("PREDICT"), variable("RESID"),
    variable("COEF"), variable("COV"), variable("TRATIO"), variable("STDERR"), variable("IDVAR"),
    variable("*"), variable("*"), variable("*"));
static_assert(AUTOOPT.words.size() == 26 + 8 + 3 + 10);

// Coefficients of the errors; the first rows take a factor of that order for each.
constexpr int MOST_ORDER = 50;

using Opt = OptionValues<AUTOOPT>;

// Names of results, kept apart from the command: reading restrictions overwrites that.
constinit KeptNames NAMES{};

bool bad_list() {
  fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
  return false;
}

// What the results stage reads.
void settle_results() {
  read_result_options<AUTOOPT>(NAMES);
  OLSCOM.COEFFICE = NAMES.keep(Opt::named<"COEF">());
  OLSCOM.COVARIAN = NAMES.keep(Opt::named<"COV">());
}

// The errors and how they are estimated. False after an error.
bool settle_errors() {
  AutCom& a = AUTCOM;
  a = AutCom{};
  a.ML = Opt::chosen<"ML">();
  a.GS = Opt::chosen<"GS">();
  a.DROP = Opt::chosen<"DROP">();
  a.PREPER = Opt::chosen<"PREPER">();
  a.PAGAN = Opt::chosen<"PAGAN">();
  a.PITER = Opt::chosen<"PITER">();
  a.GAP = Opt::integer<"GAP">();
  a.NMISS = Opt::integer<"NMISS">();
  a.MISS = Opt::chosen<"MISS">() || a.GAP != 0;
  a.ITER = Opt::integer<"ITER">();
  a.NUMARMA = Opt::integer<"NUMARMA">();
  a.ORDER = Opt::given<"ORDER">() || a.NUMARMA == 0 ? Opt::integer<"ORDER">() : 0;
  a.CONV = Opt::real<"CONV">();
  a.RHO = Opt::real<"RHO">();
  a.SRHO = Opt::real<"SRHO">();
  if (a.GAP < 0 || (a.GAP == 0 && Opt::given<"GAP">())) return bad_option_value("GAP");
  if (a.NMISS < 0 || (a.GAP > 0 && a.NMISS == 0)) return bad_option_value("NMISS");
  if (a.ITER < 1) return bad_option_value("ITER");
  if (a.NUMARMA < 0 || a.NUMARMA > MOST_ORDER) return bad_option_value("NUMARMA");
  if (a.ORDER < (a.NUMARMA > 0 ? 0 : 1) || a.ORDER > MOST_ORDER) return bad_option_value("ORDER");
  if (!(a.CONV >= 0.0)) return bad_option_value("CONV");
  if (!std::isfinite(a.RHO)) return bad_option_value("RHO");
  if (!std::isfinite(a.SRHO)) return bad_option_value("SRHO");
  return true;
}

bool higher_order() { return AUTCOM.ORDER != 1 || AUTCOM.NUMARMA > 0 || AUTCOM.PAGAN; }

// Options that exclude one another, names without a value.
bool check_options() {
  const OlsCom& o = OLSCOM;
  const AutCom& a = AUTCOM;
  if (name_lacking(AUTOOPT.view())) return false;
  if (int{o.LOGLOG} + int{o.LOGLIN} + int{o.LINLOG} > 1) return incompatible_options();
  if (higher_order() && (a.GS || a.MISS || (o.DLAG && o.RESTRICT))) return incompatible_options();
  if (a.PREPER && a.NUMARMA == 0) return incompatible_options();
  if (!higher_order() && a.RHO == 1.0 && (o.CONSTANT || !a.DROP)) {
    fail(" ...ERROR..NOCONSTANT AND DROP MUST BE USED WITH RHO=1 ");
    return false;
  }
  return true;
}

// Options that change nothing here are told.
void warn_idle_options() {
  const AutCom& a = AUTCOM;
  const IdleOption options[] = {
      {a.NMISS > 0 && a.GAP == 0, "NMISS", "GAP"},
      {Opt::given<"SRHO">() && a.ORDER + a.NUMARMA < 2, "SRHO", "ORDER OR NUMARMA"},
  };
  warn_idle_options(options);
  if (Opt::chosen<"II">()) warn(" ...WARNING..II OPTION HAS NO EFFECT");
}

// The model list. Returns the largest lag, -1 after an error.
int settle_list(Workspace ws) {
  const bool group = std::ranges::any_of(SCNCOM.list(), [](const ListItem& i) { return i.group; });
  if (group || (SCNCOM.NF < 2 && !OLSCOM.CONSTANT)) return bad_list(), -1;
  const NameOption& id = Opt::named<"IDVAR">();
  if (!id.text.empty() && id.var <= 0 && !OSCOM.OSCAN) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(id.text);
    return -1;
  }
  OLSCOM.KID = id.text.empty() ? 0 : id.var;
  const int largest = collect_variables(ws);
  if (largest >= 0 && OLSCOM.DLAG && model_list().front().var == DATCOM.MCON) {
    return bad_list(), -1;
  }
  return largest;
}

// The working range and its rows. False after an error.
bool settle_sample(Workspace ws, int largest) {
  DATCOM.MBEG = Opt::integer<"BEG">();
  DATCOM.MEND = Opt::integer<"END">();
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (Opt::given<"OBS">()) {
    const std::int64_t end = std::int64_t{DATCOM.MBEG} + Opt::integer<"OBS">() - 1;
    if (Opt::integer<"OBS">() < 1 || !fits32(end)) return bad_option_value("OBS");
    DATCOM.MEND = static_cast<int>(end);
  }
  if (OSCOM.ODELL) DATCOM.MBEG += largest;
  if (OSCOM.OSCAN) return false;
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  CKSMPL(ws, model_list());
  if (OCOM.ODONT) return false;
  count_rows(ws);
  // Higher orders fit the coefficients of the errors together with the others.
  const AutCom& a = AUTCOM;
  int spent = OLSCOM.NF - 1 + (a.DROP ? a.ORDER : 0);
  if (higher_order()) spent += a.ORDER + a.NUMARMA * (a.PREPER ? 2 : 1);
  if (DATCOM.NOB - spent <= 0) {
    fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(DATCOM.NOB);
    return false;
  }
  if (a.GAP >= DATCOM.NOB) return bad_option_value("GAP");
  return true;
}

// The lines of a RESTRICT block, and what distributed lags stand for. False after an error.
bool settle_restrictions(Workspace ws) {
  static Restrictions all;
  static Restrictions lags;
  all.q = lags.q = 0;
  all.R.clear();
  all.r.clear();
  const auto regressors = model_list().first(static_cast<std::size_t>(OLSCOM.NF - 1));
  if (OLSCOM.RESTRICT) {
    if (OSCOM.OTALK) say(" TYPE RESTRICT COMMANDS, WHEN FINISHED TYPE: END");
    if (!read_restrictions(ws, regressors, all)) return false;
  }
  if (OLSCOM.lag_terms) {
    if (!lag_restrictions(regressors, lags)) return false;
    all.q += lags.q;
    all.R.insert(all.R.end(), lags.R.begin(), lags.R.end());
    all.r.insert(all.r.end(), lags.r.begin(), lags.r.end());
  }
  if (all.q > 0) AUTCOM.limits = &all;
  return true;
}

}  // namespace

void AUTC(Workspace ws) {
  const Trace trace("AUTC");
  const ContinueGuard on_failure;
  // 1. Options; the defaults of some are switches.
  OPTION_START(AUTOOPT.view());
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  Opt::set<"ANOVA">(OSCOM.OBAT);
  Opt::set<"GF">(OSCOM.OBAT);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, AUTOOPT.view());
  if (OCOM.ODONT) return;
  if (SCNCOM.NF <= 0) return say(" COMMAND STRUCTURE: AUTO depvar indeps / options");
  settle_results();
  if (!settle_errors() || !check_options()) return;
  warn_idle_options();
  // 2. The model and its sample. Up to here a mistake leaves the last estimate as it is.
  const int largest = settle_list(ws);
  if (largest < 0 || !settle_sample(ws, largest)) return;
  clear_estimate();
  FCOM.RHO = FCOM.RHO2 = FCOM.RIDG = 0.0;
  FCOM.NQ = 0;
  OCOM.OGCOV = true;
  OCOM.OMEAN = false;
  if (!settle_restrictions(ws)) return;
  // 3. The estimation.
  if (higher_order())
    AUT2(ws);
  else
    AUTO(ws);
}

std::int64_t auto_words(std::int64_t n, int lost, int extra) {
  const std::int64_t NF = OLSCOM.NF;
  const std::int64_t all = NF + extra;
  const std::int64_t small =
      16 * all + 4 * static_cast<std::int64_t>(packed_words(static_cast<int>(all))) + 16;
  const std::int64_t kernel =
      std::max(fit_words(OLSCOM.NF, n - lost), GSREG_words(static_cast<int>(all), n - lost));
  return small + kernel + n * (LOADX_copies(model_list()) + all + 2);
}

bool load_auto(Workspace ws, Scratch& scratch, int lost, int extra, AutoRoom& room) {
  const auto NF = static_cast<std::size_t>(OLSCOM.NF);
  const auto all = NF + static_cast<std::size_t>(extra);
  const auto n = static_cast<std::size_t>(DATCOM.NOB);
  const auto rows = n - static_cast<std::size_t>(lost);
  // 1. The room. Both fits share what one of them leaves behind.
  const auto pointers = [&](std::size_t count) {
    static_assert(sizeof(const double*) <= sizeof(double));
    auto* const first = reinterpret_cast<const double**>(scratch.take(count).data());
    std::uninitialized_fill_n(first, count, nullptr);
    return std::span<const double*>(first, count);
  };
  FitRoom& d = room.data;
  d.coef = scratch.take(NF - 1);
  d.means = scratch.take(NF);
  d.squares = scratch.take(NF);
  d.scale = scratch.take(NF);
  d.factor = scratch.take(packed_words(static_cast<int>(NF)));
  d.cov = scratch.take(packed_words(static_cast<int>(NF) - 1));
  d.column = pointers(NF);
  d.copies = scratch.take(static_cast<std::size_t>(LOADX_copies(model_list())) * n);
  const std::span<const double*> used = pointers(NF);
  room.star_column = pointers(all);
  room.star = scratch.take(all * rows);
  room.e = scratch.take(n);
  room.u = scratch.take(rows);
  room.fit = d;
  room.fit.means = scratch.take(NF);
  room.fit.squares = scratch.take(NF);
  std::ranges::fill(room.fit.means, 0.0);
  std::ranges::fill(room.fit.squares, 0.0);
  d.work = room.fit.work = scratch.rest();
  // 2. The columns.
  if (!LOADX(ws, model_list(), d.copies, d.column)) return false;
  for (std::size_t k = 0; k < NF; ++k) {
    used[k] = d.column[k] == nullptr ? nullptr : d.column[k] + lost;
  }
  for (std::size_t k = 0; k < all; ++k) room.star_column[k] = room.star.data() + k * rows;
  room.raw = {d.column, static_cast<std::int64_t>(n), nullptr, {}};
  room.used = {used, static_cast<std::int64_t>(rows), nullptr, {}};
  const ColumnList star{room.star_column.first(NF), room.used.rows, nullptr, {}};
  room.rows = {.raw = star, .x = star, .rows = room.used.rows, .again = true};
  FCOM.ZZ = FCOM.SWT = static_cast<double>(rows);
  FCOM.XMAXL = FCOM.SSE = 0.0;
  // 3. Their moments, by a fit without an error process.
  FitData plain{.raw = room.used, .x = room.used, .rows = room.used.rows};
  if (!fit_model(ws, plain, d)) return false;
  return auto_range(ws, room, false);
}

bool auto_range(Workspace ws, const AutoRoom& room, bool all) {
  constexpr double least = 1e-240;
  constexpr double most = 1e240;
  const std::size_t NF = room.data.means.size();
  for (std::size_t k = all ? 0 : NF - 1; k < NF; ++k) {
    const double mean = room.data.means[k];
    const double T = room.data.squares[k] + mean * mean * static_cast<double>(room.used.rows);
    if (T != 0.0 && !(T >= least && T <= most)) return refuse_size(ws, model_list()[k].var);
  }
  return true;
}

bool fit_rows(Workspace ws, AutoRoom& room) {
  if (!fit_model(ws, room.rows, room.fit)) return false;
  const Restrictions* limits = AUTCOM.limits;
  if (limits != nullptr) {
    if (restrict_estimate(ws, *limits, room.fit.coef, room.fit.cov)) {
      FCOM.NQ = limits->q;
    } else if (OCOM.ODONT) {
      return false;
    } else {
      AUTCOM.limits = nullptr;  // they contradict one another: told once, the fit goes on without
    }
  }
  gs_residuals(room.rows.x, room.fit.coef, room.u);
  if (FCOM.NQ > 0) {
    FCOM.SSE = 0.0;
    for (const double u : room.u) FCOM.SSE += u * u;
  }
  return true;
}

bool only_rounding(const AutoRoom& room) {
  constexpr double share = 1e-14;  // a few units in the last digit of y
  const double mean = room.data.means.back();
  double sum = 0.0;
  for (const double e : room.e) sum += e * e;
  const double y2 = room.data.squares.back() + mean * mean * static_cast<double>(room.N());
  return sum <= share * share * y2;
}

double auto_likelihood(double N, double SSE, double jacobian) {
  constexpr double PI = 3.1415926535898;  // as in the results stage
  if (!(SSE > 0.0)) return 0.0;
  return -0.5 * N * std::log(2.0 * PI * SSE / N) - 0.5 * N + jacobian;
}

void warn_unstable(bool& told) {
  if (!told) warn(" ...WARNING..UNSTABLE RHO..ERRORS BELOW..USE DROP OPTION");
  told = true;
}

double stable_rho(double r, bool& told) {
  constexpr double edge = 0.99999;
  if (std::fabs(r) < 1.0) return r;
  warn_unstable(told);
  return AUTCOM.DROP ? r : std::copysign(edge, r);
}

}  // namespace korvel
