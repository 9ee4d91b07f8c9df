// PROBC: the command routine of PROBIT, LOGIT and TOBIT. Options, the list, the sample, the data of
// the model; the estimation itself is PROBIT or TOBIT.

#include <algorithm>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "data/list_numbers.h"
#include "engine/commands.h"
#include "engine/units.h"
#include "expr/kernels/packed.h"
#include "limdep/limdep.h"
#include "limdep/limdep_parts.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr auto PROBOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("DUMP"), logical("LOPRO"), logical("PCOV"),
    logical("PCOR"), logical("LIST"), logical("RSTAT"), logical("NORMALIZ"), logical("UPPER"),
    logical("READSV"), logical("LOG"), logical("LINLOG"), logical("NEGATIVE"), integer("BEG"),
    integer("END"), integer("ITER", 25), integer("CHOICES", 2), integer("XXXXX"),
    integer("PITER", 1), integer("ORDER", 1), real("LOWRESP"), real("UPRESP"), real("CONV", 0.001),
    real("LPDIV", 2.25), real("LIMIT"), variable("PREDICT"), variable("INDEX"),
    variable("COEFFICI"), variable("COVARIAN"), variable("IMRATIO"), variable("TYPE"),
    variable("WEIGHT"), variable("STDERR"), variable("TRATIO"), variable("INCOEF"));
static_assert(PROBOPT.words.size() == 14 + 7 + 5 + 10);

constexpr double TOBIT_CONV = 0.00000001;
constexpr int START_UNIT = 11;  // READSV
// Sizes of columns, as powers of 2, whose variances can still be written in the units of the data.
constexpr int WIDEST = 480;

bool tobit() { return INPCOM.IKOD == K_TOBIT; }

using Opt = OptionValues<PROBOPT>;

void read_options(Workspace ws) {
  OPTION_START(PROBOPT.view());
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  if (tobit()) Opt::set<"CONV">(TOBIT_CONV);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, PROBOPT.view());
}

// Copies the options to LIMCOM. False after an error.
bool settle_options() {
  LimCom& o = LIMCOM;
  o = LimCom{};
  o.MAX = Opt::chosen<"MAX">();
  o.CONSTANT = Opt::chosen<"CONSTANT">();
  o.DUMP = Opt::chosen<"DUMP">();
  o.LOPRO = Opt::chosen<"LOPRO">();
  o.PCOV = Opt::chosen<"PCOV">() || o.MAX;
  o.PCOR = Opt::chosen<"PCOR">() || o.MAX;
  o.LIST = Opt::chosen<"LIST">() || o.MAX;
  o.RSTAT = Opt::chosen<"RSTAT">();
  o.NORMALIZ = Opt::chosen<"NORMALIZ">();
  o.UPPER = Opt::chosen<"UPPER">();
  o.READSV = Opt::chosen<"READSV">();
  o.LOG = Opt::chosen<"LOG">();
  o.LINLOG = Opt::chosen<"LINLOG">();
  o.ITER = Opt::integer<"ITER">();
  o.CHOICES = Opt::integer<"CHOICES">();
  o.PITER = Opt::integer<"PITER">();
  o.LOWRESP = Opt::real<"LOWRESP">();
  o.UPRESP = Opt::real<"UPRESP">();
  o.CONV = Opt::real<"CONV">();
  o.LPDIV = Opt::real<"LPDIV">();
  o.LIMIT = Opt::real<"LIMIT">();
  o.PREDICT = Opt::named<"PREDICT">();
  o.INDEX = Opt::named<"INDEX">();
  o.COEFFICI = Opt::named<"COEFFICI">();
  o.COVARIAN = Opt::named<"COVARIAN">();
  o.IMRATIO = Opt::named<"IMRATIO">();
  o.STDERR = Opt::named<"STDERR">();
  o.TRATIO = Opt::named<"TRATIO">();
  if (name_lacking(PROBOPT.view())) return false;
  if (o.ITER < 0) return bad_option_value("ITER");
  if (o.CHOICES < 2) return bad_option_value("CHOICES");
  if (!(o.CONV >= 0.0)) return bad_option_value("CONV");
  if (!std::isfinite(o.LPDIV) || o.LPDIV == 0.0) return bad_option_value("LPDIV");
  if (!std::isfinite(o.LIMIT)) return bad_option_value("LIMIT");
  const bool natural = o.LOWRESP != 0.0 || o.UPRESP != 0.0;
  const bool several = o.CHOICES > 2;
  if (!(o.LOWRESP >= 0.0 && o.UPRESP >= 0.0 && o.LOWRESP + o.UPRESP < 1.0))
    return incompatible_options();
  if (several && (INPCOM.IKOD != K_LOGIT || natural || !o.IMRATIO.text.empty())) {
    return incompatible_options();
  }
  if (several && (o.LOG || o.LINLOG || o.RSTAT)) return incompatible_options();
  o.RSTAT = o.RSTAT || (o.MAX && !several);
  // Options of the other commands of the table would be passed over in silence.
  if (tobit() ? natural || o.LOPRO || o.LOG || o.LINLOG : o.UPPER || Opt::given<"LIMIT">()) {
    return incompatible_options();
  }
  if (o.READSV && !Opt::named<"INCOEF">().text.empty()) return incompatible_options();
  return true;
}

