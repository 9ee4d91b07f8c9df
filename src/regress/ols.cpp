// OLS: the command routine of least squares. Options, the list of the model, the sample; the fit
// itself is OLSEST.

#include <algorithm>
#include <array>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "regress/hhest.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr auto OLSOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("DUMP"), logical("LIST"), logical("RSTAT"),
    logical("LOGLOG"), logical("LOGLIN"), logical("LINLOG"), logical("PCOV"), logical("PCOR"),
    logical("ANOVA"), logical("DN"), logical("DLAG"), logical("GF"), logical("LM"),
    logical("RESTRICT"), logical("MULSIGSQ", true), logical("DWPVALUE"), logical("MISS"),
    logical("PLUSH"), logical("HETCOV"), logical("NORMALIZ", true), logical("INFLUENC"),
    logical("DFBETAS"), logical("REPLICAT"), logical("EXACTDW"), logical("UT"), logical("RECURSIV"),
    logical("WIDE"), logical("AUXRSQR"), logical("REALIMAG"), logical("POLAR"), logical("GNUPLOT"),
    logical("APPEND"), logical("DLRX"), logical("LININVER"), logical("LOGINVER"),
    logical("GRAPHICS"), logical("PILAGS"), integer("BEG"), integer("END"), integer("AUTCOV"),
    integer("ORDER", 1), integer("GAP"), integer("NMISS"), integer("NPOP"), real("RIDGE"),
    real("INSIG2"), real("INDW"), real("ALPHA"), real("RHO"), real("FE"), real("FX"), real("PE"),
    real("PX"), variable("PREDICT"), variable("RESID"), variable("COEFFICE"), variable("COVARIAN"),
    variable("TRATIO"), variable("STDERR"), variable("METHOD", "GS"), variable("HATDIAG"),
    variable("IDVAR"), variable("OUTPUT", "PLOT"), variable("DEVICE"), variable("PORT"),
    variable("COMMFILE", "COMM.GNU"), variable("WEIGHT"), variable("INCOEFFI"),
    variable("PCINFORM"), variable("PCOMPONE"), variable("MOMENTS"), variable("INCOVARI"));
static_assert(OLSOPT.words.size() == 39 + 7 + 9 + 19);

// Sums over all past values are short at the beginning of the sample: its first rows are dropped.
constexpr int PILAGS_DROPPED = 8;

template <FixedText WORD>
bool chosen() {
  return OPTCOM.LOPT[OLSOPT.place(WORD.view())];
}
template <FixedText WORD>
const NameOption& named() {
  return OPTCOM.VOPT[OLSOPT.place(WORD.view())];
}
template <FixedText WORD>
double real_value() {
  return OPTCOM.XOPT[OLSOPT.place(WORD.view())];
}
template <FixedText WORD>
int integer_value() {
  return OPTCOM.IOPT[OLSOPT.place(WORD.view())];
}

// Gives switches back at the end of the command: WIDE= counts for the command alone, and under SET
// CONTINUE a failed estimation stops neither the loop it stands in nor the run.
class CommandState {
 public:
  CommandState() : wide_(OSCOM.OWIDE) {}
  CommandState(const CommandState&) = delete;
  CommandState& operator=(const CommandState&) = delete;
  ~CommandState() {
    if (!keep_wide_) OSCOM.OWIDE = wide_;
  }
  void keep_wide() { keep_wide_ = true; }

 private:
  bool wide_;
  ContinueGuard continue_;
  bool keep_wide_ = false;
};

// Texts of options, kept apart from the command: reading restrictions overwrites that.
struct OptionTexts {
  std::array<std::array<char, 260>, 10> text{};
  int used = 0;
};
constinit OptionTexts OPTIONTEXTS{};

