// FDIAG: the tests behind a least-squares estimate. Which ones are wanted, the model of the
// estimate with the rows it was fitted to, and the order of the tests.

#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "regress/diagnos_parts.h"
#include "regress/regress.h"

namespace korvel {
namespace {

// Options of the shared table that mean something here.
constexpr std::array<std::string_view, 32> OWN_OPTIONS = {
    "MAX",      "LIST",     "GF",       "GNU",      "RECURSIV", "ACF",      "DUMP",     "RECESTIM",
    "RECRESID", "LM",       "BACKWARD", "CHOWTEST", "RESET",    "BOOTLIST", "HETEROSC", "JACKKNIF",
    "APPEND",   "CTEST",    "WHITETES", "WIDE",     "HANSEN",   "GRAPHICS", "LAG",      "MHET",
    "BOOTSAMP", "BOOTUNIT", "RECUNIT",  "SIGLEVEL", "GQOBS",    "CHOWONE",  "OUTPUT",   "DEVICE"};

// An option that only forecasts know is no error, but the user should hear of it.
void warn_unused_options() {
  std::array<std::size_t, 4> rank{};
  for (const OptionWord& w : FCASTOPT.view()) {
    const std::size_t place = rank[static_cast<std::size_t>(w.kind)]++;
    bool typed = false;
    if (w.kind == OptionKind::Logical) typed = OPTCOM.lgiven[place];
    if (w.kind == OptionKind::Integer) typed = OPTCOM.igiven[place];
    if (w.kind == OptionKind::Real) typed = OPTCOM.xgiven[place];
    if (w.kind == OptionKind::Variable) typed = !OPTCOM.VOPT[place].text.empty();
    if (!typed || w.word == "COMMFILE" || std::ranges::count(OWN_OPTIONS, w.word) > 0) continue;
    warn<"(' ...WARNING..THE ', A, ' OPTION HAS NO EFFECT ON DIAGNOSE')">(w.word);
  }
}

bool in_range(std::string_view word, bool typed, int value, int least, int most) {
  if (!typed || (value >= least && value <= most)) return true;
  fail<
      "(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A, '=', I0, ', IT MUST BE ', I0, ' TO ', I0)">(
      word, value, least, most);
  return false;
}

// Numbers that must fit the sample of N rows and K coefficients.
bool check_numbers(int N, int K) {
  constexpr int any = 9999999;
  const int level = FcastOption::integer<"SIGLEVEL">();
  if (level != 1 && level != 5 && level != 10) {
    fail<"(' ...ERROR..SIGLEVEL=', I0, ' IS NOT AVAILABLE, IT MUST BE 1, 5 OR 10')">(level);
    return false;
  }
  return in_range("CHOWONE", FcastOption::given<"CHOWONE">(), FcastOption::integer<"CHOWONE">(),
                  K + 1, N - K - 1) &&
         in_range("GQOBS", FcastOption::given<"GQOBS">(), FcastOption::integer<"GQOBS">(), 0,
                  any) &&
         in_range("LAG", FcastOption::given<"LAG">(), FcastOption::integer<"LAG">(), 1, any) &&
         in_range("MHET", FcastOption::given<"MHET">(), FcastOption::integer<"MHET">(), 1, any) &&
         in_range("BOOTSAMP", FcastOption::given<"BOOTSAMP">(), FcastOption::integer<"BOOTSAMP">(),
                  1, any);
}

// A test that NO in front of its word leaves out of MAX and of those made without options.
template <FixedText WORD>
bool refused() {
  return FcastOption::given<WORD>() && !FcastOption::chosen<WORD>();
}
template <FixedText WORD>
bool wanted(bool MAX) {
  return FcastOption::chosen<WORD>() || (MAX && !refused<WORD>());
}

DiagnosPlan make_plan() {
  DiagnosPlan plan;
  const bool MAX = FcastOption::chosen<"MAX">();
  plan.plots = FcastOption::chosen<"GNU">() || FcastOption::chosen<"GRAPHICS">();
  plan.WHITETES = wanted<"WHITETES">(MAX && !refused<"HETEROSC">());
  plan.HANSEN = wanted<"HANSEN">(MAX);
  plan.HETEROSC = wanted<"HETEROSC">(MAX) || plan.WHITETES;
  plan.normality = FcastOption::chosen<"GF">() || FcastOption::chosen<"LM">() || plan.HETEROSC;
  plan.CTEST = FcastOption::chosen<"CTEST">();
  plan.bootstrap = FcastOption::chosen<"BOOTLIST">() || FcastOption::given<"BOOTSAMP">() ||
                   FcastOption::given<"BOOTUNIT">();
  plan.JACKKNIF = wanted<"JACKKNIF">(MAX);
  plan.estimates = FcastOption::chosen<"RECESTIM">();
  plan.residuals = FcastOption::chosen<"RECRESID">();
  const bool listing = plan.estimates || plan.residuals;
  plan.recursive = listing || plan.plots || wanted<"RECURSIV">(MAX) ||
                   FcastOption::chosen<"BACKWARD">() || FcastOption::given<"RECUNIT">() ||
                   FcastOption::given<"MHET">() || FcastOption::given<"SIGLEVEL">();
  // RECURSIV alone lists both; one of the listings by name, or NORECEST and NORECRES, choose.
  if (plan.recursive && !listing) {
    plan.estimates = !FcastOption::given<"RECESTIM">();
    plan.residuals = !FcastOption::given<"RECRESID">();
  }
  plan.CHOWONE = FcastOption::given<"CHOWONE">();
  plan.CHOWTEST = wanted<"CHOWTEST">(MAX) || (FcastOption::given<"GQOBS">() && !plan.CHOWONE);
  plan.ACF = wanted<"ACF">(MAX) || FcastOption::given<"LAG">();
  plan.RESET = wanted<"RESET">(MAX);
  const bool nothing = !plan.HANSEN && !plan.normality && !plan.CTEST && !plan.bootstrap &&
                       !plan.JACKKNIF && !plan.recursive && !plan.CHOWONE && !plan.CHOWTEST &&
                       !plan.ACF && !plan.RESET;
  if (nothing) {
    plan.normality = plan.HETEROSC = wanted<"HETEROSC">(true);
    plan.ACF = wanted<"ACF">(true);
    plan.RESET = wanted<"RESET">(true);
  }
  return plan;
}

// The switches of the sample as the estimate had them, for the time of the command.
class EstimateSample {
 public:
  EstimateSample()
      : MBEG_(DATCOM.MBEG), MEND_(DATCOM.MEND), NOB_(DATCOM.NOB), warn_(OSCOM.OMSWRN) {}
  EstimateSample(const EstimateSample&) = delete;
  EstimateSample& operator=(const EstimateSample&) = delete;
  ~EstimateSample() {
    DATCOM.MBEG = MBEG_;
    DATCOM.MEND = MEND_;
    DATCOM.NOB = NOB_;
    OSCOM.OMSWRN = warn_;
    OLSCOM.skips = skips_;
  }

