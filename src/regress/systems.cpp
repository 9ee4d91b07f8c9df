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
#include "regress/result_options.h"

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

using Opt = OptionValues<SYSOPT>;

// Names of results, kept apart from the command: the equation lines overwrite that.
constinit KeptNames NAMES{};

bool read_options(Workspace ws) {
  const bool system = INPCOM.IKOD == K_SYSTEM;
  OPTION_START(SYSOPT.view());
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  // A single equation prints as OLS does.
  Opt::set<"ANOVA">(!system && OSCOM.OBAT);
  Opt::set<"GF">(!system && OSCOM.OBAT);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, SYSOPT.view());
  return !OCOM.ODONT;
}

// What the results stage reads.
void set_result_options() {
  read_result_options<SYSOPT>(NAMES);
  OLSCOM.COEFFICE = NAMES.keep(Opt::named<"COEFFICI">());
  OLSCOM.COVARIAN = NAMES.keep(Opt::named<"COVARIAN">());
  OCOM.OFORCE = !OLSCOM.CONSTANT;
}

bool settle_options() {
  set_result_options();
  SysCom& s = SYSCOM;
  s = SysCom{};
  s.FM = Opt::chosen<"FM">();
  s.IR = Opt::chosen<"IR">();
  s.DROP = Opt::chosen<"DROP">();
  s.AUTO = Opt::chosen<"AUTO">();
  s.FULL = Opt::chosen<"FULL">() || OLSCOM.ANOVA || OLSCOM.PCOV || OLSCOM.PCOR;
  s.II = Opt::chosen<"II">();
  s.RM = Opt::chosen<"RM">();
  s.SIMULATE = Opt::chosen<"SIMULATE">();
  s.ADDLAG = Opt::chosen<"ADDLAG">();
  s.CONEXOGS = Opt::chosen<"CONEXOGS">();
  s.PSIGMA = Opt::chosen<"PSIGMA">() || OLSCOM.MAX;
  s.ITER = Opt::integer<"ITER">();
  s.IN = Opt::integer<"IN">();
  s.OUT = Opt::integer<"OUT">();
  s.PITER = Opt::integer<"PITER">();
  s.CONV = Opt::real<"CONV">();
  s.RHO = Opt::real<"RHO">();
  s.RHOMIN = Opt::real<"RHOMIN">();
  s.RHOMAX = Opt::real<"RHOMAX">();
  s.RHOINC = Opt::real<"RHOINC">();
  s.fixed_rho = Opt::given<"RHO">();
  s.grid = Opt::given<"RHOMIN">() || Opt::given<"RHOMAX">();
  s.SIGMA = NAMES.keep(Opt::named<"SIGMA">());
  s.COEFMATR = NAMES.keep(Opt::named<"COEFMATR">());
  if (name_lacking(SYSOPT.view())) return false;
  if (s.ITER < 0) return bad_option_value("ITER");
  if (!(s.CONV >= 0.0)) return bad_option_value("CONV");
  if (s.grid && !(s.RHOINC > 0.0 && s.RHOMAX >= s.RHOMIN && s.RHOMIN > -1.0 && s.RHOMAX < 1.0 &&
                  (s.RHOMAX - s.RHOMIN) / s.RHOINC < 10000.0)) {
    return bad_option_value("RHOMIN");
  }
  if (s.fixed_rho && !std::isfinite(s.RHO)) return bad_option_value("RHO");
  if (s.fixed_rho && s.grid) return incompatible_options();
  if (s.AUTO && (s.II || s.IN != 0 || s.OUT != 0)) return incompatible_options();
  if (s.IN != 0 && !user_unit(s.IN)) return false;
  if (s.OUT != 0 && !user_unit(s.OUT)) return false;
  const NameOption& id = Opt::named<"IDVAR">();
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
  const IdleOption options[] = {
      {!s.AUTO && (s.DROP || s.fixed_rho || s.grid), s.DROP ? "DROP" : "RHO", "AUTO"},
      {Opt::given<"RHOINC">() && !s.grid, "RHOINC", "RHOMIN OR RHOMAX"},
      {!s.CONEXOGS && !model.instruments, "NOCONEXOGS", "EXOGENOUS VARIABLES"},
      {s.ADDLAG && !s.AUTO, "ADDLAG", "AUTO"},
      {s.ADDLAG && s.AUTO && !model.instruments, "ADDLAG", "EXOGENOUS VARIABLES"},
      {s.II && s.ITER == 0, "II", "ITER"},
      {s.II && s.ITER > 0 && !model.instruments, "II", "EXOGENOUS VARIABLES"},
      {s.IR && !OLSCOM.RESTRICT, "IR", "RESTRICT"},
      {s.IR && OLSCOM.RESTRICT && s.ITER == 0, "IR", "ITER"},
  };
  warn_idle_options(options);
}

// The sample of the equations' columns: MBEG, MEND, NOB. False after an error.
bool settle_sample(Workspace ws, const SystemModel& model, int largest) {
  DATCOM.MBEG = Opt::integer<"BEG">() + (OSCOM.ODELL ? largest : 0);
  DATCOM.MEND = Opt::integer<"END">();
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
    return say<"(' COMMAND STRUCTURE: ', A, ' depvar indeps (exogs) / options')">(
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
