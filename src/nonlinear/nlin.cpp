// NLIN: the option table that NLINEAR, MLE, HETERO and GME share, the checks that need nothing but
// the options, and the dispatch to the command's own routine.

#include "nonlinear/nonlinear.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "nonlinear/nl_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr auto NLOPT = option_table(
    logical("MAX"), logical("DUMP"), logical("LIST"), logical("RSTAT"), logical("PCOV"),
    logical("PCOR"), logical("DN", true), logical("AUTO"), logical("DRHO"), logical("ACROSS"),
    logical("NUMERIC"), logical("OPGSTART"), logical("OPGCOV"), logical("EVAL"), logical("SAME"),
    logical("LM"), logical("CONSTANT", true), logical("ANOVA"), logical("LFUNC"), logical("LOGLOG"),
    logical("LOGLIN"), logical("LINLOG"), logical("OPGLM"), logical("MAGEE"),
    logical("REWIND", true), logical("NORMALIZ", true), logical("LOGDENS"), logical("DENSITY"),
    logical("NUMCOV"), logical("GENRVAR"), logical("EXPONENT"), logical("PRESAMP"),
    logical("SOLVE"), logical("MINFUNC"), logical("MAXFUNC"), logical("CONEXOGS"),
    logical("S3SLS", true), logical("PWEIGHT", true), logical("EXPLOG"), logical("*dontuse"),
    logical("BIGOUT"), logical("PSIGMA", true), logical("DEVIATIO"), logical("LININVER"),
    logical("LOGINVER"), logical("HYBRID"),  //
    integer("BEG"), integer("END"), integer("OBS"), integer("ORDER"), integer("ITER", 100),
    integer("NCOEF"), integer("ARCH"), integer("PITER", 15), integer("IN"), integer("OUT"),
    integer("MACH"), integer("GARCH"), integer("CRHO"), integer("AUTCOV", -999), integer("PENTYPE"),
    integer("QC", 1), integer("RMALIZ", 1), integer("SANEPS", 4), integer("SANS", 20),
    integer("SANT", 100), integer("SAITER", 1000000),  //
    real("CONVERGE", 0.00001), real("STEPSIZE", 0.0001), real("ESTFN", 100), real("DELTA", 0.0001),
    real("ARCHM", -999), real("LOGEPS"), real("PENLAMBD", 1), real("PENLOW", -9e+20),
    real("PENHI", 9e+20), real("SATRF", 0.85), real("SAUPFAC", 10), real("SALOWFAC", -10),
    real("SACONV", 1e+20),  //
    variable("PREDICT"), variable("RESID"), variable("COEF"), variable("COV"), variable("TRATIO"),
    variable("STDERR"), variable("COR"), variable("IDVAR"), variable("SIGMA"), variable("STARTING"),
    variable("ZMATRIX"), variable("GMATRIX"), variable("WEIGHT"), variable("METHOD"),
    variable("TYPE"), variable("STDRESID"), variable("MODEL"), variable("GMM"),
    variable("KORVFUNC"), variable("KORVUSER"), variable("ZENTROPY"), variable("VENTROPY"),
    variable("GMMOUT"), variable("QPRIOR"), variable("UPRIOR"), variable("SIGMAZ"),
    variable("STDERR2"), variable("SALOWER"), variable("SAUPPER"));
static_assert(NLOPT.words.size() == 46 + 21 + 13 + 29);

constexpr double GME_CONVERGE = 0.00000001;

using Opt = OptionValues<NLOPT>;

// Coefficients of the last run of NLINEAR or MLE, for SAME.
std::vector<double> KEPTCOEF;

void keep_coefficients() {
  const bool kept = INPCOM.IKOD == K_NLINEAR || INPCOM.IKOD == K_MLE;
  if (kept && !OCOM.ODONT && ADDCOM.KTEST != 0 && SAVED.IKOD == INPCOM.IKOD) KEPTCOEF = SAVED.coef;
}

bool nl() { return INPCOM.IKOD == K_NLINEAR; }