// Variables that options name. False after an error.
bool find_variables() {
  struct Wanted {
    const NameOption& option;
    int& var;
  };
  for (const Wanted& w : {Wanted{Opt::named<"WEIGHT">(), LIMCOM.KWT},
                          Wanted{Opt::named<"INCOEF">(), LIMCOM.INCOEF}}) {
    if (w.option.text.empty()) continue;
    if (w.option.var <= 0) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(w.option.text);
      return false;
    }
    w.var = w.option.var;
  }
  return true;
}

// The list of the model; the last lag moves the first observation. False after an error.
bool settle_list(Workspace ws, int& largest) {
  OLSCOM = OlsCom{};
  OLSCOM.CONSTANT = LIMCOM.CONSTANT;
  OLSCOM.DN = true;  // tests on these models are asymptotic
  OLSCOM.KWT = LIMCOM.KWT;
  OLSCOM.weighted = LIMCOM.KWT > 0;
  FCOM.NQ = 0;
  largest = collect_variables(ws);
  if (largest < 0) return false;
  if (OLSCOM.lag_terms || OLSCOM.stepwise) {
    fail(" ...ERROR..INVALID LIST OF INDEPENDENT VARIABLES");
    return false;
  }
  LIMCOM.K = OLSCOM.NF - 1;
  if (LIMCOM.KWT > 0) add_weight(LIMCOM.KWT);
  return true;
}

bool settle_sample(Workspace ws, int largest) {
  DATCOM.MBEG = Opt::integer<"BEG">() + (OSCOM.ODELL ? largest : 0);
  DATCOM.MEND = Opt::integer<"END">();
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (OSCOM.OSCAN) return false;
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  CKSMPL(ws, model_list());
  if (OCOM.ODONT) return false;
  count_rows(ws);
  return true;
}

bool wants_rows() {
  const LimCom& o = LIMCOM;
  return o.LIST || o.RSTAT || !o.PREDICT.text.empty() || !o.INDEX.text.empty() ||
         !o.IMRATIO.text.empty();
}

constexpr std::int64_t SURVEY_WORDS = (sizeof(ColumnSurvey) + 7) / 8;

// Sizes of a model.
struct Sizes {
  int columns, choices, M;
  std::int64_t rows;
  std::size_t loaded;  // columns of LOADX

  std::int64_t work() const {
    return std::max({likelihood_words(columns, choices, rows),
                     fit_sum_words(columns, choices, rows), RowBlock::LD * columns,
                     static_cast<std::int64_t>(packed_words(M))});
  }
  std::int64_t by_rows() const {
    std::int64_t words = std::int64_t{LOADX_copies(model_list())} * rows;
    if (tobit()) words += 2 * rows;
    if (wants_rows()) words += rows * (choices - 1);
    if (LIMCOM.RSTAT) words += 2 * rows;
    return words;
  }
  std::int64_t words() const {
    return static_cast<std::int64_t>(loaded) + columns * (SURVEY_WORDS + std::int64_t{4}) +
           std::int64_t{5} * M + 2 * static_cast<std::int64_t>(packed_words(M)) +
           std::int64_t{2} * choices + by_rows() + work();
  }
};

