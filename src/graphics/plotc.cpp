// PLOTC: the commands PLOT and GRAPH.
//   reads SCNCOM list, OPTCOM, the sample; sets MBEG, MEND, NOB and the failure flags.
#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "graphics/graphics.h"
#include "graphics/plot.h"

namespace korvel {
namespace {

constexpr auto PLOTOPT = option_table(
    logical("LINE"), logical("AXIS", true), logical("SAME"), logical("WIDE"), logical("ALTERNAT"),
    logical("TIME"), logical("FULLAXIS"), logical("GRAPHICS"), logical("HOLD"), logical("BLANK"),
    logical("NEWPAGE"), logical("HISTOGRA"), logical("RANGE"), logical("LINEONLY"),
    logical("NOTE", true), logical("DASH"), logical("SCALE"), logical("PRETTY"), logical("MIDDLE"),
    logical("TPLOT"), logical("DUMP"), logical("ALL"), logical("COUNT"), logical("FPLOT"),
    logical("*"), logical("*"), logical("EGA"), logical("RMAL"), logical("PRINT"), logical("PAUSE"),
    logical("GOAWAY"), logical("VGA"), logical("GNUPLOT"), logical("THREE"), logical("KEY", true),
    logical("APPEND"), logical("FPLOT90"), logical("GIF"), integer("BEG"), integer("END"),
    integer("POINTS", 200), integer("LENGTH"), integer("HEIGHT"), integer("GROUPS", 6),
    integer("DATAUNIT"), integer("MODE"), integer("PALETT"), integer("COLOR"), real("XMIN"),
    real("XMAX"), real("YMIN"), real("YMAX"), real("SYMSIZE"), real("FCRITICA"), real("DF"),
    real("TCRITICA"), real("COEF1"), real("COEF2"), real("VAR1"), real("VAR2"), real("COVAR12"),
    real("CHARSIZE"), variable("SYMBOL"), variable("WEIGHT"), variable("OUTPUT"),
    variable("DEVICE"), variable("PORT"), variable("COMMFILE", "COMM.GNU"),
    variable("DATAFILE", "DATA.GNU"), variable("TIMEFMT"), variable("AXISFMT"));
static_assert(PLOTOPT.words.size() == 38 + 10 + 14 + 9);

using Opt = OptionValues<PLOTOPT>;
template <FixedText WORD>
std::optional<double> typed_limit() {
  constexpr int place = PLOTOPT.place(WORD.view());
  return OPTCOM.xgiven[place] ? std::optional(OPTCOM.XOPT[place]) : std::nullopt;
}

// ---- Options -----------------------------------------------------------------------------------

// Words of devices that are gone, and those that only regions of CONFID use.
void warn_of_idle_options() {
  constexpr auto idle = std::to_array<std::string_view>(
      {"EGA",    "VGA",      "PALETT", "MODE",  "PORT",    "RMAL", "PRINT",
       "GOAWAY", "COLOR",    "FPLOT",  "BLANK", "FPLOT90", "DUMP", "FCRITICA",
       "DF",     "TCRITICA", "COEF1",  "COEF2", "VAR1",    "VAR2", "COVAR12"});
  std::size_t rank[4] = {0, 0, 0, 0};
  for (const OptionWord& w : PLOTOPT.view()) {
    const std::size_t place = rank[static_cast<int>(w.kind)]++;
    const bool given = w.kind == OptionKind::Logical   ? OPTCOM.lgiven[place]
                       : w.kind == OptionKind::Integer ? OPTCOM.igiven[place]
                       : w.kind == OptionKind::Real    ? OPTCOM.xgiven[place]
                                                       : !OPTCOM.VOPT[place].text.empty();
    if (given && std::ranges::find(idle, w.word) != idle.end()) {
      warn<"(' ...WARNING..THE ', A, ' OPTION HAS NO EFFECT')">(w.word);
    }
  }
}

void print_notes(const PlotSet& set) {
  if (!OCOM.OPUT) return;
  if (OSCOM.OTALK) say(" ...NOTE..KORVEL WILL NOW MAKE A PLOT FOR YOU");
  if (!set.AXIS) say(" ...NOTE..NO AXES WILL BE DRAWN");
  if (!Opt::chosen<"NOTE">()) say(" ...NOTE..THE KORVEL NOTE WILL BE DELETED");
  if (set.LINE) say(" ...NOTE..A LINE GRAPH WILL BE DRAWN");
  if (set.LINEONLY) say(" ...NOTE..NO SYMBOLS WILL BE PLOTTED, LINE ONLY");
  if (Opt::chosen<"ALTERNAT">()) say(" ...NOTE..COLORS WILL BE ALTERNATED");
  if (set.SAME) say(" ...NOTE..PLOT WILL BE IMPOSED ON PREVIOUS PLOT");
}

// Text of a character variable; empty when there is none.
std::string stored_text(Workspace ws, std::string_view name) {
  const int I = VARNUM(ws, name);
  if (I <= 0 || INFO(ws, I).ITYPE < STRING5) return {};
  const auto words = elements(ws, I);
  return std::string(
      right_trimmed({reinterpret_cast<const char*>(words.data()), words.size_bytes()}));
}

// A format of time: the option's, else the one that its command has stored.
bool time_format(Workspace ws, const NameOption& option, std::string_view word, std::string& text) {
  if (!plot_word(ws, option, word, {}, text)) return false;
  if (option.text.empty()) text = stored_text(ws, std::string(word) + "$");
  if (text.size() > 1 && (text.front() == '"' || text.front() == '\'') &&
      text.back() == text.front()) {
    text = text.substr(1, text.size() - 2);
  }
  if (text.starts_with(' ')) text.erase(0, 1);
  return true;
}

bool settle_words(Workspace ws, PlotWords& words) {
  words.APPEND = Opt::chosen<"APPEND">();
  words.PAUSE = Opt::chosen<"PAUSE">();
  words.WIDE = Opt::chosen<"WIDE">();
  if (!plot_word(ws, Opt::named<"OUTPUT">(), "OUTPUT", {}, words.OUTPUT) ||
      !plot_word(ws, Opt::named<"DEVICE">(), "DEVICE", {}, words.DEVICE) ||
      !plot_word(ws, Opt::named<"PORT">(), "PORT", {}, words.PORT) ||
      !plot_word(ws, Opt::named<"COMMFILE">(), "COMMFILE", "COMM.GNU", words.COMMFILE) ||
      !plot_word(ws, Opt::named<"DATAFILE">(), "DATAFILE", "DATA.GNU", words.DATAFILE)) {
    return false;
  }
  if (Opt::chosen<"GIF">() && words.DEVICE.empty()) words.DEVICE = "GIF";
  return true;
}

bool settle_options(Workspace ws, PlotSet& set) {
  set.LINE = Opt::chosen<"LINE">() || Opt::chosen<"TPLOT">();
  set.LINEONLY = Opt::chosen<"LINEONLY">();
  set.AXIS = Opt::chosen<"AXIS">();
  set.KEY = Opt::chosen<"KEY">();
  set.WIDE = Opt::chosen<"WIDE">();
  set.FULLAXIS = Opt::chosen<"FULLAXIS">();
  set.DASH = Opt::chosen<"DASH">();
  set.PRETTY = Opt::chosen<"PRETTY">();
  set.MIDDLE = Opt::chosen<"MIDDLE">();
  set.RANGE = Opt::chosen<"RANGE">();
  set.THREE = Opt::chosen<"THREE">();
  set.SAME = Opt::chosen<"SAME">();
  set.HOLD = Opt::chosen<"HOLD">();
  set.LENGTH = Opt::integer<"LENGTH">();
  set.HEIGHT = Opt::integer<"HEIGHT">();
  set.GROUPS = Opt::integer<"GROUPS">();
  set.DATAUNIT = Opt::integer<"DATAUNIT">();
  set.SYMSIZE = Opt::real<"SYMSIZE">();
  set.CHARSIZE = Opt::real<"CHARSIZE">();
  set.limits = {typed_limit<"XMIN">(), typed_limit<"XMAX">(), typed_limit<"YMIN">(),
                typed_limit<"YMAX">()};
  const PlotLimits& l = set.limits;
  if (l.XMIN && l.XMAX && !(*l.XMIN < *l.XMAX)) return bad_option_value("XMIN");
  if (l.YMIN && l.YMAX && !(*l.YMIN < *l.YMAX)) return bad_option_value("YMIN");
  if (!(set.SYMSIZE >= 0.0 && set.SYMSIZE < 1000.0)) return bad_option_value("SYMSIZE");
  if (!(set.CHARSIZE >= 0.0 && set.CHARSIZE < 1000.0)) return bad_option_value("CHARSIZE");
  if (Opt::given<"DATAUNIT">() && set.DATAUNIT <= 0) return bad_option_value("DATAUNIT");
  const std::string_view symbol = Opt::named<"SYMBOL">().typed;
  if (symbol == "********") return bad_option_value("SYMBOL");
  set.SYMBOL = symbol.empty() ? '\0' : symbol[0];
  if (Opt::chosen<"HISTOGRA">() &&
      (set.GROUPS < 1 || set.GROUPS > MAXGROUPS || MAXGROUPS % set.GROUPS != 0)) {
    fail(" ...ERROR..60/GROUPS MUST BE AN INTEGER");
    return false;
  }
  set.title = stored_text(ws, "TITLE");
  return time_format(ws, Opt::named<"TIMEFMT">(), "TIMEFMT", set.TIMEFMT) &&
         time_format(ws, Opt::named<"AXISFMT">(), "AXISFMT", set.AXISFMT);
}

// ---- The plot matrix ---------------------------------------------------------------------------

// Observations in use: while (next()) uses obs.
class PlotRowsInUse {
 public:
  PlotRowsInUse(Workspace ws, bool all) : obs_(DATCOM.MBEG - 1) {
    if (!all && skipping()) skip_ = skip_vector(ws);
  }
  bool next() {
    do {
      ++obs_;
    } while (obs_ <= DATCOM.MEND && static_cast<std::size_t>(obs_) <= skip_.size() &&
             skip_[static_cast<std::size_t>(obs_ - 1)] > 0.0);
    return obs_ <= DATCOM.MEND;
  }
  int obs() const { return obs_; }