// Names of results, kept apart from the command: the lines of the block overwrite that.
constinit KeptNames NAMES{};

void read_options(Workspace ws) {
  OPTION_START(NLOPT.view());
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  Opt::set<"OPGSTART">(INPCOM.IKOD == K_HETERO);
  Opt::set<"CONEXOGS">(nl() || INPCOM.IKOD == K_GME);
  if (!OCOM.OPUT) Opt::set<"PITER">(0);
  if (INPCOM.IKOD == K_GME) Opt::set<"CONVERGE">(GME_CONVERGE);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, NLOPT.view());
}

void copy_logicals() {
  NlCom& o = NLCOM;
  o.MAX = Opt::chosen<"MAX">();
  o.DUMP = Opt::chosen<"DUMP">();
  o.LIST = Opt::chosen<"LIST">() || o.MAX;
  o.RSTAT = Opt::chosen<"RSTAT">() || o.LIST;
  o.PCOV = Opt::chosen<"PCOV">() || o.MAX;
  o.PCOR = Opt::chosen<"PCOR">() || o.MAX;
  o.DN = Opt::chosen<"DN">();
  o.AUTO = Opt::chosen<"AUTO">();
  o.DRHO = Opt::chosen<"DRHO">();
  o.ACROSS = Opt::chosen<"ACROSS">();
  o.NUMERIC = Opt::chosen<"NUMERIC">();
  o.OPGSTART = Opt::chosen<"OPGSTART">();
  o.OPGCOV = Opt::chosen<"OPGCOV">();
  o.EVAL = Opt::chosen<"EVAL">();
  o.SAME = Opt::chosen<"SAME">();
  o.LM = Opt::chosen<"LM">();
  o.CONSTANT = Opt::chosen<"CONSTANT">();
  o.ANOVA = Opt::chosen<"ANOVA">();
  o.LOGLOG = Opt::chosen<"LOGLOG">();
  o.LOGLIN = Opt::chosen<"LOGLIN">();
  o.LINLOG = Opt::chosen<"LINLOG">();
  o.LININVER = Opt::chosen<"LININVER">();
  o.LOGINVER = Opt::chosen<"LOGINVER">();
  o.REWIND = Opt::chosen<"REWIND">();
  o.NORMALIZ = Opt::chosen<"NORMALIZ">();
  o.LOGDENS = Opt::chosen<"LOGDENS">();
  o.DENSITY = Opt::chosen<"DENSITY">();
  o.NUMCOV = Opt::chosen<"NUMCOV">();
  o.numcov_given = Opt::given<"NUMCOV">();
  o.GENRVAR = Opt::chosen<"GENRVAR">();
  o.PRESAMP = Opt::chosen<"PRESAMP">();
  o.SOLVE = Opt::chosen<"SOLVE">();
  o.MINFUNC = Opt::chosen<"MINFUNC">();
  o.MAXFUNC = Opt::chosen<"MAXFUNC">();
  o.CONEXOGS = Opt::chosen<"CONEXOGS">();
  o.S3SLS = Opt::chosen<"S3SLS">();
  o.PWEIGHT = Opt::chosen<"PWEIGHT">();
  o.PSIGMA = Opt::chosen<"PSIGMA">();
  o.HYBRID = Opt::chosen<"HYBRID">();
}