 private:
  int MBEG_, MEND_, NOB_;
  bool warn_;
  bool skips_ = OLSCOM.skips;
};

// The rows of the estimate: MBEG, MEND, NOB and OLSCOM.skips. False after a failure.
bool find_rows(Workspace ws) {
  DATCOM.MBEG = SAVED.MBEG;
  DATCOM.MEND = SAVED.MEND;
  OSCOM.OMSWRN = false;  // the estimate has told
  CKSMPL(ws, SAVED.list);
  if (OCOM.ODONT) return false;
  count_rows(ws);
  return true;
}

// One equation in variables of the workspace. Complex models have a constant in two parts.
bool has_columns() {
  const auto constants = std::ranges::count(SAVED.list, DATCOM.MCON, &ListItem::var);
  return SAVED.equations.empty() && SAVED.choices == 2 && constants <= 1 &&
         std::ranges::all_of(SAVED.list, [](const ListItem& item) { return item.var > 0; });
}

// The words of the model, all of one scratch.
struct ModelRoom {
  std::span<double> x, q, y, e, root, obs;  // rows
  std::span<double> r, scale, coef, Qe;
  static std::int64_t words(std::int64_t N, std::int64_t K) {
    return N * (2 * K + 4) + static_cast<std::int64_t>(packed_words(static_cast<int>(K))) + 3 * K;
  }
  ModelRoom(Scratch& scratch, std::size_t N, std::size_t K) {
    x = scratch.take(N * K);
    q = scratch.take(N * K);
    y = scratch.take(N);
    e = scratch.take(N);
    root = scratch.take(N);
    obs = scratch.take(N);
    r = scratch.take(packed_words(static_cast<int>(K)));
    scale = scratch.take(K);
    coef = scratch.take(K);
    Qe = scratch.take(K);
  }
};

// Observation numbers and roots of the weights of the rows in use; those of weight zero are left
// out. Returns the number of rows that stay, -1 after a failure.
std::int64_t find_weights(Workspace ws, ModelRoom& room, std::span<double> column) {
  std::size_t rows = 0;
  for (KeptRows kept(ws); kept.next();) room.obs[rows++] = kept.obs;
  std::ranges::fill(room.root, 1.0);
  if (SAVED.KWT == 0) return static_cast<std::int64_t>(rows);
  ListItem weight;
  weight.var = SAVED.KWT;
  LOADTT(ws, weight, column);
  double sum = 0.0;
  std::size_t used = 0;
  for (double& w : column) {
    if (OSCOM.OSMISS && w == MACOM.XMISS) w = 0.0;
    sum += w;
    used += w != 0.0;
  }
  const double scale = SAVED.NORMALIZ && sum != 0.0 ? sum / SAVED.N : 1.0;
  for (std::size_t t = 0; t < rows; ++t) room.root[t] = std::sqrt(std::fabs(column[t] / scale));
  return static_cast<std::int64_t>(used);
}

// A column of the list without its skipped rows and those of weight zero, times the roots.
void load_column(Workspace ws, const ListItem& item, const ModelRoom& room,
                 std::span<double> column, std::span<double> to) {
  if (item.var == DATCOM.MCON)
    std::ranges::fill(column, 1.0);
  else
    LOADTT(ws, item, column);
  std::size_t row = 0;
  for (std::size_t t = 0; t < column.size(); ++t) {
    if (room.root[t] != 0.0) to[row++] = column[t] * room.root[t];
  }
}

double largest(std::span<const double> v) {
  double most = 0.0;
  for (const double a : v) most = std::max(most, std::fabs(a));
  return most;
}

// Loads the columns, constant first, scaled by powers of two. False when a value is not finite.
bool load_columns(Workspace ws, DiagnosWork& d, ModelRoom& room, std::span<double> column) {
  const auto N = static_cast<std::size_t>(d.m.N);
  const int K = d.m.K;
  for (int i = 0; i <= K; ++i) {
    const ListItem& item = SAVED.list[static_cast<std::size_t>(i)];
    const auto k = static_cast<std::size_t>(i < K ? d.column_of(i) : 0);
    const std::span<double> to = i < K ? room.x.subspan(k * N, N) : room.y.first(N);
    load_column(ws, item, room, column, to);
    const double most = largest(to);
    if (!std::isfinite(most)) return false;
    if (i == K) {
      d.m.unit = most > 0.0 ? std::ldexp(1.0, std::ilogb(most)) : 1.0;
      for (double& v : to) v /= d.m.unit;
      continue;
    }
    room.scale[k] = most > 0.0 ? std::ldexp(1.0, -std::ilogb(most)) : 1.0;
    for (double& v : to) v *= room.scale[k];
  }
  return true;
}

// Q and R of the columns; false when they are collinear.
bool orthogonalise(DiagnosWork& d, ModelRoom& room) {
  const auto N = static_cast<std::size_t>(d.m.N);
  d.m.q = Basis(room.q, d.m.N);
  for (int k = 0; k < d.m.K; ++k) {
    std::ranges::copy(d.m.column(k), d.m.q.next().begin());
    const std::span<double> r = room.r.subspan(packed(k + 1, 1), static_cast<std::size_t>(k + 1));
    if (!d.m.q.accept(MODEL_DEPENDENT, r)) return false;
  }
  return N > 0;
}

// Residuals: of the estimate where it is a least-squares fit of these columns, else of the
// least-squares fit.
void find_residuals(DiagnosWork& d, ModelRoom& room) {
  const auto N = static_cast<std::size_t>(d.m.N);
  const auto K = static_cast<std::size_t>(d.m.K);
  const std::span<double> e = room.e.first(N);
  if (SAVED.least_squares) {
    std::ranges::copy(SAVED.coef, room.coef.begin());
    std::ranges::copy(d.m.y, e.begin());
    for (int i = 0; i < d.m.K; ++i) {
      const int k = d.column_of(i);
      const double scale = d.m.scale[static_cast<std::size_t>(k)] * d.m.unit;
      const double b = room.coef[static_cast<std::size_t>(i)] / scale;
      const std::span<const double> x = d.m.column(k);
      for (std::size_t t = 0; t < N; ++t) e[t] -= b * x[t];
    }
  } else {
    std::ranges::copy(d.m.y, e.begin());
    std::ranges::fill(room.Qe, 0.0);
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t k = 0; k < K; ++k) {
        const double part = d.m.q.dot(static_cast<int>(k), e);
        room.Qe[k] += part;
        const std::span<const double> q = d.m.q.column(static_cast<int>(k));
        for (std::size_t t = 0; t < N; ++t) e[t] -= part * q[t];
      }
    }
    solve_r(d.m, room.Qe, room.Qe);
    for (int i = 0; i < d.m.K; ++i) {
      room.coef[static_cast<std::size_t>(i)] = room.Qe[static_cast<std::size_t>(d.column_of(i))];
    }
  }
  for (std::size_t k = 0; k < K; ++k) room.Qe[k] = d.m.q.dot(static_cast<int>(k), e);
}

