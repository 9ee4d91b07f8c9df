// OPTION: option tokens against a handler's table. FSUMS and the scalars that may stand as values.
#include <charconv>
#include <cmath>
#include <cstring>

#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"

namespace korvel {
namespace {

bool typable(const OptionWord& w) {
  if (w.word.empty() || w.word[0] == '*' || w.word[0] == 'x') return false;
  // Words that only fill a place of the standard form.
  for (const std::string_view filler : {"OPT", "IOPT", "XOPT", "VOPT"}) {
    if (w.word.size() == filler.size() + 1 && w.word.substr(0, filler.size()) == filler &&
        NAMCHK(w.word.back()) == 0) {
      return false;
    }
  }
  return true;
}

struct Match {
  const OptionWord* word = nullptr;
  int place = 0;
};

// First table word that `wanted` (at most 8 characters) matches; `whole` asks for the full word.
Match find_word(std::span<const OptionWord> table, std::string_view wanted, bool whole) {
  int rank[4] = {0, 0, 0, 0};
  for (const OptionWord& w : table) {
    const int place = rank[static_cast<int>(w.kind)]++;
    if (!typable(w) && !(w.word == "FMT*" && wanted == w.word)) continue;
    const bool same = whole ? w.word == wanted : w.word.substr(0, wanted.size()) == wanted;
    if (same) return {&w, place};
  }
  return {};
}

struct Found {
  Match match;
  bool truth = true;
  std::string_view shown;  // the word without NO, for messages
};

// The whole word first, then without a leading NO, then as an abbreviation.
Found match_option(std::span<const OptionWord> table, std::string_view word) {
  Found f{{}, true, word};
  const std::string_view cut = word.substr(0, KEYLEN);
  f.match = find_word(table, cut, true);
  if (f.match.word != nullptr) return f;
  const bool long_words = OSCOM.OLONG;
  if (word.size() > 2 && word.substr(0, 2) == "NO") {
    const std::string_view rest = word.substr(2);
    const Match m = find_word(table, rest.substr(0, KEYLEN), long_words);
    if (m.word != nullptr && m.word->kind == OptionKind::Logical) {
      f.match = m;
      f.truth = false;
      f.shown = rest;
      return f;
    }
  }
  if (!long_words) f.match = find_word(table, cut, false);
  return f;
}

constexpr int OPTIONCOLUMNS = 10;

void invalid_option(std::span<const OptionWord> table, std::string_view word) {
  error_line<"(' ...ERROR..INVALID OPTION..', A)">(word.substr(0, 64));
  mark_failed();
  OPTION_WORDS(table);
}

bool date_option(std::string_view word) {
  for (const std::string_view w : {"BEG", "END", "FBEG", "FEND", "CHOWONE"}) {
    if (word == w) return true;
  }
  return false;
}

// A number, a temporary or a scalar variable as the value of a word.
bool option_value(Workspace ws, const OptionWord& w, std::string_view value, double& x) {
  const bool numeric = !value.empty() && (NAMCHK(value[0]) == 0 || value[0] == '-' ||
                                          value[0] == '+' || value[0] == '.');
  if (!numeric) {
    const Scalar s = scalar_value(ws, value);
    x = s.value;
    return s.ok;
  }
  const Number n = FSUMS(value);
  if (n.used != static_cast<int>(value.size())) return bad_option_value(w.word);
  x = n.value;
  if (n.point && date_option(w.word)) {
    const DateObs d = date_observation(n);
    if (!d.ok) return bad_option_value(w.word);
    x = d.obs;
  }
  return true;
}

// Value of an integer or real place.
bool number_option(Workspace ws, const OptionWord& w, int place, std::string_view value) {
  if (w.pair) {  // the second number goes to the place behind
    const auto semicolon = value.find(';');
    if (semicolon == std::string_view::npos) return bad_option_value(w.word);
    const OptionWord one{w.word, w.kind, 0.0, {}};
    return number_option(ws, one, place + 1, value.substr(semicolon + 1)) &&
           number_option(ws, one, place, value.substr(0, semicolon));
  }
  double x = 0;
  if (value.empty()) return bad_option_value(w.word);
  if (!option_value(ws, w, value, x)) return false;
  if (w.kind == OptionKind::Real) {
    OPTCOM.XOPT[static_cast<std::size_t>(place)] = x;
    OPTCOM.xgiven[static_cast<std::size_t>(place)] = true;
    return true;
  }
  if (!(std::fabs(x) < 2147483648.0)) return bad_option_value(w.word);
  OPTCOM.IOPT[static_cast<std::size_t>(place)] = static_cast<int>(x);
  OPTCOM.igiven[static_cast<std::size_t>(place)] = true;
  return true;
}

// Value of a name place: the variable, if there is one, and the text.
bool name_option(Workspace ws, int place, int token, const Token& value) {
  NameOption& v = OPTCOM.VOPT[static_cast<std::size_t>(place)];
  v.text = value.text;
  v.typed = value.typed;
  const auto colon = value.text.find(':');
  const std::string_view name = value.text.substr(0, colon).substr(0, KEYLEN);
  v.var = VARNUM(ws, name);
  if (v.var == 0 && RUNCOM.settings.check) {
    v.var = stand_in(name);
    return true;
  }
  if (v.var == 0) {
    v.var = -1000 - token;  // told from a temporary, whose number is not below -80
    return true;
  }
  if (v.var > 0 && colon != std::string_view::npos) {
    const Number n = FSUMS(value.text.substr(colon + 1));
    if (n.used > 0 && n.value >= 1) {
      if (n.value > DATCOM.MXCOL) {
        fail<"(' ...ERROR.. ', I0, ' EXCEEDS MAXCOL=', I0, ' USE SET MAXCOL=')">(
            static_cast<std::int64_t>(n.value), DATCOM.MXCOL);
        return false;
      }
      v.var = v.var * DATCOM.MXCOL + static_cast<int>(n.value);
    }
  }
  return true;
}

}  // namespace

void OPTION_WORDS(std::span<const OptionWord> table) {
  say(" AVAILABLE OPTIONS ARE:");
  WordRows rows(OPTIONCOLUMNS);
  for (const OptionWord& w : table) {
    if (typable(w)) rows.add(w.word);
  }
  rows.end();
}

void OPTION_START(std::span<const OptionWord> table) {
  std::size_t rank[4] = {0, 0, 0, 0};
  for (const OptionWord& w : table) {
    const std::size_t place = rank[static_cast<int>(w.kind)]++;
    switch (w.kind) {
      case OptionKind::Logical:
        OPTCOM.LOPT[place] = w.start != 0;
        OPTCOM.lgiven[place] = false;
        break;
      case OptionKind::Integer:
        OPTCOM.IOPT[place] = w.word == "BEG"   ? DATCOM.IBEG
                             : w.word == "END" ? DATCOM.IEND
                                               : static_cast<int>(w.start);
        OPTCOM.igiven[place] = false;
        break;
      case OptionKind::Real:
        OPTCOM.XOPT[place] = w.start;
        OPTCOM.xgiven[place] = false;
        break;
      case OptionKind::Variable:
        OPTCOM.VOPT[place] = {0, w.name, w.name};
        break;
    }
  }
}

void OPTION_SCAN(Workspace ws, std::span<const OptionWord> table) {
  const auto token = [](int i) -> const Token& {
    return TOKCOM.token[static_cast<std::size_t>(i)];
  };
  for (int i = 1; i <= SCNCOM.NOPS; ++i) {
    const std::string_view word = token(i).text;
    const Found f = match_option(table, word);
    if (f.match.word == nullptr) return invalid_option(table, word);
    if (f.shown.size() > KEYLEN) {
      warn<"(' ...WARNING..', A, ' IS TRUNCATED TO ', I0)">(f.shown.substr(0, 64), KEYLEN);
    }
    const OptionWord& w = *f.match.word;
    const bool equals = i < SCNCOM.NOPS && token(i + 1).text == "=";
    const bool valued = equals && i + 2 <= SCNCOM.NOPS && token(i + 2).value;
    if (w.kind == OptionKind::Logical) {
      OPTCOM.LOPT[static_cast<std::size_t>(f.match.place)] = f.truth;
      OPTCOM.lgiven[static_cast<std::size_t>(f.match.place)] = true;
      if (equals) warn<"(' ...WARNING..THE ', A, ' OPTION SHOULD NOT HAVE AN =')">(w.word);
    } else if (w.kind == OptionKind::Variable) {
      if (valued) {
        if (!name_option(ws, f.match.place, i + 2, token(i + 2))) return;
      } else {
        OPTCOM.VOPT[static_cast<std::size_t>(f.match.place)] = {-1000 - i, "********", "********"};
      }
    } else {
      if (!valued) {
        bad_option_value(w.word);
        return;
      }
      if (!number_option(ws, w, f.match.place, token(i + 2).text)) return;
    }
    if (equals) i += valued ? 2 : 1;
  }
}

Number FSUMS(std::string_view text) {
  Number n;
  std::size_t at = 0;
  char digits[400];
  digits[0] = '\0';
  std::size_t used = 0;
  const auto keep = [&](char c) {
    if (used < sizeof digits - 1) digits[used++] = c;
  };
  bool negative = false;
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) negative = text[at++] == '-';
  const std::size_t first = at;
  std::size_t whole = 0, fraction = 0;
  while (at < text.size() && NAMCHK(text[at]) == 0) {
    keep(text[at++]);
    ++whole;
  }
  std::from_chars(digits, digits + used, n.whole);
  if (at < text.size() && text[at] == '.') {
    n.point = true;
    keep('.');
    ++at;
    while (at < text.size() && NAMCHK(text[at]) == 0) {
      if (fraction < 18) n.fraction = n.fraction * 10 + (text[at] - '0');
      keep(text[at++]);
      ++fraction;
    }
    if (at < text.size() && text[at] == '.') return {};
  }
  if (whole + fraction == 0) return {};
  if (at < text.size() && std::string_view("EDed").find(text[at]) != std::string_view::npos) {
    std::size_t e = at + 1;
    bool minus = false;
    if (e < text.size() && (text[e] == '-' || text[e] == '+')) minus = text[e++] == '-';
    if (e < text.size() && NAMCHK(text[e]) == 0) {
      keep('e');
      if (minus) keep('-');
      while (e < text.size() && NAMCHK(text[e]) == 0) keep(text[e++]);
      at = e;
    }
  }
  if (used >= sizeof digits - 1) return {};
  const auto result = std::from_chars(digits, digits + used, n.value);
  if (result.ec != std::errc{}) {
    // Beyond the range of a double: tiny numbers are zero, huge ones are no numbers.
    const auto minus = std::string_view(digits, used).find("e-");
    if (minus == std::string_view::npos) return {};
    n.value = 0;
  }
  if (negative) {
    n.value = -n.value;
    n.whole = -n.whole;
  }
  n.used = static_cast<int>(at);
  return first == at ? Number{} : n;
}