void copy_numbers() {
  NlCom& o = NLCOM;
  o.ORDER = Opt::integer<"ORDER">();
  o.order_given = Opt::given<"ORDER">();
  o.ITER = Opt::integer<"ITER">();
  o.NCOEF = Opt::integer<"NCOEF">();
  o.ARCH = Opt::integer<"ARCH">();
  o.arch_given = Opt::given<"ARCH">();
  o.GARCH = Opt::integer<"GARCH">();
  o.garch_given = Opt::given<"GARCH">();
  o.PITER = Opt::integer<"PITER">();
  o.IN = Opt::integer<"IN">();
  o.OUT = Opt::integer<"OUT">();
  o.AUTCOV = Opt::integer<"AUTCOV">();
  o.PENTYPE = Opt::integer<"PENTYPE">();
  o.SANEPS = Opt::integer<"SANEPS">();
  o.SANS = Opt::integer<"SANS">();
  o.SANT = Opt::integer<"SANT">();
  o.SAITER = Opt::integer<"SAITER">();
  o.CONV = Opt::real<"CONVERGE">();
  o.STEPSIZE = Opt::real<"STEPSIZE">();
  o.ESTFN = Opt::real<"ESTFN">();
  o.DELTA = Opt::real<"DELTA">();
  o.ARCHM = Opt::real<"ARCHM">();
  o.LOGEPS = Opt::real<"LOGEPS">();
  o.PENLAMBD = Opt::real<"PENLAMBD">();
  o.PENLOW = Opt::real<"PENLOW">();
  o.PENHI = Opt::real<"PENHI">();
  o.SATRF = Opt::real<"SATRF">();
  o.SAUPFAC = Opt::real<"SAUPFAC">();
  o.saupfac_given = Opt::given<"SAUPFAC">();
  o.SALOWFAC = Opt::real<"SALOWFAC">();
  o.salowfac_given = Opt::given<"SALOWFAC">();
  o.SACONV = Opt::real<"SACONV">();
}

void copy_names() {
  NlCom& o = NLCOM;
  NAMES.clear();
  o.PREDICT = NAMES.keep(Opt::named<"PREDICT">());
  o.RESID = NAMES.keep(Opt::named<"RESID">());
  o.COEF = NAMES.keep(Opt::named<"COEF">());
  o.COV = NAMES.keep(Opt::named<"COV">());
  o.TRATIO = NAMES.keep(Opt::named<"TRATIO">());
  o.STDERR = NAMES.keep(Opt::named<"STDERR">());
  o.COR = NAMES.keep(Opt::named<"COR">());
  o.IDVAR = NAMES.keep(Opt::named<"IDVAR">());
  o.SIGMA = NAMES.keep(Opt::named<"SIGMA">());
  o.STARTING = NAMES.keep(Opt::named<"STARTING">());
  o.ZMATRIX = NAMES.keep(Opt::named<"ZMATRIX">());
  o.GMATRIX = NAMES.keep(Opt::named<"GMATRIX">());
  o.WEIGHT = NAMES.keep(Opt::named<"WEIGHT">());
  o.METHOD = NAMES.keep(Opt::named<"METHOD">());
  o.TYPE = NAMES.keep(Opt::named<"TYPE">());
  o.STDRESID = NAMES.keep(Opt::named<"STDRESID">());
  o.MODEL = NAMES.keep(Opt::named<"MODEL">());
  o.GMM = NAMES.keep(Opt::named<"GMM">());
  o.ZENTROPY = NAMES.keep(Opt::named<"ZENTROPY">());
  o.VENTROPY = NAMES.keep(Opt::named<"VENTROPY">());
  o.GMMOUT = NAMES.keep(Opt::named<"GMMOUT">());
  o.QPRIOR = NAMES.keep(Opt::named<"QPRIOR">());
  o.UPRIOR = NAMES.keep(Opt::named<"UPRIOR">());
  o.SIGMAZ = NAMES.keep(Opt::named<"SIGMAZ">());
  o.STDERR2 = NAMES.keep(Opt::named<"STDERR2">());
  o.SALOWER = NAMES.keep(Opt::named<"SALOWER">());
  o.SAUPPER = NAMES.keep(Opt::named<"SAUPPER">());
}

bool refuse(std::string_view text) {
  fail(text);
  return false;
}

// Words of the family's table that no command uses, and those that one command doesn't.
constexpr auto IDLE = std::to_array<std::string_view>(
    {"LFUNC", "MAGEE", "OPGLM", "EXPLOG", "EXPONENT", "DEVIATIO", "BIGOUT", "MACH", "CRHO", "QC",
     "RMALIZ", "LOGEPS", "KORVFUNC", "KORVUSER", "STDERR2"});