// No residual is above the rounding of its row.
bool fits_perfectly(const DiagnosModel& m) {
  constexpr double rounding = 1e-14;
  return largest(m.e) <= rounding * largest(m.y);
}

bool build_model(Workspace ws, DiagnosWork& d, ModelRoom& room, std::span<double> column) {
  const std::int64_t rows = find_weights(ws, room, column);
  d.m.N = rows;
  const auto N = static_cast<std::size_t>(rows);
  if (rows <= d.m.K) {
    fail(" ...ERROR..YOU DO NOT HAVE ENOUGH OBSERVATIONS");
    return false;
  }
  const auto constant = std::ranges::find(std::span(SAVED.list).first(SAVED.coef.size()),
                                          DATCOM.MCON, &ListItem::var);
  d.constant_place = static_cast<int>(constant - std::span(SAVED.list).begin());
  if (d.constant_place == d.m.K) d.constant_place = -1;
  d.m.constant = d.constant_place >= 0;
  if (!load_columns(ws, d, room, column)) {
    fail(" ...ERROR..THE DATA OF THE ESTIMATE HOLD VALUES THAT ARE NOT FINITE");
    return false;
  }
  std::size_t row = 0;  // observation numbers of the rows that stay
  for (std::size_t t = 0; t < column.size(); ++t) {
    if (room.root[t] != 0.0) room.obs[row++] = room.obs[t];
  }
  d.m.x = room.x;
  d.m.y = room.y.first(N);
  d.m.e = room.e.first(N);
  d.m.scale = room.scale;
  d.m.r = room.r;
  d.coef = room.coef;
  d.Qe = room.Qe;
  d.obs = room.obs.first(N);
  if (!orthogonalise(d, room)) {
    fail(" ...ERROR..THE REGRESSORS OF THE LAST ESTIMATE ARE COLLINEAR, NO TEST CAN BE DONE");
    return false;
  }
  find_residuals(d, room);
  if (!fits_perfectly(d.m)) return true;
  warn(" ...WARNING..THE MODEL FITS WITHOUT ERRORS, NO TEST CAN BE DONE");
  return false;
}

}  // namespace

