// SYSTEM, 2SLS and INST: the command routine. Options, the equations, the sample; SYS3S estimates.

#include "regress/systems.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/units.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

// FIML and HAUSMAN keep their places and can't be typed.
constexpr auto SYSOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("DUMP"), logical("LIST"), logical("RSTAT"),
    logical("PCOV"), logical("PCOR"), logical("FM"), logical("IR"), logical("DROP"),
    logical("AUTO"), logical("ANOVA"), logical("DN"), logical("FULL"), logical("GF"), logical("II"),
    logical("RESTRICT"), logical("RM"), logical("*FIML"), logical("SIMULATE"), logical("ADDLAG"),
    logical("LM"), logical("CONEXOGS", true), logical("*HAUSMAN"), logical("DLAG"),
    logical("PSIGMA"),  //
    integer("BEG"), integer("END"), integer("ITER"), integer("IN"), integer("OUT"),
    integer("PITER", 15),                                                                   //
    real("CONV", 0.001), real("RHO"), real("RHOMIN"), real("RHOMAX"), real("RHOINC", 0.1),  //
    variable("PREDICT"), variable("RESID"), variable("COEFFICI"), variable("COVARIAN"),
    variable("SIGMA"), variable("COEFMATR"), variable("STDERR"), variable("TRATIO"),
    variable("IDVAR"), variable("*VOPT1"), variable("*VOPT2"), variable("*VOPT3"));
static_assert(SYSOPT.words.size() == 26 + 6 + 5 + 12);

template <FixedText WORD>
bool chosen() {
  return OPTCOM.LOPT[SYSOPT.place(WORD.view())];
}
template <FixedText WORD>
int integer_value() {
  return OPTCOM.IOPT[SYSOPT.place(WORD.view())];
}
template <FixedText WORD>
double real_value() {
  return OPTCOM.XOPT[SYSOPT.place(WORD.view())];
}
template <FixedText WORD>
bool real_given() {
  return OPTCOM.xgiven[SYSOPT.place(WORD.view())];
}

// Texts of name options, kept apart from the command: the equation lines overwrite that.
struct SystemTexts {
  std::array<std::array<char, 64>, 8> text{};
  std::size_t used = 0;
};
constinit SystemTexts SYSTEMTEXTS{};

NameOption keep(std::size_t place) {
  const NameOption& option = OPTCOM.VOPT[place];
  NameOption kept = option;
  auto& room = SYSTEMTEXTS.text[SYSTEMTEXTS.used++];
  const std::size_t n = std::min(option.typed.size(), room.size());
  std::copy_n(option.typed.begin(), n, room.begin());
  kept.typed = {room.data(), n};
  kept.text = option.text.empty() ? std::string_view{} : kept.typed;
  return kept;
}

bool incompatible() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS ");
  return false;
}

bool wrong_value(std::string_view option) {
  fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A)">(option);
  return false;
}

bool read_options(Workspace ws) {
  const bool system = INPCOM.IKOD == K_SYSTEM;
  OPTION_START(SYSOPT.view());
  OPTCOM.LOPT[SYSOPT.place("MAX")] = OSCOM.OMXX;
  OPTCOM.LOPT[SYSOPT.place("DUMP")] = OSCOM.ODMMP;
  // A single equation prints as OLS does.
  OPTCOM.LOPT[SYSOPT.place("ANOVA")] = !system && OSCOM.OBAT;
  OPTCOM.LOPT[SYSOPT.place("GF")] = !system && OSCOM.OBAT;
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, SYSOPT.view());
  return !OCOM.ODONT;
}

// What the results stage reads.
void set_result_options() {
  OlsCom& o = OLSCOM;
  o = OlsCom{};
  SYSTEMTEXTS.used = 0;
  o.MAX = chosen<"MAX">();
  o.CONSTANT = chosen<"CONSTANT">();
  o.DUMP = chosen<"DUMP">();
  o.LM = chosen<"LM">() || o.MAX;
  o.GF = chosen<"GF">() || o.MAX;
  o.DLAG = chosen<"DLAG">();
  o.LIST = chosen<"LIST">() || o.MAX;
  o.RSTAT = chosen<"RSTAT">() || o.LIST || o.LM || o.GF || o.DLAG;
  o.PCOV = chosen<"PCOV">() || o.MAX;
  o.PCOR = chosen<"PCOR">() || o.MAX;
  o.ANOVA = chosen<"ANOVA">() || o.MAX;
  o.DN = chosen<"DN">();
  o.RESTRICT = chosen<"RESTRICT">();
  o.PREDICT = keep(SYSOPT.place("PREDICT"));
  o.RESID = keep(SYSOPT.place("RESID"));
  o.COEFFICE = keep(SYSOPT.place("COEFFICI"));
  o.COVARIAN = keep(SYSOPT.place("COVARIAN"));
  o.STDERR = keep(SYSOPT.place("STDERR"));
  o.TRATIO = keep(SYSOPT.place("TRATIO"));
  OCOM.OFORCE = !o.CONSTANT;
}