NameOption keep(const NameOption& option) {
  NameOption kept = option;
  auto& room = OPTIONTEXTS.text[static_cast<std::size_t>(OPTIONTEXTS.used++)];
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

// Copies the options to OLSCOM and settles what one implies for another. False after an error.
bool settle_options() {
  OlsCom& o = OLSCOM;
  o = OlsCom{};
  OPTIONTEXTS.used = 0;
  o.MAX = chosen<"MAX">();
  o.CONSTANT = chosen<"CONSTANT">();
  o.DUMP = chosen<"DUMP">();
  o.LM = chosen<"LM">() || o.MAX;
  o.GF = chosen<"GF">() || o.MAX;
  o.DLAG = chosen<"DLAG">();
  o.LIST = chosen<"LIST">() || o.MAX;
  o.GNUPLOT = chosen<"GNUPLOT">() || chosen<"GRAPHICS">();
  o.APPEND = chosen<"APPEND">();
  o.RSTAT = chosen<"RSTAT">() || o.LIST || o.LM || o.GF || o.DLAG || o.GNUPLOT;
  o.PCOV = chosen<"PCOV">() || o.MAX;
  o.PCOR = chosen<"PCOR">() || o.MAX;
  o.ANOVA = chosen<"ANOVA">() || o.MAX;
  o.DN = chosen<"DN">();
  o.LOGLOG = chosen<"LOGLOG">();
  o.LOGLIN = chosen<"LOGLIN">();
  o.LINLOG = chosen<"LINLOG">();
  o.LININVER = chosen<"LININVER">();
  o.LOGINVER = chosen<"LOGINVER">();
  o.AUTCOV = integer_value<"AUTCOV">();
  o.HETCOV = chosen<"HETCOV">() || o.AUTCOV != 0;
  o.MULSIGSQ = chosen<"MULSIGSQ">();
  o.REPLICAT = chosen<"REPLICAT">();
  o.NORMALIZ = chosen<"NORMALIZ">() && !o.REPLICAT;  // a mean of one would undo the replication
  o.UT = chosen<"UT">() || o.REPLICAT;
  o.INFLUENC = chosen<"INFLUENC">();
  o.DFBETAS = chosen<"DFBETAS">();
  o.AUXRSQR = chosen<"AUXRSQR">() && !o.HETCOV;
  o.RESTRICT = chosen<"RESTRICT">();
  o.RECURSIV = chosen<"RECURSIV">();
  o.POLAR = chosen<"POLAR">();
  o.ORDER = integer_value<"ORDER">();
  o.PLUSH = chosen<"PLUSH">();
  o.MISS = chosen<"MISS">();
  o.GAP = integer_value<"GAP">();
  o.NMISS = integer_value<"NMISS">();
  o.NPOP = integer_value<"NPOP">();
  o.INSIG2 = real_value<"INSIG2">();
  o.INDW = real_value<"INDW">();
  o.ALPHA = real_value<"ALPHA">();
  o.RHO = real_value<"RHO">();
  o.by_FE = OPTCOM.xgiven[OLSOPT.place("FE")];
  o.by_FX = OPTCOM.xgiven[OLSOPT.place("FX")];
  o.FE = real_value<"FE">();
  o.FX = real_value<"FX">();
  if (OPTCOM.xgiven[OLSOPT.place("PE")]) o.PE = real_value<"PE">();
  if (OPTCOM.xgiven[OLSOPT.place("PX")]) o.PX = real_value<"PX">();
  o.PREDICT = keep(named<"PREDICT">());
  o.RESID = keep(named<"RESID">());
  o.HATDIAG = keep(named<"HATDIAG">());
  o.TRATIO = keep(named<"TRATIO">());
  o.STDERR = keep(named<"STDERR">());
  o.COEFFICE = keep(named<"COEFFICE">());
  o.COVARIAN = keep(named<"COVARIAN">());
  o.COMMFILE = keep(named<"COMMFILE">());
  o.DEVICE = keep(named<"DEVICE">());
  o.OUTPUT = keep(named<"OUTPUT">());
  int place = 0;
  for (const OptionWord& w : OLSOPT.view()) {
    if (w.kind != OptionKind::Variable) continue;
    if (OPTCOM.VOPT[static_cast<std::size_t>(place++)].text == "********") {
      fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A8)">(w.word);
      return false;
    }
  }
  if (int{o.LOGLOG} + int{o.LOGLIN} + int{o.LINLOG} > 1) return incompatible();
  const auto wrong = [](std::string_view option) {
    fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A)">(option);
    return false;
  };
  if (o.AUTCOV < 0) return wrong("AUTCOV");
  if (o.ORDER < 1) return wrong("ORDER");
  if (o.GAP < 0) return wrong("GAP");
  if (o.NMISS < 0) return wrong("NMISS");
  if (!(o.RHO > -1.0 && o.RHO < 1.0)) return wrong("RHO");
  return true;
}