constexpr auto NOT_IN_NLINEAR = std::to_array<std::string_view>(
    {"MODEL", "OPGSTART", "CONSTANT", "ANOVA", "LININVER", "LOGINVER", "ZENTROPY", "VENTROPY",
     "QPRIOR", "UPRIOR", "SIGMAZ"});
constexpr auto NOT_IN_MLE = std::to_array<std::string_view>(
    {"AUTO",   "ORDER",   "DRHO",    "ACROSS",   "LOGDENS", "DENSITY",  "GENRVAR",  "PRESAMP",
     "SOLVE",  "MINFUNC", "MAXFUNC", "CONEXOGS", "IN",      "OUT",      "NCOEF",    "PENTYPE",
     "AUTCOV", "SIGMA",   "MODEL",   "GMM",      "GMMOUT",  "ZENTROPY", "VENTROPY", "QPRIOR",
     "UPRIOR", "SIGMAZ",  "DN",      "S3SLS",    "PSIGMA",  "ESTFN"});
constexpr auto NOT_IN_HETERO = std::to_array<std::string_view>(
    {"AUTO",    "ORDER",   "DRHO",   "ACROSS",   "SAME",     "LM",       "LOGDENS", "DENSITY",
     "GENRVAR", "PRESAMP", "SOLVE",  "MINFUNC",  "MAXFUNC",  "CONEXOGS", "NCOEF",   "PENTYPE",
     "AUTCOV",  "GMM",     "GMMOUT", "ZENTROPY", "VENTROPY", "QPRIOR",   "UPRIOR",  "SIGMAZ",
     "ANOVA",   "IDVAR",   "S3SLS",  "PSIGMA",   "ESTFN"});
constexpr auto NOT_IN_GME = std::to_array<std::string_view>(
    {"AUTO",    "OPGCOV",  "NUMCOV",  "EVAL",    "SAME",     "SOLVE",    "LM",
     "MINFUNC", "MAXFUNC", "LOGDENS", "DENSITY", "PENTYPE",  "NCOEF",    "IN",
     "OUT",     "WEIGHT",  "GMM",     "SIGMA",   "STARTING", "STDRESID", "DRHO",
     "ACROSS",  "ORDER",   "PRESAMP", "GENRVAR", "CONEXOGS", "OPGSTART", "ANOVA",
     "AUTCOV",  "GMMOUT",  "MODEL",   "S3SLS",   "PSIGMA"});

std::span<const std::string_view> idle_here() {
  switch (INPCOM.IKOD) {
    case K_MLE:
      return NOT_IN_MLE;
    case K_HETERO:
      return NOT_IN_HETERO;
    case K_GME:
      return NOT_IN_GME;
    default:
      return NOT_IN_NLINEAR;
  }
}

void warn_idle(std::string_view word, bool off = false) {
  warn<"(' ...WARNING..', A, A, ' OPTION HAS NO EFFECT')">(off ? "NO" : "", word);
}

// Options of NLINEAR that belong to a form which was not chosen.
void warn_without_form() {
  const NlCom& o = NLCOM;
  const bool instruments = SCNCOM.NF > 0;
  const bool functions = o.LOGDENS || o.DENSITY || o.MINFUNC || o.MAXFUNC;
  if (o.DRHO && !o.AUTO) warn_idle("DRHO");
  if (o.ACROSS && !o.AUTO) warn_idle("ACROSS");
  if (o.PRESAMP && !o.AUTO) warn_idle("PRESAMP");
  if (o.LM && (instruments || functions || o.SOLVE)) warn_idle("LM");
  if (o.AUTCOV != -999 && o.GMM.text.empty()) warn_idle("AUTCOV");
  if (!o.GMMOUT.text.empty() && !instruments) warn_idle("GMMOUT");
}