 private:
  std::span<const double> skip_;
  int obs_;
};

int usable_rows(Workspace ws, int var) {
  const Place place = INFO(ws, var);
  const bool table = place.ITYPE == MATRIX2 && place.columns() > 1;
  return table ? place.rows() : place.LEN;
}

bool valid_variable(Workspace ws, int var, std::string_view name) {
  if (var > 0 && !elements(ws, var).empty()) {
    const int type = INFO(ws, var).ITYPE;
    if (type == SERIES || type == MATRIX2) return true;
  }
  fail<"(' ...ERROR..VARIABLE ', A, ' IS INVALID')">(name);
  return false;
}

// MBEG and MEND. False after a reported failure.
bool take_range(Workspace ws) {
  DATCOM.MBEG = Opt::integer<"BEG">();
  DATCOM.MEND = Opt::integer<"END">();
  if (Opt::chosen<"ALL">()) {
    DATCOM.MBEG = 1;
    DATCOM.MEND = 2147483647;
    for (const ListItem& item : SCNCOM.list()) {
      DATCOM.MEND = std::min(DATCOM.MEND, usable_rows(ws, item.var));
    }
  }
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  if (!Opt::chosen<"ALL">()) CKSMPL(ws, SCNCOM.list());
  if (OCOM.ODONT) return false;
  if (DATCOM.MEND < DATCOM.MBEG) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG, DATCOM.MEND);
    return false;
  }
  return true;
}

