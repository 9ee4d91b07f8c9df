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

template <FixedText WORD>
bool chosen() {
  return OPTCOM.LOPT[NLOPT.place(WORD.view())];
}
template <FixedText WORD>
int integer_value() {
  return OPTCOM.IOPT[NLOPT.place(WORD.view())];
}
template <FixedText WORD>
double real_value() {
  return OPTCOM.XOPT[NLOPT.place(WORD.view())];
}
template <FixedText WORD>
const NameOption& named() {
  return OPTCOM.VOPT[NLOPT.place(WORD.view())];
}
template <FixedText WORD>
bool integer_given() {
  return OPTCOM.igiven[NLOPT.place(WORD.view())];
}

// Coefficients of the last run of NLINEAR or MLE, for SAME.
std::vector<double> KEPTCOEF;

void keep_coefficients() {
  const bool kept = INPCOM.IKOD == K_NLINEAR || INPCOM.IKOD == K_MLE;
  if (kept && !OCOM.ODONT && ADDCOM.KTEST != 0 && SAVED.IKOD == INPCOM.IKOD) KEPTCOEF = SAVED.coef;
}

bool nl() { return INPCOM.IKOD == K_NLINEAR; }

// Texts of name options: they outlive the command text, which the lines of a block overwrite.
struct OptionTexts {
  std::array<std::array<char, 260>, MAXVOPT> text{}, typed{};
  int used = 0;
};
constinit OptionTexts OPTIONTEXTS{};

NameOption keep(const NameOption& option) {
  NameOption kept = option;
  const auto at = static_cast<std::size_t>(OPTIONTEXTS.used++);
  const auto copy = [](std::string_view from, std::array<char, 260>& to) {
    const std::size_t n = std::min(from.size(), to.size());
    std::copy_n(from.begin(), n, to.begin());
    return std::string_view(to.data(), n);
  };
  kept.text = copy(option.text, OPTIONTEXTS.text[at]);
  kept.typed = copy(option.typed, OPTIONTEXTS.typed[at]);
  return kept;
}

void read_options(Workspace ws) {
  OPTION_START(NLOPT.view());
  OPTCOM.LOPT[NLOPT.place("MAX")] = OSCOM.OMXX;
  OPTCOM.LOPT[NLOPT.place("DUMP")] = OSCOM.ODMMP;
  OPTCOM.LOPT[NLOPT.place("OPGSTART")] = INPCOM.IKOD == K_HETERO;
  OPTCOM.LOPT[NLOPT.place("CONEXOGS")] = nl() || INPCOM.IKOD == K_GME;
  if (!OCOM.OPUT) OPTCOM.IOPT[NLOPT.place("PITER")] = 0;
  if (INPCOM.IKOD == K_GME) OPTCOM.XOPT[NLOPT.place("CONVERGE")] = GME_CONVERGE;
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, NLOPT.view());
}

void copy_logicals() {
  NlCom& o = NLCOM;
  o.MAX = chosen<"MAX">();
  o.DUMP = chosen<"DUMP">();
  o.LIST = chosen<"LIST">() || o.MAX;
  o.RSTAT = chosen<"RSTAT">() || o.LIST;
  o.PCOV = chosen<"PCOV">() || o.MAX;
  o.PCOR = chosen<"PCOR">() || o.MAX;
  o.DN = chosen<"DN">();
  o.AUTO = chosen<"AUTO">();
  o.DRHO = chosen<"DRHO">();
  o.ACROSS = chosen<"ACROSS">();
  o.NUMERIC = chosen<"NUMERIC">();
  o.OPGSTART = chosen<"OPGSTART">();
  o.OPGCOV = chosen<"OPGCOV">();
  o.EVAL = chosen<"EVAL">();
  o.SAME = chosen<"SAME">();
  o.LM = chosen<"LM">();
  o.CONSTANT = chosen<"CONSTANT">();
  o.ANOVA = chosen<"ANOVA">();
  o.LOGLOG = chosen<"LOGLOG">();
  o.LOGLIN = chosen<"LOGLIN">();
  o.LINLOG = chosen<"LINLOG">();
  o.LININVER = chosen<"LININVER">();
  o.LOGINVER = chosen<"LOGINVER">();
  o.REWIND = chosen<"REWIND">();
  o.NORMALIZ = chosen<"NORMALIZ">();
  o.LOGDENS = chosen<"LOGDENS">();
  o.DENSITY = chosen<"DENSITY">();
  o.NUMCOV = chosen<"NUMCOV">();
  o.numcov_given = OPTCOM.lgiven[NLOPT.place("NUMCOV")];
  o.GENRVAR = chosen<"GENRVAR">();
  o.PRESAMP = chosen<"PRESAMP">();
  o.SOLVE = chosen<"SOLVE">();
  o.MINFUNC = chosen<"MINFUNC">();
  o.MAXFUNC = chosen<"MAXFUNC">();
  o.CONEXOGS = chosen<"CONEXOGS">();
  o.S3SLS = chosen<"S3SLS">();
  o.PWEIGHT = chosen<"PWEIGHT">();
  o.PSIGMA = chosen<"PSIGMA">();
  o.HYBRID = chosen<"HYBRID">();
}