bool settle_options() {
  set_result_options();
  SysCom& s = SYSCOM;
  s = SysCom{};
  s.FM = chosen<"FM">();
  s.IR = chosen<"IR">();
  s.DROP = chosen<"DROP">();
  s.AUTO = chosen<"AUTO">();
  s.FULL = chosen<"FULL">() || OLSCOM.ANOVA || OLSCOM.PCOV || OLSCOM.PCOR;
  s.II = chosen<"II">();
  s.RM = chosen<"RM">();
  s.SIMULATE = chosen<"SIMULATE">();
  s.ADDLAG = chosen<"ADDLAG">();
  s.CONEXOGS = chosen<"CONEXOGS">();
  s.PSIGMA = chosen<"PSIGMA">() || OLSCOM.MAX;
  s.ITER = integer_value<"ITER">();
  s.IN = integer_value<"IN">();
  s.OUT = integer_value<"OUT">();
  s.PITER = integer_value<"PITER">();
  s.CONV = real_value<"CONV">();
  s.RHO = real_value<"RHO">();
  s.RHOMIN = real_value<"RHOMIN">();
  s.RHOMAX = real_value<"RHOMAX">();
  s.RHOINC = real_value<"RHOINC">();
  s.fixed_rho = real_given<"RHO">();
  s.grid = real_given<"RHOMIN">() || real_given<"RHOMAX">();
  s.SIGMA = keep(SYSOPT.place("SIGMA"));
  s.COEFMATR = keep(SYSOPT.place("COEFMATR"));
  std::size_t place = 0;
  for (const OptionWord& w : SYSOPT.view()) {
    if (w.kind != OptionKind::Variable) continue;
    if (OPTCOM.VOPT[place++].text == "********") return wrong_value(w.word);
  }
  if (s.ITER < 0) return wrong_value("ITER");
  if (!(s.CONV >= 0.0)) return wrong_value("CONV");
  if (s.grid && !(s.RHOINC > 0.0 && s.RHOMAX >= s.RHOMIN && s.RHOMIN > -1.0 && s.RHOMAX < 1.0 &&
                  (s.RHOMAX - s.RHOMIN) / s.RHOINC < 10000.0)) {
    return wrong_value("RHOMIN");
  }
  if (s.fixed_rho && !std::isfinite(s.RHO)) return wrong_value("RHO");
  if (s.fixed_rho && s.grid) return incompatible();
  if (s.AUTO && (s.II || s.IN != 0 || s.OUT != 0)) return incompatible();
  if (s.IN != 0 && !user_unit(s.IN)) return false;
  if (s.OUT != 0 && !user_unit(s.OUT)) return false;
  const NameOption& id = OPTCOM.VOPT[SYSOPT.place("IDVAR")];
  if (!id.text.empty() && id.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(id.text);
    return false;
  }
  OLSCOM.KID = id.var;
  return true;
}

// Options that change nothing here are told.
void warn_idle_options(const SystemModel& model) {
  const SysCom& s = SYSCOM;
  const struct {
    bool idle;
    std::string_view word, needs;
  } rows[] = {
      {!s.AUTO && (s.DROP || s.fixed_rho || s.grid), s.DROP ? "DROP" : "RHO", "AUTO"},
      {s.ADDLAG && !s.AUTO, "ADDLAG", "AUTO"},
      {s.ADDLAG && s.AUTO && !model.instruments, "ADDLAG", "EXOGENOUS VARIABLES"},
      {s.II && s.ITER == 0, "II", "ITER"},
      {s.II && s.ITER > 0 && !model.instruments, "II", "EXOGENOUS VARIABLES"},
      {s.IR && !OLSCOM.RESTRICT, "IR", "RESTRICT"},
      {s.IR && OLSCOM.RESTRICT && s.ITER == 0, "IR", "ITER"},
  };
  for (const auto& r : rows) {
    if (r.idle) warn<"(' ...WARNING..OPTION ', A, ' COUNTS ONLY WITH ', A)">(r.word, r.needs);
  }
}