double plotted_value(std::span<const double> from, std::int64_t obs, int limit) {
  if (obs < 1 || obs > limit) return MACOM.XNAN;
  const double v = from[static_cast<std::size_t>(obs - 1)];
  // Beyond this size the length of an axis could pass the range of numbers.
  constexpr double most = 1e307;
  return std::fabs(v) <= most && v != MACOM.XMISS ? v : MACOM.XNAN;
}

void load_variable(Workspace ws, const ListItem& item, bool all, std::span<double> room,
                   PlotVariable& to) {
  const auto from = elements(ws, item.var);
  const int limit = usable_rows(ws, item.var);
  std::size_t row = 0;
  for (PlotRowsInUse rows(ws, all); rows.next();) {
    room[row++] = plotted_value(from, std::int64_t{rows.obs()} - item.lag, limit);
  }
  to.value = room;
  to.set_label(NAME(ws, item.var));
}

// Quarters stand evenly: 1970, 1970.25, ..
double calendar_place(int obs) {
  const std::int64_t k = std::int64_t{DATCOM.ITIME2} - 1 + obs - 1;
  return DATCOM.ITIME1 + static_cast<double>(k) / std::max(DATCOM.ITIME3, 1);
}

void load_count(Workspace ws, bool all, PlotSet& set, std::span<double> room) {
  std::size_t row = 0;
  for (PlotRowsInUse rows(ws, all); rows.next();) {
    room[row++] = set.from == PlotX::calendar ? calendar_place(rows.obs()) : rows.obs();
  }
  set.x.value = room;
  set.x.set_label(set.from == PlotX::calendar ? "TIME" : "OBSERVATION");
}

// Each y brought to 0..1 of its own range.
void scale_variable(std::span<double> values) {
  double least = 0.0, most = 0.0;
  if (!plot_range(values, least, most)) return;
  const double range = most - least;
  for (double& v : values) v = range > 0.0 ? (v - least) / range : v - least;
}

