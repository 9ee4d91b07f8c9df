// OLS: the command routine of least squares. Options, the list of the model, the sample; the fit
// itself is OLSEST.

#include <algorithm>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "regress/regress.h"

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
  CommandState() : wide_(OSCOM.OWIDE), scan_(OSCOM.OSCAN) {}
  CommandState(const CommandState&) = delete;
  CommandState& operator=(const CommandState&) = delete;
  ~CommandState() {
    if (!keep_wide_) OSCOM.OWIDE = wide_;
    if (OSCOM.OCONT && OCOM.ODONT) {
      OCOM.ODONT = false;
      OSCOM.OSCAN = scan_;
    }
  }
  void keep_wide() { keep_wide_ = true; }

 private:
  bool wide_;
  bool scan_;
  bool keep_wide_ = false;
};

// An option whose machinery is not built: told by name, never passed over in silence.
void refuse_option(std::string_view option) {
  fail<"(' ...ERROR..OPTION ', A, ' IS NOT AVAILABLE YET')">(option);
}

// The name of the first option in use that can't be served yet, empty when there is none.
std::string_view unserved_option() {
  if (INPCOM.IKOD == K_IMLS) return "IMLS";
  if (chosen<"RESTRICT">()) return "RESTRICT";
  if (chosen<"PILAGS">()) return "PILAGS";
  if (chosen<"DLRX">()) return "DLRX";
  if (chosen<"RECURSIV">()) return "RECURSIV";
  if (chosen<"PLUSH">()) return "PLUSH";
  if (chosen<"MISS">()) return "MISS";
  if (chosen<"EXACTDW">()) return "EXACTDW";
  if (chosen<"DWPVALUE">()) return "DWPVALUE";
  if (chosen<"REALIMAG">()) return "REALIMAG";
  if (chosen<"POLAR">()) return "POLAR";
  if (chosen<"GRAPHICS">()) return "GRAPHICS";
  if (chosen<"GNUPLOT">()) return "GNUPLOT";
  if (real_value<"RIDGE">() != 0.0) return "RIDGE";
  if (!named<"INCOEFFI">().text.empty()) return "INCOEFFI";
  if (!named<"PCINFORM">().text.empty()) return "PCINFORM";
  if (!named<"PCOMPONE">().text.empty()) return "PCOMPONE";
  if (!named<"MOMENTS">().text.empty()) return "MOMENTS";
  if (!named<"INCOVARI">().text.empty()) return "INCOVARI";
  const std::string_view method = named<"METHOD">().text;
  if (method == "HH") return "METHOD=HH";
  if (method != "GS") return "METHOD=NORMAL";
  if (SCNCOM.NFPAR > 0) return "STEPWISE";
  return {};
}

// Copies the options to OLSCOM and settles what one implies for another. False after an error.
bool settle_options() {
  OlsCom& o = OLSCOM;
  o = OlsCom{};
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
  o.NPOP = integer_value<"NPOP">();
  o.INSIG2 = real_value<"INSIG2">();
  o.PREDICT = named<"PREDICT">();
  o.RESID = named<"RESID">();
  o.HATDIAG = named<"HATDIAG">();
  o.TRATIO = named<"TRATIO">();
  o.STDERR = named<"STDERR">();
  o.COEFFICE = named<"COEFFICE">();
  o.COVARIAN = named<"COVARIAN">();

  int place = 0;
  for (const OptionWord& w : OLSOPT.view()) {
    if (w.kind != OptionKind::Variable) continue;
    if (OPTCOM.VOPT[static_cast<std::size_t>(place++)].text == "********") {
      fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A8)">(w.word);
      return false;
    }
  }
  if (const std::string_view word = unserved_option(); !word.empty()) {
    refuse_option(word);
    return false;
  }
  if (int{o.LOGLOG} + int{o.LOGLIN} + int{o.LINLOG} > 1) {
    fail(" ...ERROR..INCOMPATIBLE OPTIONS ");
    return false;
  }
  if (o.AUTCOV < 0) {
    fail(" ...ERROR..IN RIGHT HAND SIDE OF OPTION..AUTCOV");
    return false;
  }
  return true;
}