void copy_numbers() {
  NlCom& o = NLCOM;
  o.ORDER = integer_value<"ORDER">();
  o.order_given = integer_given<"ORDER">();
  o.ITER = integer_value<"ITER">();
  o.NCOEF = integer_value<"NCOEF">();
  o.ARCH = integer_value<"ARCH">();
  o.arch_given = integer_given<"ARCH">();
  o.GARCH = integer_value<"GARCH">();
  o.garch_given = integer_given<"GARCH">();
  o.PITER = integer_value<"PITER">();
  o.IN = integer_value<"IN">();
  o.OUT = integer_value<"OUT">();
  o.AUTCOV = integer_value<"AUTCOV">();
  o.PENTYPE = integer_value<"PENTYPE">();
  o.SANEPS = integer_value<"SANEPS">();
  o.SANS = integer_value<"SANS">();
  o.SANT = integer_value<"SANT">();
  o.SAITER = integer_value<"SAITER">();
  o.CONV = real_value<"CONVERGE">();
  o.STEPSIZE = real_value<"STEPSIZE">();
  o.ESTFN = real_value<"ESTFN">();
  o.DELTA = real_value<"DELTA">();
  o.ARCHM = real_value<"ARCHM">();
  o.LOGEPS = real_value<"LOGEPS">();
  o.PENLAMBD = real_value<"PENLAMBD">();
  o.PENLOW = real_value<"PENLOW">();
  o.PENHI = real_value<"PENHI">();
  o.SATRF = real_value<"SATRF">();
  o.SAUPFAC = real_value<"SAUPFAC">();
  o.saupfac_given = OPTCOM.xgiven[NLOPT.place("SAUPFAC")];
  o.SALOWFAC = real_value<"SALOWFAC">();
  o.salowfac_given = OPTCOM.xgiven[NLOPT.place("SALOWFAC")];
  o.SACONV = real_value<"SACONV">();
}

void copy_names() {
  NlCom& o = NLCOM;
  OPTIONTEXTS.used = 0;
  o.PREDICT = keep(named<"PREDICT">());
  o.RESID = keep(named<"RESID">());
  o.COEF = keep(named<"COEF">());
  o.COV = keep(named<"COV">());
  o.TRATIO = keep(named<"TRATIO">());
  o.STDERR = keep(named<"STDERR">());
  o.COR = keep(named<"COR">());
  o.IDVAR = keep(named<"IDVAR">());
  o.SIGMA = keep(named<"SIGMA">());
  o.STARTING = keep(named<"STARTING">());
  o.ZMATRIX = keep(named<"ZMATRIX">());
  o.GMATRIX = keep(named<"GMATRIX">());
  o.WEIGHT = keep(named<"WEIGHT">());
  o.METHOD = keep(named<"METHOD">());
  o.TYPE = keep(named<"TYPE">());
  o.STDRESID = keep(named<"STDRESID">());
  o.MODEL = keep(named<"MODEL">());
  o.GMM = keep(named<"GMM">());
  o.ZENTROPY = keep(named<"ZENTROPY">());
  o.VENTROPY = keep(named<"VENTROPY">());
  o.GMMOUT = keep(named<"GMMOUT">());
  o.QPRIOR = keep(named<"QPRIOR">());
  o.UPRIOR = keep(named<"UPRIOR">());
  o.SIGMAZ = keep(named<"SIGMAZ">());
  o.STDERR2 = keep(named<"STDERR2">());
  o.SALOWER = keep(named<"SALOWER">());
  o.SAUPPER = keep(named<"SAUPPER">());
}