bool load_set(Workspace ws, PlotSet& set, Scratch& room) {
  const bool all = Opt::chosen<"ALL">();
  const auto list = SCNCOM.list();
  std::size_t first = 0;
  const auto column = [&] { return room.take(set.rows); };
  if (set.from == PlotX::variable && !Opt::chosen<"HISTOGRA">()) {
    load_variable(ws, list[0], all, column(), set.x);
    first = 1;
  } else {
    load_count(ws, all, set, column());
  }
  bool any = false;
  for (std::size_t i = first; i < list.size(); ++i) {
    PlotVariable& y = set.y[set.variables++];
    load_variable(ws, list[i], all, column(), y);
    if (Opt::chosen<"SCALE">()) scale_variable(y.value);
    for (std::size_t t = 0; t < set.rows && !any; ++t) {
      any = !std::isnan(y.value[t]) && !std::isnan(set.x.value[t]);
    }
  }
  const NameOption& weight = Opt::named<"WEIGHT">();
  if (!weight.text.empty() && Opt::chosen<"HISTOGRA">()) {
    if (!valid_variable(ws, weight.var, weight.text)) return false;
    ListItem item;
    item.var = weight.var;
    load_variable(ws, item, all, column(), set.weight);
  }
  if (any) return true;
  fail(" ...ERROR..NO DATA TO PLOT");
  return false;
}

// What is x, and whether the list fits.
bool settle_list(Workspace ws, PlotSet& set) {
  const auto count = static_cast<std::size_t>(SCNCOM.NF);
  const bool TIME = Opt::chosen<"TIME">() || Opt::chosen<"TPLOT">();
  if (TIME) {
    set.from = DATCOM.ITIME2 > 0 ? PlotX::calendar : PlotX::count;
  } else if (Opt::chosen<"COUNT">() || count == 1) {
    set.from = PlotX::count;
  }
  if (count == 0) {
    fail(" ...ERROR..NO DATA TO PLOT");
    return false;
  }
  if (set.THREE && count < 3) {
    fail(" ...ERROR..THREE VARIABLES ARE NEEDED");
    return false;
  }
  if (set.THREE) set.from = PlotX::variable;
  if (count + 1 > MAXPLOTCOLUMNS) {
    fail(" ...ERROR..STATEMENT TOO LONG");
    return false;
  }
  for (const ListItem& item : SCNCOM.list()) {
    if (!valid_variable(ws, item.var, item.name.empty() ? NAME(ws, item.var) : item.name)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void PlotVariable::set_label(std::string_view text) {
  length = static_cast<int>(std::min(text.size(), name.size()));
  std::copy_n(text.begin(), length, name.begin());
}

bool plot_range(std::span<const double> values, double& least, double& most) {
  PlotColumn seen;
  for (const double v : values) seen.see(v);
  least = seen.least;
  most = seen.most;
  return least <= most;
}

void PLOTC(Workspace ws) {
  const Trace trace("PLOTC");
  // 1. Options.
  OPTION_START(PLOTOPT.view());
  Opt::set<"WIDE">(OSCOM.OWIDE);
  OPTION_SCAN(ws, PLOTOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  PlotSet set;
  PlotWords words;
  if (!settle_options(ws, set) || !settle_words(ws, words) || !settle_list(ws, set)) return;
  warn_of_idle_options();
  print_notes(set);
  // 2. The variables.
  if (!take_range(ws)) return;
  for (PlotRowsInUse rows(ws, Opt::chosen<"ALL">()); rows.next();) ++set.rows;
  DATCOM.NOB = static_cast<int>(set.rows);
  if (set.rows == 0) return fail(" ...ERROR..NO DATA TO PLOT");
  Scratch room(ws, static_cast<std::int64_t>(set.rows) * (SCNCOM.NF + 2));
  if (!room || !load_set(ws, set, room)) return;
  // 3. The plot.
  const bool HISTOGRA = Opt::chosen<"HISTOGRA">();
  const bool gnuplot = Opt::chosen<"GNUPLOT">() || Opt::chosen<"GRAPHICS">() || set.THREE ||
                       words.APPEND || !words.DEVICE.empty() || !words.OUTPUT.empty() ||
                       !words.PORT.empty() || !words.COMMFILE.empty() || !words.DATAFILE.empty() ||
                       web_output() || INPCOM.IKOD == K_GRAPH;
  if (set.SAME && HISTOGRA) warn(" ...WARNING..THE SAME OPTION HAS NO EFFECT");
  if (set.HOLD && (gnuplot || HISTOGRA)) warn(" ...WARNING..THE HOLD OPTION HAS NO EFFECT");
  if (gnuplot) {
    PLOTGN(set, HISTOGRA, words);
  } else if (HISTOGRA) {
    PLOTHS(set);
  } else {
    if (Opt::chosen<"NEWPAGE">()) say("\f");
    PLOTPR(set);
  }
}

}  // namespace korvel