std::span<const double*> take_pointers(Scratch& scratch, std::size_t n) {
  static_assert(sizeof(const double*) <= sizeof(double));
  auto* const pointers = reinterpret_cast<const double**>(scratch.take(n).data());
  std::uninitialized_fill_n(pointers, n, nullptr);
  return {pointers, n};
}

std::span<ColumnSurvey> take_surveys(Scratch& scratch, std::size_t n) {
  auto* const surveys =
      reinterpret_cast<ColumnSurvey*>(scratch.take(n * std::size_t{SURVEY_WORDS}).data());
  std::uninitialized_fill_n(surveys, n, ColumnSurvey{});
  return {surveys, n};
}

// Carves the room and loads the columns. False after an error.
bool load_model(Workspace ws, Scratch& scratch, const Sizes& sizes, LimModel& m) {
  const auto columns = static_cast<std::size_t>(sizes.columns);
  const auto M = static_cast<std::size_t>(sizes.M);
  const auto rows = static_cast<std::size_t>(sizes.rows);
  const auto K = static_cast<std::size_t>(LIMCOM.K);
  const std::span<const double*> loaded = take_pointers(scratch, sizes.loaded);
  m.column = take_pointers(scratch, columns);
  m.survey = take_surveys(scratch, columns);
  m.shift = scratch.take(columns);
  m.scale = scratch.take(columns);
  m.mean = scratch.take(columns);
  m.b = scratch.take(M);
  m.coef = scratch.take(M);
  m.step = scratch.take(M);
  m.gradient = scratch.take(M);
  m.scratch = scratch.take(M);
  m.information = scratch.take(packed_words(sizes.M));
  m.cov = scratch.take(packed_words(sizes.M));
  m.counts = scratch.take(static_cast<std::size_t>(sizes.choices));
  m.observed = scratch.take(static_cast<std::size_t>(sizes.choices));
  const std::span<double> copies =
      scratch.take(static_cast<std::size_t>(LOADX_copies(model_list())) * rows);
  if (tobit()) {
    m.made = scratch.take(rows);
    m.limit = scratch.take(rows);
  }
  if (wants_rows()) m.index = scratch.take(rows * static_cast<std::size_t>(sizes.choices - 1));
  if (LIMCOM.RSTAT) {
    m.fitted = scratch.take(rows);
    m.residual = scratch.take(rows);
  }
  m.work = scratch.rest();
  if (!LOADX(ws, model_list(), copies, loaded)) return false;
  m.list = model_list().first(K + 1);
  std::copy_n(loaded.begin(), K, m.column.begin());
  m.choices = sizes.choices;
  m.rows = {.column = m.column,
            .shift = m.shift,
            .scale = m.scale,
            .y = loaded[K],
            .weight = LIMCOM.KWT > 0 ? loaded.back() : nullptr,
            .weight_factor = 1.0,
            .rows = sizes.rows};
  std::ranges::fill(m.shift, 0.0);
  std::ranges::fill(m.scale, 1.0);
  std::ranges::fill(m.b, 0.0);
  return true;
}

// N, and the factor of NORMALIZ. False after an error.
bool settle_weights(Workspace ws, LimModel& m) {
  LikelihoodRows& rows = m.rows;
  m.N = static_cast<double>(rows.rows);
  if (rows.weight == nullptr) return true;
  const std::span<const double> weight(rows.weight, static_cast<std::size_t>(rows.rows));
  const double sum = usable_weights(ws, weight, LIMCOM.KWT);
  if (sum == 0.0) return false;
  if (LIMCOM.NORMALIZ) {
    rows.weight_factor = m.N / sum;
  } else {
    m.N = sum;
  }
  return true;
}

}  // namespace

double above(double a, double b) { return std::fabs(a - b) < 1e-10 ? 0.0 : a - b; }

double shown(double v) { return std::isfinite(v) ? v : NO_STATISTIC; }

std::string_view command_word() {
  if (INPCOM.IKOD == K_TOBIT) return "TOBIT";
  return INPCOM.IKOD == K_PROBIT ? "PROBIT" : "LOGIT";
}

std::string_view coefficient_name(Workspace ws, const LimModel& m, int i) {
  if (tobit() && i == m.K()) return "ND";
  return NAME(ws, m.list[static_cast<std::size_t>(i % m.K())].var);
}

