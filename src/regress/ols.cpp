// OLS: the command routine of least squares. Options, the list of the model, the sample; the fit
// itself is OLSEST.

#include <algorithm>
#include <array>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "regress/hhest.h"
#include "regress/ols_parts.h"
#include "regress/result_options.h"

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

using Opt = OptionValues<OLSOPT>;

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

// Names of results, kept apart from the command: reading restrictions overwrites that.
constinit KeptNames NAMES{};

// Copies the options to OLSCOM and settles what one implies for another. False after an error.
bool settle_options() {
  read_result_options<OLSOPT>(NAMES);
  OlsCom& o = OLSCOM;
  o.GNUPLOT = Opt::chosen<"GNUPLOT">() || Opt::chosen<"GRAPHICS">();
  o.APPEND = Opt::chosen<"APPEND">();
  o.RSTAT = o.RSTAT || o.GNUPLOT;
  o.AUTCOV = Opt::integer<"AUTCOV">();
  o.HETCOV = Opt::chosen<"HETCOV">() || o.AUTCOV != 0;
  o.MULSIGSQ = Opt::chosen<"MULSIGSQ">();
  o.REPLICAT = Opt::chosen<"REPLICAT">();
  o.NORMALIZ =
      Opt::chosen<"NORMALIZ">() && !o.REPLICAT;  // a mean of one would undo the replication
  o.UT = Opt::chosen<"UT">() || o.REPLICAT;
  o.INFLUENC = Opt::chosen<"INFLUENC">();
  o.DFBETAS = Opt::chosen<"DFBETAS">();
  o.AUXRSQR = Opt::chosen<"AUXRSQR">() && !o.HETCOV;
  o.RECURSIV = Opt::chosen<"RECURSIV">();
  o.POLAR = Opt::chosen<"POLAR">();
  o.ORDER = Opt::integer<"ORDER">();
  o.PLUSH = Opt::chosen<"PLUSH">();
  o.MISS = Opt::chosen<"MISS">();
  o.GAP = Opt::integer<"GAP">();
  o.NMISS = Opt::integer<"NMISS">();
  o.NPOP = Opt::integer<"NPOP">();
  o.INSIG2 = Opt::real<"INSIG2">();
  o.INDW = Opt::real<"INDW">();
  o.ALPHA = Opt::real<"ALPHA">();
  o.RHO = Opt::real<"RHO">();
  o.by_FE = Opt::given<"FE">();
  o.by_FX = Opt::given<"FX">();
  o.FE = Opt::real<"FE">();
  o.FX = Opt::real<"FX">();
  if (Opt::given<"PE">()) o.PE = Opt::real<"PE">();
  if (Opt::given<"PX">()) o.PX = Opt::real<"PX">();
  o.HATDIAG = NAMES.keep(Opt::named<"HATDIAG">());
  o.COEFFICE = NAMES.keep(Opt::named<"COEFFICE">());
  o.COVARIAN = NAMES.keep(Opt::named<"COVARIAN">());
  o.COMMFILE = NAMES.keep(Opt::named<"COMMFILE">());
  o.DEVICE = NAMES.keep(Opt::named<"DEVICE">());
  o.OUTPUT = NAMES.keep(Opt::named<"OUTPUT">());
  if (name_lacking(OLSOPT.view())) return false;
  if (int{o.LOGLOG} + int{o.LOGLIN} + int{o.LINLOG} > 1) return incompatible_options();
  if (o.AUTCOV < 0) return bad_option_value("AUTCOV");
  if (o.ORDER < 1) return bad_option_value("ORDER");
  if (o.GAP < 0) return bad_option_value("GAP");
  if (o.NMISS < 0) return bad_option_value("NMISS");
  if (o.NPOP < 0) return bad_option_value("NPOP");
  if (!(o.INSIG2 >= 0.0)) return bad_option_value("INSIG2");
  if (!(o.RHO > -1.0 && o.RHO < 1.0)) return bad_option_value("RHO");
  return true;
}

