// Command tails: the list of variables (SCANIT) and the options behind "/" (OPTION).
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "data/format.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"

namespace korvel {

// ---- The variable list
// ---------------------------------------------------------------------------

// An entry of the list as SCANIT leaves it.
struct ListItem {
  int var = 0;            // variable number, compound index or negative temporary
  int lag = 0;            // X(1): 1; a lead is negative
  int order = 0;          // polynomial order of a distributed lag, 0 none
  int endcon = 0;         // its end constraint
  bool group = false;     // stands inside a parenthesised group (stepwise)
  int column = 0;         // NAME:n of a new variable (an existing one has it folded into var)
  std::string_view name;  // the name, up-cased, at most 8 characters; var is 0 when it is new
};

struct ScnCom {
  int ISTART = 0;  // 0-based position in the command where scanning begins (behind the word)
  int NF = 0;      // entries of the list
  int NWORDS = 0;  // words of a word command (token places 1 to NWORDS)
  int NOPS = 0;    // option tokens
  int NFPAR = 0;   // parenthesised items
  int INPAR = 0;   // unit of a (unit) item
  int NEWV = 0;    // new names accepted
  std::string_view count;  // word in front of the list (Tail::Count), empty when it is missing
  bool file = false;       // a (file) item was given: its name is in `file_name`
  std::string_view file_name;
  std::span<ListItem> INLIST;  // MAXVAR places; NF in use
  std::span<ListItem> list() const { return INLIST.first(static_cast<std::size_t>(NF)); }
};
extern ScnCom SCNCOM;

// A token: a word (up-cased), "=", or a value behind "=". Texts point into the command.
struct Token {
  std::string_view text;   // up-cased, whole
  std::string_view typed;  // the same characters as typed
  bool value = false;      // stands behind "="
  int position = 0;        // 0-based place in the command
};
inline constexpr int MAXWORDS = 400;  // words of a word command (options have MAXOPS)
struct TokCom {
  std::array<Token, MAXWORDS + 1> token{};  // [0] is the command word
};
extern TokCom TOKCOM;

// While a script is only looked over: a number that stands for a name which isn't there yet, the
// same one each time. No variable has it; 0 when all numbers are taken.
int stand_in(std::string_view name);

// Splits the command text: fills SCNCOM and TOKCOM. Failure: OERR or ODONT.
void SCANIT(Workspace ws);
// The same for a command that splits its tail itself: a list and options from a place of the text
// on.
void scan_tail(Workspace ws, int position);

// ---- Option tables
// -------------------------------------------------------------------------------

enum class OptionKind : std::uint8_t { Logical, Integer, Real, Variable };

// One word of a table. A word that begins with '*' can't be typed.
struct OptionWord {
  std::string_view word;  // at most 8 characters count
  OptionKind kind;
  double start = 0;       // default: flag, integer or real
  std::string_view name;  // default text of a name option
  bool pair = false;      // two integers, WORD=a;b: its own place and the next one
};
consteval OptionWord logical(std::string_view w, bool start = false) {
  return {w.substr(0, KEYLEN), OptionKind::Logical, start ? 1.0 : 0.0, {}};
}
consteval OptionWord integer(std::string_view w, int start = 0) {
  return {w.substr(0, KEYLEN), OptionKind::Integer, static_cast<double>(start), {}};
}
// The place behind a pair is closed: integer_pair("FROWS"), integer("*").
consteval OptionWord integer_pair(std::string_view w) {
  return {w.substr(0, KEYLEN), OptionKind::Integer, 0.0, {}, true};
}
consteval OptionWord real(std::string_view w, double start = 0) {
  return {w.substr(0, KEYLEN), OptionKind::Real, start, {}};
}
consteval OptionWord variable(std::string_view w, std::string_view start = {}) {
  return {w.substr(0, KEYLEN), OptionKind::Variable, 0.0, start};
}

// A handler's table: words in section order logical, integer, real, variable. `place` is the
// word's rank in its section, found when the program is built.
template <std::size_t N>
struct OptionTable {
  std::array<OptionWord, N> words;
  consteval int place(std::string_view word) const {
    int rank[4] = {0, 0, 0, 0};
    for (const OptionWord& w : words) {
      if (w.word == word.substr(0, KEYLEN)) return rank[static_cast<int>(w.kind)];
      ++rank[static_cast<int>(w.kind)];
    }
    throw "no such word in the option table";
  }
  consteval OptionKind kind(std::string_view word) const {
    for (const OptionWord& w : words) {
      if (w.word == word.substr(0, KEYLEN)) return w.kind;
    }
    throw "no such word in the option table";
  }
  consteval bool has(std::string_view word) const {
    for (const OptionWord& w : words) {
      if (w.word == word.substr(0, KEYLEN)) return true;
    }
    return false;
  }
  constexpr std::span<const OptionWord> view() const { return words; }
};
template <class... Words>
consteval auto option_table(Words... words) {
  OptionTable<sizeof...(Words)> t{{words...}};
  for (std::size_t i = 1; i < t.words.size(); ++i) {
    if (t.words[i].kind < t.words[i - 1].kind) throw "sections out of order";
  }
  return t;
}

inline constexpr int MAXLOPT = 60, MAXIOPT = 24, MAXXOPT = 16, MAXVOPT = 32;

// A name option as given: its variable (0: not given; below -1000: a name that does not exist yet;
// -1 to -80: a temporary) and its text. `text` is up-cased, `typed` as typed; both are blank when
// the option was not given and has no default. "********" stands for an option without a value.
struct NameOption {
  int var = 0;
  std::string_view text;
  std::string_view typed;
};

// The option area: values by section place (from 0). `given` tells what the command named.
struct OptCom {
  std::array<bool, MAXLOPT> LOPT{};
  std::array<int, MAXIOPT> IOPT{};
  std::array<double, MAXXOPT> XOPT{};
  std::array<NameOption, MAXVOPT> VOPT{};
  std::array<bool, MAXLOPT> lgiven{};
  std::array<bool, MAXIOPT> igiven{};
  std::array<bool, MAXXOPT> xgiven{};
};
inline constinit OptCom OPTCOM{};

// The words that the user can give.
void OPTION_WORDS(std::span<const OptionWord> table);

// Loads the table's defaults into OPTCOM (BEG and END: IBEG and IEND), without reading any token;
// a handler whose defaults depend on switches sets them between this and OPTION_SCAN.
void OPTION_START(std::span<const OptionWord> table);
// Reads the option tokens of the command against the table. Failure: ODONT.
void OPTION_SCAN(Workspace ws, std::span<const OptionWord> table);
template <std::size_t N>
void OPTION(Workspace ws, const OptionTable<N>& table) {
  OPTION_START(table.view());
  OPTION_SCAN(ws, table.view());
}

// The running command's values by the words of its table: OptionValues<OLSOPT>::chosen<"LM">().
// A word that isn't in the table, or that stands there as another kind, doesn't compile.
template <const auto& TABLE>
class OptionValues {
 public:
  template <FixedText WORD>
  static bool chosen() {
    return OPTCOM.LOPT[place<WORD, OptionKind::Logical>()];
  }
  template <FixedText WORD>
  static int integer() {
    return OPTCOM.IOPT[place<WORD, OptionKind::Integer>()];
  }
  template <FixedText WORD>
  static double real() {
    return OPTCOM.XOPT[place<WORD, OptionKind::Real>()];
  }
  template <FixedText WORD>
  static const NameOption& named() {
    return OPTCOM.VOPT[place<WORD, OptionKind::Variable>()];
  }
  // Did the command name the option? (For name options: named().text.)
  template <FixedText WORD>
  static bool given() {
    constexpr OptionKind KIND = TABLE.kind(WORD.view());
    static_assert(KIND != OptionKind::Variable, "a name option tells by its text");
    if constexpr (KIND == OptionKind::Logical) return OPTCOM.lgiven[place<WORD, KIND>()];
    if constexpr (KIND == OptionKind::Integer) return OPTCOM.igiven[place<WORD, KIND>()];
    if constexpr (KIND == OptionKind::Real) return OPTCOM.xgiven[place<WORD, KIND>()];
  }
  // A default that depends on switches (between OPTION_START and OPTION_SCAN), or a value that
  // another option implies.
  template <FixedText WORD, class Value>
  static void set(Value value) {
    constexpr OptionKind KIND = TABLE.kind(WORD.view());
    static_assert(std::is_same_v<Value, bool> == (KIND == OptionKind::Logical));
    if constexpr (KIND == OptionKind::Logical) OPTCOM.LOPT[place<WORD, KIND>()] = value;
    if constexpr (KIND == OptionKind::Integer) OPTCOM.IOPT[place<WORD, KIND>()] = value;
    if constexpr (KIND == OptionKind::Real) OPTCOM.XOPT[place<WORD, KIND>()] = value;
  }