// What is made of the data before the fit.
bool settle_build() {
  OlsCom& o = OLSCOM;
  const bool complex = INPCOM.IKOD == K_IMLS;
  if (!complex && (chosen<"REALIMAG">() || chosen<"POLAR">())) return incompatible();
  if (int{complex} + int{chosen<"DLRX">()} + int{chosen<"PILAGS">()} > 1) return incompatible();
  if (complex) {
    // Weights and lags of the errors would need a rule for the two halves of an observation.
    if (!named<"WEIGHT">().text.empty() || o.AUTCOV != 0) return incompatible();
    o.build = Build::Imls;
    o.multiplicity = 2;
    o.blocks = 2;
  } else if (chosen<"DLRX">()) {
    o.build = Build::Dlrx;
    o.blocks = 2;
  } else if (chosen<"PILAGS">()) {
    if (o.RESTRICT) {
      fail(" ...ERROR..RESTRICTIONS NOT ALLOWED WITH PILAGS");
      return false;
    }
    o.build = Build::Pilags;
    o.PCOV = o.PCOR = false;
  }
  return true;
}

// The method, when the list is known: the last of these that applies counts.
bool settle_method() {
  OlsCom& o = OLSCOM;
  const std::string_view typed = named<"METHOD">().text;
  if (typed != "GS" && typed != "NORMAL" && typed != "HH") {
    fail(" ...ERROR..IN RIGHT HAND SIDE OF OPTION..METHOD");
    return false;
  }
  bool exact_dw = chosen<"DWPVALUE">() || chosen<"EXACTDW">();
  const double ridge = real_value<"RIDGE">();
  if ((typed == "HH" || exact_dw) && ridge != 0.0) return incompatible();
  o.METHOD = typed == "HH" ? Method::HH : (typed == "NORMAL" ? Method::NORMAL : Method::GS);
  if (o.RECURSIV || o.INCOEFFI != 0 || o.MOMENTS != 0) o.METHOD = Method::NORMAL;
  if (o.stepwise) {
    o.METHOD = Method::NORMAL;
    exact_dw = false;
    if (o.RESTRICT || o.lag_terms || ridge != 0.0) {
      fail(" ...ERROR..RESTRICT AND RIDGE OPTIONS NOT ALLOWED");
      temporary(temporary_place("ERR")) = 6015;
      return false;
    }
    if (o.blocks > 1 || o.INCOEFFI != 0) return incompatible();
  }
  o.DWPVALUE = exact_dw;
  if (exact_dw) o.METHOD = Method::HH;
  if (ridge != 0.0) {
    FCOM.RIDG = ridge;
    o.METHOD = Method::NORMAL;
  }
  OCOM.OMEAN = o.METHOD == Method::NORMAL && o.CONSTANT;
  const bool special = o.RESTRICT || o.HETCOV || o.lag_terms || o.blocks > 1;
  if (o.METHOD == Method::HH && special) return incompatible();
  if (o.MOMENTS != 0 && (o.stepwise || o.blocks > 1)) return incompatible();
  if (!named<"PORT">().text.empty()) warn(" ...WARNING..THE PORT OPTION HAS NO EFFECT");
  return true;
}

// Looks up a variable that an option names; 0 when the option was not given, -1 after an error.
int named_variable(const NameOption& option) {
  if (option.text.empty()) return 0;
  if (option.var > 0) return option.var;
  fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(option.text);
  return -1;
}