// Words that count only beside another option which was not given.
bool lacks_partner(std::string_view word) {
  const NlCom& o = NLCOM;
  const bool annealing = o.METHOD.text == "SA" || (o.HYBRID && !o.METHOD.text.empty());
  if (word == "PENLAMBD") return o.PENTYPE == 0;
  if (word == "PENLOW" || word == "PENHI") return o.PENTYPE != 1;
  if (word.starts_with("SA") && word != "SAME") return !annealing;
  if (word == "STEPSIZE") return !o.NUMERIC;
  if (word == "REWIND") return o.IN == 0;
  if (word == "PWEIGHT") return o.WEIGHT.text.empty();
  const bool instruments = nl() && SCNCOM.NF > 0;
  if (word == "S3SLS" || word == "CONEXOGS") return nl() && !instruments;
  if (word == "NUMCOV") return instruments;
  if (word == "NORMALIZ") return instruments || (!nl() && o.WEIGHT.text.empty());
  return false;
}

// Tells the typed words that mean nothing to the command.
void warn_without_effect() {
  const std::span<const std::string_view> here = idle_here();
  std::size_t rank[4] = {0, 0, 0, 0};
  for (const OptionWord& w : NLOPT.view()) {
    const std::size_t place = rank[static_cast<int>(w.kind)]++;
    // A logical word typed as it stands anyway asks for nothing.
    const bool typed = w.kind == OptionKind::Logical
                           ? OPTCOM.lgiven[place] && OPTCOM.LOPT[place] != (w.start != 0.0)
                       : w.kind == OptionKind::Integer ? OPTCOM.igiven[place]
                       : w.kind == OptionKind::Real    ? OPTCOM.xgiven[place]
                                                       : !OPTCOM.VOPT[place].text.empty();
    const bool idle = std::ranges::find(IDLE, w.word) != IDLE.end() ||
                      std::ranges::find(here, w.word) != here.end() ||
                      (w.word == "HYBRID" && NLCOM.METHOD.text.empty()) || lacks_partner(w.word);
    if (typed && idle) warn_idle(w.word, w.kind == OptionKind::Logical && !OPTCOM.LOPT[place]);
  }
  if (nl()) warn_without_form();
  if (NLCOM.METHOD.text.empty()) NLCOM.HYBRID = false;
}

// Values that no command of the family can use.
bool check_values() {
  const NlCom& o = NLCOM;
  if (name_lacking(NLOPT.view())) return false;
  if (o.CONV == 0.0) return refuse(" ...ERROR..CONVERGENCE SET TO ZERO");
  if (!(o.CONV > 0.0 && std::isfinite(o.CONV))) return bad_option_value("CONVERGE");
  if (!(o.STEPSIZE > 0.0 && std::isfinite(o.STEPSIZE))) return bad_option_value("STEPSIZE");
  if (!(o.DELTA > 0.0 && std::isfinite(o.DELTA))) return bad_option_value("DELTA");
  if (o.ITER < 0) return bad_option_value("ITER");
  if (o.PITER < 0) return bad_option_value("PITER");
  if (o.ORDER < 0) return bad_option_value("ORDER");
  if (o.ARCH < 0) return bad_option_value("ARCH");
  if (o.GARCH < 0) return bad_option_value("GARCH");
  if (o.NCOEF < 0) return bad_option_value("NCOEF");
  if (o.AUTCOV < 0 && o.AUTCOV != -999) return bad_option_value("AUTCOV");
  if (o.PENTYPE < 0 || o.PENTYPE > 3) return bad_option_value("PENTYPE");
  if (!(o.PENLAMBD >= 0.0 && std::isfinite(o.PENLAMBD))) return bad_option_value("PENLAMBD");
  if (!RUNCOM.settings.check && !(o.PENLOW <= o.PENHI)) return bad_option_value("PENLOW");
  return true;
}