// Puts the columns of listed matrices in place of the matrix. False when the list overflows.
bool CKNF(Workspace ws) {
  for (int i = 0; i < SCNCOM.NF; ++i) {
    const ListItem item = SCNCOM.INLIST[static_cast<std::size_t>(i)];
    if (item.var <= 0 || item.var > DATCOM.MAXVAR) continue;
    const Place place = INFO(ws, item.var);
    if (place.ITYPE != MATRIX2 || place.N2 < 2) continue;
    const int more = place.N2 - 1;
    if (SCNCOM.NF + more + 2 > static_cast<int>(SCNCOM.INLIST.size())) {
      fail(" ...ERROR..STATEMENT TOO LONG");
      return false;
    }
    const auto at = SCNCOM.INLIST.begin() + i;
    std::move_backward(at + 1, SCNCOM.INLIST.begin() + SCNCOM.NF,
                       SCNCOM.INLIST.begin() + SCNCOM.NF + more);
    for (int j = 1; j <= place.N2; ++j) {
      at[j - 1] = item;
      at[j - 1].var = item.var * DATCOM.MXCOL + j;
    }
    SCNCOM.NF += more;
    i += more;
  }
  return true;
}

// Turns the list round: regressors, constant, dependent variable, weight. Returns the largest lag,
// -1 after an error.
int collect_variables(Workspace ws) {
  if (!CKNF(ws)) return -1;
  const std::span<ListItem> list = SCNCOM.INLIST;
  int NF = SCNCOM.NF;
  const ListItem dependent = list[0];
  int largest = dependent.lag;
  for (int i = 1; i < NF; ++i) {
    const ListItem& item = list[static_cast<std::size_t>(i)];
    if (item.order > 0) {
      refuse_option("LAG ORDER");
      return -1;
    }
    largest = std::max(largest, item.lag);
    if (item.var == dependent.var) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS ON BOTH SIDES OF EQUATION')">(NAME(ws, item.var));
      return -1;
    }
    list[static_cast<std::size_t>(i - 1)] = item;
  }
  --NF;
  if (OLSCOM.CONSTANT) {
    list[static_cast<std::size_t>(NF)] = ListItem{.var = DATCOM.MCON, .name = {}};
    ++NF;
  }
  OCOM.OFORCE = !OLSCOM.CONSTANT;
  list[static_cast<std::size_t>(NF++)] = dependent;
  if (NF < 2) {
    fail(" ...ERROR..INSUFFICIENT NUMBER OF VARIABLES SPECIFIED");
    return -1;
  }
  OLSCOM.NF = NF;
  return std::max(largest, 0);
}

// Looks up a variable that an option names; 0 when the option was not given, -1 after an error.
int named_variable(const NameOption& option) {
  if (option.text.empty()) return 0;
  if (option.var > 0) return option.var;
  fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(option.text);
  return -1;
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
  if (!settle_options()) return;
  // 2. The model: regressors, constant, dependent variable, weight.
  const int largest = collect_variables(ws);
  if (largest < 0) return;
  const int weight = named_variable(named<"WEIGHT">());
  if (weight < 0) return;
  OLSCOM.KWT = weight;
  OLSCOM.weighted = weight > 0;
  SCNCOM.INLIST[static_cast<std::size_t>(OLSCOM.NF)] = ListItem{.var = weight, .name = {}};
  OLSCOM.KID = named_variable(named<"IDVAR">());
  if (OLSCOM.KID < 0) return;
  // 3. The working range; under SET DELETE lags shorten it at its beginning.
  DATCOM.MBEG = integer_value<"BEG">() + (OSCOM.ODELL ? largest : 0);
  DATCOM.MEND = integer_value<"END">();
  if (DATCOM.MEND == -999) DATCOM.MEND = DATCOM.IEND;
  if (OSCOM.OSCAN) return;
  if (DATCOM.MBEG < 1) {
    return fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
  }
  // 4. The sample: length, missing data, skipped rows.
  CKSMPL(ws, SCNCOM.INLIST.first(static_cast<std::size_t>(OLSCOM.NF + (weight > 0 ? 1 : 0))));
  if (OCOM.ODONT) return;
  DATCOM.NOB = DATCOM.MEND - DATCOM.MBEG + 1;
  if (skipping()) {
    DATCOM.NSKIP = static_cast<int>(skip_vector(ws).size());
    SKIPIT(ws);
    OLSCOM.skips = DATCOM.NSKIP > 0;
    DATCOM.NOB -= DATCOM.NSKIP;
  }
  if (DATCOM.NOB - 1 < 0) {
    return fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(DATCOM.NOB);
  }
  // 5. The fit, its tables and its stored results.
  OLSEST(ws, OLS_PROFILE);
}

}  // namespace korvel
