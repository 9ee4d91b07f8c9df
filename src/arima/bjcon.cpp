// BJCON: the commands ARIMA and COINTEGR. Options, checks, the header and the stages.
//   reads SCNCOM list, OPTCOM, the sample; sets BJCOM, MBEG, MEND, NOB, $ERR and the failure flags.
#include <cmath>

#include "arima/arima.h"
#include "arima/bj.h"
#include "arima/bjplot.h"
#include "engine/commands.h"
#include "engine/input.h"

namespace korvel {
namespace {

constexpr auto BJOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("DUMP"), logical("IAC"), logical("PLOTAC"),
    logical("PLOTDATA"), logical("PLOTPAC"), logical("TABLE", true), logical("ALL"),
    logical("PLOTRES"), logical("INSTART"), logical("PITER"), logical("LOG"), logical("PLOTFORC"),
    logical("STOCHAST"), logical("WIDE"), logical("MEANDIST", true), logical("ANOVA"),
    logical("IDENTIFY"), logical("ESTIMATE"), logical("FORECAST"), logical("PCOV"), logical("PCOR"),
    logical("DN"), logical("GNUPLOT"), logical("RESTRICT"), logical("APPEND"), logical("*"),
    logical("GRAPHAC"), logical("GRAPHDAT"), logical("GRAPHPAC"), logical("GRAPHRES"),
    logical("GRAPHFOR"), integer("BEG"), integer("END"), integer("NLAG", 24), integer("NLAGP", 12),
    integer("NDIFF"), integer("NSDIFF"), integer("NSPAN"), integer("NARP"), integer("NMA"),
    integer("NSARP"), integer("NSMA"), integer("ITER", 50), integer("FBEG"), integer("FEND"),
    real("SIGMA"), real("STEPSIZE"), real("SIGLEVEL", 10.0), real("XOPT4"), variable("RESIDUAL"),
    variable("PREDICT"), variable("COEFFICI"), variable("COVARIAN"), variable("TYPE"),
    variable("TESTSTAT"), variable("STARTING"), variable("TRATIO"), variable("STDERR"),
    variable("ACF"), variable("PACF"), variable("OUTPUT"), variable("DEVICE"), variable("PORT"),
    variable("COMMFILE"), variable("FCSE"), variable("PSI"));
static_assert(BJOPT.words.size() == 33 + 14 + 4 + 17);

using Opt = OptionValues<BJOPT>;

// Values behind INSTART belong to the command, whatever becomes of it: those that nobody read are
// passed over, or they would be taken for commands.
void skip_values() {
  TextInput& stream = command_stream();
  std::string_view line;
  while (stream.line(line)) {
    const std::string_view text = trimmed(line);
    const bool number = !text.empty() && (NAMCHK(text[0]) == 0 || text[0] == '-' ||
                                          text[0] == '+' || text[0] == '.');
    if (number) continue;
    return stream.unread();
  }
}

bool bad_value(std::string_view word) {
  return bj_fail<"(' ...ERROR..MISSING RIGHT HAND SIDE OF OPTION..', A)">(BJ_COMMAND, word);
}

bool incompatible() { return bj_fail<"(' ...ERROR..INCOMPATIBLE OPTIONS')">(BJ_COMMAND); }

// Values that no model has. False after an error.
bool valid_values() {
  int place = 0;
  std::size_t number = 0;
  for (const OptionWord& w : BJOPT.view()) {
    if (w.kind == OptionKind::Variable &&
        OPTCOM.VOPT[static_cast<std::size_t>(place++)].text == "********") {
      return bad_value(w.word);
    }
    if (w.kind != OptionKind::Integer) continue;
    const bool given = OPTCOM.igiven[number];
    const int value = OPTCOM.IOPT[number++];
    const int least = w.word == "ITER" || w.word == "FBEG" || w.word == "FEND" ? 1 : 0;
    const bool own_test = w.word == "BEG" || w.word == "END" || w.word.substr(0, 4) == "NLAG";
    if (given && !own_test && value < least) return bad_value(w.word);
  }
  const double sigma = Opt::real<"SIGMA">();
  if (!(sigma >= 0.0) || !std::isfinite(sigma)) return bad_value("SIGMA");
  if (!std::isfinite(Opt::real<"STEPSIZE">())) return bad_value("STEPSIZE");
  return true;
}

// Copies the options to BJCOM and settles what one implies for another. False after an error.
bool settle_options() {
  if (!valid_values()) return false;
  BjCom& o = BJCOM;
  const BjValues last = o.last;
  o = BjCom{};
  o.last = last;
  const bool MAX = Opt::chosen<"MAX">();
  o.DUMP = Opt::chosen<"DUMP">();
  o.IAC = Opt::chosen<"IAC">() || MAX;
  o.ALL = Opt::chosen<"ALL">() || MAX;
  o.TABLE = Opt::chosen<"TABLE">();
  o.PLOTAC = Opt::chosen<"PLOTAC">() || MAX;
  o.PLOTDATA = Opt::chosen<"PLOTDATA">() || MAX;
  o.PLOTPAC = Opt::chosen<"PLOTPAC">() || MAX;
  o.PLOTRES = Opt::chosen<"PLOTRES">() || MAX;
  o.PLOTFORC = Opt::chosen<"PLOTFORC">();
  o.GRAPHAC = Opt::chosen<"GRAPHAC">();
  o.GRAPHDAT = Opt::chosen<"GRAPHDAT">();
  o.GRAPHPAC = Opt::chosen<"GRAPHPAC">();
  o.GRAPHRES = Opt::chosen<"GRAPHRES">();
  o.GRAPHFOR = Opt::chosen<"GRAPHFOR">();
  o.INSTART = Opt::chosen<"INSTART">();
  o.PITER = Opt::chosen<"PITER">() || MAX;
  o.LOG = Opt::chosen<"LOG">();
  o.STOCHAST = Opt::chosen<"STOCHAST">();
  o.WIDE = Opt::chosen<"WIDE">();
  o.MEANDIST = Opt::chosen<"MEANDIST">();
  o.ANOVA = Opt::chosen<"ANOVA">() || MAX;
  o.PCOV = Opt::chosen<"PCOV">() || MAX;
  o.PCOR = Opt::chosen<"PCOR">() || MAX;
  o.DN = Opt::chosen<"DN">();
  o.RESTRICT = Opt::chosen<"RESTRICT">();
  o.ESTIMATE = Opt::chosen<"ESTIMATE">();
  o.FORECAST = Opt::chosen<"FORECAST">();
  o.IDENTIFY = Opt::chosen<"IDENTIFY">() || (!o.ESTIMATE && !o.FORECAST);
  if (Opt::chosen<"GNUPLOT">()) {
    // The charts that were asked for go to gnuplot; without any, those of the stages.
    const bool none = !(o.PLOTAC || o.PLOTDATA || o.PLOTPAC || o.PLOTRES || o.PLOTFORC ||
                        o.GRAPHAC || o.GRAPHDAT || o.GRAPHPAC || o.GRAPHRES || o.GRAPHFOR);
    o.GRAPHAC = o.GRAPHAC || o.PLOTAC || none;
    o.GRAPHDAT = o.GRAPHDAT || o.PLOTDATA || none;
    o.GRAPHPAC = o.GRAPHPAC || o.PLOTPAC || none;
    o.GRAPHRES = o.GRAPHRES || o.PLOTRES || none;
    o.GRAPHFOR = o.GRAPHFOR || o.PLOTFORC || none;
    o.PLOTAC = o.PLOTDATA = o.PLOTPAC = o.PLOTRES = o.PLOTFORC = false;
  }
  o.NLAG = Opt::integer<"NLAG">();
  o.NLAGP = Opt::integer<"NLAGP">();
  o.ITER = Opt::integer<"ITER">();
  o.SIGMA = Opt::real<"SIGMA">();
  o.STEPSIZE = Opt::real<"STEPSIZE">();
  o.SIGLEVEL = Opt::real<"SIGLEVEL">();
  o.RESIDUAL = Opt::named<"RESIDUAL">();
  o.PREDICT = Opt::named<"PREDICT">();
  o.COEFFICI = Opt::named<"COEFFICI">();
  o.COVARIAN = Opt::named<"COVARIAN">();
  o.TYPE = Opt::named<"TYPE">();
  o.TESTSTAT = Opt::named<"TESTSTAT">();
  o.TRATIO = Opt::named<"TRATIO">();
  o.STDERR = Opt::named<"STDERR">();
  o.ACF = Opt::named<"ACF">();
  o.PACF = Opt::named<"PACF">();
  o.FCSE = Opt::named<"FCSE">();
  o.PSI = Opt::named<"PSI">();
  o.orders = {.NARP = Opt::integer<"NARP">(),
              .NMA = Opt::integer<"NMA">(),
              .NSARP = Opt::integer<"NSARP">(),
              .NSMA = Opt::integer<"NSMA">(),
              .NSPAN = Opt::integer<"NSPAN">(),
              .NDIFF = Opt::integer<"NDIFF">(),
              .NSDIFF = Opt::integer<"NSDIFF">(),
              .constant = Opt::chosen<"CONSTANT">()};
  return true;
}

void warn_ignored(std::string_view word) {
  warn<"(' ...WARNING..', A, ' IS NOT AVAILABLE HERE AND IS IGNORED')">(word);
}

// Options that nothing in this command serves are told.
void warn_of_idle_options() {
  const BjCom& o = BJCOM;
  const auto idle = [](const NameOption& option, bool served, std::string_view word) {
    if (!option.text.empty() && !served) warn_ignored(word);
  };
  idle(o.PACF, o.IDENTIFY, "PACF=");
  idle(o.TESTSTAT, o.IDENTIFY || o.ESTIMATE, "TESTSTAT=");
  idle(o.RESIDUAL, o.ESTIMATE, "RESIDUAL=");
  idle(o.COEFFICI, o.ESTIMATE, "COEFFICI=");
  idle(o.COVARIAN, o.ESTIMATE, "COVARIAN=");
  idle(o.TRATIO, o.ESTIMATE, "TRATIO=");
  idle(o.STDERR, o.ESTIMATE, "STDERR=");
  idle(o.PREDICT, o.ESTIMATE || o.FORECAST, "PREDICT=");
  idle(o.FCSE, o.FORECAST, "FCSE=");
  idle(o.PSI, o.FORECAST, "PSI=");
  idle(o.TYPE, false, "TYPE=");
  idle(Opt::named<"PORT">(), false, "PORT=");
}

// Options of ARIMA that mean nothing to COINTEGR.
void warn_of_arima_options() {
  std::size_t rank[4] = {0, 0, 0, 0};
  for (const OptionWord& w : BJOPT.view()) {
    const std::size_t place = rank[static_cast<int>(w.kind)]++;
    bool given = false;
    if (w.kind == OptionKind::Logical) given = OPTCOM.lgiven[place];
    if (w.kind == OptionKind::Integer) given = OPTCOM.igiven[place];
    if (w.kind == OptionKind::Real) given = OPTCOM.xgiven[place];
    if (w.kind == OptionKind::Variable) given = !OPTCOM.VOPT[place].text.empty();
    if (!given) continue;
    constexpr std::array<std::string_view, 8> served = {"LOG",   "BEG",      "END",  "NLAG",
                                                        "NDIFF", "SIGLEVEL", "TYPE", "TESTSTAT"};
    if (std::ranges::find(served, w.word) == served.end()) warn_ignored(w.word);
  }
}

// What the options say about plots. False after an error.
bool settle_plots(Workspace ws) {
  PlotWords words;
  if (!plot_word(ws, Opt::named<"DEVICE">(), "DEVICE", {}, words.DEVICE) ||
      !plot_word(ws, Opt::named<"OUTPUT">(), "OUTPUT", {}, words.OUTPUT) ||
      !plot_word(ws, Opt::named<"COMMFILE">(), "COMMFILE", "COMM.GNU", words.COMMFILE)) {
    set_error(BJ_COMMAND);
    return false;
  }
  words.APPEND = Opt::chosen<"APPEND">();
  words.WIDE = BJCOM.WIDE;
  start_plots(words);
  return true;
}

// START= and the spans. False after an error.
bool check_model() {
  const BjOrders& o = BJCOM.orders;
  const NameOption& start = Opt::named<"STARTING">();
  if (!start.text.empty()) {
    if (start.var <= 0) {
      return bj_fail<"(' ...ERROR..START= VARIABLE DOES NOT EXIST')">(BJ_COMMAND);
    }
    if (BJCOM.INSTART) return incompatible();
    BJCOM.STARTING = start.var;
  }
  if ((o.NSDIFF > 0 || o.NSARP > 0 || o.NSMA > 0) && o.NSPAN < 2) {
    return bj_fail<"(' ...ERROR..SPAN OF SEASONAL CYCLE NOT SET')">(BJ_COMMAND);
  }
  return true;
}

// Lags that are not named give way to a short series; named ones are refused.
bool check_lags() {
  BjCom& o = BJCOM;
  const std::int64_t net = DATCOM.NOB - o.orders.lost();
  if (net < 2) {
    const BjError code = o.IDENTIFY ? BJ_COMMAND : BJ_TOO_FEW;
    return bj_fail<"(' ...ERROR..TOO FEW OBSERVATIONS')">(code);
  }
  if (!Opt::given<"NLAG">() && o.NLAG >= net) o.NLAG = static_cast<int>(net) - 1;
  if (!Opt::given<"NLAGP">()) o.NLAGP = std::min(o.NLAGP, std::max(o.NLAG, 0));
  if (o.NLAG < 1 || o.NLAGP < 0 || o.NLAG >= net || o.NLAGP > o.NLAG) {
    return bj_fail<"(' ...ERROR..INVALID NLAG OR NLAGP')">(BJ_COMMAND);
  }
  return true;
}

bool check_forecast() {
  BjCom& o = BJCOM;
  o.FBEG = Opt::given<"FBEG">() ? Opt::integer<"FBEG">() : DATCOM.MEND;
  // The default reaches a year or two, and never beyond the limit.
  const std::int64_t steps =
      std::clamp<std::int64_t>(2 * std::int64_t{o.orders.NSPAN}, 12, MAXSTEPS);
  const std::int64_t end = Opt::given<"FEND">() ? Opt::integer<"FEND">() : o.FBEG + steps;
  if (o.FBEG < DATCOM.MBEG || o.FBEG > DATCOM.MEND) {
    return bj_fail<"(' ...ERROR..FBEG= IS OUTSIDE SAMPLE RANGE')">(BJ_COMMAND);
  }
  if (end <= o.FBEG) return bj_fail<"(' ...ERROR..REQUIRE FEND>FBEG')">(BJ_COMMAND);
  if (end - o.FBEG > MAXSTEPS) {
    return bj_fail<"(' ...ERROR..THE FORECAST LIMIT IS 200')">(BJ_ORIGIN);
  }
  o.FEND = static_cast<int>(end);
  constexpr int most = 20, most_seasonal = 10;
  if (std::max(o.orders.NARP, o.orders.NMA) > most ||
      std::max(o.orders.NSARP, o.orders.NSMA) > most_seasonal) {
    return bj_fail<"(1X, 'YOU ARE ALLOWED 20 AR OR MA AND 10 SAR OR SMA')">(BJ_PARAMETERS);
  }
  return true;
}

// A label and its number in I5, wider when it needs more.
template <FixedText NARROW, FixedText FREE>
void labelled(int value) {
  Line row;
  if (value < 100000) {
    row.put<NARROW>(value);
  } else {
    row.put<FREE>(value);
  }
}

void print_header() {
  const BjOrders& o = BJCOM.orders;
  const Line blank;
  Line head;
  head.put<"(30X, 'ARIMA MODEL')">();
  labelled<"(' NUMBER OF OBSERVATIONS =', I5)", "(' NUMBER OF OBSERVATIONS =', I0)">(DATCOM.NOB);
  if (BJCOM.LOG) {
    Line row;
    row.put<"(1X, 'DATA WILL BE TRANSFORMED TO LOGS')">();
  }
  const auto order = []<FixedText FMT>(int value) {
    if (value <= 0) return;
    Line row;
    row.put<FMT>(value);
  };
  order.template operator()<"(' DEGREE OF DIFFERENCING =', I5)">(o.NDIFF);
  order.template operator()<"(' DEGREE OF SEASONAL DIFFERENCING =', I5)">(o.NSDIFF);
  order.template operator()<"(' SPAN OF SEASONAL CYCLE ', ' (4=QUARTERLY,12=MONTHLY)=', I5)">(
      o.NSPAN);
  order.template operator()<"(' NUMBER OF AR PARAMETERS =', I5)">(o.NARP);
  order.template operator()<"(' NUMBER OF MA PARAMETERS =', I5)">(o.NMA);
  order.template operator()<"(' NUMBER OF SEASONAL AR PARAMETERS =', I5)">(o.NSARP);
  order.template operator()<"(' NUMBER OF SEASONAL MA PARAMETERS =', I5)">(o.NSMA);
  if (!o.constant) {
    Line row;
    row.text(" NO CONSTANT TERM IS IN THE MODEL");
  }
  OUTLINE();
}

void ARIMA(Workspace ws) {
  // 1. The model and its series.
  if (SCNCOM.NF <= 0) {
    bj_fail<"(' ...ERROR..NO VARIABLE SPECIFIED FOR ANALYSIS')">(BJ_COMMAND);
    return;
  }
  if (SCNCOM.NF > 1) {
    incompatible();
    return say(" COMMAND STRUCTURE: ARIMA var / options");
  }
  const ListItem item = SCNCOM.list()[0];
  if (!check_model() || !valid_series(ws, item)) return;
  warn_of_idle_options();
  if (!settle_plots(ws)) return;
  if (!take_rows(ws, SCNCOM.list(), Opt::integer<"BEG">(), Opt::integer<"END">())) return;
  const bool needs_lags = BJCOM.IDENTIFY || BJCOM.ESTIMATE;
  if (needs_lags && !check_lags()) return;
  if (BJCOM.FORECAST && !check_forecast()) return;
  const bool keeps_y = BJCOM.ESTIMATE || BJCOM.FORECAST;  // else it is differenced in place
  Scratch room(ws, (keeps_y ? 2 : 1) * std::int64_t{DATCOM.NOB});
  if (!room) return;
  if (OCOM.OPUT) print_header();
  BjSeries series;
  series.name = NAME(ws, item.var);
  series.var = item.var;
  series.y = room.take(static_cast<std::size_t>(DATCOM.NOB));
  if (!load_rows(ws, item.var, BJCOM.LOG, series.y)) return;
  if (needs_lags) {
    difference_series(BJCOM.orders, series.y, keeps_y ? room.rest() : series.y, series.w);
  }
  // 2. The stages.
  if (BJCOM.IDENTIFY && !BJIDEN(ws, series)) return;
  if (BJCOM.ESTIMATE && !BJEST(ws, series)) return;
  if (BJCOM.FORECAST) {
    series.length = elements(ws, item.var);
    if (!BJFCAS(ws, series)) return;
  }
  finish_plots();
}

}  // namespace

void BJCON(Workspace ws) {
  const Trace trace("BJCON");
  const ContinueGuard state;
  const bool cointegration = INPCOM.IKOD == K_COINTEGR;
  OPTION_START(BJOPT.view());
  Opt::set<"MAX">(OSCOM.OMXX);
  Opt::set<"DUMP">(OSCOM.ODMMP);
  Opt::set<"WIDE">(OSCOM.OWIDE);
  if (cointegration) Opt::set<"NLAG">(-1);
  OPTION_SCAN(ws, BJOPT.view());
  const bool values_follow = Opt::chosen<"INSTART">() && !OSCOM.OTALK && !cointegration;
  BJCOM.values_read = false;
  if (OCOM.ODONT) {
    set_error(BJ_COMMAND);
  } else if (settle_options() && !OSCOM.OSCAN) {
    if (cointegration) {
      warn_of_arima_options();
      COINTEGR(ws, Opt::integer<"BEG">(), Opt::integer<"END">());
    } else {
      ARIMA(ws);
    }
  }
  if (values_follow && !BJCOM.values_read) skip_values();
}

}  // namespace korvel