// Variables that hold start values and bounds.
bool check_variables() {
  const NlCom& o = NLCOM;
  if (!o.STARTING.text.empty() && o.STARTING.var <= 0) {
    return refuse(" ...ERROR..START= VARIABLE DOES NOT EXIST");
  }
  if (!o.SALOWER.text.empty() && o.SALOWER.var <= 0) {
    return refuse(" ...ERROR..SALOWER= VARIABLE DOES NOT EXIST");
  }
  if (!o.SAUPPER.text.empty() && o.SAUPPER.var <= 0) {
    return refuse(" ...ERROR..SAUPPER= VARIABLE DOES NOT EXIST");
  }
  if (!o.SALOWER.text.empty() && o.salowfac_given) {
    warn(" ...WARNING..LOWFAC INCOMPATIBLE WITH SALOWER");
    warn(" ...WARNING..LOWFAC IGNORED");
  }
  if (!o.SAUPPER.text.empty() && o.saupfac_given) {
    warn(" ...WARNING..UPFAC INCOMPATIBLE WITH SAUPPER");
    warn(" ...WARNING..UPFAC IGNORED");
  }
  if (!o.WEIGHT.text.empty() && o.WEIGHT.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(o.WEIGHT.text);
    return false;
  }
  if (!o.IDVAR.text.empty() && o.IDVAR.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(o.IDVAR.text);
    return false;
  }
  return true;
}

// Options that don't go together, or not with this command.
bool check_combinations() {
  NlCom& o = NLCOM;
  if (INPCOM.IKOD != K_MLE && !o.TYPE.text.empty()) {
    return refuse(" ...ERROR..TYPE= OPTION NOT ALLOWED");
  }
  if (INPCOM.IKOD != K_HETERO && (o.ARCH > 0 || o.GARCH > 0 || o.ARCHM != -999.0)) {
    return refuse(" ...ERROR..ARCH ERRORS NOT ALLOWED");
  }
  const bool own_function = o.LOGDENS || o.DENSITY;
  if (o.OPGCOV && own_function) {
    error_line(" ...ERROR..OPGCOV OPTION NOT VALID");
    return refuse(" WITH LOGDEN OR DENSITY OPTION");
  }
  const bool annealed = o.METHOD.text == "SA" || (o.HYBRID && !o.METHOD.text.empty());
  if (annealed && own_function) {
    return refuse(" ...ERROR..LOGDEN AND DENSITY NOT ALLOWED WITH SA");
  }
  if (!nl() && (!o.ZMATRIX.text.empty() || !o.GMATRIX.text.empty())) {
    warn(" ...WARNING..ZMATRIX= OPTION NOT AVAILABLE");
    o.ZMATRIX = o.GMATRIX = NameOption{};
  }
  if (o.NUMERIC && !o.ZMATRIX.text.empty()) {
    warn(" ...WARNING..ZMATRIX= OPTION NOT VALID WITH NUMERIC");
    o.ZMATRIX = NameOption{};
  }
  if (o.NUMERIC && !o.GMATRIX.text.empty()) {
    warn(" ...WARNING..GMATRIX= OPTION NOT VALID WITH NUMERIC");
    o.GMATRIX = NameOption{};
  }
  if (o.SAME && KEPTCOEF.empty() && !RUNCOM.settings.check) {
    return refuse(" ...ERROR..SAME OPTION NEEDS PREVIOUS NL OR MLE COMMAND");
  }
  if (!nl()) return true;
  if (o.LOGLOG || o.LOGLIN || o.LINLOG) {
    return refuse(" ...ERROR..LOGLOG, LOGLIN, LINLOG OPTIONS NOT AVAILABLE");
  }
  if (o.NCOEF == 0) return refuse(" ...ERROR..YOU FORGOT TO SPECIFY NCOEF=");
  if (!o.GMM.text.empty() && SCNCOM.NF == 0) {
    return refuse(" ...ERROR..GMM= OPTION REQUIRES LIST OF INSTRUMENTS");
  }
  const int functions = int{o.LOGDENS} + int{o.DENSITY} + int{o.MINFUNC} + int{o.MAXFUNC};
  if (SCNCOM.NF > 0 && (functions > 0 || o.SOLVE)) {
    return refuse(" ...ERROR..EXOGENOUS VARIABLES NOT ALLOWED");
  }
  const bool series = o.AUTO && (functions > 0 || o.SOLVE);
  const bool outer = o.OPGCOV && (functions > 0 || SCNCOM.NF > 0);
  if (functions > 1 || series || outer || (o.SOLVE && (functions > 0 || o.EVAL))) {
    return incompatible_options();
  }
  return true;
}