bool bad_value(std::string_view word) {
  fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A)">(word);
  return false;
}
bool refuse(std::string_view text) {
  fail(text);
  return false;
}

// Words that are read and mean nothing here.
void warn_without_effect() {
  const auto idle = [](std::string_view word) {
    warn<"(' ...WARNING..', A, ' OPTION HAS NO EFFECT')">(word);
  };
  int logicals = 0, integers = 0, names = 0;
  for (const OptionWord& w : NLOPT.view()) {
    bool given = false;
    switch (w.kind) {
      case OptionKind::Logical:
        given = OPTCOM.lgiven[static_cast<std::size_t>(logicals++)];
        break;
      case OptionKind::Integer:
        given = OPTCOM.igiven[static_cast<std::size_t>(integers++)];
        break;
      case OptionKind::Variable:
        given = !OPTCOM.VOPT[static_cast<std::size_t>(names++)].text.empty();
        break;
      default:
        break;
    }
    constexpr std::string_view IDLE[] = {"LFUNC",    "MAGEE",    "OPGLM",    "EXPLOG",
                                         "EXPONENT", "DEVIATIO", "BIGOUT",   "MACH",
                                         "CRHO",     "QC",       "KORVFUNC", "KORVUSER"};
    if (given && std::ranges::find(IDLE, w.word) != std::end(IDLE)) idle(w.word);
  }
  if (nl() && !NLCOM.MODEL.text.empty()) idle("MODEL");
  if (NLCOM.HYBRID && NLCOM.METHOD.text.empty()) idle("HYBRID");
}

// Values that no command of the family can use.
bool check_values() {
  const NlCom& o = NLCOM;
  int place = 0;
  for (const OptionWord& w : NLOPT.view()) {
    if (w.kind != OptionKind::Variable) continue;
    if (OPTCOM.VOPT[static_cast<std::size_t>(place++)].text == "********") return bad_value(w.word);
  }
  if (o.CONV == 0.0) return refuse(" ...ERROR..CONVERGENCE SET TO ZERO");
  if (!(o.CONV > 0.0 && std::isfinite(o.CONV))) return bad_value("CONVERGE");
  if (!(o.STEPSIZE > 0.0 && std::isfinite(o.STEPSIZE))) return bad_value("STEPSIZE");
  if (!(o.DELTA > 0.0 && std::isfinite(o.DELTA))) return bad_value("DELTA");
  if (o.ITER < 0) return bad_value("ITER");
  if (o.PITER < 0) return bad_value("PITER");
  if (o.ORDER < 0) return bad_value("ORDER");
  if (o.ARCH < 0) return bad_value("ARCH");
  if (o.GARCH < 0) return bad_value("GARCH");
  if (o.NCOEF < 0) return bad_value("NCOEF");
  if (o.AUTCOV < 0 && o.AUTCOV != -999) return bad_value("AUTCOV");
  if (o.PENTYPE < 0 || o.PENTYPE > 3) return bad_value("PENTYPE");
  if (!(o.PENLAMBD >= 0.0 && std::isfinite(o.PENLAMBD))) return bad_value("PENLAMBD");
  if (!RUNCOM.settings.check && !(o.PENLOW <= o.PENHI)) return bad_value("PENLOW");
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
  const bool annealed = o.METHOD.text == "SA" || o.HYBRID;
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
    return refuse(" ...ERROR..INCOMPATIBLE OPTIONS ");
  }
  return true;
}

// The working range as the options say it.
bool settle_range() {
  DATCOM.MBEG = integer_value<"BEG">();
  DATCOM.MEND = integer_value<"END">();
  if (integer_given<"OBS">()) {
    const std::int64_t end = std::int64_t{DATCOM.MBEG} + integer_value<"OBS">() - 1;
    if (integer_value<"OBS">() < 1 || !fits32(end)) return bad_value("OBS");
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