 private:
  template <FixedText WORD, OptionKind KIND>
  static consteval std::size_t place() {
    if (TABLE.kind(WORD.view()) != KIND) throw "the option is of another kind";
    return static_cast<std::size_t>(TABLE.place(WORD.view()));
  }
};

// Copies of name options that outlive the command's text, which lines read by the command
// overwrite. Texts are cut at 260 characters, longer than any path that is taken.
class KeptNames {
 public:
  NameOption keep(const NameOption& option);
  void clear() { used_ = 0; }

 private:
  struct Texts {
    std::array<char, 260> text{}, typed{};
  };
  std::array<Texts, MAXVOPT> kept_{};
  std::size_t used_ = 0;
};

// The refusals that commands share; the first two return false.
bool bad_option_value(std::string_view word);
bool incompatible_options();
// Options that were given but count only beside another one that was not.
struct IdleOption {
  bool idle;
  std::string_view word, needs;
};
void warn_idle_options(std::span<const IdleOption> options);
// Was a name option of the table typed without a value? It is told.
bool name_lacking(std::span<const OptionWord> table);

// ---- Numbers
// -------------------------------------------------------------------------------------

// Result of the number scanner.
struct Number {
  double value = 0;           // correctly rounded
  double whole = 0;           // integer part, with its sign
  std::int64_t fraction = 0;  // digits behind the point as an integer, 0 when there are none
  bool point = false;         // a point was there
  int used = 0;               // characters read, 0 when no number stands there
};
// Scans a decimal number at the front of text: sign, digits, point, digits, E or D exponent.
// Failures (a second point or exponent, an exponent without digits or out of range): used = 0.
Number FSUMS(std::string_view text);

// A number, a $ temporary or the first element of a variable (NAME or NAME:n).
struct Scalar {
  double value = 0;
  bool ok = false;
};
// Reports the failure itself (fail) unless quiet.
Scalar scalar_value(Workspace ws, std::string_view token, bool quiet = false);

// Observation number of a date year.period under the calendar in force; ok is false without a
// calendar or before its start.
struct DateObs {
  int obs = 0;
  bool ok = false;
};
DateObs date_observation(const Number& n);

}  // namespace korvel