// The working range as the options say it.
bool settle_range() {
  DATCOM.MBEG = Opt::integer<"BEG">();
  DATCOM.MEND = Opt::integer<"END">();
  if (Opt::given<"OBS">()) {
    const std::int64_t end = std::int64_t{DATCOM.MBEG} + Opt::integer<"OBS">() - 1;
    if (Opt::integer<"OBS">() < 1 || !fits32(end)) return bad_option_value("OBS");
    DATCOM.MEND = static_cast<int>(end);
  }
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (OSCOM.OSCAN) return false;
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  return true;
}

// The number of equations in front of the list of NLINEAR, then the list. False after an error, or
// when nothing was asked for.
bool scan_nl_tail(Workspace ws) {
  const std::string_view tail = command_tail();
  std::size_t at = 0;
  while (at < tail.size() && tail[at] == ' ') ++at;
  std::size_t end = at;
  while (end < tail.size() && tail[end] != ' ' && tail[end] != ',' && tail[end] != '/') ++end;
  if (end == at) {
    say(" COMMAND STRUCTURE: NL neq exogs / NCOEF=n options");
    return false;
  }
  const Scalar neq = scalar_value(ws, tail.substr(at, end - at));
  if (!neq.ok) return false;
  if (!(neq.value >= 1.0 && neq.value <= DATCOM.MAXVAR) || neq.value != std::floor(neq.value)) {
    return refuse(" ...ERROR..SYNTAX ERROR");
  }
  NLBLOCK.neq = static_cast<int>(neq.value);
  scan_tail(ws, SCNCOM.ISTART + static_cast<int>(end));
  return !OCOM.ODONT && !OCOM.OERR;
}

// Options and what follows from them alone. False after an error.
bool prepare(Workspace ws) {
  NLCOM = NlCom{};
  NLCOM.IKOD = INPCOM.IKOD;
  if (nl() && !scan_nl_tail(ws)) return false;
  read_options(ws);
  if (OCOM.ODONT) return false;
  if (!nl() && SCNCOM.NF <= 0) {
    say<"(' COMMAND STRUCTURE: ', A, ' depvar indeps / options')">(
        right_trimmed({INPCOM.COMWRD, KEYLEN}));
    return false;
  }
  copy_logicals();
  copy_numbers();
  copy_names();
  return check_values() && check_variables() && check_combinations() && settle_range();
}

}  // namespace

std::span<const double> last_coefficients() { return KEPTCOEF; }

void NLIN(Workspace ws) {
  const Trace trace("NLIN");
  const bool scanning = OSCOM.OSCAN;
  const bool good = prepare(ws);
  if (good) {
    warn_without_effect();
    switch (INPCOM.IKOD) {
      case K_MLE:
        NLMLE(ws);
        break;
      case K_HETERO:
        NLHET(ws);
        break;
      case K_GME:
        GME(ws);
        break;
      default:
        NLIN1(ws);
        break;
    }
    keep_coefficients();
  } else if (nl() && RUNCOM.settings.check) {
    if (NLBLOCK.neq > 0) check_nl_block(ws);
  } else if (nl() && NLBLOCK.neq > 0) {
    skip_nl_block(ws);  // the equations of a command that isn't run
  }
  NLBLOCK.neq = 0;
  // Under SET CONTINUE a failed estimation stops neither the loop it stands in nor the run.
  if (OSCOM.OCONT && OCOM.ODONT) {
    OCOM.ODONT = false;
    OSCOM.OSCAN = scanning;
  }
}

}  // namespace korvel