bool settle_columns(Workspace ws, LimModel& m) {
  m.units = {m.shift, m.scale, -1};
  survey_columns(m.rows, m.survey, m.work);
  for (std::size_t k = 0; k < m.column.size(); ++k) {
    m.mean[k] = 1.0;
    if (m.column[k] == nullptr) {
      m.units.constant = static_cast<int>(k);
      continue;
    }
    const ColumnSurvey& s = m.survey[k];
    const int var = m.list[k].var;
    if (!s.finite) return refuse_values(ws, var);
    m.mean[k] = s.sum / m.N;
    if (LIMCOM.CONSTANT) m.shift[k] = m.mean[k];
    const double reach = std::max(s.high - m.shift[k], m.shift[k] - s.low);
    if (!std::isfinite(reach)) {
      fail<"(' ...ERROR..VALUES OF ', A, ' ARE TOO LARGE TO BE SUMMED')">(NAME(ws, var));
      return false;
    }
    if (reach == 0.0) continue;
    const int size = std::ilogb(reach);
    if (std::abs(size) > WIDEST) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS TOO LARGE OR TOO SMALL FOR THIS FIT. RESCALE IT')">(
          NAME(ws, var));
      return false;
    }
    m.scale[k] = std::ldexp(1.0, -size);
  }
  return true;
}

int given_start(Workspace ws, LimModel& m, int count, int fewer) {
  if (LIMCOM.INCOEF != 0) {
    const std::span<const double> given = elements(ws, LIMCOM.INCOEF);
    const int length = static_cast<int>(given.size());
    if (length != count && (fewer == 0 || length != fewer)) {
      fail(" ...ERROR..WRONG SIZE INCOEF");
      return -1;
    }
    if (!std::ranges::all_of(given, [](double v) { return std::isfinite(v); })) {
      refuse_values(ws, LIMCOM.INCOEF);
      return -1;
    }
    std::ranges::copy(given, m.coef.begin());
    return length;
  }
  if (!LIMCOM.READSV) return 0;
  DataUnit* const unit = open_data_unit(START_UNIT, {}, false);
  if (unit == nullptr) return -1;
  const std::string_view text = unit->rest();
  const char* p = text.data();
  const char* const end = p + text.size();
  std::int64_t lines = 0;
  int got = 0;
  while (p != end && got < count) {
    if (ends_number(*p)) {
      lines += *p++ == '\n' ? 1 : 0;
    } else if (scan_number(p, end, m.coef[static_cast<std::size_t>(got)])) {
      ++got;
    } else {
      break;
    }
  }
  if (got < count) {
    fail<"(' ...ERROR..UNIT', I3, ' HOLDS', I5, ' START VALUES OF THE', I5, ' NEEDED')">(
        START_UNIT, got, count);
    return -1;
  }
  unit->pass(static_cast<std::size_t>(p - text.data()), lines);
  return got;
}

void PROBC(Workspace ws) {
  const Trace trace("PROBC");
  const ContinueGuard guard;
  clear_estimate();
  // 1. Options.
  read_options(ws);
  if (OCOM.ODONT) return;
  if (SCNCOM.NF <= 0) {
    return say<"(' COMMAND STRUCTURE: ', A, ' depvar indeps / options')">(command_word());
  }
  if (!settle_options() || !find_variables()) return;
  // 2. The list and the sample.
  int largest = 0;
  if (!settle_list(ws, largest) || !settle_sample(ws, largest)) return;
  const int columns = LIMCOM.K + (tobit() ? 1 : 0);
  const int choices = tobit() ? 2 : LIMCOM.CHOICES;
  std::int64_t M = 0;
  if (!checked_product(columns, choices - 1, M) || M > DATCOM.NOB || DATCOM.NOB < 1) {
    return fail<"(' ...ERROR.. ', I0, ' OBSERVATIONS IS NOT ENOUGH FOR ', A, ' ESTIMATION')">(
        std::max(DATCOM.NOB, 0), command_word());
  }
  // 3. Room, columns, weights.
  const Sizes sizes{columns, choices, static_cast<int>(M), DATCOM.NOB, model_list().size()};
  Scratch scratch(ws, sizes.words());
  if (!scratch) return;
  LimModel m;
  if (!load_model(ws, scratch, sizes, m) || !settle_weights(ws, m)) return;
  // 4. The model.
  if (tobit())
    TOBIT(ws, m);
  else
    PROBIT(ws, m);
}

}  // namespace korvel