void FDIAG(Workspace ws) {
  const Trace trace("FDIAG");
  // 1. What is wanted of what model.
  const DiagnosPlan plan = make_plan();
  warn_unused_options();
  if (SCNCOM.NF > 0) warn(" ...WARNING..DIAGNOSE TESTS THE LAST ESTIMATE, ITS LIST HAS NO EFFECT");
  if (!has_columns()) {
    return fail(" ...ERROR..THE LAST ESTIMATE IS NOT OF ONE LINEAR EQUATION, NO TEST CAN BE DONE");
  }
  if (!SAVED.plain) {
    warn(" ...WARNING..DIAGNOSTIC TESTS MAY ONLY BE VALID FOR UNRESTRICTED OLS REGRESSIONS");
  }
  if (!SAVED.least_squares && OCOM.OPUT) {
    say(" ...NOTE..TESTS USE THE LEAST SQUARES FIT OF THE SAME VARIABLES");
  }
  // 2. Its rows and columns.
  const EstimateSample sample;
  if (!find_rows(ws)) return;
  const auto rows = static_cast<std::size_t>(std::max(DATCOM.NOB, 0));
  const auto K = SAVED.coef.size();
  Scratch scratch(ws, ModelRoom::words(DATCOM.NOB, static_cast<std::int64_t>(K)) + DATCOM.NOB);
  if (!scratch) return;
  ModelRoom room(scratch, rows, K);
  DiagnosWork d;
  d.m.K = static_cast<int>(K);
  if (!build_model(ws, d, room, scratch.rest().first(rows))) return;
  if (!check_numbers(static_cast<int>(d.m.N), d.m.K)) return;
  // 3. The tests.
  const bool print = OCOM.OPUT;
  const auto next = [](bool wanted) { return wanted && !OCOM.ODONT && !stop_requested(); };
  if (next(plan.HANSEN && print)) print_hansen(ws, d);
  if (next(plan.normality && print)) print_normality(ws, d);
  if (next(plan.HETEROSC && print)) print_heteroskedasticity(ws, d, plan.WHITETES);
  if (next(plan.CTEST)) say(" ...WARNING..THE PINKSE INDEPENDENCE TEST IS NOT AVAILABLE");
  if (next(plan.bootstrap)) bootstrap(ws, d);
  if (next(plan.JACKKNIF && print)) print_jackknife(ws, d);
  if (next(plan.recursive)) recursive_tests(ws, d, plan);
  if (next((plan.CHOWTEST || plan.CHOWONE) && print)) print_chow(ws, d, plan);
  if (next(plan.ACF && print)) print_correlogram(d);
  if (next(plan.RESET && print)) print_resets(ws, d);
}

}  // namespace korvel