Scalar scalar_value(Workspace ws, std::string_view token, bool quiet) {
  if (token.empty()) return {};
  const char c = token[0];
  if (NAMCHK(c) == 0 || c == '-' || c == '+' || c == '.') {
    const Number n = FSUMS(token);
    if (n.used == static_cast<int>(token.size())) return {n.value, true};
    if (!quiet) fail(" ...ERROR..SYNTAX ERROR");
    return {};
  }
  const auto colon = token.find(':');
  const std::string_view name = token.substr(0, colon);
  int var = VARNUM(ws, name.substr(0, KEYLEN));
  if (var < 0) {
    const double value = temporary(-var - 1);
    if (value != UNSET) return {value, true};
    if (RUNCOM.settings.check) return {1.0, true};
    if (!quiet) fail<"(' ...ERROR..', A, ' IS NOT CURRENTLY DEFINED')">(name);
    return {};
  }
  if (var > 0) {
    if (colon != std::string_view::npos) {
      const Number n = FSUMS(token.substr(colon + 1));
      if (n.used > 0 && n.value >= 1 && n.value <= DATCOM.MXCOL) {
        var = var * DATCOM.MXCOL + static_cast<int>(n.value);
      }
    }
    const auto values = elements(ws, var);
    if (!values.empty() && INFO(ws, var).ITYPE < STRING5) return {values[0], true};
  }
  if (RUNCOM.settings.check && NAMCHK(name[0]) == 1) return {1.0, true};
  if (!quiet) fail<"(' ...ERROR..VARIABLE ', A, ' DOES NOT EXIST.')">(name);
  return {};
}