// What is made of the data before the fit.
bool settle_build() {
  OlsCom& o = OLSCOM;
  const bool complex = INPCOM.IKOD == K_IMLS;
  if (!complex && (Opt::chosen<"REALIMAG">() || Opt::chosen<"POLAR">()))
    return incompatible_options();
  if (int{complex} + int{Opt::chosen<"DLRX">()} + int{Opt::chosen<"PILAGS">()} > 1)
    return incompatible_options();
  if (complex) {
    // Weights and lags of the errors would need a rule for the two halves of an observation.
    if (!Opt::named<"WEIGHT">().text.empty() || o.AUTCOV != 0) return incompatible_options();
    o.build = Build::Imls;
    o.multiplicity = 2;
    o.blocks = 2;
  } else if (Opt::chosen<"DLRX">()) {
    if (o.AUTCOV != 0) return incompatible_options();  // the halves follow each other in no order
    o.build = Build::Dlrx;
    o.blocks = 2;
  } else if (Opt::chosen<"PILAGS">()) {
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
  const std::string_view typed = Opt::named<"METHOD">().text;
  if (typed != "GS" && typed != "NORMAL" && typed != "HH") {
    return bad_option_value("METHOD");
  }
  bool exact_dw = Opt::chosen<"DWPVALUE">() || Opt::chosen<"EXACTDW">();
  const double ridge = Opt::real<"RIDGE">();
  if ((typed == "HH" || exact_dw) && ridge != 0.0) return incompatible_options();
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
    if (o.blocks > 1 || o.INCOEFFI != 0) return incompatible_options();
  }
  o.DWPVALUE = exact_dw;
  if (exact_dw) o.METHOD = Method::HH;
  if (ridge != 0.0) {
    FCOM.RIDG = ridge;
    o.METHOD = Method::NORMAL;
  }
  OCOM.OMEAN = o.METHOD == Method::NORMAL && o.CONSTANT;
  const bool special = o.RESTRICT || o.HETCOV || o.lag_terms || o.blocks > 1;
  if (o.METHOD == Method::HH && special) return incompatible_options();
  if (o.MOMENTS != 0 && (o.stepwise || o.blocks > 1)) return incompatible_options();
  if (!Opt::named<"PORT">().text.empty()) warn(" ...WARNING..THE PORT OPTION HAS NO EFFECT");
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
      {Opt::named<"WEIGHT">(), o.KWT, false},        {Opt::named<"IDVAR">(), o.KID, false},
      {Opt::named<"PCINFORM">(), o.PCINFORM, false}, {Opt::named<"PCOMPONE">(), o.PCOMPONE, false},
      {Opt::named<"INCOEFFI">(), o.INCOEFFI, true},  {Opt::named<"MOMENTS">(), o.MOMENTS, true},
      {Opt::named<"INCOVARI">(), o.INCOVARI, true}};
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
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  Opt::set<"WIDE">(OSCOM.OWIDE);
  Opt::set<"ANOVA">(OSCOM.OBAT);
  Opt::set<"GF">(OSCOM.OBAT);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, OLSOPT.view());
  if (OCOM.ODONT) return;
  OSCOM.OWIDE = Opt::chosen<"WIDE">();
  if (SCNCOM.NF <= 0) {
    state.keep_wide();
    say<"(' COMMAND STRUCTURE:', A6, 'depvar indeps / options')">(INPCOM.IKOD == K_IMLS ? "IMLS"
                                                                                        : "OLS");
    if (SCNCOM.NOPS > 0) OPTION_WORDS(OLSOPT.view());
    return;
  }
  if (!settle_options() || !settle_build()) return;
  if (!find_variables()) return;
  // 2. The model: regressors, constant, dependent variable, weight; the method.
  const int largest = collect_variables(ws);
  if (largest < 0 || !settle_method() || !check_component_weights(ws)) return;
  if (OLSCOM.weighted) add_weight(OLSCOM.KWT);
  // 3. The working range; under SET DELETE lags shorten it at its beginning.
  DATCOM.MBEG = Opt::integer<"BEG">() + (OSCOM.ODELL ? largest : 0);
  if (OLSCOM.build == Build::Pilags) {
    if (OCOM.OPUT) say(" POLYNOMIAL INVERSE LAG");
    OLSCOM.NDROP = PILAGS_DROPPED;
    DATCOM.MBEG += PILAGS_DROPPED;
  }
  DATCOM.MEND = Opt::integer<"END">();
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