// Variables that options name. False after an error.
bool find_variables() {
  struct Wanted {
    const NameOption& option;
    int& var;
    bool coded;  // an error sets $ERR
  };
  OlsCom& o = OLSCOM;
  const Wanted wanted[] = {
      {named<"WEIGHT">(), o.KWT, false},        {named<"IDVAR">(), o.KID, false},
      {named<"PCINFORM">(), o.PCINFORM, false}, {named<"PCOMPONE">(), o.PCOMPONE, false},
      {named<"INCOEFFI">(), o.INCOEFFI, true},  {named<"MOMENTS">(), o.MOMENTS, true},
      {named<"INCOVARI">(), o.INCOVARI, true}};
  for (const Wanted& w : wanted) {
    w.var = named_variable(w.option);
    if (w.var >= 0) continue;
    if (w.coded) temporary(temporary_place("ERR")) = 6016;
    return false;
  }
  o.weighted = o.KWT > 0;
  return true;
}

constexpr ResultProfile IMLS_PROFILE{.word = "IMLS"};
constexpr ResultProfile RIDGE_PROFILE{.word = "OLS", .heading = "PSEUDO"};

const ResultProfile& profile() {
  if (OLSCOM.build == Build::Imls) return IMLS_PROFILE;
  return FCOM.RIDG != 0.0 ? RIDGE_PROFILE : OLS_PROFILE;
}

}  // namespace

void OLS(Workspace ws) {
  const Trace trace("OLS");
  CommandState state;
  clear_estimate();
  FCOM.RHO = FCOM.RHO2 = FCOM.RIDG = 0.0;
  FCOM.NQ = 0;
  OCOM.OGCOV = true;
  OCOM.OMEAN = false;
  // 1. Options; the defaults of some are switches.
  OPTION_START(OLSOPT.view());
  OPTCOM.LOPT[OLSOPT.place("MAX")] = OSCOM.OMXX;
  OPTCOM.LOPT[OLSOPT.place("DUMP")] = OSCOM.ODMMP;
  OPTCOM.LOPT[OLSOPT.place("WIDE")] = OSCOM.OWIDE;
  OPTCOM.LOPT[OLSOPT.place("ANOVA")] = OSCOM.OBAT;
  OPTCOM.LOPT[OLSOPT.place("GF")] = OSCOM.OBAT;
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, OLSOPT.view());
  if (OCOM.ODONT) return;
  OSCOM.OWIDE = chosen<"WIDE">();
  if (SCNCOM.NF <= 0) {
    state.keep_wide();
    return say<"(' COMMAND STRUCTURE:', A6, 'depvar indeps / options')">(
        INPCOM.IKOD == K_IMLS ? "IMLS" : "OLS");
  }
  if (!settle_options() || !settle_build()) return;
  if (!find_variables()) return;
  // 2. The model: regressors, constant, dependent variable, weight; the method.
  const int largest = collect_variables(ws);
  if (largest < 0 || !settle_method() || !check_component_weights(ws)) return;
  if (OLSCOM.weighted) add_weight(OLSCOM.KWT);
  // 3. The working range; under SET DELETE lags shorten it at its beginning.
  DATCOM.MBEG = integer_value<"BEG">() + (OSCOM.ODELL ? largest : 0);
  if (OLSCOM.build == Build::Pilags) {
    if (OCOM.OPUT) say(" POLYNOMIAL INVERSE LAG");
    OLSCOM.NDROP = PILAGS_DROPPED;
    DATCOM.MBEG += PILAGS_DROPPED;
  }
  DATCOM.MEND = integer_value<"END">();
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (OSCOM.OSCAN) return;
  if (DATCOM.MBEG < 1) {
    return fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
  }
  // 4. The sample: length, missing data, skipped rows.
  CKSMPL(ws, model_list());
  if (OCOM.ODONT) return;
  count_rows(ws);
  if (DATCOM.NOB - 1 < 0) {
    return fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(DATCOM.NOB);
  }
  // 5. The fit, its tables and its stored results.
  warn_unused_tests();
  OLSEST(ws, profile());
}

}  // namespace korvel