// The sample of the equations' columns: MBEG, MEND, NOB. False after an error.
bool settle_sample(Workspace ws, const SystemModel& model, int largest) {
  DATCOM.MBEG = integer_value<"BEG">() + (OSCOM.ODELL ? largest : 0);
  DATCOM.MEND = integer_value<"END">();
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  CKSMPL(ws, model.column);
  if (OCOM.ODONT) return false;
  count_rows(ws);
  if (DATCOM.NOB < 1 + (SYSCOM.AUTO ? 1 : 0)) {
    fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(DATCOM.NOB);
    return false;
  }
  return true;
}

// Estimates the model that has been read.
void estimate(Workspace ws, SystemModel& model, const Restrictions& restrictions) {
  const std::int64_t n = DATCOM.NOB;
  const std::int64_t copies = std::int64_t{LOADX_copies(model.column)} * n;
  const std::int64_t words = copies + model.P() + system_moment_words(model, n) +
                             SystemFit::words(model) + SYS3S_words(model);
  Scratch scratch(ws, words);
  if (!scratch) return;
  // 1. The columns.
  SystemData data;
  data.rows = n;
  const std::span<double> places = scratch.take(static_cast<std::size_t>(model.P()));
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, model.P(), nullptr);
  data.column = {pointers, static_cast<std::size_t>(model.P())};
  const std::span<double> room = scratch.take(static_cast<std::size_t>(copies));
  if (!LOADX(ws, model.column, room, data.column)) return;
  // 2. Their moments, in one pass.
  SystemMoments moments;
  const auto moment_words = static_cast<std::size_t>(system_moment_words(model, n));
  if (!form_moments(ws, model, data, SYSCOM.DROP, scratch.take(moment_words), moments)) return;
  // 3. The system, in full on the moments.
  SystemFit fit(model, moments, scratch.take(static_cast<std::size_t>(SystemFit::words(model))));
  SystemOutcome outcome;
  if (OCOM.OPUT) print_system_options(moments.rows);
  if (!SYS3S(ws, model, moments, restrictions, fit, scratch.rest(), outcome)) return;
  // 4. Results.
  if (OCOM.OPUT && INPCOM.IKOD == K_SYSTEM) {
    print_system_statistics(ws, model, moments, fit, outcome);
  }
  if (SYSCOM.IN != 0 && moments.rows != static_cast<double>(n)) {
    // Rows in the workspace are not those of the moments.
    if (OLSCOM.RSTAT || !OLSCOM.RESID.text.empty() || !OLSCOM.PREDICT.text.empty() ||
        SYSCOM.SIMULATE) {
      return fail<"(' ...ERROR..THE MOMENTS ARE OF ', I0, ' OBSERVATIONS, THE SAMPLE HAS ', I0)">(
          static_cast<std::int64_t>(moments.rows), n);
    }
  }
  give_results(ws, model, data, moments, fit, outcome);
}

}  // namespace

void SYSCON(Workspace ws) {
  const Trace trace("SYSCON");
  const ContinueGuard state;
  const bool system = INPCOM.IKOD == K_SYSTEM;
  if (!system && SCNCOM.NF <= 0) {
    return say<"(' COMMAND STRUCTURE:', A6, 'depvar indeps (exogs) / options')">(
        INPCOM.IKOD == K_2SLS ? "2SLS" : "INST");
  }
  // 1. Options.
  const bool good = read_options(ws) && settle_options();
  if (system && RUNCOM.settings.check) return check_system(ws);
  if (!good) {
    if (system) pass_over_system(ws);
    return;
  }
  if (OSCOM.OSCAN) return;
  FCOM.RHO = FCOM.RHO2 = FCOM.RIDG = FCOM.XMAXL = 0.0;
  FCOM.NQ = 0;
  OCOM.OMEAN = false;
  // 2. The equations, with SYSTEM from the lines that follow, and their restrictions. OPTCOM is
  // still that of the command: equation lines are split but their options aren't read.
  const int count = system ? equation_count(ws) : 1;
  if (count == 0) return;
  const int largest = read_system(ws, count);
  if (largest < 0) return;
  SystemModel& model = system_model();
  collect_columns(model);
  static Restrictions restrictions;
  restrictions.q = 0;
  if (OLSCOM.RESTRICT) {
    if (OSCOM.OTALK) say(" ENTER RESTRICT COMMANDS, THEN TYPE END");
    const auto equations =
        system ? std::span<const SavedEquation>(model.equation) : std::span<const SavedEquation>();
    if (!read_restrictions(ws, model.list, restrictions, equations)) return;
  }
  warn_idle_options(model);
  // 3. The sample.
  if (!settle_sample(ws, model, largest)) return;
  // 4. The estimate; the one before stays valid until here.
  if (OCOM.OPUT) print_system_title(ws, model);
  estimate(ws, model, restrictions);
}

}  // namespace korvel
