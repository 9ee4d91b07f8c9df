#include "engine/set.h"

#include <ctime>

#include <algorithm>
#include <array>
#include <string>

#include "engine/commands.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/units.h"
#include "expr/expr.h"

namespace korvel {
namespace {

// The table of 79 words: 54 switches, 9 integers, 3 reals, 13 word settings.
constexpr auto SETOPT = option_table(
    logical("ECHO"), logical("BATCH"), logical("TERMINAL"), logical("FLUSH"), logical("FTN77"),
    logical("DUMP"), logical("TRACE"), logical("SPV"), logical("SCAN"), logical("TESTVER"),
    logical("TALK"), logical("DELETE"), logical("MAX"), logical("ALL"), logical("FULL"),
    logical("FMT*"), logical("LONG"), logical("TIMER"), logical("OPTIONS"), logical("OUTPUT"),
    logical("SKIP"), logical("SAMPLE"), logical("FRENCH"), logical("RANFIX"), logical("LASTCOM"),
    logical("DOECHO"), logical("WARN"), logical("HTML"), logical("DISK"), logical("NORM"),
    logical("BACKWARD"), logical("CC"), logical("PAUSE"), logical("LCUC"), logical("GRAPHICS"),
    logical("BANKSCAN"), logical("WIDE"), logical("SCREEN"), logical("COLOR"), logical("WARNSKIP"),
    logical("STATUS"), logical("JAPANESE"), logical("SKIPMISS"), logical("OLDDO"), logical("DB"),
    logical("WARNMISS"), logical("UMINUS"), logical("CONTINUE"), logical("BYVAR"), logical("XML"),
    logical("DEBUG"), logical("OD52"), logical("OD53"), logical("OD54"), integer("READUNIT"),
    integer("WRITEUNI"), integer("INUNIT"), integer("OUTUNIT"), integer("COMLEN"),
    integer("MAXCOLON"), integer("RANSEED"), integer("MACLOAD"), integer("RANLEVEL"),
    real("CPUTIME"), real("MISSVALU"), real("RCPUTIME"), variable("FORMAT"), variable("READFILE"),
    variable("WRITEFIL"), variable("IDVAR"), variable("USER"), variable("BANKNAME"),
    variable("BANKTYPE"), variable("BANKFORM"), variable("COEFFICI"), variable("COVARIAN"),
    variable("IEEE"), variable("CRYPT"), variable("GIF"));
static_assert(SETOPT.words.size() == 79);

constexpr std::array<bool OsCom::*, 54> SWITCHES = {
    &OsCom::OECHO,  &OsCom::OBAT,   &OsCom::OTERM,  &OsCom::OFLUSH, &OsCom::OKOD,   &OsCom::ODMMP,
    &OsCom::OTRACE, &OsCom::OSPV,   &OsCom::OSCAN,  &OsCom::OVER,   &OsCom::OTALK,  &OsCom::ODELL,
    &OsCom::OMXX,   &OsCom::OALL,   &OsCom::OFULL,  &OsCom::OFMT,   &OsCom::OLONG,  &OsCom::OTIM,
    &OsCom::OOPT,   &OsCom::OOPUT,  &OsCom::OSKIP,  &OsCom::OSMPL,  &OsCom::OFREN,  &OsCom::ORANST,
    &OsCom::OLCOM,  &OsCom::ODECHO, &OsCom::OWARN,  &OsCom::OHTM,   &OsCom::ODISK,  &OsCom::ONWT,
    &OsCom::OBACK,  &OsCom::OCC,    &OsCom::OPAUSE, &OsCom::OLC,    &OsCom::OGRAPH, &OsCom::OBAN,
    &OsCom::OWIDE,  &OsCom::OSCR,   &OsCom::OCOLOR, &OsCom::OSKWRN, &OsCom::OSTA,   &OsCom::OJAP,
    &OsCom::OSMISS, &OsCom::OLDDO,  &OsCom::ODB,    &OsCom::OMSWRN, &OsCom::OUMIN,  &OsCom::OCONT,
    &OsCom::OBYV,   &OsCom::OXML,   &OsCom::ODEB,   &OsCom::OD52,   &OsCom::OD53,   &OsCom::OD54};

// Word settings keep their text here; the name of a setting is its rank in the table's last
// section.
std::array<std::string, 13>& words() {
  static std::array<std::string, 13> w;
  return w;
}

double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Present values into the option area, from which OPTION starts.
void load_settings() {
  OPTION_START(SETOPT.view());
  for (std::size_t i = 0; i < SWITCHES.size(); ++i) OPTCOM.LOPT[i] = OSCOM.*SWITCHES[i];
  auto& I = OPTCOM.IOPT;
  I[SETOPT.place("READUNIT")] = IOCOM.INDATA;
  I[SETOPT.place("WRITEUNI")] = IOCOM.L7;
  I[SETOPT.place("INUNIT")] = IOCOM.L5;
  I[SETOPT.place("OUTUNIT")] = IOCOM.LOUT != 0 ? IOCOM.LOUT : IOCOM.L6;
  I[SETOPT.place("COMLEN")] = INPCOM.LCOLEN;
  I[SETOPT.place("MAXCOLON")] = DATCOM.MXCOL;
  I[SETOPT.place("RANSEED")] = GENCOM.LSEED;
  I[SETOPT.place("MACLOAD")] = 20;
  I[SETOPT.place("RANLEVEL")] = ranlevel();
  OPTCOM.XOPT[SETOPT.place("CPUTIME")] = cpu_seconds();
  OPTCOM.XOPT[SETOPT.place("MISSVALU")] = MACOM.XMISS;
  OPTCOM.XOPT[SETOPT.place("RCPUTIME")] = cpu_seconds();
}

// A unit that was given: 5 and 6 are the run's own, others must be units for files.
bool unit_given(std::size_t place, int own, bool opens_file) {
  const int unit = OPTCOM.IOPT[place];
  if (!OPTCOM.igiven[place] || unit == own || unit == 0) return true;
  if (opens_file && RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  return user_unit(unit);
}

// Head of a web page, once; an output file that is named so has it already.
void begin_web_output() {
  if (IOCOM.OHTML) return;
  IOCOM.OHTML = true;
  say(" Content-type: text/html\n\n <HTML><TITLE>KORVEL OUTPUT</TITLE><PRE>");
}

void store_settings() {
  const auto& I = OPTCOM.IOPT;
  constexpr std::size_t INUNIT = SETOPT.place("INUNIT"), OUTUNIT = SETOPT.place("OUTUNIT"),
                        READUNIT = SETOPT.place("READUNIT");
  // 1. What can be refused, before anything is changed.
  if (!unit_given(READUNIT, 5, false) || !unit_given(INUNIT, 5, true) ||
      !unit_given(OUTUNIT, IOCOM.L66, true)) {
    return;
  }
  const int columns = I[SETOPT.place("MAXCOLON")];
  const int length = I[SETOPT.place("COMLEN")];
  if (columns < 2 * DATCOM.MAXVAR || columns > 2147483647 / (DATCOM.MAXVAR + 1)) {
    return fail(" ...ERROR..IN RIGHT HAND SIDE OF OPTION..MAXCOLON");
  }
  if (length < 1 || length > LINMAX) return fail(" ...ERROR..IN RIGHT HAND SIDE OF OPTION..COMLEN");
  if (OPTCOM.igiven[OUTUNIT] && !redirect_output(I[OUTUNIT])) return;
  if (OPTCOM.igiven[INUNIT]) {
    if (I[INUNIT] == 5 || I[INUNIT] == 0) {
      return_to_main_input();
    } else if (!push_command_input({}, I[INUNIT])) {
      return;
    }
  }
  // 2. The settings.
  const bool web = OSCOM.OHTM;
  for (std::size_t i = 0; i < SWITCHES.size(); ++i) OSCOM.*SWITCHES[i] = OPTCOM.LOPT[i];
  if (OSCOM.OHTM && !web) begin_web_output();
  if (OPTCOM.igiven[READUNIT]) IOCOM.INDATA = I[READUNIT] == 0 ? IOCOM.L5 : I[READUNIT];
  DATCOM.MXCOL = columns;
  INPCOM.LCOLEN = length;
  IOCOM.L7 = I[SETOPT.place("WRITEUNI")];
  if (OPTCOM.igiven[SETOPT.place("RANSEED")]) set_ranseed(I[SETOPT.place("RANSEED")]);
  if (OPTCOM.igiven[SETOPT.place("RANLEVEL")]) set_ranlevel(I[SETOPT.place("RANLEVEL")]);
  MACOM.XMISS = OPTCOM.XOPT[SETOPT.place("MISSVALU")];
  for (std::size_t k = 0; k < words().size(); ++k) {
    if (OPTCOM.VOPT[k].var == 0) continue;
    const bool blank = OPTCOM.VOPT[k].typed == "********";  // the word alone: no setting any more
    words()[k] = blank ? std::string_view{} : OPTCOM.VOPT[k].typed;
  }
}

void print_words() {
  WordRows rows(10);
  for (const OptionWord& w : SETOPT.words) rows.add(w.word);
  rows.end();
}

// Number of a word in the whole table by the rule of abbreviations, -1 none.
int setting_number(std::string_view word) {
  int k = 0;
  for (const OptionWord& w : SETOPT.words) {
    if (w.word == word.substr(0, KEYLEN)) return k;
    ++k;
  }
  if (OSCOM.OLONG) return -1;
  k = 0;
  for (const OptionWord& w : SETOPT.words) {
    if (w.word.substr(0, word.size()) == word) return k;
    ++k;
  }
  return -1;
}

void print_setting(int k) {
  const OptionWord& w = SETOPT.words[static_cast<std::size_t>(k)];
  Line row;
  row.put<"(1X, A8, 2X)">(w.word);
  if (k < 54) {
    row.text(OPTCOM.LOPT[static_cast<std::size_t>(k)] ? "TRUE" : "FALSE");
  } else if (k < 63) {
    row.put<"(I0)">(OPTCOM.IOPT[static_cast<std::size_t>(k - 54)]);
  } else if (k < 66) {
    row.put<"(G15.7)">(OPTCOM.XOPT[static_cast<std::size_t>(k - 63)]);
  } else if (w.word == "CRYPT") {
    row.text(words()[static_cast<std::size_t>(k - 66)].empty() ? "" : "********");
  } else {
    row.text(words()[static_cast<std::size_t>(k - 66)]);
  }
  OUTLINE();
}

double setting_value(int k) {
  if (k < 54) return OPTCOM.LOPT[static_cast<std::size_t>(k)] ? 1.0 : 0.0;
  if (k < 63) return OPTCOM.IOPT[static_cast<std::size_t>(k - 54)];
  return k < 66 ? OPTCOM.XOPT[static_cast<std::size_t>(k - 63)] : 0.0;
}

// DISPLAY word ... [/ var]: prints values, or keeps the first one in a variable.
void display(Workspace ws) {
  load_settings();
  if (SCNCOM.NWORDS == 0) return print_words();
  const auto word = [](int i) { return TOKCOM.token[static_cast<std::size_t>(i)].text; };
  int n = SCNCOM.NWORDS;
  std::string_view target;
  if (n >= 3 && word(n - 1) == "/") {
    target = word(n).substr(0, KEYLEN);
    n -= 2;
  }
  for (int i = 1; i <= n; ++i) {
    double value = 0;
    if (word(i)[0] == '$') {
      const Scalar s = scalar_value(ws, word(i));
      if (!s.ok) return;
      value = s.value;
      if (target.empty()) say<"(4X, '$', A4, 2X, G15.7)">(word(i).substr(1), value);
    } else {
      const int k = setting_number(word(i));
      if (k < 0) return fail<"(' ...ERROR..DATA ON VARIABLE ', A, ' DOES NOT EXIST')">(word(i));
      value = setting_value(k);
      if (target.empty()) print_setting(k);
    }
    if (!target.empty()) {
      if (NAMCHK(target[0]) != 1) return fail<"(' ...ERROR..ILLEGAL VARIABLE NAME:', A)">(target);
      const int I = NEWVAR(ws, target, {.LEN = 1});
      if (I > 0) elements(ws, I)[0] = value;
      return;
    }
  }
}

}  // namespace

std::string& word_setting(std::string_view word) {
  constexpr std::size_t before = 54 + 9 + 3;
  std::size_t k = 0;
  while (k + 1 < words().size() && SETOPT.words[before + k].word != word) ++k;
  return words()[k];
}

void reset_settings() {
  for (std::string& word : words()) word.clear();
  IOCOM.L7 = IoCom{}.L7;
  IOCOM.INDATA = IOCOM.L5;
}

namespace {

// A place of the line where the value of CRYPT= begins and ends.
struct SecretPlace {
  std::size_t begin = 0, end = 0;
};

bool word_char(char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; }

// The word that begins at `at`, up-cased.
std::string word_at(std::string_view line, std::size_t at) {
  std::string word;
  while (at < line.size() && word_char(line[at])) word += upper(line[at++]);
  return word;
}

// Spellings that SET may take for CRYPT: from CR on, and longer words that begin with it.
bool means_crypt(std::string word) {
  if (word.starts_with("NO")) word.erase(0, 2);
  constexpr std::string_view CRYPT = "CRYPT";
  return word.size() >= 2 && (CRYPT.starts_with(word) || word.starts_with(CRYPT));
}

// The first pass phrase from `from` on. The line must hold the word SET, or belong to a SET without
// a word of its own.
bool find_secret(std::string_view line, std::size_t from, SecretPlace& place) {
  if (line.find('=') == std::string_view::npos) return false;  // no value in it
  bool set = !OSCOM.OKOD && INPCOM.LASKOD == K_SET;
  for (std::size_t at = 0; at < line.size();) {
    if (!word_char(line[at])) {
      ++at;
      continue;
    }
    const std::string word = word_at(line, at);
    at += word.size();
    set = set || word == "SET" || word == "SE" || word == "S";
    if (!set || !means_crypt(word)) continue;
    std::size_t value = line.find_first_not_of(' ', at);
    if (value == std::string_view::npos || line[value] != '=') continue;
    value = line.find_first_not_of(" =", value);
    if (value == std::string_view::npos) return false;
    std::size_t end = std::string_view::npos;
    if (line[value] == '"' || line[value] == '\'') end = line.find(line[value], value + 1);
    end = end == std::string_view::npos ? line.find(' ', value) : end + 1;
    at = std::min(end, line.size());
    if (value < from) continue;
    place = {value, at};
    return true;
  }
  return false;
}

}  // namespace

bool holds_pass_phrase(std::string_view line) {
  SecretPlace place;
  return find_secret(line, 0, place);
}

std::string hide_pass_phrase(std::string_view line) {
  std::string shown(line);
  SecretPlace place;
  for (std::size_t from = 0; find_secret(shown, from, place); from = place.end) {
    std::fill(shown.begin() + static_cast<std::ptrdiff_t>(place.begin),
              shown.begin() + static_cast<std::ptrdiff_t>(place.end), '*');
  }
  return shown;
}

void SETDIS(Workspace ws) {
  const Trace trace("SETDIS");
  if (INPCOM.IKOD == K_DISPLAY) return display(ws);
  if (SCNCOM.NOPS == 0) return print_words();
  load_settings();
  OPTION_SCAN(ws, SETOPT.view());
  if (OCOM.ODONT) return;
  store_settings();
}

}  // namespace korvel