DateObs date_observation(const Number& n) {
  if (DATCOM.ITIME2 == 0) return {};
  const double year = n.whole;
  if (year < DATCOM.ITIME1) return {};
  const double sub = n.fraction < 1 ? 1.0 : static_cast<double>(n.fraction);
  const double obs = (sub - DATCOM.ITIME2) + 1 + (year - DATCOM.ITIME1) * DATCOM.ITIME3;
  if (!(std::fabs(obs) < 2147483647.0)) return {};
  return {static_cast<int>(obs), true};
}

NameOption KeptNames::keep(const NameOption& option) {
  const auto copy = [](std::string_view from, std::array<char, 260>& to) {
    const std::size_t n = std::min(from.size(), to.size());
    std::copy_n(from.begin(), n, to.begin());
    return std::string_view(to.data(), n);
  };
  Texts& room = kept_[used_++];
  return {option.var, copy(option.text, room.text), copy(option.typed, room.typed)};
}

bool bad_option_value(std::string_view word) {
  fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A)">(word);
  return false;
}

void warn_idle_options(std::span<const IdleOption> options) {
  for (const IdleOption& o : options) {
    if (o.idle) warn<"(' ...WARNING..OPTION ', A, ' COUNTS ONLY WITH ', A)">(o.word, o.needs);
  }
}

bool incompatible_options() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS ");
  return false;
}

bool name_lacking(std::span<const OptionWord> table) {
  std::size_t place = 0;
  for (const OptionWord& w : table) {
    if (w.kind == OptionKind::Variable && OPTCOM.VOPT[place++].text == "********") {
      return !bad_option_value(w.word);
    }
  }
  return false;
}

}  // namespace korvel
